#include "images/ProfileFitness.h"

#include "images/CurrentMatching.h"
#include "images/Refusal.h"

namespace {

constexpr const char* kNeeded = "the profile of a device is needed";

/// The profile, if the library holds it to be of the right kind. Throws Complaint.
ChosenProfile Validated(const std::string& path, OSErr (*validate)(AliasHandle)) {
    ChosenProfile opened = OpenProfile(path, kNeeded);
    const OSErr status = validate(opened.alias.get());
    if (status == 0) return opened;
    throw RefusalOf(opened).value_or(Complaint{path, "it cannot be used (status " + std::to_string(status) + ")", kNeeded});
}

}  // namespace

const char* NameOf(Device device) {
    return device == Device::Monitor ? "monitor" : device == Device::Printer ? "printer" : "proofer";
}

FitnessJudge::FitnessJudge() : monitor_(StandInMonitor()), printer_(StandInPrinter()) {}

std::optional<Complaint> FitnessJudge::Against(const std::string& path, Device device) const try {
    MatchingData* data = nullptr;
    if (device == Device::Monitor) {
        data = LoadRecord(Validated(path, ICC_ValidateMonitorAlias), printer_, std::nullopt, nullptr);
    } else if (device == Device::Printer) {
        data = LoadRecord(monitor_, Validated(path, ICC_ValidatePrinterAlias), std::nullopt, nullptr);
    } else {
        data = LoadRecord(monitor_, printer_, Validated(path, ICC_ValidateProoferAlias), nullptr);
    }
    DisposeMatchingData(data);
    return std::nullopt;
} catch (const Complaint& complaint) {
    if (complaint.exit == Exit::Failed) throw;
    return complaint;
}
