#include "orlo/DisplayCommands.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "ColourMatch/ColourMatch.h"
#include "images/Complaint.h"
#include "orlo/ImageModule.h"
#include "orlo/OutputFile.h"
#include "platform/Owned.h"

namespace {

constexpr std::size_t kMostEntries = 256;
constexpr const char* kRampHead = "# Orlo gamma ramp: red green blue, 0 to 65535 a line, from black to white\n";

struct DisposeTable {
    void operator()(MC_OpaqueGammaTable* table) const { MC_DisposeGammaTable(table); }
};
using Table = std::unique_ptr<MC_OpaqueGammaTable, DisposeTable>;

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
CGDirectDisplayID ChooseDisplay(const std::string& number) {
    const int count = MC_NumDisplays();
    if (count == 0) throw Complaint{"displays", "there are none", "run it where DISPLAY names an X server", Exit::NotThere};
    if (number.empty()) return MC_GetMainDisplay();
    for (int index = 1; index <= count; ++index) {
        if (number == std::to_string(index)) return MC_GetIndexedDisplay(index);
    }
    throw Complaint{"--display", "there is no display '" + number + "'", "use 1 to " + std::to_string(count) + "; orlo displays lists them",
                    Exit::NotThere};
}

RampEntries ReadRamp(CGDirectDisplayID display) {
    const Table table = ReadTable(display);
    const int count = EntriesOf(table);
    if (count < 2) throw Complaint{"gamma", "the display's ramp cannot be read", "a display whose server keeps ramps is needed", Exit::Failed};
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
    if (!std::filesystem::exists(path, error))
        throw Complaint{path, "there is no such file", "name a file that orlo gamma save wrote", Exit::NotThere};
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
    if (!table) throw Complaint{"gamma", "there is not enough memory for the ramp", "close other programs", Exit::Failed};
    for (int16_t c = 0; c < 3; ++c) {
        for (int16_t i = 0; i < count; ++i) {
            MC_SetGammaVal(table.get(), c, i, ramp[static_cast<std::size_t>(c)][static_cast<std::size_t>(i)] / 65535.0);
        }
    }
    const OSErr status = MC_SetDisplayGammaTable(display, table.get());
    if (status != 0) {
        throw Complaint{"gamma", "the display refuses the ramp (status " + std::to_string(status) + ")",
                        "a display whose server keeps ramps is needed", Exit::Failed};
    }
}

void Save(const RampEntries& ramp, const std::string& path) {
    const std::string text = RampText(ramp);
    OutputFile file(path);
    const std::unique_ptr<FILE, decltype(&std::fclose)> stream(fdopen(dup(file.Descriptor()), "w"), std::fclose);
    if (!stream || std::fwrite(text.data(), 1, text.size(), stream.get()) != text.size() || std::fflush(stream.get()) != 0) file.ComplainOfWriting();
    file.Commit();
}

Json JsonOf(const RampEntries& ramp) {
    return {{"red", ramp[0]}, {"green", ramp[1]}, {"blue", ramp[2]}};
}

/// What a command did to a display's ramp or with it; there are no lines for it.
void TellRamp(const std::string& display, const Showing& showing) {
    if (showing.json) showing.Tell({{"display", display.empty() ? "1" : display}}, "");
}

void Plot(const std::string& display, const std::string& file, const Showing& showing) {
    const RampEntries ramp = ReadRamp(ChooseDisplay(display));
    if (file.empty()) return showing.Show(JsonOf(ramp), TextPlot(ramp));
    WritePlot(ramp, file);
    TellRamp(display, showing);
}

void ListDisplays(const Showing& showing) {
    const int count = MC_NumDisplays();
    Json displays = Json::array();
    std::string lines = count == 0 ? "no displays\n" : "";
    for (int index = 1; index <= count; ++index) {
        const CGDirectDisplayID display = MC_GetIndexedDisplay(index);
        MC_DisplayInfo info;
        MC_GetDisplayInfo(display, &info);
        const int entries = EntriesOf(ReadTable(display));
        const int width = info.right - info.left, height = info.bottom - info.top;
        const std::string identifier = IdentifierOf(display);
        displays.push_back({{"index", index},
                            {"main", index == 1},
                            {"identifier", identifier},
                            {"left", info.left},
                            {"top", info.top},
                            {"width", width},
                            {"height", height},
                            {"depth", info.depth},
                            {"bitsPerSample", info.bitsPerSample},
                            {"rampEntries", entries}});
        std::array<char, 200> line{};
        std::snprintf(line.data(), line.size(), "%2d%s  %s  %d x %d at %d,%d  depth %d, %d bits a sample, %d ramp entries\n", index,
                      index == 1 ? " main" : "     ", identifier.c_str(), width, height, info.left, info.top, info.depth, info.bitsPerSample,
                      entries);
        lines += line.data();
    }
    showing.Show({{"displays", displays}}, lines);
}

}  // namespace

