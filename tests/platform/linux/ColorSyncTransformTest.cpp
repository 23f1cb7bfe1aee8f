#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>

#include "platform/linux/ColorSync/ColorSyncObjects.h"
#include "platform/linux/ColourChains/FusedEvaluator.h"
#include "tests/fixtures/GuardedBytes.h"
#include "tests/fixtures/Transforms.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Pixels = std::vector<uint16_t>;

class ColorSyncTransformTest : public testing::Test {
protected:
    Owned<ColorSyncProfileRef> reference_ = OpenProfile(kReferenceProfile);
    Owned<ColorSyncProfileRef> cmyk_ = OpenProfile(PrinterNamed("ISOcoated_v2_300_bas").path);
    Owned<ColorSyncProfileRef> rgb_ = OpenProfile(PrinterNamed("rgb_printer").path);
    Owned<ColorSyncProfileRef> monitor_ = OpenProfile("/usr/share/color/icc/sRGB.icc");
    Owned<ColorSyncProfileRef> formulas_ = OpenProfile("/usr/share/color/icc/colord/sRGB.icc");
};

Pixels RandomPixels(std::size_t count, unsigned seed = 1) {
    std::mt19937 generator(seed);
    Pixels pixels(4 * count);
    for (uint16_t& sample : pixels) sample = static_cast<uint16_t>(generator());
    return pixels;
}

// ---- what a sequence must look like ----

using Steps = std::vector<Owned<CFDictionaryRef>>;

Steps StepsOf(std::initializer_list<std::pair<ColorSyncProfileRef, CFStringRef>> places) {
    Steps steps;
    for (const auto& [profile, place] : places) steps.push_back(Step(profile, place));
    return steps;
}

TEST_F(ColorSyncTransformTest, GoesFromADeviceThroughRoundTripsToADevice) {
    const CFStringRef first = kColorSyncTransformDeviceToPCS, between = kColorSyncTransformPCSToPCS, last = kColorSyncTransformPCSToDevice;
    ColorSyncProfileRef ref = reference_.Get(), prn = cmyk_.Get();
    struct {
        const char* what;
        Steps steps;
        bool made;
    } const rows[] = {
        {"two", StepsOf({{ref, first}, {prn, last}}), true},
        {"three", StepsOf({{ref, first}, {prn, between}, {ref, last}}), true},
        {"four", StepsOf({{ref, first}, {prn, between}, {rgb_.Get(), between}, {ref, last}}), true},
        {"none", {}, false},
        {"one", StepsOf({{ref, first}}), false},
        {"first not from a device", StepsOf({{ref, between}, {prn, last}}), false},
        {"two from a device", StepsOf({{ref, first}, {prn, first}}), false},
        {"last a round trip", StepsOf({{ref, first}, {prn, between}}), false},
        {"two to a device", StepsOf({{ref, last}, {prn, last}}), false},
        {"to a device in the middle", StepsOf({{ref, first}, {prn, last}, {ref, last}}), false},
    };
    for (const auto& row : rows) EXPECT_EQ(static_cast<bool>(TransformOf(row.steps)), row.made) << row.what;
    EXPECT_EQ(ColorSyncTransformCreate(nullptr, nullptr), nullptr);
}

