#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "engine/DirectMonitor.h"
#include "engine/DirectPrinter.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

constexpr uint16_t kUntouched16 = 0xBEEF;
constexpr uint8_t kUntouched8 = 0xA7;

std::vector<uint16_t> RandomPixels(size_t count, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<uint16_t> pixels(4 * count);
    for (uint16_t& word : pixels) word = static_cast<uint16_t>(random());
    return pixels;
}

struct Printer {
    std::string name;
    bool isRGB;
    OwnedRecord data;
};

/// One record for each kind of printer; read only, so the tests share it.
class DirectPrinter : public testing::Test {
protected:
    static void SetUpTestSuite() {
        const TemporaryFolder folder;
        ProfileMaker rgb = MatrixMonitor(CurvTag({460}));
        rgb.profileClass = Code("prtr");
        Loaded rgbLoaded = Load({kSRGBMonitor, folder.Write("rgb.icc", rgb.Make())});
        Loaded cmykLoaded = Load({kSRGBMonitor, kCMYKPrinter});
        ASSERT_EQ(rgbLoaded.status, 0);
        ASSERT_EQ(cmykLoaded.status, 0);
        printers = new std::vector<Printer>();
        printers->push_back({"RGB", true, std::move(rgbLoaded.data)});
        printers->push_back({"CMYK", false, std::move(cmykLoaded.data)});
    }
    static void TearDownTestSuite() {
        delete printers;
        printers = nullptr;
    }
    static std::vector<Printer>* printers;
};
std::vector<Printer>* DirectPrinter::printers = nullptr;

TEST_F(DirectPrinter, ColourSpaceIsTheRecords) {
    MatchingData data = {};
    data.printerColourSpace = 0x434D594B;
    EXPECT_EQ(DirectPrinterColourSpace(&data), 0x434D594Bu);
    EXPECT_EQ(DirectPrinterColourSpace((*printers)[0].data.get()), 0x52474220u);
}

TEST_F(DirectPrinter, NoPixelsDoNothing) {
    const uint16_t in16[4] = {1, 2, 3, 4};
    const uint8_t in8[4] = {1, 2, 3, 4};
    for (const Printer& printer : *printers) {
        uint16_t out16[4] = {kUntouched16, kUntouched16, kUntouched16, kUntouched16};
        uint8_t out8[4] = {kUntouched8, kUntouched8, kUntouched8, kUntouched8};
        DirectPrinterMatch(printer.data.get(), in16, out8, 0);
        DirectPrinterMatch16(printer.data.get(), in16, out16, 0);
        DirectPrinterPredict(printer.data.get(), in8, out16, 0);
        DirectPrinterPredict16(printer.data.get(), in16, out16, 0);
        DirectPrinterGamut(printer.data.get(), in16, out8, 0);
        DirectProofMatch(printer.data.get(), in16, out8, 0);
        DirectProofMatch16(printer.data.get(), in16, out16, 0);
        for (const uint16_t word : out16) EXPECT_EQ(word, kUntouched16);
        for (const uint8_t byte : out8) EXPECT_EQ(byte, kUntouched8);
    }
}

TEST_F(DirectPrinter, NullPointersWithNoPixelsAreAllowed) {
    for (const Printer& printer : *printers) {
        DirectPrinterMatch(printer.data.get(), nullptr, nullptr, 0);
        DirectPrinterGamut(printer.data.get(), nullptr, nullptr, 0);
        DirectProofMatch16(printer.data.get(), nullptr, nullptr, 0);
    }
}

TEST_F(DirectPrinter, RGBPixelsLeaveTheirSpareSampleAlone) {
    const MatchingData* data = (*printers)[0].data.get();
    constexpr size_t kCount = 50;
    const std::vector<uint16_t> in = RandomPixels(kCount, 1);
    std::vector<uint8_t> out8(4 * kCount, kUntouched8);
    std::vector<uint16_t> out16(4 * kCount, kUntouched16);
    DirectPrinterMatch(data, in.data(), out8.data(), kCount);
    DirectPrinterMatch16(data, in.data(), out16.data(), kCount);
    for (size_t p = 0; p < kCount; ++p) {
        EXPECT_EQ(out8[4 * p], kUntouched8);
        EXPECT_EQ(out16[4 * p + 3], kUntouched16);
        // Bytes 1 to 3 are the same colours as words 0 to 2.
        for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(out8[4 * p + 1 + c], out16[4 * p + c] / 257.0, 0.51) << p;
    }
}

