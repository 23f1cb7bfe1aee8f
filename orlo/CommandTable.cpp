#include "orlo/CommandTable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <sstream>

#include "images/Complaint.h"
#include "orlo/CalibrationCommand.h"
#include "orlo/ColourCommands.h"
#include "orlo/DisplayCommands.h"
#include "orlo/DoctorCommand.h"
#include "orlo/GammaCommands.h"
#include "orlo/GenerateCommand.h"
#include "orlo/ImageCommands.h"
#include "orlo/ProfileCommands.h"
#include "orlo/SettingsCommand.h"
#include "orlo/WatchCommand.h"

namespace {

/// A new command is a row here, made by a function of its own file.
Command AllCommands() {
    Command orlo{.name = "orlo", .about = "matches the colours of pictures between monitor, printer and proofing device"};
    for (const auto& make : {ImageCommands, ColourCommands, ProfileCommands, SettingsCommands, WatchCommands, DisplayCommands, GammaCommands,
                             CalibrationCommands, DoctorCommands, GenerateCommands}) {
        std::ranges::move(make(), std::back_inserter(orlo.commands));
    }
    return orlo;
}

}  // namespace

const Command& CommandTable() {
    static const Command table = AllCommands();
    return table;
}

std::vector<std::string> WordsOf(const Argument& argument) {
    std::vector<std::string> words;
    if (argument.value.find('|') == std::string::npos) return words;
    std::istringstream text(argument.value);
    for (std::string word; std::getline(text, word, '|');) words.push_back(word);
    return words;
}

bool TakesFile(const Argument& argument) {
    constexpr std::array<std::string_view, 4> kFiles = {"IMAGE", "PROFILE", "FILE", "FOLDER"};
    return std::ranges::find(kFiles, argument.value) != kFiles.end();
}

std::string NumberText(double number) {
    std::array<char, 32> digits;
    return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr};
}

std::string NumberText(double number, int digits) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, number);
    return text.data();
}

double RealFrom(const std::string& about, const std::string& value, double least, double most) {
    double number = 0.0;
    const char* const end = value.data() + value.size();
    const auto [last, error] = std::from_chars(value.data(), end, number);
    if (error == std::errc() && last == end && number >= least && number <= most) return number;
    throw Complaint{about, "'" + value + "' is not a value of it", "use a number from " + NumberText(least) + " to " + NumberText(most)};
}

long WholeFrom(const std::string& about, const std::string& value, long least, long most) {
    const double number = RealFrom(about, value, static_cast<double>(least), static_cast<double>(most));
    if (number != std::floor(number)) throw Complaint{about, "'" + value + "' is not a value of it", "use a whole number"};
    return static_cast<long>(number);
}
