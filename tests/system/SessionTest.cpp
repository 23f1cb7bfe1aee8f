// A session in this process, its settings changed by another one, over a private session bus.
//
// With arguments this program is the other process: it makes the changes that they name, one after the other.

#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "session/ColourOperations.h"
#include "session/ControlInterface.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSession.h"
#include "tests/fixtures/ChangeCounter.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/PrivateBus.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

using Words = std::vector<std::string>;
using Colours = std::vector<uint16_t>;

// Only against a test that would never end.
constexpr gint64 kPatience = gint64{60} * G_USEC_PER_SEC;

std::string sProgram;

GPid Start(Words words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    GPid pid = 0;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD);
    if (!g_spawn_async(nullptr, arguments.data(), nullptr, flags, nullptr, nullptr, &pid, nullptr)) ADD_FAILURE() << words[0] << " cannot be run";
    return pid;
}

struct Calls {
    int count = 0;
    OSType code = 0;
};
long Count(OSType code, void* userData) {
    auto* calls = static_cast<Calls*>(userData);
    ++calls->count;
    calls->code = code;
    return 0;
}

const void* CurrentData() {
    MatchingData* const data = GetMatchingData();
    if (data) ReleaseMatchingData(data);
    return data;
}

Colours MatchedColours() {
    constexpr size_t kCount = 50;
    Colours in(4 * kCount), out(4 * kCount);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint16_t>(i * 2477);
    EXPECT_EQ(MonitorMatch16(in.data(), out.data(), kCount), 0);
    return out;
}

int ExitCode(GPid pid) {
    int status = -1;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class Session : public testing::Test {
protected:
    void SetUp() override {
        EmptyStore();
        StoreRaw(CFSTR("Matching Quality"), CFSTR("Qua1"));
        ProfileMaker maker = MatrixMonitor(CurvTag({460}));
        maker.profileClass = Code("prtr");
        printer = folder.Write("printer.icc", maker.Make());
        StoreProfiles(kSRGBMonitor, printer);
    }
    void TearDown() override {
        CloseMatching();
        TurnRunLoop(0.05);
    }

    void StoreProfiles(const std::string& monitorPath, const std::string& printerPath) {
        const Alias first(monitorPath), second(printerPath);
        SetFileLocationPreference(first.Get(), CFSTR("Monitor Profile"), false);
        SetFileLocationPreference(second.Get(), CFSTR("Printer Profile"), false);
        SynchronisePreferences(false);
    }
    GPid Other(Words changes) {
        changes.insert(changes.begin(), sProgram);
        return Start(changes);
    }
    /// Turns the run loop until `calls` reaches a count.
    bool WaitForCalls(int count) {
        for (const gint64 end = g_get_monotonic_time() + kPatience; calls.count < count && g_get_monotonic_time() < end;) TurnRunLoop(0.02);
        return calls.count >= count;
    }

    TemporaryFolder folder;
    std::string printer;
    Calls calls;
};

TEST_F(Session, AProfileSetByAnotherProcessIsTakenUpAndTold) {
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    const Colours before = MatchedColours();
    EXPECT_EQ(ExitCode(Other({"monitor", kGammaMonitor})), 0);
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(calls.code, 0x43484E47u);
    const Colours after = MatchedColours();
    EXPECT_NE(after, before);
    // The same as a session that was opened with it.
    CloseMatching();
    ASSERT_EQ(OpenMatching(nullptr, nullptr), 0);
    EXPECT_EQ(MatchedColours(), after);
}

TEST_F(Session, AQualitySetByAnotherProcessIsTakenUp) {
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    MatchingData* data = GetMatchingData();
    EXPECT_EQ(data->tablesBuilt, 0u);
    ReleaseMatchingData(data);
    EXPECT_EQ(ExitCode(Other({"quality", "0"})), 0);
    ASSERT_TRUE(WaitForCalls(1));
    data = GetMatchingData();
    EXPECT_EQ(data->tablesBuilt, 1u);
    ReleaseMatchingData(data);
}

TEST_F(Session, APrinterSetByAnotherProcessIsTakenUp) {
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    MatchingData* data = GetMatchingData();
    EXPECT_EQ(data->printerColourSpace, Code("RGB "));
    ReleaseMatchingData(data);
    EXPECT_EQ(ExitCode(Other({"printer", kCMYKPrinter})), 0);
    ASSERT_TRUE(WaitForCalls(1));
    data = GetMatchingData();
    EXPECT_EQ(data->printerColourSpace, Code("CMYK"));
    ReleaseMatchingData(data);
}

TEST_F(Session, AnIntentSetByAnotherProcessIsNotTakenUp) {
    const OSType before = ICC_GetRenderingIntent();
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    const Colours colours = MatchedColours();
    EXPECT_EQ(ExitCode(Other({"intent", "3"})), 0);
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(ICC_GetRenderingIntent(), before);
    EXPECT_EQ(MatchedColours(), colours);
}

TEST_F(Session, TenChangesAtOnceBringAtMostTwoRebuilds) {
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    EXPECT_EQ(ExitCode(Other({"quality", "1", "quality", "2", "quality", "1", "quality", "2", "quality", "1",
                              "quality", "2", "quality", "1", "quality", "2", "quality", "1", "monitor", kGammaMonitor})),
              0);
    // All ten are on the bus by now; they arrive beside this thread.
    g_usleep(500000);
    ASSERT_TRUE(WaitForCalls(1));
    TurnRunLoop(0.5);
    EXPECT_LE(calls.count, 2);
    const Colours after = MatchedColours();
    ASSERT_EQ(ReloadPreferences(), 0);
    EXPECT_EQ(MatchedColours(), after);
}

TEST_F(Session, AnUnsetPrinterIsToldWithTheOldDataInForce) {
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    const void* const before = CurrentData();
    ASSERT_NE(before, nullptr);
    EXPECT_EQ(ExitCode(Other({"printer", ""})), 0);
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(CurrentData(), before);
}

TEST_F(Session, AnInvalidLocationIsNotTold) {
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    const void* const before = CurrentData();
    StoreProfiles(kSRGBMonitor, kSRGBMonitor);
    ChangeCounter heard;
    EXPECT_EQ(ExitCode(Other({"quality", "2"})), 0);
    int changes = 0;
    for (const gint64 end = g_get_monotonic_time() + kPatience; changes == 0 && g_get_monotonic_time() < end;) changes = heard.Take();
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(calls.count, 0);
    EXPECT_EQ(CurrentData(), before);
}

TEST_F(Session, ABackgroundReloadAnswersZeroAlsoWhenRefused) {
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    StoreProfiles(kSRGBMonitor, kSRGBMonitor);
    std::atomic<int> status = 99;
    std::thread caller([&] { status = ReloadPreferences(); });
    while (status == 99) TurnRunLoop(0.01);
    caller.join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ReloadPreferences(), -170);
}

