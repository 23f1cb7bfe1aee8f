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
    std::unique_ptr<AliasHandle, AliasRelease> alias;
    Owned<ColorSyncProfileRef> profile;
};

/// Each throws Complaint for a file that is missing, unreadable, no profile, or unfit for the role: a monitor must be a matrix model; a printer must
/// have class 'prtr' and space 'RGB ' or 'CMYK'; a proofing device must have two sides, so that no named colours or device links do.
ChosenProfile ChooseMonitor(const std::string& path);
ChosenProfile ChoosePrinter(const std::string& path);
ChosenProfile ChooseProofer(const std::string& path);

/// The reference profile that stands beside the library. Throws Complaint.
Owned<ColorSyncProfileRef> OpenReferenceProfile();

/// The profile's description, or "unnamed profile".
std::string ProfileName(ColorSyncProfileRef profile);
