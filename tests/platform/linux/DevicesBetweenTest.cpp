#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>
#include <random>
#include <stdexcept>
#include <string>

#include "platform/linux/ColourChains/FusedEvaluator.h"
#include "platform/linux/ColourChains/GamutMap.h"
#include "platform/linux/ColourChains/LittleCmsEvaluator.h"
#include "tests/fixtures/LcmsTruth.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/Transforms.h"

/// A device in the middle of a chain hands on what it can show, whatever its curves would answer beyond that: by both evaluators and in the gamut
/// map, beside devices that are asked one after the other.

namespace {

using platform::ChainStep;
using platform::MakeFusedEvaluator;
using platform::MakeLittleCmsEvaluator;
using platform::PixelEvaluator;
using platform::PixelFormat;
using platform::ProfileChain;

using Pixels = std::vector<std::uint16_t>;
using Profile = std::shared_ptr<const Bytes>;

constexpr double kFull = 65535.0;
constexpr PixelFormat kPlain16 = {PixelFormat::k16Bit, PixelFormat::kNone};
const std::string kFormulaMonitor = "/usr/share/color/icc/colord/sRGB.icc";

Profile ProfileAt(const std::string& path) {
    static std::map<std::string, Profile> read;
    Profile& bytes = read[path];
    if (!bytes) bytes = std::make_shared<const Bytes>(ReadFile(path));
    return bytes;
}

Profile Reference() {
    return ProfileAt(kReferenceProfile);
}

std::unique_ptr<ProfileChain> ChainOf(const std::vector<Profile>& profiles) {
    std::vector<ChainStep> steps;
    for (const Profile& profile : profiles) steps.push_back({profile, INTENT_ABSOLUTE_COLORIMETRIC, false});
    return ProfileChain::Create(steps);
}

/// `channels` words a pixel: even steps on each axis, closer in the darks, and random ones.
Pixels Colours(std::size_t channels) {
    const int steps = channels == 4 ? 4 : 7;
    const int count = static_cast<int>(std::pow(steps, channels));
    Pixels pixels;
    for (int i = 0; i < count; ++i) {
        for (int c = 0, rest = i; c < static_cast<int>(channels); ++c, rest /= steps) {
            pixels.push_back(static_cast<std::uint16_t>(std::lround(kFull * std::pow(rest % steps / (steps - 1.0), 2.0))));
        }
    }
    std::mt19937 generator(20240103);
    for (std::size_t i = 0; i < 400 * channels; ++i) pixels.push_back(static_cast<std::uint16_t>(generator()));
    return pixels;
}

// ---- the truth ----

LcmsFile Open(const Profile& profile) {
    return LcmsFile(cmsOpenProfileFromMem(profile->data(), static_cast<cmsUInt32Number>(profile->size())));
}

double FullScale(cmsHPROFILE profile) {
    return cmsGetColorSpace(profile) == cmsSigCmykData ? 100.0 : 1.0;
}

/// The devices asked one after the other.
class DeviceByDevice {
public:
    explicit DeviceByDevice(const std::vector<Profile>& profiles) {
        for (const Profile& profile : profiles) files_.push_back(Open(profile));
    }

    /// What comes out, 0..65535 but not rounded.
    std::vector<double> Result(const Pixels& source) const {
        std::vector<double> values = StepwiseTruth(Handles())(Samples(source));
        for (double& value : values) value = std::clamp(value / FullScale(files_.back().get()), 0.0, 1.0) * kFull;
        return values;
    }

    /// How far beyond its range, which is 1, the second device's curves answer.
    double FurthestOutside(const Pixels& source) const {
        cmsHPROFILE second = files_[1].get();
        double furthest = 0.0;
        for (const double value : StepwiseTruth({files_[0].get(), second})(Samples(source))) {
            furthest = std::max({furthest, -value / FullScale(second), value / FullScale(second) - 1.0});
        }
        return furthest;
    }

    /// How far what the last device shows lies from the colour that reaches it (CIE 1976).
    std::vector<double> LastDeviceErrors(const Pixels& source) const {
        const LcmsFile lab = LabFile();
        std::vector<cmsHPROFILE> toLab = Handles();
        toLab.back() = lab.get();
        const std::vector<double> asked = StepwiseTruth(toLab)(Samples(source));
        const std::vector<double> shown = StepwiseTruth({lab.get(), files_.back().get(), lab.get()})(asked);
        std::vector<double> errors;
        for (std::size_t i = 0; i < asked.size(); i += 3)
            errors.push_back(std::hypot(asked[i] - shown[i], asked[i + 1] - shown[i + 1], asked[i + 2] - shown[i + 2]));
        return errors;
    }

private:
    std::vector<cmsHPROFILE> Handles() const {
        std::vector<cmsHPROFILE> handles;
        for (const LcmsFile& file : files_) handles.push_back(file.get());
        return handles;
    }
    std::vector<double> Samples(const Pixels& source) const {
        std::vector<double> samples;
        for (const std::uint16_t sample : source) samples.push_back(sample / kFull * FullScale(files_.front().get()));
        return samples;
    }

