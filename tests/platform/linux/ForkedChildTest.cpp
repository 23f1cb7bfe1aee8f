// Forks while other threads do one thing over and over: the child does the same, once, and must find no lock closed.
// The program is linked so that unlocking passes through here: the threads keep every lock closed for most of the time.

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <thread>

#include "platform/Dispatch.h"
#include "platform/Posix.h"
#include "platform/linux/ColourChains/ChainEvaluators.h"
#include "profile/ProfileCache.h"
#include "profile/TagRegistry.h"
#include "session/MatchingDataHandle.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

thread_local bool tIsSlow = false;

}  // namespace

extern "C" {

int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    if (tIsSlow) usleep(20);
    return __real_pthread_mutex_unlock(mutex);
}

}  // extern "C"

namespace {

constexpr unsigned kPatience = 20;  // seconds; only for a child that hangs

/// What became of a child: "" when it did its work.
std::string Outcome(pid_t child) {
    int status = -1;
    if (waitpid(child, &status, 0) != child) return "lost";
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? "hangs" : "failed";
}

/// Forks while `busy` runs over and over in other threads; each child runs `once`.
void ForkDuring(const std::function<void()>& busy, const std::function<void()>& once, size_t threads, int forks) {
    std::atomic<bool> done = false;
    std::atomic<size_t> begun = 0;
    std::vector<std::thread> workers(threads);
    for (std::thread& worker : workers) {
        worker = std::thread([&] {
            tIsSlow = true;
            busy();
            ++begun;
            while (!done) busy();
        });
    }
    while (begun < threads) std::this_thread::yield();
    std::string outcome;
    for (int i = 0; i < forks && outcome.empty(); ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(kPatience);
            once();
            _exit(0);
        }
        outcome = Outcome(child);
    }
    done = true;
    for (std::thread& worker : workers) worker.join();
    EXPECT_EQ(outcome, "");
}

void ForkDuring(const std::function<void()>& work) {
    ForkDuring(work, work, 2, 30);
}

using Bytes = std::vector<std::uint8_t>;

std::vector<platform::ChainStep> Steps(const std::vector<Bytes>& profiles) {
    std::vector<platform::ChainStep> steps;
    steps.reserve(profiles.size());
    for (const Bytes& bytes : profiles) steps.push_back({std::make_shared<const Bytes>(bytes), INTENT_ABSOLUTE_COLORIMETRIC, false});
    return steps;
}

TEST(ForkedChild, FindsConstantStrings) {
    ForkDuring([] { CFSTR("a constant"); });
}

TEST(ForkedChild, FindsTags) {
    ForkDuring([] { TagKey(0x77747074); });
}

TEST(ForkedChild, FindsKnownProfiles) {
    const Owned<CFURLRef> url = FileURL(kSRGBMonitor);
    CachedProfile(url.Get()).Keep(Owned<ColorSyncProfileRef>(ColorSyncProfileCreateWithURL(url.Get(), nullptr)).Get());
    ForkDuring([&] {
        if (!Owned<ColorSyncProfileRef>(CachedProfile(url.Get()).Create())) std::abort();
    });
}

TEST(ForkedChild, OpensProfiles) {
    const Bytes bytes = ReadFile(kSRGBMonitor);
    ForkDuring([&] {
        if (!ProfileFrom(bytes)) std::abort();
    });
}

TEST(ForkedChild, FindsKeptChains) {
    const std::vector<platform::ChainStep> steps = Steps({{1}, {2}});
    ForkDuring([&] { platform::ChainCache().Find(steps); });
}

TEST(ForkedChild, MakesEvaluators) {
    const std::vector<platform::ChainStep> steps = Steps({ReadFile(kSRGBMonitor), ReadFile(kCMYKPrinter)});
    const auto chain = [&] { return std::make_unique<platform::ChainEvaluators>(platform::ProfileChain::Create(steps)); };
    constexpr platform::PixelFormat k8Bit = {platform::PixelFormat::k8Bit, platform::PixelFormat::kNone};
    constexpr platform::PixelFormat k16Bit = {platform::PixelFormat::k16Bit, platform::PixelFormat::kNone};
    constexpr platform::PixelFormat kFloat = {platform::PixelFormat::kFloat, platform::PixelFormat::kNone};
    std::vector<std::unique_ptr<platform::ChainEvaluators>> chains;
    std::atomic<platform::ChainEvaluators*> current = nullptr;
    ForkDuring(
        [&] {
            {
                const platform::ForkSection section;
                chains.push_back(chain());
            }
            current = chains.back().get();
            current.load()->Evaluator(k16Bit, k16Bit);
            current.load()->Evaluator(k16Bit, std::nullopt);
            current.load()->Evaluator(kFloat, kFloat);
        },
        [&] {
            if (!current.load()->Evaluator(k8Bit, k8Bit) || !current.load()->Evaluator(kFloat, k16Bit)) std::abort();
        },
        1, 30);
}