TEST_F(ColorSyncTransformTest, IsNotMadeFromEntriesThatAreNoSteps) {
    const Owned<CFDictionaryRef> good = Step(reference_.Get(), kColorSyncTransformDeviceToPCS);
    const Owned<CFMutableDictionaryRef> noProfile(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFDictionarySetValue(noProfile.Get(), kColorSyncTransformTag, kColorSyncTransformPCSToDevice);
    const Owned<CFMutableDictionaryRef> noTag(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFDictionarySetValue(noTag.Get(), kColorSyncProfile, cmyk_.Get());
    const Owned<CFMutableDictionaryRef> noSuchProfile(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFDictionarySetValue(noSuchProfile.Get(), kColorSyncTransformTag, kColorSyncTransformPCSToDevice);
    CFDictionarySetValue(noSuchProfile.Get(), kColorSyncProfile, CFSTR("printer"));
    const void* rows[] = {noProfile.Get(), noTag.Get(), noSuchProfile.Get(), CFSTR("printer"), cmyk_.Get()};
    for (const void* entry : rows) {
        const void* values[] = {good.Get(), entry};
        const Owned<CFArrayRef> sequence(CFArrayCreate(kCFAllocatorDefault, values, 2, &kCFTypeArrayCallBacks));
        EXPECT_EQ(ColorSyncTransformCreate(sequence.Get(), nullptr), nullptr);
    }
}

TEST_F(ColorSyncTransformTest, IsMadeOfDevicesOnly) {
    for (const char* path : {"/usr/share/color/icc/LCMSLABI.ICM", "/usr/share/color/icc/ITULab.icc", "/usr/share/color/icc/CineLogCurve.icc",
                             "/usr/share/color/icc/colord/x11-colors.icc", "/usr/share/color/argyll/ref/lab2lab.icm"}) {
        const Owned<ColorSyncProfileRef> other = OpenProfile(path);
        EXPECT_FALSE(AbsoluteTransform({other.Get(), reference_.Get()})) << path;
        EXPECT_FALSE(AbsoluteTransform({reference_.Get(), other.Get()})) << path;
        EXPECT_FALSE(AbsoluteTransform({reference_.Get(), other.Get(), reference_.Get()})) << path;
    }
}

TEST_F(ColorSyncTransformTest, IsNotMadeWhenAProfileLacksWhatItsPlaceAsksFor) {
    const Owned<ColorSyncMutableProfileRef> inputOnly(ColorSyncProfileCreateMutableCopy(cmyk_.Get()));
    for (const CFStringRef name : {CFSTR("B2A0"), CFSTR("B2A1"), CFSTR("B2A2")}) ColorSyncProfileRemoveTag(inputOnly.Get(), name);
    EXPECT_TRUE(AbsoluteTransform({inputOnly.Get(), reference_.Get()}));
    EXPECT_FALSE(AbsoluteTransform({reference_.Get(), inputOnly.Get()}));
    EXPECT_FALSE(AbsoluteTransform({reference_.Get(), inputOnly.Get(), reference_.Get()}));
    const Owned<ColorSyncMutableProfileRef> outputOnly(ColorSyncProfileCreateMutableCopy(cmyk_.Get()));
    for (const CFStringRef name : {CFSTR("A2B0"), CFSTR("A2B1"), CFSTR("A2B2")}) ColorSyncProfileRemoveTag(outputOnly.Get(), name);
    EXPECT_FALSE(AbsoluteTransform({outputOnly.Get(), reference_.Get()}));

    // Where the last device cannot be asked what it shows, colours are matched all the same; only the gamut map cannot be had.
    const Owned<ColorSyncTransformRef> match = AbsoluteTransform({reference_.Get(), outputOnly.Get()});
    ASSERT_TRUE(match);
    const Pixels source = RandomPixels(8);
    EXPECT_EQ(Convert16(match.Get(), source, 3, 4), Convert16(AbsoluteTransform({reference_.Get(), cmyk_.Get()}).Get(), source, 3, 4));
    uint8_t bits = 0x5A;
    EXPECT_FALSE(ColorSyncTransformConvert(match.Get(), 8, 1, &bits, kColorSync1BitGamut, kCGImageAlphaNone, 1, source.data(), kColorSync16BitInteger,
                                           kCGImageAlphaNoneSkipLast, 64, nullptr));
    EXPECT_EQ(bits, 0x5A);
}

TEST_F(ColorSyncTransformTest, IsOfItsOwnType) {
    EXPECT_EQ(CFGetTypeID(AbsoluteTransform({reference_.Get(), cmyk_.Get()}).Get()), ColorSyncTransformGetTypeID());
    EXPECT_NE(ColorSyncTransformGetTypeID(), ColorSyncProfileGetTypeID());
}

TEST_F(ColorSyncTransformTest, NeedsItsProfilesNoLonger) {
    const Pixels source = RandomPixels(50);
    const Pixels expected = Convert16(AbsoluteTransform({reference_.Get(), cmyk_.Get()}).Get(), source, 3, 4);
    const Owned<ColorSyncMutableProfileRef> copy(ColorSyncProfileCreateMutableCopy(cmyk_.Get()));
    Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), copy.Get()});
    ColorSyncProfileRemoveTag(copy.Get(), CFSTR("B2A1"));
    reference_.Reset(nullptr);
    cmyk_.Reset(nullptr);
    EXPECT_EQ(Convert16(transform.Get(), source, 3, 4), expected);
}

// ---- what it computes ----

TEST_F(ColorSyncTransformTest, LinearLightKeepsItsShadows) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), monitor_.Get()});
    // Neutral linear values and what the sRGB curve makes of them, by its formula.
    for (const int value : {1, 5, 20, 50, 205, 300, 1000, 6553, 20000, 65535}) {
        const auto v = static_cast<uint16_t>(value);
        const double linear = value / 65535.0;
        const double expected = 65535.0 * (linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055);
        const Pixels result = Convert16(transform.Get(), {v, v, v, 0}, 3, 3);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(result[static_cast<std::size_t>(c)], expected, 60.0) << value;
    }
}

