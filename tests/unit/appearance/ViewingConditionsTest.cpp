#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "appearance/ViewingConditions.h"
#include "engine/DirectMonitor.h"
#include "engine/OneDTables.h"
#include "platform/FourCharCode.h"
#include "platform/InstructionSet.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/reference/Curves.h"
#include "tests/reference/OneDReference.h"
#include "tests/reference/ShaperModel.h"
#include "tests/reference/ViewingReference.h"

namespace {

using reference::Colour16;
using reference::Viewing;

constexpr uint32_t kPlainIntent = FourChar("Rdr3");
constexpr FixedXYZ kPCSWhite = {63190, 65536, 54061};
constexpr FixedXYZ kPaper = {57000, 59000, 47000};
constexpr FixedXYZ kFixedWhite = {62000, 65536, 60000};

std::vector<int32_t> Values(const FixedMatrix& matrix) {
    return {std::begin(matrix.element), std::end(matrix.element)};
}
std::vector<uint16_t> Curve(const ICC_ShaperMatrix& shaper, int channel) {
    return {shaper.curves[channel], shaper.curves[channel] + shaper.counts[channel]};
}
ViewingConditions Conditions(const Viewing& viewing) {
    return {static_cast<double>(viewing.flare), static_cast<double>(viewing.contrast), static_cast<double>(viewing.aOffset),
            static_cast<double>(viewing.bOffset), viewing.usePrinter};
}

OwnedRecord FromProfiles(const std::string& monitor, const FixedXYZ* monitorWhite = nullptr, const FixedXYZ* printerWhite = nullptr) {
    Loaded loaded = Load({.monitor = monitor, .printer = kCMYKPrinter, .monitorWhite = monitorWhite, .printerWhite = printerWhite});
    EXPECT_EQ(loaded.status, 0) << monitor;
    return std::move(loaded.data);
}

/// A record with the given base curves, a display like sRGB and the reference space of the same primaries.
OwnedRecord MadeUp(const std::array<std::vector<uint16_t>, 3>& curves, const FixedXYZ& paper = kPaper) {
    constexpr FixedMatrix kDisplay = {{14289, 12621, 4688, 7291, 23490, 1986, 456, 3181, 23400}};
    const FixedMatrix inverse = reference::RefinedInverse(kDisplay);
    const reference::Model model{curves, reference::Multiply(inverse, kDisplay), {}};
    OwnedRecord data(static_cast<MatchingData*>(std::calloc(1, sizeof(MatchingData))));
    data->referenceCount = 1;
    data->monitorShaper = reference::CreateShaper(model);
    data->baseShaper = reference::CreateShaper(model);
    data->printerWhite = paper;
    data->referenceIlluminant = kPCSWhite;
    data->monitorLuminance = 80 * 65536;
    data->referenceInverse = inverse;
    data->monitorMatrix = kDisplay;
    return data;
}

struct NamedRecord {
    std::string name;
    OwnedRecord data;
};

std::vector<NamedRecord> ManyRecords() {
    const std::vector<uint16_t> gamma = reference::GammaCurve(256, 2.2);
    std::vector<NamedRecord> records;
    records.push_back({"formula curves", FromProfiles(kSRGBMonitor)});
    records.push_back({"one gamma", FromProfiles(kGammaMonitor)});
    records.push_back({"80 cd/m2", FromProfiles(kLuminousMonitor)});
    records.push_back({"fixed monitor white", FromProfiles(kSRGBMonitor, &kFixedWhite)});
    records.push_back({"fixed printer white", FromProfiles(kGammaMonitor, nullptr, &kPaper)});
    records.push_back({"made up", MadeUp({gamma, gamma, gamma})});
    records.push_back({"a curve each", MadeUp({reference::GammaCurve(64, 1.8), reference::GammaCurve(64, 2.2), reference::GammaCurve(64, 2.6)})});
    records.push_back({"two entries", MadeUp({{{0, 65535}, {0, 65535}, {0, 65535}}})});
    records.push_back({"full paper", MadeUp({gamma, gamma, gamma}, kPCSWhite)});
    return records;
}

struct NamedViewing {
    const char* name;
    Viewing viewing;
};
const NamedViewing kViewings[] = {
    {"defaults", {}},
    {"nothing", {.flare = 0}},
    {"flare", {.flare = 0.125L}},
    {"strong flare, capped by the darkest component", {.flare = 5}},
    {"strong lift", {.flare = -0.5L}},
    {"contrast 2", {.contrast = 2}},
    {"contrast 0.5", {.flare = 0, .contrast = 0.5L}},
    {"offsets", {.aOffset = 12, .bOffset = -25}},
    {"other offsets", {.flare = 0.0625L, .contrast = 1.25L, .aOffset = -40, .bOffset = 55}},
    {"printer white", {.usePrinter = true}},
    {"printer white wins over offsets", {.contrast = 2, .aOffset = 30, .bOffset = 30, .usePrinter = true}},
};

/// The working curves against every colour that the reference allows for each entry.
void ExpectBentCurves(const MatchingData& data, const Viewing& viewing) {
    const ICC_ShaperMatrix& base = data.baseShaper;
    const ICC_ShaperMatrix& working = data.monitorShaper;
    for (uint32_t i = 0; i < base.counts[0]; ++i) {
        const Colour16 linear = {base.curves[0][i], base.curves[1][i], base.curves[2][i]};
        const Colour16 bent = {working.curves[0][i], working.curves[1][i], working.curves[2][i]};
        const std::vector<Colour16> allowed = reference::BentEntries(working.matrix, linear, viewing);
        ASSERT_NE(std::find(allowed.begin(), allowed.end(), bent), allowed.end())
            << "entry " << i << ": " << testing::PrintToString(bent) << ", not " << testing::PrintToString(allowed.front());
    }
}

void ExpectReverseOfCurves(const ICC_ShaperMatrix& shaper) {
    for (int c = 0; c < 3; ++c) {
        const std::vector<uint16_t> curve = Curve(shaper, c);
        ASSERT_NE(shaper.reverse[c], nullptr);
        EXPECT_EQ(shaper.reverse[c]->entryCount, curve.size());
        for (uint32_t y = 0; y <= 65535; y += 257) {
            uint8_t flag = 0;
            const uint16_t value = ICC_ReverseOneDLookup(static_cast<uint16_t>(y), shaper.reverse[c], &flag);
            ASSERT_EQ((reference::Found{value, flag}), reference::ReverseOneDLookup(static_cast<uint16_t>(y), curve)) << "channel " << c << ", " << y;
        }
    }
}

TEST(ViewingConditions, MatricesCurvesAndReverseTablesAreTheReferences) {
    for (const NamedViewing& row : kViewings) {
        for (const NamedRecord& record : ManyRecords()) {
            SCOPED_TRACE(record.name + ", " + row.name);
            const ViewingConditions conditions = Conditions(row.viewing);
            DirectICCSetViewingConditions(record.data.get(), FourChar("Rdr0"), &conditions);
            const ICC_ShaperMatrix& working = record.data->monitorShaper;
            EXPECT_EQ(Values(working.matrix), Values(reference::AdaptedMatrix(*record.data, row.viewing)));
            EXPECT_EQ(Values(working.inverseMatrix), Values(reference::RefinedInverse(working.matrix)));
            ExpectBentCurves(*record.data, row.viewing);
            ExpectReverseOfCurves(working);
        }
    }
}

TEST(ViewingConditions, ThePlainIntentTakesTheMonitorAsLoadedOnItsLuminance) {
    for (const NamedViewing& row : kViewings) {
        for (const NamedRecord& record : ManyRecords()) {
            SCOPED_TRACE(record.name + ", " + row.name);
            const ViewingConditions conditions = Conditions(row.viewing);
            // Bent first, so that leaving the curves alone would not be enough.
            const ViewingConditions other = {0.25, 1.5, 5, 5, false};
            DirectICCSetViewingConditions(record.data.get(), FourChar("Rdr1"), &other);
            DirectICCSetViewingConditions(record.data.get(), kPlainIntent, &conditions);
            const ICC_ShaperMatrix& working = record.data->monitorShaper;
            for (int c = 0; c < 3; ++c) EXPECT_EQ(Curve(working, c), Curve(record.data->baseShaper, c));
            EXPECT_EQ(Values(working.matrix), Values(reference::AbsoluteMatrix(*record.data)));
            // Without a luminance the matrix is all 0 and has no inverse.
            const bool isLuminous = record.data->monitorLuminance != 0;
            const FixedMatrix inverse = isLuminous ? reference::RefinedInverse(working.matrix) : FixedMatrix{};
            EXPECT_EQ(Values(working.inverseMatrix), Values(inverse));
            ExpectReverseOfCurves(working);
        }
    }
}

TEST(ViewingConditions, ThePlainIntentScalesByTheLuminance) {
    const struct {
        double luminance;
        double expected;  // of the row of Y, in s15.16: 32768 for 100 cd/m2
    } kRows[] = {{100, 32768}, {80, 26214}, {50, 16384}, {250, 81921}, {0, 0}};
    const std::vector<uint16_t> gamma = reference::GammaCurve(16, 2.2);
    const ViewingConditions conditions = Conditions({});
    for (const auto& row : kRows) {
        const OwnedRecord data = MadeUp({gamma, gamma, gamma});
        data->monitorLuminance = static_cast<int32_t>(row.luminance * 65536);
        DirectICCSetViewingConditions(data.get(), kPlainIntent, &conditions);
        const FixedMatrix toXYZ = reference::Multiply(reference::RefinedInverse(data->referenceInverse), data->monitorShaper.matrix);
        EXPECT_NEAR(1.0 * toXYZ.element[3] + toXYZ.element[4] + toXYZ.element[5], row.expected, 12) << row.luminance;
    }
}

TEST(ViewingConditions, OnlyTheFourthIntentIsPlain) {
    const std::vector<uint16_t> gamma = reference::GammaCurve(64, 2.2);
    const ViewingConditions conditions = Conditions({});
    const OwnedRecord first = MadeUp({gamma, gamma, gamma});
    DirectICCSetViewingConditions(first.get(), FourChar("Rdr0"), &conditions);
    EXPECT_NE(Curve(first->monitorShaper, 0), gamma);
    for (const uint32_t intent : {FourChar("Rdr1"), FourChar("Rdr2"), FourChar("Rdr4"), uint32_t{0}}) {
        const OwnedRecord other = MadeUp({gamma, gamma, gamma});
        DirectICCSetViewingConditions(other.get(), intent, &conditions);
        EXPECT_EQ(Values(other->monitorShaper.matrix), Values(first->monitorShaper.matrix));
        for (int c = 0; c < 3; ++c) EXPECT_EQ(Curve(other->monitorShaper, c), Curve(first->monitorShaper, c));
    }
}

/// What an entry of the working curves is in the normalised space, and what the base curves' entry is there.
struct NormalisedEntry {
    double base[3];
    double bent[3];
};

std::vector<NormalisedEntry> NormalisedCurves(const MatchingData& data) {
    const FixedMatrix toXYZ = reference::Multiply(reference::kCalRGBToXYZ, data.monitorShaper.matrix);
    double white[3];
    const auto multiply = [&](const ICC_ShaperMatrix& shaper, uint32_t i, int r) {
        double sum = 0;
        for (int c = 0; c < 3; ++c) sum += toXYZ.element[3 * r + c] / 65536.0 * shaper.curves[c][i];
        return sum / white[r];
    };
    for (int r = 0; r < 3; ++r) white[r] = 65535.0 * (1.0 * toXYZ.element[3 * r] + toXYZ.element[3 * r + 1] + toXYZ.element[3 * r + 2]) / 65536.0;
    std::vector<NormalisedEntry> entries;
    for (uint32_t i = 0; i < data.baseShaper.counts[0]; ++i) {
        NormalisedEntry entry;
        for (int r = 0; r < 3; ++r) {
            // The bending starts from whole numbers, which shows near black.
            entry.base[r] = std::round(multiply(data.baseShaper, i, r) * white[r]) / std::round(white[r]);
            entry.bent[r] = multiply(data.monitorShaper, i, r);
        }
        entries.push_back(entry);
    }
    return entries;
}

TEST(ViewingConditions, NumbersInTheNormalisedSpace) {
    const struct {
        const char* name;
        ViewingConditions conditions;
        double (*expected)(double);
        double upTo = 2;
    } kRows[] = {
        {"the defaults lift black by 3 %", {-0.03, 1, 0, 0, false}, [](double v) { return 0.97 * v + 0.03; }},
        {"contrast 2 takes the root first", {-0.03, 2, 0, 0, false}, [](double v) { return 0.97 * std::sqrt(v) + 0.03; }},
        {"no flare, contrast 1: nothing", {0, 1, 0, 0, false}, [](double v) { return v; }},
        {"a flare beyond every colour's own takes grey to black", {1e9, 1, 0, 0, false}, [](double) { return 0.0; }, 0.5},
        {"a positive flare cuts, but not below the darkest",
         {0.1, 1, 0, 0, false},
         [](double v) { return v - std::min(0.1, v / (1 - v)) * (1 - v); }},
    };
    for (const auto& row : kRows) {
        for (const char* name : {kSRGBMonitor.c_str(), kGammaMonitor.c_str()}) {
            SCOPED_TRACE(std::string(row.name) + ", " + name);
            const OwnedRecord data = FromProfiles(name);
            DirectICCSetViewingConditions(data.get(), FourChar("Rdr0"), &row.conditions);
            const std::vector<NormalisedEntry> entries = NormalisedCurves(*data);
            // The tolerance is that of the unrefined inverse and of rounding in 16 bits, which a cut close to white magnifies without bound.
            for (size_t i = 0; i + 1 < entries.size(); ++i) {
                for (int r = 0; r < 3; ++r) {
                    if (entries[i].base[r] > row.upTo) continue;
                    ASSERT_NEAR(entries[i].bent[r], row.expected(entries[i].base[r]), 12 / 65535.0) << "entry " << i;
                }
            }
        }
    }
}

TEST(ViewingConditions, ZeroOffsetsAdaptByTheIdentity) {
    const OwnedRecord data = FromProfiles(kSRGBMonitor);
    const ViewingConditions conditions = Conditions({});
    DirectICCSetViewingConditions(data.get(), FourChar("Rdr0"), &conditions);
    const FixedMatrix scaled =
        reference::ScaledBy(data->monitorMatrix, data->printerWhite.Y, reference::LuminanceSum(data->monitorMatrix) * 65535 / 32768);
    // Cones there and back, nothing between.
    const FixedMatrix still = reference::Multiply(reference::RefinedInverse(reference::kCones), reference::kCones);
    EXPECT_EQ(Values(data->monitorShaper.matrix), Values(reference::Multiply(data->referenceInverse, reference::Multiply(still, scaled))));
}

TEST(ViewingConditions, TheWhiteIsTheOneAskedFor) {
    const struct {
        const char* name;
        ViewingConditions conditions;
        const FixedXYZ* monitorWhite;
        double x, z;  // over Y, in units of the illuminant's
    } kRows[] = {
        {"no offset", {0, 1, 0, 0, false}, nullptr, 1, 1},
        {"a* 20", {0, 1, 20, 0, false}, nullptr, std::pow(1.04, 3), 1},
        {"b* -30", {0, 1, 0, -30, false}, nullptr, 1, std::pow(1.15, 3)},
        {"printer", {0, 1, 20, -30, true}, nullptr, 57000.0 * 65536 / 59000 / 63190, 47000.0 * 65536 / 59000 / 54061},
        {"fixed white wins over all", {0, 1, 20, -30, true}, &kFixedWhite, 62000.0 / 63190, 60000.0 / 54061},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        const OwnedRecord data = FromProfiles(kSRGBMonitor, row.monitorWhite, &kPaper);
        DirectICCSetViewingConditions(data.get(), FourChar("Rdr0"), &row.conditions);
        const FixedMatrix toXYZ = reference::Multiply(reference::RefinedInverse(data->referenceInverse), data->monitorShaper.matrix);
        double white[3];
        for (int r = 0; r < 3; ++r) white[r] = 1.0 * toXYZ.element[3 * r] + toXYZ.element[3 * r + 1] + toXYZ.element[3 * r + 2];
        EXPECT_NEAR(white[0] / white[1] * 65536 / data->referenceIlluminant.X, row.x, 0.001);
        EXPECT_NEAR(white[2] / white[1] * 65536 / data->referenceIlluminant.Z, row.z, 0.001);
        // The paper's luminance, or full luminance with a fixed white, at half scale.
        EXPECT_NEAR(white[1] / 32768, row.monitorWhite ? 1.0 : 59000.0 / 65536, 0.001);
    }
}

TEST(ViewingConditions, TheFirstCurveDecidesHowManyEntriesAreBent) {
    const std::vector<uint16_t> shorter = reference::GammaCurve(16, 2.2);
    const std::vector<uint16_t> longer = reference::GammaCurve(32, 2.2);
    const ViewingConditions conditions = Conditions({});
    const OwnedRecord data = MadeUp({shorter, longer, longer});
    DirectICCSetViewingConditions(data.get(), FourChar("Rdr0"), &conditions);
    ExpectBentCurves(*data, {});
    for (const int c : {1, 2}) {
        const std::vector<uint16_t> curve = Curve(data->monitorShaper, c);
        EXPECT_EQ(std::vector<uint16_t>(curve.begin() + 16, curve.end()), std::vector<uint16_t>(longer.begin() + 16, longer.end()));
    }
    ExpectReverseOfCurves(data->monitorShaper);
}

TEST(ViewingConditions, ShorterLaterCurvesKeepTheirOwnLength) {
    const OwnedRecord data = MadeUp({reference::GammaCurve(32, 2.2), reference::GammaCurve(16, 2.2), reference::GammaCurve(8, 2.2)});
    const ViewingConditions conditions = Conditions({});
    DirectICCSetViewingConditions(data.get(), FourChar("Rdr0"), &conditions);
    const ICC_ShaperMatrix& base = data->baseShaper;
    for (uint32_t i = 0; i < 8; ++i) {
        const std::vector<Colour16> allowed =
            reference::BentEntries(data->monitorShaper.matrix, {base.curves[0][i], base.curves[1][i], base.curves[2][i]}, {});
        const Colour16 bent = {data->monitorShaper.curves[0][i], data->monitorShaper.curves[1][i], data->monitorShaper.curves[2][i]};
        EXPECT_NE(std::find(allowed.begin(), allowed.end(), bent), allowed.end()) << i;
    }
    ExpectReverseOfCurves(data->monitorShaper);
}

/// Whatever was tabulated of the model before, the operations answer from the one that the conditions made.
TEST(ViewingConditions, TheOperationsAnswerFromTheNewModel) {
    const OwnedRecord data = FromProfiles(kSRGBMonitor);
    constexpr size_t kPixels = 500;
    std::vector<uint16_t> in(4 * kPixels), out(4 * kPixels);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint16_t>(i * 40503);
    std::vector<uint16_t> last;
    const auto expectTheModelsAnswers = [&](const char* when) {
        DirectMonitorMatch16(data.get(), in.data(), out.data(), kPixels);
        std::vector<uint16_t> expected(4 * kPixels);
        for (size_t i = 0; i < kPixels; ++i) Match_ShaperMatrix(&data->monitorShaper, &in[4 * i], &expected[4 * i]);
        EXPECT_EQ(out, expected) << when;
        EXPECT_NE(out, last) << when << ": the conditions make no difference";
    };
    const struct {
        const char* what;
        uint32_t intent;
        double contrast;
    } rows[] = {{"unbent", FourChar("Rdr0"), 1.0},
                {"bent", FourChar("Rdr0"), 1.3},
                {"as loaded", FourChar("Rdr3"), 1.3},
                {"bent again", FourChar("Rdr1"), 0.8}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const ViewingConditions conditions = {-0.03, row.contrast, 0.0, 0.0, false};
        DirectICCSetViewingConditions(data.get(), row.intent, &conditions);
        expectTheModelsAnswers("after the conditions");
        ASSERT_EQ(SetDirectMatchingQuality(data.get(), FourChar("Qua2")), 0);
        EXPECT_EQ(data->monitorTables != nullptr, platform::WidestAllowed() > platform::InstructionSet::kPlain);
        last.clear();
        expectTheModelsAnswers("after the quality");
        last = out;
    }
}

TEST(ViewingConditions, APaperWithoutLuminanceStopsNobody) {
    const std::vector<uint16_t> gamma = reference::GammaCurve(32, 2.2);
    for (const bool usePrinter : {false, true}) {
        const OwnedRecord data = MadeUp({gamma, gamma, gamma}, {0, 0, 0});
        const ViewingConditions conditions = Conditions({.usePrinter = usePrinter});
        DirectICCSetViewingConditions(data.get(), FourChar("Rdr0"), &conditions);
        EXPECT_EQ(Values(data->monitorShaper.matrix), std::vector<int32_t>(9, 0));
        for (int c = 0; c < 3; ++c) EXPECT_NE(data->monitorShaper.reverse[c], nullptr);
    }
}

}  // namespace
