#pragma once

/// What is written about commands, from their table.

#include <string>
#include <utility>
#include <vector>

#include "orlo/CommandTable.h"

/// words   the command as it is typed, "settings set"; empty for orlo itself
std::string HelpText(const Command& command, const std::string& words);

/// One page for orlo and one for each command that is called by its first word: the file's name and its text.
std::vector<std::pair<std::string, std::string>> ManPages(const Command& table);

/// docs/commands.md
std::string CommandsInMarkdown(const Command& table);

/// What may stand at the end of a command line, a line each, with a tab and a description where there is one.
///
/// words   what stands after orlo; the last is the one to complete, empty at its beginning
///
/// A first line ":files" says that the names of files fit, too.
std::string Completions(const Command& table, const std::vector<std::string>& words);
