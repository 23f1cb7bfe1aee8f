#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <random>
#include <utility>

#include "colour/ColourDifferences.h"
#include "tests/reference/ColourDifferenceReference.h"

namespace {

const reference::Differences kExact(reference::Precision::Exact);
const reference::Differences kMixed(reference::Precision::Mixed);

std::array<float, 4> AllFour(const LabColour& first, const LabColour& second) {
    return {deltaE(first, second), CIE94deltaE(first, second), CMCdeltaE(first, second, 2, 1), CIE2000deltaE(first, second)};
}

std::array<long double, 4> AllFour(const reference::Differences& differences, const LabColour& p, const LabColour& q) {
    return {differences.E76(p, q), differences.E94(p, q), differences.Cmc(p, q, 2, 1), differences.E2000(p, q)};
}

constexpr const char* kNames[4] = {"deltaE", "CIE94deltaE", "CMCdeltaE", "CIE2000deltaE"};

/// How many pairs are tried. The slow version takes its time under an emulator, where long double is a matter of software.
int PairCount() {
    return std::getenv("CM_DEEP") ? 300000 : 100000;  // set by ./test --deep
}

/// Seeded pairs: anywhere, close together, and nearly neutral.
class Pairs {
public:
    explicit Pairs(unsigned seed) : engine_(seed) {}

    void Next(LabColour* first, LabColour* second) {
        switch (count_++ % 3) {
            case 0:
                *first = {Within(50) + 50, Within(100), Within(100)};
                *second = {Within(50) + 50, Within(100), Within(100)};
                break;
            case 1:
                *first = {Within(50) + 50, Within(100), Within(100)};
                *second = {first->L + Within(2), first->a + Within(3), first->b + Within(3)};
                break;
            default:
                *first = {Within(50) + 50, Within(2), Within(2)};
                *second = {Within(50) + 50, Within(2), Within(2)};
        }
    }

private:
    float Within(float limit) { return std::uniform_real_distribution<float>(-limit, limit)(engine_); }

