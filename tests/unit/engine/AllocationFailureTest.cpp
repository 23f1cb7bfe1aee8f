// Each allocation of a build fails in turn, and disposal is counted: the program is linked so that calloc, free and the making of data objects
// pass through here.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "appearance/ViewingConditions.h"
#include "engine/DirectMonitor.h"
#include "engine/MatchingData.h"
#include "platform/FourCharCode.h"
#include "profile/CurveTag.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

constexpr uint32_t kQua0 = 0x51756130;
constexpr uint32_t kQua1 = 0x51756131;

bool sFailing = false;
int sAllowed = 0;
bool sDataObjectsFail = false;
int sFreed = 0;

/// Lets `allowed` allocations through and refuses all others, until the end of the scope.
class FailingAllocations {
public:
    explicit FailingAllocations(int allowed) {
        sAllowed = allowed;
        sFailing = true;
    }
    ~FailingAllocations() { sFailing = false; }
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
};

/// Data objects are the platform's: their memory does not count.
class Uncounted {
public:
    Uncounted() : failing_(sFailing) { sFailing = false; }
    ~Uncounted() { sFailing = failing_; }
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;

private:
    bool failing_;
};

}  // namespace

extern "C" {

void* __real_calloc(size_t count, size_t size);
void* __wrap_calloc(size_t count, size_t size);
void __real_free(void* block);
void __wrap_free(void* block);
CFDataRef __real_CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CFDataRef __wrap_CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CFMutableDataRef __real_CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);
CFMutableDataRef __wrap_CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);

void* __wrap_calloc(size_t count, size_t size) {
    if (sFailing && sAllowed-- <= 0) return nullptr;
    return __real_calloc(count, size);
}

void __wrap_free(void* block) {
    if (block) ++sFreed;
    __real_free(block);
}

CFDataRef __wrap_CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length) {
    const Uncounted uncounted;
    return __real_CFDataCreate(allocator, bytes, length);
}

CFMutableDataRef __wrap_CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity) {
    if (sDataObjectsFail) return nullptr;
    const Uncounted uncounted;
    return __real_CFDataCreateMutable(allocator, capacity);
}

}  // extern "C"

