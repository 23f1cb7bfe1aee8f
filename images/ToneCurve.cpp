#include "images/ToneCurve.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>

#include "images/BigEndian.h"
#include "images/FourCharCodes.h"
#include "platform/Owned.h"

std::optional<ToneCurve> ToneCurve::Of(ColorSyncProfileRef profile, const char* tag) {
    constexpr std::size_t kHead = 12;  // bytes: the type, four of nothing, and the count or the formula
    const Owned<CFDataRef> data(ColorSyncProfileCopyTag(profile, __CFStringMakeConstantString(tag)));
    if (!data) return std::nullopt;
    const std::span<const uint8_t> bytes(CFDataGetBytePtr(data.Get()), static_cast<std::size_t>(CFDataGetLength(data.Get())));
    if (bytes.size() < kHead) return std::nullopt;
    ToneCurve curve;
    const uint32_t type = BigEndian(bytes, 0);
    if (type == Code("curv")) {
        const std::size_t count = BigEndian(bytes, 8);
        if (count > (bytes.size() - kHead) / 2) return std::nullopt;
        for (std::size_t i = 0; i < count; ++i) curve.entries_.push_back(static_cast<uint16_t>(BigEndian(bytes, kHead + 2 * i, 2)));
        if (count == 1) curve.gamma_ = curve.entries_[0] / 256.0;
        return curve;
    }
    constexpr std::array<std::size_t, 5> kParameters = {1, 3, 4, 5, 7};
    const uint32_t formula = BigEndian(bytes, 8, 2);
    if (type != Code("para") || formula >= kParameters.size() || bytes.size() < kHead + 4 * kParameters[formula]) return std::nullopt;
    curve.formula_ = static_cast<int>(formula);
    for (std::size_t i = 0; i < kParameters[formula]; ++i) {
        curve.parameters_.push_back(static_cast<int32_t>(BigEndian(bytes, kHead + 4 * i)) / 65536.0);
    }
    const std::vector<double>& p = curve.parameters_;
    curve.gamma_ = p[0];
    if (formula == 0) return curve;
    curve.a_ = p[1];
    curve.b_ = p[2];
    if (formula < 3) {
        // Below the place where the base becomes negative stands a constant.
        curve.from_ = p[1] != 0 ? -p[2] / p[1] : 0;
        curve.above_ = curve.below_ = formula == 2 ? p[3] : 0;
    } else {
        curve.slope_ = p[3];
        curve.from_ = p[4];
        if (formula == 4) {
            curve.above_ = p[5];
            curve.below_ = p[6];
        }
    }
    return curve;
}

double ToneCurve::At(double x) const {
    constexpr double kFull = 65535.0;
    if (entries_.size() < 2) {
        const double y = x >= from_ ? std::pow(std::max(a_ * x + b_, 0.0), gamma_) + above_ : slope_ * x + below_;
        return std::clamp(y, 0.0, 1.0);
    }
    const double place = x * static_cast<double>(entries_.size() - 1);
    const std::size_t i = std::min(static_cast<std::size_t>(place), entries_.size() - 2);
    const double part = place - static_cast<double>(i);
    return (entries_[i] * (1.0 - part) + entries_[i + 1] * part) / kFull;
}
