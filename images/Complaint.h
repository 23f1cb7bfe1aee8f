#pragma once

#include <string>

/// Why the command stops. Thrown; shown as one line on standard error, and the exit status is 2.
struct Complaint {
    std::string about;  // the file or option that is at fault
    std::string wrong;  // what is wrong with it
    std::string right;  // what would be right
};

/// "orlo: ABOUT: WRONG; RIGHT", always a single line: control characters of file names become '?'.
std::string ComplaintLine(const Complaint& complaint);
