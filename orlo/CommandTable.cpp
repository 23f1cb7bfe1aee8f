#include "orlo/CommandTable.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <sstream>

#include "orlo/CalibrationCommand.h"
#include "orlo/DisplayCommands.h"
#include "orlo/GenerateCommand.h"
#include "orlo/ImageCommands.h"
#include "orlo/SettingsCommand.h"
#include "orlo/WatchCommand.h"

namespace {

/// A new command is a row here, made by a function of its own file.
Command AllCommands() {
    Command orlo{.name = "orlo", .about = "matches the colours of pictures between monitor, printer and proofing device"};
    for (const auto& make : {ImageCommands, SettingsCommands, WatchCommands, DisplayCommands, CalibrationCommands, GenerateCommands}) {
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
