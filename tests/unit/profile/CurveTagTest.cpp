#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "profile/CurveTag.h"
#include "tests/fixtures/GuardedBytes.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/reference/ToneCurve.h"

namespace {

struct Freer {
    void operator()(std::uint16_t* table) const { std::free(table); }
};

/// What SampleCurveTag answers for a tag that ends at an inaccessible page.
struct Sampled {
    int status;
    std::unique_ptr<std::uint16_t, Freer> table;
    std::uint32_t count;

    std::uint16_t operator[](std::size_t i) const { return table.get()[i]; }
    std::vector<std::uint16_t> Entries() const { return {table.get(), table.get() + count}; }
    std::uint16_t Guard() const { return table.get()[count]; }
};

Sampled SampleTag(const Bytes& tag) {
    const GuardedBytes guarded(tag);
    std::uint16_t unset = 0;
    std::uint16_t* table = &unset;  // must not survive
    std::uint32_t count = 0;
    const int status = SampleCurveTag(guarded.Data(), guarded.Length(), &table, &count);
    return {status, std::unique_ptr<std::uint16_t, Freer>(table), count};
}

// ---- 'curv' ----

TEST(CurvTag, NoEntriesAreTheIdentityInTwoPoints) {
    const Sampled sampled = SampleTag(CurvTag({}));
    ASSERT_EQ(sampled.status, 0);
    EXPECT_EQ(sampled.Entries(), (std::vector<std::uint16_t>{0, 65535}));
    EXPECT_EQ(sampled.Guard(), 65535);
}

TEST(CurvTag, GammaOneIsEvenlySpaced) {
    const Sampled sampled = SampleTag(CurvTag({256}));
    ASSERT_EQ(sampled.status, 0);
    ASSERT_EQ(sampled.count, 772u);
    for (std::uint32_t i = 0; i < 772; ++i) ASSERT_EQ(sampled[i], 85 * i) << i;
    EXPECT_EQ(sampled.Guard(), 65535);
}

TEST(CurvTag, OneEntryIsAGammaInU8Fixed8) {
    for (const std::uint16_t gamma : std::initializer_list<std::uint16_t>{1, 128, 256, 435, 461, 563, 614, 640, 65535}) {
        const Sampled sampled = SampleTag(CurvTag({gamma}));
        ASSERT_EQ(sampled.status, 0);
        ASSERT_EQ(sampled.count, 772u);
        for (std::uint32_t i = 0; i < 772; ++i) {
            const long double exact = 65535.0L * powl(i / 771.0L, gamma / 256.0L);
            // To the nearest; a value within a rounding error of a half may go either way.
            ASSERT_LE(std::abs(static_cast<long double>(sampled[i]) - exact), 0.5L + 1e-9L) << gamma << " at " << i;
        }
        EXPECT_EQ(sampled.Guard(), sampled[771]);
    }
}

TEST(CurvTag, GammaZeroIsFullScaleEverywhere) {
    const Sampled sampled = SampleTag(CurvTag({0}));
    ASSERT_EQ(sampled.status, 0);
    EXPECT_EQ(sampled.Entries(), std::vector<std::uint16_t>(772, 65535));
}

TEST(CurvTag, EntriesAreCopiedAtTheirOwnResolution) {
    for (const std::size_t count : {2u, 3u, 256u, 1024u, 4096u, 65536u, 70000u}) {
        std::vector<std::uint16_t> entries(count);
        for (std::size_t i = 0; i < count; ++i) entries[i] = static_cast<std::uint16_t>(i * 40503 + 12345);
        const Sampled sampled = SampleTag(CurvTag(entries));
        ASSERT_EQ(sampled.status, 0) << count;
        ASSERT_EQ(sampled.count, count);
        EXPECT_EQ(sampled.Entries(), entries) << count;
        EXPECT_EQ(sampled.Guard(), entries.back()) << count;
    }
}

TEST(CurvTag, BytesAfterTheEntriesAreIgnored) {
    Bytes tag = CurvTag({1, 2, 3});
    Append32(tag, 0x12345678);
    EXPECT_EQ(SampleTag(tag).Entries(), (std::vector<std::uint16_t>{1, 2, 3}));
}

// ---- 'para' ----

struct FormulaRow {
    const char* what;
    unsigned type;
    std::vector<double> parameters;  // g, a, b, c, d, e, f; each a multiple of 1/65536
};

const FormulaRow kFormulas[] = {
    {"gamma 2.2", 0, {ToFixed(2.2) / 65536.0}},
    {"gamma 1", 0, {1.0}},
    {"gamma below 1", 0, {0.5}},
    {"offset power", 1, {2.5, 0.875, 0.125}},
    {"offset power with a flat start", 1, {2.5, 1.25, -0.25}},
    {"offset power above 1", 1, {1.0, 2.0, 0.0}},
    {"offset power and constant", 2, {2.0, 0.75, -0.125, 0.125}},
    {"constant above 1", 2, {2.0, 0.75, -0.125, 1.5}},
    {"sRGB",
     3,
     {ToFixed(2.4) / 65536.0, ToFixed(1 / 1.055) / 65536.0, ToFixed(0.055 / 1.055) / 65536.0, ToFixed(1 / 12.92) / 65536.0,
      ToFixed(0.04045) / 65536.0}},
    {"linear part below 0", 3, {2.0, 1.0, 0.0, -1.0, 0.5}},
    {"all seven", 4, {2.0, 0.75, 0.0625, 0.5, 0.25, 0.125, 0.0625}},
    {"all seven, sums above 1", 4, {1.0, 1.0, 0.5, 2.0, 0.25, 0.5, 0.75}},
    {"all seven, sums below 0", 4, {1.0, 1.0, 0.0, 1.0, 0.25, -0.5, -0.125}},
};

TEST(ParaTag, EachFunctionTypeIsSampledAt772Points) {
    for (const FormulaRow& row : kFormulas) {
        const Sampled sampled = SampleTag(ParaTag(row.type, row.parameters));
        ASSERT_EQ(sampled.status, 0) << row.what;
        ASSERT_EQ(sampled.count, 772u) << row.what;
        for (std::uint32_t i = 0; i < 772; ++i) {
            const long double exact = reference::ScaledSample(reference::FormulaCurve(row.type, row.parameters, i / 771.0L));
            ASSERT_LE(std::abs(static_cast<long double>(sampled[i]) - exact), 0.5L + 1e-9L) << row.what << " at " << i;
        }
        EXPECT_EQ(sampled.Guard(), sampled[771]) << row.what;
    }
}

TEST(ParaTag, LinearPartOfSRGBCoversTheFirst32Samples) {
    // A slope of 0 below d makes the linear part visible.
    const Sampled sampled = SampleTag(ParaTag(3, {2.4, 1 / 1.055, 0.055 / 1.055, 0.0, 0.04045}));
    ASSERT_EQ(sampled.status, 0);
    for (std::size_t i = 0; i < 32; ++i) EXPECT_EQ(sampled[i], 0) << i;
    for (std::size_t i = 32; i < 772; ++i) EXPECT_GT(sampled[i], 0) << i;
}

TEST(ParaTag, SampleAtTheBreakBelongsToThePowerPart) {
    // a x + b = 0 and x = d are met exactly at x = 0.
    EXPECT_EQ(SampleTag(ParaTag(1, {0.0, 1.0, 0.0}))[0], 65535);
    EXPECT_EQ(SampleTag(ParaTag(2, {0.0, 1.0, 0.0, -0.5}))[0], 32768);
    EXPECT_EQ(SampleTag(ParaTag(3, {1.0, 1.0, 0.25, 0.0, 0.0}))[0], 16384);
    EXPECT_EQ(SampleTag(ParaTag(4, {1.0, 1.0, 0.25, 0.0, 0.0, 0.25, 1.0}))[0], 32768);
}

TEST(ParaTag, HalvesAreRoundedAwayFromZero) {
    // 0.5 * 65535 = 32767.5
    const Sampled sampled = SampleTag(ParaTag(4, {1.0, 0.0, 0.0, 0.0, 2.0, 0.0, 0.5}));
    EXPECT_EQ(sampled.Entries(), std::vector<std::uint16_t>(772, 32768));
}

TEST(ParaTag, NegativeConstantOfType2IsNotRaisedToZero) {
    struct Row {
        double c;
        std::uint16_t stored;  // the low 16 bits of c * 65535, rounded
    };
    for (const Row& row :
         {Row{-0.5, 0x8000}, Row{-1.0, 1}, Row{-0.25, 0xC000}, Row{-1.0 / 65536, 0xFFFF}, Row{-32768.0, 0x8000}, Row{0.25, 16384}, Row{2.0, 65535}}) {
        // a x is below -b everywhere.
        const Sampled sampled = SampleTag(ParaTag(2, {1.0, 1.0, -2.0, row.c}));
        ASSERT_EQ(sampled.status, 0);
        EXPECT_EQ(sampled.Entries(), std::vector<std::uint16_t>(772, row.stored)) << row.c;
        EXPECT_EQ(sampled.Guard(), row.stored) << row.c;
    }
}

TEST(ParaTag, PowerBranchOfType2IsClampedBelow) {
    const Sampled sampled = SampleTag(ParaTag(2, {1.0, 1.0, 0.0, -0.5}));
    EXPECT_EQ(sampled[0], 0);
    EXPECT_EQ(sampled[100], 0);
    EXPECT_EQ(sampled[771], 32768);
}

TEST(ParaTag, PowersThatAreNoNumbersOrInfiniteStayInRange) {
    // x^-1 is infinite at 0; (x - 0.5)^0.5 is no number below 0.5.
    EXPECT_EQ(SampleTag(ParaTag(0, {-1.0}))[0], 65535);
    const Sampled sampled = SampleTag(ParaTag(3, {0.5, 1.0, -0.5, 0.0, 0.0}));
    EXPECT_EQ(sampled[0], 0);
    EXPECT_EQ(sampled[100], 0);
    EXPECT_EQ(sampled[771], 46340);  // sqrt(0.5) * 65535 = 46340.24
    // Infinity plus a constant, and the widest parameters there are.
    for (const double wide : {-32768.0, 32767.99998474121}) {
        for (unsigned type = 0; type <= 4; ++type) {
            EXPECT_EQ(SampleTag(ParaTag(type, {wide, wide, wide, wide, wide, wide, wide})).status, 0) << type << " " << wide;
        }
    }
}

// ---- what is no usable curve ----

TEST(CurveTag, UnknownTypesAreRefused) {
    EXPECT_EQ(SampleTag(ParaTag(5, {1, 1, 1, 1, 1, 1, 1})).status, -170);
    EXPECT_EQ(SampleTag(ParaTag(0xFFFF, {1, 1, 1, 1, 1, 1, 1})).status, -170);
    Bytes text = TagOfType("text");
    text.resize(64);
    EXPECT_EQ(SampleTag(text).status, -170);
    EXPECT_EQ(SampleTag(text).table, nullptr);
}

TEST(CurveTag, TagsShorterThanTheySayAreRefused) {
    const Bytes whole[] = {CurvTag({}),
                           CurvTag({563}),
                           CurvTag({1, 2, 3, 4, 5}),
                           ParaTag(0, {2.2}),
                           ParaTag(1, {2.2, 1, 0}),
                           ParaTag(2, {2.2, 1, 0, 0}),
                           ParaTag(3, {2.2, 1, 0, 1, 0}),
                           ParaTag(4, {2.2, 1, 0, 1, 0, 0, 0})};
    for (const Bytes& tag : whole) {
        ASSERT_EQ(SampleTag(tag).status, 0);
        for (std::size_t length = 0; length < tag.size(); ++length) {
            const Sampled sampled = SampleTag(Bytes(tag.begin(), tag.begin() + static_cast<std::ptrdiff_t>(length)));
            EXPECT_EQ(sampled.status, -170) << std::string(tag.begin(), tag.begin() + 4) << " cut to " << length;
            EXPECT_EQ(sampled.table, nullptr);
        }
    }
}

TEST(CurveTag, EntryCountsThatLieAreRefused) {
    for (const std::uint32_t count : {6u, 7u, 0x10000u, 0x7FFFFFFFu, 0x80000000u, 0x80000005u, 0xFFFFFFFFu}) {
        Bytes tag = CurvTag({1, 2, 3, 4, 5});
        Put32(tag, 8, count);
        EXPECT_EQ(SampleTag(tag).status, -170) << count;
    }
}

}  // namespace
