#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <span>
#include <stdexcept>
#include <string>

#include "platform/linux/ColourChains/FusedCompiler.h"
#include "platform/linux/ColourChains/FusedEvaluator.h"
#include "platform/linux/ColourChains/GamutMap.h"
#include "platform/linux/ColourChains/LittleCmsEvaluator.h"
#include "tests/fixtures/GuardedBytes.h"
#include "tests/fixtures/LcmsTruth.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/Transforms.h"
#include "tests/reference/CIEDE2000.h"

/// The fused evaluator beside Little CMS's un-optimised one, and its instruction sets beside each other.

namespace {

using platform::ChainStep;
using platform::FusedKernels;
using platform::MakeFusedEvaluator;
using platform::MakeLittleCmsEvaluator;
using platform::PixelEvaluator;
using platform::PixelFormat;
using platform::ProfileChain;

using Pixels = std::vector<std::uint16_t>;

constexpr double kFull = 65535.0;
constexpr double kLargest = 2.0;      // of 65535
constexpr double kMostOthers = 1e-4;  // of all samples

std::shared_ptr<const std::vector<std::uint8_t>> BytesOf(const std::string& path) {
    return std::make_shared<const std::vector<std::uint8_t>>(ReadFile(path));
}

std::unique_ptr<ProfileChain> ChainOf(const std::vector<std::string>& paths, cmsUInt32Number intent = INTENT_ABSOLUTE_COLORIMETRIC,
                                      bool blackPointCompensation = false) {
    std::vector<ChainStep> steps;
    for (const std::string& path : paths) steps.push_back({BytesOf(path), intent, blackPointCompensation});
    return ProfileChain::Create(steps);
}

constexpr PixelFormat kPlain16 = {PixelFormat::k16Bit, PixelFormat::kNone};

/// The whole cube, its darkest tenth, neutrals, random colours, and ones beside the ends of the scale; `channels` words a pixel.
Pixels Colours(std::size_t channels) {
    Pixels pixels;
    const int steps = channels == 3 ? 21 : 9;
    const int count = channels == 3 ? steps * steps * steps : steps * steps * steps * steps;
    for (const double scale : {1.0, 0.1}) {
        for (int i = 0; i < count; ++i) {
            for (int c = 0, rest = i; c < static_cast<int>(channels); ++c, rest /= steps) {
                const double value = std::pow(rest % steps / (steps - 1.0), 1.5) * scale * kFull;
                // The dark inks are the full ones.
                const bool isInk = channels == 4 && scale < 1.0;
                pixels.push_back(static_cast<std::uint16_t>(std::lround(isInk ? kFull - value : value)));
            }
        }
    }
    for (int grey = 0; grey < 65536; grey += 37) pixels.insert(pixels.end(), channels, static_cast<std::uint16_t>(grey));
    std::mt19937 generator(20240102);
    for (int i = 0; i < 20000; ++i) {
        for (std::size_t c = 0; c < channels; ++c) pixels.push_back(static_cast<std::uint16_t>(generator()));
    }
    constexpr std::uint16_t kEnds[] = {0, 1, 2, 255, 256, 257, 32767, 32768, 65279, 65280, 65533, 65534, 65535};
    for (int i = 0; i < 4000; ++i) {
        for (std::size_t c = 0; c < channels; ++c) pixels.push_back(kEnds[generator() % std::size(kEnds)]);
    }
    return pixels;
}

Pixels Converted(const PixelEvaluator& evaluator, const Pixels& source, std::size_t from, std::size_t to) {
    const std::size_t count = source.size() / from;
    Pixels result(count * to);
    evaluator.ConvertRow(source.data(), result.data(), count);
    return result;
}

struct Figures {
    double others;   // the share of samples that differ
    double largest;  // in units of 65535
    std::size_t where;
};

Figures Differences(const Pixels& first, const Pixels& second) {
    Figures figures = {};
    for (std::size_t i = 0; i < first.size(); ++i) {
        const double difference = std::abs(first[i] - second[i]);
        figures.others += (difference > 0.0) / static_cast<double>(first.size());
        if (difference > figures.largest) {
            figures.largest = difference;
            figures.where = i;
        }
    }
    return figures;
}

struct Survey {
    int fused = 0, fallback = 0, exact = 0;
};

void CompareOne(const std::string& what, const ProfileChain& chain, Survey& survey) {
    const std::size_t from = chain.SourceChannels(), to = chain.DestinationChannels();
    const std::unique_ptr<PixelEvaluator> slow = MakeLittleCmsEvaluator(chain, kPlain16, kPlain16);
    if (!slow) return;
    const std::unique_ptr<PixelEvaluator> fused = MakeFusedEvaluator(chain, kPlain16, kPlain16);
    if (!fused) {
        ++survey.fallback;
        std::printf("    fallback %s\n", what.c_str());
        return;
    }
    const Pixels source = Colours(from);
    const Pixels ours = Converted(*fused, source, from, to), theirs = Converted(*slow, source, from, to);
    const Figures figures = Differences(ours, theirs);
    ++survey.fused;
    if (figures.largest == 0.0) ++survey.exact;
    std::printf("    fused    %s: max %.0f of 65535, %.6f %% differ\n", what.c_str(), figures.largest, 100.0 * figures.others);
    const std::size_t pixel = figures.where / to;
    EXPECT_LE(figures.largest, kLargest) << what << ", colour " << source[from * pixel] << " " << source[from * pixel + 1] << " "
                                         << source[from * pixel + 2] << ": " << ours[figures.where] << " for " << theirs[figures.where];
    EXPECT_LE(figures.others, kMostOthers) << what;
}

TEST(FusedEvaluatorTest, StandsWithLittleCmsForEveryProfileAtHand) {
    Survey survey;
    for (const std::string& path : ProfilesAtHand()) {
        const std::string name = std::filesystem::path(path).filename();
        for (const auto& [kind, chainPaths] :
             {std::pair{"match", std::vector{kReferenceProfile, path}}, std::pair{"predict", std::vector{path, kReferenceProfile}},
              std::pair{"proof", std::vector{kReferenceProfile, path, kReferenceProfile}}}) {
            const std::unique_ptr<ProfileChain> chain = ChainOf(chainPaths);
            if (chain) CompareOne(name + ", " + kind, *chain, survey);
        }
    }
    std::printf("    %d chains fused (%d of them to the last unit), %d left to Little CMS\n", survey.fused, survey.exact, survey.fallback);
    EXPECT_GT(survey.fused, 0);
}

TEST(FusedEvaluatorTest, StandsWithLittleCmsUnderEveryIntentWithAndWithoutBlackPointCompensation) {
    Survey survey;
    for (const Printer& printer : Printers()) {
        for (const cmsUInt32Number intent : {INTENT_PERCEPTUAL, INTENT_RELATIVE_COLORIMETRIC, INTENT_SATURATION}) {
            for (const bool compensation : {false, true}) {
                const std::string what = printer.name + ", intent " + std::to_string(intent) + (compensation ? ", compensated" : "");
                CompareOne(what + ", match", *ChainOf({kReferenceProfile, printer.path}, intent, compensation), survey);
                CompareOne(what + ", predict", *ChainOf({printer.path, kReferenceProfile}, intent, compensation), survey);
            }
        }
    }
    EXPECT_EQ(survey.fallback, 0);
}

// The curves of a table over XYZ are steepest in the darks, where a unit of XYZ more or less, decided by the last bit of a float after the first
// printer, is some fifty units of ink.
TEST(FusedEvaluatorTest, StandsWithLittleCmsThroughTwoPrinters) {
    Survey survey;
    for (const Printer& proofer : Printers()) {
        for (const Printer& printer : Printers()) {
            CompareOne(proofer.name + " and " + printer.name, *ChainOf({kReferenceProfile, proofer.path, printer.path}), survey);
        }
    }
    EXPECT_EQ(survey.fallback, 0);
}

TEST(FusedEvaluatorTest, ProofsCannotBeToldFromThoseOfLittleCms) {
    constexpr double kLargestDifference = 0.01;  // CIEDE2000
    const LcmsFile reference = OpenLcmsFile(kReferenceProfile), lab = LabFile();
    const LcmsTruth toLab({reference.get(), lab.get()});
    const Pixels source = Colours(3);
    for (const Printer& printer : Printers()) {
        const std::unique_ptr<ProfileChain> chain = ChainOf({kReferenceProfile, printer.path, kReferenceProfile});
        std::vector<double> labs[2];
        for (const auto& [evaluator, result] : {std::pair{MakeFusedEvaluator(*chain, kPlain16, kPlain16), &labs[0]},
                                                std::pair{MakeLittleCmsEvaluator(*chain, kPlain16, kPlain16), &labs[1]}}) {
            ASSERT_TRUE(evaluator) << printer.name;
            std::vector<double> values;
            for (const std::uint16_t sample : Converted(*evaluator, source, 3, 3)) values.push_back(sample / kFull);
            result->resize(values.size());
            toLab.Apply(values.data(), result->data(), values.size() / 3);
        }
        double largest = 0.0;
        for (std::size_t i = 0; i < labs[0].size(); i += 3) {
            largest =
                std::max(largest, reference::CIEDE2000({labs[0][i], labs[0][i + 1], labs[0][i + 2]}, {labs[1][i], labs[1][i + 1], labs[1][i + 2]}));
        }
        std::printf("    %-20s proof: CIEDE2000 max %.4f\n", printer.name.c_str(), largest);
        EXPECT_LE(largest, kLargestDifference) << printer.name;
    }
}

// ---- printers made up for every kind of table ----

struct MadePrinter {
    const char* name;
    double version;
    cmsColorSpaceSignature device, connection;
    bool has8BitTables;
    bool hasFormulas;
};

cmsToneCurve* TableOf(double gamma) {
    const std::unique_ptr<cmsToneCurve, decltype(&cmsFreeToneCurve)> formula(cmsBuildGamma(nullptr, gamma), cmsFreeToneCurve);
    std::vector<std::uint16_t> entries(256);
    for (std::size_t i = 0; i < 256; ++i) entries[i] = cmsEvalToneCurve16(formula.get(), static_cast<std::uint16_t>(257 * i));
    return cmsBuildTabulatedToneCurve16(nullptr, 256, entries.data());
}

void AddCurves(cmsPipeline* pipeline, std::size_t channels, bool areFormulas, double gamma) {
    std::vector<cmsToneCurve*> curves;
    for (std::size_t c = 0; c < channels; ++c) {
        const double own = gamma + 0.1 * static_cast<double>(c);
        // Straight up to 0.125 and without a step there, also when the profile has rounded the numbers to 1 / 65536.
        const double slope = std::pow(0.875 * 0.125 + 0.125, own) / 0.125;
        const double parameters[5] = {own, 0.875, 0.125, slope, 0.125};
        curves.push_back(areFormulas ? cmsBuildParametricToneCurve(nullptr, 4, parameters) : TableOf(own));
    }
    cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, static_cast<cmsUInt32Number>(channels), curves.data()));
    for (cmsToneCurve* curve : curves) cmsFreeToneCurve(curve);
}

