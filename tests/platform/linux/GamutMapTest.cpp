#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "platform/linux/ColourChains/GamutMap.h"
#include "tests/fixtures/LcmsTruth.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/Transforms.h"

namespace {

using Pixels = std::vector<uint16_t>;
using Lab = std::array<double, 3>;

/// A cube of reference RGB, denser in the darks, and random colours besides; four words a pixel.
Pixels ReferenceColours() {
    constexpr int kSteps = 17;
    Pixels pixels;
    const auto value = [](int step) { return static_cast<uint16_t>(std::lround(65535.0 * std::pow(step / (kSteps - 1.0), 3.0))); };
    for (int r = 0; r < kSteps; ++r) {
        for (int g = 0; g < kSteps; ++g) {
            for (int b = 0; b < kSteps; ++b) pixels.insert(pixels.end(), {value(r), value(g), value(b), 0});
        }
    }
    std::mt19937 generator(7);
    std::uniform_int_distribution<int> any(0, 65535);
    for (int i = 0; i < 4000 * 4; ++i) pixels.push_back(static_cast<uint16_t>(any(generator)));
    return pixels;
}

/// One row of `count` pixels as its bytes, which are filled with ones beforehand.
std::vector<uint8_t> GamutRow(ColorSyncTransformRef transform, const uint16_t* pixels, std::size_t count) {
    std::vector<uint8_t> bits((count + 7) / 8, 0xFF);
    EXPECT_TRUE(ColorSyncTransformConvert(transform, count, 1, bits.data(), kColorSync1BitGamut, kCGImageAlphaNone, bits.size(), pixels,
                                          kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, 8 * count, nullptr));
    return bits;
}

bool Bit(const std::vector<uint8_t>& bits, std::size_t index) {
    return bits[index / 8] >> (7 - index % 8) & 1;
}

/// Slow and apart from the library: the reference profile by its formula, printers asked one colour at a time.
class SlowGamut {
public:
    SlowGamut() {
        const std::vector<uint8_t> bytes = ReadFile(kReferenceProfile);
        const Owned<ColorSyncProfileRef> profile = ProfileFrom(bytes);
        const CFStringRef names[] = {CFSTR("rXYZ"), CFSTR("gXYZ"), CFSTR("bXYZ")};
        for (std::size_t channel = 0; channel < 3; ++channel) {
            const Owned<CFDataRef> tag(ColorSyncProfileCopyTag(profile.Get(), names[channel]));
            for (std::size_t row = 0; row < 3; ++row) {
                const UInt8* at = CFDataGetBytePtr(tag.Get()) + 8 + 4 * row;
                colourants_[row][channel] = static_cast<int32_t>(at[0] << 24 | at[1] << 16 | at[2] << 8 | at[3]) / 65536.0;
            }
        }
    }

    Lab ReferenceToLab(const uint16_t* pixel) const {
        constexpr double kWhite[3] = {0.9642, 1.0, 0.8249};
        double f[3];
        for (std::size_t row = 0; row < 3; ++row) {
            double sum = 0.0;
            for (std::size_t channel = 0; channel < 3; ++channel) sum += colourants_[row][channel] * pixel[channel] / 65535.0;
            const double t = sum / kWhite[row];
            f[row] = t > 216.0 / 24389.0 ? std::cbrt(t) : (24389.0 / 27.0 * t + 16.0) / 116.0;
        }
        return {116.0 * f[1] - 16.0, 500.0 * (f[0] - f[1]), 200.0 * (f[1] - f[2])};
    }

private:
    double colourants_[3][3];
};

/// What a device makes of an absolute Lab colour.
class SlowDevice {
public:
    explicit SlowDevice(const std::string& path) : file_(OpenLcmsFile(path)), lab_(LabFile()), roundTrip_({lab_.get(), file_.get(), lab_.get()}) {}