namespace {

/// The number of builds that failed before one was left alone long enough to succeed.
int FailuresOf(const Choice& choice) {
    const Alias monitor(choice.monitor);
    const Alias printer(choice.printer);
    const AliasHandle aliases[3] = {monitor.Get(), printer.Get(), nullptr};
    for (int allowed = 0; allowed < 200; ++allowed) {
        OSErr status = 12345;
        MatchingData* data = nullptr;
        {
            const FailingAllocations failing(allowed);
            data = LoadMatchingData(aliases, 0, nullptr, nullptr, &status);
        }
        const OwnedRecord owner(data);
        if (data) {
            EXPECT_EQ(status, 0);
            return allowed;
        }
        EXPECT_EQ(status, -108) << allowed;
    }
    ADD_FAILURE() << "no build succeeded";
    return 0;
}

TEST(AllocationFailure, EveryOneOfABuildGivesItsStatusAndLeavesNothing) {
    // The record, three curves, their copies, and what six reverse tables take. A leak checker sees what a failed build leaves behind.
    EXPECT_GE(FailuresOf({kGammaMonitor, kCMYKPrinter}), 1 + 3 + 3 + 6);
    const TemporaryFolder folder;
    EXPECT_GE(FailuresOf({folder.Write("linear.icc", MatrixMonitor(CurvTag({})).Make()), kCMYKPrinter}), 1 + 3 + 3 + 6);
    EXPECT_GE(FailuresOf({kSRGBMonitor, kCMYKPrinter}), 1 + 3 + 3 + 6);
    EXPECT_GE(FailuresOf({folder.Write("sampled.icc", MatrixMonitor(CurvTag({0, 9000, 65535})).Make()), kCMYKPrinter}), 1 + 3 + 3 + 6);
}

TEST(AllocationFailure, EveryKindOfCurveReportsItAndGivesNoTable) {
    const struct {
        const char* what;
        Bytes tag;
        int status;
    } rows[] = {
        {"identity", CurvTag({}), -108},
        {"gamma", CurvTag({563}), -108},
        {"entries", CurvTag({1, 2, 3}), -108},
        {"formula", ParaTag(3, {2.4, 0.9, 0.1, 0.1, 0.04}), -108},
        {"unknown function type: nothing is asked for", ParaTag(5, {1, 1, 1, 1, 1, 1, 1}), -170},
        {"another type: nothing is asked for", XYZTag(1, 1, 1), -170},
    };
    for (const auto& row : rows) {
        uint16_t unset = 0;
        uint16_t* table = &unset;
        uint32_t count = 0;
        int status = 0;
        {
            const FailingAllocations failing(0);
            status = SampleCurveTag(row.tag.data(), row.tag.size(), &table, &count);
        }
        EXPECT_EQ(status, row.status) << row.what;
        EXPECT_EQ(table, nullptr) << row.what;
    }
}

TEST(AllocationFailure, NoMemoryForAProfilesBytesIsReported) {
    const TemporaryFolder folder;  // a file that was read before is not read again
    const std::string monitor = folder.Write("monitor.icc", MatrixMonitor(CurvTag({563})).Make());
    sDataObjectsFail = true;
    const Loaded loaded = Load({monitor, kCMYKPrinter});
    sDataObjectsFail = false;
    EXPECT_EQ(loaded.data, nullptr);
    EXPECT_EQ(loaded.status, -108);
}

/// How many blocks the disposal of a record gives back.
int FreedWith(MatchingData* data) {
    const int before = sFreed;
    DisposeMatchingData(data);
    return sFreed - before;
}

TEST(Disposal, FreesWhatWasAllocatedAndNothingElse) {
    EXPECT_EQ(FreedWith(nullptr), 0);
    EXPECT_EQ(FreedWith(static_cast<MatchingData*>(std::calloc(1, sizeof(MatchingData)))), 1);
    Loaded plain = Load({kSRGBMonitor, kCMYKPrinter});
    Loaded withTables = Load({kSRGBMonitor, kCMYKPrinter});
    ASSERT_EQ(SetDirectMatchingQuality(withTables.data.get(), kQua0), 0);
    // The record, and in each of two models three curves with their reverse tables of three blocks.
    EXPECT_EQ(FreedWith(plain.data.release()), 1 + 2 * 3 * (1 + 3));
    // The four grids and, where kernels look values up, the monitor's tables.
    const int tables = 4 + (withTables.data->monitorTables ? 1 : 0);
    EXPECT_EQ(FreedWith(withTables.data.release()), 1 + 2 * 3 * (1 + 3) + tables);
}

/// How many blocks the viewing conditions give back.
int FreedByConditions(MatchingData* data) {
    const ViewingConditions conditions = {-0.03, 1.0, 0.0, 0.0, false};
    const int before = sFreed;
    DirectICCSetViewingConditions(data, FourChar("Rdr0"), &conditions);
    return sFreed - before;
}

TEST(Disposal, ConditionsFreeWhatWasTabulatedOfTheModelBefore) {
    const Loaded plain = Load({kSRGBMonitor, kCMYKPrinter}), tabulated = Load({kSRGBMonitor, kCMYKPrinter});
    ASSERT_EQ(SetDirectMatchingQuality(tabulated.data.get(), kQua1), 0);
    const int tables = tabulated.data->monitorTables ? 1 : 0;
    EXPECT_EQ(FreedByConditions(tabulated.data.get()), FreedByConditions(plain.data.get()) + tables);
}

/// All that the working model holds, as bytes: the reverse tables with their storage.
std::string Described(const ICC_ShaperMatrix& shaper) {
    std::string bytes(reinterpret_cast<const char*>(&shaper), sizeof shaper);
    for (int c = 0; c < 3; ++c) {
        bytes.append(reinterpret_cast<const char*>(shaper.curves[c]), sizeof(uint16_t) * (shaper.counts[c] + 1));
        bytes.append(shaper.reverse[c] ? reinterpret_cast<const char*>(shaper.reverse[c]) : "none", shaper.reverse[c] ? sizeof(ICC_ReverseTable) : 4);
    }
    return bytes;
}

TEST(AllocationFailure, WithoutMemoryForViewingConditionsTheModelStaysAsItWas) {
    const Loaded loaded = Load({kSRGBMonitor, kCMYKPrinter});
    ASSERT_EQ(SetDirectMatchingQuality(loaded.data.get(), kQua1), 0);
    const MonitorTables* const tables = loaded.data->monitorTables;
    const std::string before = Described(loaded.data->monitorShaper);
    const ViewingConditions conditions = {-0.03, 1.3, 4.0, 0.0, false};
    // Three curves, and three blocks and the counters of each of three reverse tables.
    constexpr int kRequests = 3 + 3 * 4;
    for (int allowed = 0; allowed < kRequests; ++allowed) {
        {
            const FailingAllocations failing(allowed);
            DirectICCSetViewingConditions(loaded.data.get(), FourChar("Rdr0"), &conditions);
        }
        EXPECT_EQ(Described(loaded.data->monitorShaper), before) << allowed;
        EXPECT_EQ(loaded.data->monitorTables, tables) << allowed;
    }
    const FailingAllocations failing(kRequests);
    DirectICCSetViewingConditions(loaded.data.get(), FourChar("Rdr0"), &conditions);
    EXPECT_NE(Described(loaded.data->monitorShaper), before);
    EXPECT_EQ(loaded.data->monitorTables, nullptr);
}

TEST(AllocationFailure, WithoutMemoryForTheMonitorsTablesTheOperationsAnswerTheSame) {
    const Loaded with = Load({kSRGBMonitor, kCMYKPrinter}), without = Load({kSRGBMonitor, kCMYKPrinter});
    ASSERT_EQ(SetDirectMatchingQuality(with.data.get(), kQua1), 0);
    {
        const FailingAllocations failing(0);
        EXPECT_EQ(SetDirectMatchingQuality(without.data.get(), kQua1), 0);
    }
    EXPECT_EQ(without.data->monitorTables, nullptr);
    std::vector<uint16_t> in(4 * 1000), expected(in.size()), out(in.size());
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint16_t>(i * 40503);
    DirectMonitorMatch16(with.data.get(), in.data(), expected.data(), 1000);
    DirectMonitorMatch16(without.data.get(), in.data(), out.data(), 1000);
    EXPECT_EQ(out, expected);
}

TEST(AllocationFailure, TablesMadeBeforeAFailureStay) {
    const Loaded loaded = Load({kSRGBMonitor, kCMYKPrinter});
    ASSERT_EQ(loaded.status, 0);
    MatchingData* data = loaded.data.get();
    const PixelTable* const tables[] = {&data->matchTable, &data->proofTable, &data->predictTable, &data->gamutTable};
    void* made[4] = {};
    for (int step = 0; step < 4; ++step) {
        // Tables from the step before are there already and take no allocation.
        OSErr status = 0;
        {
            const FailingAllocations failing(step == 0 ? 0 : 1);
            status = SetDirectMatchingQuality(data, kQua0);
        }
        EXPECT_EQ(status, -108) << step;
        EXPECT_EQ(data->tablesBuilt, 0u) << step;
        for (int t = 0; t < 4; ++t) {
            EXPECT_EQ(tables[t]->table != nullptr, t < step) << step << " " << t;
            if (made[t]) {
                EXPECT_EQ(tables[t]->table, made[t]) << step << " " << t;
            }
            made[t] = tables[t]->table;
        }
    }
    EXPECT_EQ(SetDirectMatchingQuality(data, kQua0), 0);
    EXPECT_EQ(data->tablesBuilt, 1u);
}

}  // namespace