/// Any smooth way from some channels to others.
cmsInt32Number Smooth(const cmsUInt16Number in[], cmsUInt16Number out[], void* cargo) {
    const auto* channels = static_cast<const std::pair<std::size_t, std::size_t>*>(cargo);
    for (std::size_t c = 0; c < channels->second; ++c) {
        double sum = 0.0;
        for (std::size_t k = 0; k < channels->first; ++k)
            sum += std::sin(in[k] / kFull * (1.0 + 0.4 * static_cast<double>(c)) + static_cast<double>(k)) / 8.0;
        out[c] = static_cast<std::uint16_t>(std::lround(kFull * std::clamp(0.45 + sum, 0.0, 1.0)));
    }
    return TRUE;
}

/// Curves, grid, curves, matrix, curves as version 4 has them, or curves, grid, curves; in the order for the direction.
std::unique_ptr<cmsPipeline, decltype(&cmsPipelineFree)> TablesOf(const MadePrinter& printer, bool toConnection) {
    const std::size_t device = cmsChannelsOf(printer.device), in = toConnection ? device : 3, out = toConnection ? 3 : device;
    std::unique_ptr<cmsPipeline, decltype(&cmsPipelineFree)> pipeline(
        cmsPipelineAlloc(nullptr, static_cast<cmsUInt32Number>(in), static_cast<cmsUInt32Number>(out)), cmsPipelineFree);
    const double matrix[9] = {0.9, 0.05, 0.0, 0.02, 0.95, 0.03, 0.0, 0.1, 0.85}, offset[3] = {0.01, 0.0, 0.02};
    const auto addMatrix = [&] {
        AddCurves(pipeline.get(), 3, printer.hasFormulas, 1.2);
        cmsPipelineInsertStage(pipeline.get(), cmsAT_END, cmsStageAllocMatrix(nullptr, 3, 3, matrix, offset));
        AddCurves(pipeline.get(), 3, printer.hasFormulas, 0.8);
    };
    const bool hasMatrix = printer.version >= 4.0;
    if (hasMatrix && !toConnection) {
        addMatrix();
    } else {
        AddCurves(pipeline.get(), in, printer.hasFormulas, 0.7);
    }
    cmsStage* grid = cmsStageAllocCLut16bit(nullptr, 9, static_cast<cmsUInt32Number>(in), static_cast<cmsUInt32Number>(out), nullptr);
    std::pair channels{in, out};
    cmsStageSampleCLut16bit(grid, Smooth, &channels, 0);
    cmsPipelineInsertStage(pipeline.get(), cmsAT_END, grid);
    if (hasMatrix && toConnection) {
        addMatrix();
    } else {
        AddCurves(pipeline.get(), out, printer.hasFormulas, 1.3);
    }
    cmsPipelineSetSaveAs8bitsFlag(pipeline.get(), printer.has8BitTables);
    return pipeline;
}

