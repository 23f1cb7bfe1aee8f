#include "orlo/CommandLine.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <numeric>
#include <optional>

#include "images/Complaint.h"

namespace {

constexpr int kMost = 1 << 28;  // values of a repeated argument

/// "use lzw, deflate or none"
std::string UseOneOf(const std::vector<std::string>& words) {
    std::string text = "use ";
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0) text += i + 1 == words.size() ? " or " : ", ";
        text += words[i];
    }
    return text;
}

/// A command with what stands for it in the parser.
struct Node {
    const Command* command = nullptr;
    CLI::App* app = nullptr;
    std::string words;
    std::vector<CLI::Option*> options;  // of the command's arguments, in their order
    CLI::Option *json = nullptr, *quiet = nullptr, *help = nullptr;
};

/// The parser for the table. It collects: what is missing or too many, and what the values mean, is judged here, with our own words.
class Parser {
public:
    explicit Parser(const Command& table) {
        nodes_.push_back({&table, &app_, "", {}, nullptr, nullptr, nullptr});
        app_.set_help_flag();
        app_.set_config();
        version_ = app_.add_flag("--version");
        Fill(0);
    }

    Wish Read(std::span<char* const> arguments) {
        std::vector<std::string> words(arguments.rbegin(), arguments.rend());
        RefuseEmptyValues(arguments);
        std::optional<CLI::ParseError> fault;
        try {
            app_.parse(std::move(words));
        } catch (const CLI::ParseError& error) {
            fault = error;
        }
        const Node& node = Chosen();
        Wish wish{node.command, node.words, {node.json->count() > 0, node.quiet->count() > 0}, node.help->count() > 0, version_->count() > 0};
        if (wish.help || wish.version) return wish;
        for (const CLI::Option* option : {node.json, node.quiet}) RefuseValue(*option);
        RefuseStrangers(node, wish);
        RefuseEarlyOptions(node);
        if (fault) throw Complaint{AboutOf(*fault), "its value is missing", HowTo(node)};
        if (!node.command->run) throw NothingToDo(node);
        for (std::size_t i = 0; i < node.options.size(); ++i) Take(node, node.command->arguments[i], *node.options[i]);
        return wish;
    }

private:
    void Fill(std::size_t index) {
        CLI::App& app = *nodes_[index].app;
        const Command& command = *nodes_[index].command;
        app.allow_extras();
        // Once a command is found, its arguments are never taken for further commands.
        app.require_subcommand(0, 1);
        nodes_[index].json = app.add_flag("--json");
        nodes_[index].quiet = app.add_flag("--quiet,-q");
        nodes_[index].help = app.add_flag("--help,-h");
        for (const Argument& argument : command.arguments) {
            CLI::Option* const option = argument.IsOption() && argument.value.empty() ? app.add_flag(argument.name) : app.add_option(argument.name);
            if (argument.isRepeated && argument.IsOption()) {
                option->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
            } else if (argument.isRepeated) {
                // The parser goes on collecting until it has as many as it expects, and does not mind when they are fewer.
                option->expected(kMost)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
            } else {
                option->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
            }
            // Else a name in brackets would be taken for a list.
            option->allow_extra_args(false);
            nodes_[index].options.push_back(option);
        }
        for (const Command& below : command.commands) {
            const std::string words = nodes_[index].words.empty() ? below.name : nodes_[index].words + " " + below.name;
            CLI::App* const sub = app.add_subcommand(below.name);
            sub->set_help_flag();
            nodes_.push_back({&below, sub, words, {}, nullptr, nullptr, nullptr});
            Fill(nodes_.size() - 1);
        }
    }

    /// "--monitor=" would take the next argument for its value.
    static void RefuseEmptyValues(std::span<char* const> arguments) {
        for (const std::string_view argument : arguments) {
            if (argument == "--") return;
            if (argument.starts_with("--") && argument.find('=') == argument.size() - 1) {
                throw Complaint{std::string(argument.substr(0, argument.size() - 1)), "its value is empty", "write a value after the ="};
            }
        }
    }

    const Node& Chosen() const {
        const CLI::App* app = &app_;
        while (!app->get_subcommands().empty()) app = app->get_subcommands().front();
        return *std::ranges::find(nodes_, app, &Node::app);
    }

    static std::string HowTo(const Node& node) { return "orlo " + node.words + (node.words.empty() ? "" : " ") + "--help shows how"; }

    static std::string AboutOf(const CLI::ParseError& error) {
        const std::string text = error.what();
        return text.substr(0, text.find(": "));
    }

    static std::vector<std::string> NamesBelow(const Command& command) {
        std::vector<std::string> names;
        for (const Command& below : command.commands) {
            if (!below.isHidden) names.push_back(below.name);
        }
        return names;
    }