TEST(ForkedChild, FindsFileReferences) {
    const FSRef ref = FileRef(kSRGBMonitor);
    ForkDuring([&] {
        if (!Owned<CFURLRef>(CFURLCreateFromFSRef(kCFAllocatorDefault, &ref))) std::abort();
    });
}

TEST(ForkedChild, FindsResourceFiles) {
    ForkDuring([] { CurResFile(); });
}

TEST(ForkedChild, InitialisesOnce) {
    static dispatch_once_t predicates[1000000];
    static std::atomic<size_t> next = 0;
    ForkDuring([] { dispatch_once_f(&predicates[next++ % std::size(predicates)], nullptr, [](void*) { usleep(1); }); },
               [] {
                   for (size_t i = next; i + 10 > next; --i) dispatch_once_f(&predicates[i % std::size(predicates)], nullptr, [](void*) {});
               },
               2, 30);
}

TEST(ForkedChild, UsesSerialQueues) {
    const dispatch_queue_t queue = dispatch_queue_create("of this test", DISPATCH_QUEUE_SERIAL);
    ForkDuring([&] { dispatch_sync_f(queue, nullptr, [](void*) {}); });
}

TEST(ForkedChild, SignalsRunLoopSources) {
    CFRunLoopSourceContext context = {};
    const Owned<CFRunLoopSourceRef> source(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context));
    CFRunLoopAddSource(CFRunLoopGetMain(), source.Get(), kCFRunLoopCommonModes);
    ForkDuring([&] { CFRunLoopSourceSignal(source.Get()); });
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(ForkedChild, RunsTheLoopThatOthersAskedAbout) {
    const auto ask = [] { pthread_main_np(); };
    const auto run = [] {
        // Another thread that owned the loop for a moment is not there to let go of it.
        if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false) != kCFRunLoopRunTimedOut || !g_main_context_acquire(nullptr)) _exit(1);
    };
    ForkDuring(ask, run, 3, 300);
}

TEST(ForkedChild, UsesTheMatchingData) {
    auto* data = static_cast<MatchingData*>(std::calloc(1, sizeof(MatchingData)));
    data->referenceCount = 1;
    SetMatchingData(data);
    ForkDuring([] { ReleaseMatchingData(GetMatchingData()); });
    SetMatchingData(nullptr);
}

TEST(ForkedChild, RunsTheMainQueueWithoutTheWorkOfThreadsThatStayedBehind) {
    std::atomic<bool> done = false;
    std::thread worker([&] {
        tIsSlow = true;
        while (!done) dispatch_sync_f(dispatch_get_main_queue(), nullptr, [](void*) {});
        done = false;
    });
    std::string outcome;
    for (int i = 0; i < 30 && outcome.empty(); ++i) {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false);
        const pid_t child = fork();
        if (child == 0) {
            alarm(kPatience);
            std::atomic<int> ran = 0;
            std::thread other(
                [&] { dispatch_sync_f(dispatch_get_main_queue(), &ran, [](void* count) { ++*static_cast<std::atomic<int>*>(count); }); });
            while (ran == 0) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
            other.join();
            _exit(pthread_main_np() ? 0 : 1);
        }
        outcome = Outcome(child);
    }
    EXPECT_EQ(outcome, "");
    done = true;
    while (done) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
    worker.join();
}

TEST(ForkedChild, OfAnyThreadIsTheMainOneThere) {
    std::thread([] {
        EXPECT_EQ(pthread_main_np(), 0);
        const pid_t child = fork();
        if (child == 0) {
            alarm(kPatience);
            bool ran = false;
            dispatch_sync_f(dispatch_get_main_queue(), &ran, [](void* flag) { *static_cast<bool*>(flag) = true; });
            _exit(ran && pthread_main_np() ? 0 : 1);
        }
        EXPECT_EQ(Outcome(child), "");
    }).join();
}

}  // namespace
