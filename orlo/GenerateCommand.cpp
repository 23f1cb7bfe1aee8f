#include "orlo/GenerateCommand.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"
#include "orlo/CommandText.h"

namespace {

using Words = std::shared_ptr<std::vector<std::string>>;

Words NoWords() {
    return std::make_shared<std::vector<std::string>>();
}

auto AppendTo(const Words& words) {
    return [words](const std::string& word) { words->push_back(word); };
}

void ShowHelp(const Words& words, const Showing& showing) {
    const Command* command = &CommandTable();
    std::string typed;
    for (const std::string& word : *words) {
        const auto below = std::ranges::find(command->commands, word, &Command::name);
        if (below == command->commands.end()) throw Complaint{word, "there is no such command", "orlo --help lists the commands"};
        command = &*below;
        typed += (typed.empty() ? "" : " ") + word;
    }
    const std::string text = HelpText(*command, typed);
    showing.Show({{"help", text}}, text);
}

void WriteManPages(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    for (const auto& [name, text] : ManPages(CommandTable())) {
        std::ofstream file(folder / name);
        file << text;
        if (!file.flush()) throw Complaint{(folder / name).string(), "it cannot be written", "name a writable folder", Exit::Failed};
    }
}

}  // namespace

std::vector<Command> GenerateCommands() {
    const Words topic = NoWords(), line = NoWords();
    const auto folder = std::make_shared<std::string>();
    return {
        {.name = "help",
         .about = "tells about a command",
         .arguments = {{"WORD", "COMMAND", "a command, and one below it", AppendTo(topic), false, true}},
         .json = "{\"help\": TEXT}",
         .examples = {"orlo help settings set"},
         .run = [topic](const Showing& showing) { ShowHelp(topic, showing); }},
        {.name = "complete",
         .about = "prints what may stand at the end of a command line, for shells",
         .arguments = {{"WORD", "WORD", "the words after orlo, after --", AppendTo(line), false, true}},
         .run = [line](const Showing& /*showing*/) { std::fputs(Completions(CommandTable(), *line).c_str(), stdout); },
         .isHidden = true},
        {.name = "generate",
         .about = "makes what is made from the table of commands",
         .commands = {{.name = "man",
                       .about = "writes the man pages",
                       .arguments = {{"FOLDER", "FOLDER", "where to", Into(*folder), true}},
                       .run = [folder](const Showing& /*showing*/) { WriteManPages(*folder); }},
                      {.name = "markdown",
                       .about = "prints docs/commands.md",
                       .run = [](const Showing& /*showing*/) { std::fputs(CommandsInMarkdown(CommandTable()).c_str(), stdout); }}},
         .isHidden = true},
    };
}
