#include <glib.h>
#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <type_traits>

#include "platform/Owned.h"
#include "session/Failure.h"
#include "session/UserNotices.h"
#include "tests/fixtures/TracedChild.h"

namespace {

constexpr long kRaised = 0x65727220;

struct FailureState : testing::Test {
    void SetUp() override {
        gBreakFailure = gAskFailure = FALSE;
        gLastError = 77;
        gLastMessage = 88;
    }
    void TearDown() override { gBreakFailure = gAskFailure = FALSE; }
};

// The value of the signed long that was thrown, 0 when nothing was, -1 for an object of another type.
template <typename Work>
long Thrown(Work work) {
    try {
        work();
    } catch (long value) {
        return value;
    } catch (...) {
        return -1;
    }
    return 0;
}

void RunMainLoopDry() {
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

}  // namespace

using Raising = FailureState;
using StopInTheDebugger = FailureState;

// ---- raising ----

// First in the file: before anything has failed.
TEST(FailureGlobals, StartAsNothing) {
    EXPECT_EQ(gBreakFailure, FALSE);
    EXPECT_EQ(gAskFailure, FALSE);
    EXPECT_EQ(gLastError, 0);
    EXPECT_EQ(gLastMessage, 0);
    static_assert(sizeof gBreakFailure == 1 && sizeof gAskFailure == 1);
    static_assert(std::is_same_v<decltype(gLastError), short> && std::is_same_v<decltype(gLastMessage), long> && sizeof(long) == 8);
}

TEST_F(Raising, ThrowsTheFixedLongAndKeepsCodeAndMessage) {
    int something = 0;
    const struct {
        void (*raise)(void*);
        short error;
        long message;
        const char* what;
    } rows[] = {
        {[](void*) { Failure(-170, 0); }, -170, 0, "without a message"},
        {[](void*) { Failure(-43, 0x00010003); }, -43, 0x00010003, "with one"},
        {[](void*) { Failure(SHRT_MIN, LONG_MIN); }, SHRT_MIN, LONG_MIN, "the widest values"},
        {[](void*) { Failure(0, 5); }, 0, 5, "code 0 is raised all the same"},
        {[](void*) { Fail(-50); }, -50, 0, "a bare code"},
        {[](void*) { FailNIL(nullptr); }, -108, 0, "a null pointer"},
        {[](void*) { FailOSErr(-36); }, -36, 0, "a status"},
        {[](void*) { FailOSErr(1); }, 1, 0, "a positive status"},
    };
    for (const auto& row : rows) {
        gLastError = 77;
        gLastMessage = 88;
        EXPECT_EQ(Thrown([&] { row.raise(&something); }), kRaised) << row.what;
        EXPECT_EQ(gLastError, row.error) << row.what;
        EXPECT_EQ(gLastMessage, row.message) << row.what;
    }
}

TEST_F(Raising, DoesNotHappenWhenNothingIsWrong) {
    int something = 0;
    EXPECT_EQ(Thrown([] { FailOSErr(0); }), 0);
    EXPECT_EQ(Thrown([&] { FailNIL(&something); }), 0);
    EXPECT_EQ(gLastError, 77);
    EXPECT_EQ(gLastMessage, 88);
}

// ---- debugger ----

TEST_F(StopInTheDebugger, HappensWhenTheFlagsAskForIt) {
    const struct {
        void (*work)();
        const char* what;
        int stops;
        bool breakFailure, askFailure;
    } rows[] = {
        {[] { Failure(-1, 0); }, "no flag", 0, false, false},
        {[] { Failure(-1, 0); }, "break: a failure", 1, true, false},
        {[] { Fail(-1); }, "break: a bare code", 1, true, false},
        {[] { FailNIL(nullptr); }, "break: a null pointer", 1, true, false},
        {[] { FailNIL(&gLastError); }, "break: a good pointer", 0, true, false},
        {[] { FailOSErr(-1); }, "break: a status", 1, true, false},
        {[] { FailOSErr(0); }, "break: no error", 0, true, false},
        {[] { FailNIL(&gLastError); }, "ask: a good pointer", 1, false, true},
        {[] { FailNIL(nullptr); }, "ask: a null pointer", 1, false, true},
        {[] { FailOSErr(0); }, "ask: no error", 1, false, true},
        {[] { FailOSErr(-1); }, "ask: a status", 1, false, true},
        {[] { Failure(-1, 0); }, "ask: a failure itself", 0, false, true},
        {[] { FailOSErr(-1); }, "both: asked, then broken", 2, true, true},
    };
    for (const auto& row : rows) {
        const TracedEnd end = RunTraced([&] {
            gBreakFailure = row.breakFailure;
            gAskFailure = row.askFailure;
            const long thrown = Thrown(row.work);
            return thrown == kRaised || thrown == 0 ? 7 : 8;
        });
        if (!end.traced) GTEST_SKIP() << "this system does not let a process be traced";
        EXPECT_EQ(end.stops, row.stops) << row.what;
        EXPECT_EQ(end.status, 7) << row.what;
    }
}

TEST_F(StopInTheDebugger, DoesNotHappenWithoutOne) {
    const TracedEnd end = RunTraced(
        [] {
            gBreakFailure = gAskFailure = TRUE;
            return Thrown([] { FailOSErr(-1); }) == kRaised && gLastError == -1 ? 7 : 8;
        },
        false);
    EXPECT_EQ(end.status, 7);
}

// The code and the message are those of the failure before while the debugger looks at them.
TEST_F(StopInTheDebugger, ComesBeforeTheFailureIsRecorded) {
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(101);
        gBreakFailure = TRUE;
        gLastError = 55;
        _exit(Thrown([] { Fail(-1); }) == kRaised ? 7 : 8);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 101) GTEST_SKIP() << "this system does not let a process be traced";
    ASSERT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP);
    const long word = ptrace(PTRACE_PEEKDATA, child, &gLastError, nullptr);
    EXPECT_EQ(static_cast<short>(word), 55);
    ptrace(PTRACE_CONT, child, nullptr, nullptr);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7);
}

