// What the engine asks of the platform's transforms: the program is linked so that those calls pass through here.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "engine/DirectPrinter.h"
#include "profile/ProfileModel.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

/// One transform as it was asked for. Both objects are kept.
struct Creation {
    Owned<CFArrayRef> sequence;
    Owned<CFDictionaryRef> options;
};
std::vector<Creation> sCreations;
size_t sRefusedCreation = 0;  // 1: the first, and so on; 0: none

/// Every profile that was opened or copied, with a reference of the test's own.
std::vector<Owned<ColorSyncProfileRef>> sProfiles;
bool sNoCopy = false;

struct Conversion {
    ColorSyncTransformRef transform;
    size_t width, height;
    const void* out;
    int outDepth;
    uint32_t outLayout;
    size_t outRow;
    const void* in;
    int inDepth;
    uint32_t inLayout;
    size_t inRow;
    bool hasOptions;
};
std::vector<Conversion> sConversions;
/// Stands in for the platform's conversion, given the number of the call (from 0); empty: the platform itself.
std::function<bool(size_t call, void* out, size_t width)> sConvert;

template <typename Ref>
Ref Noted(Ref profile) {
    if (profile) sProfiles.push_back(Owned<ColorSyncProfileRef>::Retain(profile));
    return profile;
}

}  // namespace

extern "C" {

ColorSyncTransformRef __real_ColorSyncTransformCreate(CFArrayRef sequence, CFDictionaryRef options);
ColorSyncTransformRef __wrap_ColorSyncTransformCreate(CFArrayRef sequence, CFDictionaryRef options);
bool __real_ColorSyncTransformConvert(ColorSyncTransformRef transform, size_t width, size_t height, void* dst, ColorSyncDataDepth dstDepth,
                                      ColorSyncDataLayout dstLayout, size_t dstBytesPerRow, const void* src, ColorSyncDataDepth srcDepth,
                                      ColorSyncDataLayout srcLayout, size_t srcBytesPerRow, CFDictionaryRef options);
bool __wrap_ColorSyncTransformConvert(ColorSyncTransformRef transform, size_t width, size_t height, void* dst, ColorSyncDataDepth dstDepth,
                                      ColorSyncDataLayout dstLayout, size_t dstBytesPerRow, const void* src, ColorSyncDataDepth srcDepth,
                                      ColorSyncDataLayout srcLayout, size_t srcBytesPerRow, CFDictionaryRef options);
ColorSyncProfileRef __real_ColorSyncProfileCreate(CFDataRef data, CFErrorRef* error);
ColorSyncProfileRef __wrap_ColorSyncProfileCreate(CFDataRef data, CFErrorRef* error);
ColorSyncProfileRef __real_ColorSyncProfileCreateWithURL(CFURLRef url, CFErrorRef* error);
ColorSyncProfileRef __wrap_ColorSyncProfileCreateWithURL(CFURLRef url, CFErrorRef* error);
ColorSyncMutableProfileRef __real_ColorSyncProfileCreateMutableCopy(ColorSyncProfileRef profile);
ColorSyncMutableProfileRef __wrap_ColorSyncProfileCreateMutableCopy(ColorSyncProfileRef profile);

ColorSyncTransformRef __wrap_ColorSyncTransformCreate(CFArrayRef sequence, CFDictionaryRef options) {
    sCreations.push_back({Owned<CFArrayRef>::Retain(sequence), Owned<CFDictionaryRef>::Retain(options)});
    return sCreations.size() == sRefusedCreation ? nullptr : __real_ColorSyncTransformCreate(sequence, options);
}

bool __wrap_ColorSyncTransformConvert(ColorSyncTransformRef transform, size_t width, size_t height, void* dst, ColorSyncDataDepth dstDepth,
                                      ColorSyncDataLayout dstLayout, size_t dstBytesPerRow, const void* src, ColorSyncDataDepth srcDepth,
                                      ColorSyncDataLayout srcLayout, size_t srcBytesPerRow, CFDictionaryRef options) {
    sConversions.push_back(
        {transform, width, height, dst, dstDepth, dstLayout, dstBytesPerRow, src, srcDepth, srcLayout, srcBytesPerRow, options != nullptr});
    if (sConvert) return sConvert(sConversions.size() - 1, dst, width);
    return __real_ColorSyncTransformConvert(transform, width, height, dst, dstDepth, dstLayout, dstBytesPerRow, src, srcDepth, srcLayout,
                                            srcBytesPerRow, options);
}

ColorSyncProfileRef __wrap_ColorSyncProfileCreate(CFDataRef data, CFErrorRef* error) {
    return Noted(__real_ColorSyncProfileCreate(data, error));
}

ColorSyncProfileRef __wrap_ColorSyncProfileCreateWithURL(CFURLRef url, CFErrorRef* error) {
    return Noted(__real_ColorSyncProfileCreateWithURL(url, error));
}

ColorSyncMutableProfileRef __wrap_ColorSyncProfileCreateMutableCopy(ColorSyncProfileRef profile) {
    return sNoCopy ? nullptr : Noted(__real_ColorSyncProfileCreateMutableCopy(profile));
}

}  // extern "C"

