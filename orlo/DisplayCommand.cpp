#include "orlo/DisplayCommand.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "ColourMatch/ColourMatch.h"
#include "images/Complaint.h"
#include "images/VipsHold.h"
#include "orlo/HelpText.h"
#include "orlo/JsonText.h"
#include "orlo/OutputFile.h"
#include "orlo/RampPlot.h"
#include "orlo/StoredSettings.h"
#include "platform/Owned.h"

namespace {

constexpr std::size_t kMostEntries = 256;
constexpr const char* kRampHead = "# Orlo gamma ramp: red green blue, 0 to 65535 a line, from black to white\n";

struct DisposeTable {
    void operator()(MC_OpaqueGammaTable* table) const { MC_DisposeGammaTable(table); }
};
using Table = std::unique_ptr<MC_OpaqueGammaTable, DisposeTable>;

/// What is typed after "gamma" or "displays".
struct Wanted {
    std::vector<std::string> words;
    std::optional<std::string> display;
    bool json = false;
    bool help = false;
};

Wanted ReadWords(const char* command, std::span<char* const> arguments) {
    Wanted wanted;
    bool wordsOnly = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (wordsOnly || argument.size() < 2 || argument.front() != '-') {
            wanted.words.emplace_back(argument);
        } else if (argument == "--") {
            wordsOnly = true;
        } else if (argument == "--json") {
            wanted.json = true;
        } else if (argument == "--help" || argument == "-h") {
            wanted.help = true;
        } else if (argument.starts_with("--display=")) {
            wanted.display = argument.substr(10);
        } else if (argument == "--display" && i + 1 < arguments.size()) {
            wanted.display = arguments[++i];
        } else if (argument == "--display") {
            throw Complaint{"--display", "its value is missing", "the number of a display must follow"};
        } else {
            throw Complaint{std::string(argument), "there is no such option", std::string("orlo ") + command + " --help lists them"};
        }
    }
    return wanted;
}

std::string IdentifierOf(CGDirectDisplayID display) {
    const Owned<CFUUIDRef> uuid(CGDisplayCreateUUIDFromDisplayID(display));
    const Owned<CFStringRef> string(uuid ? CFUUIDCreateString(kCFAllocatorDefault, uuid.Get()) : nullptr);
    char text[64] = "";
    if (string) CFStringGetCString(string.Get(), text, sizeof text, kCFStringEncodingUTF8);
    return text;
}

/// Null when the display's ramp cannot be read.
Table ReadTable(CGDirectDisplayID display) {
    MC_OpaqueGammaTable* table = nullptr;
    MC_CopyGammaTableForDisplay(display, &table);
    return Table(table);
}

int EntriesOf(const Table& table) {
    int16_t channels = 0, entries = 0, width = 0;
    if (table) MC_GetGammaTableParams(table.get(), &channels, &entries, &width);
    return entries;
}

/// The display of that number from 1; the main one when none is named.
CGDirectDisplayID ChooseDisplay(const std::optional<std::string>& number) {
    const int count = MC_NumDisplays();
    if (count == 0) throw Complaint{"displays", "there are none", "run it where DISPLAY names an X server"};
    if (!number) return MC_GetMainDisplay();
    for (int index = 1; index <= count; ++index) {
        if (*number == std::to_string(index)) return MC_GetIndexedDisplay(index);
    }
    throw Complaint{"--display", "there is no display '" + *number + "'", "use 1 to " + std::to_string(count) + "; orlo displays lists them"};
}

RampEntries ReadRamp(CGDirectDisplayID display) {
    const Table table = ReadTable(display);
    const int count = EntriesOf(table);
    if (count < 2) throw Complaint{"gamma", "the display's ramp cannot be read", "a display whose server keeps ramps is needed"};
    RampEntries ramp;
    for (std::size_t c = 0; c < 3; ++c) {
        for (int i = 0; i < count; ++i) {
            ramp[c].push_back(static_cast<uint16_t>(MC_GetGammaVal(table.get(), static_cast<int16_t>(c), static_cast<int16_t>(i)) * 65535.0 + 0.5));
        }
    }
    return ramp;
}

