#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <cstdlib>
#include <memory>

#include "profile/CurveSampling.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/ProfileBytes.h"

namespace {

constexpr const char* kCurves[] = {"rTRC", "gTRC", "bTRC"};

struct Sampled {
    OSErr status;
    std::unique_ptr<uint16_t, decltype(&std::free)> table;
    uint32_t count;
};

Sampled Sample(const ProfileMaker& maker, const char* signature) {
    uint16_t unset = 0;
    uint16_t* table = &unset;
    uint32_t count = 0;
    const OSErr status = GetColourantLUT(ProfileFrom(maker.Make()).Get(), Code(signature), &table, &count);
    return {status, {table, &std::free}, count};
}

TEST(ColourantLUT, EachChannelHasItsOwnCurve) {
    ProfileMaker maker = MatrixMonitor(CurvTag({}));
    maker.Set("gTRC", CurvTag({9, 8, 7}));
    maker.Set("bTRC", ParaTag(0, {2.0}));
    const Sampled red = Sample(maker, "rTRC");
    ASSERT_EQ(red.status, 0);
    EXPECT_EQ(red.count, 2u);
    EXPECT_EQ(red.table.get()[1], 65535);
    const Sampled green = Sample(maker, "gTRC");
    ASSERT_EQ(green.status, 0);
    EXPECT_EQ(green.count, 3u);
    EXPECT_EQ(std::vector<uint16_t>(green.table.get(), green.table.get() + 4), (std::vector<uint16_t>{9, 8, 7, 7}));
    const Sampled blue = Sample(maker, "bTRC");
    ASSERT_EQ(blue.status, 0);
    EXPECT_EQ(blue.count, 772u);
    EXPECT_EQ(blue.table.get()[772], 65535);
}

TEST(ColourantLUT, NeedsAMatrixModelForEverySignature) {
    ProfileMaker maker = MatrixMonitor(CurvTag({563}));
    maker.Remove("bTRC");
    for (const char* signature : {"rTRC", "gTRC", "bTRC", "wtpt"}) {
        const Sampled sampled = Sample(maker, signature);
        EXPECT_EQ(sampled.status, -170) << signature;
        EXPECT_EQ(sampled.table, nullptr) << signature;
    }
}

TEST(ColourantLUT, TagsThatAreNoUsableCurveAreRefused) {
    ProfileMaker maker = MatrixMonitor(CurvTag({563}));
    maker.Set("kTRC", ParaTag(5, {1, 1, 1, 1, 1, 1, 1}));
    Bytes lying = CurvTag({1, 2, 3});
    Put32(lying, 8, 4);
    maker.Set("tTRC", lying);
    for (const char* signature : {"kTRC", "tTRC", "wtpt", "none"}) {
        const Sampled sampled = Sample(maker, signature);
        EXPECT_EQ(sampled.status, -170) << signature;
        EXPECT_EQ(sampled.table, nullptr) << signature;
    }
}

TEST(ColourantLUT, A1024EntryCurveComesBackSwappedWithItsGuard) {
    std::vector<uint16_t> entries(1024);
    for (size_t i = 0; i < entries.size(); ++i) entries[i] = static_cast<uint16_t>(i * 64 + 0x1203);
    const Sampled sampled = Sample(MatrixMonitor(CurvTag(entries)), "gTRC");
    ASSERT_EQ(sampled.status, 0);
    ASSERT_EQ(sampled.count, 1024u);
    EXPECT_EQ(std::vector<uint16_t>(sampled.table.get(), sampled.table.get() + 1024), entries);
    EXPECT_EQ(sampled.table.get()[1024], entries.back());
}

TEST(ColourantLUT, NoProfileIsNoMatrixModel) {
    uint16_t* table = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(GetColourantLUT(nullptr, Code("rTRC"), &table, &count), -170);
}

TEST(ColourantLUT, PackagedProfilesKeepTheirOwnResolution) {
    struct Row {
        const char* path;
        uint32_t count;
    };
    const Row rows[] = {
        {"/usr/share/color/icc/ghostscript/scrgb.icc", 2},  // linear, no entries
        {"/usr/share/color/icc/ghostscript/a98.icc", 772},  // a gamma
        {"/usr/share/color/icc/ghostscript/srgb.icc", 1024}, {"/usr/share/color/icc/ghostscript/esrgb.icc", 2048},
        {"/usr/share/color/icc/colord/sRGB.icc", 772},  // a formula
        {"/usr/share/color/icc/colord/Rec709.icc", 4096},    {"/usr/share/color/icc/LStar-RGB.icc", 256},
    };
    for (const Row& row : rows) {
        const Owned<ColorSyncProfileRef> profile(ColorSyncProfileCreateWithURL(FileURL(row.path).Get(), nullptr));
        ASSERT_TRUE(profile) << row.path;
        for (const char* signature : kCurves) {
            uint16_t* table = nullptr;
            uint32_t count = 0;
            ASSERT_EQ(GetColourantLUT(profile.Get(), Code(signature), &table, &count), 0) << row.path;
            const std::unique_ptr<uint16_t, decltype(&std::free)> owner(table, &std::free);
            EXPECT_EQ(count, row.count) << row.path << " " << signature;
            EXPECT_EQ(table[count], table[count - 1]);
        }
    }
}

// ---- tables that are never delivered ----

Bytes TableTag(std::uint8_t inputs, std::uint8_t outputs, std::uint8_t grid, unsigned inputEntries, unsigned outputEntries) {
    Bytes tag = TagOfType("mft2");
    tag.insert(tag.end(), {inputs, outputs, grid, 0});
    for (std::uint32_t i = 0; i < 9; ++i) Append32(tag, 0x00010000 * i - 5);
    Append16(tag, inputEntries);
    Append16(tag, outputEntries);
    tag.resize(tag.size() + 64);
    return tag;
}

struct TableAnswer {
    OSErr status;
    std::array<int32_t, 9> matrix;
    uint32_t gridPoints;
    uint16_t* table;
};

TableAnswer AskTable(const Bytes& tag, const char* signature = "A2B0") {
    ProfileMaker maker = MatrixMonitor(CurvTag({563}));
    maker.Set("A2B0", tag);
    uint16_t unset = 0;
    TableAnswer answer = {0, {}, 1234, &unset};
    answer.matrix.fill(42);
    answer.status = Get3DTable(ProfileFrom(maker.Make()).Get(), Code(signature), answer.matrix.data(), &answer.gridPoints, &answer.table);
    return answer;
}

TEST(ThreeDTableTag, QualifyingTagIsStillRefusedButItsMatrixIsWritten) {
    for (const auto& tag : {TableTag(3, 3, 17, 2, 2), TableTag(3, 4, 2, 2, 2), TableTag(3, 1, 9, 2, 256), TableTag(3, 0, 9, 2, 256)}) {
        const TableAnswer answer = AskTable(tag);
        EXPECT_EQ(answer.status, -170);
        EXPECT_EQ(answer.table, nullptr);
        EXPECT_EQ(answer.gridPoints, 0u);
        for (std::int32_t i = 0; i < 9; ++i) EXPECT_EQ(answer.matrix[static_cast<size_t>(i)], 0x00010000 * i - 5);
    }
}

TEST(ThreeDTableTag, OtherTagsLeaveTheMatrixAlone) {
    Bytes eightBit = TableTag(3, 3, 17, 2, 2);
    Put32(eightBit, 0, Code("mft1"));
    Bytes cut = TableTag(3, 3, 17, 2, 2);
    cut.resize(51);
    for (const auto& tag :
         {TableTag(4, 3, 17, 2, 2), TableTag(3, 3, 17, 256, 2), TableTag(3, 3, 17, 2, 256), TableTag(3, 2, 17, 2, 256), eightBit, cut, CurvTag({})}) {
        const TableAnswer answer = AskTable(tag);
        EXPECT_EQ(answer.status, -170);
        EXPECT_EQ(answer.table, nullptr);
        EXPECT_EQ(answer.gridPoints, 0u);
        for (const std::int32_t element : answer.matrix) EXPECT_EQ(element, 42);
    }
}

TEST(ThreeDTableTag, AbsentTagIsRefused) {
    const TableAnswer answer = AskTable(CurvTag({}), "B2A0");
    EXPECT_EQ(answer.status, -170);
    EXPECT_EQ(answer.table, nullptr);
    EXPECT_EQ(answer.gridPoints, 1234u) << "not looked at, so not cleared";
    for (const std::int32_t element : answer.matrix) EXPECT_EQ(element, 42);
}

TEST(ThreeDTableTag, WithoutMemoryTheAnswerSaysSo) {
    // 256^3 nodes of 255 values take 8.5 GB: more than the limit leaves.
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    const Bytes tag = TableTag(3, 255, 255, 2, 2);
    rlimit limited = before;
    limited.rlim_cur = rlim_t{1} << 32;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limited), 0);
    const TableAnswer answer = AskTable(tag);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_EQ(answer.status, -108);
    EXPECT_EQ(answer.table, nullptr);
    EXPECT_EQ(answer.gridPoints, 0u);
}

}  // namespace