namespace {

class TransformCalls : public testing::Test {
protected:
    /// The library's own profile is read here, so that what a test counts does not depend on the tests before it.
    void SetUp() override {
        Load({kSRGBMonitor, kSRGBMonitor});
        TearDown();
    }
    void TearDown() override {
        sCreations.clear();
        sProfiles.clear();
        sConversions.clear();
        sRefusedCreation = 0;
        sNoCopy = false;
        sConvert = nullptr;
    }

    /// A file that no other choice of the same test names, so that its profile can be told from the others.
    std::string RGBPrinter(const char* name, double white) {
        ProfileMaker maker = MatrixMonitor(CurvTag({460}));
        maker.profileClass = Code("prtr");
        maker.Set("wtpt", XYZTag(white, white, white));
        return folder.Write(name, maker.Make());
    }

    TemporaryFolder folder;
};

// ---- building ----

/// The steps of a transform, each as "profile place": the profile by its media white in hundredths.
std::vector<std::string> Steps(const Creation& creation) {
    std::vector<std::string> steps;
    for (CFIndex i = 0; i < CFArrayGetCount(creation.sequence.Get()); ++i) {
        const auto* step = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(creation.sequence.Get(), i));
        const auto* profile = static_cast<ColorSyncProfileRef>(CFDictionaryGetValue(step, kColorSyncProfile));
        const int white = static_cast<int>((std::int64_t{GetMediaWhitePoint(profile).Y} * 100 + 32768) / 65536);
        const auto* place = static_cast<CFStringRef>(CFDictionaryGetValue(step, kColorSyncTransformTag));
        steps.push_back(std::to_string(white) + " " + Text(place));
        EXPECT_EQ(CFDictionaryGetCount(step), 4);
        EXPECT_EQ(CFDictionaryGetValue(step, kColorSyncRenderingIntent), kColorSyncRenderingIntentAbsolute);
        EXPECT_EQ(CFDictionaryGetValue(step, kColorSyncBlackPointCompensation), kCFBooleanFalse);
    }
    return steps;
}

using StepNames = std::vector<std::string>;
const std::string kToPCS = " ColorSyncTransformDeviceToPCS";
const std::string kThrough = " ColorSyncTransformPCSToPCS";
const std::string kToDevice = " ColorSyncTransformPCSToDevice";

TEST_F(TransformCalls, ThreeTransformsAreBuiltPredictThenMatchThenProof) {
    // The reference's white is the connection white, 100; the printer's is 80.
    const Loaded loaded = Load({kSRGBMonitor, RGBPrinter("printer.icc", 0.8)});
    ASSERT_EQ(loaded.status, 0);
    ASSERT_EQ(sCreations.size(), 3u);
    EXPECT_EQ(Steps(sCreations[0]), (StepNames{"80" + kToPCS, "100" + kToDevice}));
    EXPECT_EQ(Steps(sCreations[1]), (StepNames{"100" + kToPCS, "80" + kToDevice}));
    EXPECT_EQ(Steps(sCreations[2]), (StepNames{"100" + kToPCS, "80" + kThrough, "100" + kToDevice}));
}

