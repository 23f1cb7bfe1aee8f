/// Printer transforms beside Little CMS's un-optimised evaluation and beside a copy of the same bytes.
///
/// One thread, its own CPU time; the contenders take turns, run by run.
///
///     PrinterTransforms [runs]

#include <lcms2.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/NaturalImage.h"
#include "bench/Race.h"
#include "platform/linux/ColourChains/FusedEvaluator.h"
#include "platform/linux/ColourChains/GamutMap.h"
#include "platform/linux/ColourChains/LittleCmsEvaluator.h"

namespace {

using bench::Contender;
using platform::PixelEvaluator;
using platform::PixelFormat;
using platform::ProfileChain;

constexpr std::size_t kSide = 256, kPixels = kSide * kSide;
constexpr const char* kGroup = "Printer transforms, 256 by 256 pixels of a natural image";
constexpr const char* kShortRuns = "Printer transforms, short runs of a natural image";

int gRuns = 7;

/// The last contender but one is what the others are compared with, the last one the copy.
void Race(const std::string& name, const std::string& printer, const std::vector<Contender>& contenders) {
    bench::Race(kGroup, name + ", " + printer, "Mpixel/s", kPixels * 1e-6, gRuns, contenders, contenders[contenders.size() - 2].name);
}

std::shared_ptr<const std::vector<std::uint8_t>> ReadProfile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return std::make_shared<const std::vector<std::uint8_t>>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::unique_ptr<ProfileChain> ChainOf(const std::vector<std::string>& paths) {
    std::vector<platform::ChainStep> steps;
    for (const std::string& path : paths) steps.push_back({ReadProfile(path), INTENT_ABSOLUTE_COLORIMETRIC, false});
    std::unique_ptr<ProfileChain> chain = ProfileChain::Create(steps);
    if (!chain) throw std::runtime_error("no chain from " + paths.front());
    return chain;
}

PixelFormat Format16(std::size_t channels) {
    return {PixelFormat::k16Bit, channels == 3 ? PixelFormat::kLast : PixelFormat::kNone};
}

/// The printer's side of the 8-bit operations.
PixelFormat Format8(std::size_t channels) {
    return {PixelFormat::k8Bit, channels == 3 ? PixelFormat::kFirst : PixelFormat::kNone};
}

Contender CopyOf(const std::vector<std::uint16_t>& image, std::vector<std::uint16_t>& result) {
    return {"copy", [&] {
                std::memcpy(result.data(), image.data(), image.size() * sizeof image[0]);
                bench::KeepWritten(result.data());
            }};
}

/// Every set of kernels that runs and knows the chain, and Little CMS last.
std::vector<std::unique_ptr<PixelEvaluator>> EvaluatorsOf(const ProfileChain& chain, PixelFormat from, PixelFormat to) {
    std::vector<std::unique_ptr<PixelEvaluator>> evaluators;
    for (const platform::FusedKernels* kernels : platform::RunnableFusedKernels()) {
        if (auto evaluator = platform::MakeFusedEvaluator(chain, from, to, *kernels)) evaluators.push_back(std::move(evaluator));
    }
    evaluators.push_back(platform::MakeLittleCmsEvaluator(chain, from, to));
    return evaluators;
}

enum class Depths { k16To16, k16To8, k8To16 };

void RaceConversion(const std::string& name, const std::string& condition, const std::vector<std::string>& paths, Depths depths = Depths::k16To16) {
    const std::unique_ptr<ProfileChain> chain = ChainOf(paths);
    const std::size_t channelsIn = chain->SourceChannels(), channelsOut = chain->DestinationChannels();
    const PixelFormat from = depths == Depths::k8To16 ? Format8(channelsIn) : Format16(channelsIn);
    const PixelFormat to = depths == Depths::k16To8 ? Format8(channelsOut) : Format16(channelsOut);
    const std::vector<std::uint16_t> image = bench::NaturalImage(kSide, channelsIn, 4);
    std::vector<std::uint8_t> bytes(image.size());
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(image[i - (from.skipped == PixelFormat::kFirst && i > 0)] >> 8);
    const void* const source = depths == Depths::k8To16 ? static_cast<const void*>(bytes.data()) : image.data();
    std::vector<std::uint16_t> result(image.size());
    const std::vector<std::unique_ptr<PixelEvaluator>> evaluators = EvaluatorsOf(*chain, from, to);
    std::vector<Contender> contenders;
    for (const auto& evaluator : evaluators) {
        contenders.push_back({evaluator->Name(), [&, e = evaluator.get()] { e->ConvertRow(source, result.data(), kPixels); }});
    }
    contenders.push_back(CopyOf(image, result));
    Race(name, condition, contenders);
}

/// All pixels in calls of `run` pixels, one after the other.
void RaceShortRuns(const std::string& name, std::size_t run, const std::vector<std::string>& paths) {
    const std::unique_ptr<ProfileChain> chain = ChainOf(paths);
    const PixelFormat from = Format16(chain->SourceChannels()), to = Format16(chain->DestinationChannels());
    const std::vector<std::uint16_t> image = bench::NaturalImage(kSide, chain->SourceChannels(), 4);
    std::vector<std::uint16_t> result(image.size());
    const std::vector<std::unique_ptr<PixelEvaluator>> evaluators = EvaluatorsOf(*chain, from, to);
    std::vector<Contender> contenders;
    for (const auto& evaluator : evaluators) {
        contenders.push_back({evaluator->Name(), [&, run, e = evaluator.get()] {
                                  for (std::size_t i = 0; i + run <= kPixels; i += run) e->ConvertRow(&image[4 * i], &result[4 * i], run);
                              }});
    }
    bench::Race(kShortRuns, name + ", " + std::to_string(run), "Mpixel/s", kPixels * 1e-6, gRuns, contenders, contenders.back().name);
}

/// The peer is the engine's own gamut transform, which marks otherwise and writes whole bytes.
void RaceGamut(const std::string& condition, const std::vector<std::string>& paths) {
    const std::unique_ptr<ProfileChain> chain = ChainOf(paths);
    const std::vector<std::uint16_t> image = bench::NaturalImage(kSide, 3, 4);
    std::vector<std::uint16_t> result(image.size());
    std::vector<std::unique_ptr<PixelEvaluator>> evaluators;
    for (const platform::FusedKernels* kernels : platform::RunnableFusedKernels()) {
        evaluators.push_back(platform::MakeFusedEvaluator(*chain, Format16(3), std::nullopt, *kernels));
    }
    evaluators.push_back(platform::MakeGamutMap(*chain, Format16(3)));

    cmsHPROFILE reference = cmsOpenProfileFromFile(paths[0].c_str(), "r"), printer = cmsOpenProfileFromFile(paths[1].c_str(), "r");
    const cmsUInt32Number out = cmsChannelsOf(cmsGetColorSpace(printer)) == 4 ? TYPE_CMYK_16 : TYPE_RGBA_16;
    cmsHTRANSFORM engine = cmsCreateProofingTransform(reference, TYPE_RGBA_16, printer, out, printer, INTENT_ABSOLUTE_COLORIMETRIC,
                                                      INTENT_ABSOLUTE_COLORIMETRIC, cmsFLAGS_GAMUTCHECK | cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE);
    if (!engine) throw std::runtime_error("no gamut transform");
    std::vector<Contender> contenders;
    for (const auto& evaluator : evaluators) {
        if (!evaluator) continue;
        contenders.push_back({evaluator->Name(), [&, e = evaluator.get()] { e->ConvertRow(image.data(), result.data(), kPixels); }});
    }
    contenders.push_back({"Little CMS gamut check", [&] { cmsDoTransform(engine, image.data(), result.data(), kPixels); }});
    contenders.push_back(CopyOf(image, result));
    Race("gamut", condition, contenders);
    cmsDeleteTransform(engine);
    cmsCloseProfile(printer);
    cmsCloseProfile(reference);
}

}  // namespace

