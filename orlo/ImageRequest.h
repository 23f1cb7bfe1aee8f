#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "images/CurrentMatching.h"
#include "images/Operation.h"
#include "images/Rendering.h"
#include "images/TiffCompression.h"

/// What is asked of a command on pictures; the file names are not looked at yet.
struct ImageRequest {
    Operation operation = Operation::Match;
    std::string input, output;
    std::string format;                          // of the output; empty: told by its suffix
    std::string inputProfile;                    // in place of the input's own; empty: none
    std::string monitor, printer, proofer;       // profile files; empty: none, which a printer may be where none is needed
    std::optional<StoredConditions> conditions;  // a session's; nothing: the devices as they are
    std::optional<int> quality;                  // 0, 1 or 2
    Rendering rendering;                         // of printer-match and proof
    int page = 1;                                // of an input with several
    int64_t mostPixels = 250'000'000;            // of the input
    bool salvage = false;                        // what there is of a damaged input
    std::optional<int> depth;                    // 8 or 16
    std::optional<TiffCompression> compression;
    bool printerGamut = false;
    GamutForm gamutForm = GamutForm::Mask;
    bool exactGamut = false;
    std::optional<double> tolerance;  // of the gamut, in CIE76
    bool plainCurves = false;         // the monitor's own, however few entries they have
};

/// What was done.
struct ImageReport {
    int width = 0, height = 0, depth = 0;
    std::string from, to;  // names of profiles, or what the picture holds else
    int pages = 1;         // of the input
    std::string note;      // what could not be done beside the picture; empty: all was
    double marked = 0;     // share of the pixels that are out of gamut
};
