// Which disposal happens under the lock: the program is linked so that the lock and the disposal pass through here.

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

}  // namespace

extern "C" {

void __real_OSSpinLockLock(volatile OSSpinLock* lock);
void __real_OSSpinLockUnlock(volatile OSSpinLock* lock);
void __real_DisposeMatchingData(MatchingData* data);
void __wrap_OSSpinLockLock(volatile OSSpinLock* lock);
void __wrap_OSSpinLockUnlock(volatile OSSpinLock* lock);
void __wrap_DisposeMatchingData(MatchingData* data);
void __wrap_DirectMonitorMatch16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);

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