    Lab Shown(const Lab& asked) const {
        const std::vector<double> shown = roundTrip_({asked.begin(), asked.end()});
        return {shown[0], shown[1], shown[2]};
    }

private:
    LcmsFile file_, lab_;
    StepwiseTruth roundTrip_;
};

double CIE76(const Lab& a, const Lab& b) {
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

class GamutMapTest : public testing::TestWithParam<Printer> {
protected:
    Owned<ColorSyncProfileRef> reference_ = OpenProfile(kReferenceProfile);
    Owned<ColorSyncProfileRef> printer_ = OpenProfile(GetParam().path);
};

/// Compares all answers; colours so near the threshold that single precision decides are left out.
void ExpectSlowAnswers(ColorSyncTransformRef transform, const std::vector<double>& differences, const Pixels& pixels) {
    const std::size_t count = pixels.size() / 4;
    const std::vector<uint8_t> bits = GamutRow(transform, pixels.data(), count);
    std::size_t marked = 0, undecided = 0;
    for (std::size_t i = 0; i < count; ++i) {
        marked += Bit(bits, i);
        if (std::abs(differences[i] - platform::kGamutThreshold) < 1e-3) {
            ++undecided;
            continue;
        }
        ASSERT_EQ(Bit(bits, i), differences[i] > platform::kGamutThreshold)
            << "pixel " << i << ": " << pixels[4 * i] << " " << pixels[4 * i + 1] << " " << pixels[4 * i + 2] << ", difference " << differences[i];
    }
    std::printf("    %zu of %zu colours out, %zu too near to the threshold to compare\n", marked, count, undecided);
    EXPECT_LE(undecided, count / 200);
    EXPECT_GT(marked, 0u);
    EXPECT_LT(marked, count);
}

TEST_P(GamutMapTest, MarksWhatAPrinterShowsFurtherAwayThanTheThreshold) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), printer_.Get()});
    const SlowGamut reference;
    const SlowDevice printer(GetParam().path);
    const Pixels pixels = ReferenceColours();
    std::vector<double> differences;
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
        const Lab asked = reference.ReferenceToLab(&pixels[i]);
        differences.push_back(CIE76(asked, printer.Shown(asked)));
    }
    ExpectSlowAnswers(transform.Get(), differences, pixels);
}

TEST_P(GamutMapTest, TestsWhatADeviceBetweenMadeOfTheColour) {
    for (const std::string& path : {PrinterNamed("fogra39l").path, PrinterNamed("ps_cmyk").path, std::string("/usr/share/color/icc/colord/sRGB.icc"),
                                    std::string("/usr/share/color/icc/ghostscript/scrgb.icc")}) {
        const Owned<ColorSyncProfileRef> proofer = OpenProfile(path);
        const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), proofer.Get(), printer_.Get()});
        const SlowGamut reference;
        const SlowDevice between(path), printer(GetParam().path);
        const Pixels pixels = ReferenceColours();
        std::vector<double> differences;
        for (std::size_t i = 0; i < pixels.size(); i += 4) {
            const Lab asked = between.Shown(reference.ReferenceToLab(&pixels[i]));
            differences.push_back(CIE76(asked, printer.Shown(asked)));
        }
        // A printer may show nearly all, or nearly none, of what another prints.
        const std::vector<uint8_t> bits = GamutRow(transform.Get(), pixels.data(), pixels.size() / 4);
        std::size_t compared = 0, marked = 0;
        for (std::size_t i = 0; i < differences.size(); ++i) {
            marked += Bit(bits, i);
            if (std::abs(differences[i] - platform::kGamutThreshold) < 1e-3) continue;
            ++compared;
            ASSERT_EQ(Bit(bits, i), differences[i] > platform::kGamutThreshold) << path << ", pixel " << i << ": " << differences[i];
        }
        std::printf("    %s after %s: %zu of %zu colours out\n", GetParam().name.c_str(), path.c_str(), marked, differences.size());
        EXPECT_GT(compared, differences.size() * 199 / 200);
    }
}

/// Argyll's look-up of many colours at once through a profile, absolute, Lab on the one side and 0..1 on the other. Empty when it refuses the
/// profile.
std::vector<double> SecondEngine(const std::string& profile, const char* direction, const std::vector<double>& values, std::size_t perLine,
                                 std::size_t perResult) {
    const TemporaryFolder folder;
    std::FILE* file = std::fopen((folder / "in").c_str(), "w");
    for (std::size_t i = 0; i < values.size(); ++i) std::fprintf(file, "%.6f%c", values[i], (i + 1) % perLine == 0 ? '\n' : ' ');
    std::fclose(file);
    const std::string command =
        std::string("icclu -v0 -ia -pl ") + direction + " '" + profile + "' <'" + (folder / "in") + "' >'" + (folder / "out") + "' 2>/dev/null";
    if (std::system(command.c_str()) != 0) return {};
    std::ifstream out(folder / "out");
    std::vector<double> results;
    for (std::string line; std::getline(out, line);) {
        std::istringstream words(line);
        double value;
        for (std::size_t i = 0; i < perResult && words >> value; ++i) results.push_back(value);
    }
    return results;
}

double Percentile(std::vector<double> values, int percent) {
    std::sort(values.begin(), values.end());
    return values[(values.size() - 1) * static_cast<std::size_t>(percent) / 100];
}