TEST_F(ColorSyncTransformTest, AWhiteGivenToThePrinterTintsItsPaper) {
    const Owned<ColorSyncMutableProfileRef> tinted(ColorSyncProfileCreateMutableCopy(cmyk_.Get()));
    const std::uint8_t white[] = {'X', 'Y', 'Z', ' ', 0, 0, 0, 0, 0, 0, 0xCC, 0xCD, 0, 0, 0xE6, 0x66, 0, 0, 0x99, 0x9A};  // 0.80, 0.90, 0.60
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, white, sizeof white));
    ColorSyncProfileSetTag(tinted.Get(), CFSTR("wtpt"), data.Get());
    const Pixels paper(4, 0);
    const Pixels predicted = Convert16(AbsoluteTransform({tinted.Get(), reference_.Get()}).Get(), paper, 4, 3);
    // The reference RGB of that white: luminance 0.9, and less blue than its own white has.
    const double Y = (0.31132507 * predicted[0] + 0.72647095 * predicted[1] - 0.03779602 * predicted[2]) / 65535.0;
    EXPECT_NEAR(Y, 0.90, 0.005);
    EXPECT_LT(predicted[2], 0.80 * 65535);
    EXPECT_NE(predicted, Convert16(AbsoluteTransform({cmyk_.Get(), reference_.Get()}).Get(), paper, 4, 3));
}

TEST_F(ColorSyncTransformTest, IntentsAndBlackPointCompensationAreThoseOfTheSteps) {
    const Pixels source = {400, 300, 500, 0, 65535, 65535, 65535, 0, 60000, 100, 3000, 0};
    const auto convert = [&](CFStringRef intent, CFBooleanRef compensation) {
        Steps steps;
        steps.push_back(Step(reference_.Get(), kColorSyncTransformDeviceToPCS, intent, compensation));
        steps.push_back(Step(cmyk_.Get(), kColorSyncTransformPCSToDevice, intent, compensation));
        return Convert16(TransformOf(steps).Get(), source, 3, 4);
    };
    const Pixels perceptual = convert(kColorSyncRenderingIntentPerceptual, kCFBooleanFalse);
    const Pixels relative = convert(kColorSyncRenderingIntentRelative, kCFBooleanFalse);
    const Pixels saturation = convert(kColorSyncRenderingIntentSaturation, kCFBooleanFalse);
    const Pixels absolute = convert(kColorSyncRenderingIntentAbsolute, kCFBooleanFalse);
    const Pixels compensated = convert(kColorSyncRenderingIntentRelative, kCFBooleanTrue);
    EXPECT_NE(perceptual, relative);
    EXPECT_NE(perceptual, saturation);
    EXPECT_NE(relative, saturation);
    EXPECT_NE(relative, absolute);
    EXPECT_NE(relative, compensated);
    // Relative white is bare paper; absolute white is printed, as this paper is yellower than the white.
    EXPECT_LE(*std::max_element(relative.begin() + 4, relative.begin() + 8), 8);
    EXPECT_GT(*std::max_element(absolute.begin() + 4, absolute.begin() + 8), 1000);
}

