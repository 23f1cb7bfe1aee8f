#pragma once

#include <span>
#include <string>
#include <vector>

#include "orlo/CommandTable.h"

/// What the arguments ask for.
struct Wish {
    const Command* command = nullptr;
    std::string words;  // the command as it is typed, "settings set"; empty for orlo itself
    Showing showing;
    bool help = false;
    bool version = false;
};

/// Reads the arguments after the program's name by the table, and has each argument's value taken. With help or version nothing is taken.
/// Throws Complaint.
Wish ReadCommandLine(const Command& table, std::span<char* const> arguments);

/// The one of the words that was probably meant; empty when none is near.
std::string Nearest(const std::string& word, const std::vector<std::string>& words);
