#include "orlo/GammaCommands.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "images/Complaint.h"
#include "orlo/CalibrationDocument.h"
#include "orlo/DisplayChoice.h"
#include "orlo/DisplayCommands.h"
#include "orlo/DisplayState.h"
#include "orlo/Ramps.h"

namespace {

constexpr std::array<const char*, 3> kChannels = {"red", "green", "blue"};

/// What is asked for; a command reads what is its.
struct GammaRequest {
    std::vector<std::string> displays;
    std::string file;
    int tolerance = kUsualTolerance;
    std::array<double, 3> gamma = {1, 1, 1}, brightness = {0, 0, 0}, contrast = {1, 1, 1};
    bool isInverted = false;
    bool isDry = false;
};

/// "1.1" for all channels, or "1.1,1,0.9".
std::array<double, 3> ThreeWithin(const std::string& option, const std::string& text, double least, double most) {
    std::vector<std::string> pieces(1);
    for (const char letter : text) {
        if (letter == ',') {
            pieces.emplace_back();
        } else {
            pieces.back() += letter;
        }
    }
    if (pieces.size() != 1 && pieces.size() != 3)
        throw Complaint{option, "'" + text + "' is not a value of it", "give one number, or three with commas"};
    std::array<double, 3> values{};
    for (std::size_t c = 0; c < 3; ++c) values[c] = RealFrom(option, pieces[pieces.size() == 1 ? 0 : c], least, most);
    return values;
}

Json JsonOf(const RampEntries& ramp) {
    return {{"red", ramp[0]}, {"green", ramp[1]}, {"blue", ramp[2]}};
}

/// Gives the first `count` displays the ramps that they had; the names of those that refuse them.
std::string BringBack(const std::vector<KnownDisplay>& displays, const std::vector<RampEntries>& before, std::size_t count) {
    std::string left;
    for (std::size_t i = 0; i < count; ++i) {
        try {
            LoadRamp(displays[i], before[i]);
        } catch (const Complaint&) {
            left += (left.empty() ? "" : ", ") + displays[i].Name();
        }
    }
    return left;
}

/// Loads for each chosen display what `ramp` answers, all of them read before the first is loaded and all or none changed, and tells what was done.
void LoadEach(const GammaRequest& request, const std::vector<KnownDisplay>& displays, const std::string& what, const Showing& showing,
              const std::function<RampEntries(const KnownDisplay&)>& ramp) {
    std::vector<RampEntries> wanted, before;
    for (const KnownDisplay& display : displays) {
        before.push_back(ReadRamp(display));
        wanted.push_back(ramp(display));
    }
    Json rows = Json::array();
    std::string lines;
    for (std::size_t i = 0; i < displays.size(); ++i) {
        const int change = Compare(before[i], wanted[i]).largest;
        try {
            if (!request.isDry) LoadRamp(displays[i], wanted[i]);
        } catch (Complaint& complaint) {
            const std::string left = BringBack(displays, before, i);
            complaint.wrong += left.empty() ? "; no ramp is changed" : "; of those before it these keep the new ramp: " + left;
            throw;
        }
        rows.push_back({{"display", displays[i].Name()}, {"entries", wanted[i][0].size()}, {"largestChange", change}});
        if (request.isDry) rows.back().update(JsonOf(wanted[i]));
        lines += displays[i].Name() + ": " + what + (request.isDry ? " would change" : " changed") + " its ramp by up to " + std::to_string(change) +
                 " of 65535\n";
    }
    Json value = {{"displays", rows}};
    if (request.isDry) value["dryRun"] = true;
    showing.Tell(value, lines);
}

void Show(const GammaRequest& request, const Showing& showing) {
    const KnownDisplay display = ChooseDisplay(request.displays);
    const RampEntries ramp = ReadRamp(display);
    Json value = {{"display", display.Name()}};
    value.update(JsonOf(ramp));
    showing.Show(value, RampText(ramp));
}

void Plot(const GammaRequest& request, const Showing& showing) {
    const KnownDisplay display = ChooseDisplay(request.displays);
    const RampEntries ramp = ReadRamp(display);
    const std::string title = display.Name() + (*display.identity.model ? std::string(" (") + display.identity.model + ")" : "");
    if (request.file.empty()) {
        Json value = {{"display", display.Name()}};
        value.update(JsonOf(ramp));
        return showing.Show(value, TextPlot(ramp, title));
    }
    WritePlot(ramp, title, request.file);
    showing.Tell({{"display", display.Name()}, {"file", request.file}}, display.Name() + ": its ramp is drawn in " + OneLine(request.file) + "\n");
}

void Save(const GammaRequest& request, const Showing& showing) {
    const KnownDisplay display = ChooseDisplay(request.displays);
    const RampEntries ramp = ReadRamp(display);
    WriteRampFile(ramp, request.file);
    showing.Tell({{"display", display.Name()}, {"file", request.file}, {"entries", ramp[0].size()}},
                 display.Name() + ": " + std::to_string(ramp[0].size()) + " entries are in " + OneLine(request.file) + "\n");
}

void Load(const GammaRequest& request, const Showing& showing) {
    LoadEach(request, ChooseDisplays(request.displays), OneLine(request.file), showing,
             [&](const KnownDisplay& display) { return ReadRampFile(request.file, display); });
}

void Linear(const GammaRequest& request, const Showing& showing) {
    LoadEach(request, ChooseDisplays(request.displays), "a straight one", showing, [](const KnownDisplay&) { return StraightRamp(2); });
}

void Reset(const GammaRequest& request, const Showing& showing) {
    const std::vector<KnownDisplay> displays = request.displays.empty() ? ActiveDisplays() : ChooseDisplays(request.displays);
    LoadEach(request, displays, "its profile's, or a straight one where it has none,", showing,
             [](const KnownDisplay& display) { return RampWantedFor(display, ProfileOfDisplay(display), {}, ReadRamp(display)[0].size()).ramp; });
}

void Adjust(const GammaRequest& request, const Showing& showing) {
    LoadEach(request, ChooseDisplays(request.displays), "the adjustment", showing, [&](const KnownDisplay& display) {
        RampEntries ramp = ReadRamp(display);
        for (std::size_t c = 0; c < 3; ++c) {
            for (uint16_t& entry : ramp[c]) {
                const double value = request.contrast[c] * std::pow(entry / 65535.0, 1.0 / request.gamma[c]) + request.brightness[c];
                entry = static_cast<uint16_t>(std::lround(std::clamp(value, 0.0, 1.0) * 65535.0));
            }
            if (request.isInverted) std::ranges::reverse(ramp[c]);
        }
        return ramp;
    });
}

/// Against the file, or else against what each display should have.
void Verify(const GammaRequest& request, const Showing& showing) {
    const std::vector<KnownDisplay> displays = request.displays.empty() ? ActiveDisplays() : ChooseDisplays(request.displays);
    const bool isAgainstFile = !request.file.empty();
    const UsersDocument document = isAgainstFile ? UsersDocument() : ReadUsersDocument(ActiveDisplays());
    Json rows = Json::array();
    std::string lines;
    std::optional<Complaint> fault;
    // What the displays should have is then not known.
    if (!document.wrong.empty()) fault = Complaint{"gamma verify", document.FaultWords(), "save it again with orlo calibration save"};
    for (const KnownDisplay& display : displays) {
        const RampEntries loaded = ReadRamp(display);
        const WantedRamp wanted = isAgainstFile ? WantedRamp{"file", "that of " + OneLine(request.file), ReadRampFile(request.file, display)}
                                                : RampWantedFor(display, ProfileOfDisplay(display), document.ramps, loaded[0].size());
        const RampDifference difference = Compare(loaded, wanted.ramp);
        const bool isRight = difference.largest <= request.tolerance;
        const char* const channel = kChannels[static_cast<std::size_t>(difference.channel)];
        const std::string off = difference.largest == 0 ? "exactly"
                                                        : "off by up to " + std::to_string(difference.largest) + " of 65535, in " + channel +
                                                              " at entry " + std::to_string(difference.entry);
        rows.push_back({{"display", display.Name()},
                        {"expected", wanted.key},
                        {"largestDifference", difference.largest},
                        {"channel", channel},
                        {"entry", difference.entry},
                        {"matches", isRight}});
        lines += display.Name() + ": expected " + wanted.words + "; " + (isRight ? "found, " : "not found, ") + off + "\n";
        if (!isRight && !fault) {
            fault = Complaint{display.Name(), "its ramp is not " + wanted.words,
                              isAgainstFile ? "orlo gamma load loads it" : "orlo displays keep --once puts ramps in their places", Exit::Failed};
        }
    }
    const Json value = {{"displays", rows}, {"tolerance", request.tolerance}, {"matches", !fault.has_value()}, {"documentFault", document.Fault()}};
    if (!fault) return showing.Tell(value, lines);
    showing.Show(value, lines);
    throw *fault;
}

}  // namespace

