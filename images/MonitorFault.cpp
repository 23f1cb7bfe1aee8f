#include "images/MonitorFault.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

namespace {

struct FreeMemory {
    void operator()(uint16_t* block) const { std::free(block); }
};

/// Whether a curve can be inverted, as a matching record has to.
bool IsInvertible(const uint16_t* curve, uint32_t count) {
    ICC_ReverseTable* reverse = nullptr;
    const int status = ICC_BuildReverseTable(curve, static_cast<int>(count), &reverse);
    ICC_DisposeReverseTable(reverse);
    return status == 0;
}

}  // namespace

std::optional<Complaint> FaultOfMonitor(const ChosenProfile& monitor, OSErr status) {
    constexpr uint32_t kMostEntries = 65536;  // of a curve that is to be inverted
    constexpr std::pair<const char*, uint32_t> kCurves[] = {{"red", 0x72545243}, {"green", 0x67545243}, {"blue", 0x62545243}};  // 'rTRC' and so on
    for (const auto& [colour, tag] : kCurves) {
        uint16_t* samples = nullptr;
        uint32_t count = 0;
        const OSErr sampled = GetColourantLUT(monitor.profile.Get(), tag, &samples, &count);
        const std::unique_ptr<uint16_t, FreeMemory> curve(samples);
        const std::string name = std::string("its ") + colour + " tone curve ";
        if (sampled == kStatusProfileUnsuitable) return Complaint{monitor.path, name + "cannot be used", "another monitor profile is needed"};
        if (sampled != 0) return std::nullopt;
        if (count > kMostEntries) {
            return Complaint{monitor.path, name + "has " + std::to_string(count) + " entries",
                             "a monitor profile with 65536 at most in each is needed"};
        }
        if (IsInvertible(samples, count)) continue;
        // The same values in their order take little: where there is memory for those, it is the curve that asks for too much.
        std::sort(samples, samples + count);
        if (!IsInvertible(samples, count)) return std::nullopt;
        return Complaint{monitor.path, name + "goes up and down too often", "a monitor profile with smooth curves is needed"};
    }
    if (status != kStatusProfileUnsuitable) return std::nullopt;
    return Complaint{monitor.path, "its colourants have no inverse", "another monitor profile is needed"};
}
