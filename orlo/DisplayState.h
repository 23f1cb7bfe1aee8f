#pragma once

/// What displays have, and what they should have.

#include <string>

#include "orlo/CalibrationDocument.h"
#include "orlo/DisplayChoice.h"
#include "orlo/RampPlot.h"
#include "platform/Owned.h"

struct DisplayProfile {
    Owned<CFDataRef> bytes;  // null: none
    int32_t source = kMC_NoProfile;
    std::string name;     // its description
    std::string missing;  // the file of a profile that it was given, when it is gone or no profile any more

    /// Of the missing file: "/a.icc, which it was assigned, is gone or no profile any more".
    std::string MissingWords() const;
    Json Missing() const;
};
DisplayProfile ProfileOfDisplay(const KnownDisplay& display);
/// Who says that the display has it: "the colour manager", and for programs "colour-manager".
std::string SourceInWords(int32_t source);
std::string SourceKey(int32_t source);

/// The ramp that a display should have: that of the user's document, else its profile's, else a straight one.
struct WantedRamp {
    std::string key;    // "document", "profile" or "straight"
    std::string words;  // "the document's", "the profile's", "straight"
    RampEntries ramp;
};
WantedRamp RampWantedFor(const KnownDisplay& display, const DisplayProfile& profile, const DocumentRamps& documents, std::size_t entries);
/// Which of these the display has loaded; the key is "other" where it is none of them.
WantedRamp RampFound(const KnownDisplay& display, const DisplayProfile& profile, const DocumentRamps& documents, const RampEntries& loaded);
