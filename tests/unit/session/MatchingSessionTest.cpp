#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

#include "platform/FourCharCode.h"
#include "session/ColourOperations.h"
#include "session/ControlInterface.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSession.h"
#include "tests/fixtures/ChangeCounter.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

const PrivateStore store;

struct Calls {
    int count = 0;
    OSType lastCode = 0;
};
long Count(OSType code, void* userData) {
    auto* calls = static_cast<Calls*>(userData);
    ++calls->count;
    calls->lastCode = code;
    return 77;
}

const void* CurrentData() {
    MatchingData* const data = GetMatchingData();
    if (data) ReleaseMatchingData(data);
    return data;
}

std::vector<uint16_t> MatchedColours() {
    const uint16_t in[] = {60000, 20000, 3000, 0, 1000, 30000, 50000, 0, 0, 0, 0, 0};
    std::vector<uint16_t> out(12);
    EXPECT_EQ(MonitorMatch16(in, out.data(), 3), 0);
    return out;
}

class MatchingSession : public testing::Test {
protected:
    void SetUp() override {
        EmptyStore();
        StoreRaw(CFSTR("Matching Quality"), CFSTR("Qua1"));
        SynchronisePreferences(false);
        const ViewingConditions conditions = {-0.03, 1, 0, 0, false};
        ICC_SetViewingConditions(FourChar("Rdr0"), &conditions);
        RecallICCProfileLocation();
        ProfileMaker maker = MatrixMonitor(CurvTag({460}));
        maker.profileClass = Code("prtr");
        printerPath = folder.Write("printer.icc", maker.Make());
    }
    void TearDown() override { EXPECT_EQ(CloseMatching(), 0); }

    void StoreProfiles(const std::string& monitor, const std::string& printer) {
        const Alias first(monitor), second(printer);
        SetFileLocationPreference(first.Get(), CFSTR("Monitor Profile"), false);
        SetFileLocationPreference(second.Get(), CFSTR("Printer Profile"), false);
        SynchronisePreferences(false);
    }
    void Publish() {
        SynchronisePreferences(true);
        TurnRunLoop(0.1);
    }

    TemporaryFolder folder;
    std::string printerPath;
    Calls calls;
};

TEST_F(MatchingSession, ClosingWithoutAnOpenSessionIsHarmless) {
    EXPECT_EQ(CloseMatching(), 0);
    EXPECT_EQ(CloseMatching(), 0);
}

TEST_F(MatchingSession, OpeningBuildsWithoutACall) {
    StoreProfiles(kSRGBMonitor, printerPath);
    EXPECT_EQ(OpenMatching(Count, &calls), 0);
    EXPECT_NE(CurrentData(), nullptr);
    TurnRunLoop(0.05);
    EXPECT_EQ(calls.count, 0);
}

TEST_F(MatchingSession, OpeningIgnoresWhatTheFirstBuildAnswers) {
    for (const char* monitor : {"", kCMYKPrinter.c_str()}) {
        StoreProfiles(monitor, printerPath);
        EXPECT_EQ(OpenMatching(nullptr, nullptr), 0);
        EXPECT_EQ(CurrentData(), nullptr);
        EXPECT_EQ(CloseMatching(), 0);
    }
}

TEST_F(MatchingSession, AChangeIsBuiltAndTold) {
    StoreProfiles(kSRGBMonitor, printerPath);
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    const std::vector<uint16_t> before = MatchedColours();
    StoreProfiles(kGammaMonitor, printerPath);
    Publish();
    EXPECT_GE(calls.count, 1);
    EXPECT_EQ(calls.lastCode, 0x43484E47u);
    EXPECT_NE(MatchedColours(), before);
}

TEST_F(MatchingSession, AChangeWithoutACallbackIsBuiltToo) {
    StoreProfiles(kSRGBMonitor, printerPath);
    ASSERT_EQ(OpenMatching(nullptr, nullptr), 0);
    const std::vector<uint16_t> before = MatchedColours();
    StoreProfiles(kGammaMonitor, printerPath);
    Publish();
    EXPECT_NE(MatchedColours(), before);
}

TEST_F(MatchingSession, AChangeThatLeavesNoPrinterIsToldWithTheOldDataInForce) {
    StoreProfiles(kSRGBMonitor, printerPath);
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    const void* const before = CurrentData();
    StoreProfiles(kGammaMonitor, "");
    Publish();
    EXPECT_GE(calls.count, 1);
    EXPECT_EQ(CurrentData(), before);
}

