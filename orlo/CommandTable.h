#pragma once

/// The table of commands, from which everything that knows them is made: parsing, help, man pages, completion and docs/commands.md.

#include <functional>
#include <string>
#include <vector>

#include "orlo/Showing.h"

/// What follows a command.
struct Argument {
    /// An option as it is typed ("--monitor"), or the word that stands for a positional argument ("INPUT").
    std::string name;
    /// What it takes. Several words with '|' between them are all that it takes; IMAGE, PROFILE, FILE and FOLDER are names of files; SETTING is the
    /// name of a setting; any other word is free text. Empty: an option that takes nothing.
    std::string value;
    std::string about;
    /// Is given each value, in order; an empty text for an option that takes nothing. Throws Complaint.
    std::function<void(const std::string& value)> take;
    bool isNeeded = false;
    bool isRepeated = false;  // every value that is given counts; of another option given again the last. Positional, the last: takes all that follow

    bool IsOption() const { return name.starts_with("--"); }
};

/// A command. --help, --json and --quiet are everybody's and stand in no row.
struct Command {
    std::string name;
    std::string about;                             // one line
    std::string details = {};                      // paragraphs of its help
    std::vector<Argument> arguments = {};          // positional ones in their order
    std::string json = {};                         // what --json prints
    std::vector<std::string> examples = {};        // command lines
    std::vector<Command> commands = {};            // those below it
    std::function<void(const Showing&)> run = {};  // nothing: one of `commands` must follow. Throws Complaint
    bool isHidden = false;
};

/// orlo itself, with all its commands.
const Command& CommandTable();

/// The words that an argument takes, when those are all; empty otherwise.
std::vector<std::string> WordsOf(const Argument& argument);
/// Whether it takes the name of a file or a folder.
bool TakesFile(const Argument& argument);

// What usual arguments take their values into.

inline auto Into(std::string& to) {
    return [&to](const std::string& value) { to = value; };
}
/// In as few digits as tell it from every other.
std::string NumberText(double number);
/// With so many digits behind the point.
std::string NumberText(double number, int digits);

/// The number; throws Complaint for what is none, or none of that range.
double RealFrom(const std::string& about, const std::string& value, double least, double most);

/// The same for a whole number.
long WholeFrom(const std::string& about, const std::string& value, long least, long most);

inline auto SwitchOn(bool& to) {
    return [&to](const std::string&) { to = true; };
}