TEST_F(TransformCalls, AProoferIsOneStepMoreInEach) {
    const std::string printer = RGBPrinter("printer.icc", 0.8);
    const std::string proofer = RGBPrinter("proofer.icc", 0.6);
    const Loaded loaded = Load({kSRGBMonitor, printer, proofer, 1});
    ASSERT_EQ(loaded.status, 0);
    ASSERT_EQ(sCreations.size(), 3u);
    EXPECT_EQ(Steps(sCreations[0]), (StepNames{"80" + kToPCS, "60" + kThrough, "100" + kToDevice}));
    EXPECT_EQ(Steps(sCreations[1]), (StepNames{"100" + kToPCS, "60" + kThrough, "80" + kToDevice}));
    EXPECT_EQ(Steps(sCreations[2]), (StepNames{"100" + kToPCS, "60" + kThrough, "80" + kThrough, "100" + kToDevice}));
}

TEST_F(TransformCalls, AProoferThatIsNotUsedOrNotThereIsNoStep) {
    const std::string printer = RGBPrinter("printer.icc", 0.8);
    const std::string proofer = RGBPrinter("proofer.icc", 0.6);
    for (const Choice& choice : {Choice{kSRGBMonitor, printer, proofer, 0}, Choice{kSRGBMonitor, printer, "", 1}}) {
        sCreations.clear();
        ASSERT_EQ(Load(choice).status, 0);
        ASSERT_EQ(sCreations.size(), 3u);
        EXPECT_EQ(Steps(sCreations[0]).size(), 2u);
        EXPECT_EQ(Steps(sCreations[1]).size(), 2u);
        EXPECT_EQ(Steps(sCreations[2]).size(), 3u);
    }
}

TEST_F(TransformCalls, APrinterWhiteStandsInThePrintersCopyBeforeAnyTransformIsBuilt) {
    const FixedXYZ white = {32768, 32768, 32768};
    const Loaded loaded = Load({kSRGBMonitor, RGBPrinter("printer.icc", 0.8), RGBPrinter("proofer.icc", 0.6), 1, nullptr, &white});
    ASSERT_EQ(loaded.status, 0);
    ASSERT_EQ(sCreations.size(), 3u);
    EXPECT_EQ(Steps(sCreations[0]), (StepNames{"50" + kToPCS, "60" + kThrough, "100" + kToDevice}));
    EXPECT_EQ(Steps(sCreations[1]), (StepNames{"100" + kToPCS, "60" + kThrough, "50" + kToDevice}));
    EXPECT_EQ(Steps(sCreations[2]), (StepNames{"100" + kToPCS, "60" + kThrough, "50" + kThrough, "100" + kToDevice}));
}

TEST_F(TransformCalls, ThePrintersCopyIsUsedAlsoWithoutAWhite) {
    ASSERT_EQ(Load({kSRGBMonitor, RGBPrinter("printer.icc", 0.8)}).status, 0);
    // Opened: reference, monitor, printer; copied: the printer.
    ASSERT_EQ(sProfiles.size(), 4u);
    const auto* step = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(sCreations.at(0).sequence.Get(), 0));
    EXPECT_EQ(CFDictionaryGetValue(step, kColorSyncProfile), sProfiles[3].Get());
}

TEST_F(TransformCalls, TheOnlyOptionIsTheBestQuality) {
    ASSERT_EQ(Load({kSRGBMonitor, RGBPrinter("printer.icc", 0.8)}).status, 0);
    for (const Creation& creation : sCreations) {
        ASSERT_TRUE(creation.options);
        EXPECT_EQ(CFDictionaryGetCount(creation.options.Get()), 1);
        EXPECT_EQ(CFDictionaryGetValue(creation.options.Get(), kColorSyncConvertQuality), kColorSyncBestQuality);
    }
}