    std::vector<LcmsFile> files_;
};

// ---- conversions ----

constexpr double kLargest = 2.0;  // of 65535

struct Survey {
    int chains = 0, fused = 0, outside = 0;
    double largest = 0.0, largestFused = 0.0;

    void Print(const std::string& what) const {
        std::printf("    %s: %d chains, %d left the range between; at most %.2f of 65535 away; %d fused, at most %.2f\n", what.c_str(), chains,
                    outside, largest, fused, largestFused);
    }
};

void ExpectDeviceByDevice(const std::string& what, const std::vector<Profile>& profiles, Survey& survey) {
    const std::unique_ptr<ProfileChain> chain = ChainOf(profiles);
    ASSERT_TRUE(chain) << what;
    const std::size_t from = chain->SourceChannels(), to = chain->DestinationChannels();
    const Pixels source = Colours(from);
    const DeviceByDevice truth(profiles);
    const std::vector<double> expected = truth.Result(source);
    ++survey.chains;
    survey.outside += truth.FurthestOutside(source) > 0.01;

    const auto slow = MakeLittleCmsEvaluator(*chain, kPlain16, kPlain16), fused = MakeFusedEvaluator(*chain, kPlain16, kPlain16);
    ASSERT_TRUE(slow) << what;
    for (const PixelEvaluator* evaluator : {slow.get(), fused.get()}) {
        if (!evaluator) continue;
        const bool isFused = evaluator == fused.get();
        Pixels result(expected.size());
        evaluator->ConvertRow(source.data(), result.data(), source.size() / from);
        double& largest = isFused ? survey.largestFused : survey.largest;
        for (std::size_t i = 0; i < result.size(); ++i) {
            const double difference = std::abs(result[i] - expected[i]);
            largest = std::max(largest, difference);
            const std::uint16_t* colour = &source[i / to * from];
            ASSERT_LE(difference, kLargest) << what << " by " << evaluator->Name() << ", colour " << colour[0] << " " << colour[1] << " " << colour[2]
                                            << ": " << result[i] << " for " << expected[i];
        }
        survey.fused += isFused;
    }
}

TEST(DevicesBetweenTest, EveryProfileAtHandHandsOnWhatItsDeviceCanShow) {
    const Profile press = ProfileAt(PrinterNamed("fogra39l").path);
    std::vector<std::string> devices, printers;
    for (const std::string& path : ProfilesAtHand()) {
        if (!ChainOf({Reference(), ProfileAt(path), Reference()})) {
            std::printf("    no device: %s\n", path.c_str());
            continue;
        }
        devices.push_back(path);
        if (cmsGetDeviceClass(Open(ProfileAt(path)).get()) == cmsSigOutputClass) printers.push_back(path);
    }
    EXPECT_GT(printers.size(), Printers().size());
    const bool tryAll = std::getenv("CM_DEEP");  // set by ./test --deep; otherwise the printers take turns
    Survey shown, match, proof, predict;
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const std::string& path = devices[i];
        const std::string name = std::filesystem::path(path).filename();
        const Profile device = ProfileAt(path);
        ExpectDeviceByDevice(name, {Reference(), device, Reference()}, shown);
        for (std::size_t k = 0; k < printers.size(); ++k) {
            if (k != i % printers.size() && !tryAll) continue;
            ExpectDeviceByDevice(name + " before " + printers[k], {Reference(), device, ProfileAt(printers[k])}, match);
        }
        ExpectDeviceByDevice(name + " before a proof", {Reference(), device, press, Reference()}, proof);
        ExpectDeviceByDevice(name + " behind a press", {press, device, Reference()}, predict);
    }
    shown.Print("between reference RGB");
    match.Print("match through a proofer");
    proof.Print("proof through a proofer");
    predict.Print("predict through a proofer");
    EXPECT_GE(shown.outside, 30);
    EXPECT_GE(shown.fused, shown.chains - 5) << "all but the grey ones";
}

/// A device of three colourants.
Profile MadeOfColourants(std::uint32_t version, const Bytes& curve) {
    ProfileMaker maker = MatrixMonitor(curve);
    maker.version = version;
    maker.profileClass = Code("prtr");
    return std::make_shared<const Bytes>(maker.Make());
}

Bytes GammaTable() {
    std::vector<std::uint16_t> entries;
    for (int i = 0; i < 1024; ++i) entries.push_back(static_cast<std::uint16_t>(std::lround(kFull * std::pow(i / 1023.0, 1.8))));
    return CurvTag(entries);
}

