#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "calibration/GammaTable.h"
#include "calibration/GammaTableLayout.h"
#include "tests/fixtures/GuardedBytes.h"

namespace {

using testing::ElementsAre;

struct Dispose {
    void operator()(MC_OpaqueGammaTable* table) const { MC_DisposeGammaTable(table); }
};
using Table = std::unique_ptr<MC_OpaqueGammaTable, Dispose>;

Table NewTable(int16_t channels, int16_t entries, int16_t width) {
    return Table(MC_CreateGammaTable(channels, entries, width));
}

std::vector<std::uint8_t> Bytes(const MC_OpaqueGammaTable* table) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(table);
    return {bytes, bytes + GetPtrSize(reinterpret_cast<Ptr>(const_cast<MC_OpaqueGammaTable*>(table)))};
}

/// The record of given header fields and entries, written out by hand.
std::vector<std::uint8_t> Record(std::initializer_list<int> fields, const std::vector<std::uint8_t>& rest) {
    std::vector<std::uint8_t> bytes;
    for (const int field : fields) {
        bytes.push_back(static_cast<std::uint8_t>((field >> 8) & 255));
        bytes.push_back(static_cast<std::uint8_t>(field & 255));
    }
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

Handle NewHandleWith(const std::vector<std::uint8_t>& bytes) {
    const Handle handle = NewHandle(static_cast<Size>(bytes.size()));
    if (!bytes.empty()) std::memcpy(*handle, bytes.data(), bytes.size());
    return handle;
}

/// The value that an entry of `width` bits reads as: its pattern written again and again from the top of 16 bits.
double Widened(unsigned entry, int width) {
    unsigned value = 0;
    for (int bit = 0; bit < 16; ++bit) {
        if (entry & (1U << (width - 1 - bit % width))) value |= 1U << (15 - bit);
    }
    return value / 65535.0;
}

TEST(GammaTable, IsOneBigEndianBlockOfHeaderAndZeroEntries) {
    const struct {
        int16_t channels, entries, width;
        std::size_t size;
        const char* what;
    } rows[] = {
        {3, 256, 16, 12 + 1536, "a display's ramp"},
        {1, 256, 8, 12 + 256, "bytes"},
        {3, 4, 9, 12 + 24, "9 bits take a word"},
        {3, 4, 1, 12 + 12, "1 bit takes a byte"},
        {1, 2, 17, 12 + 6, "17 bits take 3 bytes"},
        {0, 4, 16, 12, "no channel"},
        {3, 0, 16, 12, "no entry"},
    };
    for (const auto& row : rows) {
        const Table table = NewTable(row.channels, row.entries, row.width);
        ASSERT_TRUE(table) << row.what;
        const std::vector<std::uint8_t> entries(row.size - 12);
        EXPECT_EQ(Bytes(table.get()), Record({0, 0, 0, row.channels, row.entries, row.width}, entries)) << row.what;
        int16_t channels = -1, count = -1, width = -1;
        MC_GetGammaTableParams(table.get(), &channels, &count, &width);
        EXPECT_THAT((std::vector<int16_t>{channels, count, width}), ElementsAre(row.channels, row.entries, row.width)) << row.what;
    }
}

TEST(GammaTable, IsNotMadeOfNegativeCountsOrWithoutBits) {
    EXPECT_FALSE(NewTable(-1, 4, 16));
    EXPECT_FALSE(NewTable(3, -4, 16));
    EXPECT_FALSE(NewTable(-3, -4, 16));
    EXPECT_FALSE(NewTable(3, 4, 0));
    EXPECT_FALSE(NewTable(3, 4, -8));
    MC_DisposeGammaTable(nullptr);
}

TEST(GammaTable, StoresValuesScaledTo16BitsAndCutToTheirWidth) {
    const struct {
        int16_t width;
        double value;
        unsigned stored;
        const char* what;
    } rows[] = {
        {16, 0.0, 0, "nothing"},
        {16, 1.0, 65535, "full scale"},
        {16, 0.5, 32768, "half is rounded up"},
        {16, 1.4 / 65535, 1, "rounded down"},
        {16, 1.5 / 65535, 2, "rounded up"},
        {16, 1.0001, 5, "not clamped: 65541 wraps"},
        {16, 2.0, 65534, "131070 wraps"},
        {16, -1.0 / 65535, 0, "-0.5 is cut toward zero"},
        {16, -2.0 / 65535, 65535, "-1.5 is cut toward zero, and wraps"},
        {16, 40000.0, 0, "more than 32 bits hold"},
        {16, -40000.0, 0, "less than 32 bits hold"},
        {16, std::numeric_limits<double>::quiet_NaN(), 0, "no number"},
        {16, std::numeric_limits<double>::infinity(), 0, "infinity"},
        {8, 1.0, 255, "a byte"},
        {8, 0.5, 128, "0x8000 cut to a byte"},
        {8, 0.001, 0, "cut, not rounded"},
        {10, 1.0, 1023, "10 bits in a word"},
        {5, 1.0, 31, "5 bits in a byte"},
        {1, 0.5, 1, "1 bit"},
        {17, 1.0, 0, "a shift by -1 is one by 31"},
    };
    for (const auto& row : rows) {
        const Table table = NewTable(1, 3, row.width);
        MC_SetGammaVal(table.get(), 0, 1, row.value);
        const std::vector<std::uint8_t> bytes = Bytes(table.get());
        if (row.width > 8) {
            EXPECT_EQ(bytes[14] * 256U + bytes[15], row.stored) << row.what;
            EXPECT_EQ(bytes[12] + bytes[13] + bytes[16] + bytes[17], 0) << row.what;
        } else {
            EXPECT_EQ(bytes[13], row.stored) << row.what;
            EXPECT_EQ(bytes[12] + bytes[14], 0) << row.what;
        }
    }
}

TEST(GammaTable, KeepsItsChannelsOneAfterTheOther) {
    const Table table = NewTable(3, 2, 8);
    for (int16_t c = 0; c < 3; ++c) {
        for (int16_t i = 0; i < 2; ++i) MC_SetGammaVal(table.get(), c, i, (16 * (c + 1) + i) / 255.0);
    }
    EXPECT_EQ(Bytes(table.get()), Record({0, 0, 0, 3, 2, 8}, {0x10, 0x11, 0x20, 0x21, 0x30, 0x31}));
}

TEST(GammaTable, StoresNothingOutsideTheRamp) {
    const Table table = NewTable(3, 2, 8);
    const std::vector<std::uint8_t> before = Bytes(table.get());
    const int16_t places[][2] = {{3, 0}, {0, 2}, {32767, 0}, {0, 32767}, {-1, 0}, {0, -1}};
    for (const auto& place : places) MC_SetGammaVal(table.get(), place[0], place[1], 1.0);
    EXPECT_EQ(Bytes(table.get()), before);
}

TEST(GammaTable, ReadsEveryEntryOfEveryWidthWithItsBitsRepeated) {
    for (int width = 1; width <= 16; ++width) {
        const Table table = NewTable(1, 1, static_cast<int16_t>(width));
        auto* bytes = reinterpret_cast<std::uint8_t*>(table.get());
        for (unsigned entry = 0; entry < 1U << width; ++entry) {
            if (width > 8) bytes[12] = static_cast<std::uint8_t>(entry >> 8);
            bytes[width > 8 ? 13 : 12] = static_cast<std::uint8_t>(entry);
            ASSERT_EQ(MC_GetGammaVal(table.get(), 0, 0), Widened(entry, width)) << entry << " of " << width << " bits";
        }
    }
}

TEST(GammaTable, ReadsAnEntryWiderThan16BitsAsItsFirstWord) {
    const std::vector<std::uint8_t> bytes = Record({0, 0, 0, 1, 2, 24}, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC});
    const auto* table = reinterpret_cast<const MC_OpaqueGammaTable*>(bytes.data());
    EXPECT_EQ(MC_GetGammaVal(table, 0, 0), 0x1234 / 65535.0);
    EXPECT_EQ(MC_GetGammaVal(table, 0, 1), 0x5678 / 65535.0);
}

