// The pixel converters: each set of kernels against the formula written straight and against a plain copy of as many pixels.
//
//     PixelMapping [runs]

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

#include "appearance/kernels/PixelKernels.h"
#include "bench/Rows.h"

namespace {

constexpr std::size_t kSide = 256;
constexpr std::size_t kPixels = kSide * kSide;

double Seconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Mpixel/s of the process's own time, from enough repetitions to be measured.
double Rate(const std::function<void()>& work) {
    for (int repetitions = 4;; repetitions *= 2) {
        const double start = Seconds();
        for (int i = 0; i < repetitions; ++i) work();
        const double taken = Seconds() - start;
        if (taken > 0.02) return static_cast<double>(kPixels) * repetitions / taken / 1e6;
    }
}

/// Smooth noise with a little grain, its channels alike: what photographs are to these loops.
std::vector<uint16_t> NaturalImage() {
    std::mt19937 random(3);
    std::vector<double> light(kPixels, 0.0);
    for (std::size_t cell = 64; cell >= 8; cell /= 2) {
        const std::size_t nodes = kSide / cell + 2;
        std::vector<double> corner(nodes * nodes);
        for (double& value : corner) value = std::uniform_real_distribution<double>(-1, 1)(random);
        for (std::size_t y = 0; y < kSide; ++y) {
            for (std::size_t x = 0; x < kSide; ++x) {
                const double fx = static_cast<double>(x % cell) / static_cast<double>(cell),
                             fy = static_cast<double>(y % cell) / static_cast<double>(cell);
                const double* const at = &corner[y / cell * nodes + x / cell];
                light[y * kSide + x] += static_cast<double>(cell) / 64.0 *
                                        ((at[0] * (1 - fx) + at[1] * fx) * (1 - fy) + (at[nodes] * (1 - fx) + at[nodes + 1] * fx) * fy);
            }
        }
    }
    std::vector<uint16_t> image(4 * kPixels);
    for (std::size_t i = 0; i < image.size(); ++i) {
        const double grain = std::uniform_real_distribution<double>(-0.006, 0.006)(random);
        const double value = 0.45 + 0.25 * light[i / 4] + 0.08 * std::sin(static_cast<double>(i % 4) + light[i / 4] * 3) + grain;
        image[i] = static_cast<uint16_t>(65535.0 * std::clamp(value, 0.0, 1.0));
    }
    return image;
}

std::vector<uint16_t> RandomImage() {
    std::mt19937 random(4);
    std::vector<uint16_t> image(4 * kPixels);
    for (uint16_t& word : image) word = static_cast<uint16_t>(random());
    return image;
}

struct Operation {
    const char* name;
    std::function<void(const PixelKernels&, const uint16_t* words, const uint8_t* bytes)> run;
};

}  // namespace

int main(int count, char** arguments) {
    const int runCount = count > 1 ? std::max(1, std::atoi(arguments[1])) : 9;
    PixelTable words{}, bytes{};
    if (CreateTablePixel16(6, &words) != 0 || CreateTableUInt8(6, &bytes) != 0) return 1;
    for (PixelTable* table : {&words, &bytes}) table->scale = {{65535, 65535, 65535}, {0, 0, 0}};
    std::mt19937 random(5);
    const std::size_t nodes = std::size_t{66} * 66 * 66;
    for (std::size_t i = 0; i < 4 * nodes; ++i) static_cast<uint16_t*>(words.table)[i] = static_cast<uint16_t>(random());
    for (std::size_t i = 0; i < nodes; ++i) static_cast<uint8_t*>(bytes.table)[i] = static_cast<uint8_t>(random());

    std::vector<uint16_t> wordsOut(4 * kPixels);
    std::vector<uint8_t> bytesOut(4 * kPixels);
    const Operation operations[] = {
        {"MapPixel16ToDevice16",
         [&](const PixelKernels& k, const uint16_t* in, const uint8_t*) { k.pixel16ToDevice16(&words, in, wordsOut.data(), kPixels); }},
        {"MapPixel16ToPixel8",
         [&](const PixelKernels& k, const uint16_t* in, const uint8_t*) { k.pixel16ToPixel8(&words, in, bytesOut.data(), kPixels); }},
        {"MapDevice8ToPixel16",
         [&](const PixelKernels& k, const uint16_t*, const uint8_t* in) { k.device8ToPixel16(&words, in, wordsOut.data(), kPixels); }},
        {"MapDevice16ToPixel16",
         [&](const PixelKernels& k, const uint16_t* in, const uint8_t*) { k.device16ToPixel16(&words, in, wordsOut.data(), kPixels); }},
        {"MapPixel16ToUInt8",
         [&](const PixelKernels& k, const uint16_t* in, const uint8_t*) { k.pixel16ToUInt8(&bytes, in, bytesOut.data(), kPixels); }},
    };
    const struct {
        const char* name;
        std::vector<uint16_t> image;
    } inputs[] = {{"natural", NaturalImage()}, {"random colours", RandomImage()}};

    const std::string group = "Pixel converters, 256 by 256 pixels, tables of 65 nodes an axis";
    bench::PrintNote(group, "One thread, its own CPU time. plain is the defining formula at -O2; copy moves as many pixels of four 16-bit words.");
    for (const auto& input : inputs) {
        std::vector<uint8_t> inputBytes(4 * kPixels);
        for (std::size_t i = 0; i < inputBytes.size(); ++i) inputBytes[i] = static_cast<uint8_t>(input.image[i] >> 8);
        for (const Operation& operation : operations) {
            std::vector<const PixelKernels*> sets;
            for (const PixelKernels* const* set = RunnablePixelKernels(); *set; ++set) sets.push_back(*set);
            std::vector<std::vector<double>> runs(sets.size() + 1);
            for (int run = 0; run < runCount; ++run) {
                for (std::size_t s = 0; s < sets.size(); ++s) {
                    runs[s].push_back(Rate([&] { operation.run(*sets[s], input.image.data(), inputBytes.data()); }));
                }
                runs.back().push_back(Rate([&] {
                    std::memcpy(wordsOut.data(), input.image.data(), 8 * kPixels);
                    asm volatile("" : : "r"(wordsOut.data()) : "memory");
                }));
            }
            for (std::size_t s = 0; s < sets.size(); ++s) {
                bench::Row row{group, std::string(operation.name) + ", " + input.name, sets[s]->name, "Mpixel/s", runs[s]};
                if (s > 0) {
                    row.ratioTo = sets[0]->name;
                    row.ratio = bench::Median(runs[s]) / bench::Median(runs[0]);
                }
                bench::Print(row);
            }
            bench::Print({group, std::string(operation.name) + ", " + input.name, "copy", "Mpixel/s", runs.back()});
        }
    }
    DisposeTablePixel16(&words);
    DisposeTableUInt8(&bytes);
    return 0;
}