    std::mt19937 engine_;
    unsigned count_ = 0;
};

TEST(ColourDifferences, OfEqualColoursAreZero) {
    const LabColour colours[] = {{0, 0, 0},      {100, 0, 0},       {50, 20, -30},           {15.9f, -40, 0.1f},
                                 {16, 0.01f, 5}, {50, 0.001f, -80}, {33.3f, 77.7f, -11.11f}, {73.1f, 1e-7f, 1e-7f}};
    for (const LabColour& colour : colours) {
        const auto results = AllFour(colour, colour);
        for (size_t i = 0; i < 4; ++i) EXPECT_EQ(results[i], 0.0f) << kNames[i] << " of " << colour.L << ' ' << colour.a << ' ' << colour.b;
    }
}

TEST(ColourDifferences, AgreeWithTheirDefinitions) {
    Pairs pairs(41);
    LabColour p, q;
    const int count = PairCount();
    for (int i = 0; i < count; ++i) {
        pairs.Next(&p, &q);
        const auto results = AllFour(p, q);
        const auto expected = AllFour(kExact, p, q);
        for (size_t k = 0; k < 4; ++k)
            ASSERT_NEAR(results[k], static_cast<double>(expected[k]), 1e-4 + 1e-5 * static_cast<double>(expected[k]))
                << kNames[k] << ": " << p.L << ' ' << p.a << ' ' << p.b << ", " << q.L << ' ' << q.a << ' ' << q.b;
    }
}

// Equal to the last bit, apart from one pair in ten thousand where a double step rounds to the other side.
TEST(ColourDifferences, RoundToSinglePrecisionWhereTheyShould) {
    Pairs pairs(42);
    LabColour p, q;
    const int count = PairCount();
    int different[4] = {};
    for (int i = 0; i < count; ++i) {
        pairs.Next(&p, &q);
        const auto results = AllFour(p, q);
        const auto expected = AllFour(kMixed, p, q);
        for (size_t k = 0; k < 4; ++k) {
            const auto a = std::bit_cast<int32_t>(results[k]), b = std::bit_cast<int32_t>(static_cast<float>(expected[k]));
            different[k] += a != b;
            ASSERT_LE(std::abs(a - b), 1) << kNames[k] << ": " << p.L << ' ' << p.a << ' ' << p.b << ", " << q.L << ' ' << q.a << ' ' << q.b;
        }
    }
    EXPECT_EQ(different[0], 0);
    for (size_t k = 1; k < 4; ++k) EXPECT_LT(different[k], count / 10000) << kNames[k];
}

struct StepRow {
    LabColour first, second;
    float expected;
    const char* what;
};

void ExpectRows(const StepRow* begin, const StepRow* end, float (*difference)(const LabColour&, const LabColour&)) {
    for (const StepRow* row = begin; row != end; ++row) EXPECT_EQ(difference(row->first, row->second), row->expected) << row->what;
}

TEST(DeltaE, IsTheDistance) {
    EXPECT_EQ(deltaE({50, 0, 0}, {50, 3, 4}), 5.0f);
    EXPECT_EQ(deltaE({50, 3, 4}, {50, 0, 0}), 5.0f);
    EXPECT_EQ(deltaE({40, -2, 5}, {42, 1, -1}), 7.0f);
    EXPECT_EQ(deltaE({100, 0, 0}, {0, 0, 0}), 100.0f);
}

TEST(CIE94DeltaE, HalvesTheLightness) {
    EXPECT_EQ(CIE94deltaE({50, 0, 0}, {60, 0, 0}), 5.0f);
    EXPECT_EQ(CIE94deltaE({60, 0, 0}, {50, 0, 0}), 5.0f);
}

TEST(CIE94DeltaE, WeighsChromaAndHueByTheStandardAlone) {
    // Chroma 10 against 20, same hue, and a quarter turn at equal chroma.
    EXPECT_NEAR(CIE94deltaE({50, 10, 0}, {50, 20, 0}), 10 / (1 + 0.048 * 20), 1e-6);
    EXPECT_NEAR(CIE94deltaE({50, 20, 0}, {50, 10, 0}), 10 / (1 + 0.048 * 10), 1e-6);
    EXPECT_NEAR(CIE94deltaE({50, 20, 0}, {50, 0, 20}), std::sqrt(800.0) / (1 + 0.014 * 20), 1e-5);
    EXPECT_NE(CIE94deltaE({50, 10, 0}, {50, 20, 0}), CIE94deltaE({50, 20, 0}, {50, 10, 0})) << "the second colour is the standard";
}

// The last bits of each row change when the step that it names is formed in the other precision. Found by a separate program.
const StepRow kCIE94Steps[] = {
    {{52.89f, -66.55f, -55.44f}, {52.559998f, -68.22f, -55.71f}, 0x1.00d050p-1f, "chromas in single"},
    {{2.05f, -68.89f, -0.49f}, {1.79f, -70.35f, 1.93f}, 0x1.43c018p+0f, "differences in single"},
    {{74.72f, -51.5f, -50.49f}, {75.04f, -54.34f, -53.300003f}, 0x1.bf2632p-1f, "the a difference squared in double"},
    {{97.71f, -60.01f, -11.06f}, {100.29f, -57.78f, -12.02f}, 0x1.94daecp+0f, "the b difference squared in single"},
    {{44.79f, 79.45f, -86.21f}, {47.260002f, 78.39f, -84.14f}, 0x1.4de8f0p+0f, "the chroma difference squared in single"},
    {{13.33f, 54.04f, -19.78f}, {13.04f, 53.22f, -22.17f}, 0x1.679d6ap+0f, "their sum in double"},
    {{69.57f, -82.43f, 55.45f}, {70.79f, -82.66f, 58.06f}, 0x1.12fd90p+0f, "the root in double, narrowed afterwards"},
    {{67.52f, -19.5f, -23.48f}, {66.56f, -21.5f, -22.8f}, 0x1.792206p+0f, "the hue difference narrowed"},
    {{2.3f, 27.69f, -65.56f}, {0.59999996f, 28.95f, -67.259995f}, 0x1.fd442ap-1f, "the lightness difference in single"},
    {{8.62f, 29.52f, 60.41f}, {7.94f, 28.800001f, 60.46f}, 0x1.f4e734p-2f, "single weights"},
    {{67.6f, -58.38f, -51.44f}, {69.63f, -56.0f, -52.989998f}, 0x1.ac7cd0p+0f, "weights applied in single"},
    {{23.25f, 87.28f, -21.21f}, {23.02f, 84.82f, -23.46f}, 0x1.4e17dep+0f, "the sum in single"},
};

TEST(CIE94DeltaE, KeepsThePrecisionOfEachStep) {
    ExpectRows(std::begin(kCIE94Steps), std::end(kCIE94Steps), CIE94deltaE);
}

double CMCLightnessWeight(double L) {
    return 0.040975 * L / (1 + 0.01765 * L);
}

TEST(CMCDeltaE, UsesAConstantLightnessWeightUnderSixteen) {
    EXPECT_NEAR(CMCdeltaE({10, 0, 0}, {15.9f, 0, 0}, 1, 1), 5.9 / 0.511, 1e-5);
    EXPECT_NEAR(CMCdeltaE({10, 0, 0}, {16, 0, 0}, 1, 1), 6 / CMCLightnessWeight(16), 1e-5);
    EXPECT_NEAR(CMCdeltaE({16, 0, 0}, {10, 0, 0}, 1, 1), 6 / 0.511, 1e-5) << "the second colour's lightness decides";
    EXPECT_GT(std::fabs(6 / 0.511 - 6 / CMCLightnessWeight(16)), 1e-3) << "the two weights can be told apart";
}

TEST(CMCDeltaE, DividesByTheCallersFactors) {
    EXPECT_NEAR(CMCdeltaE({50, 0, 0}, {60, 0, 0}, 2, 1), 5 / CMCLightnessWeight(60), 1e-5);
    EXPECT_NEAR(CMCdeltaE({50, 0, 0}, {60, 0, 0}, 1, 2), 10 / CMCLightnessWeight(60), 1e-5);
    const double SC = 0.0638 * 20 / (1 + 0.0131 * 20) + 0.638;
    EXPECT_NEAR(CMCdeltaE({50, 10, 0}, {50, 20, 0}, 2, 1), 10 / SC, 1e-5);
    EXPECT_NEAR(CMCdeltaE({50, 10, 0}, {50, 20, 0}, 1, 4), 2.5 / SC, 1e-5);
}

/// The hue weight that a pair of equal lightness and chroma shows, as T.
double ShownT(const LabColour& first, const LabColour& second) {
    const double C = std::hypot(double{second.a}, double{second.b});
    const double dH = std::hypot(double{first.a} - second.a, double{first.b} - second.b);
    const double SC = 0.0638 * C / (1 + 0.0131 * C) + 0.638, F = std::sqrt(std::pow(C, 4) / (std::pow(C, 4) + 1900));
    const double SH = dH / CMCdeltaE(first, second, 1, 1);
    return (SH / SC - 1 + F) / F;
}

constexpr double kPi = 3.14159265358979323846;

// Deliberate: a standard whose a is under 0.01 counts as hue 0, whatever its b.
TEST(CMCDeltaE, GivesHueZeroToEveryStandardWithoutRed) {
    const double hueZero = 0.36 + std::fabs(0.4 * std::cos(35 * kPi / 180));
    for (float a : {-20.0f, -80.0f, 0.0f, 0.0099f})
        for (float b : {-90.0f, -50.0f, -20.0f, 40.0f}) EXPECT_NEAR(ShownT({50, a, -b}, {50, a, b}), hueZero, 1e-4) << a << ' ' << b;
    EXPECT_NEAR(ShownT({50, 20, 0}, {50, -20, 0}), hueZero, 1e-4) << "opposite on the axis";
}

// 0.01 in single precision lies under 0.01: only the next number up has a hue of its own.
TEST(CMCDeltaE, ComparesTheStandardsRedInDouble) {
    const double hueZero = 0.36 + std::fabs(0.4 * std::cos(35 * kPi / 180));
    const double quarterTurn = 0.36 + std::fabs(0.4 * std::cos(125 * kPi / 180));
    EXPECT_NEAR(ShownT({50, 0, -40}, {50, 0.01f, 40}), hueZero, 1e-3);
    EXPECT_NEAR(ShownT({50, 0, -40}, {50, std::nextafter(0.01f, 1.0f), 40}), quarterTurn, 1e-3);
}

TEST(CMCDeltaE, ChangesTheHueWeightAt345Degrees) {
    struct Row {
        double degrees, T;
        const char* what;
    };
    const auto cosine = [](double degrees) { return std::cos(degrees * kPi / 180); };
    const Row rows[] = {
        {10, 0.36 + std::fabs(0.4 * cosine(45)), "red"},
        {80, 0.36 + std::fabs(0.4 * cosine(115)), "towards yellow: the cosine is negative"},
        {275, 0.56 + std::fabs(0.2 * cosine(443)), "blue"},
        {344.9, 0.56 + std::fabs(0.2 * cosine(512.9)), "just under 345"},
        {345.1, 0.36 + std::fabs(0.4 * cosine(380.1)), "just over 345"},
    };
    for (const Row& row : rows) {
        const double h = row.degrees * kPi / 180, other = h + 0.3;
        const LabColour second(50, static_cast<float>(60 * std::cos(h)), static_cast<float>(60 * std::sin(h)));
        const LabColour first(50, static_cast<float>(60 * std::cos(other)), static_cast<float>(60 * std::sin(other)));
        EXPECT_NEAR(ShownT(first, second), row.T, 1e-4) << row.what;
    }
}

TEST(CMCDeltaE, IsNotSymmetric) {
    EXPECT_NE(CMCdeltaE({50, 30, 20}, {55, 10, 25}, 2, 1), CMCdeltaE({55, 10, 25}, {50, 30, 20}, 2, 1));
}

const StepRow kCMCSteps[] = {
    {{10.87f, 11.88f, 69.51f}, {8.44f, 14.51f, 69.560005f}, 0x1.744d34p+1f, "both chromas in single"},
    {{42.13f, 74.05f, 64.34f}, {43.98f, 74.26f, 66.909996f}, 0x1.944944p+0f, "the sample's chroma in single too"},
    {{89.69f, 31.17f, 75.36f}, {86.97f, 30.83f, 75.3f}, 0x1.fb6286p-1f, "the hue in single"},
    {{8.37f, 25.57f, 0.4f}, {10.42f, 23.93f, -0.9f}, 0x1.37f7c4p+1f, "differences in single"},
    {{56.36f, 66.86f, -65.54f}, {54.850002f, 69.13f, -65.49f}, 0x1.15fb18p+0f, "the squares summed in single"},
    {{26.33f, 20.08f, -21.33f}, {28.0f, 20.45f, -19.2f}, 0x1.d846a4p+0f, "the chroma difference squared in double"},
    {{80.95f, 61.88f, -34.34f}, {79.659996f, 59.49f, -35.85f}, 0x1.5d1cd2p+0f, "the hue difference in double"},
    {{4.04f, 53.66f, -78.15f}, {1.66f, 54.05f, -80.25f}, 0x1.3789d0p+1f, "the lightness difference in single"},
    {{52.21f, 44.75f, -33.05f}, {49.329998f, 45.94f, -32.739998f}, 0x1.7433acp+0f, "weights in double"},
    {{34.16f, 61.09f, -75.8f}, {36.62f, 58.31f, -76.64f}, 0x1.ddbdc6p+0f, "the sum in double"},
};

TEST(CMCDeltaE, KeepsThePrecisionOfEachStep) {
    ExpectRows(std::begin(kCMCSteps), std::end(kCMCSteps), [](const LabColour& p, const LabColour& q) { return CMCdeltaE(p, q, 2, 1); });
}

struct PublishedRow {
    LabColour first, second;
    double expected;
};

// The test pairs published with the formula's implementation notes, to four decimals.
const PublishedRow kPublished[] = {
    {{50.0f, 2.6772f, -79.7751f}, {50.0f, 0.0f, -82.7485f}, 2.0425},
    {{50.0f, 3.1571f, -77.2803f}, {50.0f, 0.0f, -82.7485f}, 2.8615},
    {{50.0f, 2.8361f, -74.02f}, {50.0f, 0.0f, -82.7485f}, 3.4412},
    {{50.0f, -1.3802f, -84.2814f}, {50.0f, 0.0f, -82.7485f}, 1.0000},
    {{50.0f, -1.1848f, -84.8006f}, {50.0f, 0.0f, -82.7485f}, 1.0000},
    {{50.0f, -0.9009f, -85.5211f}, {50.0f, 0.0f, -82.7485f}, 1.0000},
    {{50.0f, 0.0f, 0.0f}, {50.0f, -1.0f, 2.0f}, 2.3669},
    {{50.0f, -1.0f, 2.0f}, {50.0f, 0.0f, 0.0f}, 2.3669},
    {{50.0f, 2.49f, -0.001f}, {50.0f, -2.49f, 0.0009f}, 7.1792},
    {{50.0f, 2.49f, -0.001f}, {50.0f, -2.49f, 0.001f}, 7.1792},
    {{50.0f, 2.49f, -0.001f}, {50.0f, -2.49f, 0.0011f}, 7.2195},
    {{50.0f, 2.49f, -0.001f}, {50.0f, -2.49f, 0.0012f}, 7.2195},
    {{50.0f, -0.001f, 2.49f}, {50.0f, 0.0009f, -2.49f}, 4.8045},
    {{50.0f, -0.001f, 2.49f}, {50.0f, 0.001f, -2.49f}, 4.8045},
    {{50.0f, -0.001f, 2.49f}, {50.0f, 0.0011f, -2.49f}, 4.7461},
    {{50.0f, 2.5f, 0.0f}, {50.0f, 0.0f, -2.5f}, 4.3065},
    {{50.0f, 2.5f, 0.0f}, {73.0f, 25.0f, -18.0f}, 27.1492},
    {{50.0f, 2.5f, 0.0f}, {61.0f, -5.0f, 29.0f}, 22.8977},
    {{50.0f, 2.5f, 0.0f}, {56.0f, -27.0f, -3.0f}, 31.9030},
    {{50.0f, 2.5f, 0.0f}, {58.0f, 24.0f, 15.0f}, 19.4535},
    {{50.0f, 2.5f, 0.0f}, {50.0f, 3.1736f, 0.5854f}, 1.0000},
    {{50.0f, 2.5f, 0.0f}, {50.0f, 3.2972f, 0.0f}, 1.0000},
    {{50.0f, 2.5f, 0.0f}, {50.0f, 1.8634f, 0.5757f}, 1.0000},
    {{50.0f, 2.5f, 0.0f}, {50.0f, 3.2592f, 0.335f}, 1.0000},
    {{60.2574f, -34.0099f, 36.2677f}, {60.4626f, -34.1751f, 39.4387f}, 1.2644},
    {{63.0109f, -31.0961f, -5.8663f}, {62.8187f, -29.7946f, -4.0864f}, 1.2630},
    {{61.2901f, 3.7196f, -5.3901f}, {61.4292f, 2.248f, -4.962f}, 1.8731},
    {{35.0831f, -44.1164f, 3.7933f}, {35.0232f, -40.0716f, 1.5901f}, 1.8645},
    {{22.7233f, 20.0904f, -46.694f}, {23.0331f, 14.973f, -42.5619f}, 2.0373},
    {{36.4612f, 47.858f, 18.3852f}, {36.2715f, 50.5065f, 21.2231f}, 1.4146},
    {{90.8027f, -2.0831f, 1.441f}, {91.1528f, -1.6435f, 0.0447f}, 1.4441},
    {{90.9257f, -0.5406f, -0.9208f}, {88.6381f, -0.8985f, -0.7239f}, 1.5381},
    {{6.7747f, -0.2908f, -2.4247f}, {5.8714f, -0.0985f, -2.2286f}, 0.6377},
    {{2.0776f, 0.0795f, -1.135f}, {0.9033f, -0.0636f, -0.5514f}, 0.9082},
};

TEST(CIE2000DeltaE, GivesThePublishedValues) {
    for (const PublishedRow& row : kPublished) {
        // Exactly opposite hues lie on the seam between the two values of the neighbouring rows; rounding chooses the side.
        const bool seam = row.first.a == -row.second.a && row.first.b == -row.second.b;
        const double result = CIE2000deltaE(row.first, row.second);
        const double expected = seam && result > 7.2 ? 7.2195 : row.expected;
        EXPECT_NEAR(result, expected, 5.1e-5) << row.first.L << ' ' << row.first.a << ' ' << row.first.b;
    }
}

TEST(CIE2000DeltaE, OfGreysIsTheWeightedLightness) {
    for (int i = 0; i <= 14; ++i) {
        for (int j = 0; j <= 11; ++j) {
            const float L1 = 7.0f * static_cast<float>(i), L2 = 9.0f * static_cast<float>(j);
            const double mean = (static_cast<double>(L1) + L2) / 2 - 50;
            const double SL = 1 + 0.015 * mean * mean / std::sqrt(20 + mean * mean);
            EXPECT_NEAR(CIE2000deltaE({L1, 0, 0}, {L2, 0, 0}), std::fabs(L2 - L1) / SL, 1e-5) << L1 << ' ' << L2;
        }
    }
}

TEST(CIE2000DeltaE, IsSymmetricUpToRounding) {
    Pairs pairs(43);
    LabColour p, q;
    for (int i = 0; i < 100000; ++i) {
        pairs.Next(&p, &q);
        const float forth = CIE2000deltaE(p, q), back = CIE2000deltaE(q, p);
        ASSERT_NEAR(forth, back, 1e-6f + 1e-6f * forth);
    }
}

// The hue of a neutral colour is 0, but no hue term may come of it.
TEST(CIE2000DeltaE, LeavesOnlyTheChromaAgainstANeutral) {
    const LabColour neutral(50, 0, 0);
    for (double degrees : {20.0, 100.0, 190.0, 275.0, 350.0}) {
        const double h = degrees * kPi / 180;
        const LabColour coloured(50, static_cast<float>(40 * std::cos(h)), static_cast<float>(40 * std::sin(h)));
        const double g = 1 + (1 - std::sqrt(std::pow(20.0, 7) / (std::pow(20.0, 7) + std::pow(25.0, 7)))) / 2;
        const double C = std::hypot(g * coloured.a, double{coloured.b});
        EXPECT_NEAR(CIE2000deltaE(neutral, coloured), C / (1 + 0.045 * C / 2), 1e-4) << degrees;
        EXPECT_NEAR(CIE2000deltaE(coloured, neutral), C / (1 + 0.045 * C / 2), 1e-4) << degrees;
    }
}

// Hues of 0 and 180 degrees: their mean is 90 both ways, never 270.
TEST(CIE2000DeltaE, TakesTheNearerMeanOfHuesExactlyOpposite) {
    const LabColour red(50, 10, 0), green(50, -30, 0);
    for (const auto& [first, second] : {std::pair(red, green), std::pair(green, red)}) {
        const double expected = static_cast<double>(kExact.E2000(first, second));
        EXPECT_NEAR(CIE2000deltaE(first, second), expected, 1e-5);
        const double C1 = 10, C2 = 30, M = std::pow(20.0, 7), g = 1 + (1 - std::sqrt(M / (M + std::pow(25.0, 7)))) / 2;
        const double mean = (C1 + C2) * g / 2;
        // At a mean hue of 90 degrees; at 270 the weight is another.
        const auto weight = [](double hue) {
            const double r = kPi / 180;
            return 1 - 0.17 * std::cos((hue - 30) * r) + 0.24 * std::cos(2 * hue * r) + 0.32 * std::cos((3 * hue + 6) * r) -
                   0.2 * std::cos((4 * hue - 63) * r);
        };
        const double dH = 2 * std::sqrt(C1 * C2) * g, dC = (C2 - C1) * g / (1 + 0.045 * mean);
        const double at90 = std::hypot(dC, dH / (1 + 0.015 * mean * weight(90)));
        const double at270 = std::hypot(dC, dH / (1 + 0.015 * mean * weight(270)));
        EXPECT_NEAR(CIE2000deltaE(first, second), at90, 0.01) << "the rotation term is next to nothing here";
        EXPECT_GT(std::fabs(at270 - at90), 0.5);
    }
}

// A colour has a hue from a chroma of 1e-6 up, and the pair a hue difference from a product of chromas over 1e-6.
TEST(CIE2000DeltaE, GivesEvenTinyChromasAHue) {
    for (float chroma : {1e-8f, 3e-7f, 9e-7f, 1.1e-6f, 1e-5f, 5e-4f, 2e-3f, 0.05f}) {
        for (float partner : {1e-3f, 0.5f, 120.0f}) {
            const LabColour tiny(50, -chroma * 0.6f, chroma * 0.8f), other(50, partner * 0.8f, partner * 0.6f);
            const auto expected = static_cast<double>(kExact.E2000(tiny, other));
            EXPECT_NEAR(CIE2000deltaE(tiny, other), expected, 2e-6 * expected + 1e-8) << chroma << " and " << partner;
        }
    }
}

const StepRow kCIE2000Steps[] = {
    {{56.88f, 11.88f, -14.852f}, {55.77f, 10.47f, -13.542f}, 0x1.95ba3cp+0f, "the first chromas in single"},
    {{72.53f, 11.29f, -9.34f}, {72.02f, 12.31f, -8.57f}, 0x1.2c00d2p+0f, "their sum in single"},
    {{16.73f, 11.228f, 17.282001f}, {16.85f, 12.268f, 17.212002f}, 0x1.e31bd6p-1f, "the power in double"},
    {{65.71f, 21.7f, -80.82f}, {65.24f, 22.150002f, -81.35f}, 0x1.9ea9cep-2f, "the stretch in double"},
    {{14.97f, -81.94f, -41.13f}, {15.37f, -83.450005f, -43.920002f}, 0x1.c8166ep-1f, "stretched chromas in double"},
    {{34.54f, 79.94f, 18.04f}, {36.170002f, 81.22f, 19.25f}, 0x1.6fa408p+0f, "hues in double"},
    {{86.38f, 19.53f, -66.65f}, {88.649994f, 16.91f, -67.0f}, 0x1.28f166p+1f, "the lightness sum in single"},
    {{9.69f, -16.06f, -27.72f}, {11.4f, -17.64f, -26.039999f}, 0x1.b1262ap+0f, "the mean lightness in double"},
    {{1.34f, -23.54f, 57.03f}, {0.11000004f, -21.34f, 55.84f}, 0x1.3c8456p+0f, "the lightness difference in single"},
    {{74.41f, -85.21f, 79.72f}, {76.4f, -85.76f, 78.23f}, 0x1.83a232p+0f, "the sum in double"},
};

TEST(CIE2000DeltaE, KeepsThePrecisionOfEachStep) {
    ExpectRows(std::begin(kCIE2000Steps), std::end(kCIE2000Steps), CIE2000deltaE);
}

}  // namespace