std::shared_ptr<const std::vector<std::uint8_t>> BytesOf(const MadePrinter& printer) {
    const LcmsFile profile(cmsCreateProfilePlaceholder(nullptr));
    cmsSetProfileVersion(profile.get(), printer.version);
    cmsSetDeviceClass(profile.get(), cmsSigOutputClass);
    cmsSetColorSpace(profile.get(), printer.device);
    cmsSetPCS(profile.get(), printer.connection);
    const cmsCIEXYZ paper = {0.84, 0.87, 0.74};
    bool isWritten = cmsWriteTag(profile.get(), cmsSigMediaWhitePointTag, &paper);
    isWritten = isWritten && cmsWriteTag(profile.get(), cmsSigAToB0Tag, TablesOf(printer, true).get());
    isWritten = isWritten && cmsWriteTag(profile.get(), cmsSigBToA0Tag, TablesOf(printer, false).get());
    cmsUInt32Number size = 0;
    if (!isWritten || !cmsSaveProfileToMem(profile.get(), nullptr, &size)) throw std::runtime_error("cannot write a profile");
    auto bytes = std::make_shared<std::vector<std::uint8_t>>(size);
    if (!cmsSaveProfileToMem(profile.get(), bytes->data(), &size)) throw std::runtime_error("cannot write a profile");
    return bytes;
}

std::string TypeOfFirstTable(const std::vector<std::uint8_t>& bytes) {
    for (std::size_t i = 0; i < bytes[131]; ++i) {
        const std::uint8_t* row = &bytes[132 + 12 * i];
        if (std::memcmp(row, "A2B0", 4) == 0)
            return std::string(reinterpret_cast<const char*>(&bytes[std::size_t{row[5]} << 16 | row[6] << 8 | row[7]]), 4);
    }
    return {};
}

