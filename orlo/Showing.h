#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

using Json = nlohmann::ordered_json;

/// How a command shows its results on standard output: in lines for people, or as one JSON value. Each throws Complaint when nothing can be written.
struct Showing {
    bool json = false;
    bool quiet = false;

    /// What was asked for.
    void Show(const Json& value, const std::string& lines) const;
    /// What was done: nothing when it is to be quiet.
    void Tell(const Json& value, const std::string& lines) const;
};

/// One line; what is no UTF-8 becomes U+FFFD.
std::string LineOf(const Json& value);