TEST_F(MatchingSession, ARefusedChangeIsNotToldAndKeepsTheData) {
    StoreProfiles(kSRGBMonitor, printerPath);
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    const void* const before = CurrentData();
    StoreProfiles(kSRGBMonitor, kSRGBMonitor);
    Publish();
    EXPECT_EQ(calls.count, 0);
    EXPECT_EQ(CurrentData(), before);
    EXPECT_EQ(ReloadPreferences(), -170);
}

TEST_F(MatchingSession, SignalsBeforeTheLoopComesRoundBringOneRebuild) {
    StoreProfiles(kSRGBMonitor, printerPath);
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(CMSSetQuality(i % 2 + 1), 0);
    TurnRunLoop(0.5);
    EXPECT_GE(calls.count, 1);
    EXPECT_LE(calls.count, 2);
}

TEST_F(MatchingSession, ReloadingAnswersTheRebuildsStatus) {
    EXPECT_EQ(ReloadPreferences(), 0);
    EXPECT_EQ(CurrentData(), nullptr);
    StoreProfiles(kSRGBMonitor, printerPath);
    EXPECT_EQ(ReloadPreferences(), 0);
    EXPECT_NE(CurrentData(), nullptr);
    StoreProfiles("", printerPath);
    EXPECT_NE(ReloadPreferences(), 0);
    StoreProfiles(kCMYKPrinter, printerPath);
    EXPECT_EQ(ReloadPreferences(), -170);
}

TEST_F(MatchingSession, ReloadingOnAnotherThreadWaitsAndAnswersZero) {
    for (const std::string& printer : {printerPath, kSRGBMonitor}) {
        StoreProfiles(kSRGBMonitor, printer);
        ICC_Null();
        std::atomic<bool> done = false;
        OSErr status = 99;
        bool wasBuilt = false;
        std::thread caller([&] {
            status = ReloadPreferences();
            wasBuilt = CurrentData() != nullptr;
            done = true;
        });
        while (!done) TurnRunLoop(0.01);
        caller.join();
        EXPECT_EQ(status, 0);
        EXPECT_EQ(wasBuilt, printer == printerPath);
    }
}

TEST_F(MatchingSession, TheIntentInMemoryIsKept) {
    StoreProfiles(kSRGBMonitor, printerPath);
    StoreRaw(CFSTR("Rendering Intent"), CFSTR("Rdr3"));
    ASSERT_EQ(OpenMatching(nullptr, nullptr), 0);
    EXPECT_EQ(ICC_GetRenderingIntent(), FourChar("Rdr0"));
    Publish();
    EXPECT_EQ(ReloadPreferences(), 0);
    EXPECT_EQ(ICC_GetRenderingIntent(), FourChar("Rdr0"));
}

TEST_F(MatchingSession, StoredWhitesAreUsedWhenTheyCanBeRead) {
    StoreProfiles(kSRGBMonitor, printerPath);
    const struct {
        const char* name;
        CFStringRef text;
        bool use;
        bool isUsed;
    } kRows[] = {
        {"read and used", CFSTR("xyz:95,100,108"), true, true},
        {"not to be used", CFSTR("xyz:95,100,108"), false, false},
        {"unreadable", CFSTR("white"), true, false},
        {"empty", CFSTR(""), true, false},
    };
    for (const auto& row : kRows) {
        ICC_RememberMonitorWhitepoint(row.text, row.use);
        ICC_RememberPrinterWhitepoint(row.text, row.use);
        ASSERT_EQ(ReloadPreferences(), 0) << row.name;
        MatchingData* const data = GetMatchingData();
        EXPECT_EQ(data->useMonitorWhite, row.isUsed ? 1u : 0u) << row.name;
        EXPECT_EQ(data->printerWhite.Z != data->printerMediaWhite.Z, row.isUsed) << row.name;
        ReleaseMatchingData(data);
    }
}