TEST_F(ColorSyncTransformTest, TheQualityOptionMakesNoDifference) {
    const void* key = kColorSyncConvertQuality;
    const void* value = kColorSyncBestQuality;
    const Owned<CFDictionaryRef> options(
        CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    const Owned<CFDictionaryRef> first = Step(reference_.Get(), kColorSyncTransformDeviceToPCS);
    const Owned<CFDictionaryRef> last = Step(cmyk_.Get(), kColorSyncTransformPCSToDevice);
    const void* steps[] = {first.Get(), last.Get()};
    const Owned<CFArrayRef> sequence(CFArrayCreate(kCFAllocatorDefault, steps, 2, &kCFTypeArrayCallBacks));
    const Owned<ColorSyncTransformRef> best(ColorSyncTransformCreate(sequence.Get(), options.Get()));
    const Pixels source = RandomPixels(50);
    EXPECT_EQ(Convert16(best.Get(), source, 3, 4), Convert16(AbsoluteTransform({reference_.Get(), cmyk_.Get()}).Get(), source, 3, 4));
}

// ---- formats ----

struct Format {
    ColorSyncDataDepth depth;
    ColorSyncDataLayout layout;
};

std::size_t SampleBytes(ColorSyncDataDepth depth) {
    return depth == kColorSync8BitInteger ? 1 : depth == kColorSync16BitInteger ? 2 : 4;
}
bool IsFirst(ColorSyncDataLayout layout) {
    return layout == kCGImageAlphaFirst || layout == kCGImageAlphaNoneSkipFirst;
}
std::size_t PixelBytes(Format format, std::size_t channels) {
    return SampleBytes(format.depth) * (channels + (format.layout == kCGImageAlphaNone ? 0 : 1));
}

/// Samples 0..65535 written in a format. The skipped one gets `skipped` in each byte.
Bytes Write(const Pixels& pixels, std::size_t channels, Format format, std::uint8_t skipped) {
    const std::size_t size = SampleBytes(format.depth), pixelBytes = PixelBytes(format, channels);
    Bytes bytes(pixels.size() / 4 * pixelBytes, skipped);
    for (std::size_t i = 0; i < pixels.size() / 4; ++i) {
        for (std::size_t c = 0; c < channels; ++c) {
            std::uint8_t* at = bytes.data() + i * pixelBytes + (c + (IsFirst(format.layout) ? 1 : 0)) * size;
            const uint16_t value = pixels[4 * i + c];
            const auto byte = static_cast<std::uint8_t>((value + 128) / 257);
            const float real = value / 65535.0f;
            const void* sample = format.depth == kColorSync8BitInteger    ? static_cast<const void*>(&byte)
                                 : format.depth == kColorSync16BitInteger ? static_cast<const void*>(&value)
                                                                          : static_cast<const void*>(&real);
            std::memcpy(at, sample, size);
        }
    }
    return bytes;
}

/// The samples on 0..1, in a row.
std::vector<double> Read(const Bytes& bytes, std::size_t channels, Format format) {
    const std::size_t size = SampleBytes(format.depth), pixelBytes = PixelBytes(format, channels);
    std::vector<double> samples;
    for (std::size_t i = 0; i < bytes.size() / pixelBytes; ++i) {
        for (std::size_t c = 0; c < channels; ++c) {
            const std::uint8_t* at = bytes.data() + i * pixelBytes + (c + (IsFirst(format.layout) ? 1 : 0)) * size;
            uint16_t word;
            float real;
            switch (format.depth) {
                case kColorSync8BitInteger:
                    samples.push_back(*at / 255.0);
                    break;
                case kColorSync16BitInteger:
                    std::memcpy(&word, at, 2);
                    samples.push_back(word / 65535.0);
                    break;
                default:
                    std::memcpy(&real, at, 4);
                    samples.push_back(static_cast<double>(real));
            }
        }
    }
    return samples;
}

std::vector<Format> AllFormats() {
    std::vector<Format> formats;
    for (const ColorSyncDataDepth depth : {kColorSync8BitInteger, kColorSync16BitInteger, kColorSync32BitFloat}) {
        for (const CGImageAlphaInfo layout :
             {kCGImageAlphaNone, kCGImageAlphaLast, kCGImageAlphaFirst, kCGImageAlphaNoneSkipLast, kCGImageAlphaNoneSkipFirst}) {
            formats.push_back({depth, layout});
        }
    }
    return formats;
}

/// Converts one row whose source ends, and whose destination ends, at inaccessible pages; `spare` bytes before the end are not the row's.
Bytes ConvertRow(ColorSyncTransformRef transform, const Bytes& source, Format from, std::size_t count, Bytes destination, Format to,
                 std::size_t sourceRow, std::size_t destinationRow) {
    const GuardedBytes guardedSource(source);
    const GuardedBytes guardedDestination(destination);
    EXPECT_TRUE(ColorSyncTransformConvert(transform, count, 1, guardedDestination.Data(), to.depth, to.layout, destinationRow, guardedSource.Data(),
                                          from.depth, from.layout, sourceRow, nullptr));
    destination.assign(guardedDestination.Data(), guardedDestination.Data() + destination.size());
    return destination;
}

TEST_F(ColorSyncTransformTest, EveryPairOfFormatsGivesTheSameColours) {
    struct {
        const char* what;
        Owned<ColorSyncTransformRef> transform;
        std::size_t from, to;
    } const chains[] = {
        {"RGB to CMYK", AbsoluteTransform({reference_.Get(), cmyk_.Get()}), 3, 4},
        {"CMYK to RGB", AbsoluteTransform({cmyk_.Get(), reference_.Get()}), 4, 3},
        {"RGB to RGB", AbsoluteTransform({rgb_.Get(), monitor_.Get()}), 3, 3},
        {"matrix to matrix", AbsoluteTransform({monitor_.Get(), reference_.Get()}), 3, 3},
        {"formulas between", AbsoluteTransform({reference_.Get(), formulas_.Get(), reference_.Get()}), 3, 3},
    };
    constexpr std::size_t kCount = 37;
    Pixels pixels = RandomPixels(kCount);
    for (uint16_t& sample : pixels) sample = static_cast<uint16_t>(sample / 257 * 257);  // exact in 8 bits too
    const Format plain = {kColorSync32BitFloat, kCGImageAlphaNone};
    for (const auto& chain : chains) {
        const Bytes exactBytes =
            ConvertRow(chain.transform.Get(), Write(pixels, chain.from, plain, 0), plain, kCount, Bytes(kCount * PixelBytes(plain, chain.to)), plain,
                       kCount * PixelBytes(plain, chain.from), kCount * PixelBytes(plain, chain.to));
        const std::vector<double> exact = Read(exactBytes, chain.to, plain);
        for (const Format from : AllFormats()) {
            for (const Format to : AllFormats()) {
                const std::size_t sourceRow = kCount * PixelBytes(from, chain.from), destinationRow = kCount * PixelBytes(to, chain.to);
                const Bytes result = ConvertRow(chain.transform.Get(), Write(pixels, chain.from, from, 0xEE), from, kCount,
                                                Bytes(destinationRow, 0xA5), to, sourceRow, destinationRow);
                const std::vector<double> samples = Read(result, chain.to, to);
                // One code of the wider of the two integer depths, and half a code of the destination.
                const double tolerance = 1.0 / 65535.0 + (to.depth == kColorSync8BitInteger ? 0.502 / 255.0 : 0.6 / 65535.0);
                ASSERT_EQ(samples.size(), exact.size());
                for (std::size_t i = 0; i < samples.size(); ++i) {
                    ASSERT_NEAR(samples[i], to.depth == kColorSync32BitFloat ? exact[i] : std::clamp(exact[i], 0.0, 1.0), tolerance)
                        << chain.what << ", " << from.depth << "/" << from.layout << " to " << to.depth << "/" << to.layout << ", sample " << i;
                }
            }
        }
    }
}

TEST_F(ColorSyncTransformTest, FloatsMayPassTheRangeAtTheEndsOfAChainAndNotBetween) {
    const auto convert = [](const Owned<ColorSyncTransformRef>& transform) {
        const std::array<float, 3> source = {1.5f, -0.25f, 0.5f};
        std::array<float, 3> result = {};
        EXPECT_TRUE(ColorSyncTransformConvert(transform.Get(), 1, 1, result.data(), kColorSync32BitFloat, kCGImageAlphaNone, 12, source.data(),
                                              kColorSync32BitFloat, kCGImageAlphaNone, 12, nullptr));
        return result;
    };
    const std::array<float, 3> ends = convert(AbsoluteTransform({formulas_.Get(), formulas_.Get()}));
    const std::array<float, 3> between = convert(AbsoluteTransform({formulas_.Get(), formulas_.Get(), formulas_.Get()}));
    const struct { float ends, between; } expected[] = {{1.5f, 1.0f}, {-0.25f, 0.0f}, {0.5f, 0.5f}};
    for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_NEAR(ends[c], expected[c].ends, 1e-3) << c;
        EXPECT_NEAR(between[c], expected[c].between, 1e-3) << c;
    }
}

