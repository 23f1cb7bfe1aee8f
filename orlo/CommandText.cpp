#include "orlo/CommandText.h"

#include <algorithm>
#include <sstream>

#include "images/Texts.h"
#include "orlo/StoredSettings.h"

namespace {

constexpr std::size_t kWidth = 120;  // of the help text

/// What every command takes.
const std::vector<Argument>& CommonOptions() {
    static const std::vector<Argument> options = {
        {"--json", "", "print one JSON value in place of lines", {}},
        {"--quiet", "", "do not print what was done", {}},
        {"--help", "", "print this text", {}},
    };
    return options;
}

/// Paragraphs whose lines are broken before the width; all but the first line are indented.
std::string Wrapped(const std::string& text, std::size_t indent) {
    std::string wrapped;
    std::istringstream paragraphs(text);
    for (std::string paragraph; std::getline(paragraphs, paragraph);) {
        if (!wrapped.empty()) wrapped += '\n' + std::string(paragraph.empty() ? 0 : indent, ' ');
        std::istringstream words(paragraph);
        std::size_t column = indent;
        bool isFirst = true;
        for (std::string word; words >> word; isFirst = false) {
            if (!isFirst && column + 1 + word.size() > kWidth) {
                wrapped += '\n' + std::string(indent, ' ');
                column = indent;
            } else if (!isFirst) {
                wrapped += ' ';
                ++column;
            }
            wrapped += word;
            column += word.size();
        }
    }
    return wrapped;
}

/// "--monitor PROFILE", or a positional argument as it stands.
std::string Heading(const Argument& argument) {
    return argument.IsOption() && !argument.value.empty() ? argument.name + " " + argument.value : argument.name;
}

std::string Usage(const Command& command, const std::string& words) {
    std::string usage = words.empty() ? "orlo" : "orlo " + words;
    if (!command.commands.empty()) return usage + (command.run ? " [COMMAND] [OPTIONS]" : " COMMAND");
    for (const Argument& argument : command.arguments) {
        if (argument.IsOption()) continue;
        const std::string word = argument.name + (argument.isRepeated ? "..." : "");
        usage += argument.isNeeded ? " " + word : " [" + word + "]";
    }
    return usage + " [OPTIONS]";
}

/// The options of a command, with those of everybody.
std::vector<Argument> OptionsOf(const Command& command) {
    std::vector<Argument> options;
    std::ranges::copy_if(command.arguments, std::back_inserter(options), &Argument::IsOption);
    std::ranges::copy(CommonOptions(), std::back_inserter(options));
    return options;
}

std::vector<Argument> PositionalOf(const Command& command) {
    std::vector<Argument> positional;
    std::ranges::copy_if(command.arguments, std::back_inserter(positional), [](const Argument& argument) { return !argument.IsOption(); });
    return positional;
}

std::vector<Command> ShownBelow(const Command& command) {
    std::vector<Command> shown;
    std::ranges::copy_if(command.commands, std::back_inserter(shown), [](const Command& below) { return !below.isHidden; });
    return shown;
}

using Rows = std::vector<std::pair<std::string, std::string>>;

Rows RowsOf(const std::vector<Argument>& arguments) {
    Rows rows;
    for (const Argument& argument : arguments) rows.emplace_back(Heading(argument), argument.about);
    return rows;
}

Rows RowsOf(const std::vector<Command>& commands) {
    Rows rows;
    for (const Command& command : commands) rows.emplace_back(command.name, command.about);
    return rows;
}

std::string TwoColumns(const Rows& rows) {
    constexpr std::size_t kWidest = 28;
    std::size_t width = 0;
    for (const auto& [left, right] : rows) width = std::max(width, std::min(left.size(), kWidest));
    std::string text;
    for (const auto& [left, right] : rows) {
        text += "  " + left;
        text += left.size() > width ? '\n' + std::string(width + 4, ' ') : std::string(width - left.size() + 2, ' ');
        text += Wrapped(right, width + 4) + '\n';
    }
    return text;
}

std::string Section(const std::string& title, const std::string& text) {
    return text.empty() ? "" : "\n" + title + ":\n" + text;
}

std::string Indented(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += "  " + line + '\n';
    return text;
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// Man pages.

/// Text as troff shows it unchanged.
std::string Roff(const std::string& text) {
    std::string roff;
    for (const char c : text) {
        if (c == '\\') {
            roff += "\\e";
        } else if (c == '-') {
            roff += "\\-";
        } else if ((c == '.' || c == '\'') && (roff.empty() || roff.back() == '\n')) {
            roff += std::string("\\&") + c;
        } else {
            roff += c;
        }
    }
    return roff;
}

std::string RoffParagraphs(const std::string& text) {
    std::string roff;
    for (const std::string& line : LinesOf(text)) {
        if (line.starts_with("- ")) {
            roff += ".IP \\(bu 2\n" + Roff(line.substr(2)) + '\n';
        } else {
            roff += line.empty() ? ".PP\n" : Roff(line) + '\n';
        }
    }
    return roff;
}

std::string RoffRows(const Rows& rows) {
    std::string roff;
    for (const auto& [left, right] : rows) roff += ".TP\n.B " + Roff(left) + '\n' + Roff(right) + '\n';
    return roff;
}

std::string RoffLines(const std::vector<std::string>& lines) {
    std::string roff = ".PP\n.nf\n";
    for (const std::string& line : lines) roff += Roff(line) + '\n';
    return roff + ".fi\n";
}

std::string ManBody(const Command& command, const std::string& words, const std::string& heading) {
    std::string roff;
    if (!heading.empty()) roff += heading + '\n' + ".B " + Roff(Usage(command, words)) + "\n.PP\n" + Roff(command.about) + ".\n";
    if (!command.details.empty()) roff += ".PP\n" + RoffParagraphs(command.details);
    if (const Rows rows = RowsOf(PositionalOf(command)); !rows.empty()) roff += RoffRows(rows);
    if (!command.run) return roff;
    roff += RoffRows(RowsOf(OptionsOf(command)));
    if (!command.json.empty()) roff += ".PP\nWith \\-\\-json:\n" + RoffLines(LinesOf(command.json));
    if (!command.examples.empty()) roff += ".PP\nFor example:\n" + RoffLines(command.examples);
    return roff;
}

std::string ManPage(const Command& command, const std::string& words, const std::string& related) {
    const std::string name = words.empty() ? "orlo" : "orlo-" + words;
    const std::string title = CapitalLetters(name);
    std::string roff = ".TH " + title + " 1 \"\" \"Orlo ColourMatch " ORLO_VERSION "\"\n.SH NAME\n" + name + " \\- " + Roff(command.about) +
                       "\n.SH SYNOPSIS\n.B " + Roff(Usage(command, words)) + "\n.SH DESCRIPTION\n";
    roff += ManBody(command, words, "");
    const std::vector<Command> commands = ShownBelow(command);
    if (!commands.empty()) roff += ".SH COMMANDS\n";
    for (const Command& below : commands) {
        if (words.empty()) {
            roff += ".TP\n.B " + Roff(below.name) + '\n' + Roff(below.about) + '\n';
        } else {
            roff += ManBody(below, words + " " + below.name, ".SS " + Roff(below.name));
        }
    }
    roff += ".SH EXIT STATUS\n" + RoffRows({{"0", "done"}, {"1", "failed"}, {"2", "wrong usage or bad input"}, {"3", "something is not there"}});
    return roff + ".SH SEE ALSO\n" + Roff(related) + '\n';
}

// Markdown.

/// Text in a cell of a table.
std::string Cell(const std::string& text) {
    std::string cell;
    for (const char c : text) cell += c == '|' ? "\\|" : std::string(1, c);
    return cell;
}

std::string MarkdownRows(const Rows& rows) {
    if (rows.empty()) return "";
    std::string text = "\n| | |\n|---|---|\n";
    for (const auto& [left, right] : rows) text += "| `" + Cell(left) + "` | " + Cell(right) + " |\n";
    return text;
}

std::string Block(const std::string& language, const std::vector<std::string>& lines) {
    std::string text = "\n```" + language + "\n";
    for (const std::string& line : lines) text += line + '\n';
    return text + "```\n";
}

std::string MarkdownOf(const Command& command, const std::string& words, const std::string& level) {
    std::string text = "\n" + level + " orlo " + words + "\n\n`" + Usage(command, words) + "` " + command.about + ".\n";
    if (!command.details.empty()) text += "\n" + command.details + "\n";
    Rows rows = RowsOf(PositionalOf(command));
    for (const Argument& argument : command.arguments) {
        if (argument.IsOption()) rows.emplace_back(Heading(argument), argument.about);
    }
    text += MarkdownRows(rows);
    if (!command.examples.empty()) text += Block("sh", command.examples);
    if (!command.json.empty()) text += "\nWith `--json`:\n" + Block("text", LinesOf(command.json));
    for (const Command& below : ShownBelow(command)) text += MarkdownOf(below, words + " " + below.name, level + "#");
    return text;
}

// Completion.

void Offer(std::string& lines, const std::string& start, const std::string& word, const std::string& about) {
    if (word.starts_with(start)) lines += about.empty() ? word + '\n' : word + '\t' + about + '\n';
}

void OfferValues(std::string& lines, const std::string& start, const Argument& argument, const std::string& before) {
    if (TakesFile(argument)) lines = ":files\n" + lines;
    for (const std::string& word : WordsOf(argument)) Offer(lines, start, before + word, "");
    if (argument.value != "SETTING") return;
    for (const SettingName& setting : SettingNames()) Offer(lines, start, before + setting.name, setting.about);
}

}  // namespace

std::string HelpText(const Command& command, const std::string& words) {
    std::string text = "Usage: " + Usage(command, words) + "\n\n";
    std::string about = command.about;
    about[0] = CapitalLetters(about)[0];
    text += Wrapped(about + ".", 0) + '\n';
    if (!command.details.empty()) text += Wrapped(command.details, 0) + '\n';
    text += Section("Commands", TwoColumns(RowsOf(ShownBelow(command))));
    text += Section("Arguments", TwoColumns(RowsOf(PositionalOf(command))));
    if (command.run) text += Section("Options", TwoColumns(RowsOf(OptionsOf(command))));
    if (!command.commands.empty()) {
        text += "\norlo " + (words.empty() ? "" : words + " ") + "COMMAND --help tells about one of them." +
                (words.empty() ? " orlo --version prints the version." : "") + "\n";
    }
    text += Section("With --json", Indented(LinesOf(command.json)));
    text += Section("For example", Indented(command.examples));
    return text;
}

std::vector<std::pair<std::string, std::string>> ManPages(const Command& table) {
    std::vector<std::pair<std::string, std::string>> pages;
    std::string all;
    for (const Command& command : ShownBelow(table)) {
        all += (all.empty() ? "orlo-" : ", orlo-") + command.name + "(1)";
        pages.emplace_back("orlo-" + command.name + ".1", ManPage(command, command.name, "orlo(1)"));
    }
    pages.emplace_back("orlo.1", ManPage(table, "", all));
    return pages;
}

std::string CommandsInMarkdown(const Command& table) {
    std::string text =
        "# Commands of orlo\n"
        "\n"
        "Made from the table of commands, which `orlo COMMAND --help` and the man pages show, too: `orlo generate markdown` makes it again.\n"
        "[orlo.md](orlo.md) tells how they work.\n";
    text += MarkdownRows(RowsOf(CommonOptions()));
    text += "\nExit status: 0 done, 1 failed, 2 wrong usage or bad input, 3 something is not there.\n";
    for (const Command& command : ShownBelow(table)) text += MarkdownOf(command, command.name, "##");
    return text;
}

std::string Completions(const Command& table, const std::vector<std::string>& words) {
    const std::string start = words.empty() ? "" : words.back();
    const Command* command = &table;
    const Argument* waiting = nullptr;  // the option whose value comes next
    std::size_t position = 0;
    bool isPlain = false;  // after --
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const std::string& word = words[i];
        if (waiting) {
            waiting = nullptr;
        } else if (!isPlain && word == "--") {
            isPlain = true;
        } else if (!isPlain && word.starts_with("--")) {
            const auto option = std::ranges::find(command->arguments, word, &Argument::name);
            if (option != command->arguments.end() && !option->value.empty()) waiting = &*option;
        } else if (const auto below = std::ranges::find(command->commands, word, &Command::name); below != command->commands.end()) {
            command = &*below;
        } else {
            ++position;
        }
    }
    std::string lines;
    if (waiting) {
        OfferValues(lines, start, *waiting, "");
        return lines;
    }
    if (const auto equals = start.find('='); !isPlain && start.starts_with("--") && equals != std::string::npos) {
        const auto option = std::ranges::find(command->arguments, start.substr(0, equals), &Argument::name);
        if (option != command->arguments.end()) OfferValues(lines, start, *option, start.substr(0, equals + 1));
        return lines;
    }
    if (!isPlain && start.starts_with("-")) {
        for (const Argument& option : OptionsOf(*command)) Offer(lines, start, option.name, option.about);
        if (command == &table) Offer(lines, start, "--version", "print the version");
        return lines;
    }
    for (const Command& below : ShownBelow(*command)) Offer(lines, start, below.name, below.about);
    const std::vector<Argument> positional = PositionalOf(*command);
    if (positional.empty()) return lines;
    if (position < positional.size()) {
        OfferValues(lines, start, positional[position], "");
    } else if (positional.back().isRepeated) {
        OfferValues(lines, start, positional.back(), "");
    }
    return lines;
}
