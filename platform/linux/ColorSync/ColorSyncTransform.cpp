#include "platform/ForkSection.h"
#include "platform/linux/ColorSync/ColorSyncObjects.h"
#include "platform/linux/ColourChains/ChainEvaluators.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"

using platform::ChainEvaluators;
using platform::ChainStep;
using platform::NullIfRaised;
using platform::PixelEvaluator;
using platform::PixelFormat;
using platform::ProfileChain;

namespace {

constinit const __CFString kProfileText{u"ColorSyncProfile"};
constinit const __CFString kIntentText{u"ColorSyncRenderingIntent"};
constinit const __CFString kPerceptualText{u"ColorSyncRenderingIntentPerceptual"};
constinit const __CFString kRelativeText{u"ColorSyncRenderingIntentRelative"};
constinit const __CFString kSaturationText{u"ColorSyncRenderingIntentSaturation"};
constinit const __CFString kAbsoluteText{u"ColorSyncRenderingIntentAbsolute"};
constinit const __CFString kTransformTagText{u"ColorSyncTransformTag"};
constinit const __CFString kDeviceToPCSText{u"ColorSyncTransformDeviceToPCS"};
constinit const __CFString kPCSToPCSText{u"ColorSyncTransformPCSToPCS"};
constinit const __CFString kPCSToDeviceText{u"ColorSyncTransformPCSToDevice"};
constinit const __CFString kBlackPointCompensationText{u"ColorSyncBlackPointCompensation"};
constinit const __CFString kConvertQualityText{u"ColorSyncConvertQuality"};
constinit const __CFString kBestQualityText{u"ColorSyncBestQuality"};

extern const platform::ObjectClass kTransformClass;

}  // namespace

const CFStringRef kColorSyncProfile = &kProfileText;
const CFStringRef kColorSyncRenderingIntent = &kIntentText;
const CFStringRef kColorSyncRenderingIntentPerceptual = &kPerceptualText;
const CFStringRef kColorSyncRenderingIntentRelative = &kRelativeText;
const CFStringRef kColorSyncRenderingIntentSaturation = &kSaturationText;
const CFStringRef kColorSyncRenderingIntentAbsolute = &kAbsoluteText;
const CFStringRef kColorSyncTransformTag = &kTransformTagText;
const CFStringRef kColorSyncTransformDeviceToPCS = &kDeviceToPCSText;
const CFStringRef kColorSyncTransformPCSToPCS = &kPCSToPCSText;
const CFStringRef kColorSyncTransformPCSToDevice = &kPCSToDeviceText;
const CFStringRef kColorSyncBlackPointCompensation = &kBlackPointCompensationText;
const CFStringRef kColorSyncConvertQuality = &kConvertQualityText;
const CFStringRef kColorSyncBestQuality = &kBestQualityText;

struct ColorSyncTransform : platform::Object {
    explicit ColorSyncTransform(std::shared_ptr<ChainEvaluators> ownChain) : Object(kTransformClass), chain(std::move(ownChain)) {}

    /// Shared by all transforms of the same content.
    const std::shared_ptr<ChainEvaluators> chain;
};

namespace {

constinit const platform::ObjectClass kTransformClass{"ColorSyncTransform", platform::Delete<ColorSyncTransform>};

cmsUInt32Number Intent(const void* value) {
    struct Row {
        CFStringRef name;
        cmsUInt32Number intent;
    };
    const Row rows[] = {{kColorSyncRenderingIntentPerceptual, INTENT_PERCEPTUAL},
                        {kColorSyncRenderingIntentRelative, INTENT_RELATIVE_COLORIMETRIC},
                        {kColorSyncRenderingIntentSaturation, INTENT_SATURATION},
                        {kColorSyncRenderingIntentAbsolute, INTENT_ABSOLUTE_COLORIMETRIC}};
    for (const Row& row : rows) {
        if (CFEqual(value, row.name)) return row.intent;
    }
    return INTENT_PERCEPTUAL;
}

/// Nothing when the dictionary is not a step with the expected transform tag.
std::optional<ChainStep> ReadStep(CFTypeRef entry, CFStringRef transformTag) {
    if (!entry || CFGetTypeID(entry) != CFDictionaryGetTypeID()) return std::nullopt;
    const auto dictionary = static_cast<CFDictionaryRef>(entry);
    const void* profile = CFDictionaryGetValue(dictionary, kColorSyncProfile);
    if (!platform::IsA(profile, platform::kProfileClass)) return std::nullopt;
    if (!CFEqual(CFDictionaryGetValue(dictionary, kColorSyncTransformTag), transformTag)) return std::nullopt;
    ChainStep step;
    step.profile = static_cast<ColorSyncProfileRef>(profile)->container.ProfileBytes();
    if (!step.profile) return std::nullopt;
    step.intent = Intent(CFDictionaryGetValue(dictionary, kColorSyncRenderingIntent));
    step.blackPointCompensation = CFDictionaryGetValue(dictionary, kColorSyncBlackPointCompensation) == kCFBooleanTrue;
    return step;
}

/// What the system's own operations use: they find their evaluators made, and so neither wait nor allocate.
constexpr PixelFormat UsualFormat(PixelFormat::Depth depth, std::size_t channels) {
    const PixelFormat::Skipped fourth = depth == PixelFormat::k8Bit ? PixelFormat::kFirst : PixelFormat::kLast;
    return {depth, channels == 3 ? fourth : PixelFormat::kNone};
}

bool MakeUsualEvaluators(ChainEvaluators* chain) {
    const std::size_t from = chain->Chain().SourceChannels();
    const std::size_t to = chain->Chain().DestinationChannels();
    const PixelFormat from16 = UsualFormat(PixelFormat::k16Bit, from);
    const PixelFormat to16 = UsualFormat(PixelFormat::k16Bit, to);
    if (!chain->Evaluator(from16, to16)) return false;
    chain->Evaluator(from16, UsualFormat(PixelFormat::k8Bit, to));
    chain->Evaluator(UsualFormat(PixelFormat::k8Bit, from), to16);
    chain->Evaluator(from16, std::nullopt);
    return true;
}

/// The evaluators for the steps, those made before where there are some. Null when the steps cannot be linked.
std::shared_ptr<ChainEvaluators> EvaluatorsOf(const std::vector<ChainStep>& steps) {
    if (auto kept = platform::ChainCache().Find(steps)) return *kept;
    std::unique_ptr<ProfileChain> chain;
    {
        const platform::ForkSection section;  // the engine has locks of its own
        chain = ProfileChain::Create(steps);
    }
    if (!chain) return nullptr;
    auto evaluators = std::make_shared<ChainEvaluators>(std::move(chain));
    if (!MakeUsualEvaluators(evaluators.get())) return nullptr;
    platform::ChainCache().Add(steps, evaluators, platform::EstimatedBytes(steps));
    return evaluators;
}

/// Whether `height` rows of `bytesPerRow` bytes hold `rowBytes` each and can be addressed at all.
bool Fits(std::size_t height, std::size_t rowBytes, std::size_t bytesPerRow) {
    std::size_t total;
    return bytesPerRow >= rowBytes && !__builtin_mul_overflow(height, bytesPerRow, &total);
}

}  // namespace

