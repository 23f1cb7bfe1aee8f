#include <gtest/gtest.h>
#include <malloc.h>

#include <string>
#include <vector>

#include "platform/FourCharCode.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/SettingsStore.h"
#include "tests/fixtures/WatchedHeap.h"

/// What loading takes from the heap. Not for sanitised builds, whose allocators do not count.

namespace {

/// Three tables of four 16-bit words and one of bytes, with room for the neighbours of the top nodes: 66 nodes an axis.
constexpr std::size_t kGridTables = std::size_t{66} * 66 * 66 * (3 * 8 + 1);
constexpr std::size_t kMost = std::size_t{12} << 20;

const PrivateStore store;

std::size_t AllocatedBytes() {
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

/// The growth by one more record, once its profiles and transforms are made.
std::size_t GrowthByRecord(const std::string& printer, OSType quality) {
    const Alias monitorAlias(kSRGBMonitor), printerAlias(printer);
    const ICCProfileLocation location = {monitorAlias.Get(), printerAlias.Get(), nullptr};
    ICC_SetMatchingQuality(quality);
    EXPECT_EQ(ICC_Load(&location), 0);
    MatchingData* const first = GetMatchingData();  // stays while the other is made
    const std::size_t before = AllocatedBytes();
    EXPECT_EQ(ICC_Load(&location), 0);
    const std::size_t after = AllocatedBytes();
    MatchingData* const second = GetMatchingData();
    EXPECT_NE(first, second);
    ReleaseMatchingData(second);
    ReleaseMatchingData(first);
    SetMatchingData(nullptr);
    return after - before;
}

const std::string kPrinters[] = {kCMYKPrinter, CM_TEST_DATA "/profiles/rgb-printer.icc"};

TEST(RecordMemoryTest, ARecordWithGridTablesTakesThemAndLittleMore) {
    for (const std::string& printer : kPrinters) {
        const std::size_t growth = GrowthByRecord(printer, FourChar("Qua0"));
        EXPECT_GT(growth, kGridTables) << printer;
        EXPECT_LT(growth, kMost) << printer;
    }
}

TEST(RecordMemoryTest, ARecordThatEvaluatesEveryColourHoldsNoGridTables) {
    for (const std::string& printer : kPrinters) {
        for (const OSType quality : {FourChar("Qua1"), FourChar("Qua2")}) {
            const std::size_t growth = GrowthByRecord(printer, quality);
            EXPECT_GT(growth, sizeof(MatchingData)) << printer;
            EXPECT_LT(growth, kMost - kGridTables) << printer;
        }
    }
}

TEST(RecordMemoryTest, AReloadHoldsTwoRecordsAtMost) {
    // As many swings as a monitor's curves may have: the largest record there is, whose viewing conditions make its model once more.
    std::vector<uint16_t> swinging(1321);
    for (std::size_t i = 0; i < swinging.size(); ++i) swinging[i] = i % 2 ? 65535 : 0;
    const std::string monitor = store.Folder().Write("swinging.icc", MatrixMonitor(CurvTag(swinging)).Make());
    const Alias monitorAlias(monitor), printerAlias(kCMYKPrinter);
    const ICCProfileLocation location = {monitorAlias.Get(), printerAlias.Get(), nullptr};
    ICC_SetMatchingQuality(FourChar("Qua1"));
    const std::size_t before = heap::BytesInUse();
    heap::ForgetPeak();
    for (int reload = 0; reload < 3; ++reload) ASSERT_EQ(ICC_Load(&location), 0);
    EXPECT_GT(heap::PeakBytes() - before, std::size_t{64} << 20);
    EXPECT_LE(heap::PeakBytes() - before, std::size_t{128} << 20);
    SetMatchingData(nullptr);
}

}  // namespace
