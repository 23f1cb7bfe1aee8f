#pragma once

#include <string>

/// What the exit status tells a script.
enum class Exit { Done = 0, Failed = 1, BadInput = 2, NotThere = 3 };

/// Why the command stops. Thrown; shown as one line on standard error.
struct Complaint {
    std::string about;  // the file or option that is at fault
    std::string wrong;  // what is wrong with it
    std::string right;  // what would be right
    Exit exit = Exit::BadInput;
};

/// A picture whose pixels are damaged or missing in part.
struct DamageComplaint : Complaint {};

/// The text on one line: control characters, as file names may have, become '?'.
std::string OneLine(std::string text);

/// "orlo: ABOUT: WRONG; RIGHT", always a single line.
std::string ComplaintLine(const Complaint& complaint);
