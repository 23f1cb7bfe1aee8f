#include "platform/linux/LittleCms.h"

#include <new>

namespace platform {

LcmsContext::LcmsContext() : context_(cmsCreateContext(nullptr, this)) {
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

LcmsProfile OpenLcmsProfile(const LcmsContext& context, std::span<const std::uint8_t> bytes) {
    return LcmsProfile(cmsOpenProfileFromMemTHR(context.Get(), bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
}

}  // namespace platform
