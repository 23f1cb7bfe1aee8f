#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "images/Operation.h"
#include "images/TiffCompression.h"
#include "orlo/StoredSettings.h"

/// What the user asked for; the file names are not looked at yet.
struct Request {
    Operation operation = Operation::Match;
    std::string input, output;
    std::string monitor, printer, proofer;  // profile files; empty: not given
    std::optional<int> quality;             // 0, 1 or 2
    std::optional<int> depth;               // 8 or 16
    std::optional<TiffCompression> compression;
    bool printerGamut = false;
    bool quiet = false;
};

/// Stored settings to show or to change.
struct SettingsRequest {
    enum Verb { kList, kGet, kSet };
    Verb verb = kList;
    std::string name;                    // kGet
    std::vector<SettingChange> changes;  // kSet
    bool json = false;
};

/// Changes of the stored settings to tell as they happen.
struct WatchRequest {
    bool json = false;
};

/// A text to show on standard output instead of working.
struct Answer {
    std::string text;
};

using Wish = std::variant<Request, SettingsRequest, WatchRequest, Answer>;

/// Reads the arguments after the program's name. Throws Complaint.
Wish ReadCommandLine(std::span<char* const> arguments);

/// The name of the sub-command, as it is typed.
std::string_view OperationName(Operation operation);