TEST(GammaTable, ReadsBytesWithBothHalvesEqual) {
    const Table table = NewTable(1, 2, 8);
    auto* bytes = reinterpret_cast<std::uint8_t*>(table.get());
    bytes[12] = 0x80;
    bytes[13] = 0xAB;
    EXPECT_EQ(MC_GetGammaVal(table.get(), 0, 0), 0x8080 / 65535.0);
    EXPECT_EQ(MC_GetGammaVal(table.get(), 0, 1), 0xABAB / 65535.0);
}

TEST(GammaTable, ReadsTheFirstChannelForAnUnknownOneAndTheLastEntryPastTheEnd) {
    const Table table = NewTable(3, 256, 16);
    MC_SetGammaVal(table.get(), 0, 7, 0.25);
    MC_SetGammaVal(table.get(), 2, 7, 0.75);
    MC_SetGammaVal(table.get(), 0, 255, 0.5);
    MC_SetGammaVal(table.get(), 2, 255, 1.0);
    EXPECT_EQ(MC_GetGammaVal(table.get(), 5, 7), MC_GetGammaVal(table.get(), 0, 7));
    EXPECT_EQ(MC_GetGammaVal(table.get(), 3, 7), MC_GetGammaVal(table.get(), 0, 7));
    EXPECT_EQ(MC_GetGammaVal(table.get(), 2, 300), 1.0);
    EXPECT_EQ(MC_GetGammaVal(table.get(), 2, 256), 1.0);
    EXPECT_EQ(MC_GetGammaVal(table.get(), 5, 300), MC_GetGammaVal(table.get(), 0, 255));
    EXPECT_EQ(MC_GetGammaVal(table.get(), -1, -1), MC_GetGammaVal(table.get(), 0, 0));
}