// The connection space must not clip what the printer can show: then the threshold would measure that and not the printer. What a profile's own
// tables lose on the printer's own colours, a second engine says as well.
TEST_P(GamutMapTest, ColoursOfThePrinterItselfComeBackAsWellAsItsTablesAllow) {
    constexpr std::size_t kCount = 3000;
    const std::size_t channels = GetParam().channels;
    std::vector<double> inks;
    std::mt19937 generator(11);
    std::uniform_real_distribution<double> any(0.0, 1.0);
    for (std::size_t i = 0; i < kCount * channels; ++i) inks.push_back(any(generator));
    for (std::size_t i = 0; channels == 4 && i < kCount; ++i) {
        // Little black and two colours, as the tables to the printer make them.
        inks[4 * i + 3] *= 0.3;
        inks[4 * i + i % 3] = 0.0;
    }

    const LcmsFile file = OpenLcmsFile(GetParam().path);
    const LcmsFile lab = LabFile();
    const LcmsTruth toLab({file.get(), lab.get()});
    const SlowDevice printer(GetParam().path);
    std::vector<double> asked(3 * kCount), ours;
    std::vector<double> scaled = inks;
    for (double& ink : scaled) ink *= channels == 4 ? 100.0 : 1.0;
    toLab.Apply(scaled.data(), asked.data(), kCount);
    for (std::size_t i = 0; i < kCount; ++i) {
        const Lab colour = {asked[3 * i], asked[3 * i + 1], asked[3 * i + 2]};
        ours.push_back(CIE76(colour, printer.Shown(colour)));
    }
    std::printf("    %s: CIE 1976 difference median %.2f, p90 %.2f, p99 %.2f, max %.2f\n", GetParam().name.c_str(), Percentile(ours, 50),
                Percentile(ours, 90), Percentile(ours, 99), Percentile(ours, 100));

    const std::vector<double> theirAsked = SecondEngine(GetParam().path, "-ff", inks, channels, 3);
    if (theirAsked.empty()) {
        // Version 4 is not for that engine.
        EXPECT_EQ(GetParam().name, "ps_cmyk");
        return;
    }
    const std::vector<double> theirInks = SecondEngine(GetParam().path, "-fb", theirAsked, 3, channels);
    const std::vector<double> theirShown = SecondEngine(GetParam().path, "-ff", theirInks, channels, 3);
    ASSERT_EQ(theirShown.size(), 3 * kCount);
    std::vector<double> theirs;
    for (std::size_t i = 0; i < kCount; ++i) {
        theirs.push_back(CIE76({theirAsked[3 * i], theirAsked[3 * i + 1], theirAsked[3 * i + 2]},
                               {theirShown[3 * i], theirShown[3 * i + 1], theirShown[3 * i + 2]}));
    }
    std::printf("    by the second engine: median %.2f, p90 %.2f, p99 %.2f, max %.2f\n", Percentile(theirs, 50), Percentile(theirs, 90),
                Percentile(theirs, 99), Percentile(theirs, 100));
    for (const int percent : {50, 90, 99}) EXPECT_LT(Percentile(ours, percent), 1.2 * Percentile(theirs, percent) + 0.1) << percent;
}

TEST_P(GamutMapTest, ThePaperItselfIsInGamut) {
    const LcmsFile file = OpenLcmsFile(GetParam().path);
    const LcmsFile lab = LabFile();
    const LcmsTruth toLab({file.get(), lab.get()});
    const double paper[4] = {GetParam().channels == 4 ? 0.0 : 1.0, GetParam().channels == 4 ? 0.0 : 1.0, GetParam().channels == 4 ? 0.0 : 1.0, 0.0};
    Lab asked;
    toLab.Apply(paper, asked.data(), 1);
    EXPECT_LT(CIE76(asked, SlowDevice(GetParam().path).Shown(asked)), platform::kGamutThreshold);
}