// ---- message designators ----

TEST(SpecifyMsg, JoinsTableAndIndex) {
    const struct {
        short table, index;
        long message;
        const char* what;
    } rows[] = {
        {0, 5, 5, "no table"},
        {0, -5, -5, "no table, negative index"},
        {0, SHRT_MAX, SHRT_MAX, "no table, largest index"},
        {1025, 3, 0x00010003, "the first table after the base"},
        {1024, 7, 7, "the base itself: as for no table"},
        {1000, 1, static_cast<std::int32_t>(0xFFE80001), "a table below the base: negative"},
        {SHRT_MAX, 1, 0x7BFF0001, "the last table"},
        {SHRT_MIN, 1, 0x7C000001, "the first table: the difference is kept to 16 bits"},
        {-31744, 2, static_cast<std::int32_t>(0x80000002), "the lowest difference"},
        {1025, -1, -1, "a negative index covers the table"},
        {1025, SHRT_MIN, -32768, "so does the lowest"},
    };
    for (const auto& row : rows) EXPECT_EQ(SpecifyMsg(row.table, row.index), row.message) << row.what;
}

// ---- notices (no helper that could show them stands beside this program) ----

TEST(NotifyUser, ReturnsAtOnceKeepsBothStringsAndLetsGoWhenTheNoticeIsOver) {
    const Owned<CFStringRef> message(CFStringCreateWithCString(nullptr, "a message", kCFStringEncodingUTF8));
    const Owned<CFStringRef> informative(CFStringCreateWithCString(nullptr, "and more", kCFStringEncodingUTF8));
    testing::internal::CaptureStderr();
    std::thread(NotifyUser, message.Get(), informative.Get()).join();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "nothing is shown before the main loop runs";
    EXPECT_EQ(CFGetRetainCount(message.Get()), 2);
    EXPECT_EQ(CFGetRetainCount(informative.Get()), 2);
    testing::internal::CaptureStderr();
    RunMainLoopDry();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a message\nand more\n");
    EXPECT_EQ(CFGetRetainCount(message.Get()), 1);
    EXPECT_EQ(CFGetRetainCount(informative.Get()), 1);
}

TEST(NotifyUser, OutlivesTheCallersStrings) {
    testing::internal::CaptureStderr();
    {
        const Owned<CFStringRef> message(CFStringCreateWithCString(nullptr, "short-lived", kCFStringEncodingUTF8));
        NotifyUser(message.Get(), nullptr);
    }
    RunMainLoopDry();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "short-lived\n\n");
}

TEST(NotifyWaitForQuit, WaitsForNothing) {
    testing::internal::CaptureStderr();
    NotifyUser(CFSTR("pending"), CFSTR("still"));
    NotifyWaitForQuit();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    RunMainLoopDry();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "pending\nstill\n");
}