std::string RampText(const RampEntries& ramp) {
    std::string text = kRampHead;
    for (std::size_t i = 0; i < ramp[0].size(); ++i) {
        text += std::to_string(ramp[0][i]) + " " + std::to_string(ramp[1][i]) + " " + std::to_string(ramp[2][i]) + "\n";
    }
    return text;
}

RampEntries ReadRampFile(const std::string& path) {
    constexpr std::uintmax_t kMostBytes = 1 << 20;
    // A pipe would be waited for, and a device may never end.
    std::error_code error;
    if (std::filesystem::exists(path, error) && !std::filesystem::is_regular_file(path, error)) {
        throw Complaint{path, "this is not a file of its own", "name a file that orlo gamma save wrote"};
    }
    if (std::filesystem::file_size(path, error) > kMostBytes && !error) {
        throw Complaint{path, "it has more than 1 MiB", "name a file that orlo gamma save wrote"};
    }
    std::ifstream file(path);
    if (!file || file.peek() == std::ifstream::traits_type::eof())
        throw Complaint{path, "it cannot be read or is empty", "name a file that orlo gamma save wrote"};
    RampEntries ramp;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line.front() == '#') continue;
        std::istringstream words(line);
        long values[3] = {-1, -1, -1};
        std::string rest;
        const bool isWhole = (words >> values[0] >> values[1] >> values[2]) && !(words >> rest);
        for (std::size_t c = 0; c < 3; ++c) {
            if (!isWhole || values[c] < 0 || values[c] > 65535) {
                throw Complaint{path, "line " + std::to_string(number) + " is not a ramp's",
                                "each holds red, green and blue as whole numbers from 0 to 65535"};
            }
            ramp[c].push_back(static_cast<uint16_t>(values[c]));
        }
    }
    if (ramp[0].size() < 2 || ramp[0].size() > kMostEntries) {
        throw Complaint{path, "it has " + std::to_string(ramp[0].size()) + " lines of numbers", "a ramp has 2 to 256"};
    }
    return ramp;
}

void Load(CGDirectDisplayID display, const RampEntries& ramp) {
    const auto count = static_cast<int16_t>(ramp[0].size());
    const Table table(MC_CreateGammaTable(3, count, 16));
    if (!table) throw Complaint{"gamma", "there is not enough memory for the ramp", "close other programs"};
    for (int16_t c = 0; c < 3; ++c) {
        for (int16_t i = 0; i < count; ++i) {
            MC_SetGammaVal(table.get(), c, i, ramp[static_cast<std::size_t>(c)][static_cast<std::size_t>(i)] / 65535.0);
        }
    }
    const OSErr status = MC_SetDisplayGammaTable(display, table.get());
    if (status != 0) {
        throw Complaint{"gamma", "the display refuses the ramp (status " + std::to_string(status) + ")",
                        "a display whose server keeps ramps is needed"};
    }
}

void Save(const RampEntries& ramp, const std::string& path) {
    const std::string text = RampText(ramp);
    OutputFile file(path);
    const std::unique_ptr<FILE, decltype(&std::fclose)> stream(fdopen(dup(file.Descriptor()), "w"), std::fclose);
    if (!stream || std::fwrite(text.data(), 1, text.size(), stream.get()) != text.size() || std::fflush(stream.get()) != 0) file.ComplainOfWriting();
    file.Commit();
}

void FinishOutput() {
    if (std::fflush(stdout) != 0) throw Complaint{"standard output", "it cannot be written", "make room or choose another place"};
}

}  // namespace

