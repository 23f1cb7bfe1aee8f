#include "images/FineCurves.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

namespace {

constexpr double kFull = 65535.0;

struct CurveTag {
    const char* name;
    uint32_t signature;
};
constexpr std::array<CurveTag, 3> kCurves = {{{"rTRC", 0x72545243}, {"gTRC", 0x67545243}, {"bTRC", 0x62545243}}};

struct FreeMemory {
    void operator()(uint16_t* block) const { std::free(block); }
};
struct DisposeReverse {
    void operator()(ICC_ReverseTable* table) const { ICC_DisposeReverseTable(table); }
};
using Reverse = std::unique_ptr<ICC_ReverseTable, DisposeReverse>;

uint32_t BigEndian(const uint8_t* bytes, int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 8 | bytes[i];
    return value;
}

/// A tone curve as its tag defines it; from 0..1 to 0..1.
class ToneCurve {
public:
    static std::optional<ToneCurve> Of(ColorSyncProfileRef profile, const char* tag) {
        const Owned<CFDataRef> data(ColorSyncProfileCopyTag(profile, __CFStringMakeConstantString(tag)));
        if (!data || CFDataGetLength(data.Get()) < 12) return std::nullopt;
        const uint8_t* const bytes = CFDataGetBytePtr(data.Get());
        const auto length = static_cast<std::size_t>(CFDataGetLength(data.Get()));
        ToneCurve curve;
        const uint32_t type = BigEndian(bytes, 4);
        if (type == 0x63757276) {  // 'curv'
            const std::size_t count = BigEndian(bytes + 8, 4);
            if (count > (length - 12) / 2) return std::nullopt;
            for (std::size_t i = 0; i < count; ++i) curve.entries_.push_back(static_cast<uint16_t>(BigEndian(bytes + 12 + 2 * i, 2)));
            if (count < 2) curve.gamma_ = count == 0 ? 1.0 : curve.entries_[0] / 256.0;
            return curve;
        }
        constexpr std::array<std::size_t, 5> kParameters = {1, 3, 4, 5, 7};
        const uint32_t form = BigEndian(bytes + 8, 2);
        if (type != 0x70617261 || form >= kParameters.size() || length < 12 + 4 * kParameters[form]) return std::nullopt;  // 'para'
        std::array<double, 7> p{};
        for (std::size_t i = 0; i < kParameters[form]; ++i) p[i] = static_cast<int32_t>(BigEndian(bytes + 12 + 4 * i, 4)) / 65536.0;
        curve.gamma_ = p[0];
        if (form == 0) return curve;
        curve.a_ = p[1];
        curve.b_ = p[2];
        if (form < 3) {
            // Below the place where the base becomes negative stands a constant.
            curve.from_ = p[1] != 0 ? -p[2] / p[1] : 0;
            curve.above_ = curve.below_ = form == 2 ? p[3] : 0;
        } else {
            curve.slope_ = p[3];
            curve.from_ = p[4];
            curve.above_ = p[5];
            curve.below_ = p[6];
        }
        return curve;
    }

    double At(double x) const {
        if (entries_.size() < 2) {
            const double y = x >= from_ ? std::pow(std::max(a_ * x + b_, 0.0), gamma_) + above_ : slope_ * x + below_;
            return std::clamp(y, 0.0, 1.0);
        }
        const double place = x * static_cast<double>(entries_.size() - 1);
        const std::size_t i = std::min(static_cast<std::size_t>(place), entries_.size() - 2);
        const double part = place - static_cast<double>(i);
        return (entries_[i] * (1.0 - part) + entries_[i + 1] * part) / kFull;
    }

