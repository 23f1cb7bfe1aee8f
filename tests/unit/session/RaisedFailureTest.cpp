// What the operations answer when something below them raises: the program is linked so that the calls pass through here.

#include <gtest/gtest.h>

#include <cstdlib>

#include "session/ColourOperations.h"
#include "session/ControlInterface.h"
#include "session/Failure.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSession.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

const PrivateStore store;

enum class Raise { kNothing, kInGet, kInOperation, kInRelease, kInColourSpace, kInRecall, kInValidate, kInLoad };
Raise sRaise = Raise::kNothing;

void RaiseIf(Raise place) {
    if (sRaise == place) Fail(-108);
}

}  // namespace

extern "C" {

MatchingData* __real_GetMatchingData();
void __real_ReleaseMatchingData(MatchingData* data);
MatchingData* __wrap_GetMatchingData();
void __wrap_ReleaseMatchingData(MatchingData* data);
void __wrap_DirectPrinterMatch16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);
void __wrap_DirectMonitorGamut(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count);
uint32_t __wrap_DirectPrinterColourSpace(const MatchingData* data);
void __wrap_RecallICCProfileLocation(void);
OSErr __wrap_ICC_Validate(const ICCProfileLocation* location);
MatchingData* __wrap_LoadMatchingData(const AliasHandle profiles[3], uint8_t useProofer, const FixedXYZ* monitorWhite, const FixedXYZ* printerWhite,
                                      OSErr* status);

MatchingData* __wrap_GetMatchingData() {
    RaiseIf(Raise::kInGet);
    return __real_GetMatchingData();
}

void __wrap_ReleaseMatchingData(MatchingData* data) {
    RaiseIf(Raise::kInRelease);
    __real_ReleaseMatchingData(data);
}

void __wrap_DirectPrinterMatch16(const MatchingData*, const uint16_t*, uint16_t* out, size_t) {
    RaiseIf(Raise::kInOperation);
    out[0] = 1;
}

void __wrap_DirectMonitorGamut(const MatchingData*, const uint16_t*, uint8_t* out, size_t) {
    if (sRaise == Raise::kInOperation) throw "of another type";
    out[0] = 1;
}

uint32_t __wrap_DirectPrinterColourSpace(const MatchingData*) {
    RaiseIf(Raise::kInColourSpace);
    return 7;
}

void __wrap_RecallICCProfileLocation(void) {
    RaiseIf(Raise::kInRecall);
}

OSErr __wrap_ICC_Validate(const ICCProfileLocation*) {
    RaiseIf(Raise::kInValidate);
    return -170;
}

MatchingData* __wrap_LoadMatchingData(const AliasHandle*, uint8_t, const FixedXYZ*, const FixedXYZ*, OSErr* status) {
    RaiseIf(Raise::kInLoad);
    *status = -43;
    return nullptr;
}

}  // extern "C"

namespace {

class RaisedFailure : public testing::Test {
protected:
    void SetUp() override {
        data = static_cast<MatchingData*>(std::calloc(1, sizeof(MatchingData)));
        data->referenceCount = 1;
        SetMatchingData(data);
    }
    void TearDown() override {
        sRaise = Raise::kNothing;
        // References that were deliberately not given back.
        while (data->referenceCount > 1) ReleaseMatchingData(data);
        SetMatchingData(nullptr);
    }

    MatchingData* data = nullptr;
    uint16_t in[4] = {};
    uint16_t out[4] = {};
    uint8_t answer = 0;
};

TEST_F(RaisedFailure, NothingRaisedGivesTheReferenceBack) {
    EXPECT_EQ(PrinterMatch16(in, out, 1), 0);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(MonitorGamut(in, &answer, 1), 0);
    EXPECT_EQ(answer, 1);
    EXPECT_EQ(data->referenceCount, 1);
}

TEST_F(RaisedFailure, WhileGettingTheMatchingDataIs1000) {
    sRaise = Raise::kInGet;
    EXPECT_EQ(PrinterMatch16(in, out, 1), 1000);
    EXPECT_EQ(MonitorGamut(in, &answer, 1), 1000);
    EXPECT_EQ(PrinterColourSpace(), 1u);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(answer, 0);
    EXPECT_EQ(data->referenceCount, 1);
}

TEST_F(RaisedFailure, InTheOperationIs0AndKeepsTheReference) {
    sRaise = Raise::kInOperation;
    EXPECT_EQ(PrinterMatch16(in, out, 1), 0);
    EXPECT_EQ(gLastError, -108);
    EXPECT_EQ(data->referenceCount, 2);
    EXPECT_EQ(SoftProofGamut(in, &answer, 1), 0);
    EXPECT_EQ(data->referenceCount, 3);
}

TEST_F(RaisedFailure, InTheReleaseIs0) {
    sRaise = Raise::kInRelease;
    EXPECT_EQ(PrinterMatch16(in, out, 1), 0);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(data->referenceCount, 2);
}

TEST_F(RaisedFailure, WhileLoadingThePreferencesGoesNoFurther) {
    sRaise = Raise::kInRecall;
    LoadPreferences();
    EXPECT_EQ(gLastError, -108);
    EXPECT_EQ(CMSControlInit(), 0);
    EXPECT_EQ(ReloadPreferences(), -1);
}

TEST_F(RaisedFailure, WhileRebuildingIsMinus1) {
    const ICCProfileLocation none = {nullptr, nullptr, nullptr};
    EXPECT_EQ(RebuildMatchingSystemIfValidProfiles(none), -170);
    EXPECT_EQ(ReloadPreferences(), -170);
    sRaise = Raise::kInValidate;
    EXPECT_EQ(RebuildMatchingSystemIfValidProfiles(none), -1);
    EXPECT_EQ(ReloadPreferences(), -1);
}

TEST_F(RaisedFailure, WhileBuildingIsMinus1) {
    const ICCProfileLocation none = {nullptr, nullptr, nullptr};
    EXPECT_EQ(ICC_Load(&none), -43);
    sRaise = Raise::kInLoad;
    EXPECT_EQ(ICC_Load(&none), -1);
}

TEST_F(RaisedFailure, InTheColourSpaceIs1) {
    EXPECT_EQ(PrinterColourSpace(), 7u);
    sRaise = Raise::kInColourSpace;
    EXPECT_EQ(PrinterColourSpace(), 1u);
}

}  // namespace
