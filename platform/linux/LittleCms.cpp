#include "platform/linux/LittleCms.h"

#include <lcms2_plugin.h>

#include <new>

namespace platform {

/// Asked by the library, for transforms that it may optimise, whether there is a better way than the pipeline.
struct LcmsTransformFactory {
    /// Transforms made to be caught convert nothing; saying that they are served spares the work of optimising them.
    static cmsBool Answer(_cmsTransform2Fn* worker, void**, _cmsFreeUserDataFn*, cmsPipeline** pipeline, cmsUInt32Number*, cmsUInt32Number*,
                          cmsUInt32Number*) {
        if (!LcmsContext::OfferPipeline(*pipeline)) return FALSE;
        *worker = [](_cmstransform_struct*, const void*, void*, cmsUInt32Number, cmsUInt32Number, const cmsStride*) {};
        return TRUE;
    }

    static cmsContext NewContext(LcmsContext* owner) {
        cmsPluginTransform plugin = {{cmsPluginMagicNumber, 2120, cmsPluginTransformSig, nullptr}, {}};
        plugin.factories.xform = Answer;
        return cmsCreateContext(&plugin, owner);
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
    context->catch_->pipeline.reset(cmsPipelineDup(pipeline));
    return TRUE;
}

LcmsProfile OpenLcmsProfile(const LcmsContext& context, std::span<const std::uint8_t> bytes) {
    return LcmsProfile(cmsOpenProfileFromMemTHR(context.Get(), bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
}

}  // namespace platform
