#include "orlo/Showing.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"

void Showing::Show(const Json& value, const std::string& lines) const {
    const std::string text = json ? value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n" : lines;
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (std::fflush(stdout) != 0 || !isWritten) {
        throw Complaint{"standard output", "it cannot be written", "make room or choose another place", Exit::Failed};
    }
}

void Showing::Tell(const Json& value, const std::string& lines) const {
    if (!quiet) Show(value, lines);
}

std::string LineOf(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}
