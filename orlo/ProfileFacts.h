#pragma once

/// What a profile is and what it is fit for, as commands show it.

#include <optional>
#include <string>

#include "images/ProfileFitness.h"
#include "orlo/Showing.h"

/// Four characters without blanks at the end: "RGB"; nothing for 0.
std::string CodeWord(uint32_t code);

/// "matrix", "table", both, "curve" of a grey device, "named colours" or "none".
std::string ModelOf(ColorSyncProfileRef profile);

/// What the profile is fit for, and what against the rest.
struct Fitness {
    std::array<std::optional<Complaint>, kDevices.size()> against;  // by Device; nothing: it is fit

    bool IsFit(Device device) const { return !against[static_cast<std::size_t>(device)]; }
    /// Adds "fit" and "unfit".
    void AddTo(Json& object) const;
    /// Lines for people, indented.
    std::string Lines() const;
};
Fitness FitnessOf(const FitnessJudge& judge, const std::string& path);

/// "WHAT IS WRONG; WHAT IS NEEDED"
std::string SentenceOf(const Complaint& complaint);
