#include <glib.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/Foundation.h"
#include "platform/Owned.h"

namespace {

// What the loop did, in order.
struct Diary {
    std::vector<std::string> lines;
    std::thread::id ranOn;
};

void Work(void* context) {
    auto* diary = static_cast<Diary*>(context);
    diary->lines.push_back("work");
    diary->ranOn = std::this_thread::get_id();
}

void Release(void* context) {
    static_cast<Diary*>(context)->lines.push_back("release");
}

void RunMainLoopDry() {
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

using Lines = std::vector<std::string>;

}  // namespace

TEST(RunLoopPerform, NeverRunsInPlaceOnTheMainThread) {
    Diary diary;
    platform::RunLoopPerform(Work, &diary, Release);
    EXPECT_EQ(diary.lines, Lines());
    RunMainLoopDry();
    EXPECT_EQ(diary.lines, (Lines{"work", "release"}));
    EXPECT_EQ(diary.ranOn, std::this_thread::get_id());
}

TEST(RunLoopPerform, NeverRunsInPlaceOnAThreadBeforeTheLoopRuns) {
    Diary diary;
    Lines seenByThread = {"not looked"};
    std::thread([&] {
        platform::RunLoopPerform(Work, &diary, Release);
        seenByThread = diary.lines;
    }).join();
    EXPECT_EQ(seenByThread, Lines());
    RunMainLoopDry();
    EXPECT_EQ(diary.lines, (Lines{"work", "release"}));
    EXPECT_EQ(diary.ranOn, std::this_thread::get_id()) << "on the thread that runs the main loop";
}

// A thread with a loop of its own must not be taken for the main one.
TEST(RunLoopPerform, UsesTheMainLoopOnAThreadWithItsOwnLoop) {
    Diary diary;
    std::thread([&] {
        GMainContext* own = g_main_context_new();
        g_main_context_push_thread_default(own);
        platform::RunLoopPerform(Work, &diary, Release);
        while (g_main_context_iteration(own, FALSE)) {
        }
        g_main_context_pop_thread_default(own);
        g_main_context_unref(own);
    }).join();
    EXPECT_EQ(diary.lines, Lines());
    RunMainLoopDry();
    EXPECT_EQ(diary.lines, (Lines{"work", "release"}));
}

TEST(RunLoopPerform, KeepsTheOrderOfTheCalls) {
    struct Numbered {
        std::vector<int>* order;
        int number;
    };
    std::vector<int> order;
    for (int i = 0; i < 20; ++i) {
        platform::RunLoopPerform(
            [](void* context) {
                const auto* call = static_cast<Numbered*>(context);
                call->order->push_back(call->number);
            },
            new Numbered{&order, i}, [](void* context) { delete static_cast<Numbered*>(context); });
    }
    RunMainLoopDry();
    std::vector<int> expected(20);
    for (int i = 0; i < 20; ++i) expected[static_cast<std::size_t>(i)] = i;
    EXPECT_EQ(order, expected);
}

TEST(RunLoopPerform, NeedsNoRelease) {
    Diary diary;
    platform::RunLoopPerform(Work, &diary, nullptr);
    RunMainLoopDry();
    EXPECT_EQ(diary.lines, Lines{"work"});
}

TEST(RunLoopPerform, ReleasesAContextWhoseWorkIsDropped) {
    Diary diary;
    const guint before = [] {
        GSource* probe = g_idle_source_new();
        const guint number = g_source_attach(probe, nullptr);
        g_source_destroy(probe);
        g_source_unref(probe);
        return number;
    }();
    platform::RunLoopPerform(Work, &diary, Release);
    GSource* source = g_main_context_find_source_by_id(nullptr, before + 1);
    ASSERT_NE(source, nullptr);
    g_source_destroy(source);
    EXPECT_EQ(diary.lines, Lines{"release"});
    RunMainLoopDry();
    EXPECT_EQ(diary.lines, Lines{"release"});
}

// Beside this program there is no helper that could show an alert.
TEST(RunWarningAlert, WritesTheTextsInOrderWhereNoHelperCanBeStarted) {
    const UniChar halfOfAPair[] = {0xD800};
    const Owned<CFStringRef> notText(CFStringCreateWithCharacters(nullptr, halfOfAPair, 1));
    testing::internal::CaptureStderr();
    platform::RunWarningAlert(CFSTR("first"), CFSTR("100 % sure"), CFSTR("OK"));
    platform::RunWarningAlert(CFSTR("second \xC3\xA9"), nullptr, CFSTR("OK"));
    platform::RunWarningAlert(notText.Get(), CFSTR("third"), nullptr);
    RunMainLoopDry();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "first\n100 % sure\nsecond \xC3\xA9\n\n\nthird\n");
}