    static Complaint NothingToDo(const Node& node) {
        if (node.words.empty()) return {"command line", "no command is given", "orlo --help lists the commands"};
        return {node.words, "it is not said what to do", UseOneOf(NamesBelow(*node.command))};
    }

    /// Arguments that the command does not know.
    static void RefuseStrangers(const Node& node, const Wish& wish) {
        const std::vector<std::string> strangers = node.app->remaining();
        const auto stranger = std::ranges::find_if(strangers, [](const std::string& word) { return word != "--"; });
        if (stranger == strangers.end()) return;
        std::string right = wish.words.empty() ? "orlo --help lists them" : "orlo " + wish.words + " --help lists them";
        if (stranger->starts_with("-") && *stranger != "-") {
            const std::string option = stranger->substr(0, stranger->find('='));
            std::vector<std::string> names = {"--json", "--quiet", "--help"};
            for (const Argument& argument : node.command->arguments) {
                if (argument.IsOption()) names.push_back(argument.name);
            }
            if (const std::string near = Nearest(option, names); !near.empty()) right = "did you mean " + near + "? " + right;
            throw Complaint{option, "there is no such option", right};
        }
        if (node.command->commands.empty()) throw Complaint{*stranger, "it is one argument too many", HowTo(node)};
        const std::vector<std::string> names = NamesBelow(*node.command);
        const std::string near = Nearest(*stranger, names);
        if (!wish.words.empty()) throw Complaint{wish.words, "'" + *stranger + "' is not a thing to do", UseOneOf(names)};
        throw Complaint{*stranger, "there is no such command", (near.empty() ? "" : "did you mean " + near + "? ") + right};
    }

    /// "orlo displays --display 2 keep": an option of the command above stands before the command.
    void RefuseEarlyOptions(const Node& node) const {
        for (const Node& other : nodes_) {
            if (&other == &node) continue;
            for (std::size_t i = 0; i < other.options.size(); ++i) {
                if (other.options[i]->count() == 0) continue;
                throw Complaint{other.command->arguments[i].name, "it stands before '" + node.command->name + "'",
                                "write it behind, or leave it out"};
            }
        }
    }

    /// "--quiet=yes"
    static void RefuseValue(const CLI::Option& option) {
        const std::string name = "--" + option.get_lnames().front();
        if (option.count() > 0 && option.results().back() != "true") throw Complaint{name, "it takes no value", "write " + name + " alone"};
    }

    static void Take(const Node& node, const Argument& argument, const CLI::Option& option) {
        if (option.count() == 0) {
            if (argument.isNeeded) throw Complaint{node.words, argument.name + " is missing", HowTo(node)};
            return;
        }
        const std::vector<std::string>& given = option.results();
        const std::vector<std::string> taken = argument.isRepeated ? given : std::vector<std::string>{given.back()};
        if (argument.IsOption() && argument.value.empty()) {
            RefuseValue(option);
            argument.take("");
            return;
        }
        const std::vector<std::string> words = WordsOf(argument);
        for (const std::string& value : taken) {
            if (!words.empty() && std::ranges::find(words, value) == words.end()) {
                throw Complaint{argument.name, "'" + value + "' is not a value of it", UseOneOf(words)};
            }
            if (value.empty() && (argument.IsOption() || TakesFile(argument))) {
                throw Complaint{argument.IsOption() ? argument.name : node.words,
                                argument.IsOption() ? "its value is empty" : argument.name + " is empty", HowTo(node)};
            }
            argument.take(value);
        }
    }

    CLI::App app_;
    std::vector<Node> nodes_;
    CLI::Option* version_ = nullptr;
};

}  // namespace

Wish ReadCommandLine(const Command& table, std::span<char* const> arguments) {
    return Parser(table).Read(arguments);
}

std::string Nearest(const std::string& word, const std::vector<std::string>& words) {
    std::string nearest;
    std::size_t fewest = (word.size() + 2) / 3 + 1;  // so many changes make another word
    for (const std::string& candidate : words) {
        // Letters to add, to drop or to replace, row by row.
        std::vector<std::size_t> row(candidate.size() + 1);
        std::iota(row.begin(), row.end(), std::size_t{0});
        for (std::size_t i = 0; i < word.size(); ++i) {
            std::size_t diagonal = row[0];
            row[0] = i + 1;
            for (std::size_t j = 0; j < candidate.size(); ++j) {
                const std::size_t replaced = diagonal + (word[i] == candidate[j] ? 0 : 1);
                diagonal = row[j + 1];
                row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
            }
        }
        if (row.back() < fewest) {
            fewest = row.back();
            nearest = candidate;
        }
    }
    return nearest;
}