TEST_P(GamutMapTest, AnswersForAPixelDoNotDependOnTheRun) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), printer_.Get()});
    const Pixels pixels = ReferenceColours();
    constexpr std::size_t kLongest = 257;
    const std::size_t start = 2000;
    const std::vector<uint8_t> whole = GamutRow(transform.Get(), &pixels[4 * start], kLongest);
    for (std::size_t length = 1; length <= kLongest; ++length) {
        const std::vector<uint8_t> bits = GamutRow(transform.Get(), &pixels[4 * start], length);
        for (std::size_t i = 0; i < length; ++i) ASSERT_EQ(Bit(bits, i), Bit(whole, i)) << "run of " << length << ", pixel " << i;
        for (std::size_t i = length; i < 8 * bits.size(); ++i) ASSERT_FALSE(Bit(bits, i)) << "run of " << length << ", unused bit " << i;
    }
    for (std::size_t i = 0; i < kLongest; ++i) {
        ASSERT_EQ(Bit(GamutRow(transform.Get(), &pixels[4 * (start + i)], 1), 0), Bit(whole, i)) << "alone, pixel " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(EveryPrinter, GamutMapTest, testing::ValuesIn(Printers()), [](const auto& row) { return row.param.name; });

constexpr uint16_t kOut[4] = {0, 65535, 0, 0};         // a green that nothing prints
constexpr uint16_t kIn[4] = {20000, 20000, 20000, 0};  // a middle grey

class GamutBitsTest : public testing::Test {
protected:
    Owned<ColorSyncTransformRef> Match() const { return AbsoluteTransform({reference_.Get(), printer_.Get()}); }

    Owned<ColorSyncProfileRef> reference_ = OpenProfile(kReferenceProfile);
    Owned<ColorSyncProfileRef> printer_ = OpenProfile(PrinterNamed("ISOcoated_v2_300_bas").path);
};

TEST_F(GamutBitsTest, StandMostSignificantFirst) {
    const Owned<ColorSyncTransformRef> transform = Match();
    const std::string pattern = "100000011100101";
    Pixels pixels;
    for (const char bit : pattern) {
        const uint16_t* colour = bit == '1' ? kOut : kIn;
        pixels.insert(pixels.end(), colour, colour + 4);
    }
    EXPECT_EQ(GamutRow(transform.Get(), pixels.data(), pattern.size()), (std::vector<uint8_t>{0b10000001, 0b11001010}));
}

TEST_F(GamutBitsTest, StartANewByteOnEachRowAndLeaveTheRestOfItAlone) {
    const Owned<ColorSyncTransformRef> transform = Match();
    Pixels pixels;  // two rows of three pixels, the first row followed by 8 bytes that are no pixel
    for (const uint16_t* colour : {kOut, kIn, kOut, kOut, kIn, kIn, kOut}) pixels.insert(pixels.end(), colour, colour + 4);
    std::vector<uint8_t> bits(5, 0xAA);
    ASSERT_TRUE(ColorSyncTransformConvert(transform.Get(), 3, 2, bits.data(), kColorSync1BitGamut, kCGImageAlphaNone, 3, pixels.data(),
                                          kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, 32, nullptr));
    EXPECT_EQ(bits, (std::vector<uint8_t>{0b10100000, 0xAA, 0xAA, 0b00100000, 0xAA}));
}

TEST_F(GamutBitsTest, AreTheSameFor8BitPixelsOfTheSameColours) {
    const Owned<ColorSyncTransformRef> transform = Match();
    std::vector<uint8_t> bytes;
    Pixels words;
    std::mt19937 generator(5);
    for (int i = 0; i < 1000; ++i) {
        bytes.push_back(0x5A);
        for (int c = 0; c < 3; ++c) {
            bytes.push_back(static_cast<uint8_t>(generator()));
            words.push_back(static_cast<uint16_t>(bytes.back() * 257));
        }
        words.push_back(0);
    }
    std::vector<uint8_t> bits(125);
    ASSERT_TRUE(ColorSyncTransformConvert(transform.Get(), 1000, 1, bits.data(), kColorSync1BitGamut, kCGImageAlphaNone, 125, bytes.data(),
                                          kColorSync8BitInteger, kCGImageAlphaNoneSkipFirst, 4000, nullptr));
    EXPECT_EQ(bits, GamutRow(transform.Get(), words.data(), 1000));
}

TEST_F(GamutBitsTest, AreTheSameOnEightThreads) {
    const Owned<ColorSyncTransformRef> transform = Match();
    const Pixels pixels = ReferenceColours();
    const std::vector<uint8_t> expected = GamutRow(Match().Get(), pixels.data(), pixels.size() / 4);
    std::vector<std::vector<uint8_t>> answers(8);
    std::vector<std::thread> threads;
    for (std::vector<uint8_t>& answer : answers) {
        threads.emplace_back([&] { answer = GamutRow(transform.Get(), pixels.data(), pixels.size() / 4); });
    }
    for (std::thread& thread : threads) thread.join();
    for (const std::vector<uint8_t>& answer : answers) EXPECT_EQ(answer, expected);
}

// Also where the profile's own formula runs on past the values that the device has.
TEST_F(GamutBitsTest, AMatrixDeviceHasAGamutToo) {
    for (const char* path : {"/usr/share/color/icc/sRGB.icc", "/usr/share/color/icc/ghostscript/scrgb.icc",
                             "/usr/share/color/icc/compatibleWithAdobeRGB1998.icc", "/usr/share/color/icc/colord/sRGB.icc"}) {
        const Owned<ColorSyncProfileRef> monitor = OpenProfile(path);
        const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), monitor.Get()});
        Pixels pixels;
        for (const uint16_t* colour : {kOut, kIn}) pixels.insert(pixels.end(), colour, colour + 4);
        EXPECT_EQ(GamutRow(transform.Get(), pixels.data(), 2), (std::vector<uint8_t>{0b10000000})) << path;
    }
}