int main(int count, char** arguments) {
    if (count > 1) gRuns = std::max(1, std::atoi(arguments[1]));
    bench::PrintNote(kGroup,
                     "16 bits a sample unless said, absolute colorimetric, one thread, its own CPU time. Little CMS is asked not to optimise, and "
                     "holds the values "
                     "of a device between in their range as the others do; the gamut check is its own, which marks by another rule.");
    const std::string reference = CM_BINARY_DIR "/lib/colourmatch-2/MatrixCalRGB.icc";
    const std::string profiles = CM_TEST_DATA "/profiles/";
    struct {
        const char* name;
        std::string path;
    } const printers[] = {{"FOGRA39L (17 nodes)", profiles + "fogra39l.icc"},
                          {"ISO coated (33 nodes)", profiles + "ISOcoated_v2_300_bas.icc"},
                          {"RGB printer", profiles + "rgb-printer.icc"}};
    for (const auto& printer : printers) {
        RaceConversion("match", printer.name, {reference, printer.path});
        RaceConversion("match to 8 bits", printer.name, {reference, printer.path}, Depths::k16To8);
        RaceConversion("predict", printer.name, {printer.path, reference});
        RaceConversion("predict from 8 bits", printer.name, {printer.path, reference}, Depths::k8To16);
        RaceConversion("proof", printer.name, {reference, printer.path, reference});
        RaceGamut(printer.name, {reference, printer.path});
    }
    struct {
        const char* name;
        std::string path;
    } const proofers[] = {{"parametric sRGB", "/usr/share/color/icc/colord/sRGB.icc"},
                          {"sRGB of tables", "/usr/share/color/icc/sRGB.icc"},
                          {"Adobe RGB", "/usr/share/color/icc/colord/AdobeRGB1998.icc"},
                          {"CMYK of version 4", "/usr/share/color/icc/ghostscript/ps_cmyk.icc"},
                          {"ISO coated", printers[1].path}};
    for (const auto& proofer : proofers) {
        const std::string condition = std::string(proofer.name) + " before FOGRA39L";
        RaceConversion("match through a proofer", condition, {reference, proofer.path, printers[0].path});
        RaceConversion("proof through a proofer", condition, {reference, proofer.path, printers[0].path, reference});
    }
    bench::PrintNote(kShortRuns, "FOGRA39L, as many pixels a call as each row says.");
    for (const std::size_t run : {1, 7, 64}) {
        RaceShortRuns("match", run, {reference, printers[0].path});
        RaceShortRuns("predict", run, {printers[0].path, reference});
        RaceShortRuns("proof", run, {reference, printers[0].path, reference});
    }
    return EXIT_SUCCESS;
}
