#pragma once

#include <optional>

/// How a picture's colours are brought to a device.
enum class Intent { Absolute, Relative, Perceptual, Saturation };

/// How a picture is brought to the printer, and for a proof how the print is shown.
struct Rendering {
    std::optional<Intent> given;
    bool compensatesBlack = false;
    bool showsPaperAsWhite = false;
    bool showsInkAsBlack = false;  // the darkest colour of the printer

    /// Whether the library's own operations do it, as for sessions. They are absolute.
    bool IsOfSessions() const { return !given && !showsPaperAsWhite; }
    Intent UsedIntent() const { return given.value_or(Intent::Absolute); }
};
