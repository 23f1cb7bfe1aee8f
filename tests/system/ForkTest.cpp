// A host that forks while its other threads build records, change the current one and match colours. A child gets all memory as it is at that moment
// and none of the other threads: it must find no lock closed and every answer right.
//
// A few hundred children unless the environment variable CM_FORKS names another number.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "session/ColourOperations.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

const PrivateStore store;

constexpr size_t kColours = 20;
constexpr unsigned kPatience = 60;  // seconds; only for a child that hangs
constexpr int kAtOnce = 2;
constexpr int kMostFailures = 3;  // each may have taken all the patience

using Words = std::vector<uint16_t>;

struct Answers {
    Words monitor, printer;
    bool operator==(const Answers&) const = default;
};

Answers Ask() {
    Words in(4 * kColours);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint16_t>(i * 2477);
    Answers answers = {Words(in.size()), Words(in.size())};
    if (MonitorMatch16(in.data(), answers.monitor.data(), kColours) != 0 || PrinterMatch16(in.data(), answers.printer.data(), kColours) != 0)
        return {};
    return answers;
}

int ForksWanted() {
    const char* const number = std::getenv("CM_FORKS");
    return number ? std::atoi(number) : 200;
}

class Fork : public testing::Test {
protected:
    void SetUp() override {
        // More choices than are kept, so that some part of a build has always to be done anew.
        for (const double gamma : {1.5, 1.8, 2.0, 2.2, 2.4, 2.6}) {
            ProfileMaker maker = MatrixMonitor(CurvTag({static_cast<uint16_t>(gamma * 256)}));
            maker.profileClass = Code("prtr");
            const std::string printer = folder.Write("printer" + std::to_string(choices.size()) + ".icc", maker.Make());
            choices.push_back({choices.size() % 2 == 0 ? kSRGBMonitor : kGammaMonitor, printer});
        }
        choices.push_back({kSRGBMonitor, kCMYKPrinter});
        for (const Choice& choice : choices) {
            Loaded loaded = Load(choice);
            ASSERT_EQ(loaded.status, 0);
            SetMatchingData(loaded.data.release());
            ofLoading.push_back(Ask());
        }
        ICC_SetMatchingQuality(0x51756131);  // grid tables would have no time left for anything else
        for (Answers& answers : ofSettings) {
            ASSERT_EQ(Install(static_cast<size_t>(&answers - ofSettings)), 0);
            answers = Ask();
        }
    }
    void TearDown() override { SetMatchingData(nullptr); }

    /// As the session does after a change of the settings.
    OSErr Install(size_t i) const {
        const Alias monitor(choices[i].monitor), printer(choices[i].printer);
        const ICCProfileLocation location = {monitor.Get(), printer.Get(), nullptr};
        return ICC_Load(&location);
    }

    /// In the child: 0 when all is right.
    int ChildsWork(size_t number) const {
        const Answers current = Ask();
        if (current != ofSettings[0] && current != ofSettings[1]) return 1;
        const size_t i = number % choices.size();
        Loaded loaded = Load(choices[i]);
        if (loaded.status != 0) return 2;
        SetMatchingData(loaded.data.release());
        return Ask() == ofLoading[i] ? 0 : 3;
    }

    TemporaryFolder folder;
    std::vector<Choice> choices;
    std::vector<Answers> ofLoading;  // for each choice
    Answers ofSettings[2];           // for the first two, under the settings
};

TEST_F(Fork, ChildrenOfABusyHostWorkOn) {
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (size_t i = 0; !done; ++i) {
            if (Load(choices[i % choices.size()]).status != 0) ++wrong;
        }
    });
    threads.emplace_back([&] {
        for (size_t i = 0; !done; ++i) {
            if (Install(i % 2) != 0) ++wrong;
        }
    });
    threads.emplace_back([&] {
        while (!done) {
            if (Ask() == Answers()) ++wrong;
        }
    });

    const auto wanted = static_cast<size_t>(ForksWanted());
    int failures = 0;
    size_t started = 0;
    for (size_t ended = 0; ended < started || (started < wanted && failures < kMostFailures);) {
        if (started < wanted && failures < kMostFailures && started - ended < kAtOnce) {
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) {
                alarm(kPatience);
                _exit(ChildsWork(started));
            }
            ++started;
        } else {
            int status = 0;
            ASSERT_GT(wait(&status), 0);
            ++ended;
            if (WIFEXITED(status) && WEXITSTATUS(status) == 0) continue;
            ++failures;
            ADD_FAILURE() << (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? "a child hangs" : "a child's answers are wrong: ") << status
                          << ", of the first " << started;
        }
    }
    done = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
