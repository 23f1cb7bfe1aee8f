#include "images/Complaint.h"

std::string ComplaintLine(const Complaint& complaint) {
    std::string line = "orlo: " + complaint.about + ": " + complaint.wrong + "; " + complaint.right;
    for (char& c : line) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x20 || code == 0x7f) c = '?';
    }
    return line;
}