TEST_F(MatchingSession, ARebuildWithoutAPrinterReadsNoFurtherSettings) {
    StoreRaw(CFSTR("Matching Quality"), CFSTR("Qua2"));
    ICC_SetMatchingQuality(FourChar("Qua1"));
    const Alias monitor(kSRGBMonitor), printer(printerPath);
    EXPECT_EQ(RebuildMatchingSystemIfValidProfiles({monitor.Get(), nullptr, nullptr}), 0);
    EXPECT_EQ(ICC_GetMatchingQuality(), FourChar("Qua1"));
    EXPECT_EQ(RebuildMatchingSystemIfValidProfiles({printer.Get(), monitor.Get(), nullptr}), -170);
    EXPECT_EQ(ICC_GetMatchingQuality(), FourChar("Qua1"));
    EXPECT_EQ(RebuildMatchingSystemIfValidProfiles({monitor.Get(), printer.Get(), nullptr}), 0);
    EXPECT_EQ(ICC_GetMatchingQuality(), FourChar("Qua2"));
}

TEST_F(MatchingSession, ClosingEndsItAll) {
    StoreProfiles(kSRGBMonitor, printerPath);
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    // A change is under way when the session ends.
    SynchronisePreferences(true);
    EXPECT_EQ(CloseMatching(), 0);
    TurnRunLoop(0.1);
    EXPECT_EQ(calls.count, 0);
    const uint16_t in[4] = {1, 2, 3, 4};
    uint16_t out[4] = {9, 9, 9, 9};
    EXPECT_EQ(MonitorMatch16(in, out, 1), 1000);
    EXPECT_EQ(out[0], 9);
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    EXPECT_EQ(MonitorMatch16(in, out, 1), 0);
}

long Raise(OSType, void* userData) {
    ++static_cast<Calls*>(userData)->count;
    throw 0x65727220L;
}

TEST_F(MatchingSession, ACallbackThatRaisesIsReportedAndTheSessionGoesOn) {
    StoreProfiles(kSRGBMonitor, printerPath);
    ASSERT_EQ(OpenMatching(Raise, &calls), 0);
    testing::internal::CaptureStdout();
    Publish();
    const std::string said = testing::internal::GetCapturedStdout();
    const int first = calls.count;
    EXPECT_GE(first, 1);
    EXPECT_EQ(said.substr(0, said.find('\n') + 1), "Matching system error\n");
    testing::internal::CaptureStdout();
    Publish();
    testing::internal::GetCapturedStdout();
    EXPECT_GT(calls.count, first);
}

TEST_F(MatchingSession, TheReportOfARaisedFailureIsWrittenAtOnce) {
    StoreProfiles(kSRGBMonitor, printerPath);
    ASSERT_EQ(OpenMatching(Raise, &calls), 0);
    const std::string path = folder / "output";
    std::fflush(stdout);
    const int before = dup(STDOUT_FILENO);
    ASSERT_NE(std::freopen(path.c_str(), "w", stdout), nullptr);  // a file, so that what is written gathers
    Publish();
    const std::vector<std::uint8_t> written = ReadFile(path);
    std::fflush(stdout);
    dup2(before, STDOUT_FILENO);
    close(before);
    EXPECT_EQ(std::string(written.begin(), written.end()).substr(0, 22), "Matching system error\n");
}

TEST_F(MatchingSession, TheCallbackAndItsDataCanBeSeen) {
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    EXPECT_EQ(gNotify, Count);
    EXPECT_EQ(gUserData, &calls);
    ASSERT_EQ(CloseMatching(), 0);
    EXPECT_EQ(gNotify, nullptr);
    EXPECT_EQ(gUserData, &calls);
}

TEST_F(MatchingSession, OpeningTwiceTellsThroughTheLaterCallback) {
    StoreProfiles(kSRGBMonitor, printerPath);
    Calls later;
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    ASSERT_EQ(OpenMatching(Count, &later), 0);
    Publish();
    EXPECT_EQ(calls.count, 0);
    EXPECT_GE(later.count, 1);
}

class MatchingListeners : public MatchingSession {
protected:
    void SetUp() override {
        MatchingSession::SetUp();
        StoreProfiles(kSRGBMonitor, printerPath);
    }
    void TearDown() override {
        for (const MatchingListenerRef listener : added) RemoveMatchingListener(listener);
        MatchingSession::TearDown();
        EXPECT_EQ(CurrentData(), nullptr);
    }
    MatchingListenerRef Add(Calls* counted) {
        MatchingListenerRef listener = nullptr;
        EXPECT_EQ(AddMatchingListener(Count, counted, &listener), 0);
        added.push_back(listener);
        return listener;
    }
    void Change() {
        isGamma = !isGamma;
        StoreProfiles(isGamma ? kGammaMonitor : kSRGBMonitor, printerPath);
        Publish();
    }