// The reference space is the wider one: a printer's colours all lie in it, but for the darkest and the most saturated of some printers.
TEST_F(GamutBitsTest, APredictedColourIsHardlyEverOutOfTheReferenceSpace) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({printer_.Get(), reference_.Get()});
    Pixels inks;
    std::mt19937 generator(3);
    for (int i = 0; i < 4 * 2000; ++i) inks.push_back(static_cast<uint16_t>(generator()));
    std::vector<uint8_t> bits(250);
    ASSERT_TRUE(ColorSyncTransformConvert(transform.Get(), 2000, 1, bits.data(), kColorSync1BitGamut, kCGImageAlphaNone, 250, inks.data(),
                                          kColorSync16BitInteger, kCGImageAlphaNone, 16000, nullptr));
    std::size_t marked = 0;
    for (std::size_t i = 0; i < 2000; ++i) marked += Bit(bits, i);
    EXPECT_LE(marked, 20u);
}

// The profile maker's own answer, where there is one: it draws the border elsewhere, but colours far outside are outside for both.
TEST(GamutTagTest, AgreesWithTheProfilesOwnTagFarFromTheBorder) {
    for (const char* name : {"ISOcoated_v2_300_bas", "fogra39l", "rgb_printer"}) {
        const Printer& choice = PrinterNamed(name);
        const LcmsFile file = OpenLcmsFile(choice.path);
        auto* gamut = static_cast<cmsPipeline*>(cmsReadTag(file.get(), cmsSigGamutTag));
        auto* white = static_cast<cmsCIEXYZ*>(cmsReadTag(file.get(), cmsSigMediaWhitePointTag));
        ASSERT_TRUE(gamut && white) << name;
        const Owned<ColorSyncProfileRef> reference = OpenProfile(kReferenceProfile);
        const Owned<ColorSyncProfileRef> printer = OpenProfile(choice.path);
        const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference.Get(), printer.Get()});
        const Pixels pixels = ReferenceColours();
        const std::size_t count = pixels.size() / 4;
        const std::vector<uint8_t> bits = GamutRow(transform.Get(), pixels.data(), count);
        const SlowGamut slow;
        const SlowDevice slowPrinter(choice.path);
        std::size_t ours = 0, theirs = 0, both = 0, far = 0, farTheirs = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const Lab asked = slow.ReferenceToLab(&pixels[4 * i]);
            // The tag is asked for colours relative to the paper, in the Lab encoding of version 2.
            cmsCIEXYZ xyz;
            cmsCIELab lab = {asked[0], asked[1], asked[2]};
            cmsLab2XYZ(nullptr, &xyz, &lab);
            xyz = {xyz.X * cmsD50_XYZ()->X / white->X, xyz.Y * cmsD50_XYZ()->Y / white->Y, xyz.Z * cmsD50_XYZ()->Z / white->Z};
            cmsXYZ2Lab(nullptr, &lab, &xyz);
            cmsUInt16Number encoded[3], answer[1];
            cmsFloat2LabEncodedV2(encoded, &lab);
            cmsPipelineEval16(encoded, answer, gamut);
            const bool theirOut = answer[0] != 0;
            ours += Bit(bits, i);
            theirs += theirOut;
            both += Bit(bits, i) && theirOut;
            if (CIE76(asked, slowPrinter.Shown(asked)) > 10.0) {
                ++far;
                farTheirs += theirOut;
                ASSERT_TRUE(Bit(bits, i));
            }
        }
        std::printf("    %-20s out here %zu, by the tag %zu, by both %zu of %zu; further than 10: %zu, of them by the tag %zu\n", name, ours, theirs,
                    both, count, far, farTheirs);
        EXPECT_GE(farTheirs, far * 99 / 100) << name;
        EXPECT_GE(both, ours * 9 / 10) << name;
    }
}

}  // namespace