TEST_F(TransformCalls, ATransformThatIsNotMadeEndsTheBuild) {
    const std::string printer = RGBPrinter("printer.icc", 0.8);
    for (const size_t refused : {1u, 2u, 3u}) {
        sCreations.clear();
        sRefusedCreation = refused;
        const Loaded loaded = Load({kSRGBMonitor, printer});
        EXPECT_EQ(loaded.data, nullptr) << refused;
        EXPECT_EQ(loaded.status, -50) << refused;
        // What is made after it tells which device is at fault, in pairs with the reference.
        ASSERT_GE(sCreations.size(), refused);
        for (size_t i = refused; i < sCreations.size(); ++i) EXPECT_EQ(CFArrayGetCount(sCreations[i].sequence.Get()), 2) << refused;
    }
}

/// Builds, and tells how many profiles were opened. None of them may still be held by anybody else.
size_t ProfilesReleasedBy(const Choice& choice, OSErr status) {
    sCreations.clear();
    sProfiles.clear();
    {
        const Loaded loaded = Load(choice);
        EXPECT_EQ(loaded.status, status);
        sCreations.clear();  // the sequences hold their profiles
    }
    for (const auto& profile : sProfiles) EXPECT_EQ(CFGetRetainCount(profile.Get()), 1);
    return sProfiles.size();
}

TEST_F(TransformCalls, EveryProfileIsReleasedHoweverABuildEnds) {
    const std::string printer = RGBPrinter("printer.icc", 0.8);
    const std::string proofer = RGBPrinter("proofer.icc", 0.6);
    ProfileMaker flat = MatrixMonitor(CurvTag({563}));
    flat.Set("bXYZ", RawXYZTag(0, 0, 0));
    const std::string noInverse = folder.Write("flat.icc", flat.Make());
    ProfileMaker curveless = MatrixMonitor(CurvTag({563}));
    curveless.Set("bTRC", ParaTag(5, {1, 1, 1, 1, 1, 1, 1}));
    const std::string noCurve = folder.Write("curveless.icc", curveless.Make());
    const std::string noProfile = folder.Write("text.icc", Bytes(500, 'x'));

    EXPECT_EQ(ProfilesReleasedBy({kSRGBMonitor, printer, proofer, 1}, 0), 5u);
    EXPECT_EQ(ProfilesReleasedBy({kSRGBMonitor, ""}, -43), 2u);
    EXPECT_EQ(ProfilesReleasedBy({kSRGBMonitor, noProfile}, -170), 2u);
    EXPECT_EQ(ProfilesReleasedBy({kSRGBMonitor, printer, noProfile, 1}, -170), 4u);
    EXPECT_EQ(ProfilesReleasedBy({noInverse, printer, proofer, 1}, -170), 5u);
    EXPECT_EQ(ProfilesReleasedBy({noCurve, printer, proofer, 1}, -170), 5u);
    sNoCopy = true;
    EXPECT_EQ(ProfilesReleasedBy({kSRGBMonitor, printer, proofer, 1}, -108), 3u);
    sNoCopy = false;
    for (const size_t refused : {1u, 2u, 3u}) {
        sRefusedCreation = refused;
        EXPECT_EQ(ProfilesReleasedBy({kSRGBMonitor, printer, proofer, 1}, -50), 5u) << refused;
    }
}

// ---- converting ----

/// Stand-ins, never followed: which transform is used, and what it is told.
auto* const kMatchTransform = reinterpret_cast<ColorSyncTransformRef>(0x10);
auto* const kPredictTransform = reinterpret_cast<ColorSyncTransformRef>(0x20);
auto* const kProofTransform = reinterpret_cast<ColorSyncTransformRef>(0x30);

MatchingData PrinterOnly(uint32_t colourSpace) {
    MatchingData data = {};
    data.printerColourSpace = colourSpace;
    data.printerMatchTransform = kMatchTransform;
    data.printerPredictTransform = kPredictTransform;
    data.proofTransform = kProofTransform;
    return data;
}

struct Side {
    int depth;
    uint32_t layout;
    size_t bytesPerPixel;
};

