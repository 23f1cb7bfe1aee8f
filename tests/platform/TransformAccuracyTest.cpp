#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>

#include "tests/fixtures/LcmsTruth.h"
#include "tests/fixtures/Transforms.h"
#include "tests/reference/CIEDE2000.h"

/// How far 16-bit transforms may stand from the same chain in floating point.

namespace {

constexpr double kFull = 65535.0;
constexpr double kBound = 0.05;  // CIEDE2000, every colour of every set

enum class Kind { kMatch, kPredict, kProof };

/// 16-bit pixels of four words (the fourth 0 for three channels).
using Pixels = std::vector<uint16_t>;

struct Range {
    int low, high;
};

/// All combinations of `steps` even values on each axis, and random ones besides.
Pixels Cube(std::size_t channels, int steps, Range range, int randomCount) {
    Pixels pixels;
    const auto value = [&](int step) { return static_cast<uint16_t>(range.low + (range.high - range.low) * step / (steps - 1)); };
    const int fourthSteps = channels == 4 ? steps : 1;
    for (int a = 0; a < steps; ++a) {
        for (int b = 0; b < steps; ++b) {
            for (int c = 0; c < steps; ++c) {
                for (int d = 0; d < fourthSteps; ++d) {
                    pixels.insert(pixels.end(), {value(a), value(b), value(c), channels == 4 ? value(d) : uint16_t{0}});
                }
            }
        }
    }
    std::mt19937 generator(20240101);
    std::uniform_int_distribution<int> any(range.low, range.high);
    for (int i = 0; i < randomCount; ++i) {
        for (std::size_t c = 0; c < 4; ++c) pixels.push_back(c < channels ? static_cast<uint16_t>(any(generator)) : uint16_t{0});
    }
    return pixels;
}

/// On the scale of DoubleFormat.
double DeviceScale(std::size_t channels) {
    return channels == 4 ? 100.0 : 1.0;
}

std::vector<double> ToDouble(const Pixels& pixels, std::size_t channels) {
    std::vector<double> values;
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        if (i % 4 < channels) values.push_back(pixels[i] / kFull * DeviceScale(channels));
    }
    return values;
}

struct Figures {
    double mean, p99, max;
};

Figures Compare(const std::vector<double>& first, const std::vector<double>& second) {
    std::vector<double> differences;
    for (std::size_t i = 0; i < first.size(); i += 3) {
        differences.push_back(reference::CIEDE2000({first[i], first[i + 1], first[i + 2]}, {second[i], second[i + 1], second[i + 2]}));
    }
    std::sort(differences.begin(), differences.end());
    double sum = 0.0;
    for (const double difference : differences) sum += difference;
    return {sum / static_cast<double>(differences.size()), differences[differences.size() * 99 / 100], differences.back()};
}

struct Row {
    Printer printer;
    Kind kind;
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.printer.name;
}

const char* KindName(Kind kind) {
    switch (kind) {
        case Kind::kMatch:
            return "match";
        case Kind::kPredict:
            return "predict";
        default:
            return "proof";
    }
}

class TransformAccuracyTest : public testing::TestWithParam<Row> {
protected:
    TransformAccuracyTest() {
        const std::string& path = GetParam().printer.path;
        const Owned<ColorSyncProfileRef> reference = OpenProfile(kReferenceProfile);
        const Owned<ColorSyncProfileRef> printer = OpenProfile(path);
        referenceFile_ = OpenLcmsFile(kReferenceProfile);
        printerFile_ = OpenLcmsFile(path);
        lab_ = LabFile();
        cmsHPROFILE ref = referenceFile_.get(), prn = printerFile_.get();
        switch (GetParam().kind) {
            case Kind::kMatch:
                transform_ = AbsoluteTransform({reference.Get(), printer.Get()});
                truth_ = std::make_unique<StepwiseTruth>(std::vector{ref, prn});
                outputToLab_ = std::make_unique<LcmsTruth>(std::vector{prn, lab_.get()});
                inputs_ = 3;
                outputs_ = GetParam().printer.channels;
                break;
            case Kind::kPredict:
                transform_ = AbsoluteTransform({printer.Get(), reference.Get()});
                truth_ = std::make_unique<StepwiseTruth>(std::vector{prn, ref});
                outputToLab_ = std::make_unique<LcmsTruth>(std::vector{ref, lab_.get()});
                inputs_ = GetParam().printer.channels;
                outputs_ = 3;
                break;
            case Kind::kProof:
                transform_ = AbsoluteTransform({reference.Get(), printer.Get(), reference.Get()});
                truth_ = std::make_unique<StepwiseTruth>(std::vector{ref, prn, ref});
                outputToLab_ = std::make_unique<LcmsTruth>(std::vector{ref, lab_.get()});
                inputs_ = outputs_ = 3;
                break;
        }
    }

