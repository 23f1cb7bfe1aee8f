#pragma once

#include <optional>
#include <string>
#include <vector>

#include "images/Operation.h"
#include "images/TiffCompression.h"
#include "orlo/CommandTable.h"

/// What is asked of a command on pictures; the file names are not looked at yet.
struct ImageRequest {
    Operation operation = Operation::Match;
    std::string command;  // its name
    std::string input, output;
    std::string monitor, printer, proofer;  // profile files; empty: not given
    std::optional<int> quality;             // 0, 1 or 2
    std::optional<int> depth;               // 8 or 16
    std::optional<TiffCompression> compression;
    bool printerGamut = false;
};

/// match, proof, gamut, predict, printer-match, printer-predict.
std::vector<Command> ImageCommands();

/// Does it, and tells what was done. Throws Complaint.
void RunImageCommand(const ImageRequest& request, const Showing& showing);
