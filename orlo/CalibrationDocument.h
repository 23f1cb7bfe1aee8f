#pragma once

/// Where calibration documents stand, and reading them.

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "ColourMatch/ColourMatch.h"
#include "orlo/DisplayChoice.h"
#include "orlo/RampPlot.h"
#include "platform/Owned.h"

/// A document's folder and name, whether it is there or not.
struct DocumentPlace {
    std::string shown;
    FSRef folder;
    Owned<CFStringRef> name;
};

/// Throws Complaint where the name is none, or its folder is not there.
DocumentPlace PlaceOfFile(const std::string& file);
/// The document that hosts load; null when its folder is not there.
std::unique_ptr<DocumentPlace> PlaceOfUsersDocument(bool makeFolder);
/// 0, or what the file calls answered.
OSErr FindDocument(const DocumentPlace& place, FSRef* file);
/// A valid document. Throws Complaint.
std::unique_ptr<MonitorCalibration> ReadDocument(const DocumentPlace& place);

/// "3 displays"
std::string CountOfDisplays(int count);
/// "status -36"
std::string StatusText(OSErr status);

/// What is wrong with a display of a document, as it is now; empty when nothing is.
struct DocumentDisplay {
    CGDirectDisplayID number = 0;
    MC_DisplayInfo expected = {};
    std::optional<RampEntries> ramp = std::nullopt;    // nothing: none that a display takes
    std::optional<KnownDisplay> found = std::nullopt;  // nothing: it is not connected

    bool HasSameDepth() const { return !found || found->info.depth == expected.depth; }
    bool HasSameSize() const {
        return !found || (found->Width() == expected.right - expected.left && found->Height() == expected.bottom - expected.top);
    }
    bool IsFit() const { return ramp && HasSameDepth() && HasSameSize(); }
};
std::vector<DocumentDisplay> DisplaysOfDocument(const MonitorCalibration& document, const std::vector<KnownDisplay>& connected);

/// The ramps that the user's document has for the displays that are connected, by their numbers. None when it would not be installed: where there is
/// no document, it is damaged, or a display is not as it was; *wrong then says what, or is empty without a document.
std::map<CGDirectDisplayID, RampEntries> RampsOfUsersDocument(const std::vector<KnownDisplay>& connected, std::string* wrong);
