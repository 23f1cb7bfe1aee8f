#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "colour/ChromaticAdaptation.h"
#include "colour/MatrixArithmetic.h"
#include "colour/ReferenceRGB.h"
#include "tests/fixtures/FixedValues.h"
#include "tests/reference/MatrixReference.h"

namespace {

constexpr FixedXYZ kIlluminantA = {71991, 65536, 23319};
constexpr FixedXYZ kPaper = {57021, 59000, 44871};

TEST(ReferenceWhites, HoldTheirStoredValues) {
    EXPECT_EQ(PCSWhite, (FixedXYZ{0xF6D6, 0x10000, 0xD32D}));
    EXPECT_EQ(D65White, (FixedXYZ{0xF341, 0x10000, 0x116A7}));
    EXPECT_EQ(PCSWhite.X / 65536.0, 0.964202880859375);
    EXPECT_EQ(PCSWhite.Z / 65536.0, 0.8249053955078125);
    EXPECT_EQ(D65White.X / 65536.0, 0.9502105712890625);
    EXPECT_EQ(D65White.Z / 65536.0, 1.0884857177734375);
}

TEST(BradfordMatrix, HoldsThePublishedMatrixRounded) {
    const double published[9] = {0.8951, 0.2664, -0.1614, -0.7502, 1.7135, 0.0367, 0.0389, -0.0686, 1.0296};
    const FixedMatrix expected = {{58661, 17459, -10578, -49165, 112296, 2405, 2549, -4496, 67476}};
    EXPECT_EQ(bradfordMatrix, expected);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(expected.element[i], std::lround(published[i] * 65536)) << i;
}

struct AdaptationRow {
    FixedXYZ source, destination;
    FixedMatrix expected;
    const char* what;
};

// Found with whole-number fractions, apart from this system.
constexpr AdaptationRow kAdaptations[] = {
    {{62273, 65536, 71335}, {63190, 65536, 54061}, {{68681, 1508, -3288, 1946, 64904, -1119, -604, 988, 49288}}, "D65 to the connection space"},
    {{63190, 65536, 54061}, {62273, 65536, 71335}, {{62613, -1516, 4144, -1864, 66196, 1379, 806, -1343, 87164}}, "and back"},
    {kIlluminantA, {63190, 65536, 54061}, {{57538, -5998, 16816, -7323, 71593, 5583, 3289, -5496, 157233}}, "from tungsten light"},
};

TEST(BradfordTransform, GivesTheKnownMatrices) {
    for (const AdaptationRow& row : kAdaptations) {
        FixedMatrix result = {};
        BradfordTransform(&row.source, &row.destination, &result);
        EXPECT_EQ(result, row.expected) << row.what;
    }
}

TEST(BradfordTransform, OfAWhiteToItselfIsTheIdentityWithinTwoUnits) {
    FixedMatrix identity;
    ICC_MatrixIdentity(&identity);
    for (const FixedXYZ& white : {PCSWhite, D65White, kIlluminantA, kPaper}) {
        FixedMatrix result;
        BradfordTransform(&white, &white, &result);
        for (int i = 0; i < 9; ++i) EXPECT_NEAR(result.element[i], identity.element[i], 2) << i;
    }
}

TEST(BradfordTransform, CarriesTheSourceWhiteToTheDestinationWhite) {
    const FixedXYZ whites[] = {PCSWhite, D65White, kIlluminantA, kPaper};
    for (const FixedXYZ& source : whites) {
        for (const FixedXYZ& destination : whites) {
            FixedMatrix adaptation;
            FixedXYZ adapted;
            BradfordTransform(&source, &destination, &adaptation);
            ICC_FixedMatrixMultiply(&adaptation, &source, &adapted);
            EXPECT_NEAR(adapted.X, destination.X, 8);
            EXPECT_NEAR(adapted.Y, destination.Y, 8);
            EXPECT_NEAR(adapted.Z, destination.Z, 8);
        }
    }
}

TEST(BradfordTransform, EqualsTheExactIntegerSteps) {
    std::mt19937 engine(21);
    const auto between = [&engine](int32_t low, int32_t high) { return std::uniform_int_distribution<int32_t>(low, high)(engine); };
    for (int i = 0; i < 100000; ++i) {
        const FixedXYZ source = {between(40000, 80000), between(40000, 80000), between(15000, 100000)};
        const FixedXYZ destination = {between(40000, 80000), between(40000, 80000), between(15000, 100000)};
        FixedMatrix result;
        BradfordTransform(&source, &destination, &result);
        ASSERT_EQ(result, reference::Adaptation(bradfordMatrix, source, destination));
    }
}

// Cone responses of both signs: half the divisor and the quotient are both cut toward zero.
TEST(BradfordTransform, TruncatesTowardZeroForNegativeResponses) {
    std::mt19937 engine(22);
    std::uniform_int_distribution<int32_t> any(-200000, 200000);
    int negative = 0;
    for (int i = 0; i < 100000; ++i) {
        const FixedXYZ source = {any(engine), any(engine), any(engine)};
        const FixedXYZ destination = {any(engine), any(engine), any(engine)};
        const FixedXYZ cones = reference::Multiply(bradfordMatrix, source);
        if (cones.X == 0 || cones.Y == 0 || cones.Z == 0) continue;
        negative += cones.X < 0;
        FixedMatrix result;
        BradfordTransform(&source, &destination, &result);
        ASSERT_EQ(result, reference::Adaptation(bradfordMatrix, source, destination));
    }
    EXPECT_GT(negative, 10000);
}

// Not a physical white, but a host that passes one must outlive it.
TEST(BradfordTransform, OutlivesABlackSource) {
    const FixedXYZ black = {0, 0, 0};
    FixedMatrix result;
    BradfordTransform(&black, &PCSWhite, &result);
    EXPECT_EQ(result, FixedMatrix{});
}

TEST(ReferenceRGBMatrix, AddsUpToAWhiteLikeD65) {
    FixedXYZ sum;
    const FixedXYZ full = {65536, 65536, 65536};
    ICC_FixedMatrixMultiply(&calRGBToXYZ, &full, &sum);
    EXPECT_NEAR(sum.X, D65White.X, 40);
    EXPECT_NEAR(sum.Y, D65White.Y, 40);
    EXPECT_NEAR(sum.Z, D65White.Z, 40);
}

}  // namespace