TEST(FusedEvaluatorTest, StandsWithLittleCmsForEveryKindOfTable) {
    const struct {
        MadePrinter printer;
        const char* type;
    } rows[] = {{{"16 bits, Lab of version 2", 2.1, cmsSigRgbData, cmsSigLabData, false, false}, "mft2"},
                {{"8 bits, Lab of version 2", 2.1, cmsSigRgbData, cmsSigLabData, true, false}, "mft1"},
                {{"8 bits, CMYK", 2.1, cmsSigCmykData, cmsSigLabData, true, false}, "mft1"},
                {{"16 bits, XYZ", 2.1, cmsSigRgbData, cmsSigXYZData, false, false}, "mft2"},
                {{"version 4, Lab, tables", 4.3, cmsSigRgbData, cmsSigLabData, false, false}, "mAB "},
                {{"version 4, Lab, formulas", 4.3, cmsSigRgbData, cmsSigLabData, false, true}, "mAB "},
                {{"version 4, Lab, formulas, 8 bits", 4.3, cmsSigRgbData, cmsSigLabData, true, true}, "mAB "},
                {{"version 4, XYZ, formulas", 4.3, cmsSigRgbData, cmsSigXYZData, false, true}, "mAB "},
                {{"version 4, CMYK, Lab, formulas", 4.3, cmsSigCmykData, cmsSigLabData, false, true}, "mAB "}};
    const auto reference = BytesOf(kReferenceProfile);
    Survey survey;
    for (const auto& row : rows) {
        const auto printer = BytesOf(row.printer);
        EXPECT_EQ(TypeOfFirstTable(*printer), row.type) << row.printer.name;
        for (const cmsUInt32Number intent : {INTENT_ABSOLUTE_COLORIMETRIC, INTENT_PERCEPTUAL}) {
            const ChainStep ref = {reference, intent, false}, made = {printer, intent, false};
            const std::string what = std::string(row.printer.name) + ", intent " + std::to_string(intent);
            CompareOne(what + ", match", *ProfileChain::Create({ref, made}), survey);
            CompareOne(what + ", predict", *ProfileChain::Create({made, ref}), survey);
            CompareOne(what + ", proof", *ProfileChain::Create({ref, made, ref}), survey);
        }
    }
    EXPECT_EQ(survey.fallback, 0);
    EXPECT_EQ(survey.fused, 54);
}

// ---- steps, from pipelines made up for them ----

struct FreePipeline {
    void operator()(cmsPipeline* pipeline) const { cmsPipelineFree(pipeline); }
};

/// Owns the stages that are put in.
class MadeUp {
public:
    MadeUp(cmsUInt32Number in, cmsUInt32Number out) : pipeline_(cmsPipelineAlloc(nullptr, in, out)) {}

    MadeUp& Add(cmsStage* stage) {
        if (!stage || !cmsPipelineInsertStage(pipeline_.get(), cmsAT_END, stage)) throw std::runtime_error("no stage");
        return *this;
    }
    MadeUp& AddCurves(const std::vector<cmsToneCurve*>& curves) {
        Add(cmsStageAllocToneCurves(nullptr, static_cast<cmsUInt32Number>(curves.size()), curves.data()));
        for (cmsToneCurve* curve : curves) cmsFreeToneCurve(curve);
        return *this;
    }
    cmsPipeline* Get() const { return pipeline_.get(); }

    /// Null when the compiler refuses it.
    std::unique_ptr<const platform::FusedProgram> Compiled() const {
        platform::FusedCompiler compiler;
        return compiler.Append(pipeline_.get()) ? compiler.Finish(true) : nullptr;
    }

private:
    std::unique_ptr<cmsPipeline, FreePipeline> pipeline_;
};

/// Whole codes from 0 to 65535, with neighbours as far apart as can be.
Pixels WildNodes(std::size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    Pixels nodes(count);
    for (std::uint16_t& node : nodes) node = static_cast<std::uint16_t>(generator() % 3 == 0 ? (generator() % 2) * 65535 : generator());
    return nodes;
}

cmsStage* WildGrid(std::initializer_list<cmsUInt32Number> nodes, cmsUInt32Number outputs, unsigned seed) {
    std::size_t count = outputs;
    for (const cmsUInt32Number n : nodes) count *= n;
    return cmsStageAllocCLut16bitGranular(nullptr, std::data(nodes), static_cast<cmsUInt32Number>(nodes.size()), outputs,
                                          WildNodes(count, seed).data());
}

cmsToneCurve* WildTable(cmsUInt32Number entries, unsigned seed) {
    return cmsBuildTabulatedToneCurve16(nullptr, entries, WildNodes(entries, seed).data());
}

cmsToneCurve* Parametric(cmsInt32Number type, std::initializer_list<double> parameters) {
    return cmsBuildParametricToneCurve(nullptr, type, std::data(parameters));
}

Pixels Run(const platform::FusedProgram& program, const FusedKernels& kernels, const Pixels& source, std::uint8_t from, std::uint8_t to) {
    const std::size_t count = source.size() / from;
    Pixels result(count * to);
    platform::FusedBlock block, kept;
    const platform::FusedLayout in = {2, from, 0, from}, out = {2, to, 0, to};
    for (std::size_t done = 0; done < count; done += platform::kFusedBlock) {
        const std::size_t run = std::min(count - done, platform::kFusedBlock);
        kernels.unpack(in, &source[done * from], block, run);
        kernels.run(program.steps.data(), program.steps.size(), block, kept, run);
        kernels.pack(out, block, &result[done * to], run);
    }
    return result;
}

