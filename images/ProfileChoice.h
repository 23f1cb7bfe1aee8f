#pragma once

#include <memory>
#include <string>

#include "ColourMatch/ColourMatch.h"
#include "platform/Owned.h"

struct AliasRelease {
    using pointer = AliasHandle;
    void operator()(AliasHandle alias) const { DisposeHandle(reinterpret_cast<Handle>(alias)); }
};

/// A profile file that was found fit for its role.
struct ChosenProfile {
    std::string path;
    std::unique_ptr<AliasHandle, AliasRelease> alias;  // what the engine is given
    Owned<ColorSyncProfileRef> profile;
    std::shared_ptr<void> file;  // that the alias leads to, when it is one of ours and goes with this
};

/// Any profile; throws Complaint, in which `needed` says what would be right, for a file that is missing, unreadable or none.
ChosenProfile OpenProfile(const std::string& path, const char* needed);

/// Each throws Complaint for a file that is missing, unreadable, no profile, or unfit for the role: a monitor must be a matrix model; a printer must
/// have class 'prtr' and space 'RGB ' or 'CMYK'; a proofing device must have two sides, so that no named colours or device links do.
ChosenProfile ChooseMonitor(const std::string& path);
ChosenProfile ChoosePrinter(const std::string& path);
ChosenProfile ChooseProofer(const std::string& path);

/// Has the engine given the monitor with fine curves (FineCurves.h) where it has any. Throws Complaint.
void RefineCurves(ChosenProfile& monitor);

/// A monitor or a printer for what needs none, as the engine wants both: it shows, or prints, reference RGB. Throws Complaint.
ChosenProfile StandInMonitor();
ChosenProfile StandInPrinter();

/// Throws Complaint for a monitor whose profile does not tell its luminance, without which it cannot be taken as it is.
void RequireLuminance(const ChosenProfile& monitor);

/// The reference profile that stands beside the library. Throws Complaint.
Owned<ColorSyncProfileRef> OpenReferenceProfile();

/// The profile's description, or "unnamed profile".
std::string ProfileName(ColorSyncProfileRef profile);
