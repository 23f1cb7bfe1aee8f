// The pixel converters: each set of kernels against the formula written straight and against a plain copy of as many pixels.
//
//     PixelMapping [runs]

#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

#include "appearance/kernels/PixelKernels.h"
#include "bench/NaturalImage.h"
#include "bench/Race.h"

namespace {

using bench::Contender;

constexpr std::size_t kSide = 256, kLargeSide = 4096;

std::vector<uint16_t> RandomImage(std::size_t side) {
    std::mt19937 random(4);
    std::vector<uint16_t> image(4 * side * side);
    for (uint16_t& word : image) word = static_cast<uint16_t>(random());
    return image;
}

struct Operation {
    const char* name;
    std::function<void(const PixelKernels&, std::size_t first, std::size_t count)> run;
};

/// Two tables of random nodes over the whole range, and what is mapped through them.
struct Bench {
    PixelTable words{}, bytes{};
    std::vector<uint16_t> wordsIn, deviceIn, wordsOut;
    std::vector<uint8_t> bytesIn, bytesOut;

    explicit Bench(uint32_t bits) {
        if (CreateTablePixel16(bits, &words) != 0 || CreateTableUInt8(bits, &bytes) != 0) std::abort();
        for (PixelTable* table : {&words, &bytes}) table->scale = {{65535, 65535, 65535}, {0, 0, 0}};
        std::mt19937 random(5);
        const std::size_t axis = (std::size_t{1} << bits) + 2, nodes = axis * axis * axis;
        for (std::size_t i = 0; i < 4 * nodes; ++i) static_cast<uint16_t*>(words.table)[i] = static_cast<uint16_t>(random());
        for (std::size_t i = 0; i < nodes; ++i) static_cast<uint8_t*>(bytes.table)[i] = static_cast<uint8_t>(random());
    }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;
    ~Bench() {
        DisposeTablePixel16(&words);
        DisposeTableUInt8(&bytes);
    }

    void Take(std::vector<uint16_t> reference, std::vector<uint16_t> device) {
        wordsIn = std::move(reference);
        deviceIn = std::move(device);
        bytesIn.resize(deviceIn.size());
        for (std::size_t i = 0; i < bytesIn.size(); ++i) bytesIn[i] = static_cast<uint8_t>(deviceIn[i] >> 8);
        wordsOut.assign(wordsIn.size(), 0);
        bytesOut.assign(wordsIn.size(), 0);
    }
    std::size_t Pixels() const { return wordsIn.size() / 4; }

    std::vector<Operation> Operations() {
        return {
            {"MapPixel16ToDevice16",
             [this](const PixelKernels& k, std::size_t i, std::size_t n) { k.pixel16ToDevice16(&words, &wordsIn[4 * i], &wordsOut[4 * i], n); }},
            {"MapPixel16ToPixel8",
             [this](const PixelKernels& k, std::size_t i, std::size_t n) { k.pixel16ToPixel8(&words, &wordsIn[4 * i], &bytesOut[4 * i], n); }},
            {"MapDevice8ToPixel16",
             [this](const PixelKernels& k, std::size_t i, std::size_t n) { k.device8ToPixel16(&words, &bytesIn[4 * i], &wordsOut[4 * i], n); }},
            {"MapDevice16ToPixel16",
             [this](const PixelKernels& k, std::size_t i, std::size_t n) { k.device16ToPixel16(&words, &deviceIn[4 * i], &wordsOut[4 * i], n); }},
            {"MapPixel16ToUInt8",
             [this](const PixelKernels& k, std::size_t i, std::size_t n) { k.pixel16ToUInt8(&bytes, &wordsIn[4 * i], &bytesOut[i], n); }},
        };
    }

    /// The operation over everything, `run` pixels a call, by every set of kernels; and a copy of the pixels.
    std::vector<Contender> Contenders(const Operation& operation, std::size_t run) {
        std::vector<Contender> contenders;
        for (const PixelKernels* kernels : AllPixelKernels()) {
            if (!platform::ProcessorRuns(kernels->set)) continue;
            contenders.push_back({NameOf(kernels->set), [this, operation, kernels, run] {
                                      for (std::size_t i = 0; i + run <= Pixels(); i += run) operation.run(*kernels, i, run);
                                  }});
        }
        contenders.push_back({"copy", [this] {
                                  std::memcpy(wordsOut.data(), wordsIn.data(), sizeof wordsIn[0] * wordsIn.size());
                                  bench::KeepWritten(wordsOut.data());
                              }});
        return contenders;
    }
};

}  // namespace

int main(int count, char** arguments) {
    const int runs = count > 1 ? std::max(1, std::atoi(arguments[1])) : 9;
    const char* const kUnit = "Mpixel/s";

    const std::string group = "Pixel converters, 256 by 256 pixels, tables of 65 nodes an axis";
    bench::PrintNote(group, "One thread, its own CPU time. plain is the defining formula at -O2; copy moves as many pixels of four 16-bit words.");
    Bench usual(6);
    for (const bool natural : {true, false}) {
        usual.Take(natural ? bench::NaturalImage(kSide, 3, 4) : RandomImage(kSide), natural ? bench::NaturalImage(kSide, 4, 4) : RandomImage(kSide));
        for (const Operation& operation : usual.Operations()) {
            bench::Race(group, operation.name + std::string(natural ? ", natural" : ", random colours"), kUnit, 1e-6 * kSide * kSide, runs,
                        usual.Contenders(operation, kSide * kSide), "plain");
        }
    }

    const std::string shortRuns = "Pixel converters, short runs of a natural image";
    bench::PrintNote(shortRuns, "As many pixels a call as each row says.");
    usual.Take(bench::NaturalImage(kSide, 3, 4), bench::NaturalImage(kSide, 4, 4));
    for (const Operation& operation : usual.Operations()) {
        for (const std::size_t run : {1, 7, 64, 512}) {
            std::vector<Contender> contenders = usual.Contenders(operation, run);
            contenders.pop_back();
            bench::Race(shortRuns, operation.name + std::string(", ") + std::to_string(run), kUnit, 1e-6 * kSide * kSide, runs, contenders, "plain");
        }
    }

    const std::string large = "Pixel converters, 4096 by 4096 pixels of a natural image";
    bench::PrintNote(large, "128 MiB in and out: the ratio says what share of a plain copy's speed is reached.");
    usual.Take(bench::NaturalImage(kLargeSide, 3, 4), bench::NaturalImage(kLargeSide, 4, 4));
    for (const Operation& operation : usual.Operations()) {
        bench::Race(large, operation.name, kUnit, 1e-6 * kLargeSide * kLargeSide, std::max(1, runs / 3),
                    usual.Contenders(operation, kLargeSide * kLargeSide), "copy");
    }

    const std::string grids = "Pixel converters, grids of other sizes, 256 by 256 pixels of a natural image";
    bench::PrintNote(grids, "MapPixel16ToDevice16 through tables of as many nodes an axis as each row says.");
    for (const uint32_t bits : {3u, 4u, 5u, 6u, 7u}) {
        Bench other(bits);
        other.Take(bench::NaturalImage(kSide, 3, 4), bench::NaturalImage(kSide, 4, 4));
        bench::Race(grids, std::to_string((1u << bits) + 1) + " nodes an axis", kUnit, 1e-6 * kSide * kSide, runs,
                    other.Contenders(other.Operations().front(), kSide * kSide), "plain");
    }
    return 0;
}
