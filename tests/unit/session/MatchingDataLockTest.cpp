// What happens under the lock and what before it: the program is linked so that the lock, the disposal, the tabulation of a record's monitor and an
// operation pass through here.

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "platform/Posix.h"
#include "session/ColourOperations.h"
#include "session/MatchingDataHandle.h"

namespace {

bool sLocked = false;
int sLocks = 0;

struct Disposal {
    MatchingData* data;
    bool locked;
};
std::vector<Disposal> sDisposals;
std::vector<bool> sOperations;  // whether the lock was held
struct Tabulation {
    MatchingData* data;
    int locksBefore;
};
std::vector<Tabulation> sTabulations;

}  // namespace

extern "C" {

void __real_OSSpinLockLock(volatile OSSpinLock* lock);
void __real_OSSpinLockUnlock(volatile OSSpinLock* lock);
void __real_DisposeMatchingData(MatchingData* data);
void __wrap_OSSpinLockLock(volatile OSSpinLock* lock);
void __wrap_OSSpinLockUnlock(volatile OSSpinLock* lock);
void __wrap_DisposeMatchingData(MatchingData* data);
void __wrap_DirectMonitorMatch16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);
void __wrap__Z15TabulateMonitorP12MatchingData(MatchingData* data);

void __wrap_OSSpinLockLock(volatile OSSpinLock* lock) {
    __real_OSSpinLockLock(lock);
    sLocked = true;
    ++sLocks;
}

void __wrap_OSSpinLockUnlock(volatile OSSpinLock* lock) {
    sLocked = false;
    __real_OSSpinLockUnlock(lock);
}

void __wrap_DisposeMatchingData(MatchingData* data) {
    sDisposals.push_back({data, sLocked});
    __real_DisposeMatchingData(data);
}

void __wrap_DirectMonitorMatch16(const MatchingData*, const uint16_t*, uint16_t*, size_t) {
    sOperations.push_back(sLocked);
}

void __wrap__Z15TabulateMonitorP12MatchingData(MatchingData* data) {
    sTabulations.push_back({data, sLocks});
}

}  // extern "C"

namespace {

MatchingData* NewRecord() {
    auto* data = static_cast<MatchingData*>(std::calloc(1, sizeof(MatchingData)));
    data->referenceCount = 1;
    return data;
}

class MatchingDataLock : public testing::Test {
protected:
    void SetUp() override {
        SetMatchingData(nullptr);
        sDisposals.clear();
        sOperations.clear();
        sTabulations.clear();
        sLocks = 0;
    }
};

TEST_F(MatchingDataLock, EachCallTakesTheLockOnce) {
    MatchingData* data = NewRecord();
    SetMatchingData(data);
    EXPECT_EQ(sLocks, 1);
    GetMatchingData();
    EXPECT_EQ(sLocks, 2);
    ReleaseMatchingData(data);
    EXPECT_EQ(sLocks, 3);
    SetMatchingData(nullptr);
    EXPECT_EQ(sLocks, 4);
    EXPECT_FALSE(sLocked);
}

TEST_F(MatchingDataLock, AnOperationTakesItTwiceAndRunsWithoutIt) {
    SetMatchingData(NewRecord());
    sLocks = 0;
    EXPECT_EQ(MonitorMatch16(nullptr, nullptr, 1), 0);
    EXPECT_EQ(sLocks, 2);
    EXPECT_EQ(sOperations, std::vector<bool>{false});
    SetMatchingData(nullptr);
}

/// Once the lock has been taken, other threads may be reading the record.
TEST_F(MatchingDataLock, ARecordIsTabulatedBeforeAnyoneCanUseIt) {
    MatchingData* data = NewRecord();
    SetMatchingData(data);
    ASSERT_EQ(sTabulations.size(), 1u);
    EXPECT_EQ(sTabulations[0].data, data);
    EXPECT_EQ(sTabulations[0].locksBefore, 0);
    SetMatchingData(nullptr);
    EXPECT_EQ(sTabulations.size(), 1u);
}

TEST_F(MatchingDataLock, AReplacedRecordIsDisposedOfOutsideTheLock) {
    MatchingData* data = NewRecord();
    SetMatchingData(data);
    SetMatchingData(nullptr);
    ASSERT_EQ(sDisposals.size(), 1u);
    EXPECT_EQ(sDisposals[0].data, data);
    EXPECT_FALSE(sDisposals[0].locked);
}

TEST_F(MatchingDataLock, TheLastReleaseDisposesUnderTheLock) {
    MatchingData* data = NewRecord();
    SetMatchingData(data);
    GetMatchingData();
    SetMatchingData(nullptr);
    EXPECT_TRUE(sDisposals.empty());
    ReleaseMatchingData(data);
    ASSERT_EQ(sDisposals.size(), 1u);
    EXPECT_EQ(sDisposals[0].data, data);
    EXPECT_TRUE(sDisposals[0].locked);
}

}  // namespace