TEST_F(ColorSyncTransformTest, SkippedSamplesAreNotWritten) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), rgb_.Get()});
    constexpr std::size_t kCount = 19;
    const Pixels pixels = RandomPixels(kCount);
    const Format from = {kColorSync16BitInteger, kCGImageAlphaNoneSkipLast};
    for (const Format to : AllFormats()) {
        if (to.layout == kCGImageAlphaNone) continue;
        const std::size_t size = SampleBytes(to.depth), pixelBytes = PixelBytes(to, 3);
        for (const std::uint8_t before : {std::uint8_t{0x00}, std::uint8_t{0x5A}, std::uint8_t{0xFF}}) {
            const Bytes result = ConvertRow(transform.Get(), Write(pixels, 3, from, 0x77), from, kCount, Bytes(kCount * pixelBytes, before), to,
                                            8 * kCount, kCount * pixelBytes);
            for (std::size_t i = 0; i < kCount; ++i) {
                const std::uint8_t* skipped = result.data() + i * pixelBytes + (IsFirst(to.layout) ? 0 : 3 * size);
                for (std::size_t k = 0; k < size; ++k) ASSERT_EQ(skipped[k], before) << to.depth << "/" << to.layout << ", pixel " << i;
            }
        }
    }
}

TEST_F(ColorSyncTransformTest, SkippedSamplesAreNotReadNotEvenTheOneAfterTheLastColour) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), rgb_.Get()});
    constexpr std::size_t kCount = 19;
    const Pixels pixels = RandomPixels(kCount);
    const Format to = {kColorSync16BitInteger, kCGImageAlphaNone};
    for (const Format from : AllFormats()) {
        if (from.layout == kCGImageAlphaNone) continue;
        const std::size_t row = kCount * PixelBytes(from, 3);
        std::vector<Bytes> results;
        for (const std::uint8_t skipped : {std::uint8_t{0x00}, std::uint8_t{0xC3}, std::uint8_t{0xFF}}) {
            Bytes source = Write(pixels, 3, from, skipped);
            // Of the last pixel only the colour can be accessed.
            if (!IsFirst(from.layout)) source.resize(source.size() - SampleBytes(from.depth));
            results.push_back(ConvertRow(transform.Get(), source, from, kCount, Bytes(6 * kCount), to, row, 6 * kCount));
        }
        EXPECT_EQ(results[0], results[1]) << from.depth << "/" << from.layout;
        EXPECT_EQ(results[0], results[2]) << from.depth << "/" << from.layout;
    }
}

