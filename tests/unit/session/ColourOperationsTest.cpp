#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>

#include "engine/DirectMonitor.h"
#include "engine/DirectPrinter.h"
#include "session/ColourOperations.h"
#include "session/MatchingDataHandle.h"
#include "tests/fixtures/MatchingRecords.h"

namespace {

constexpr size_t kCount = 300;
constexpr uint32_t kQua0 = 0x51756130;
constexpr uint32_t kQua1 = 0x51756131;

/// Source and destination bytes, wide enough for the widest pixels.
using Buffer = std::vector<uint16_t>;

const uint8_t* Bytes8(const Buffer& buffer) {
    return reinterpret_cast<const uint8_t*>(buffer.data());
}
uint8_t* Bytes8(Buffer& buffer) {
    return reinterpret_cast<uint8_t*>(buffer.data());
}

Buffer Source() {
    std::mt19937 random(11);
    Buffer source(4 * kCount);
    for (uint16_t& word : source) word = static_cast<uint16_t>(random());
    return source;
}

Buffer Untouched() {
    return Buffer(4 * kCount, 0xC3C3);
}

/// An operation with its direct case and, for those that have one, its table case, all on buffers.
struct Row {
    const char* name;
    std::function<int16_t(const Buffer&, Buffer&, size_t)> operation;
    std::function<void(const MatchingData*, const Buffer&, Buffer&)> direct;
    std::function<void(const MatchingData*, const Buffer&, Buffer&)> table;
};

#define FROM_16_TO_16(operation) [](const Buffer& in, Buffer& out, size_t count) { return operation(in.data(), out.data(), count); }
#define FROM_16_TO_8(operation) [](const Buffer& in, Buffer& out, size_t count) { return operation(in.data(), Bytes8(out), count); }
#define FROM_8_TO_16(operation) [](const Buffer& in, Buffer& out, size_t count) { return operation(Bytes8(in), out.data(), count); }
#define DIRECT_16_TO_16(direct) [](const MatchingData* data, const Buffer& in, Buffer& out) { direct(data, in.data(), out.data(), kCount); }
#define DIRECT_16_TO_8(direct) [](const MatchingData* data, const Buffer& in, Buffer& out) { direct(data, in.data(), Bytes8(out), kCount); }
#define DIRECT_8_TO_16(direct) [](const MatchingData* data, const Buffer& in, Buffer& out) { direct(data, Bytes8(in), out.data(), kCount); }
#define TABLE_16_TO_16(map, table) [](const MatchingData* data, const Buffer& in, Buffer& out) { map(&data->table, in.data(), out.data(), kCount); }
#define TABLE_16_TO_8(map, table) [](const MatchingData* data, const Buffer& in, Buffer& out) { map(&data->table, in.data(), Bytes8(out), kCount); }
#define TABLE_8_TO_16(map, table) [](const MatchingData* data, const Buffer& in, Buffer& out) { map(&data->table, Bytes8(in), out.data(), kCount); }

const Row kRows[] = {
    {"MonitorMatch", FROM_16_TO_8(MonitorMatch), DIRECT_16_TO_8(DirectMonitorMatch), TABLE_16_TO_8(MapPixel16ToPixel8, matchTable)},
    {"MonitorPredict", FROM_8_TO_16(MonitorPredict), DIRECT_8_TO_16(DirectMonitorPredict), TABLE_8_TO_16(MapDevice8ToPixel16, predictTable)},
    {"MonitorMatch16", FROM_16_TO_16(MonitorMatch16), DIRECT_16_TO_16(DirectMonitorMatch16), TABLE_16_TO_16(MapPixel16ToDevice16, matchTable)},
    {"MonitorPredict16", FROM_16_TO_16(MonitorPredict16), DIRECT_16_TO_16(DirectMonitorPredict16),
     TABLE_16_TO_16(MapDevice16ToPixel16, predictTable)},
    {"MonitorGamut", FROM_16_TO_8(MonitorGamut), DIRECT_16_TO_8(DirectMonitorGamut), TABLE_16_TO_8(MapPixel16ToUInt8, gamutTable)},
    {"PrinterMatch", FROM_16_TO_8(PrinterMatch), DIRECT_16_TO_8(DirectPrinterMatch), nullptr},
    {"PrinterMatch16", FROM_16_TO_16(PrinterMatch16), DIRECT_16_TO_16(DirectPrinterMatch16), nullptr},
    {"PrinterPredict", FROM_8_TO_16(PrinterPredict), DIRECT_8_TO_16(DirectPrinterPredict), nullptr},
    {"PrinterPredict16", FROM_16_TO_16(PrinterPredict16), DIRECT_16_TO_16(DirectPrinterPredict16), nullptr},
    {"PrinterGamut", FROM_16_TO_8(PrinterGamut), DIRECT_16_TO_8(DirectPrinterGamut), nullptr},
    {"SoftProofMatch", FROM_16_TO_8(SoftProofMatch), DIRECT_16_TO_8(DirectProofMatch), TABLE_16_TO_8(MapPixel16ToPixel8, proofTable)},
    {"SoftProofMatch16", FROM_16_TO_16(SoftProofMatch16), DIRECT_16_TO_16(DirectProofMatch16), TABLE_16_TO_16(MapPixel16ToDevice16, proofTable)},
    // Predicting and testing under a soft proof are deliberately the monitor's.
    {"SoftProofPredict", FROM_8_TO_16(SoftProofPredict), DIRECT_8_TO_16(DirectMonitorPredict), TABLE_8_TO_16(MapDevice8ToPixel16, predictTable)},
    {"SoftProofPredict16", FROM_16_TO_16(SoftProofPredict16), DIRECT_16_TO_16(DirectMonitorPredict16),
     TABLE_16_TO_16(MapDevice16ToPixel16, predictTable)},
    {"SoftProofGamut", FROM_16_TO_8(SoftProofGamut), DIRECT_16_TO_8(DirectMonitorGamut), TABLE_16_TO_8(MapPixel16ToUInt8, gamutTable)},
};

class ColourOperations : public testing::Test {
protected:
    void TearDown() override { SetMatchingData(nullptr); }