TEST_F(DirectPrinter, CMYKPixelsAreFourInks) {
    const MatchingData* data = (*printers)[1].data.get();
    constexpr size_t kCount = 50;
    const std::vector<uint16_t> in = RandomPixels(kCount, 2);
    std::vector<uint8_t> out8(4 * kCount, kUntouched8);
    std::vector<uint16_t> out16(4 * kCount, kUntouched16);
    DirectPrinterMatch(data, in.data(), out8.data(), kCount);
    DirectPrinterMatch16(data, in.data(), out16.data(), kCount);
    for (size_t i = 0; i < 4 * kCount; ++i) EXPECT_NEAR(out8[i], out16[i] / 257.0, 0.51) << i;
    // Black takes black ink.
    const uint16_t black[4] = {0, 0, 0, 0};
    uint16_t inks[4] = {};
    DirectPrinterMatch16(data, black, inks, 1);
    EXPECT_GT(inks[3], 32768);
}

TEST_F(DirectPrinter, PredictionReadsTheChannelsWhereMatchingWritesThem) {
    constexpr size_t kCount = 64;
    for (const Printer& printer : *printers) {
        std::vector<uint8_t> in8(4 * kCount);
        std::vector<uint16_t> in16(4 * kCount);
        std::mt19937 random(3);
        for (size_t p = 0; p < kCount; ++p) {
            for (size_t c = 0; c < 4; ++c) {
                const auto value = static_cast<uint8_t>(random());
                in8[4 * p + (printer.isRGB ? (c + 1) % 4 : c)] = value;
                in16[4 * p + c] = static_cast<uint16_t>(value * 257);
            }
            // What an RGB printer's pixels hold in the spare sample makes no difference.
            if (printer.isRGB) in16[4 * p + 3] = static_cast<uint16_t>(random());
        }
        std::vector<uint16_t> out8(4 * kCount, kUntouched16);
        std::vector<uint16_t> out16(4 * kCount, kUntouched16);
        DirectPrinterPredict(printer.data.get(), in8.data(), out8.data(), kCount);
        DirectPrinterPredict16(printer.data.get(), in16.data(), out16.data(), kCount);
        EXPECT_EQ(out8, out16) << printer.name;
        for (size_t p = 0; p < kCount; ++p) EXPECT_EQ(out16[4 * p + 3], kUntouched16) << printer.name;
    }
}

TEST_F(DirectPrinter, ReferencePixelsSpareWordMakesNoDifference) {
    constexpr size_t kCount = 300;
    for (const Printer& printer : *printers) {
        std::vector<uint16_t> in = RandomPixels(kCount, 4);
        std::vector<uint16_t> matched(4 * kCount), proofed(4 * kCount);
        std::vector<uint8_t> gamut(kCount);
        DirectPrinterMatch16(printer.data.get(), in.data(), matched.data(), kCount);
        DirectProofMatch16(printer.data.get(), in.data(), proofed.data(), kCount);
        DirectPrinterGamut(printer.data.get(), in.data(), gamut.data(), kCount);
        for (size_t p = 0; p < kCount; ++p) in[4 * p + 3] = static_cast<uint16_t>(~in[4 * p + 3]);
        std::vector<uint16_t> matchedAgain(4 * kCount), proofedAgain(4 * kCount);
        std::vector<uint8_t> gamutAgain(kCount);
        DirectPrinterMatch16(printer.data.get(), in.data(), matchedAgain.data(), kCount);
        DirectProofMatch16(printer.data.get(), in.data(), proofedAgain.data(), kCount);
        DirectPrinterGamut(printer.data.get(), in.data(), gamutAgain.data(), kCount);
        EXPECT_EQ(matched, matchedAgain);
        EXPECT_EQ(proofed, proofedAgain);
        EXPECT_EQ(gamut, gamutAgain);
    }
}

