#include "images/FineCurves.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "images/FourCharCodes.h"
#include "images/ToneCurve.h"

namespace {

constexpr double kFull = 65535.0;

struct CurveTag {
    const char* name;
    uint32_t signature;
};
constexpr std::array<CurveTag, 3> kCurves = {{{"rTRC", Code("rTRC")}, {"gTRC", Code("gTRC")}, {"bTRC", Code("bTRC")}}};

struct FreeMemory {
    void operator()(uint16_t* block) const { std::free(block); }
};
struct DisposeReverse {
    void operator()(ICC_ReverseTable* table) const { ICC_DisposeReverseTable(table); }
};
using Reverse = std::unique_ptr<ICC_ReverseTable, DisposeReverse>;

/// The curve in so many entries, such that the engine's inverse of a value lies close to the true one; nothing when it does not rise.
///
/// The engine answers the place after the last entry that is not above the value: an entry is therefore the least value that its place may stand for,
/// which is the curve rounded up, a little after the place, so that the error goes both ways. Only place 0 stands for 0, or else black would come out
/// as the last of many places that are as dark.
std::optional<std::vector<uint16_t>> FineTable(const ToneCurve& curve, std::size_t entries) {
    constexpr std::size_t kMostEntries = 65536;  // of a curve that the engine inverts
    constexpr double kNoise = 1e-6;              // of the arithmetic, and no reason to round up
    constexpr double kAfter = 0.25;              // of the step between two values
    if (curve.Entries().size() > kMostEntries) return std::nullopt;
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
        const std::size_t entries = curve ? curve->Entries().size() : 0;
        if (entries > 1 && (fewest == 0 || entries < fewest)) fewest = entries;
    }
    return static_cast<uint32_t>(fewest);
}
