#include "session/MatchingDataHandle.h"

#include "engine/MatchingTables.h"
#include "platform/ForkSection.h"
#include "platform/Posix.h"

namespace {

/// Guards sMatchingData and the reference count of every record.
OSSpinLock sMatchingDataSpinLock = OS_SPINLOCK_INIT;
MatchingData* sMatchingData;

/// Whoever held the lock in the parent is not in the child. Between any two of the instructions under it the current record and its count are as they
/// must be, but for references that nobody will give back.
const platform::InForkedChild sFreeLock([] { sMatchingDataSpinLock = OS_SPINLOCK_INIT; });

class SpinLockHolder {
public:
    SpinLockHolder() { OSSpinLockLock(&sMatchingDataSpinLock); }
    ~SpinLockHolder() { OSSpinLockUnlock(&sMatchingDataSpinLock); }
    SpinLockHolder(const SpinLockHolder&) = delete;
    SpinLockHolder& operator=(const SpinLockHolder&) = delete;
};

/// Gives back one reference, under the lock; true when it was the last.
bool DropReference(MatchingData* data) {
    return data->referenceCount-- < 2;
}

}  // namespace

MatchingData* GetMatchingData() {
    const SpinLockHolder lock;
    if (sMatchingData) ++sMatchingData->referenceCount;
    return sMatchingData;
}

void ReleaseMatchingData(MatchingData* data) {
    const SpinLockHolder lock;
    if (DropReference(data)) DisposeMatchingData(data);
}

void SetMatchingData(MatchingData* data) {
    // For hosts that chose no quality, which is where it is done else. Others may read the record once it is current.
    if (data) TabulateMonitor(data);
    MatchingData* replaced = nullptr;
    bool unused = false;
    {
        const SpinLockHolder lock;
        replaced = sMatchingData;
        sMatchingData = data;
        if (replaced) unused = DropReference(replaced);
    }
    if (unused) DisposeMatchingData(replaced);
}