const char* platform::EvaluatorName(ColorSyncTransformRef transform, ColorSyncDataDepth dstDepth, ColorSyncDataLayout dstLayout,
                                    ColorSyncDataDepth srcDepth, ColorSyncDataLayout srcLayout) {
    const std::optional<PixelFormat> source = PixelFormat::Of(srcDepth, srcLayout);
    const std::optional<PixelFormat> destination = PixelFormat::Of(dstDepth, dstLayout);
    if (!source || (!destination && dstDepth != kColorSync1BitGamut)) return nullptr;
    const PixelEvaluator* evaluator = transform->chain->Evaluator(*source, destination);
    return evaluator ? evaluator->Name() : nullptr;
}

CFTypeID ColorSyncTransformGetTypeID() {
    return platform::TypeID(kTransformClass);
}

ColorSyncTransformRef ColorSyncTransformCreate(CFArrayRef profileSequence, CFDictionaryRef) {
    return NullIfRaised([&]() -> ColorSyncTransformRef {
        const CFIndex count = profileSequence ? CFArrayGetCount(profileSequence) : 0;
        if (count < 2) return nullptr;
        std::vector<ChainStep> steps;
        for (CFIndex i = 0; i < count; ++i) {
            const CFStringRef place = i == 0           ? kColorSyncTransformDeviceToPCS
                                      : i == count - 1 ? kColorSyncTransformPCSToDevice
                                                       : kColorSyncTransformPCSToPCS;
            const std::optional<ChainStep> step = ReadStep(CFArrayGetValueAtIndex(profileSequence, i), place);
            if (!step) return nullptr;
            steps.push_back(*step);
        }
        std::shared_ptr<ChainEvaluators> chain = EvaluatorsOf(steps);
        return chain ? platform::NewObject<ColorSyncTransform>(std::move(chain)) : nullptr;
    });
}

bool ColorSyncTransformConvert(ColorSyncTransformRef transform, size_t width, size_t height, void* dst, ColorSyncDataDepth dstDepth,
                               ColorSyncDataLayout dstLayout, size_t dstBytesPerRow, const void* src, ColorSyncDataDepth srcDepth,
                               ColorSyncDataLayout srcLayout, size_t srcBytesPerRow, CFDictionaryRef) {
    const std::optional<PixelFormat> source = PixelFormat::Of(srcDepth, srcLayout);
    const std::optional<PixelFormat> destination = PixelFormat::Of(dstDepth, dstLayout);
    const bool wantsGamut = dstDepth == kColorSync1BitGamut && dstLayout == kCGImageAlphaNone;
    if (!transform || !source || (!destination && !wantsGamut)) return false;
    if (width == 0 || height == 0) return true;

    std::size_t srcRowBytes, dstRowBytes;
    if (__builtin_mul_overflow(width, source->PixelBytes(transform->chain->Chain().SourceChannels()), &srcRowBytes)) return false;
    if (wantsGamut) {
        dstRowBytes = width / 8 + (width % 8 != 0 ? 1 : 0);
    } else if (__builtin_mul_overflow(width, destination->PixelBytes(transform->chain->Chain().DestinationChannels()), &dstRowBytes)) {
        return false;
    }
    if (!src || !dst || !Fits(height, srcRowBytes, srcBytesPerRow) || !Fits(height, dstRowBytes, dstBytesPerRow)) return false;

    return NullIfRaised([&] {
        const PixelEvaluator* evaluator = transform->chain->Evaluator(*source, destination);
        if (!evaluator) return false;
        for (std::size_t row = 0; row < height; ++row) {
            evaluator->ConvertRow(static_cast<const UInt8*>(src) + row * srcBytesPerRow, static_cast<UInt8*>(dst) + row * dstBytesPerRow, width);
        }
        return true;
    });
}