std::vector<Command> GammaCommands() {
    const auto request = std::make_shared<GammaRequest>();
    const std::shared_ptr<std::vector<std::string>> names(request, &request->displays);
    const auto file = [request](const char* about, bool isNeeded) { return Argument{"FILE", "FILE", about, Into(request->file), isNeeded}; };
    const auto run = [request](void (*work)(const GammaRequest&, const Showing&)) {
        return [=](const Showing& showing) { work(*request, showing); };
    };
    const Argument display = DisplayArgument(names, "the main display"), all = DisplayArgument(names, "all displays");
    const Argument dry = {"--dry-run", "", "tell what would be loaded, and load nothing", SwitchOn(request->isDry)};
    const auto three = [](const char* option, std::array<double, 3>& to, const char* about, double least, double most) {
        return Argument{option, "R,G,B", about, [=, &to](const std::string& value) { to = ThreeWithin(option, value, least, most); }};
    };
    const std::string ramp = "{\"display\", \"red\": [0..65535, ...], \"green\": [...], \"blue\": [...]}";
    const std::string loaded =
        "{\"displays\": [{\"display\", \"entries\", \"largestChange\"}, ...]}, with --dry-run also \"red\", \"green\", \"blue\" and "
        "\"dryRun\": true";
    const std::string kinds =
        "FILE holds lines of red, green and blue as gamma save writes them, or with commas (CSV), from 0 to 65535 or, with a decimal point, from 0 "
        "to 1; "
        "or it is an Argyll calibration (.cal), a profile with calibration curves (vcgt), or a calibration document that holds the display.";
    return {
        {.name = "gamma",
         .about = "shows, compares and changes the gamma ramps of the displays",
         .commands = {
             {.name = "show",
              .about = "prints the ramp that the display has now: red, green and blue, 0 to 65535 a line, from black to white",
              .arguments = {display},
              .json = ramp,
              .examples = {"orlo gamma show --display 1"},
              .run = run(Show)},
             {.name = "plot",
              .about = "draws the ramp in the terminal, or into an SVG or PNG file",
              .arguments = {file("the picture to write, .svg or .png", false), display},
              .json = ramp + ", or with FILE {\"display\", \"file\"}",
              .run = run(Plot)},
             {.name = "save",
              .about = "writes what show prints, or with commas into a file whose name ends in .csv",
              .arguments = {file("the file to write", true), display},
              .json = "{\"display\", \"file\", \"entries\"}",
              .run = run(Save)},
             {.name = "load",
              .about = "gives the display the ramp of a file",
              .details = kinds,
              .arguments = {file("the file to read", true), display, dry},
              .json = loaded,
              .examples = {"orlo gamma load ramp.txt --display 1"},
              .run = run(Load)},
             {.name = "verify",
              .about = "compares the ramps that the displays have with those that they should have",
              .details = "Those are the calibration document's, else the profile's, else straight; or that of FILE. " + kinds +
                         " The exit status is 1 where one differs by more than the tolerance, and 2 where the calibration document cannot be used.",
              .arguments = {file("the ramp that they should have", false),
                            all,
                            {"--tolerance", "NUMBER", "by how much of 65535 a ramp may differ. Default: 257, a step of eight bits",
                             [request](const std::string& value) {
                                 request->tolerance = static_cast<int>(WholeFrom("--tolerance", value, 0, 65535));
                             }}},
              .json =
                  "{\"displays\": [{\"display\", \"expected\": \"document\"|\"profile\"|\"straight\"|\"file\", \"largestDifference\", \"channel\", "
                  "\"entry\", \"matches\"}, ...], \"tolerance\", \"matches\", \"documentFault\": TEXT|null}",
              .examples = {"orlo gamma verify ramp.txt --tolerance 0"},
              .run = run(Verify)},
             {.name = "adjust",
              .about = "changes the ramp that the display has now",
              .details =
                  "Each value becomes contrast x value to the power 1/gamma + brightness, from 0 to 1, which is cut to its ends. One number is for "
                  "all channels, three with commas are for red, green and blue.",
              .arguments = {display,
                            three("--gamma", request->gamma, "0.1 to 10; above 1 is lighter. Default: 1", 0.1, 10),
                            three("--brightness", request->brightness, "-1 to 1. Default: 0", -1, 1),
                            three("--contrast", request->contrast, "0 to 10. Default: 1", 0, 10),
                            {"--invert", "", "turn it round: black becomes white", SwitchOn(request->isInverted)},
                            dry},
              .json = loaded,
              .examples = {"orlo gamma adjust --gamma 1.1,1,0.95 --display 1"},
              .run = run(Adjust)},
             {.name = "linear", .about = "gives the display a straight ramp", .arguments = {display, dry}, .json = loaded, .run = run(Linear)},
             {.name = "reset",
              .about = "gives the displays the ramps of their profiles (vcgt), or straight ones",
              .arguments = {all, dry},
              .json = loaded,
              .run = run(Reset)},
         }}};
}
