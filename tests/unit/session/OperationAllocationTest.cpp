#include <gtest/gtest.h>

#include "session/ColourOperations.h"
#include "session/MatchingDataHandle.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/reference/Allocations.h"

namespace {

constexpr size_t kCount = 1000;

void RunAll(const std::vector<uint16_t>& source, std::vector<uint16_t>& destination) {
    const auto* source8 = reinterpret_cast<const uint8_t*>(source.data());
    auto* destination8 = reinterpret_cast<uint8_t*>(destination.data());
    for (const auto operation : {MonitorMatch, MonitorGamut, PrinterMatch, PrinterGamut, SoftProofMatch, SoftProofGamut}) {
        EXPECT_EQ(operation(source.data(), destination8, kCount), 0);
    }
    for (const auto operation : {MonitorMatch16, MonitorPredict16, PrinterMatch16, PrinterPredict16, SoftProofMatch16, SoftProofPredict16}) {
        EXPECT_EQ(operation(source.data(), destination.data(), kCount), 0);
    }
    for (const auto operation : {MonitorPredict, PrinterPredict, SoftProofPredict}) {
        EXPECT_EQ(operation(source8, destination.data(), kCount), 0);
    }
    EXPECT_EQ(PrinterColourSpace(), 0x434D594Bu);
}

TEST(OperationAllocations, AreNoneOnceTheTransformsHaveBeenUsed) {
    std::vector<uint16_t> source(4 * kCount);
    for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint16_t>(i * 40503);
    std::vector<uint16_t> destination(4 * kCount);
    for (const uint32_t quality : {0x51756130u, 0x51756131u}) {
        Loaded loaded = Load({kSRGBMonitor, kCMYKPrinter});
        ASSERT_EQ(loaded.status, 0);
        ASSERT_EQ(SetDirectMatchingQuality(loaded.data.get(), quality), 0);
        MatchingData* data = loaded.data.release();
        SetMatchingData(data);
        RunAll(source, destination);
        EXPECT_EQ(reference::AllocationsDuring([&] { RunAll(source, destination); }), 0u);
        while (data->referenceCount > 1) ReleaseMatchingData(data);  // what PrinterColourSpace keeps
        SetMatchingData(nullptr);
    }
}

}  // namespace
