// Calls of a real message bus itself, and of servers that take calls and do not answer.

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "platform/linux/Notifications/NotificationBus.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/FakeBus.h"
#include "tests/fixtures/PrivateBus.h"

namespace {

using platform::BusCaller;
using platform::BusMessage;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kPatience{500};
/// Only against a call that never ends.
constexpr milliseconds kLong{60000};

BusMessage CallOfBus(const char* member, const char* signature = "", std::vector<std::string> texts = {}) {
    BusMessage call;
    call.destination = "org.freedesktop.DBus";
    call.path = "/org/freedesktop/DBus";
    call.interface = "org.freedesktop.DBus";
    call.member = member;
    call.signature = signature;
    call.texts = std::move(texts);
    return call;
}

/// The bus's own name for itself, asked for again and again, until something else comes; how often it came.
int Answers(const std::string& address, int times) {
    BusCaller caller(address, kLong);
    int answers = 0;
    for (int i = 0; i < times; ++i) {
        const auto answer = caller.Call(CallOfBus("GetNameOwner", "s", {"org.freedesktop.DBus"}));
        answers += answer && answer->texts == std::vector<std::string>{"org.freedesktop.DBus"};
    }
    return answers;
}

TEST(BusCaller, GetsTheAnswersOfOneCallAfterTheOther) {
    const TemporaryFolder folder;
    const PrivateBus bus(folder);
    EXPECT_EQ(Answers(bus.Address(), 20), 20);
}

TEST(BusCaller, GetsNothingWhereTheCallIsRefusedAndGoesOn) {
    const TemporaryFolder folder;
    const PrivateBus bus(folder);
    BusCaller caller(bus.Address(), kLong);
    EXPECT_FALSE(caller.Call(CallOfBus("GetNameOwner", "s", {"org.example.Nobody"})));
    EXPECT_FALSE(caller.Call(CallOfBus("NoSuchMethod")));
    EXPECT_FALSE(caller.IsSilent());
    EXPECT_TRUE(caller.Call(CallOfBus("GetId")));
}

TEST(BusCaller, GetsNothingWithoutABus) {
    for (const char* const address : {"", "unix:path=/no/such/socket", "tcp:host=localhost", "nonsense"}) {
        BusCaller caller(address, kLong);
        EXPECT_FALSE(caller.Call(CallOfBus("GetId"))) << address;
        EXPECT_FALSE(caller.IsSilent()) << address;
    }
}

TEST(BusCaller, WaitsOnceForAServerThatNeverAnswers) {
    const TemporaryFolder folder;
    const FakeBus bus(folder / "bus", "");
    const auto start = Clock::now();
    BusCaller caller(bus.Address(), kPatience);
    for (int i = 0; i < 20; ++i) EXPECT_FALSE(caller.Call(CallOfBus("GetId")));
    EXPECT_TRUE(caller.IsSilent());
    EXPECT_GE(Clock::now() - start, kPatience);
    EXPECT_LT(Clock::now() - start, 10 * kPatience) << "twenty calls share one limit";
}

TEST(BusCaller, OfAChildOfForkIsAnswered) {
    const TemporaryFolder folder;
    const PrivateBus bus(folder);
    EXPECT_EQ(Answers(bus.Address(), 1), 1);
    EXPECT_EQ(InAChild([&] {
                  alarm(60);
                  return std::to_string(Answers(bus.Address(), 3));
              }),
              "3");
}

}  // namespace