TEST(GammaTable, WithoutEntriesReadsZero) {
    EXPECT_EQ(MC_GetGammaVal(NewTable(3, 0, 16).get(), 0, 0), 0.0);
    EXPECT_EQ(MC_GetGammaVal(NewTable(0, 4, 16).get(), 0, 0), 0.0);
}

TEST(GammaTable, ReturnsEveryStored16BitValue) {
    const Table table = NewTable(1, 1, 16);
    for (int value = 0; value <= 65535; ++value) {
        MC_SetGammaVal(table.get(), 0, 0, static_cast<float>(value / 65535.0));  // as a display hands it over
        ASSERT_EQ(MC_GetGammaVal(table.get(), 0, 0), value / 65535.0);
    }
}

TEST(GammaTable, IsCopiedWithItsFormula) {
    const std::vector<std::uint8_t> bytes = Record({1, 2, 3, 1, 2, 8}, {'f', 'x', 'y', 0x40, 0x41});
    const auto* table = reinterpret_cast<const MC_OpaqueGammaTable*>(bytes.data());
    const Table copy(MC_CopyGammaTable(table));
    ASSERT_TRUE(copy);
    EXPECT_EQ(Bytes(copy.get()), bytes);
    EXPECT_EQ(MC_GetGammaVal(copy.get(), 0, 1), 0x4141 / 65535.0) << "the entries begin after the formula";
}

TEST(GammaTable, GoesToAHandleAndBackByteForByte) {
    const std::vector<std::uint8_t> bytes = Record({1, 2, 3, 1, 2, 8}, {'f', 'x', 'y', 0x40, 0x41});
    const Handle handle = MC_GammaTableToHandle(reinterpret_cast<const MC_OpaqueGammaTable*>(bytes.data()));
    ASSERT_TRUE(handle);
    EXPECT_EQ(std::vector<std::uint8_t>(*handle, *handle + GetHandleSize(handle)), bytes);
    const Table table(MC_HandleToGammaTable(handle));
    ASSERT_TRUE(table);
    EXPECT_EQ(Bytes(table.get()), bytes);
    DisposeHandle(handle);
}

TEST(GammaTable, KeepsTheBytesThatFollowItInAHandle) {
    const std::vector<std::uint8_t> bytes = Record({0, 0, 0, 1, 2, 8}, {0x40, 0x41, 0xEE});
    const Handle handle = NewHandleWith(bytes);
    const Table table(MC_HandleToGammaTable(handle));
    ASSERT_TRUE(table);
    EXPECT_EQ(Bytes(table.get()), bytes);
    DisposeHandle(handle);
}

TEST(GammaTable, IsNotMadeFromAHandleWithoutAWholeRamp) {
    const std::vector<std::uint8_t> whole = Record({0, 0, 3, 3, 4, 16}, std::vector<std::uint8_t>(27, 1));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const Handle handle = NewHandleWith({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
        EXPECT_EQ(MC_HandleToGammaTable(handle), nullptr) << size << " bytes";
        DisposeHandle(handle);
    }
    EXPECT_EQ(MC_HandleToGammaTable(nullptr), nullptr);
    for (int field = 2; field < 6; ++field) {
        std::vector<std::uint8_t> negative = whole;
        negative[static_cast<std::size_t>(2 * field)] = 0x80;
        const Handle handle = NewHandleWith(negative);
        EXPECT_EQ(MC_HandleToGammaTable(handle), nullptr) << "negative field " << field;
        DisposeHandle(handle);
    }
}

TEST(GammaTableLayout, NeverLooksPastTheBytesOfARecord) {
    std::mt19937 random(7);
    int wholeOnes = 0;
    for (int round = 0; round < 20000; ++round) {
        std::vector<std::uint8_t> bytes(12 + random() % 60);
        for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
        const int small[] = {static_cast<int>(random() % 4), static_cast<int>(random() % 4), static_cast<int>(random() % 9),
                             static_cast<int>(random() % 26)};
        for (std::size_t i = 0; i < 4; ++i) {
            bytes[4 + 2 * i] = 0;
            bytes[5 + 2 * i] = static_cast<std::uint8_t>(small[i]);
        }
        const GuardedBytes guarded(bytes);
        if (!IsWholeGammaTable(guarded.Data(), guarded.Length())) continue;
        ++wholeOnes;
        auto* table = reinterpret_cast<MC_OpaqueGammaTable*>(guarded.Data());
        for (int16_t c = -1; c < 5; ++c) {
            for (int16_t i = -1; i < 10; ++i) {
                const double value = MC_GetGammaVal(table, c, i);
                EXPECT_TRUE(value >= 0.0 && value <= 1.0);
                MC_SetGammaVal(table, c, i, value);
            }
        }
    }
    EXPECT_GT(wholeOnes, 1000);
}

}  // namespace