    /// Installs a record; borrowed.
    MatchingData* Install(uint32_t quality) {
        Loaded loaded = Load({kSRGBMonitor, kCMYKPrinter});
        EXPECT_EQ(loaded.status, 0);
        EXPECT_EQ(SetDirectMatchingQuality(loaded.data.get(), quality), 0);
        SetMatchingData(loaded.data.get());
        return loaded.data.release();
    }
};

TEST_F(ColourOperations, WithoutMatchingDataAnswer1000AndTouchNothing) {
    const Buffer source = Source();
    for (const Row& row : kRows) {
        Buffer out = Untouched();
        EXPECT_EQ(row.operation(source, out, kCount), 1000) << row.name;
        EXPECT_EQ(out, Untouched()) << row.name;
        EXPECT_EQ(row.operation(source, out, 0), 1000) << row.name;
    }
    EXPECT_EQ(PrinterColourSpace(), 1u);
}

TEST_F(ColourOperations, NoColoursAnswer0AndTouchNothing) {
    const Buffer source = Source();
    for (const uint32_t quality : {kQua0, kQua1}) {
        Install(quality);
        for (const Row& row : kRows) {
            Buffer out = Untouched();
            EXPECT_EQ(row.operation(source, out, 0), 0) << row.name;
            EXPECT_EQ(out, Untouched()) << row.name;
        }
    }
}

TEST_F(ColourOperations, RunTheirDirectCaseWithoutTables) {
    const Buffer source = Source();
    const MatchingData* data = Install(kQua1);
    for (const Row& row : kRows) {
        Buffer expected = Untouched();
        row.direct(data, source, expected);
        ASSERT_NE(expected, Untouched()) << row.name;
        Buffer out = Untouched();
        EXPECT_EQ(row.operation(source, out, kCount), 0) << row.name;
        EXPECT_EQ(out, expected) << row.name;
        EXPECT_EQ(data->referenceCount, 1) << row.name;
    }
}

TEST_F(ColourOperations, RunTheirTableCaseWithTables) {
    const Buffer source = Source();
    const MatchingData* data = Install(kQua0);
    for (const Row& row : kRows) {
        Buffer direct = Untouched();
        row.direct(data, source, direct);
        Buffer expected = Untouched();
        if (row.table) {
            row.table(data, source, expected);
            EXPECT_NE(expected, direct) << row.name;  // else the test would not tell the cases apart
        } else {
            expected = direct;
        }
        Buffer out = Untouched();
        EXPECT_EQ(row.operation(source, out, kCount), 0) << row.name;
        EXPECT_EQ(out, expected) << row.name;
        EXPECT_EQ(data->referenceCount, 1) << row.name;
    }
}

TEST_F(ColourOperations, TablesOutOfForceAreNotUsed) {
    const Buffer source = Source();
    MatchingData* data = Install(kQua0);
    ASSERT_EQ(SetDirectMatchingQuality(data, kQua1), 0);
    for (const Row& row : kRows) {
        Buffer expected = Untouched();
        row.direct(data, source, expected);
        Buffer out = Untouched();
        EXPECT_EQ(row.operation(source, out, kCount), 0) << row.name;
        EXPECT_EQ(out, expected) << row.name;
    }
}

TEST_F(ColourOperations, PrinterColourSpaceLeavesAReferenceBehind) {
    MatchingData* data = Install(kQua1);
    EXPECT_EQ(PrinterColourSpace(), 0x434D594Bu);
    EXPECT_EQ(data->referenceCount, 2);
    EXPECT_EQ(PrinterColourSpace(), 0x434D594Bu);
    EXPECT_EQ(data->referenceCount, 3);
    // The record outlives its replacement; two releases are what is missing.
    SetMatchingData(nullptr);
    EXPECT_EQ(data->referenceCount, 2);
    EXPECT_EQ(DirectPrinterColourSpace(data), 0x434D594Bu);
    ReleaseMatchingData(data);
    ReleaseMatchingData(data);
}

}  // namespace
