#pragma once

/// Where calibration documents stand, and reading them.

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "ColourMatch/ColourMatch.h"
#include "orlo/DisplayChoice.h"
#include "orlo/RampPlot.h"
#include "orlo/Showing.h"
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
/// What a status of the file and display calls means: "there is no memory for it".
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

using DocumentRamps = std::map<CGDirectDisplayID, RampEntries>;

/// What the user's document has for the displays that are connected.
struct UsersDocument {
    DocumentRamps ramps;  // by the displays' numbers; none when the document would not be installed, and without one
    std::string wrong;    // why it would not be; empty when nothing is wrong

    /// "the calibration document is not used: ...", in lines and for programs; empty, and null, when nothing is wrong.
    std::string FaultWords() const;
    std::string FaultLine() const;
    Json Fault() const;
};
UsersDocument ReadUsersDocument(const std::vector<KnownDisplay>& connected);
