#include "platform/linux/ColourChains/GamutMap.h"

#include <algorithm>

namespace platform {

namespace {

class GamutMap final : public PixelEvaluator {
public:
    GamutMap(const ProfileChain& chain, PixelFormat source)
        : toLab_(chain.MakeTransformToLab(source)),
          roundTrip_(chain.MakeLastDeviceRoundTrip()),
          sourcePixelBytes_(source.PixelBytes(chain.SourceChannels())) {}

    bool IsWhole() const { return toLab_ && roundTrip_; }

    void ConvertRow(const void* source, void* destination, std::size_t count) const override {
        const auto* from = static_cast<const unsigned char*>(source);
        auto* to = static_cast<unsigned char*>(destination);
        cmsCIELab asked[kBlock];
        cmsCIELab shown[kBlock];
        for (std::size_t done = 0; done < count; done += kBlock) {
            const std::size_t block = std::min(count - done, kBlock);
            cmsDoTransform(toLab_.get(), from + done * sourcePixelBytes_, asked, static_cast<cmsUInt32Number>(block));
            cmsDoTransform(roundTrip_.get(), asked, shown, static_cast<cmsUInt32Number>(block));
            for (std::size_t first = 0; first < block; first += 8) {
                unsigned bits = 0;
                for (std::size_t i = 0; i < std::min<std::size_t>(8, block - first); ++i) {
                    if (IsOut(asked[first + i], shown[first + i])) bits |= 0x80u >> i;
                }
                *to++ = static_cast<unsigned char>(bits);
            }
        }
    }

    const char* Name() const override { return "Little CMS round trip"; }

private:
    static constexpr std::size_t kBlock = 64;  // a multiple of 8, so that only a row's last byte is partly used

    static bool IsOut(const cmsCIELab& asked, const cmsCIELab& shown) {
        const double L = asked.L - shown.L;
        const double a = asked.a - shown.a;
        const double b = asked.b - shown.b;
        // Written so that a colour that is no number is out.
        return !(L * L + a * a + b * b <= kGamutThreshold * kGamutThreshold);
    }

    LcmsTransform toLab_;
    LcmsTransform roundTrip_;
    std::size_t sourcePixelBytes_;
};

}  // namespace

std::unique_ptr<PixelEvaluator> MakeGamutMap(const ProfileChain& chain, PixelFormat source) {
    auto test = std::make_unique<GamutMap>(chain, source);
    if (!test->IsWhole()) return nullptr;
    return test;
}

}  // namespace platform
