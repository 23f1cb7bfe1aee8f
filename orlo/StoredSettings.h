#pragma once

/// The user's stored settings under the names and in the words of the command line.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "images/Complaint.h"
#include "images/CurrentMatching.h"
#include "orlo/Showing.h"

/// What a setting holds: the words of the command line, and how JSON shows them.
struct SettingValue {
    enum Kind { kText, kNumber, kSwitch, kNothing };
    Kind kind = kNothing;
    std::string text;  // empty for kNothing

    /// As it is typed: "none" for nothing.
    std::string Words() const { return kind == kNothing ? "none" : text; }
    /// A string, a number, true or false, or null.
    Json ToJson() const;
    /// The same on one line: control characters of file names become '?'.
    std::string Line() const;
    bool operator==(const SettingValue&) const = default;
};

struct Setting {
    const char* name;
    const char* about;  // one line for the help text: the values that it takes
    bool isStored;      // false: the value is what counts while nothing is stored
    SettingValue value;
};

/// Every setting, in a fixed order, as the store has it now.
std::vector<Setting> ReadSettings();

struct SettingName {
    const char* name;
    const char* about;
};
/// Names and what they take, in the same order.
std::vector<SettingName> SettingNames();

Complaint NoSuchSetting(const std::string& name);

/// One setting and its new value as typed.
struct SettingChange {
    std::string name;
    std::string value;
};

/// Throws Complaint when one of them is not right.
void CheckSettings(std::span<const SettingChange> changes);
/// Stores them all and tells every process once; throws Complaint, with nothing stored, when one of them is not right.
void ChangeSettings(std::span<const SettingChange> changes);
/// Forgets what is stored under these names, so that the defaults count, and tells every process once. Throws Complaint as above.
void ResetSettings(std::span<const std::string> names);

/// "relative", "saturation" or "absolute", of a code 'Rdr0' to 'Rdr3' as hosts are told it: a code of another kind counts as relative.
std::string IntentName(OSType code);
/// Whether the intent takes the monitor as it is, without viewing conditions.
bool IsUnadjusted(OSType code);

/// A stored choice of a profile.
struct StoredProfile {
    bool isStored = false;
    std::string path;  // empty when nothing is stored, or when the file cannot be found
};
struct StoredProfiles {
    StoredProfile monitor, printer;
    StoredProfile proofer;  // nothing stored while it is not in use
};
StoredProfiles ReadStoredProfiles();
/// The path of a stored profile that a command needs for a place ("monitor"). Throws Complaint.
std::string PathOfStored(const char* place, const StoredProfile& stored, const std::string& command);

StoredConditions ReadStoredConditions();
