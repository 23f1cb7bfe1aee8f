#pragma once

/// What is in a profile, as `orlo inspect` shows it.

#include "ColourMatch/ColourMatch.h"
#include "orlo/Showing.h"

/// The profile's parts: "header", "tags", "white", "luminance", "curves", "curveError", "coarse", "primaries".
Json ContentsOf(ColorSyncProfileRef profile);
/// The same in lines for people.
std::string LinesOfContents(const Json& contents);
