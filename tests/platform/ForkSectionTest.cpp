#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/ForkSection.h"
#include "platform/MadeOnce.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/ForksWithThreads.h"

namespace {

using platform::ForkSafeMutex;
using platform::ForkSection;

void Sleep() {
    usleep(50000);
}

TEST(ForkSection, AForkWaitsForItsEnd) {
    std::atomic<bool> hasBegun = false, isOver = false;
    std::thread worker([&] {
        const ForkSection section;
        hasBegun = true;
        Sleep();
        isOver = true;
    });
    while (!hasBegun) std::this_thread::yield();
    EXPECT_EQ(InAChild([&] { return isOver ? "over" : "cut in half"; }), "over");
    worker.join();
}

TEST(ForkSection, BeginsInTheChildAndInTheParentAfterTheFork) {
    const auto begin = [] {
        const ForkSection section;
        return "begun";
    };
    EXPECT_EQ(InAChild([&] {
                  alarm(60);
                  return begin();
              }),
              "begun");
    std::thread([&] { begin(); }).join();
    EXPECT_STREQ(begin(), "begun");
}

TEST(ForkSection, AThreadForksInsideItsOwnWhichGoesOnInTheChild) {
    const ForkSection outer;
    EXPECT_EQ(InAChild([&] {
                  alarm(60);
                  // A fork of the child waits for no thread that stayed in the parent.
                  return InAChild([] { return "grandchild"; });
              }),
              "grandchild");
}

TEST(ForkSection, OneInsideAnotherBeginsWhileAForkWaits) {
    std::atomic<bool> hasBegun = false, isForking = false;
    std::thread worker([&] {
        const ForkSection outer;
        hasBegun = true;
        while (!isForking) std::this_thread::yield();
        Sleep();
        const ForkSection inner;
    });
    while (!hasBegun) std::this_thread::yield();
    isForking = true;
    EXPECT_EQ(InAChild([] { return "forked"; }), "forked");
    worker.join();
}

TEST(ForkSection, ThreadsThatForkAtOnceTakeTurns) {
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            for (int i = 0; i < 25; ++i) {
                { const ForkSection section; }
                const pid_t child = fork();
                if (child == 0) {
                    alarm(60);
                    { const ForkSection section; }
                    _exit(0);
                }
                int status = -1;
                if (waitpid(child, &status, 0) != child || status != 0) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(ForkSafeMutex, IsOpenInEveryChild) {
    ForkSafeMutex mutex;
    std::atomic<bool> done = false;
    long count = 0;  // guarded by the mutex, as is its twin
    long twin = 0;
    std::vector<std::thread> threads(2);
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            while (!done) {
                const std::lock_guard guard(mutex);
                ++count;
                for (int i = 0; i < 200; ++i) asm volatile("");
                ++twin;
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(InAChild([&] {
                      alarm(60);
                      const std::lock_guard guard(mutex);
                      return count == twin ? "whole" : "cut in half";
                  }),
                  "whole");
    }
    done = true;
    for (std::thread& thread : threads) thread.join();
}

TEST(ForkSafeMutex, WhoeverHoldsItMayForkWhileOthersWaitForIt) {
    EXPECT_EQ(InAChild([] {
                  alarm(60);
                  ForkSafeMutex mutex;
                  std::unique_lock guard(mutex);
                  std::atomic<bool> isAboutToWait = false;
                  std::thread waiting([&] {
                      isAboutToWait = true;
                      const std::lock_guard own(mutex);
                  });
                  while (!isAboutToWait) std::this_thread::yield();
                  Sleep();
                  const std::string answer = InAChild([&] {
                      // The waiting thread is not here; the mutex is this thread's as before.
                      guard.unlock();
                      const std::lock_guard again(mutex);
                      return "forked";
                  });
                  guard.unlock();
                  waiting.join();
                  return answer;
              }),
              "forked");
}

int sMade = 0;

TEST(MadeOnce, MakesOneObjectForAllThreads) {
    static constinit platform::MadeOnce<int> number;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads(8);
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            const int* const made = number.Get([] {
                Sleep();
                return new int(++sMade);
            });
            if (*made != 1 || made != number.Get()) ++wrong;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(sMade, 1);
}

TEST(MadeOnce, KeepsNull) {
    static constinit platform::MadeOnce<int> nothing;
    int asked = 0;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(nothing.Get([&]() -> int* {
            ++asked;
            return nullptr;
        }),
                  nullptr);
    }
    EXPECT_EQ(asked, 1);
}

TEST(MadeOnce, TriesAgainAfterAFailure) {
    static constinit platform::MadeOnce<int> number;
    EXPECT_THROW(number.Get([]() -> int* { throw 1; }), int);
    EXPECT_EQ(*number.Get([] { return new int(5); }), 5);
}

TEST(MadeOnce, IsMadeOrNotMadeInAChild) {
    static constinit platform::MadeOnce<int> number;
    std::atomic<bool> hasBegun = false;
    std::thread maker([&] {
        number.Get([&] {
            hasBegun = true;
            Sleep();
            return new int(1);
        });
    });
    while (!hasBegun) std::this_thread::yield();
    EXPECT_EQ(InAChild([&] {
                  alarm(60);
                  return std::to_string(*number.Get([] { return new int(2); }));
              }),
              "1");
    maker.join();
}

int sChildren = 0;
const platform::InForkedChild sCount([] { ++sChildren; });

TEST(InForkedChild, IsCalledInTheChildAlone) {
    EXPECT_EQ(InAChild([] { return std::to_string(sChildren); }), "1");
    EXPECT_EQ(sChildren, 0);
}

}  // namespace
