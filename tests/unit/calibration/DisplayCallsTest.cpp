// The displays' functions over displays in memory: more of them, and of more kinds, than a machine has.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "calibration/Displays.h"
#include "tests/fixtures/DisplayBench.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char k32Bits[] = "--------RRRRRRRRGGGGGGGGBBBBBBBB";

struct Dispose {
    void operator()(MC_OpaqueGammaTable* table) const { MC_DisposeGammaTable(table); }
};
using Table = std::unique_ptr<MC_OpaqueGammaTable, Dispose>;

struct BenchDisplays : testing::Test {
    void SetUp() override {
        Bench() = DisplayBench();
        Connect(1);
    }
    /// So many displays, with the IDs 101, 102 ...
    void Connect(uint32_t count) {
        Bench().displays.clear();
        for (uint32_t i = 0; i < count; ++i) Bench().displays.push_back({101 + i, k32Bits, {{0, 0}, {640, 480}}, {}});
    }
    BenchDisplay& First() { return Bench().displays.front(); }
};

TEST_F(BenchDisplays, AreCountedAndFoundUpTo32) {
    Connect(33);
    EXPECT_EQ(MC_NumDisplays(), 32);
    EXPECT_EQ(MC_GetIndexedDisplay(1), 101U);
    EXPECT_EQ(MC_GetIndexedDisplay(32), 132U);
    EXPECT_EQ(MC_GetIndexedDisplay(33), 0U) << "though 33 displays exist";
    EXPECT_EQ(MC_GetIndexedDisplay(0), 0U);
    EXPECT_EQ(MC_GetIndexedDisplay(-1), 0U);
    EXPECT_EQ(MC_GetDisplayIndex(132), 32);
    EXPECT_EQ(MC_GetDisplayIndex(133), -1);
    EXPECT_EQ(MC_GetMainDisplay(), 101U);
    Connect(2);
    EXPECT_EQ(MC_NumDisplays(), 2);
    EXPECT_EQ(MC_GetIndexedDisplay(3), 0U);
}

TEST_F(BenchDisplays, AreNoneWhereTheListIsEmptyOrCannotBeRead) {
    for (const CGError error : {0, 1000}) {
        Connect(error == 0 ? 0 : 3);
        Bench().listError = error;
        EXPECT_EQ(MC_NumDisplays(), 0);
        EXPECT_EQ(MC_GetMainDisplay(), 0U);
        EXPECT_EQ(MC_GetIndexedDisplay(1), 0U);
        EXPECT_EQ(MC_GetDisplayIndex(101), -1);
    }
}

TEST_F(BenchDisplays, AreDescribedByTheirEncoding) {
    const struct {
        const char* encoding;
        int32_t depth, bits;
        bool suitable;
    } rows[] = {
        {"-RRRRRGGGGGBBBBB", 16, 5, true},
        {k32Bits, 32, 8, true},
        {"--RRRRRRRRRRGGGGGGGGGGBBBBBBBBBB", 30, 10, true},
        {"-16R16G16B16", 64, 16, true},
        {"--------rrrrrrrrggggggggbbbbbbbb", 32, 8, true},
        {"-16r16g16b16", 64, 16, true},
        {"PPPPPPPP", 0, 0, false},
        {"RRRRRGGGGGGBBBBB", 0, 0, false},
        {"--------RRRRRRRRGGGGGGGGBBBBBBBBB", 0, 0, false},
    };
    for (const auto& row : rows) {
        First().encoding = row.encoding;
        MC_DisplayInfo info;
        MC_GetDisplayInfo(101, &info);
        EXPECT_EQ(info.depth, row.depth) << row.encoding;
        EXPECT_EQ(info.bitsPerSample, row.bits) << row.encoding;
        EXPECT_EQ(info.index, 1) << row.encoding;
        EXPECT_EQ(MC_DisplayIsSuitableForCalibration(101) != 0, row.suitable) << row.encoding;
        EXPECT_EQ(MC_GetDisplayBitsPerSample(101), row.bits) << row.encoding;
    }
}

TEST_F(BenchDisplays, AreDescribedByTheirBoundsCutToIntegers) {
    First().bounds = {{-1280.75, 40.5}, {1280.5, 1024.25}};
    MC_DisplayInfo info;
    MC_GetDisplayInfo(101, &info);
    EXPECT_THAT((std::vector<int>{info.top, info.left, info.bottom, info.right}), ElementsAre(40, -1280, 1064, 0));
}

TEST_F(BenchDisplays, WithoutAModeAreDescribedByZeros) {
    First().encoding.clear();
    MC_DisplayInfo info;
    std::memset(&info, 0xAA, sizeof info);
    MC_GetDisplayInfo(101, &info);
    EXPECT_THAT((std::vector<int>{info.depth, info.bitsPerSample, info.index, info.top, info.left, info.bottom, info.right}), Each(0));
    EXPECT_FALSE(MC_DisplayIsSuitableForCalibration(101));
}

