#pragma once

#include <cstdint>
#include <optional>

#include "images/ProfileChoice.h"

/// What a matching session takes from the store beside the profiles.
struct StoredConditions {
    ViewingConditions viewing = {};
    uint32_t intent = 0;  // 'Rdr0' to 'Rdr3'
    int quality = 0;      // 0, 1 or 2
    std::optional<FixedXYZ> monitorWhite, printerWhite;
};

/// A record made of these, which the caller disposes of. Throws Complaint, about the profile that was refused and in the library's words, where it
/// has any.
MatchingData* LoadRecord(const ChosenProfile& monitor, const ChosenProfile& printer, const std::optional<ChosenProfile>& proofer,
                         const StoredConditions* conditions);

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
