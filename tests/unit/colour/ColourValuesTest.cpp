#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <random>
#include <type_traits>

#include "colour/ColourValues.h"
#include "tests/reference/LabReference.h"

namespace {

const XYZColour kD50(96.42f, 100.0f, 82.49f);
const XYZColour kUnit(1.0f, 1.0f, 1.0f);
const float kJustUnderEpsilon = std::nextafter(reference::kEpsilon, 0.0f);

uint32_t Bits(float value) {
    return std::bit_cast<uint32_t>(value);
}

void ExpectSame(const XYZColour& actual, float X, float Y, float Z, const char* what = "") {
    EXPECT_EQ(actual.X, X) << what;
    EXPECT_EQ(actual.Y, Y) << what;
    EXPECT_EQ(actual.Z, Z) << what;
}

template <typename Colour>
constexpr bool IsThreeFloats = sizeof(Colour) == 3 * sizeof(float) && std::is_standard_layout_v<Colour>&& std::is_trivially_copyable_v<Colour>;

TEST(ColourValues, TheFixedWhitesAreAmongThem) {
    ExpectSame(PCSWhiteColour, 0.964202880859375F, 1.0F, 0.8249053955078125F);
    ExpectSame(D65WhiteColour, 0.9502105712890625F, 1.0F, 1.0884857177734375F);
    for (const XYZColour& white : {PCSWhiteColour, D65WhiteColour}) {
        const XYZColour same = CIELabToXYZ(LabColour(100, 0, 0), white);
        EXPECT_NEAR(same.X, white.X, 1e-6);
        EXPECT_NEAR(same.Y, white.Y, 1e-6);
        EXPECT_NEAR(same.Z, white.Z, 1e-6);
    }
}

// The host passes them across the library's boundary.
TEST(ColourValues, AreThreeFloatsInTheStatedOrder) {
    EXPECT_TRUE(IsThreeFloats<XYZColour>);
    EXPECT_TRUE(IsThreeFloats<LabColour>);
    EXPECT_TRUE(IsThreeFloats<YxyColour>);
    EXPECT_EQ(offsetof(XYZColour, X), 0u);
    EXPECT_EQ(offsetof(XYZColour, Y), 4u);
    EXPECT_EQ(offsetof(XYZColour, Z), 8u);
    EXPECT_EQ(offsetof(LabColour, L), 0u);
    EXPECT_EQ(offsetof(LabColour, a), 4u);
    EXPECT_EQ(offsetof(LabColour, b), 8u);
    EXPECT_EQ(offsetof(YxyColour, Y), 0u);
    EXPECT_EQ(offsetof(YxyColour, x), 4u);
    EXPECT_EQ(offsetof(YxyColour, y), 8u);
}

TEST(ColourValues, StartAtZero) {
    alignas(4) unsigned char storage[3][12];
    std::fill_n(&storage[0][0], sizeof storage, static_cast<unsigned char>(0xAB));
    const auto* xyz = new (storage[0]) XYZColour();
    const auto* lab = new (storage[1]) LabColour();
    const auto* yxy = new (storage[2]) YxyColour();
    ExpectSame(*xyz, 0, 0, 0);
    EXPECT_TRUE(lab->L == 0 && lab->a == 0 && lab->b == 0);
    EXPECT_TRUE(yxy->Y == 0 && yxy->x == 0 && yxy->y == 0);
}

TEST(ColourValues, TakeTheirMembersInOrder) {
    const LabColour lab(1, 2, 3);
    const YxyColour yxy(4, 5, 6);
    ExpectSame(XYZColour(7, 8, 9), 7, 8, 9);
    EXPECT_TRUE(lab.L == 1 && lab.a == 2 && lab.b == 3);
    EXPECT_TRUE(yxy.Y == 4 && yxy.x == 5 && yxy.y == 6);
}

TEST(XYZArithmetic, WorksByComponents) {
    const XYZColour a(1, 20, 300), b(5, 7, -11);
    ExpectSame(a + b, 6, 27, 289);
    ExpectSame(a - b, -4, 13, 311);
    ExpectSame(a * 0.5f, 0.5f, 10, 150);
    XYZColour c = a;
    EXPECT_EQ(&(c += b), &c);
    ExpectSame(c, 6, 27, 289);
    EXPECT_EQ(&(c -= a), &c);
    ExpectSame(c, 5, 7, -11);
    EXPECT_EQ(&(c *= 4.0f), &c);
    ExpectSame(c, 20, 28, -44);
    EXPECT_EQ(&(c /= 8.0f), &c);
    ExpectSame(c, 2.5f, 3.5f, -5.5f);
    ExpectSame(a, 1, 20, 300, "the operands stay as they are");
}

TEST(XYZArithmetic, TakesItselfAsArgument) {
    XYZColour c(2, 3, 5);
    const XYZColour& same = c;
    c += same;
    ExpectSame(c, 4, 6, 10);
    c -= same;
    ExpectSame(c, 0, 0, 0);
}

TEST(XYZArithmetic, TakesOneOfItsOwnComponentsAsScalar) {
    XYZColour c(2, 3, 5);
    c *= c.X;
    ExpectSame(c, 4, 6, 10);
    c /= c.Y;
    ExpectSame(c, 4.0f / 6.0f, 1, 10.0f / 6.0f);
}

// Deliberate: a product with the reciprocal differs in the last bit for many values.
TEST(XYZArithmetic, DividesThreeTimes) {
    std::mt19937 engine(31);
    std::uniform_real_distribution<float> any(0.01f, 200.0f);
    int different = 0;
    for (int i = 0; i < 10000; ++i) {
        const XYZColour before(any(engine), any(engine), any(engine));
        const float divisor = any(engine);
        XYZColour c = before;
        c /= divisor;
        ASSERT_EQ(c.X, reference::Quotient(before.X, divisor));
        ASSERT_EQ(c.Y, reference::Quotient(before.Y, divisor));
        ASSERT_EQ(c.Z, reference::Quotient(before.Z, divisor));
        different += c.X != before.X * (1.0f / divisor);
    }
    EXPECT_GT(different, 500);
}

TEST(XYZToCIELab, OfTheWhiteIsOneHundredAndNeutral) {
    for (const XYZColour& white : {kD50, kUnit, XYZColour(0.9505f, 1.0f, 1.089f), XYZColour(62273, 65536, 71335)}) {
        const LabColour lab = XYZToCIELab(white, white);
        EXPECT_NEAR(lab.L, 100.0, 3e-5);
        EXPECT_EQ(lab.a, 0.0f);
        EXPECT_EQ(lab.b, 0.0f);
    }
}

TEST(XYZToCIELab, OfBlackIsExactlyZero) {
    const LabColour lab = XYZToCIELab(XYZColour(), kD50);
    EXPECT_EQ(Bits(lab.L), 0u);
    EXPECT_EQ(Bits(lab.a), 0u);
    EXPECT_EQ(Bits(lab.b), 0u);
}

// Found by a separate program, with D50 as white (96.42, 100, 82.49).
TEST(XYZToCIELab, GivesTheKnownBits) {
    struct Row {
        XYZColour xyz;
        uint32_t bits[3];
        const char* what;
    };
    const Row rows[] = {
        {{41.24f, 21.26f, 1.93f}, {0x4254EE78, 0x429C9BA5, 0x4278A872}, "a saturated red"},
        {{35.76f, 71.52f, 11.92f}, {0x42AF795C, 0xC2AFCFEF, 0x4293CFA1}, "a saturated green"},
        {{18.05f, 7.22f, 95.05f}, {0x420135DA, 0x429BA6E5, 0xC2FCCA26}, "a saturated blue"},
        {{20.0f, 21.0f, 17.0f}, {0x4253CC48, 0xBF9C1314, 0x3F3E46F0}, "nearly neutral"},
        {{0.5f, 0.4f, 0.3f}, {0x40673E6E, 0x4093B904, 0x3F10CDEC}, "all three on the linear branch"},
        {{0.8857f, 0.8857f, 0.7306f}, {0x41000208, 0x3FA1E58E, 0x39898000}, "around the threshold"},
        {{-1.0f, 0.2f, 3.0f}, {0x3FE73E6E, 0xC240ABE1, 0xC20E3F4C}, "negative X"},
    };
    for (const Row& row : rows) {
        const LabColour lab = XYZToCIELab(row.xyz, kD50);
        EXPECT_EQ(Bits(lab.L), row.bits[0]) << row.what;
        EXPECT_EQ(Bits(lab.a), row.bits[1]) << row.what;
        EXPECT_EQ(Bits(lab.b), row.bits[2]) << row.what;
    }
}

TEST(CIELabToXYZ, GivesTheKnownBits) {
    struct Row {
        LabColour lab;
        uint32_t bits[3];
        const char* what;
    };
    const Row rows[] = {
        {{50.0f, 0.0f, 0.0f}, {0x418E12F8, 0x41935965, 0x417318C2}, "mid grey"},
        {{8.0f, 0.0f, 0.0f}, {0x3F5A9BC1, 0x3F62B9A5, 0x3F3B068D}, "the threshold on L"},
        {{7.99f, 20.0f, -20.0f}, {0x3FB98D7B, 0x3F627116, 0x401878F0}, "just under it"},
        {{60.0f, -80.0f, 70.0f}, {0x413B4EDC, 0x41E0FC97, 0x40160B21}, "green"},
        {{30.0f, 60.0f, -100.0f}, {0x4154A1C9, 0x40C78C8B, 0x426DC95D}, "blue"},
        {{90.0f, 5.0f, -128.0f}, {0x429806F5, 0x42989B51, 0x439AB8B9}, "Z past the white"},
        {{5.0f, -40.0f, 30.0f}, {0xBEE9E939, 0x3F0DB406, 0xBF90F1E1}, "negative X and Z"},
    };
    for (const Row& row : rows) {
        const XYZColour xyz = CIELabToXYZ(row.lab, kD50);
        EXPECT_EQ(Bits(xyz.X), row.bits[0]) << row.what;
        EXPECT_EQ(Bits(xyz.Y), row.bits[1]) << row.what;
        EXPECT_EQ(Bits(xyz.Z), row.bits[2]) << row.what;
    }
}

TEST(XYZToCIELab, ChangesBranchAtEpsilonExactly) {
    EXPECT_EQ(Bits(reference::kEpsilon), 0x3C111AA7u);
    EXPECT_EQ(Bits(reference::kKappa), 0x4461D2F7u);
    const LabColour linear = XYZToCIELab(XYZColour(kJustUnderEpsilon, kJustUnderEpsilon, kJustUnderEpsilon), kUnit);
    const LabColour cubic = XYZToCIELab(XYZColour(reference::kEpsilon, reference::kEpsilon, reference::kEpsilon), kUnit);
    EXPECT_EQ(linear.L, reference::Product(kJustUnderEpsilon, reference::kKappa));
    EXPECT_EQ(cubic.L, reference::Sum(reference::Product(116, reference::CubeRoot(reference::kEpsilon)), -16));
    EXPECT_NE(cubic.L, reference::Product(reference::kEpsilon, reference::kKappa)) << "the branches can be told apart";
}

// Seen through a, as f itself differs there. The f of a zero Y is the offset, and the difference from it is exact.
TEST(XYZToCIELab, ChangesTheBranchOfFAtEpsilonExactly) {
    const auto aOf = [](float ratio) { return XYZToCIELab(XYZColour(ratio, 0, 0), kUnit).a; };
    const auto aFrom = [](float f) { return (f - reference::kOffset) * 500.0f; };
    const float linear = kJustUnderEpsilon * reference::kSlope + reference::kOffset;
    EXPECT_EQ(aOf(kJustUnderEpsilon), aFrom(linear));
    EXPECT_EQ(aOf(reference::kEpsilon), aFrom(reference::CubeRoot(reference::kEpsilon)));
    EXPECT_NE(aFrom(linear), aFrom(reference::CubeRoot(kJustUnderEpsilon))) << "the branches can be told apart";
}

// L on the linear branch comes from the ratio itself, not from 116 f - 16.
TEST(XYZToCIELab, TakesDarkLightnessStraightFromTheRatio) {
    int different = 0;
    for (int i = 1; i < 1000; ++i) {
        const float ratio = reference::kEpsilon * static_cast<float>(i) / 1000.0f;
        const float L = XYZToCIELab(XYZColour(0, ratio, 0), kUnit).L;
        ASSERT_EQ(L, reference::Product(ratio, reference::kKappa));
        different += L != 116.0f * reference::LabF(ratio) - 16.0f;
    }
    EXPECT_GT(different, 500);
}

// Deliberate: the library's cube root would differ in the last bits.
TEST(XYZToCIELab, UsesItsOwnCubeRoot) {
    int different = 0;
    constexpr int kCount = 20000;
    for (int i = 0; i < kCount; ++i) {
        const float y = 0.009f + static_cast<float>(i) / kCount;
        const float L = XYZToCIELab(XYZColour(0, y, 0), kUnit).L;
        ASSERT_EQ(L, reference::Sum(reference::Product(116, reference::CubeRoot(y)), -16)) << y;
        different += L != 116.0f * std::cbrt(y) - 16.0f;
        ASSERT_NEAR(L, 116.0 * std::cbrt(static_cast<double>(y)) - 16.0, 4e-5);
    }
    EXPECT_GT(different, kCount / 50);
}

TEST(XYZToCIELab, CubeRootServesEveryExponent) {
    for (int exponent = -6; exponent <= 127; ++exponent) {
        for (float mantissa : {0.5f, 0.62996f, 0.75f, 0.999999f}) {
            const float y = std::ldexp(mantissa, exponent);
            if (y < reference::kEpsilon) continue;
            const LabColour lab = XYZToCIELab(XYZColour(y, y, 0), kUnit);
            EXPECT_EQ(lab.L, reference::Sum(reference::Product(116, reference::CubeRoot(y)), -16)) << mantissa << " * 2^" << exponent;
            const double exact = 116.0 * std::cbrt(static_cast<double>(y)) - 16.0;
            EXPECT_NEAR(lab.L, exact, 4e-7 * (exact + 16)) << mantissa << " * 2^" << exponent;
        }
    }
}

TEST(XYZToCIELab, EqualsTheStepwiseReference) {
    std::mt19937 engine(32);
    std::uniform_real_distribution<float> bright(0.0f, 120.0f), dark(-0.2f, 2.0f);
    for (int i = 0; i < 300000; ++i) {
        const auto next = [&] { return i % 3 ? bright(engine) : dark(engine); };
        const XYZColour xyz(next(), next(), next());
        const LabColour lab = XYZToCIELab(xyz, kD50), expected = reference::ToLab(xyz, kD50);
        ASSERT_EQ(Bits(lab.L), Bits(expected.L)) << xyz.X << ' ' << xyz.Y << ' ' << xyz.Z;
        ASSERT_EQ(Bits(lab.a), Bits(expected.a)) << xyz.X << ' ' << xyz.Y << ' ' << xyz.Z;
        ASSERT_EQ(Bits(lab.b), Bits(expected.b)) << xyz.X << ' ' << xyz.Y << ' ' << xyz.Z;
    }
}

TEST(XYZToCIELab, SendsNegativeRatiosDownTheLinearBranch) {
    const LabColour lab = XYZToCIELab(XYZColour(-1, -2, -3), kUnit);
    EXPECT_EQ(lab.L, -2.0f * reference::kKappa);
    EXPECT_EQ(lab.a, (reference::LabF(-1) - reference::LabF(-2)) * 500.0f);
    EXPECT_EQ(lab.b, (reference::LabF(-2) - reference::LabF(-3)) * 200.0f);
    EXPECT_GT(lab.a, 0);
}

TEST(XYZToCIELab, LetsAZeroWhiteFollowTheFloatingPointRules) {
    const XYZColour noY(1.0f, 0.0f, 1.0f);
    EXPECT_TRUE(std::isnan(XYZToCIELab(XYZColour(0.5f, 0.5f, 0.5f), noY).L)) << "the cube root of infinity is infinity over infinity";
    EXPECT_TRUE(std::isnan(XYZToCIELab(XYZColour(0.5f, 0.0f, 0.5f), noY).L)) << "0/0";
    EXPECT_EQ(XYZToCIELab(XYZColour(0.5f, -0.5f, 0.5f), noY).L, -std::numeric_limits<float>::infinity()) << "linear branch";
    EXPECT_EQ(XYZToCIELab(XYZColour(0.5f, 0.5f, 0.5f), XYZColour(-1, -1, -1)).L, -0.5f * reference::kKappa) << "negative white";
}

TEST(CIELabToXYZ, ChangesBranchAtLightnessEightExactly) {
    const float under = std::nextafter(8.0f, 0.0f);
    EXPECT_EQ(CIELabToXYZ(LabColour(under, 0, 0), kUnit).Y, under / reference::kKappa);
    const float root = (8.0f + 16.0f) / 116.0f;
    EXPECT_EQ(CIELabToXYZ(LabColour(8, 0, 0), kUnit).Y, root * root * root);
    EXPECT_NE(8.0f / reference::kKappa, root * root * root) << "the branches can be told apart";
}

TEST(CIELabToXYZ, OfLightnessEightLiesAtEpsilon) {
    const auto distance = static_cast<int64_t>(Bits(CIELabToXYZ(LabColour(8, 0, 0), kUnit).Y)) - int64_t{0x3C111AA7};
    EXPECT_LE(std::abs(distance), 4);
}

// X and Z change branch on f, not on L.
TEST(CIELabToXYZ, ChangesBranchAtSixTwentyNinthsForXAndZ) {
    EXPECT_EQ(Bits(reference::kSixTwentyNinths), 0x3E53DCB1u);
    EXPECT_EQ(Bits(reference::kSlope), 0x40F92F68u);
    EXPECT_EQ(Bits(reference::kOffset), 0x3E0D3DCBu);
    int linear = 0, cubic = 0;
    const float fy = reference::LabF(reference::ToXYZ(LabColour(20, 0, 0), kUnit).Y);
    for (int i = 0; i < 10000; ++i) {
        const float a = -57.0f + static_cast<float>(i) / 1000.0f;
        const float f = fy + a / 500.0f;
        const float X = CIELabToXYZ(LabColour(20, a, 0), kUnit).X;
        if (f < reference::kSixTwentyNinths) {
            ASSERT_EQ(X, (f - reference::kOffset) / reference::kSlope) << a;
            ++linear;
        } else {
            ASSERT_EQ(X, f * f * f) << a;
            ++cubic;
        }
    }
    EXPECT_GT(linear, 100);
    EXPECT_GT(cubic, 100);
}

TEST(CIELabToXYZ, TakesSixTwentyNinthsItselfForTheCube) {
    const float threshold = reference::kSixTwentyNinths, under = std::nextafter(threshold, 0.0f);
    const auto linear = [](float f) { return (f - reference::kOffset) / reference::kSlope; };
    ASSERT_NE(linear(threshold), threshold * threshold * threshold) << "the branches can be told apart";
    ASSERT_NE(linear(under), under * under * under);
    int onThreshold = 0, underThreshold = 0;
    float a = 34.4826f;
    for (int i = 0; i < 100; ++i, a = std::nextafter(a, 100.0f)) {
        const float f = reference::kOffset + a / 500.0f;  // L of 0 leaves fy at the offset
        const float X = CIELabToXYZ(LabColour(0, a, 0), kUnit).X;
        if (f == threshold) {
            EXPECT_EQ(X, f * f * f);
            ++onThreshold;
        } else if (f == under) {
            EXPECT_EQ(X, linear(f));
            ++underThreshold;
        }
    }
    EXPECT_GT(onThreshold, 0);
    EXPECT_GT(underThreshold, 0);
}

// Deliberate: fy comes from the ratio, so it differs from (L + 16) / 116 in the last bits.
TEST(CIELabToXYZ, FormsFyAgainFromTheRatio) {
    int different = 0;
    for (int i = 800; i <= 10000; ++i) {
        const float L = static_cast<float>(i) / 100.0f;
        const XYZColour xyz = CIELabToXYZ(LabColour(L, 0, 0), kUnit);
        const float f = reference::CubeRoot(xyz.Y);
        ASSERT_EQ(xyz.X, f * f * f) << L;
        ASSERT_EQ(xyz.Z, f * f * f) << L;
        different += xyz.X != xyz.Y;
    }
    EXPECT_GT(different, 500);
}

TEST(CIELabToXYZ, EqualsTheStepwiseReference) {
    std::mt19937 engine(33);
    std::uniform_real_distribution<float> lightness(-5.0f, 110.0f), dark(-1.0f, 20.0f), chroma(-130.0f, 130.0f);
    for (int i = 0; i < 300000; ++i) {
        const LabColour lab(i % 3 ? lightness(engine) : dark(engine), chroma(engine), chroma(engine));
        const XYZColour xyz = CIELabToXYZ(lab, kD50), expected = reference::ToXYZ(lab, kD50);
        ASSERT_EQ(Bits(xyz.X), Bits(expected.X)) << lab.L << ' ' << lab.a << ' ' << lab.b;
        ASSERT_EQ(Bits(xyz.Y), Bits(expected.Y)) << lab.L << ' ' << lab.a << ' ' << lab.b;
        ASSERT_EQ(Bits(xyz.Z), Bits(expected.Z)) << lab.L << ' ' << lab.a << ' ' << lab.b;
    }
}

TEST(CIELabToXYZ, UndoesXYZToCIELab) {
    std::mt19937 engine(34);
    std::uniform_real_distribution<float> any(0.0f, 110.0f);
    for (int i = 0; i < 100000; ++i) {
        const XYZColour xyz(any(engine), any(engine), any(engine));
        const XYZColour back = CIELabToXYZ(XYZToCIELab(xyz, kD50), kD50);
        ASSERT_NEAR(back.X, xyz.X, 2e-4);
        ASSERT_NEAR(back.Y, xyz.Y, 2e-4);
        ASSERT_NEAR(back.Z, xyz.Z, 2e-4);
    }
}

TEST(XYZToYxy, DividesByTheSum) {
    struct Row {
        XYZColour xyz;
        float Y, x, y;
        const char* what;
    };
    const Row rows[] = {
        {{0, 0, 0}, 0, 0, 0, "black"},
        {{1, 1, 1}, 1, 1.0f / 3.0f, 1.0f / 3.0f, "equal energy"},
        {{1, 2, 5}, 2, 0.125f, 0.25f, "exact eighths"},
        {{1, 50, -51}, 0, 0, 0, "a sum of zero drops the luminance too"},
        {{-1, -1, -2}, -1, 0.25f, 0.25f, "negative values"},
        {{1e8f, 1, -1e8f}, 0, 0, 0, "added left to right: the 1 is lost first"},
    };
    for (const Row& row : rows) {
        const YxyColour yxy = XYZToYxy(row.xyz);
        EXPECT_EQ(yxy.Y, row.Y) << row.what;
        EXPECT_EQ(yxy.x, row.x) << row.what;
        EXPECT_EQ(yxy.y, row.y) << row.what;
    }
}

TEST(YxyToXYZ, RestoresXAndZ) {
    struct Row {
        YxyColour yxy;
        float X, Y, Z;
        const char* what;
    };
    const Row rows[] = {
        {{50, 0.3f, 0}, 0, 0, 0, "y of zero drops the luminance too"},
        {{50, 0.3f, -0.0f}, 0, 0, 0, "minus zero is zero"},
        {{2, 0.125f, 0.25f}, 1, 2, 5, "exact eighths"},
        {{0, 0.5f, 0.25f}, 0, 0, 0, "black"},
        {{100, 0.25f, 0.5f}, 50, 100, 50, "a quarter left for z"},
    };
    for (const Row& row : rows) ExpectSame(YxyToXYZ(row.yxy), row.X, row.Y, row.Z, row.what);
}

TEST(YxyToXYZ, FormsTheProductsBeforeTheDivision) {
    std::mt19937 engine(35);
    std::uniform_real_distribution<float> any(0.05f, 0.8f);
    int different = 0;
    for (int i = 0; i < 100000; ++i) {
        const YxyColour yxy(100.0f * any(engine), any(engine), any(engine));
        const XYZColour xyz = YxyToXYZ(yxy);
        using namespace reference;
        ASSERT_EQ(xyz.X, Quotient(Product(yxy.Y, yxy.x), yxy.y));
        ASSERT_EQ(xyz.Y, yxy.Y);
        ASSERT_EQ(xyz.Z, Quotient(Product(yxy.Y, Sum(Sum(1, -yxy.x), -yxy.y)), yxy.y));
        different += xyz.X != yxy.x / yxy.y * yxy.Y;
    }
    EXPECT_GT(different, 10000);
}

}  // namespace