enum class Stages { kTables, kFormulas, kFloats };

/// Curves (none for kFloats), matrix, curves, as version 4 has them; on the way to the device far beyond its range.
Profile MadeOfAMatrix(cmsColorSpaceSignature connection, Stages stages) {
    const double toConnection[9] = {0.24, 0.19, 0.07, 0.12, 0.36, 0.03, 0.01, 0.05, 0.36};
    const double toDevice[9] = {5.7, -3.1, -0.85, -1.9, 3.8, 0.05, 0.1, -0.4, 2.8};
    const auto addCurves = [&](cmsPipeline* way, double gamma) {
        cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
        if (stages == Stages::kTables) {
            std::vector<std::uint16_t> entries(256);
            for (std::size_t i = 0; i < 256; ++i) entries[i] = cmsEvalToneCurve16(curve, static_cast<std::uint16_t>(257 * i));
            cmsFreeToneCurve(curve);
            curve = cmsBuildTabulatedToneCurve16(nullptr, 256, entries.data());
        }
        cmsToneCurve* const three[3] = {curve, curve, curve};
        cmsPipelineInsertStage(way, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, three));
        cmsFreeToneCurve(curve);
    };
    const LcmsFile profile(cmsCreateProfilePlaceholder(nullptr));
    cmsSetProfileVersion(profile.get(), 4.3);
    cmsSetDeviceClass(profile.get(), cmsSigOutputClass);
    cmsSetColorSpace(profile.get(), cmsSigRgbData);
    cmsSetPCS(profile.get(), connection);
    const cmsCIEXYZ paper = {0.84, 0.87, 0.74};
    bool isWritten = cmsWriteTag(profile.get(), cmsSigMediaWhitePointTag, &paper);
    for (const bool isToDevice : {false, true}) {
        const std::unique_ptr<cmsPipeline, decltype(&cmsPipelineFree)> way(cmsPipelineAlloc(nullptr, 3, 3), cmsPipelineFree);
        if (stages != Stages::kFloats) addCurves(way.get(), isToDevice ? 1.0 : 1.8);
        cmsPipelineInsertStage(way.get(), cmsAT_END, cmsStageAllocMatrix(nullptr, 3, 3, isToDevice ? toDevice : toConnection, nullptr));
        if (stages != Stages::kFloats) addCurves(way.get(), isToDevice ? 1.0 / 1.8 : 1.0);
        const cmsTagSignature tag =
            stages == Stages::kFloats ? (isToDevice ? cmsSigBToD3Tag : cmsSigDToB3Tag) : (isToDevice ? cmsSigBToA0Tag : cmsSigAToB0Tag);
        isWritten = isWritten && cmsWriteTag(profile.get(), tag, way.get());
    }
    cmsUInt32Number size = 0;
    if (!isWritten || !cmsSaveProfileToMem(profile.get(), nullptr, &size)) throw std::runtime_error("cannot write a profile");
    auto bytes = std::make_shared<Bytes>(size);
    if (!cmsSaveProfileToMem(profile.get(), bytes->data(), &size)) throw std::runtime_error("cannot write a profile");
    return bytes;
}

TEST(DevicesBetweenTest, EveryKindOfDeviceHandsOnWhatItCanShow) {
    const struct {
        const char* what;
        Profile device;
        bool leavesItsRange;
    } rows[] = {
        {"version 2, one gamma", MadeOfColourants(0x02400000, CurvTag({461})), true},
        {"version 2, identity", MadeOfColourants(0x02400000, CurvTag({})), true},
        {"version 2, tables for curves", MadeOfColourants(0x02400000, GammaTable()), false},
        {"version 4, one gamma", MadeOfColourants(0x04200000, ParaTag(0, {1.8})), true},
        {"version 4, formulas", MadeOfColourants(0x04200000, ParaTag(3, {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045})), true},
        {"version 4, tables for curves", MadeOfColourants(0x04200000, GammaTable()), false},
        {"a matrix between formulas, XYZ", MadeOfAMatrix(cmsSigXYZData, Stages::kFormulas), true},
        {"a matrix between formulas, Lab", MadeOfAMatrix(cmsSigLabData, Stages::kFormulas), true},
        {"a matrix between tables, XYZ", MadeOfAMatrix(cmsSigXYZData, Stages::kTables), false},
        {"a matrix between tables, Lab", MadeOfAMatrix(cmsSigLabData, Stages::kTables), false},
        {"float stages, XYZ", MadeOfAMatrix(cmsSigXYZData, Stages::kFloats), true},
        {"float stages, Lab", MadeOfAMatrix(cmsSigLabData, Stages::kFloats), true},
        {"version 2, tables, CMYK", ProfileAt(PrinterNamed("ISOcoated_v2_300_bas").path), false},
        {"version 4, tables, CMYK", ProfileAt(PrinterNamed("ps_cmyk").path), false},
        {"one channel", ProfileAt("/usr/share/color/icc/Gray.icc"), true},
    };
    const Profile monitor = ProfileAt(kFormulaMonitor), press = ProfileAt(PrinterNamed("fogra39l").path);
    for (const auto& row : rows) {
        Survey survey;
        ExpectDeviceByDevice(row.what, {Reference(), row.device, Reference()}, survey);
        EXPECT_EQ(survey.outside == 1, row.leavesItsRange) << row.what;
        ExpectDeviceByDevice(row.what, {Reference(), row.device, press}, survey);
        ExpectDeviceByDevice(row.what, {press, row.device, Reference()}, survey);
        ExpectDeviceByDevice(std::string(row.what) + ", then a monitor", {Reference(), row.device, monitor, Reference()}, survey);
        ExpectDeviceByDevice(std::string(row.what) + ", after a monitor", {Reference(), monitor, row.device, Reference()}, survey);
        survey.Print(row.what);
    }
}