    bool isGamma = false;
    Calls first, second;
    std::vector<MatchingListenerRef> added;
};

TEST_F(MatchingListeners, OpenTheSessionAndTheLastOneClosesIt) {
    const MatchingListenerRef one = Add(&first), other = Add(&second);
    EXPECT_NE(CurrentData(), nullptr);
    const std::vector<uint16_t> before = MatchedColours();
    Change();
    EXPECT_EQ(first.count, 1);
    EXPECT_EQ(first.lastCode, 0x43484E47u);
    EXPECT_EQ(second.count, 1);
    EXPECT_NE(MatchedColours(), before);
    RemoveMatchingListener(one);
    Change();
    EXPECT_EQ(first.count, 1);
    EXPECT_EQ(second.count, 2);
    RemoveMatchingListener(other);
    EXPECT_EQ(CurrentData(), nullptr);
    Change();
    EXPECT_EQ(second.count, 2);
    RemoveMatchingListener(other);
    RemoveMatchingListener(nullptr);
}

TEST_F(MatchingListeners, HearBesideTheSessionsCallback) {
    Add(&first);
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    Change();
    EXPECT_EQ(calls.count, 1);
    EXPECT_EQ(first.count, 1);
    // Another host in the process takes the callback's place, and no listener's.
    ASSERT_EQ(OpenMatching(Count, &second), 0);
    Change();
    EXPECT_EQ(calls.count, 1);
    EXPECT_EQ(second.count, 1);
    EXPECT_EQ(first.count, 2);
}

TEST_F(MatchingListeners, OutliveTheEndOfTheSession) {
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    const MatchingListenerRef listener = Add(&first);
    EXPECT_EQ(CloseMatching(), 0);
    EXPECT_EQ(gNotify, nullptr);
    EXPECT_NE(CurrentData(), nullptr);
    Change();
    EXPECT_EQ(calls.count, 0);
    EXPECT_EQ(first.count, 1);
    // And a session outlives the last of them.
    ASSERT_EQ(OpenMatching(Count, &calls), 0);
    RemoveMatchingListener(listener);
    Change();
    EXPECT_EQ(calls.count, 1);
    EXPECT_EQ(first.count, 1);
}

TEST_F(MatchingListeners, MayRemoveThemselvesAndAddOthersWhileTheyAreTold) {
    struct Leaving {
        MatchingListenerRef self = nullptr, heir = nullptr;
        Calls* inherited;
        int calls = 0;
    } leaving{.inherited = &first};
    const auto leave = [](OSType, void* data) -> long {
        auto* const own = static_cast<Leaving*>(data);
        ++own->calls;
        RemoveMatchingListener(own->self);
        AddMatchingListener(Count, own->inherited, &own->heir);
        return 0;
    };
    ASSERT_EQ(AddMatchingListener(leave, &leaving, &leaving.self), 0);
    Add(&second);
    Change();
    EXPECT_EQ(leaving.calls, 1);
    EXPECT_EQ(first.count, 0);
    EXPECT_EQ(second.count, 1);
    Change();
    EXPECT_EQ(leaving.calls, 1);
    EXPECT_EQ(first.count, 1);
    EXPECT_EQ(second.count, 2);
    added.push_back(leaving.heir);
}

TEST_F(MatchingListeners, ThatRaiseKeepNothingFromTheOthers) {
    MatchingListenerRef raising = nullptr;
    ASSERT_EQ(AddMatchingListener([](OSType, void*) -> long { throw 7; }, nullptr, &raising), 0);
    added.push_back(raising);
    Add(&first);
    testing::internal::CaptureStdout();
    Change();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Matching system error\n");
    EXPECT_EQ(first.count, 1);
}

TEST_F(MatchingListeners, AreRefusedWithoutACallbackOrAPlaceForThem) {
    MatchingListenerRef listener = reinterpret_cast<MatchingListenerRef>(&calls);
    EXPECT_EQ(AddMatchingListener(nullptr, nullptr, &listener), -50);
    EXPECT_EQ(listener, nullptr);
    EXPECT_EQ(AddMatchingListener(Count, nullptr, nullptr), -50);
    EXPECT_EQ(CurrentData(), nullptr);
}

}  // namespace