    std::size_t Entries() const { return entries_.size(); }

private:
    std::vector<uint16_t> entries_;
    double gamma_ = 1.0, a_ = 1.0, b_ = 0.0, slope_ = 0.0, from_ = 0.0, above_ = 0.0, below_ = 0.0;
};

/// The curve in so many entries, such that the engine's inverse of a value lies close to the true one; nothing when it does not rise.
///
/// The engine answers the place after the last entry that is not above the value: an entry is therefore the least value that its place may stand for,
/// which is the curve rounded up, a little after the place, so that the error goes both ways. Only place 0 stands for 0, or else black would come out
/// as the last of many places that are as dark.
std::optional<std::vector<uint16_t>> FineTable(const ToneCurve& curve, std::size_t entries) {
    constexpr std::size_t kMostEntries = 65536;  // of a curve that the engine inverts
    constexpr double kNoise = 1e-6;              // of the arithmetic, and no reason to round up
    constexpr double kAfter = 0.25;              // of the step between two values
    if (curve.Entries() > kMostEntries) return std::nullopt;
    std::vector<uint16_t> table(entries);
    double last = -1.0;
    for (std::size_t i = 0; i < entries; ++i) {
        const double value = curve.At(std::min(static_cast<double>(i) / static_cast<double>(entries - 1) + kAfter / kFull, 1.0));
        if (!(value >= last)) return std::nullopt;
        last = value;
        table[i] = i == 0 ? uint16_t{0} : static_cast<uint16_t>(std::max(std::ceil(value * kFull - kNoise), 1.0));
    }
    if (curve.At(0.0) * kFull > 1.0) table[0] = static_cast<uint16_t>(curve.At(0.0) * kFull);
    if (table.front() >= table.back()) return std::nullopt;
    return table;
}

std::optional<std::vector<uint16_t>> FineTableOf(ColorSyncProfileRef monitor, const CurveTag& tag, std::size_t entries) {
    const std::optional<ToneCurve> curve = ToneCurve::Of(monitor, tag.name);
    return curve ? FineTable(*curve, entries) : std::nullopt;
}

Reverse ReverseOf(const uint16_t* table, std::size_t count) {
    ICC_ReverseTable* reverse = nullptr;
    ICC_BuildReverseTable(table, static_cast<int>(count), &reverse);
    return Reverse(reverse);
}

}  // namespace

Owned<CFDataRef> ProfileWithFineCurves(ColorSyncProfileRef monitor, uint32_t entries) {
    const Owned<ColorSyncMutableProfileRef> fine(ColorSyncProfileCreateMutableCopy(monitor));
    if (!fine) return {};
    for (const CurveTag& tag : kCurves) {
        const auto table = FineTableOf(monitor, tag, entries);
        if (!table) return {};
        std::vector<uint8_t> bytes = {'c', 'u', 'r', 'v', 0, 0, 0, 0};
        for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(entries >> shift));
        for (const uint16_t value : *table) {
            bytes.push_back(static_cast<uint8_t>(value >> 8));
            bytes.push_back(static_cast<uint8_t>(value));
        }
        const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())));
        if (!data) return {};
        ColorSyncProfileSetTag(fine.Get(), __CFStringMakeConstantString(tag.name), data.Get());
    }
    return Owned<CFDataRef>(ColorSyncProfileCopyData(fine.Get(), nullptr));
}

double ErrorOfPlainCurves(ColorSyncProfileRef monitor) {
    double worst = 0.0;
    for (const CurveTag& tag : kCurves) {
        const auto fine = FineTableOf(monitor, tag, kFinestCurve);
        uint16_t* samples = nullptr;
        uint32_t count = 0;
        if (!fine || GetColourantLUT(monitor, tag.signature, &samples, &count) != 0) return 0.0;
        const std::unique_ptr<uint16_t, FreeMemory> plain(samples);
        const Reverse plainReverse = ReverseOf(samples, count), fineReverse = ReverseOf(fine->data(), fine->size());
        if (!plainReverse || !fineReverse) return 0.0;
        double sum = 0.0;
        for (uint32_t value = 0; value < kFinestCurve; ++value) {
            uint8_t flag = 0;
            const auto y = static_cast<uint16_t>(value);
            sum += std::abs(ICC_ReverseOneDLookup(y, plainReverse.get(), &flag) - ICC_ReverseOneDLookup(y, fineReverse.get(), &flag));
        }
        worst = std::max(worst, sum / kFinestCurve);
    }
    return worst;
}

uint32_t FewestCurveEntries(ColorSyncProfileRef monitor) {
    std::size_t fewest = 0;
    for (const CurveTag& tag : kCurves) {
        const std::optional<ToneCurve> curve = ToneCurve::Of(monitor, tag.name);
        if (curve && curve->Entries() > 1 && (fewest == 0 || curve->Entries() < fewest)) fewest = curve->Entries();
    }
    return static_cast<uint32_t>(fewest);
}
