#pragma once

/// Little CMS 2 objects with owners, each under a context of its own: no state of the host's own use of the library is touched or seen.

#include <lcms2.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace platform {

struct LcmsPipelineFree {
    void operator()(cmsPipeline* pipeline) const { cmsPipelineFree(pipeline); }
};
using LcmsPipeline = std::unique_ptr<cmsPipeline, LcmsPipelineFree>;

/// The stage that holds a device's values within 0..1. What is no number becomes 0.
inline constexpr auto kLcmsDeviceRangeStage = static_cast<cmsStageSignature>(0x64657652);  // 'devR'

/// A context whose errors go nowhere but into LastError.
///
/// A device between two profiles stands twice in a list of profiles, and a stage of kLcmsDeviceRangeStage between its two places: the formulas of
/// some profiles answer with values that their device does not have, which the same formulas would undo on the way out of the device.
class LcmsContext {
public:
    LcmsContext();
    LcmsContext(const LcmsContext&) = delete;
    LcmsContext& operator=(const LcmsContext&) = delete;
    ~LcmsContext();

    cmsContext Get() const { return context_; }
    /// The text of the latest error; empty when there was none.
    const std::string& LastError() const { return lastError_; }

    /// While one lives, each transform that is made in the context leaves a copy of its pipeline, stage by stage as it is evaluated where it is not
    /// to be optimised. Only for transforms that may be.
    class Catch {
    public:
        explicit Catch(const LcmsContext& context) : context_(context) { context.catch_ = this; }
        Catch(const Catch&) = delete;
        Catch& operator=(const Catch&) = delete;
        ~Catch() { context_.catch_ = nullptr; }

        /// The latest one's; null when there was none.
        LcmsPipeline pipeline;

    private:
        const LcmsContext& context_;
    };

    bool IsCatching() const { return catch_ != nullptr; }

private:
    static void Log(cmsContext context, cmsUInt32Number code, const char* text);
    static cmsBool OfferPipeline(cmsPipeline* pipeline);
    friend struct LcmsTransformFactory;

    std::string lastError_;
    mutable Catch* catch_ = nullptr;
    cmsContext context_;
};

struct LcmsProfileCloser {
    using pointer = cmsHPROFILE;
    void operator()(cmsHPROFILE profile) const { cmsCloseProfile(profile); }
};
using LcmsProfile = std::unique_ptr<void, LcmsProfileCloser>;

struct LcmsTransformDeleter {
    using pointer = cmsHTRANSFORM;
    void operator()(cmsHTRANSFORM transform) const { cmsDeleteTransform(transform); }
};
using LcmsTransform = std::unique_ptr<void, LcmsTransformDeleter>;

/// Opens a copy of the bytes; null when the library refuses them.
LcmsProfile OpenLcmsProfile(const LcmsContext& context, std::span<const std::uint8_t> bytes);

}  // namespace platform