/// The layouts of three channels need a stride that they have: 3 and 4 samples, 4 and 5 for four.
void CompareMadeUp(const char* what, const MadeUp& madeUp, std::uint8_t in, std::uint8_t out, double mostOthers = 0.0) {
    const std::unique_ptr<const platform::FusedProgram> program = madeUp.Compiled();
    ASSERT_TRUE(program) << what;
    const Pixels source = Colours(in);
    Pixels expected(source.size() / in * out);
    for (std::size_t i = 0; i < source.size() / in; ++i) cmsPipelineEval16(&source[i * in], &expected[i * out], madeUp.Get());
    for (const FusedKernels* kernels : platform::RunnableFusedKernels()) {
        const Pixels result = Run(*program, *kernels, source, in, out);
        const Figures figures = Differences(result, expected);
        EXPECT_LE(figures.largest, mostOthers > 0.0 ? 1.0 : 0.0) << what << " by " << NameOf(kernels->set) << ", sample " << figures.where << ": "
                                                                 << result[figures.where] << " for " << expected[figures.where];
        EXPECT_LE(figures.others, mostOthers) << what << " by " << NameOf(kernels->set);
    }
}

TEST(FusedStepsTest, GridsOfThreeInputsGiveTheSameUnits) {
    for (const cmsUInt32Number outputs : {3u, 4u}) {
        const auto out = static_cast<std::uint8_t>(outputs);
        CompareMadeUp("9 nodes", MadeUp(3, outputs).Add(WildGrid({9, 9, 9}, outputs, 1)), 3, out);
        CompareMadeUp("2 nodes", MadeUp(3, outputs).Add(WildGrid({2, 2, 2}, outputs, 2)), 3, out);
        CompareMadeUp("uneven", MadeUp(3, outputs).Add(WildGrid({5, 33, 2}, outputs, 3)), 3, out);
        CompareMadeUp("a long axis", MadeUp(3, outputs).Add(WildGrid({255, 2, 3}, outputs, 4)), 3, out);
    }
}

TEST(FusedStepsTest, GridsOfFourInputsGiveTheSameUnits) {
    for (const cmsUInt32Number outputs : {3u, 4u}) {
        const auto out = static_cast<std::uint8_t>(outputs);
        CompareMadeUp("5 nodes", MadeUp(4, outputs).Add(WildGrid({5, 5, 5, 5}, outputs, 5)), 4, out);
        CompareMadeUp("uneven", MadeUp(4, outputs).Add(WildGrid({2, 9, 3, 4}, outputs, 6)), 4, out);
    }
}

TEST(FusedStepsTest, TablesGiveTheSameUnits) {
    for (const cmsUInt32Number entries : {2u, 3u, 256u, 257u, 1024u, 4096u, 32768u}) {
        MadeUp madeUp(3, 3);
        madeUp.AddCurves({WildTable(entries, 1), WildTable(entries, 2), WildTable(2, 3)});
        CompareMadeUp(std::to_string(entries).c_str(), madeUp, 3, 3);
    }
}

TEST(FusedStepsTest, OneMatrixBetweenWholeNumbersGivesTheSameUnits) {
    const double matrix[9] = {0.4, 0.3, 0.2, 0.2, 0.7, 0.1, -0.1, 0.1, 1.2}, offset[3] = {0.01, -0.02, 0.0};
    CompareMadeUp("matrix", MadeUp(3, 3).Add(cmsStageAllocMatrix(nullptr, 3, 3, matrix, offset)), 3, 3);
    CompareMadeUp("matrix and grid", MadeUp(3, 4).Add(cmsStageAllocMatrix(nullptr, 3, 3, matrix, nullptr)).Add(WildGrid({5, 5, 5}, 4, 1)), 3, 4);
}

TEST(FusedStepsTest, FormulasGiveTheSameUnitsButForARareNeighbour) {
    constexpr double kRarely = 2e-5;
    // Beyond black and white on the way, so that both ends of the functions are asked for.
    const double wide[9] = {1.3, -0.2, -0.1, -0.15, 1.25, -0.1, -0.05, -0.3, 1.35};
    constexpr double kSlope = 1.0 / 12.92, kFactor = 1.0 / 1.055, kOffset = 0.055 / 1.055;
    const struct {
        const char* what;
        cmsInt32Number type;
        std::initializer_list<double> parameters;
    } rows[] = {{"gamma 2.2", 1, {2.2}},
                {"inverse gamma 2.4", -1, {2.4}},
                {"a line below which there is nothing", 2, {2.0, 1.1, -0.1}},
                {"its inverse", -2, {2.0, 0.9, 0.1}},
                {"with a floor", 3, {1.8, 1.1, -0.1, 0.05}},
                {"sRGB", 4, {2.4, kFactor, kOffset, kSlope, 0.04045}},
                {"inverse sRGB", -4, {2.4, kFactor, kOffset, kSlope, 0.04045}},
                {"straight", 4, {1.0, 0.875, 0.125, 1.875, 0.125}},
                {"with a jump", 4, {2.4, 1.0, 0.0, 0.1, 0.5}},
                {"with offsets", 5, {2.0, 0.8, 0.1, 0.3, 0.2, 0.0, 0.0076}},
                {"inverse with offsets", -5, {2.4, kFactor, kOffset, kSlope, 0.04045, 0.01, 0.01}}};
    for (const auto& row : rows) {
        const auto curves = [&] {
            return std::vector{Parametric(row.type, row.parameters), Parametric(row.type, row.parameters), Parametric(1, {1.8})};
        };
        const std::string name = std::string(row.what) + " " + std::to_string(row.type);
        CompareMadeUp(name.c_str(), MadeUp(3, 3).AddCurves(curves()), 3, 3);
        CompareMadeUp((name + " after a matrix").c_str(), MadeUp(3, 3).Add(cmsStageAllocMatrix(nullptr, 3, 3, wide, nullptr)).AddCurves(curves()), 3,
                      3, kRarely);
    }
}