    /// The colours are compared as what the output values stand for.
    void Check(const char* set, const Pixels& input) {
        const std::size_t count = input.size() / 4;
        std::vector<double> exact = (*truth_)(ToDouble(input, inputs_));
        for (double& value : exact) value = std::clamp(value, 0.0, DeviceScale(outputs_));
        std::vector<double> exactLab(count * 3), actualLab(count * 3);
        outputToLab_->Apply(exact.data(), exactLab.data(), count);
        const std::vector<double> actual = ToDouble(Convert16(transform_.Get(), input, inputs_, outputs_), outputs_);
        outputToLab_->Apply(actual.data(), actualLab.data(), count);

        const Figures figures = Compare(actualLab, exactLab);
        std::printf("    %-20s %-7s %-7s %6zu colours: CIEDE2000 mean %.4f, p99 %.4f, max %.4f\n", GetParam().printer.name.c_str(),
                    KindName(GetParam().kind), set, count, figures.mean, figures.p99, figures.max);
        EXPECT_LE(figures.max, kBound);
    }

    LcmsFile referenceFile_, printerFile_, lab_;
    Owned<ColorSyncTransformRef> transform_;
    std::unique_ptr<StepwiseTruth> truth_;
    std::unique_ptr<LcmsTruth> outputToLab_;
    std::size_t inputs_ = 0, outputs_ = 0;
};

TEST_P(TransformAccuracyTest, StaysWithTheFloatingPointChainOverTheWholeCube) {
    Check("whole", Cube(inputs_, inputs_ == 4 ? 13 : 33, {0, 65535}, 20000));
}

TEST_P(TransformAccuracyTest, StaysWithTheFloatingPointChainInTheDarkestTenth) {
    const Range dark = inputs_ == 4 ? Range{65535 - 6553, 65535} : Range{0, 6553};
    Check("dark", Cube(inputs_, inputs_ == 4 ? 13 : 33, dark, 20000));
}

std::vector<Row> Rows() {
    std::vector<Row> rows;
    for (const Printer& printer : Printers()) {
        for (const Kind kind : {Kind::kMatch, Kind::kPredict, Kind::kProof}) rows.push_back({printer, kind});
    }
    // Curves that run on past what a device can show.
    rows.push_back({{"formulas", "/usr/share/color/icc/colord/sRGB.icc", 3}, Kind::kProof});
    rows.push_back({{"identity", "/usr/share/color/icc/ghostscript/scrgb.icc", 3}, Kind::kProof});
    return rows;
}

INSTANTIATE_TEST_SUITE_P(EveryPrinter, TransformAccuracyTest, testing::ValuesIn(Rows()),
                         [](const auto& row) { return row.param.printer.name + "_" + KindName(row.param.kind); });

// Published test pairs of the formula: the yardstick above is itself measured.
TEST(CIEDE2000ReferenceTest, AgreesWithPublishedPairs) {
    struct {
        reference::Lab first, second;
        double expected;
    } const rows[] = {
        {{50.0, 2.6772, -79.7751}, {50.0, 0.0, -82.7485}, 2.0425},   // blue, the rotation term
        {{50.0, 0.0, 0.0}, {50.0, -1.0, 2.0}, 2.3669},               // one colour neutral
        {{50.0, 2.4900, -0.0010}, {50.0, -2.4900, 0.0009}, 7.1792},  // hues nearly opposite, mean hue to one side
        {{50.0, 2.4900, -0.0010}, {50.0, -2.4900, 0.0011}, 7.2195},  // and to the other
        {{50.0, 2.5, 0.0}, {73.0, 25.0, -18.0}, 27.1492},
        {{60.2574, -34.0099, 36.2677}, {60.4626, -34.1751, 39.4387}, 1.2644},
        {{2.0776, 0.0795, -1.1350}, {0.9033, -0.0636, -0.5514}, 0.9082},  // dark
    };
    for (const auto& row : rows) {
        EXPECT_NEAR(reference::CIEDE2000(row.first, row.second), row.expected, 0.00005);
        EXPECT_NEAR(reference::CIEDE2000(row.second, row.first), row.expected, 0.00005);
    }
}

}  // namespace
