#include "platform/linux/ColourChains/ProfileChain.h"

#include "platform/BigEndian.h"

namespace platform {

namespace {

/// Never counted as too fine for optimisation, whatever the device's curves.
constexpr PixelFormat kCatching = {PixelFormat::k8Bit, PixelFormat::kNone};

constexpr std::size_t kClassField = 12;
constexpr std::size_t kSpaceField = 16;

/// Asked of the bytes, as what stands there need be no value of the engine's enumerations: those are of ASCII characters.
bool IsOfADevice(const std::vector<std::uint8_t>& profile) {
    switch (ReadBigEndian32(profile.data() + kClassField)) {
        case cmsSigInputClass:
        case cmsSigDisplayClass:
        case cmsSigOutputClass:
        case cmsSigColorSpaceClass:
            break;
        default:
            return false;
    }
    const std::uint32_t space = ReadBigEndian32(profile.data() + kSpaceField);
    return (space & 0x80808080) == 0 && space != cmsSigXYZData && space != cmsSigLabData;
}

cmsUInt32Number LcmsFormat(PixelFormat format, std::size_t channels) {
    // Any colour space: a format that names CMYK would have float samples run to 100.
    return COLORSPACE_SH(PT_ANY) | CHANNELS_SH(static_cast<cmsUInt32Number>(channels)) |
           BYTES_SH(static_cast<cmsUInt32Number>(format.SampleBytes())) | FLOAT_SH(format.depth == PixelFormat::kFloat ? 1 : 0) |
           EXTRA_SH(format.skipped == PixelFormat::kNone ? 0 : 1) | SWAPFIRST_SH(format.skipped == PixelFormat::kFirst ? 1 : 0);
}

}  // namespace

std::unique_ptr<ProfileChain> ProfileChain::Create(const std::vector<ChainStep>& steps) {
    auto chain = std::make_unique<ProfileChain>();
    chain->lab_.reset(cmsCreateLab4ProfileTHR(chain->context_.Get(), nullptr));
    if (!chain->lab_) return nullptr;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const ChainStep& step = steps[i];
        LcmsProfile profile = OpenLcmsProfile(chain->context_, *step.profile);
        if (!profile || !IsOfADevice(*step.profile)) return nullptr;
        const Link link = {profile.get(), step.intent, step.blackPointCompensation};
        chain->profiles_.push_back(std::move(profile));
        chain->links_.push_back(link);
        const bool between = i > 0 && i + 1 < steps.size();
        if (between) chain->links_.push_back(link);
    }
    return chain;
}

LcmsTransform ProfileChain::MakeTransform(PixelFormat source, PixelFormat destination) const {
    return Make(links_, LcmsFormat(source, SourceChannels()), LcmsFormat(destination, DestinationChannels()));
}

LcmsTransform ProfileChain::MakeTransformToLab(PixelFormat source) const {
    std::vector<Link> links(links_.begin(), links_.end() - 1);
    links.push_back(LabLink());
    return Make(links, LcmsFormat(source, SourceChannels()), TYPE_Lab_DBL);
}

LcmsTransform ProfileChain::MakeLastDeviceRoundTrip() const {
    return Make({LabLink(), LastDeviceLink(), LastDeviceLink(), LabLink()}, TYPE_Lab_DBL, TYPE_Lab_DBL);
}

template <typename Maker, typename... Formats>
LcmsPipeline ProfileChain::PipelineOf(Maker make, Formats... formats) const {
    LcmsContext::Catch caught(context_);
    const LcmsTransform transform = (this->*make)(formats...);
    return transform ? std::move(caught.pipeline) : nullptr;
}

LcmsPipeline ProfileChain::MakePipeline() const {
    return PipelineOf(&ProfileChain::MakeTransform, kCatching, kCatching);
}

LcmsPipeline ProfileChain::MakePipelineToLab() const {
    return PipelineOf(&ProfileChain::MakeTransformToLab, kCatching);
}

LcmsPipeline ProfileChain::MakePipelineLastDeviceRoundTrip() const {
    return PipelineOf(&ProfileChain::MakeLastDeviceRoundTrip);
}

LcmsTransform ProfileChain::Make(const std::vector<Link>& links, cmsUInt32Number inputFormat, cmsUInt32Number outputFormat) const {
    std::vector<cmsHPROFILE> profiles;
    std::vector<cmsBool> blackPointCompensation;
    std::vector<cmsUInt32Number> intents;
    for (const Link& link : links) {
        profiles.push_back(link.profile);
        blackPointCompensation.push_back(link.blackPointCompensation);
        intents.push_back(link.intent);
    }
    const cmsUInt32Number flags = cmsFLAGS_NOCACHE | (context_.IsCatching() ? 0 : cmsFLAGS_NOOPTIMIZE);
    std::vector<cmsFloat64Number> adaptationStates(links.size(), 1.0);
    return LcmsTransform(cmsCreateExtendedTransform(context_.Get(), static_cast<cmsUInt32Number>(links.size()), profiles.data(),
                                                    blackPointCompensation.data(), intents.data(), adaptationStates.data(), nullptr, 0, inputFormat,
                                                    outputFormat, flags));
}

}  // namespace platform
