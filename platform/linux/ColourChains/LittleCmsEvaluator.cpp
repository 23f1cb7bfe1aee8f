#include "platform/linux/ColourChains/LittleCmsEvaluator.h"

#include <algorithm>

namespace platform {

namespace {

class LittleCmsEvaluator final : public PixelEvaluator {
public:
    LittleCmsEvaluator(LcmsTransform transform, std::size_t sourcePixelBytes, std::size_t destinationPixelBytes)
        : transform_(std::move(transform)), sourcePixelBytes_(sourcePixelBytes), destinationPixelBytes_(destinationPixelBytes) {}

    void ConvertRow(const void* source, void* destination, std::size_t count) const override {
        const auto* from = static_cast<const unsigned char*>(source);
        auto* to = static_cast<unsigned char*>(destination);
        while (count > 0) {
            const std::size_t run = std::min(count, kLongestRun);
            cmsDoTransform(transform_.get(), from, to, static_cast<cmsUInt32Number>(run));
            from += run * sourcePixelBytes_;
            to += run * destinationPixelBytes_;
            count -= run;
        }
    }

    const char* Name() const override { return "Little CMS"; }

private:
    static constexpr std::size_t kLongestRun = 1 << 20;  // the library counts bytes in 32 bits

    LcmsTransform transform_;
    std::size_t sourcePixelBytes_, destinationPixelBytes_;
};

}  // namespace

std::unique_ptr<PixelEvaluator> MakeLittleCmsEvaluator(const ProfileChain& chain, PixelFormat source, PixelFormat destination) {
    LcmsTransform transform = chain.MakeTransform(source, destination);
    if (!transform) return nullptr;
    return std::make_unique<LittleCmsEvaluator>(std::move(transform), source.PixelBytes(chain.SourceChannels()),
                                                destination.PixelBytes(chain.DestinationChannels()));
}

}  // namespace platform