void ExpectConversion(const Conversion& conversion, ColorSyncTransformRef transform, size_t count, const void* in, Side from, const void* out,
                      Side to) {
    EXPECT_EQ(conversion.transform, transform);
    EXPECT_EQ(conversion.width, count);
    EXPECT_EQ(conversion.height, 1u);
    EXPECT_EQ(conversion.in, in);
    EXPECT_EQ(conversion.inDepth, from.depth);
    EXPECT_EQ(conversion.inLayout, from.layout);
    EXPECT_EQ(conversion.inRow, from.bytesPerPixel * count);
    EXPECT_EQ(conversion.out, out);
    EXPECT_EQ(conversion.outDepth, to.depth);
    EXPECT_EQ(conversion.outLayout, to.layout);
    EXPECT_EQ(conversion.outRow, to.bytesPerPixel * count);
    EXPECT_FALSE(conversion.hasOptions);
}

TEST_F(TransformCalls, PrinterOperationsConvertTheirWholeRunInOneCall) {
    sConvert = [](size_t, void*, size_t) { return true; };
    constexpr size_t kCount = 1000;
    const std::vector<uint16_t> in(4 * kCount);
    std::vector<uint16_t> out(4 * kCount);
    const auto* in8 = reinterpret_cast<const uint8_t*>(in.data());
    auto* out8 = reinterpret_cast<uint8_t*>(out.data());
    const Side reference = {kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, 8};
    const struct {
        uint32_t colourSpace;
        Side printer8, printer16;
    } rows[] = {
        {Code("RGB "), {kColorSync8BitInteger, kCGImageAlphaFirst, 4}, {kColorSync16BitInteger, kCGImageAlphaLast, 8}},
        {Code("CMYK"), {kColorSync8BitInteger, kCGImageAlphaNone, 4}, {kColorSync16BitInteger, kCGImageAlphaNone, 8}},
    };
    for (const auto& row : rows) {
        const MatchingData data = PrinterOnly(row.colourSpace);
        sConversions.clear();
        DirectPrinterMatch(&data, in.data(), out8, kCount);
        DirectPrinterMatch16(&data, in.data(), out.data(), kCount);
        DirectPrinterPredict(&data, in8, out.data(), kCount);
        DirectPrinterPredict16(&data, in.data(), out.data(), kCount);
        ASSERT_EQ(sConversions.size(), 4u);
        ExpectConversion(sConversions[0], kMatchTransform, kCount, in.data(), reference, out8, row.printer8);
        ExpectConversion(sConversions[1], kMatchTransform, kCount, in.data(), reference, out.data(), row.printer16);
        ExpectConversion(sConversions[2], kPredictTransform, kCount, in8, row.printer8, out.data(), reference);
        ExpectConversion(sConversions[3], kPredictTransform, kCount, in.data(), row.printer16, out.data(), reference);
    }
}

TEST_F(TransformCalls, GamutAnswersComeFromRunsOf256WhoseBitsStartAnew) {
    // Bit patterns of the first words of each run, then one bit alone at the start of the last run.
    sConvert = [](size_t call, void* out, size_t) {
        auto* bytes = static_cast<uint8_t*>(out);
        if (call == 0) std::copy_n("\x80\x00\x00\x01\x40\xFF", 6, bytes);
        if (call == 0) bytes[31] = 0x03;
        if (call == 1) bytes[0] = 0x80;
        return true;
    };
    const MatchingData data = PrinterOnly(Code("CMYK"));
    const std::vector<uint16_t> in(4 * 257);
    std::vector<uint8_t> answers(258, 7);
    DirectPrinterGamut(&data, in.data(), answers.data(), 257);

    ASSERT_EQ(sConversions.size(), 2u);
    for (const size_t run : {0u, 1u}) {
        const Conversion& conversion = sConversions[run];
        EXPECT_EQ(conversion.transform, kMatchTransform);
        EXPECT_EQ(conversion.width, run == 0 ? 256u : 1u);
        EXPECT_EQ(conversion.height, 1u);
        EXPECT_EQ(conversion.in, in.data() + 4 * 256 * run);
        EXPECT_EQ(conversion.inDepth, kColorSync16BitInteger);
        EXPECT_EQ(conversion.inLayout, kCGImageAlphaNoneSkipLast);
        EXPECT_EQ(conversion.inRow, run == 0 ? 8u * 256 : 8u);
        EXPECT_EQ(conversion.outDepth, kColorSync1BitGamut);
        EXPECT_EQ(conversion.outLayout, kCGImageAlphaNone);
        EXPECT_EQ(conversion.outRow, run == 0 ? 32u : 1u);
        EXPECT_FALSE(conversion.hasOptions);
    }
    std::vector<uint8_t> expected(258);
    for (const size_t out : {0u, 31u, 33u, 40u, 41u, 42u, 43u, 44u, 45u, 46u, 47u, 254u, 255u, 256u}) expected[out] = 255;
    expected[257] = 7;  // past the run
    EXPECT_EQ(answers, expected);
}