// Only floats can hold such values, and so Little CMS converts them. Nothing is known of such a colour: black is what it becomes.
TEST(DevicesBetweenTest, ValuesThatAreNoNumberBecomeTheLeastThatTheDeviceHas) {
    constexpr PixelFormat kFloats = {PixelFormat::kFloat, PixelFormat::kNone};
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN(), kInfinity = std::numeric_limits<float>::infinity();
    const float source[] = {kNaN, kNaN, kNaN, kNaN, 0.5f, 0.5f, kInfinity, -kInfinity, 0.5f};
    const Profile device = MadeOfAMatrix(cmsSigXYZData, Stages::kFloats);  // does nothing else with them than to multiply and add
    const auto chain = ChainOf({device, device, Reference()});
    const auto evaluator = MakeLittleCmsEvaluator(*chain, kFloats, kFloats);
    float result[9];
    evaluator->ConvertRow(source, result, 3);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(result[i], 0.0f) << i;
}

// ---- the gamut map ----

TEST(DevicesBetweenTest, TheGamutMapTestsWhatTheDeviceBetweenCanShow) {
    constexpr double kUndecided = 0.001;  // differences are single numbers in the fused evaluator
    const Pixels source = Colours(3);
    const std::size_t count = source.size() / 3;
    const auto marks = [&](const PixelEvaluator& evaluator) {
        std::vector<std::uint8_t> bits((count + 7) / 8);
        evaluator.ConvertRow(source.data(), bits.data(), count);
        std::vector<bool> marked;
        for (std::size_t i = 0; i < count; ++i) marked.push_back(bits[i / 8] >> (7 - i % 8) & 1);
        return marked;
    };
    const struct {
        const char* what;
        Profile proofer;
    } proofers[] = {{"formulas", ProfileAt(kFormulaMonitor)},
                    {"identity", MadeOfColourants(0x02400000, CurvTag({}))},
                    {"float stages", MadeOfAMatrix(cmsSigXYZData, Stages::kFloats)},
                    {"version 4, tables, CMYK", ProfileAt(PrinterNamed("ps_cmyk").path)}};
    for (const auto& [what, proofer] : proofers) {
        for (const Printer& printer : Printers()) {
            const std::vector<Profile> profiles = {Reference(), proofer, ProfileAt(printer.path)};
            const auto chain = ChainOf(profiles), direct = ChainOf({profiles.front(), profiles.back()});
            const std::vector<double> errors = DeviceByDevice(profiles).LastDeviceErrors(source);
            const auto slow = platform::MakeGamutMap(*chain, kPlain16), fused = MakeFusedEvaluator(*chain, kPlain16, std::nullopt);
            ASSERT_TRUE(slow && fused) << what << ", " << printer.name;
            for (const PixelEvaluator* evaluator : {slow.get(), fused.get()}) {
                const std::vector<bool> marked = marks(*evaluator);
                EXPECT_NE(marked, marks(*platform::MakeGamutMap(*direct, kPlain16))) << "the device between makes no difference";
                for (std::size_t i = 0; i < count; ++i) {
                    if (std::abs(errors[i] - platform::kGamutThreshold) < kUndecided) continue;
                    ASSERT_EQ(marked[i], errors[i] > platform::kGamutThreshold)
                        << what << " before " << printer.name << " by " << evaluator->Name() << ", colour " << source[3 * i] << " "
                        << source[3 * i + 1] << " " << source[3 * i + 2] << ", difference " << errors[i];
                }
            }
        }
    }
}

}  // namespace