std::vector<Command> DisplayCommands() {
    const auto number = std::make_shared<std::string>(), file = std::make_shared<std::string>();
    const Argument display = {"--display", "NUMBER", "a number that orlo displays shows. Default: 1, the main display", Into(*number)};
    const auto named = [file](const char* about, bool isNeeded) { return Argument{"FILE", "FILE", about, Into(*file), isNeeded}; };
    const std::string one = "{\"display\": NUMBER}";
    const std::string ramp = "{\"red\": [0..65535, ...], \"green\": [...], \"blue\": [...]}";
    return {{.name = "displays",
             .about = "lists the active displays, the main one first",
             .details = "Number, identifier, size and place, depth and bits of a sample, and the entries of the gamma ramp.",
             .json = "{\"displays\": [{\"index\", \"main\", \"identifier\", \"left\", \"top\", \"width\", \"height\", \"depth\", \"bitsPerSample\", "
                     "\"rampEntries\"}, ...]}",
             .examples = {"orlo displays"},
             .run = ListDisplays},
            {.name = "gamma",
             .about = "shows and changes the gamma ramps of the displays",
             .commands = {
                 {.name = "show",
                  .about = "prints the ramp that the display has now: red, green and blue, 0 to 65535 a line, from black to white",
                  .arguments = {display},
                  .json = ramp,
                  .run =
                      [number](const Showing& showing) {
                          const RampEntries now = ReadRamp(ChooseDisplay(*number));
                          showing.Show(JsonOf(now), RampText(now));
                      }},
                 {.name = "plot",
                  .about = "draws the ramp in the terminal, or into a PNG file",
                  .arguments = {named("the PNG file to write", false), display},
                  .json = ramp + ", or with FILE " + one,
                  .run = [=](const Showing& showing) { Plot(*number, *file, showing); }},
                 {.name = "save",
                  .about = "writes what show prints",
                  .arguments = {named("the file to write", true), display},
                  .json = one,
                  .run =
                      [=](const Showing& showing) {
                          Save(ReadRamp(ChooseDisplay(*number)), *file);
                          TellRamp(*number, showing);
                      }},
                 {.name = "load",
                  .about = "gives the display such a ramp, of 2 to 256 lines",
                  .arguments = {named("the file to read", true), display},
                  .json = one,
                  .run =
                      [=](const Showing& showing) {
                          const CGDirectDisplayID chosen = ChooseDisplay(*number);
                          Load(chosen, ReadRampFile(*file));
                          TellRamp(*number, showing);
                      }},
                 {.name = "linear",
                  .about = "gives the display a straight ramp",
                  .arguments = {display},
                  .json = one,
                  .run =
                      [number](const Showing& showing) {
                          Load(ChooseDisplay(*number), {{{0, 65535}, {0, 65535}, {0, 65535}}});
                          TellRamp(*number, showing);
                      }},
                 {.name = "reset",
                  .about = "gives every display the ramp of its profile (vcgt), or a straight one",
                  .json = "{\"display\": \"all\"}",
                  .run =
                      [](const Showing& showing) {
                          ChooseDisplay("");
                          CGDisplayRestoreColorSyncSettings();
                          TellRamp("all", showing);
                      }},
             }}};
}
