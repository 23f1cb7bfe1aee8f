#pragma once

/// A sequence of profiles from a first device, through the round trips of devices between, to a last device.

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/ColorSync/LittleCms.h"
#include "platform/linux/ColourChains/PixelFormat.h"

namespace platform {

struct FusedProgram;

struct ChainStep {
    std::shared_ptr<const std::vector<std::uint8_t>> profile;  // never null where chains are made or compared
    cmsUInt32Number intent = INTENT_PERCEPTUAL;
    bool blackPointCompensation = false;

    /// By content.
    bool operator==(const ChainStep& other) const {
        return intent == other.intent && blackPointCompensation == other.blackPointCompensation &&
               (profile == other.profile || *profile == *other.profile);
    }
};

/// Making transforms reads the profiles: one thread at a time. What was made is independent of that.
///
/// Every transform is evaluated through the profiles' own curves, matrices and tables, stage by stage in floating point: an optimised one would
/// resample them in even steps of the device values, which a linear device does not bear in the shadows.
class ProfileChain {
public:
    /// steps     two or more
    /// returns   null when a profile cannot be opened or is not of a device
    static std::unique_ptr<ProfileChain> Create(const std::vector<ChainStep>& steps);

    std::size_t SourceChannels() const { return Channels(links_.front()); }
    std::size_t DestinationChannels() const { return Channels(links_.back()); }

    /// The whole chain. Null when a profile lacks what its place asks for.
    LcmsTransform MakeTransform(PixelFormat source, PixelFormat destination) const;
    /// From the first device to the colour that is handed to the last one, as Lab in doubles under absolute colorimetric intent.
    LcmsTransform MakeTransformToLab(PixelFormat source) const;
    /// What the last device shows of a colour that it is asked for, absolutely: Lab in doubles on both sides.
    LcmsTransform MakeLastDeviceRoundTrip() const;

    /// What the transforms of the same names are evaluated through. Null when they are.
    LcmsPipeline MakePipeline() const;
    LcmsPipeline MakePipelineToLab() const;
    LcmsPipeline MakePipelineLastDeviceRoundTrip() const;

    /// What a faster evaluator made of the pipelines: nothing while it has not tried, null when it could not.
    struct FusedPrograms {
        std::optional<std::shared_ptr<const FusedProgram>> conversion, gamutMap;
    };
    FusedPrograms& Programs() const { return programs_; }

private:
    struct Link {
        cmsHPROFILE profile;
        cmsUInt32Number intent;
        bool blackPointCompensation;
    };

    static std::size_t Channels(const Link& link) { return cmsChannelsOf(cmsGetColorSpace(link.profile)); }
    template <typename Maker, typename... Formats>
    LcmsPipeline PipelineOf(Maker make, Formats... formats) const;
    LcmsTransform Make(const std::vector<Link>& links, cmsUInt32Number inputFormat, cmsUInt32Number outputFormat) const;
    Link LabLink() const { return {lab_.get(), INTENT_ABSOLUTE_COLORIMETRIC, false}; }
    Link LastDeviceLink() const { return {links_.back().profile, INTENT_ABSOLUTE_COLORIMETRIC, false}; }

    LcmsContext context_;  // first: the profiles end before it
    std::vector<LcmsProfile> profiles_;
    LcmsProfile lab_;
    mutable FusedPrograms programs_;
    std::vector<Link> links_;  // the devices between stand twice: into the device and out of it
};

}  // namespace platform
