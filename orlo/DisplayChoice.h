#pragma once

/// The displays that commands work on, and what they are called.

#include <string>
#include <vector>

#include "ColourMatch/ColourMatch.h"

struct KnownDisplay {
    CGDirectDisplayID number = 0;
    int index = 0;  // 1-based; 1 is the main one
    MC_DisplayIdentity identity = {};
    MC_DisplayInfo info = {};

    /// "DP-1"
    std::string Name() const { return identity.output; }
    int Width() const { return info.right - info.left; }
    int Height() const { return info.bottom - info.top; }
};

/// All that are active. Throws Complaint, with Exit::NotThere and the reason, where there are none whose ramps can be loaded.
std::vector<KnownDisplay> ActiveDisplays();
/// Silent: one took the call and says nothing, as while it is held up.
enum class ServerState { Answers, Silent, Gone };
/// Of the X server, be it without a display.
ServerState StateOfDisplayServer();
/// Throws Complaint, with Exit::NotThere and the reason, where there is none, or it does not answer any more.
void RequireDisplayServer();

/// By numbers, outputs' names, models and identifiers; letters' case does not matter. Each once, in the order of the list. Throws Complaint for what
/// is none, and for what several are.
std::vector<KnownDisplay> ChooseDisplays(const std::vector<std::string>& names);
/// The one that is named, or else the main one. Throws Complaint when several are named.
KnownDisplay ChooseDisplay(const std::vector<std::string>& names);
