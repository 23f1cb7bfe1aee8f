#pragma once

/// Little CMS 2 objects with owners, each under a context of its own: no state of the host's own use of the library is touched or seen.

#include <lcms2.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace platform {

/// A context whose errors go nowhere but into LastError.
class LcmsContext {
public:
    LcmsContext();
    LcmsContext(const LcmsContext&) = delete;
    LcmsContext& operator=(const LcmsContext&) = delete;
    ~LcmsContext();

    cmsContext Get() const { return context_; }
    /// The text of the latest error; empty when there was none.
    const std::string& LastError() const { return lastError_; }

private:
    static void Log(cmsContext context, cmsUInt32Number code, const char* text);

    std::string lastError_;
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