TEST_F(BenchDisplays, HaveATestColourAndIndexByTheirBits) {
    const struct {
        const char* encoding;
        int32_t index;
        uint16_t colour;
    } rows[] = {
        {k32Bits, 1, 0x0101},         {"-RRRRRGGGGGBBBBB", 8, 0x0808}, {"unknown", 256, 0x0101}, {"--RRRRRRRRRRGGGGGGGGGGBBBBBBBBBB", 1 << 30, 0},
        {"-16R16G16B16", 1 << 24, 0},
    };
    for (const auto& row : rows) {
        First().encoding = row.encoding;
        uint16_t colour[3] = {7, 7, 7};
        int32_t index = -1;
        MC_GetColourAndIndexForGammaCalibration(101, colour, &index);
        EXPECT_EQ(index, row.index) << row.encoding;
        EXPECT_THAT(colour, Each(row.colour)) << row.encoding;
    }
}

TEST_F(BenchDisplays, GetTheirRampBackTo16Bits) {
    for (int c = 0; c < 3; ++c) {
        for (int i = 0; i < 256; ++i) First().ramp[c].push_back(static_cast<float>((i * 257 * (c + 1) % 65536) / 65535.0));
    }
    const BenchDisplay before = First();
    MC_OpaqueGammaTable* copied = nullptr;
    ASSERT_EQ(MC_CopyGammaTableForDisplay(101, &copied), 0);
    const Table table(copied);
    int16_t channels = 0, entries = 0, width = 0;
    MC_GetGammaTableParams(table.get(), &channels, &entries, &width);
    EXPECT_THAT((std::vector<int>{channels, entries, width}), ElementsAre(3, 256, 16));
    for (auto& ramp : First().ramp) ramp.clear();
    EXPECT_EQ(MC_SetDisplayGammaTable(101, table.get()), 0);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(First().ramp[c], before.ramp[c]);
}

TEST_F(BenchDisplays, GiveNoRampWhereItCannotBeRead) {
    MC_OpaqueGammaTable* copied = reinterpret_cast<MC_OpaqueGammaTable*>(&copied);
    EXPECT_EQ(MC_CopyGammaTableForDisplay(999, &copied), 1001);
    EXPECT_EQ(copied, nullptr);
}

TEST_F(BenchDisplays, RefuseARampOfAnotherShapeUntouched) {
    const struct {
        int16_t channels, entries, width;
        OSErr status;
    } rows[] = {{1, 256, 8, -50}, {2, 256, 16, -50}, {4, 16, 16, -50}, {3, 257, 16, -50}, {3, 256, 16, 0}, {3, 2, 8, 0}};
    for (const auto& row : rows) {
        Bench().log.clear();
        const Table table(MC_CreateGammaTable(row.channels, row.entries, row.width));
        EXPECT_EQ(MC_SetDisplayGammaTable(101, table.get()), row.status) << row.channels << " x " << row.entries;
        EXPECT_EQ(Bench().log.empty(), row.status != 0);
    }
    Bench().loadError = 70000;
    EXPECT_EQ(MC_SetDisplayGammaTable(101, Table(MC_CreateGammaTable(3, 2, 16)).get()), 70000 - 65536) << "cut to 16 bits";
}

TEST_F(BenchDisplays, TakeEntriesOf8BitsWithTheirBitsRepeated) {
    const Table table(MC_CreateGammaTable(3, 2, 8));
    reinterpret_cast<std::uint8_t*>(table.get())[13] = 0x80;
    ASSERT_EQ(MC_SetDisplayGammaTable(101, table.get()), 0);
    EXPECT_THAT(First().ramp[0], ElementsAre(0.0F, static_cast<float>(0x8080 / 65535.0)));
    EXPECT_THAT(First().ramp[1], ElementsAre(0.0F, 0.0F));
}

TEST_F(BenchDisplays, AreSetToALinearRamp) {
    MC_SetDisplayToLinearGammaTable(101, 3, 3, 16);
    for (const auto& ramp : First().ramp) EXPECT_THAT(ramp, ElementsAre(0.0F, static_cast<float>(32768 / 65535.0), 1.0F));
    MC_SetDisplayToLinearGammaTable(101, 3, 256, 8);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(First().ramp[2][static_cast<size_t>(i)], static_cast<float>(i * 257 / 65535.0)) << i;
    Bench().log.clear();
    MC_SetDisplayToLinearGammaTable(101, 1, 256, 8);
    EXPECT_THAT(Bench().log, IsEmpty()) << "one channel is refused";
}

}  // namespace
