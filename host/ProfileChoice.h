#pragma once

#include <memory>
#include <optional>
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

/// What a matching session takes from the store beside the profiles.
struct StoredConditions {
    ViewingConditions viewing = {};
    uint32_t intent = 0;         // 'Rdr0' to 'Rdr3'
    std::optional<int> quality;  // 0, 1 or 2; nothing while none is stored
    std::optional<FixedXYZ> monitorWhite, printerWhite;
};

/// Keeps a matching record current while it lives.
class CurrentMatching {
public:
    /// conditions   as a session with the user's stored settings has them; null: the devices as they are
    /// quality      'Qua0', 'Qua1' or 'Qua2'
    ///
    /// Throws Complaint.
    CurrentMatching(const ChosenProfile& monitor, const ChosenProfile& printer, const std::optional<ChosenProfile>& proofer,
                    const StoredConditions* conditions, uint32_t quality);
    CurrentMatching(const CurrentMatching&) = delete;
    CurrentMatching& operator=(const CurrentMatching&) = delete;
    ~CurrentMatching() { SetMatchingData(nullptr); }
};
