#include "platform/linux/ColorSync/LittleCms.h"

#include <lcms2_plugin.h>

#include <algorithm>
#include <array>
#include <new>
#include <utility>

namespace platform {

namespace {

void HoldInDeviceRange(const cmsFloat32Number in[], cmsFloat32Number out[], const cmsStage* stage) {
    std::transform(in, in + cmsStageInputChannels(stage), out, [](float value) { return value > 0.0f ? std::min(value, 1.0f) : 0.0f; });
}

/// Asked by the library to link profiles. They come as pairs from device to device (or Lab), also where it looks for a black point by itself.
cmsPipeline* LinkPairs(cmsContext context, cmsUInt32Number count, cmsUInt32Number intents[], cmsHPROFILE profiles[], cmsBool compensations[],
                       cmsFloat64Number adaptations[], cmsUInt32Number flags) {
    if (count % 2 != 0) return _cmsDefaultICCintents(context, count, intents, profiles, compensations, adaptations, flags);
    LcmsPipeline linked(cmsPipelineAlloc(context, 0, 0));
    for (cmsUInt32Number i = 0; linked && i < count; i += 2) {
        if (i > 0) {
            const cmsUInt32Number channels = cmsPipelineOutputChannels(linked.get());
            cmsStage* range =
                _cmsStageAllocPlaceholder(context, kLcmsDeviceRangeStage, channels, channels, HoldInDeviceRange, nullptr, nullptr, nullptr);
            if (!range || !cmsPipelineInsertStage(linked.get(), cmsAT_END, range)) return nullptr;
        }
        const LcmsPipeline pair(_cmsDefaultICCintents(context, 2, intents + i, profiles + i, compensations + i, adaptations + i, flags));
        if (!pair || !cmsPipelineCat(linked.get(), pair.get())) return nullptr;
    }
    return linked.release();
}

/// Whether a copy of a pipeline has all that it has: without memory the library leaves a stage's data, matrix or offset out, and says nothing.
bool IsWhole(const cmsPipeline* copy, const cmsPipeline* pipeline) {
    const cmsStage* copied = cmsPipelineGetPtrToFirstStage(copy);
    for (const cmsStage* stage = cmsPipelineGetPtrToFirstStage(pipeline); stage; stage = cmsStageNext(stage), copied = cmsStageNext(copied)) {
        if (!copied || !cmsStageData(stage) != !cmsStageData(copied)) return false;
        if (cmsStageType(stage) != cmsSigMatrixElemType) continue;
        const auto* data = static_cast<const _cmsStageMatrixData*>(cmsStageData(stage));
        const auto* copiedData = static_cast<const _cmsStageMatrixData*>(cmsStageData(copied));
        if (!copiedData->Double || !data->Offset != !copiedData->Offset) return false;
    }
    return true;
}

// A context is used by one thread at a time, so that its locks have nothing to do. The library's own take memory, and it goes on without when there
// is none.
char sLock;
void* MakeLock(cmsContext) {
    return &sLock;
}
void EndLock(cmsContext, void*) {}
cmsBool Lock(cmsContext, void*) {
    return TRUE;
}
void Unlock(cmsContext, void*) {}

}  // namespace

/// Asked by the library, for transforms that it may optimise, whether there is a better way than the pipeline.
struct LcmsTransformFactory {
    /// By then it has taken out or merged the stages that it does not even keep where it may not optimise. Saying yes spares the rest.
    static cmsBool Answer(cmsPipeline** pipeline, cmsUInt32Number, cmsUInt32Number*, cmsUInt32Number*, cmsUInt32Number*) {
        return LcmsContext::OfferPipeline(*pipeline);
    }

    static cmsContext NewContext(LcmsContext* owner) {
        cmsPluginOptimization plugin = {{cmsPluginMagicNumber, 2120, cmsPluginOptimizationSig, nullptr}, Answer};
        cmsPluginMutex locks = {{cmsPluginMagicNumber, 2120, cmsPluginMutexSig, &plugin.base}, MakeLock, EndLock, Lock, Unlock};
        std::array<cmsPluginRenderingIntent, 4> intents = {};
        cmsPluginBase* next = &locks.base;
        for (cmsUInt32Number intent = 0; intent < intents.size(); ++intent) {
            intents[intent] = {{cmsPluginMagicNumber, 2120, cmsPluginRenderingIntentSig, next}, intent, LinkPairs, ""};
            next = &intents[intent].base;
        }
        return cmsCreateContext(next, owner);
    }
};

LcmsContext::LcmsContext() : context_(LcmsTransformFactory::NewContext(this)) {
    if (!context_) throw std::bad_alloc();
    cmsSetLogErrorHandlerTHR(context_, Log);
}

LcmsContext::~LcmsContext() {
    cmsDeleteContext(context_);
}

// Called from C: nothing raised may pass through it.
void LcmsContext::Log(cmsContext context, cmsUInt32Number, const char* text) try {
    static_cast<LcmsContext*>(cmsGetContextUserData(context))->lastError_ = text;
} catch (const std::bad_alloc&) {
}

cmsBool LcmsContext::OfferPipeline(cmsPipeline* pipeline) {
    const auto* context = static_cast<const LcmsContext*>(cmsGetContextUserData(cmsGetPipelineContextID(pipeline)));
    if (!context || !context->catch_) return FALSE;
    LcmsPipeline copy(cmsPipelineDup(pipeline));
    if (copy && !IsWhole(copy.get(), pipeline)) copy.reset();
    context->catch_->pipeline = std::move(copy);
    return TRUE;
}

LcmsProfile OpenLcmsProfile(const LcmsContext& context, std::span<const std::uint8_t> bytes) {
    return LcmsProfile(cmsOpenProfileFromMemTHR(context.Get(), bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
}

}  // namespace platform
