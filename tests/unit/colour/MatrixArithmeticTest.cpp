#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>

#include "colour/ChromaticAdaptation.h"
#include "colour/MatrixArithmetic.h"
#include "tests/fixtures/FixedValues.h"
#include "tests/reference/MatrixReference.h"

namespace {

constexpr int32_t kSmallest = std::numeric_limits<int32_t>::min();
constexpr int32_t kLargest = std::numeric_limits<int32_t>::max();
constexpr FixedMatrix kIdentity = {{65536, 0, 0, 0, 65536, 0, 0, 0, 65536}};
constexpr FixedMatrix kNineDifferent = {{1, -2, 3, -40000, 500000, -6000000, kLargest, kSmallest, 9}};
constexpr FixedMatrix kMonitor = {{28583, 25238, 9464, 14581, 46981, 3974, 912, 6363, 46786}};

/// Seeded numbers that visit both ends of the range and the small values as often as the rest.
class Numbers {
public:
    explicit Numbers(unsigned seed) : engine_(seed) {}

    int32_t Any() {
        static constexpr int32_t kEdges[] = {0, 1, -1, 2, -2, 32767, 32768, -32768, -32769, 65535, 65536, -65536, kSmallest, kSmallest + 1, kLargest};
        const auto bits = static_cast<uint32_t>(engine_());
        if (bits % 8 == 0) return kEdges[(bits >> 8) % std::size(kEdges)];
        return static_cast<int32_t>(engine_()) >> (bits >> 8) % 32;
    }
    int32_t Within(int32_t limit) { return std::uniform_int_distribution<int32_t>(-limit, limit)(engine_); }
    uint16_t Channel() {
        const auto bits = static_cast<uint32_t>(engine_());
        if (bits % 16 == 0) return bits & 256 ? 65535 : 0;
        return static_cast<uint16_t>(bits >> 16);
    }
    FixedMatrix AnyMatrix() {
        FixedMatrix m;
        for (int32_t& element : m.element) element = Any();
        return m;
    }
    FixedMatrix MatrixWithin(int32_t limit) {
        FixedMatrix m;
        for (int32_t& element : m.element) element = Within(limit);
        return m;
    }

private:
    std::mt19937 engine_;
};

TEST(MatrixIdentity, IsOneOnTheDiagonal) {
    FixedMatrix m = kNineDifferent;
    ICC_MatrixIdentity(&m);
    EXPECT_EQ(m, kIdentity);
}

TEST(MatrixCopy, CopiesAllNineElements) {
    FixedMatrix copy = kIdentity;
    ICC_MatrixCopy(&kNineDifferent, &copy);
    EXPECT_EQ(copy, kNineDifferent);
}

struct ScaleRow {
    int32_t element, numerator, denominator, expected;
    const char* what;
};

constexpr ScaleRow kScaleRows[] = {
    {3, 1, 2, 1, "halves are cut"},
    {-3, 1, 2, -1, "toward zero below zero too"},
    {-1, 1, 2, 0, "minus one half"},
    {7, -1, 2, -3, "negative numerator"},
    {7, 1, -2, -3, "negative denominator"},
    {-7, -1, 2, 3, "two signs"},
    {5, 2, 3, 3, "10/3"},
    {65536, 63190, 62273, 66501, "a ratio of fixed-point numbers"},
    {kLargest, kLargest, kLargest, kLargest, "the product needs 64 bits"},
    {kSmallest, kSmallest, kSmallest, kSmallest, "the largest product"},
    {kSmallest, 1, -1, kSmallest, "one more than fits: the low 32 bits"},
    {kLargest, 2, 1, -2, "low 32 bits"},
    {65536, 65536, 1, 0, "low 32 bits of 2^32"},
    {1234, 0, 5, 0, "zero numerator"},
};

TEST(MatrixScale, MultipliesThenDividesTruncatingTowardZero) {
    for (const ScaleRow& row : kScaleRows) {
        FixedMatrix m;
        std::fill(std::begin(m.element), std::end(m.element), row.element);
        ICC_MatrixScale(&m, row.numerator, row.denominator);
        for (int32_t element : m.element) EXPECT_EQ(element, row.expected) << row.what;
    }
}

TEST(MatrixScale, ColumnsTakeTheirOwnRatio) {
    FixedMatrix m = {{10, 20, 30, 40, 50, 60, -70, -80, -90}};
    const int32_t numerators[3] = {1, 3, -2};
    const int32_t denominators[3] = {3, 1, 7};
    ICC_MatrixScaleColumns(&m, numerators, denominators);
    EXPECT_EQ(m, (FixedMatrix{{3, 60, -8, 13, 150, -17, -23, -240, 25}}));
}

TEST(MatrixScale, RowsTakeTheirOwnRatio) {
    FixedMatrix m = {{10, 20, 30, 40, 50, 60, -70, -80, -90}};
    const int32_t numerators[3] = {1, 3, -2};
    const int32_t denominators[3] = {3, 1, 7};
    ICC_MatrixScaleRows(&m, numerators, denominators);
    EXPECT_EQ(m, (FixedMatrix{{3, 6, 10, 120, 150, 180, 20, 22, 25}}));
}

TEST(MatrixScale, EqualsTheExactQuotientForAnyNumbers) {
    Numbers numbers(1);
    for (int i = 0; i < 200000; ++i) {
        const FixedMatrix m = numbers.AnyMatrix();
        int32_t n[3], d[3];
        for (int k = 0; k < 3; ++k) {
            n[k] = numbers.Any();
            do d[k] = numbers.Any();
            while (d[k] == 0);
        }
        FixedMatrix rows = m, columns = m, whole = m;
        ICC_MatrixScaleRows(&rows, n, d);
        ICC_MatrixScaleColumns(&columns, n, d);
        ICC_MatrixScale(&whole, n[0], d[0]);
        for (int k = 0; k < 9; ++k) {
            const reference::Wide element = m.element[k];
            ASSERT_EQ(rows.element[k], reference::Low32(element * n[k / 3] / d[k / 3]));
            ASSERT_EQ(columns.element[k], reference::Low32(element * n[k % 3] / d[k % 3]));
            ASSERT_EQ(whole.element[k], reference::Low32(element * n[0] / d[0]));
        }
    }
}

// A broken profile can bring a zero here: the host must outlive it.
TEST(MatrixScale, OutlivesAZeroDenominator) {
    FixedMatrix m = kNineDifferent;
    ICC_MatrixScale(&m, 5, 0);
    EXPECT_EQ(m, FixedMatrix{});
}

TEST(MatrixInverse, OfTheIdentityIsTheIdentity) {
    FixedMatrix inverse;
    ICC_MatrixInverse(&kIdentity, &inverse);
    EXPECT_EQ(inverse, kIdentity);
}

TEST(MatrixInverse, OfADiagonalHoldsTheReciprocals) {
    const FixedMatrix m = {{131072, 0, 0, 0, 262144, 0, 0, 0, 524288}};
    FixedMatrix inverse;
    ICC_MatrixInverse(&m, &inverse);
    EXPECT_EQ(inverse, (FixedMatrix{{32768, 0, 0, 0, 16384, 0, 0, 0, 8192}}));
}

TEST(MatrixInverse, IsTransposedLikeTheAdjugate) {
    // The rows permuted one way: the inverse permutes them back.
    const FixedMatrix m = {{0, 65536, 0, 0, 0, 65536, 65536, 0, 0}};
    FixedMatrix inverse;
    ICC_MatrixInverse(&m, &inverse);
    EXPECT_EQ(inverse, (FixedMatrix{{0, 0, 65536, 65536, 0, 0, 0, 65536, 0}}));
}

struct LiftRow {
    int32_t offDiagonal;  // the inverse's element (0, 1) is minus a tenth of it
    int32_t expected;
    const char* what;
};

constexpr LiftRow kLiftRows[] = {
    {13, 0, "-1.3"}, {17, -1, "-1.7"}, {4, 0, "-0.4"}, {10, 0, "-1 exactly"}, {20, -1, "-2 exactly"},
    {-13, 1, "1.3"}, {-17, 2, "1.7"},  {-4, 0, "0.4"}, {-5, 1, "0.5"},        {-15, 2, "1.5"},
};

// Deliberate: adding one half and truncating moves negative elements up by as much as one unit.
TEST(MatrixInverse, LiftsNegativeElementsUnlikeRounding) {
    for (const LiftRow& row : kLiftRows) {
        const FixedMatrix m = {{2 * 65536, row.offDiagonal, 0, 0, 5 * 65536, 0, 0, 0, 65536}};
        FixedMatrix inverse;
        ICC_MatrixInverse(&m, &inverse);
        EXPECT_EQ(inverse, (FixedMatrix{{32768, row.expected, 0, 0, 13107, 0, 0, 0, 65536}})) << row.what;
    }
}

TEST(MatrixInverse, OfTheBradfordMatrixIsKnown) {
    FixedMatrix inverse;
    ICC_MatrixInverse(&bradfordMatrix, &inverse);
    EXPECT_EQ(inverse, (FixedMatrix{{64684, -9636, 10484, 28332, 33971, 3231, -555, 2628, 63471}}));
    ICC_ImproveMatrixInverse(&bradfordMatrix, &inverse);
    EXPECT_EQ(inverse, (FixedMatrix{{64684, -9636, 10484, 28331, 33971, 3231, -555, 2628, 63471}}));
}

TEST(MatrixInverse, EqualsTheExactInverseBySameRule) {
    Numbers numbers(2);
    int tried = 0, ambiguous = 0;
    while (tried < 200000) {
        const FixedMatrix m = numbers.MatrixWithin(2 * 65536);
        const reference::Inverse exact(m);
        if (exact.determinant < (reference::Wide{1} << 46) && exact.determinant > -(reference::Wide{1} << 46)) continue;  // under 1/4
        ++tried;
        FixedMatrix inverse;
        ICC_MatrixInverse(&m, &inverse);
        for (int i = 0; i < 9; ++i) {
            // Doubles may fall to either side only within 1/65536 of a step.
            const int32_t low = exact.Element(i, -1), high = exact.Element(i, 1);
            ASSERT_GE(inverse.element[i], low);
            ASSERT_LE(inverse.element[i], high);
            ambiguous += low != high;
        }
    }
    EXPECT_LT(ambiguous, 9 * tried / 10000);
}

TEST(MatrixInverse, MayReplaceItsSource) {
    FixedMatrix m = bradfordMatrix, apart;
    ICC_MatrixInverse(&m, &apart);
    ICC_MatrixInverse(&m, &m);
    EXPECT_EQ(m, apart);
}

// No result is promised; what counts is that no conversion of an infinity, a NaN or a huge number stops the host.
TEST(MatrixInverse, OutlivesSingularAndNearlySingularMatrices) {
    const FixedMatrix matrices[] = {
        {},                                      // 0/0
        {{65536, 0, 0, 0, 65536, 0, 0, 0, 0}},   // 1/0
        {{-65536, 0, 0, 0, 65536, 0, 0, 0, 0}},  // -1/0
        {{1, 2, 3, 2, 4, 6, 3, 6, 9}},           // rank one
        {{1, 0, 0, 0, 1, 0, 0, 0, 1}},           // an inverse of 2^32
        {{-1, 0, 0, 0, 1, 0, 0, 0, 1}},          // an inverse of -2^32
        {{kSmallest, kLargest, kSmallest, kLargest, kSmallest, kLargest, 0, 0, 0}},
    };
    for (const FixedMatrix& m : matrices) {
        FixedMatrix first, second = kNineDifferent;
        ICC_MatrixInverse(&m, &first);
        ICC_MatrixInverse(&m, &second);
        EXPECT_EQ(first, second) << "every element is written";
    }
    FixedMatrix inverse;
    ICC_MatrixInverse(&matrices[0], &inverse);
    EXPECT_EQ(inverse, FixedMatrix{});
    ICC_MatrixInverse(&matrices[4], &inverse);
    EXPECT_EQ(inverse.element[0], kLargest);
    ICC_MatrixInverse(&matrices[5], &inverse);
    EXPECT_EQ(inverse.element[0], kSmallest);
}

TEST(ImproveMatrixInverse, BringsTheProductWithinTwoUnitsOfTheIdentity) {
    const FixedMatrix matrices[] = {
        bradfordMatrix,
        {{42951, 11068, 8238, 19235, 47798, -1487, -4392, 2478, 73230}},
        {{131072, -40000, -3000, -9000, 98304, -12345, -1, -20000, 80000}},
    };
    for (const FixedMatrix& m : matrices) {
        FixedMatrix inverse, product;
        ICC_MatrixInverse(&m, &inverse);
        ICC_ImproveMatrixInverse(&m, &inverse);
        ICC_MatrixConcat(&m, &inverse, &product);
        for (int i = 0; i < 9; ++i) EXPECT_NEAR(product.element[i], kIdentity.element[i], 2) << i;
    }
}

TEST(ImproveMatrixInverse, LeavesTheExactInverseOfTheIdentityAlone) {
    FixedMatrix inverse = kIdentity;
    ICC_ImproveMatrixInverse(&kIdentity, &inverse);
    EXPECT_EQ(inverse, kIdentity);
}

// With the identity as matrix and a diagonal x, P = x and Q = round(x * x / 65536): the division's behaviour shows in the sum.
TEST(ImproveMatrixInverse, AddsOneWhereTheResultIsNegative) {
    struct Row {
        int32_t before, after;
        const char* what;
    };
    constexpr Row kRows[] = {
        {0, 0, "zero stays"},
        {1, 2, "2 - 0"},
        {-1, -1, "-2 - 0, one added"},
        {-65536, -196607, "-2 - 1, one added"},
        {131072, 0, "4 - 4 is zero, nothing added"},
        {131073, -1, "two units under zero, one added"},
        {100000, 47412, "positive"},
    };
    for (const Row& row : kRows) {
        FixedMatrix inverse = {{row.before, 0, 0, 0, 65536, 0, 0, 0, 65536}};
        ICC_ImproveMatrixInverse(&kIdentity, &inverse);
        EXPECT_EQ(inverse.element[0], row.after) << row.what;
    }
}

TEST(ImproveMatrixInverse, EqualsTheExactStepForAnyNumbers) {
    Numbers numbers(3);
    for (int i = 0; i < 200000; ++i) {
        const FixedMatrix m = i % 2 ? numbers.AnyMatrix() : numbers.MatrixWithin(4 * 65536);
        const FixedMatrix before = i % 2 ? numbers.AnyMatrix() : numbers.MatrixWithin(4 * 65536);
        FixedMatrix inverse = before;
        ICC_ImproveMatrixInverse(&m, &inverse);
        ASSERT_EQ(inverse, reference::Refine(m, before));
    }
}

TEST(MatrixConcat, WithTheIdentityOnEitherSideChangesNothing) {
    for (const FixedMatrix& m : {kNineDifferent, kMonitor, bradfordMatrix}) {
        FixedMatrix result = {};
        ICC_MatrixConcat(&kIdentity, &m, &result);
        EXPECT_EQ(result, m);
        result = {};
        ICC_MatrixConcat(&m, &kIdentity, &result);
        EXPECT_EQ(result, m);
    }
}

TEST(MatrixConcat, AppliesItsSecondMatrixFirst) {
    const FixedMatrix doubleX = {{131072, 0, 0, 0, 65536, 0, 0, 0, 65536}};
    const FixedMatrix swapXY = {{0, 65536, 0, 65536, 0, 0, 0, 0, 65536}};
    const FixedXYZ v = {100, 1000, 5};
    FixedMatrix both;
    FixedXYZ result;
    ICC_MatrixConcat(&doubleX, &swapXY, &both);
    ICC_FixedMatrixMultiply(&both, &v, &result);
    EXPECT_EQ(result, (FixedXYZ{2000, 100, 5}));
}

TEST(FixedMatrixMultiply, RoundsHalvesTowardPlusInfinity) {
    struct Row {
        int32_t value, expected;
        const char* what;
    };
    constexpr Row kRows[] = {
        {32768, 1, "0.5"},    {32767, 0, "just under 0.5"},    {-32768, 0, "-0.5"}, {-32769, -1, "just under -0.5"}, {98304, 2, "1.5"},
        {-98304, -1, "-1.5"}, {-98305, -2, "just under -1.5"}, {65536, 1, "1"},
    };
    for (const Row& row : kRows) {
        const FixedMatrix m = {{row.value, 0, 0, 0, row.value, 0, 0, 0, row.value}};
        const FixedXYZ unit = {1, 1, 1};
        FixedXYZ result;
        ICC_FixedMatrixMultiply(&m, &unit, &result);
        EXPECT_EQ(result, (FixedXYZ{row.expected, row.expected, row.expected})) << row.what;
    }
}

TEST(FixedMatrixMultiply, RoundsTheSumNotTheProducts) {
    const FixedMatrix m = {{20000, 20000, 20000, -20000, -20000, -20000, 32768, -32768, 0}};
    const FixedXYZ unit = {1, 1, 1};
    FixedXYZ result;
    ICC_FixedMatrixMultiply(&m, &unit, &result);
    EXPECT_EQ(result, (FixedXYZ{1, -1, 0}));
}

TEST(FixedMatrixMultiply, KeepsTheLow32BitsOfExtremeSums) {
    const FixedMatrix m = {
        {kSmallest, kSmallest, kSmallest, kLargest, kLargest, kLargest, kSmallest, kLargest, kSmallest},
    };
    for (const FixedXYZ& v : {FixedXYZ{kSmallest, kSmallest, kSmallest}, FixedXYZ{kLargest, kLargest, kLargest}, FixedXYZ{kSmallest, kLargest, 1}}) {
        FixedXYZ result;
        ICC_FixedMatrixMultiply(&m, &v, &result);
        EXPECT_EQ(result, reference::Multiply(m, v));
    }
}

TEST(FixedMatrixMultiply, EqualsTheExactProductForAnyNumbers) {
    Numbers numbers(4);
    for (int i = 0; i < 1000000; ++i) {
        const FixedMatrix m = numbers.AnyMatrix();
        const FixedXYZ v = {numbers.Any(), numbers.Any(), numbers.Any()};
        FixedXYZ result;
        ICC_FixedMatrixMultiply(&m, &v, &result);
        ASSERT_EQ(result, reference::Multiply(m, v));
    }
}

TEST(MatrixConcat, EqualsTheExactProductForAnyNumbers) {
    Numbers numbers(5);
    for (int i = 0; i < 300000; ++i) {
        const FixedMatrix a = numbers.AnyMatrix();
        const FixedMatrix b = numbers.AnyMatrix();
        FixedMatrix result;
        ICC_MatrixConcat(&a, &b, &result);
        ASSERT_EQ(result, reference::Multiply(a, b));
    }
}

struct Channels {
    std::array<uint16_t, 3> out;
    uint8_t flag;
    bool operator==(const Channels&) const = default;
};

void PrintTo(const Channels& c, std::ostream* out) {
    *out << c.out[0] << ' ' << c.out[1] << ' ' << c.out[2] << " flag " << int{c.flag};
}

Channels Multiplied(const FixedMatrix& m, const std::array<uint16_t, 3>& in, uint8_t flag = 0) {
    Channels result = {{1, 2, 3}, flag};
    ICC_MatrixMultiply(&m, in.data(), result.out.data(), &result.flag);
    return result;
}

TEST(MatrixMultiply, ByTheIdentityReturnsEveryValueAndLeavesTheFlag) {
    for (uint32_t v = 0; v <= 65535; ++v) {
        const auto x = static_cast<uint16_t>(v), y = static_cast<uint16_t>(65535 - v), z = static_cast<uint16_t>(v ^ 0x5555);
        ASSERT_EQ(Multiplied(kIdentity, {x, y, z}), (Channels{{x, y, z}, 0}));
    }
}

TEST(MatrixMultiply, ClampsEachRowAndSetsTheFlagOnlyThen) {
    struct Row {
        int32_t row[3];
        std::array<uint16_t, 3> in;
        uint16_t expected;
        uint8_t flag;
        const char* what;
    };
    constexpr Row kRows[] = {
        {{65536, 0, 0}, {65535, 0, 0}, 65535, 0, "exactly 4294901760"},
        {{65536, 1, 0}, {65535, 1, 0}, 65535, 255, "one unit more"},
        {{65536, -1, 0}, {65535, 1, 0}, 65535, 0, "one unit less rounds up to full scale"},
        {{0, 0, -1}, {0, 0, 1}, 0, 255, "minus one unit"},
        {{1, 1, -2}, {1, 1, 1}, 0, 0, "exactly zero"},
        {{32768, 0, 0}, {1, 0, 0}, 1, 0, "one half goes up"},
        {{32767, 0, 0}, {1, 0, 0}, 0, 0, "just under one half"},
        {{98304, 0, 0}, {1, 0, 0}, 2, 0, "one and a half"},
        {{65536, 65536, 0}, {40000, 40000, 0}, 65535, 255, "too large"},
        {{-65536, 65536, 65536}, {65535, 65535, 65535}, 65535, 0, "the sum counts, not its parts"},
        {{kLargest, kLargest, kLargest}, {65535, 65535, 65535}, 65535, 255, "the largest sum"},
        {{kSmallest, kSmallest, kSmallest}, {65535, 65535, 65535}, 0, 255, "the smallest sum"},
        {{65536, 0, 0}, {32768, 0, 0}, 32768, 0, "inputs are unsigned"},
    };
    for (const Row& row : kRows) {
        for (int r = 0; r < 3; ++r) {
            FixedMatrix m = {};
            for (int c = 0; c < 3; ++c) m.element[3 * r + c] = row.row[c];
            Channels expected = {{0, 0, 0}, row.flag};
            expected.out[static_cast<size_t>(r)] = row.expected;
            EXPECT_EQ(Multiplied(m, row.in), expected) << row.what << ", row " << r;
        }
    }
}

// Deliberate: the flag gathers over several calls; the caller clears it.
TEST(MatrixMultiply, NeverClearsTheFlag) {
    EXPECT_EQ(Multiplied(kIdentity, {1, 2, 3}, 255).flag, 255);
    EXPECT_EQ(Multiplied(kIdentity, {1, 2, 3}, 7).flag, 7);
}

TEST(MatrixMultiply, GoesOnWithTheOtherRowsAfterAClamp) {
    const FixedMatrix m = {{-65536, 0, 0, 0, 65536, 0, 0, 0, 131072}};
    EXPECT_EQ(Multiplied(m, {5, 6, 40000}), (Channels{{0, 6, 65535}, 255}));
}

TEST(MatrixMultiply, EqualsTheExactProductForAnyNumbers) {
    Numbers numbers(6);
    int clamped = 0;
    constexpr int kCount = 2000000;
    for (int i = 0; i < kCount; ++i) {
        FixedMatrix m = i % 2 ? numbers.AnyMatrix() : numbers.MatrixWithin(12000);
        if (i % 2 == 0)
            for (int k = 0; k < 9; k += 4) m.element[k] += 65536;  // like a monitor's: most rows stay inside
        const std::array<uint16_t, 3> in = {numbers.Channel(), numbers.Channel(), numbers.Channel()};
        Channels expected = {{}, 0};
        for (size_t r = 0; r < 3; ++r) {
            reference::Wide sum = 0;
            for (size_t k = 0; k < 3; ++k) sum += reference::Wide{m.element[3 * r + k]} * in[k];
            const reference::Wide full = reference::Wide{65535} << 16;
            if (sum < 0 || sum > full) expected.flag = 255;
            sum = std::clamp<reference::Wide>(sum, 0, full);
            expected.out[r] = static_cast<uint16_t>(reference::FloorDivide(sum + 32768, 65536));
        }
        ASSERT_EQ(Multiplied(m, in), expected);
        clamped += expected.flag == 255;
    }
    EXPECT_GT(clamped, kCount / 10);
    EXPECT_LT(clamped, kCount * 9 / 10);
}

}  // namespace
