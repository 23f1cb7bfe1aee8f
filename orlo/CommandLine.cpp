#include "orlo/CommandLine.h"

#include <algorithm>
#include <array>

#include "images/Complaint.h"
#include "orlo/HelpText.h"

namespace {

struct CommandName {
    std::string_view name;
    Operation operation;
};

constexpr std::array<CommandName, 6> kCommands = {{
    {"match", Operation::Match},
    {"proof", Operation::Proof},
    {"gamut", Operation::Gamut},
    {"predict", Operation::Predict},
    {"printer-match", Operation::PrinterMatch},
    {"printer-predict", Operation::PrinterPredict},
}};

/// Walks over the arguments; an option's value is what follows '=', or else the next argument.
class Arguments {
public:
    explicit Arguments(std::span<char* const> arguments) : rest_(arguments) {}

    bool AtEnd() const { return rest_.empty(); }

    std::string_view Next() {
        const std::string_view argument = rest_.front();
        rest_ = rest_.subspan(1);
        return argument;
    }

    std::string ValueOf(std::string_view option, std::optional<std::string_view> attached, std::string_view expected) {
        if (attached) return std::string(*attached);
        if (AtEnd()) throw Complaint{std::string(option), "its value is missing", std::string(expected) + " must follow"};
        return std::string(Next());
    }

private:
    std::span<char* const> rest_;
};

/// One of the allowed texts, as its position among them.
template <std::size_t Count>
std::size_t Choice(std::string_view option, const std::string& value, const std::array<std::string_view, Count>& allowed) {
    const auto found = std::ranges::find(allowed, value);
    if (found != allowed.end()) return static_cast<std::size_t>(found - allowed.begin());
    std::string right = "use ";
    for (std::size_t i = 0; i < Count; i++) {
        if (i > 0) right += i + 1 == Count ? " or " : ", ";
        right += allowed[i];
    }
    throw Complaint{std::string(option), "'" + value + "' is not a value of it", right};
}

void ReadOption(Request& request, std::string_view argument, Arguments& arguments) {
    std::string_view option = argument;
    std::optional<std::string_view> attached;
    if (const auto equals = argument.find('='); equals != std::string_view::npos) {
        option = argument.substr(0, equals);
        attached = argument.substr(equals + 1);
    }
    if (option == "--monitor") {
        request.monitor = arguments.ValueOf(option, attached, "a monitor profile");
    } else if (option == "--printer") {
        request.printer = arguments.ValueOf(option, attached, "a printer profile");
    } else if (option == "--proofer") {
        request.proofer = arguments.ValueOf(option, attached, "the profile of a proofing device");
    } else if (option == "--quality") {
        constexpr std::array<std::string_view, 3> kQualities = {"0", "1", "2"};
        request.quality = static_cast<int>(Choice(option, arguments.ValueOf(option, attached, "0, 1 or 2"), kQualities));
    } else if (option == "--depth") {
        constexpr std::array<std::string_view, 2> kDepths = {"8", "16"};
        request.depth = Choice(option, arguments.ValueOf(option, attached, "8 or 16"), kDepths) == 0 ? 8 : 16;
    } else if (option == "--compression") {
        constexpr std::array<std::string_view, 3> kCompressions = {"lzw", "deflate", "none"};
        constexpr TiffCompression kValues[] = {TiffCompression::Lzw, TiffCompression::Deflate, TiffCompression::None};
        request.compression = kValues[Choice(option, arguments.ValueOf(option, attached, "lzw, deflate or none"), kCompressions)];
    } else if (option == "--device") {
        if (request.operation != Operation::Gamut) throw Complaint{"--device", "only gamut has it", "leave it out"};
        constexpr std::array<std::string_view, 2> kDevices = {"monitor", "printer"};
        request.printerGamut = Choice(option, arguments.ValueOf(option, attached, "monitor or printer"), kDevices) == 1;
    } else if (option == "--quiet") {
        if (attached) throw Complaint{"--quiet", "it takes no value", "write --quiet alone"};
        request.quiet = true;
    } else {
        throw Complaint{std::string(option), "there is no such option",
                        "orlo " + std::string(OperationName(request.operation)) + " --help lists them"};
    }
}

void CheckComplete(const Request& request, std::size_t fileCount) {
    const std::string command(OperationName(request.operation));
    if (fileCount != 2) throw Complaint{command, "it needs two files, INPUT and OUTPUT", "orlo " + command + " --help shows how"};
    if (request.input.empty() || request.output.empty()) throw Complaint{command, "a file name is empty", "name INPUT and OUTPUT"};
}

bool IsHelp(std::string_view argument) {
    return argument == "--help" || argument == "-h";
}

Wish ReadRequest(Operation operation, Arguments arguments) {
    Request request;
    request.operation = operation;
    std::size_t fileCount = 0;
    bool filesOnly = false;
    while (!arguments.AtEnd()) {
        const std::string_view argument = arguments.Next();
        if (!filesOnly && argument == "--") {
            filesOnly = true;
        } else if (!filesOnly && IsHelp(argument)) {
            return Answer{CommandHelp(operation)};
        } else if (!filesOnly && argument.size() > 1 && argument.front() == '-') {
            ReadOption(request, argument, arguments);
        } else {
            if (fileCount < 2) (fileCount == 0 ? request.input : request.output) = argument;
            fileCount++;
        }
    }
    CheckComplete(request, fileCount);
    return request;
}

/// Takes --json and --help away from the words; the rest are names and values. After "--" everything is.
std::vector<std::string> PlainWords(std::string_view command, Arguments arguments, bool* json, bool* help) {
    std::vector<std::string> words;
    bool wordsOnly = false;
    while (!arguments.AtEnd()) {
        const std::string_view argument = arguments.Next();
        const bool isNumber = argument.size() > 1 && (argument[1] == '.' || (argument[1] >= '0' && argument[1] <= '9'));
        if (!wordsOnly && argument == "--") {
            wordsOnly = true;
        } else if (!wordsOnly && argument == "--json") {
            *json = true;
        } else if (!wordsOnly && IsHelp(argument)) {
            *help = true;
        } else if (!wordsOnly && argument.starts_with('-') && !isNumber) {
            throw Complaint{std::string(argument), "there is no such option", "orlo " + std::string(command) + " --help lists them"};
        } else {
            words.emplace_back(argument);
        }
    }
    return words;
}

Wish ReadSettingsRequest(Arguments arguments) {
    SettingsRequest request;
    bool help = false;
    std::vector<std::string> words = PlainWords("settings", arguments, &request.json, &help);
    if (help) return Answer{SettingsHelp()};
    const std::string verb = words.empty() ? "" : words.front();
    if (verb == "list") {
        if (words.size() > 1) throw Complaint{words[1], "list takes no names", "use orlo settings get NAME"};
    } else if (verb == "get") {
        request.verb = SettingsRequest::kGet;
        if (words.size() != 2) throw Complaint{"settings get", "it needs one name", "orlo settings list shows them"};
        request.name = words[1];
    } else if (verb == "set") {
        request.verb = SettingsRequest::kSet;
        if (words.size() < 3 || words.size() % 2 == 0) throw Complaint{"settings set", "it needs names, each with a value", "write NAME VALUE"};
        if (request.json) throw Complaint{"--json", "set shows nothing", "leave it out"};
        for (std::size_t i = 1; i < words.size(); i += 2) request.changes.push_back({words[i], words[i + 1]});
    } else {
        throw Complaint{"settings", verb.empty() ? "it is not said what to do" : "'" + verb + "' is not a thing to do", "use list, get or set"};
    }
    return request;
}

Wish ReadWatchRequest(Arguments arguments) {
    WatchRequest request;
    bool help = false;
    const std::vector<std::string> words = PlainWords("watch", arguments, &request.json, &help);
    if (help) return Answer{WatchHelp()};
    if (!words.empty()) throw Complaint{words.front(), "watch takes no names", "leave it out"};
    return request;
}

}  // namespace

std::string_view OperationName(Operation operation) {
    return std::ranges::find(kCommands, operation, &CommandName::operation)->name;
}

Wish ReadCommandLine(std::span<char* const> arguments) {
    if (arguments.empty()) throw Complaint{"command line", "no command is given", "orlo --help lists the commands"};
    const std::string_view first = arguments.front();
    if (first == "--help" || first == "-h" || first == "help") return Answer{GeneralHelp()};
    if (first == "settings") return ReadSettingsRequest(Arguments(arguments.subspan(1)));
    if (first == "watch") return ReadWatchRequest(Arguments(arguments.subspan(1)));
    if (first == "--version") return Answer{"orlo " ORLO_VERSION "\n"};
    const auto command = std::ranges::find(kCommands, first, &CommandName::name);
    if (command == kCommands.end()) throw Complaint{std::string(first), "there is no such command", "orlo --help lists the commands"};
    return ReadRequest(command->operation, Arguments(arguments.subspan(1)));
}