TEST(FusedStepsTest, RefusesWhatItDoesNotKnow) {
    const double four[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, huge[9] = {1e6, 0, 0, 0, 1, 0, 0, 0, 1};
    const std::vector<float> floats(4 * 4 * 4 * 3, 0.5f);
    const auto refused = [](const char* what, const MadeUp& madeUp) { EXPECT_FALSE(madeUp.Compiled()) << what; };
    refused("one channel", MadeUp(1, 1).AddCurves({Parametric(1, {2.0})}));
    refused("six channels", MadeUp(6, 3).Add(WildGrid({2, 2, 2, 2, 2, 2}, 3, 1)));
    refused("five out of a grid", MadeUp(3, 5).Add(WildGrid({3, 3, 3}, 5, 1)));
    refused("float nodes", MadeUp(3, 3).Add(cmsStageAllocCLutFloat(nullptr, 4, 3, 3, floats.data())));
    refused("4 by 4 matrix", MadeUp(4, 4).Add(cmsStageAllocMatrix(nullptr, 4, 4, four, nullptr)));
    refused("a huge factor", MadeUp(3, 3).Add(cmsStageAllocMatrix(nullptr, 3, 3, huge, nullptr)));
    refused("a table too long", MadeUp(3, 3).AddCurves({WildTable(32769, 1), WildTable(2, 1), WildTable(2, 1)}));
    const double wide[9] = {1.5, 0, 0, 0, 1, 0, 0, 0, 1};
    const auto refusedBehindAMatrix = [&](const char* what, cmsToneCurve* curve) {
        refused(what,
                MadeUp(3, 3).Add(cmsStageAllocMatrix(nullptr, 3, 3, wide, nullptr)).AddCurves({curve, Parametric(1, {1.0}), Parametric(1, {1.0})}));
    };
    refusedBehindAMatrix("a formula of no profile", Parametric(108, {2.0}));
    refusedBehindAMatrix("a formula too steep", Parametric(1, {40.0}));
    refusedBehindAMatrix("a formula that bends below 0", Parametric(2, {2.0, 1.0, 0.5}));
    refusedBehindAMatrix("a formula that rises like a wall", Parametric(-3, {1.8, 0.9, 0.1, 0.05}));
}

TEST(FusedEvaluatorTest, LeavesOtherChainsAndFloatSamplesToLittleCms) {
    const PixelFormat floats = {PixelFormat::kFloat, PixelFormat::kNone};
    const std::unique_ptr<ProfileChain> grey = ChainOf({kReferenceProfile, "/usr/share/color/icc/Gray.icc"});
    EXPECT_FALSE(MakeFusedEvaluator(*grey, kPlain16, kPlain16));
    EXPECT_FALSE(MakeFusedEvaluator(*grey, kPlain16, std::nullopt));
    const std::unique_ptr<ProfileChain> chain = ChainOf({kReferenceProfile, PrinterNamed("rgb_printer").path});
    EXPECT_FALSE(MakeFusedEvaluator(*chain, floats, kPlain16));
    EXPECT_FALSE(MakeFusedEvaluator(*chain, kPlain16, floats));
    EXPECT_FALSE(MakeFusedEvaluator(*chain, floats, std::nullopt));
    EXPECT_TRUE(MakeFusedEvaluator(*chain, kPlain16, kPlain16));
}

// ---- formats, runs, instruction sets ----

std::vector<PixelFormat> IntegerFormats() {
    std::vector<PixelFormat> formats;
    for (const PixelFormat::Depth depth : {PixelFormat::k8Bit, PixelFormat::k16Bit}) {
        for (const PixelFormat::Skipped skipped : {PixelFormat::kNone, PixelFormat::kFirst, PixelFormat::kLast}) formats.push_back({depth, skipped});
    }
    return formats;
}

/// What the chains of the system are made of: matrices, formulas, tables of both depths, both connection spaces, three and four channels.
std::vector<std::pair<std::string, std::unique_ptr<ProfileChain>>> Sample() {
    const std::string monitor = "/usr/share/color/icc/colord/sRGB.icc";
    std::vector<std::pair<std::string, std::unique_ptr<ProfileChain>>> chains;
    for (const Printer& printer : Printers()) {
        chains.emplace_back(printer.name + " match", ChainOf({kReferenceProfile, printer.path}));
        chains.emplace_back(printer.name + " predict", ChainOf({printer.path, kReferenceProfile}));
        chains.emplace_back(printer.name + " proof", ChainOf({kReferenceProfile, printer.path, kReferenceProfile}));
    }
    chains.emplace_back("monitor", ChainOf({kReferenceProfile, monitor}));
    chains.emplace_back("from monitor to CMYK", ChainOf({monitor, Printers().front().path}));
    chains.emplace_back("CMYK to CMYK", ChainOf({Printers()[0].path, Printers()[1].path}));
    chains.emplace_back("monitor before CMYK", ChainOf({kReferenceProfile, monitor, Printers().front().path}));
    chains.emplace_back("between reference RGB", ChainOf({kReferenceProfile, monitor, kReferenceProfile}));
    chains.emplace_back("CMYK before a monitor before CMYK", ChainOf({Printers()[0].path, monitor, Printers()[1].path}));
    return chains;
}

std::vector<std::uint8_t> RandomBytes(std::size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    std::vector<std::uint8_t> bytes(count);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(generator());
    return bytes;
}

TEST(FusedEvaluatorTest, ReadsAndWritesEveryIntegerFormatAsLittleCmsDoes) {
    constexpr std::size_t kCount = 1001;
    for (const auto& [name, chain] : Sample()) {
        for (const PixelFormat from : IntegerFormats()) {
            for (const PixelFormat to : IntegerFormats()) {
                const std::vector<std::uint8_t> source = RandomBytes(kCount * from.PixelBytes(chain->SourceChannels()), 3);
                std::vector<std::uint8_t> ours(kCount * to.PixelBytes(chain->DestinationChannels()), 0xA5), theirs = ours;
                const auto fused = MakeFusedEvaluator(*chain, from, to);
                const auto slow = MakeLittleCmsEvaluator(*chain, from, to);
                ASSERT_TRUE(fused && slow) << name;
                fused->ConvertRow(source.data(), ours.data(), kCount);
                slow->ConvertRow(source.data(), theirs.data(), kCount);
                int largest = 0;
                for (std::size_t i = 0; i < ours.size(); i += to.SampleBytes()) {
                    std::uint16_t a = ours[i], b = theirs[i];
                    if (to.depth == PixelFormat::k16Bit) {
                        std::memcpy(&a, &ours[i], 2);
                        std::memcpy(&b, &theirs[i], 2);
                    }
                    largest = std::max(largest, std::abs(a - b));
                }
                EXPECT_LE(largest, to.depth == PixelFormat::k8Bit ? 1 : static_cast<int>(kLargest))
                    << name << ", " << from.Index() << " to " << to.Index();
            }
        }
    }
}

TEST(FusedEvaluatorTest, TheBestSetThatIsAllowedIsUsed) {
    const std::vector<const FusedKernels*> sets = platform::RunnableFusedKernels();
    ASSERT_EQ(sets.front()->set, platform::InstructionSet::kPortable);
    for (std::size_t i = 1; i < sets.size(); ++i) EXPECT_LT(sets[i - 1]->set, sets[i]->set) << NameOf(sets[i]->set);
    const FusedKernels* expected = sets.front();
    for (const FusedKernels* kernels : sets) {
        if (kernels->set <= platform::WidestAllowed()) expected = kernels;
    }
    EXPECT_EQ(&platform::BestFusedKernels(), expected);
}

void ExpectSameBytesOfEverySet(const std::string& name, const ProfileChain& chain, PixelFormat from, std::optional<PixelFormat> to) {
    const Pixels colours = Colours(chain.SourceChannels());
    const std::size_t count = 2 * colours.size() / from.PixelBytes(chain.SourceChannels());
    std::vector<std::uint8_t> first;
    for (const FusedKernels* kernels : platform::RunnableFusedKernels()) {
        const auto evaluator = MakeFusedEvaluator(chain, from, to, *kernels);
        if (!evaluator && first.empty()) return;  // left to Little CMS
        ASSERT_TRUE(evaluator) << name;
        std::vector<std::uint8_t> result(to ? count * to->PixelBytes(chain.DestinationChannels()) : (count + 7) / 8, 0x5A);
        evaluator->ConvertRow(colours.data(), result.data(), count);
        if (first.empty()) first = result;
        EXPECT_TRUE(result == first) << name << " by " << evaluator->Name();
    }
}

TEST(FusedEvaluatorTest, EveryInstructionSetGivesTheSameBytes) {
    const std::vector<const FusedKernels*> sets = platform::RunnableFusedKernels();
    std::printf("    tried:");
    for (const FusedKernels* kernels : sets) std::printf(" %s", NameOf(kernels->set));
    std::printf("%s\n", sets.size() < 3 ? "; this processor has no more" : "");
    for (const auto& [name, chain] : Sample()) {
        for (const auto& [from, to] : {std::pair{kPlain16, std::optional{kPlain16}}, std::pair{kPlain16, std::optional<PixelFormat>{}},
                                       std::pair{kPlain16, std::optional{PixelFormat{PixelFormat::k8Bit, PixelFormat::kFirst}}},
                                       std::pair{PixelFormat{PixelFormat::k8Bit, PixelFormat::kLast}, std::optional{kPlain16}}}) {
            ASSERT_TRUE(MakeFusedEvaluator(*chain, from, to)) << name;
            ExpectSameBytesOfEverySet(name, *chain, from, to);
        }
    }
}

TEST(FusedEvaluatorTest, EveryInstructionSetGivesTheSameBytesForEveryProfileAtHand) {
    for (const std::string& path : ProfilesAtHand()) {
        for (const auto& paths :
             {std::vector{kReferenceProfile, path}, std::vector{path, kReferenceProfile}, std::vector{kReferenceProfile, path, kReferenceProfile}}) {
            const std::unique_ptr<ProfileChain> chain = ChainOf(paths);
            if (!chain) continue;
            ExpectSameBytesOfEverySet(path, *chain, kPlain16, kPlain16);
            ExpectSameBytesOfEverySet(path, *chain, kPlain16, std::nullopt);
        }
    }
}

/// Source and destination end at an inaccessible page.
TEST(FusedEvaluatorTest, AnswersForAPixelDoNotDependOnTheRunAndNothingOutsideIsTouched) {
    constexpr std::size_t kLongest = 300;
    for (const auto& [name, chain] : Sample()) {
        for (const FusedKernels* kernels : platform::RunnableFusedKernels()) {
            for (const PixelFormat format : IntegerFormats()) {
                const std::size_t fromBytes = format.PixelBytes(chain->SourceChannels()), toBytes = format.PixelBytes(chain->DestinationChannels());
                const auto evaluator = MakeFusedEvaluator(*chain, format, format, *kernels);
                const std::vector<std::uint8_t> source = RandomBytes(kLongest * fromBytes, 4);
                std::vector<std::uint8_t> whole(kLongest * toBytes, 0x5A);
                evaluator->ConvertRow(source.data(), whole.data(), kLongest);
                for (const std::size_t length : {1, 2, 3, 7, 15, 16, 17, 31, 33, 127, 128, 129, 255, 257}) {
                    const GuardedBytes in(std::span<const std::uint8_t>(source).last(length * fromBytes));
                    const GuardedBytes out(std::vector<std::uint8_t>(length * toBytes, 0x5A));
                    evaluator->ConvertRow(in.Data(), out.Data(), length);
                    ASSERT_EQ(std::memcmp(out.Data(), &whole[(kLongest - length) * toBytes], length * toBytes), 0)
                        << name << " by " << evaluator->Name() << ", format " << format.Index() << ", " << length << " pixels";
                }
            }
        }
    }
}

TEST(FusedEvaluatorTest, SkippedSamplesAreLeftAlone) {
    const std::unique_ptr<ProfileChain> chain = ChainOf({kReferenceProfile, PrinterNamed("fogra39l").path});
    for (const FusedKernels* kernels : platform::RunnableFusedKernels()) {
        for (const PixelFormat::Skipped skipped : {PixelFormat::kFirst, PixelFormat::kLast}) {
            const auto evaluator = MakeFusedEvaluator(*chain, kPlain16, PixelFormat{PixelFormat::k8Bit, skipped}, *kernels);
            const std::vector<std::uint8_t> source = RandomBytes(200 * 6, 5);
            std::vector<std::uint8_t> result(200 * 5, 0x77);
            evaluator->ConvertRow(source.data(), result.data(), 200);
            for (std::size_t i = 0; i < 200; ++i) ASSERT_EQ(result[5 * i + (skipped == PixelFormat::kFirst ? 0 : 4)], 0x77) << NameOf(kernels->set);
        }
    }
}

// ---- the gamut map ----

/// Colours whose difference lies so near to the threshold may be answered otherwise, as the fused evaluator takes it in single precision.
constexpr double kUndecided = 0.001;

TEST(FusedEvaluatorTest, MarksWhatTheRoundTripThroughLittleCmsMarks) {
    const LcmsFile reference = OpenLcmsFile(kReferenceProfile), lab = LabFile();
    for (const Printer& choice : Printers()) {
        const std::unique_ptr<ProfileChain> chain = ChainOf({kReferenceProfile, choice.path});
        const auto fused = MakeFusedEvaluator(*chain, kPlain16, std::nullopt);
        const auto slow = platform::MakeGamutMap(*chain, kPlain16);
        ASSERT_TRUE(fused && slow) << choice.name;
        const LcmsFile printer = OpenLcmsFile(choice.path);
        const LcmsTruth toLab({reference.get(), lab.get()}), toPrinter({lab.get(), printer.get()}), fromPrinter({printer.get(), lab.get()});
        const Pixels source = Colours(3);
        const std::size_t count = source.size() / 3;
        std::vector<std::uint8_t> ours((count + 7) / 8), theirs((count + 7) / 8);
        fused->ConvertRow(source.data(), ours.data(), count);
        slow->ConvertRow(source.data(), theirs.data(), count);
        std::size_t others = 0, marked = 0;
        double furthest = 0.0;
        for (std::size_t i = 0; i < count; ++i) {
            const unsigned bit = 0x80u >> i % 8;
            marked += (ours[i / 8] & bit) != 0;
            if ((ours[i / 8] & bit) == (theirs[i / 8] & bit)) continue;
            ++others;
            const double rgb[3] = {source[3 * i] / kFull, source[3 * i + 1] / kFull, source[3 * i + 2] / kFull};
            double asked[3], inks[4], shown[3];
            toLab.Apply(rgb, asked, 1);
            toPrinter.Apply(asked, inks, 1);
            fromPrinter.Apply(inks, shown, 1);
            const double difference = std::hypot(asked[0] - shown[0], asked[1] - shown[1], asked[2] - shown[2]);
            furthest = std::max(furthest, std::abs(difference - platform::kGamutThreshold));
        }
        std::printf("    %-20s %zu of %zu out, %zu answered otherwise, at most %.4f from the threshold\n", choice.name.c_str(), marked, count, others,
                    furthest);
        EXPECT_LE(furthest, kUndecided) << choice.name;
        EXPECT_LE(others, count / 2000) << choice.name;
        EXPECT_GT(marked, 0u);
        EXPECT_LT(marked, count);
        EXPECT_EQ(ours.back() & (0xFFu >> (count - 1) % 8 >> 1), 0u) << "unused bits";
    }
}

}  // namespace