TEST_F(ColorSyncTransformTest, RowsLieAsFarApartAsIsSaidAndWhatIsBetweenStays) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), cmyk_.Get()});
    constexpr std::size_t kWidth = 5, kHeight = 4, kSourceRow = 8 * kWidth + 24, kDestinationRow = 4 * kWidth + 7;
    const Pixels pixels = RandomPixels(kWidth * kHeight);
    Bytes source(kSourceRow * kHeight, 0x99);
    for (std::size_t y = 0; y < kHeight; ++y) std::memcpy(source.data() + y * kSourceRow, pixels.data() + 4 * kWidth * y, 8 * kWidth);
    Bytes destination(kDestinationRow * kHeight, 0x3C);
    ASSERT_TRUE(ColorSyncTransformConvert(transform.Get(), kWidth, kHeight, destination.data(), kColorSync8BitInteger, kCGImageAlphaNone,
                                          kDestinationRow, source.data(), kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, kSourceRow, nullptr));
    Bytes expected(4 * kWidth * kHeight);
    ASSERT_TRUE(ColorSyncTransformConvert(transform.Get(), kWidth * kHeight, 1, expected.data(), kColorSync8BitInteger, kCGImageAlphaNone,
                                          expected.size(), pixels.data(), kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, 8 * kWidth * kHeight,
                                          nullptr));
    for (std::size_t y = 0; y < kHeight; ++y) {
        const std::uint8_t* row = destination.data() + y * kDestinationRow;
        EXPECT_TRUE(std::equal(row, row + 4 * kWidth, expected.data() + y * 4 * kWidth)) << y;
        EXPECT_TRUE(std::all_of(row + 4 * kWidth, row + kDestinationRow, [](std::uint8_t byte) { return byte == 0x3C; })) << y;
    }
}

