#include "images/CurrentMatching.h"

#include <string>

#include "images/Complaint.h"
#include "images/Refusal.h"

namespace {

/// The library's words for a profile that found no memory, which is not the file's fault.
constexpr const char* kNoMemory = "there is no memory for it";

}  // namespace

MatchingData* LoadRecord(const ChosenProfile& monitor, const ChosenProfile& printer, const std::optional<ChosenProfile>& proofer,
                         const StoredConditions* conditions) {
    const auto white = [](const std::optional<FixedXYZ>& colour) { return colour ? &*colour : nullptr; };
    const AliasHandle profiles[3] = {monitor.alias.get(), printer.alias.get(), proofer ? proofer->alias.get() : nullptr};
    OSErr status = 0;
    MatchingData* const data = LoadMatchingData(profiles, proofer ? 1 : 0, conditions ? white(conditions->monitorWhite) : nullptr,
                                                conditions ? white(conditions->printerWhite) : nullptr, &status);
    if (data) return data;
    for (const ChosenProfile* profile : {&monitor, &printer, proofer ? &*proofer : nullptr}) {
        const auto refusal = profile ? RefusalOf(*profile) : std::nullopt;
        if (refusal && refusal->wrong != kNoMemory) throw *refusal;
    }
    if (status == kStatusNoMemory) throw Complaint{"matching data", "there is not enough memory for it", "close other programs", Exit::Failed};
    const std::string code = " (status " + std::to_string(status) + ")";
    const std::string& device = proofer ? proofer->path + ", " + printer.path : printer.path;
    throw Complaint{device, "no colours can be converted through the profile" + code, "a profile with tables for both directions is needed"};
}

CurrentMatching::CurrentMatching(const ChosenProfile& monitor, const ChosenProfile& printer, const std::optional<ChosenProfile>& proofer,
                                 const StoredConditions* conditions, uint32_t quality) {
    MatchingData* const data = LoadRecord(monitor, printer, proofer, conditions);
    if (conditions) DirectICCSetViewingConditions(data, conditions->intent, &conditions->viewing);
    const OSErr qualityStatus = SetDirectMatchingQuality(data, quality);
    if (qualityStatus != 0) {
        DisposeMatchingData(data);
        throw Complaint{"--quality", "there is not enough memory for the precomputed tables", "use 1 or 2", Exit::Failed};
    }
    SetMatchingData(data);
}
