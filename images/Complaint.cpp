#include "images/Complaint.h"

std::string OneLine(std::string text) {
    for (char& c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x20 || code == 0x7f) c = '?';
    }
    return text;
}

std::string ComplaintLine(const Complaint& complaint) {
    return OneLine("orlo: " + complaint.about + ": " + complaint.wrong + "; " + complaint.right);
}
