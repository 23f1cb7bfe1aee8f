/// Printer transforms beside Little CMS's un-optimised evaluation and beside a copy of the same bytes.
///
/// One thread, its own CPU time; the contenders take turns, run by run.
///
///     PrinterTransforms [runs]

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Rows.h"
#include "platform/linux/FusedEvaluator.h"
#include "platform/linux/GamutTest.h"
#include "platform/linux/LittleCmsEvaluator.h"

namespace {

using platform::PixelEvaluator;
using platform::PixelFormat;
using platform::ProfileChain;

constexpr std::size_t kSide = 256, kPixels = kSide * kSide;
constexpr const char* kGroup = "Printer transforms, 256 by 256 pixels of a natural image";
constexpr double kShortestRound = 0.1;  // seconds for each contender

double CpuSeconds() {
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

struct Contender {
    std::string name;
    std::function<void()> convertOnce;  // kPixels
    std::size_t repeats = 1;
    std::vector<double> rates = {};  // Mpixel a second

    double Round() const {
        const double start = CpuSeconds();
        for (std::size_t i = 0; i < repeats; ++i) convertOnce();
        return static_cast<double>(repeats) * kPixels / (CpuSeconds() - start) * 1e-6;
    }
};

int gRuns = 7;

/// The last contender but one is what the others are compared with, the last one the copy.
void Race(const std::string& name, const std::string& printer, std::vector<Contender> contenders) {
    for (Contender& contender : contenders) {
        const double rate = contender.Round();
        contender.repeats = std::max<std::size_t>(1, static_cast<std::size_t>(kShortestRound * rate * 1e6 / kPixels));
    }
    for (int run = 0; run < gRuns; ++run) {
        for (Contender& contender : contenders) contender.rates.push_back(contender.Round());
    }
    const Contender& peer = contenders[contenders.size() - 2];
    for (const Contender& contender : contenders) {
        bench::Row row = {kGroup, name + ", " + printer, contender.name, "Mpixel/s", contender.rates};
        if (&contender != &peer) {
            row.ratioTo = peer.name;
            row.ratio = bench::Median(contender.rates) / bench::Median(peer.rates);
        }
        bench::Print(row);
    }
}

/// Four octaves of smooth noise with a little grain, its channels much alike: 0..1.
std::vector<double> NaturalPlane(std::mt19937& generator) {
    std::uniform_real_distribution<double> any(0.0, 1.0);
    std::vector<double> plane(kPixels, 0.0);
    double weight = 0.5;
    for (std::size_t cells = 4; cells <= 32; cells *= 2, weight /= 2.0) {
        std::vector<double> lattice((cells + 1) * (cells + 1));
        for (double& node : lattice) node = any(generator);
        for (std::size_t i = 0; i < kPixels; ++i) {
            const double x = static_cast<double>(i % kSide) / kSide * static_cast<double>(cells);
            const double y = static_cast<double>(i / kSide) / kSide * static_cast<double>(cells);
            const auto column = static_cast<std::size_t>(x), row = static_cast<std::size_t>(y);
            const double* node = &lattice[row * (cells + 1) + column];
            const double fx = x - std::floor(x), fy = y - std::floor(y);
            const double top = node[0] + (node[1] - node[0]) * fx;
            const double bottom = node[cells + 1] + (node[cells + 2] - node[cells + 1]) * fx;
            plane[i] += weight * (top + (bottom - top) * fy);
        }
    }
    return plane;
}

/// `samples` words a pixel, of which `channels` are used.
std::vector<std::uint16_t> NaturalImage(std::size_t channels, std::size_t samples) {
    std::mt19937 generator(7);
    std::uniform_real_distribution<double> grain(-0.006, 0.006);
    const std::vector<double> common = NaturalPlane(generator);
    std::vector<std::uint16_t> image(kPixels * samples);
    for (std::size_t c = 0; c < channels; ++c) {
        const std::vector<double> own = NaturalPlane(generator);
        for (std::size_t i = 0; i < kPixels; ++i) {
            const double seen = std::clamp(0.7 * common[i] + 0.3 * own[i] + grain(generator), 0.0, 1.0);
            // Light is linear in the reference space, ink is not.
            const double value = channels == 3 ? std::pow(seen, 2.2) : seen * (c == 3 ? 0.4 : 0.9);
            image[samples * i + c] = static_cast<std::uint16_t>(std::lround(65535.0 * value));
        }
    }
    return image;
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

Contender CopyOf(const std::vector<std::uint16_t>& image, std::vector<std::uint16_t>& result) {
    return {"copy", [&] { std::memcpy(result.data(), image.data(), image.size() * sizeof image[0]); }};
}

void RaceConversion(const std::string& name, const std::string& condition, const std::vector<std::string>& paths) {
    const std::unique_ptr<ProfileChain> chain = ChainOf(paths);
    const PixelFormat from = Format16(chain->SourceChannels()), to = Format16(chain->DestinationChannels());
    const std::vector<std::uint16_t> image = NaturalImage(chain->SourceChannels(), 4);
    std::vector<std::uint16_t> result(image.size());
    std::vector<std::unique_ptr<PixelEvaluator>> evaluators;
    for (const platform::FusedKernels* kernels : platform::RunnableFusedKernels()) {
        evaluators.push_back(platform::MakeFusedEvaluator(*chain, from, to, *kernels));
    }
    evaluators.push_back(platform::MakeLittleCmsEvaluator(*chain, from, to));
    std::vector<Contender> contenders;
    for (const auto& evaluator : evaluators) {
        if (!evaluator) continue;
        contenders.push_back({evaluator->Name(), [&, e = evaluator.get()] { e->ConvertRow(image.data(), result.data(), kPixels); }});
    }
    contenders.push_back(CopyOf(image, result));
    Race(name, condition, std::move(contenders));
}

/// The peer is the engine's own gamut transform, which marks otherwise and writes whole bytes.
void RaceGamut(const std::string& condition, const std::vector<std::string>& paths) {
    const std::unique_ptr<ProfileChain> chain = ChainOf(paths);
    const std::vector<std::uint16_t> image = NaturalImage(3, 4);
    std::vector<std::uint16_t> result(image.size());
    std::vector<std::unique_ptr<PixelEvaluator>> evaluators;
    for (const platform::FusedKernels* kernels : platform::RunnableFusedKernels()) {
        evaluators.push_back(platform::MakeFusedEvaluator(*chain, Format16(3), std::nullopt, *kernels));
    }
    evaluators.push_back(platform::MakeGamutTest(*chain, Format16(3)));

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
    Race("gamut", condition, std::move(contenders));
    cmsDeleteTransform(engine);
    cmsCloseProfile(printer);
    cmsCloseProfile(reference);
}

}  // namespace

int main(int count, char** arguments) {
    if (count > 1) gRuns = std::max(1, std::atoi(arguments[1]));
    bench::PrintNote(kGroup,
                     "16 bits a sample, absolute colorimetric, one thread, its own CPU time. Little CMS is asked not to optimise; the gamut check is "
                     "its own, which marks by another rule.");
    const std::string reference = CM_BINARY_DIR "/lib/colourmatch/MatrixCalRGB.icc";
    const std::string profiles = CM_TEST_DATA "/profiles/";
    struct {
        const char* name;
        std::string path;
    } const printers[] = {{"FOGRA39L (17 nodes)", profiles + "fogra39l.icc"},
                          {"ISO coated (33 nodes)", profiles + "ISOcoated_v2_300_bas.icc"},
                          {"RGB printer", profiles + "rgb-printer.icc"}};
    for (const auto& printer : printers) {
        RaceConversion("match", printer.name, {reference, printer.path});
        RaceConversion("predict", printer.name, {printer.path, reference});
        RaceConversion("proof", printer.name, {reference, printer.path, reference});
        RaceGamut(printer.name, {reference, printer.path});
    }
    return EXIT_SUCCESS;
}