void RunDisplaysCommand(std::span<char* const> arguments) {
    const Wanted wanted = ReadWords("displays", arguments);
    if (wanted.help) {
        std::fputs(DisplaysHelp().c_str(), stdout);
        return;
    }
    if (!wanted.words.empty() || wanted.display)
        throw Complaint{wanted.words.empty() ? "--display" : wanted.words.front(), "displays lists them all", "leave it out"};
    const int count = MC_NumDisplays();
    if (wanted.json) std::printf("{\"displays\": [");
    if (!wanted.json && count == 0) std::printf("no displays\n");
    for (int index = 1; index <= count; ++index) {
        const CGDirectDisplayID display = MC_GetIndexedDisplay(index);
        MC_DisplayInfo info;
        MC_GetDisplayInfo(display, &info);
        const int entries = EntriesOf(ReadTable(display));
        const int width = info.right - info.left, height = info.bottom - info.top;
        const std::string identifier = IdentifierOf(display);
        if (wanted.json) {
            std::printf(
                "%s\n  {\"index\": %d, \"main\": %s, \"identifier\": %s, \"left\": %d, \"top\": %d, \"width\": %d, \"height\": %d, \"depth\": %d, "
                "\"bitsPerSample\": %d, \"rampEntries\": %d}",
                index == 1 ? "" : ",", index, index == 1 ? "true" : "false", JsonString(identifier).c_str(), info.left, info.top, width, height,
                info.depth, info.bitsPerSample, entries);
        } else {
            std::printf("%2d%s  %s  %d x %d at %d,%d  depth %d, %d bits a sample, %d ramp entries\n", index, index == 1 ? " main" : "     ",
                        identifier.c_str(), width, height, info.left, info.top, info.depth, info.bitsPerSample, entries);
        }
    }
    if (wanted.json) std::printf("%s]}\n", count == 0 ? "" : "\n");
    FinishOutput();
}

void RunGammaCommand(std::span<char* const> arguments) {
    const Wanted wanted = ReadWords("gamma", arguments);
    if (wanted.help) {
        std::fputs(GammaHelp().c_str(), stdout);
        return;
    }
    const std::string verb = wanted.words.empty() ? "" : wanted.words.front();
    const std::size_t files = wanted.words.size() - (wanted.words.empty() ? 0 : 1);
    const bool isKnown = verb == "show" || verb == "plot" || verb == "save" || verb == "load" || verb == "linear" || verb == "reset";
    if (!isKnown)
        throw Complaint{"gamma", verb.empty() ? "it is not said what to do" : "'" + verb + "' is not a thing to do",
                        "use show, plot, save, load, linear or reset"};
    const bool needsFile = verb == "save" || verb == "load";
    if (files != (needsFile ? 1U : 0U) && !(verb == "plot" && files == 1)) {
        throw Complaint{"gamma " + verb, needsFile ? "it needs one file" : "a file too many is named", "orlo gamma --help shows how"};
    }
    if (wanted.json && verb != "show") throw Complaint{"--json", "only show has it", "leave it out"};
    if (verb == "reset") {
        if (wanted.display) throw Complaint{"--display", "reset is for all displays at once", "leave it out"};
        ChooseDisplay(std::nullopt);
        CGDisplayRestoreColorSyncSettings();
        return;
    }
    const CGDirectDisplayID display = ChooseDisplay(wanted.display);
    if (verb == "load") {
        Load(display, ReadRampFile(wanted.words[1]));
        return;
    }
    if (verb == "linear") {
        Load(display, {{{0, 65535}, {0, 65535}, {0, 65535}}});
        return;
    }
    const RampEntries ramp = ReadRamp(display);
    if (verb == "save") {
        Save(ramp, wanted.words[1]);
        return;
    }
    if (verb == "plot" && files == 1) {
        if (vips_init("orlo") != 0) throw Complaint{"libvips", "it cannot be started", "install it again"};
        WritePlot(ramp, wanted.words[1]);
        return;
    }
    if (verb == "plot") {
        std::fputs(TextPlot(ramp).c_str(), stdout);
    } else if (wanted.json) {
        std::printf("{\n");
        const char* const names[3] = {"red", "green", "blue"};
        for (std::size_t c = 0; c < 3; ++c) {
            std::printf("  \"%s\": [", names[c]);
            for (std::size_t i = 0; i < ramp[c].size(); ++i) std::printf("%s%u", i == 0 ? "" : ", ", static_cast<unsigned>(ramp[c][i]));
            std::printf("]%s\n", c < 2 ? "," : "");
        }
        std::printf("}\n");
    } else {
        std::fputs(RampText(ramp).c_str(), stdout);
    }
    FinishOutput();
}