TEST_F(TransformCalls, AGamutMapsLastRowMayEndWithinAByte) {
    sConvert = [](size_t, void*, size_t) { return true; };
    const MatchingData data = PrinterOnly(Code("CMYK"));
    const std::vector<uint16_t> in(4 * 33);
    std::vector<uint8_t> answers(33);
    for (const size_t count : {1u, 7u, 8u, 9u, 32u, 33u}) {
        sConversions.clear();
        DirectPrinterGamut(&data, in.data(), answers.data(), count);
        ASSERT_EQ(sConversions.size(), 1u);
        EXPECT_EQ(sConversions[0].outRow, (count + 7) / 8);
    }
}

TEST_F(TransformCalls, AConversionThatFailsIsNotReportedAndEveryColourIsInGamut) {
    sConvert = [](size_t call, void* out, size_t) {
        if (call == 0) std::fill_n(static_cast<uint8_t*>(out), 32, uint8_t{0xFF});  // must not reach the second run
        return call == 0;
    };
    const MatchingData data = PrinterOnly(Code("RGB "));
    const std::vector<uint16_t> in(4 * 300);
    std::vector<uint8_t> answers(300, 7);
    DirectPrinterGamut(&data, in.data(), answers.data(), 300);
    std::vector<uint8_t> expected(300, 255);
    std::fill(expected.begin() + 256, expected.end(), uint8_t{0});
    EXPECT_EQ(answers, expected);

    std::vector<uint16_t> out(4, 0xBEEF);
    DirectPrinterMatch16(&data, in.data(), out.data(), 1);
    EXPECT_EQ(out, std::vector<uint16_t>(4, 0xBEEF));
}

TEST_F(TransformCalls, ProofsAreConvertedInRunsOf256) {
    // Its curves have no reverse tables, so every match is 0 whatever the conversion leaves.
    sConvert = [](size_t, void*, size_t) { return true; };
    const MatchingData data = PrinterOnly(Code("CMYK"));
    const std::vector<uint16_t> in(4 * 600);
    std::vector<uint16_t> out(4 * 600);
    const auto expectRuns = [&] {
        ASSERT_EQ(sConversions.size(), 3u);
        const Side reference = {kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, 8};
        for (size_t run = 0; run < 3; ++run) {
            ExpectConversion(sConversions[run], kProofTransform, run < 2 ? 256 : 88, in.data() + 4 * 256 * run, reference, sConversions[run].out,
                             reference);
        }
    };
    DirectProofMatch16(&data, in.data(), out.data(), 600);
    expectRuns();
    sConversions.clear();
    DirectProofMatch(&data, in.data(), reinterpret_cast<uint8_t*>(out.data()), 600);
    expectRuns();
}

TEST_F(TransformCalls, NoPixelsAreNoConversion) {
    const MatchingData data = PrinterOnly(Code("RGB "));
    uint16_t word = 7;
    uint8_t byte = 7;
    DirectPrinterMatch(&data, &word, &byte, 0);
    DirectPrinterMatch16(&data, &word, &word, 0);
    DirectPrinterPredict(&data, &byte, &word, 0);
    DirectPrinterPredict16(&data, &word, &word, 0);
    DirectPrinterGamut(&data, &word, &byte, 0);
    DirectProofMatch(&data, &word, &byte, 0);
    DirectProofMatch16(&data, &word, &word, 0);
    EXPECT_TRUE(sConversions.empty());
}

}  // namespace