TEST_F(ColorSyncTransformTest, WhatDoesNotFitIsRefusedAndNothingWritten) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), cmyk_.Get()});
    constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();
    constexpr auto k16 = kColorSync16BitInteger, k8 = kColorSync8BitInteger, kGamut = kColorSync1BitGamut;
    constexpr ColorSyncDataLayout kSkipLast = kCGImageAlphaNoneSkipLast, kNone = kCGImageAlphaNone;
    struct {
        const char* what;
        std::size_t width, height;
        ColorSyncDataDepth toDepth;
        ColorSyncDataLayout toLayout;
        std::size_t toRow;
        ColorSyncDataDepth fromDepth;
        ColorSyncDataLayout fromLayout;
        std::size_t fromRow;
    } const rows[] = {
        {"gamut map as source", 4, 1, k8, kNone, 16, kGamut, kNone, 32},
        {"gamut map with a layout", 4, 1, kGamut, kSkipLast, 16, k16, kSkipLast, 32},
        {"source of no depth", 4, 1, k8, kNone, 16, static_cast<ColorSyncDataDepth>(0), kSkipLast, 32},
        {"destination of an unknown depth", 4, 1, static_cast<ColorSyncDataDepth>(4), kNone, 64, k16, kSkipLast, 32},
        {"premultiplied source", 4, 1, k8, kNone, 16, k16, 1, 32},
        {"alpha only", 4, 1, k8, 7, 16, k16, kSkipLast, 32},
        {"swapped bytes", 4, 1, k8, kNone, 16, k16, kSkipLast | 0x1000, 32},
        {"short source rows", 4, 1, k8, kNone, 16, k16, kSkipLast, 31},
        {"short destination rows", 4, 1, k8, kNone, 15, k16, kSkipLast, 32},
        {"short gamut rows", 9, 1, kGamut, kNone, 1, k16, kSkipLast, 72},
        {"width past all memory", kHuge, 1, k8, kNone, kHuge, k16, kSkipLast, kHuge},
        {"width whose bytes wrap round", kHuge / 8 + 2, 1, k8, kNone, kHuge, k16, kSkipLast, 64},
        {"gamut width past all memory", kHuge, 1, kGamut, kNone, kHuge, k16, kSkipLast, kHuge},
        {"height past all memory", 4, kHuge, k8, kNone, 16, k16, kSkipLast, 32},
        {"height whose bytes wrap round", 4, kHuge / 16 + 2, k8, kNone, 16, k16, kSkipLast, 32},
    };
    const Pixels source(64, 30000);
    for (const auto& row : rows) {
        Bytes destination(64, 0x66);
        EXPECT_FALSE(ColorSyncTransformConvert(transform.Get(), row.width, row.height, destination.data(), row.toDepth, row.toLayout, row.toRow,
                                               source.data(), row.fromDepth, row.fromLayout, row.fromRow, nullptr))
            << row.what;
        EXPECT_EQ(destination, Bytes(64, 0x66)) << row.what;
    }
    Bytes destination(64, 0x66);
    EXPECT_FALSE(ColorSyncTransformConvert(nullptr, 4, 1, destination.data(), k8, kNone, 16, source.data(), k16, kSkipLast, 32, nullptr));
    EXPECT_FALSE(ColorSyncTransformConvert(transform.Get(), 4, 1, nullptr, k8, kNone, 16, source.data(), k16, kSkipLast, 32, nullptr));
    EXPECT_FALSE(ColorSyncTransformConvert(transform.Get(), 4, 1, destination.data(), k8, kNone, 16, nullptr, k16, kSkipLast, 32, nullptr));
}

TEST_F(ColorSyncTransformTest, NoPixelsAreConvertedToNothing) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), cmyk_.Get()});
    for (const auto& [width, height] : {std::pair{0, 1}, {1, 0}, {0, 0}}) {
        EXPECT_TRUE(ColorSyncTransformConvert(transform.Get(), static_cast<std::size_t>(width), static_cast<std::size_t>(height), nullptr,
                                              kColorSync16BitInteger, kCGImageAlphaNone, 0, nullptr, kColorSync16BitInteger,
                                              kCGImageAlphaNoneSkipLast, 0, nullptr));
    }
}

TEST_F(ColorSyncTransformTest, GreyDevicesHaveOneSample) {
    const Owned<ColorSyncProfileRef> grey = OpenProfile("/usr/share/color/icc/Gray.icc");
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({grey.Get(), monitor_.Get()});
    ASSERT_TRUE(transform);
    const Bytes source = {0, 128, 255};
    Bytes result(9, 0x11);
    ASSERT_TRUE(ColorSyncTransformConvert(transform.Get(), 3, 1, result.data(), kColorSync8BitInteger, kCGImageAlphaNone, 9, source.data(),
                                          kColorSync8BitInteger, kCGImageAlphaNone, 3, nullptr));
    EXPECT_EQ(Bytes(result.begin(), result.begin() + 3), Bytes(3, 0));
    EXPECT_EQ(Bytes(result.begin() + 6, result.end()), Bytes(3, 255));
    EXPECT_NEAR(result[3], result[4], 1);
    EXPECT_NEAR(result[4], result[5], 1);
}

TEST_F(ColorSyncTransformTest, AResultDoesNotDependOnTheRunThatItIsIn) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), cmyk_.Get(), reference_.Get()});
    const Pixels source = RandomPixels(257);
    const Pixels whole = Convert16(transform.Get(), source, 3, 3);
    for (std::size_t length = 1; length <= 257; ++length) {
        const Pixels part = Convert16(transform.Get(), Pixels(source.end() - static_cast<std::ptrdiff_t>(4 * length), source.end()), 3, 3);
        ASSERT_TRUE(std::equal(part.begin(), part.end(), whole.end() - static_cast<std::ptrdiff_t>(4 * length))) << length;
    }
}