TEST_F(Session, ClosedItAnswers1000AndHearsNothing) {
    EXPECT_EQ(CloseMatching(), 0);
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    EXPECT_EQ(CloseMatching(), 0);
    ChangeCounter heard;
    EXPECT_EQ(ExitCode(Other({"monitor", kGammaMonitor})), 0);
    int changes = 0;
    for (const gint64 end = g_get_monotonic_time() + kPatience; changes == 0 && g_get_monotonic_time() < end;) changes = heard.Take();
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(calls.count, 0);
    const uint16_t in[4] = {1, 2, 3, 4};
    uint16_t out[4] = {9, 9, 9, 9};
    uint8_t bytes[4] = {9, 9, 9, 9};
    EXPECT_EQ(MonitorMatch(in, bytes, 1), 1000);
    EXPECT_EQ(MonitorMatch16(in, out, 1), 1000);
    EXPECT_EQ(PrinterPredict16(in, out, 1), 1000);
    EXPECT_EQ(SoftProofGamut(in, bytes, 1), 1000);
    EXPECT_EQ(PrinterColourSpace(), 1u);
    EXPECT_EQ(out[0], 9);
}

TEST_F(Session, ThreadsMatchWhileAnotherProcessChangesSettings) {
    const std::string monitors[] = {kSRGBMonitor, kGammaMonitor};
    Colours expected[2];
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    for (const size_t m : {1, 0}) {
        StoreProfiles(monitors[m], printer);
        ASSERT_EQ(ReloadPreferences(), 0);
        expected[m] = MatchedColours();
    }
    ASSERT_NE(expected[0], expected[1]);

    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    std::atomic<long> seen[2] = {};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            while (!done) {
                const Colours colours = MatchedColours();
                if (colours == expected[0]) {
                    ++seen[0];
                } else if (colours == expected[1]) {
                    ++seen[1];
                } else {
                    ++wrong;
                }
            }
        });
    }
    Words changes;
    for (size_t i = 0; i < 500; ++i) changes.insert(changes.end(), {"monitor", monitors[(i + 1) % 2]});
    changes.insert(changes.end(), {"monitor", monitors[1]});
    const GPid other = Other(changes);
    int status = 0;
    while (waitpid(other, &status, WNOHANG) == 0) TurnRunLoop(0.01);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    // The last change is in force at last.
    for (const gint64 end = g_get_monotonic_time() + kPatience; MatchedColours() != expected[1] && g_get_monotonic_time() < end;) TurnRunLoop(0.02);
    const long before = seen[1];
    while (seen[1] == before && wrong == 0) TurnRunLoop(0.01);
    done = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(seen[0], 0);
    EXPECT_GT(seen[1], 0);
    EXPECT_GE(calls.count, 1);
}

/// The other process. Each change is a name and a value; the answer is 0 when every setter was content.
int MakeChanges(const Words& words) {
    if (CMSControlInit() != 0) return 1;
    for (size_t i = 0; i + 1 < words.size(); i += 2) {
        const std::string& value = words[i + 1];
        const Alias alias(words[i] == "monitor" || words[i] == "printer" ? value : "");
        int16_t status = 1;
        if (words[i] == "monitor") status = CMSSetMonitorProfile(alias.Get());
        if (words[i] == "printer") status = CMSSetPrinterProfile(alias.Get());
        if (words[i] == "quality") status = CMSSetQuality(std::atoi(value.c_str()));
        if (words[i] == "intent") status = CMSSetRenderingIntent(std::atoi(value.c_str()));
        if (status != 0) return 2;
    }
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    testing::InitGoogleTest(&count, arguments);
    if (count > 1) return MakeChanges({arguments + 1, arguments + count});
    sProgram = arguments[0];
    const PrivateStore store;
    const PrivateBus bus(store.Folder());
    bus.MakeSessionBus();
    return RUN_ALL_TESTS();
}