TEST_F(DirectPrinter, GamutRunsOfAnyLengthAnswerEachPixelAlone) {
    for (const Printer& printer : *printers) {
        const std::vector<uint16_t> in = RandomPixels(1030, 5);
        std::vector<uint8_t> alone(1030);
        size_t out = 0;
        for (size_t p = 0; p < alone.size(); ++p) {
            DirectPrinterGamut(printer.data.get(), in.data() + 4 * p, &alone[p], 1);
            ASSERT_TRUE(alone[p] == 0 || alone[p] == 255);
            out += alone[p] == 255;
        }
        // Both answers occur, so that swapped bits would show.
        ASSERT_GT(out, 50u) << printer.name;
        ASSERT_LT(out, 980u) << printer.name;
        for (const size_t count : {2u, 7u, 8u, 9u, 31u, 32u, 33u, 255u, 256u, 257u, 511u, 512u, 513u, 1030u}) {
            std::vector<uint8_t> answers(count + 1, kUntouched8);
            DirectPrinterGamut(printer.data.get(), in.data(), answers.data(), count);
            ASSERT_EQ(std::vector<uint8_t>(answers.begin(), answers.end() - 1),
                      std::vector<uint8_t>(alone.begin(), alone.begin() + static_cast<std::ptrdiff_t>(count)))
                << printer.name << " " << count;
            ASSERT_EQ(answers[count], kUntouched8);
        }
    }
}

TEST_F(DirectPrinter, GamutBitsAreReadFromTheMostSignificantDown) {
    // The map itself, word by word, as the platform writes it for one run.
    for (const Printer& printer : *printers) {
        constexpr size_t kCount = 256;
        const std::vector<uint16_t> in = RandomPixels(kCount, 6);
        uint8_t map[32] = {};
        ASSERT_TRUE(ColorSyncTransformConvert(printer.data->printerMatchTransform, kCount, 1, map, kColorSync1BitGamut, kCGImageAlphaNone, 32,
                                              in.data(), kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, 8 * kCount, nullptr));
        std::vector<uint8_t> answers(kCount);
        DirectPrinterGamut(printer.data.get(), in.data(), answers.data(), kCount);
        for (size_t p = 0; p < kCount; ++p) {
            const uint8_t* bytes = map + 4 * (p / 32);
            const uint32_t word = uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
            ASSERT_EQ(answers[p], word >> (31 - p % 32) & 1 ? 255 : 0) << p;
        }
    }
}

TEST_F(DirectPrinter, ProofIsTheMonitorMatchOfTheProofedColours) {
    for (const Printer& printer : *printers) {
        for (const size_t count : {1u, 255u, 256u, 257u, 600u}) {
            const std::vector<uint16_t> in = RandomPixels(count, 7);
            std::vector<uint16_t> proofed(4 * count);
            ASSERT_TRUE(ColorSyncTransformConvert(printer.data->proofTransform, count, 1, proofed.data(), kColorSync16BitInteger,
                                                  kCGImageAlphaNoneSkipLast, 8 * count, in.data(), kColorSync16BitInteger, kCGImageAlphaNoneSkipLast,
                                                  8 * count, nullptr));
            std::vector<uint16_t> expected16(4 * count + 1, kUntouched16), matched16(4 * count + 1, kUntouched16);
            std::vector<uint8_t> expected8(4 * count + 1, kUntouched8), matched8(4 * count + 1, kUntouched8);
            DirectMonitorMatch16(printer.data.get(), proofed.data(), expected16.data(), count);
            DirectMonitorMatch(printer.data.get(), proofed.data(), expected8.data(), count);
            DirectProofMatch16(printer.data.get(), in.data(), matched16.data(), count);
            DirectProofMatch(printer.data.get(), in.data(), matched8.data(), count);
            EXPECT_EQ(matched16, expected16) << printer.name << " " << count;
            EXPECT_EQ(matched8, expected8) << printer.name << " " << count;
            for (size_t p = 0; p < count; ++p) {
                ASSERT_EQ(matched16[4 * p + 3], kUntouched16);
                ASSERT_EQ(matched8[4 * p], kUntouched8);
                for (size_t c = 0; c < 3; ++c) ASSERT_EQ(matched8[4 * p + 1 + c], matched16[4 * p + c] >> 8);
            }
        }
    }
}

}  // namespace