// ---- threads ----

/// Runs `work(0..7)` on eight threads that start together.
template <typename Work>
void OnEightThreads(Work work) {
    std::atomic<int> waiting = 8;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            --waiting;
            while (waiting > 0) std::this_thread::yield();
            work(i);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(ColorSyncTransformTest, EightThreadsGetTheSameBits) {
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), cmyk_.Get(), reference_.Get()});
    const Pixels source = RandomPixels(2000);
    const Pixels expected = Convert16(transform.Get(), source, 3, 3);
    std::vector<Pixels> results(8);
    OnEightThreads([&](std::size_t i) { results[i] = Convert16(transform.Get(), source, 3, 3); });
    for (const Pixels& result : results) EXPECT_EQ(result, expected);
}

TEST_F(ColorSyncTransformTest, EightThreadsMayBeTheFirstToAskForEachFormat) {
    const Pixels pixels = RandomPixels(10);
    const std::vector<Format> formats = AllFormats();
    const auto convertAll = [&](ColorSyncTransformRef transform, std::size_t start) {
        std::vector<Bytes> results(formats.size() * formats.size());
        for (std::size_t k = 0; k < results.size(); ++k) {
            const std::size_t pair = (k + start) % results.size();
            const Format from = formats[pair / formats.size()], to = formats[pair % formats.size()];
            const Bytes source = Write(pixels, 3, from, 0);
            results[pair].resize(10 * PixelBytes(to, 4));
            EXPECT_TRUE(ColorSyncTransformConvert(transform, 10, 1, results[pair].data(), to.depth, to.layout, results[pair].size(), source.data(),
                                                  from.depth, from.layout, source.size(), nullptr));
        }
        return results;
    };
    const std::vector<Bytes> expected = convertAll(AbsoluteTransform({reference_.Get(), cmyk_.Get()}).Get(), 0);
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference_.Get(), cmyk_.Get()});
    std::vector<std::vector<Bytes>> results(8);
    OnEightThreads([&](std::size_t i) { results[i] = convertAll(transform.Get(), i / 2 * 30); });
    for (const std::vector<Bytes>& result : results) EXPECT_EQ(result, expected);
}

TEST_F(ColorSyncTransformTest, EightThreadsMayEachMakeTheirOwn) {
    const Pixels source = RandomPixels(20);
    const Pixels expected = Convert16(AbsoluteTransform({reference_.Get(), cmyk_.Get()}).Get(), source, 3, 4);
    std::vector<Pixels> results(8);
    OnEightThreads([&](std::size_t i) { results[i] = Convert16(AbsoluteTransform({reference_.Get(), cmyk_.Get()}).Get(), source, 3, 4); });
    for (const Pixels& result : results) EXPECT_EQ(result, expected);
}

// ---- evaluators ----

TEST_F(ColorSyncTransformTest, SaysWhatConverts) {
    const Owned<ColorSyncProfileRef> grey = OpenProfile("/usr/share/color/icc/Gray.icc");
    const Owned<ColorSyncTransformRef> toPrinter = AbsoluteTransform({reference_.Get(), cmyk_.Get()});
    const Owned<ColorSyncTransformRef> toGrey = AbsoluteTransform({reference_.Get(), grey.Get()});
    const auto name = [&](const Owned<ColorSyncTransformRef>& transform, ColorSyncDataDepth to) {
        const char* text = platform::EvaluatorName(transform.Get(), to, kCGImageAlphaNone, kColorSync16BitInteger, kCGImageAlphaNoneSkipLast);
        return std::string(text ? text : "nothing");
    };
    const std::string set = NameOf(platform::BestFusedKernels().set);
    EXPECT_EQ(name(toPrinter, kColorSync16BitInteger), "fused, " + set);
    EXPECT_EQ(name(toPrinter, kColorSync8BitInteger), "fused, " + set);
    EXPECT_EQ(name(toPrinter, kColorSync1BitGamut), "fused round trip, " + set);
    EXPECT_EQ(name(toPrinter, kColorSync32BitFloat), "Little CMS");
    EXPECT_EQ(name(toGrey, kColorSync16BitInteger), "Little CMS");
    EXPECT_EQ(name(toGrey, kColorSync1BitGamut), "Little CMS round trip");
    EXPECT_EQ(name(toPrinter, static_cast<ColorSyncDataDepth>(4)), "nothing");
}

}  // namespace
