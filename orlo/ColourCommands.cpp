#include "orlo/ColourCommands.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"
#include "images/CurrentMatching.h"
#include "images/FourCharCodes.h"
#include "images/Operation.h"
#include "orlo/ColourSpaces.h"
#include "orlo/ImageModule.h"
#include "orlo/StoredSettings.h"

namespace {

constexpr const char* kSpaceWords = "reference|xyz|lab|yxy|srgb|monitor|printer";
constexpr const char* kUnitWords = "0..1|0..255|percent|16-bit";

/// What the two commands share.
struct ColourRequest {
    std::string monitor, printer, proofer;  // profile files; empty: the stored ones, where they are needed
    bool session = false;
    bool plainCurves = false;
    bool isD65 = false;
    const Unit* unit = &UnitCalled("0..1");
};

/// A matching record for what is asked of monitor and printer.
CurrentMatching MatchingFor(ColourRequest request, bool needsMonitor, bool needsPrinter, const std::string& command) {
    // A session has both.
    needsMonitor |= request.session;
    needsPrinter |= request.session;
    const StoredProfiles stored = ReadStoredProfiles();
    if (needsMonitor && request.monitor.empty()) request.monitor = PathOfStored("monitor", stored.monitor, command);
    if (needsPrinter && request.printer.empty()) request.printer = PathOfStored("printer", stored.printer, command);
    if (needsPrinter && request.proofer.empty() && stored.proofer.isStored) request.proofer = PathOfStored("proofer", stored.proofer, command);
    std::optional<StoredConditions> conditions;
    if (request.session) conditions = ReadStoredConditions();
    ChosenProfile monitor = needsMonitor ? ChooseMonitor(request.monitor) : StandInMonitor();
    if (conditions && conditions->intent == kRenderingIntent3) RequireLuminance(monitor);
    if (!conditions && !request.plainCurves) RefineCurves(monitor);
    const ChosenProfile printer = needsPrinter ? ChoosePrinter(request.printer) : StandInPrinter();
    std::optional<ChosenProfile> proofer;
    if (needsPrinter && !request.proofer.empty()) proofer = ChooseProofer(request.proofer);
    return {monitor, printer, proofer, conditions ? &*conditions : nullptr, kMatchingQuality2};
}

bool IsDevice(ColourSpace space) {
    return space == ColourSpace::Monitor || space == ColourSpace::Printer;
}

bool HasSpace(const std::vector<SingleColour>& colours, ColourSpace space) {
    return std::ranges::any_of(colours, [space](const SingleColour& colour) { return colour.space == space; });
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

struct ColourAsked : ColourRequest {
    std::vector<std::string> words;
    std::optional<ColourSpace> from;
    std::vector<ColourSpace> to;
    const Unit* toUnit = nullptr;
};

std::vector<SingleColour> ColoursOf(const ColourAsked& asked) {
    if (!asked.words.empty() && asked.words != std::vector<std::string>{"-"}) return ColoursIn(Joined(asked.words), *asked.unit, asked.from);
    if (isatty(STDIN_FILENO) == 1 && asked.words.empty()) {
        throw Complaint{"colour", "no colour is given", "write one, such as lab:50,20,-30, or - for standard input"};
    }
    std::vector<SingleColour> colours;
    for (std::string line; std::getline(std::cin, line);) std::ranges::move(ColoursIn(line, *asked.unit, asked.from), std::back_inserter(colours));
    if (colours.empty()) throw Complaint{"standard input", "there is no colour in it", "write one a line, such as lab:50,20,-30"};
    return colours;
}

/// Spaces that are not asked for by name: those that need no profile, and the devices whose profiles are given.
std::vector<ColourSpace> UsualTargets(const ColourRequest& request) {
    std::vector<ColourSpace> spaces = {ColourSpace::Reference, ColourSpace::Xyz, ColourSpace::Lab, ColourSpace::Yxy, ColourSpace::Srgb};
    if (!request.monitor.empty() || request.session) spaces.push_back(ColourSpace::Monitor);
    if (!request.printer.empty() || request.session) spaces.push_back(ColourSpace::Printer);
    return spaces;
}

/// As many digits as single precision has.
double Short(double value) {
    return std::round(value * 1e7) / 1e7;
}

Json JsonOf(const SingleColour& colour, const Unit& unit) {
    Json values = Json::array();
    for (std::size_t i = 0; i < colour.values.size(); ++i) values.push_back(Short(colour.values[i] * ScaleOf(colour.space, i, unit)));
    return values;
}

/// What is not in a space of RGB at all; white is within the rounding of its matrix.
bool IsOutOfRange(const SingleColour& colour) {
    constexpr double kRounding = 1e-4;
    if (colour.space != ColourSpace::Srgb && colour.space != ColourSpace::Reference) return false;
    return std::ranges::any_of(colour.values, [](double value) { return value < -kRounding || value > 1 + kRounding; });
}

void ShowColours(ColourAsked asked, const Showing& showing) {
    const std::vector<SingleColour> colours = ColoursOf(asked);
    const bool namesTargets = !asked.to.empty();
    if (!namesTargets) asked.to = UsualTargets(asked);
    const Unit& unit = asked.toUnit ? *asked.toUnit : *asked.unit;
    const auto needs = [&](ColourSpace space) { return HasSpace(colours, space) || std::ranges::find(asked.to, space) != asked.to.end(); };
    const CurrentMatching matching = MatchingFor(asked, needs(ColourSpace::Monitor), needs(ColourSpace::Printer), "colour");
    const ColourWays ways(asked.isD65);
    Json told = Json::array();
    std::string lines;
    for (const SingleColour& colour : colours) {
        const XYZColour connection = ways.ToConnection(colour);
        Json in = Json::object(), gamut = Json::object();
        if (colours.size() > 1 && asked.to.size() > 1) lines += "# " + TextOf(colour, unit) + "\n";
        for (const ColourSpace space : asked.to) {
            const SingleColour out = ways.FromConnection(connection, space);
            lines += TextOf(out, unit);
            in[NameOf(space)] = JsonOf(out, unit);
            if (IsOutOfRange(out)) lines += "  # out of range";
            if (IsDevice(space)) {
                const Reproduction shown = ways.ReproductionOf(connection, space);
                const bool isInGamut = shown.difference <= (space == ColourSpace::Monitor ? kMonitorTolerance : kPrinterTolerance);
                lines += isInGamut ? "  # in gamut" : "  # out of gamut, shown " + NumberText(shown.difference, 1) + " away";
                gamut[NameOf(space)] = {{"inGamut", isInGamut}, {"difference", Short(shown.difference)}, {"marked", shown.isMarked}};
            }
            lines += "\n";
        }
        told.push_back({{"space", NameOf(colour.space)}, {"values", JsonOf(colour, unit)}, {"in", in}, {"gamut", gamut}});
    }
    showing.Show({{"unit", unit.name}, {"colours", told}}, lines);
}

struct DifferenceAsked : ColourRequest {
    std::vector<std::string> words;
    DifferenceRequest pictures;
};

bool BeginsWithSpace(const std::string& word) {
    return ColourSpaceCalled(word.substr(0, word.find_first_of(" ,:"))).has_value();
}

void ShowDifferenceOfColours(const DifferenceAsked& asked, const Showing& showing) {
    const std::vector<SingleColour> colours = ColoursIn(Joined(asked.words), *asked.unit, std::nullopt);
    if (colours.size() != 2)
        throw Complaint{"difference", std::to_string(colours.size()) + " is not the number of colours that it takes", "write two"};
    if (!asked.pictures.map.empty()) throw Complaint{"--map", "two colours have no map", "leave it out, or name two pictures"};
    const CurrentMatching matching =
        MatchingFor(asked, HasSpace(colours, ColourSpace::Monitor), HasSpace(colours, ColourSpace::Printer), "difference");
    const ColourWays ways(asked.isD65);
    std::vector<LabColour> labs;
    for (const SingleColour& colour : colours) {
        // L*a*b* is compared as it is written, with no way to another white and back.
        const std::vector<double> lab =
            colour.space == ColourSpace::Lab ? colour.values : ways.FromConnection(ways.ToConnection(colour), ColourSpace::Lab).values;
        labs.emplace_back(static_cast<float>(lab[0]), static_cast<float>(lab[1]), static_cast<float>(lab[2]));
    }
    const auto differences = DifferencesOf(labs[0], labs[1], asked.pictures.weights);
    Json told = Json::object();
    std::string lines;
    for (std::size_t i = 0; i < kFormulas; ++i) {
        told[kFormulaNames[i]] = Short(static_cast<double>(differences[i]));
        std::string name = kFormulaNames[i];
        name.resize(12, ' ');
        lines += name + NumberText(static_cast<double>(differences[i]), 4) + "\n";
    }
    showing.Show(told, lines);
}

void ShowDifferenceOfPictures(DifferenceAsked asked, const Showing& showing) {
    if (asked.words.size() != 2) throw Complaint{"difference", "two pictures or two colours are needed", "orlo difference --help shows how"};
    asked.pictures.picture = asked.words[0];
    asked.pictures.standard = asked.words[1];
    const DifferenceReport report = CompareImages(asked.pictures);
    Json told = {{"width", report.width}, {"height", report.height}};
    std::string lines = "                  mean         p95     largest\n";
    for (std::size_t i = 0; i < kFormulas; ++i) {
        const DifferenceFigures& figures = report.figures[i];
        told[kFormulaNames[i]] = {{"mean", Short(figures.mean)}, {"p95", Short(figures.percentile95)}, {"largest", Short(figures.largest)}};
        std::array<char, 96> line{};
        std::snprintf(line.data(), line.size(), "%-10s%12.4f%12.4f%12.4f\n", kFormulaNames[i], figures.mean, figures.percentile95, figures.largest);
        lines += line.data();
    }
    showing.Show(told, lines);
}

void ShowDifference(const DifferenceAsked& asked, const Showing& showing) {
    BeginsWithSpace(asked.words.front()) ? ShowDifferenceOfColours(asked, showing) : ShowDifferenceOfPictures(asked, showing);
}

CmcWeights WeightsFrom(const std::string& text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) throw Complaint{"--cmc", "'" + text + "' is not a value of it", "write L:C, such as 2:1"};
    const auto weight = [](const std::string& number) { return static_cast<float>(RealFrom("--cmc", number, 0.1, 10)); };
    return {weight(text.substr(0, colon)), weight(text.substr(colon + 1))};
}

/// The options of ColourRequest.
std::vector<Argument> SharedOptions(const std::shared_ptr<ColourRequest>& request) {
    return {
        {"--unit", kUnitWords, "what the numbers of RGB, inks, XYZ and the Y of Yxy run to; 0..1 unless given. A % behind a number counts before it",
         [request](const std::string& value) { request->unit = &UnitCalled(value); }},
        {"--white", "d50|d65", "which white xyz, lab and yxy are under; d50, the connection space's, unless given",
         [request](const std::string& value) { request->isD65 = value == "d65"; }},
        {"--monitor", "PROFILE", "the monitor's profile. Default: the stored one, where it is needed", Into(request->monitor)},
        {"--printer", "PROFILE", "the printer's profile. Default: the stored one, where it is needed", Into(request->printer)},
        {"--proofer", "PROFILE", "a proofing device before the printer", Into(request->proofer)},
        {"--session", "", "take the stored viewing conditions, intent and fixed whites, as every open host shows it", SwitchOn(request->session)},
        {"--plain-curves", "", "take the monitor's tone curves as hosts do", SwitchOn(request->plainCurves)},
    };
}

Command ColourCommand() {
    const auto asked = std::make_shared<ColourAsked>();
    Command command{
        .name = "colour",
        .about = "converts single colours, and tells whether devices show them",
        .details =
            "A colour is a space and its numbers, as in lab:50,20,-30 or \"lab 50 20 -30\". reference is the linear RGB in which hosts hand over "
            "their colours; xyz, lab and yxy are those of the connection space; monitor and printer are device values. Without COLOUR, or with "
            "-, colours are read from standard input, a line each; what is printed can be read again. A device's colour is in gamut when it and "
            "its prediction back differ by at most 1 for the monitor and 3 for the printer, in CIE76.",
    };
    command.arguments = {
        {"COLOUR", "COLOUR", "a colour; more may follow", [asked](const std::string& word) { asked->words.push_back(word); }, false, true},
        {"--from", kSpaceWords, "the space of numbers without a name", [asked](const std::string& value) { asked->from = ColourSpaceCalled(value); }},
        {"--to", kSpaceWords, "a space to convert to; may be given again. Default: all but devices whose profile is not given",
         [asked](const std::string& value) { asked->to.push_back(*ColourSpaceCalled(value)); }, false, true},
        {"--to-unit", kUnitWords, "what the numbers that are printed run to. Default: that of --unit",
         [asked](const std::string& value) { asked->toUnit = &UnitCalled(value); }},
    };
    std::ranges::move(SharedOptions(asked), std::back_inserter(command.arguments));
    command.json =
        "{\"unit\", \"colours\": [{\"space\", \"values\": [NUMBER, ...], \"in\": {SPACE: [NUMBER, ...], ...},\n"
        " \"gamut\": {\"monitor\"|\"printer\": {\"inGamut\": true|false, \"difference\": CIE76 to what is shown,\n"
        "   \"marked\": what the library's own gamut operation answers}, ...}}, ...]}";
    command.examples = {"orlo colour lab:50,20,-30", "orlo colour srgb:255,128,0 --unit 0..255 --to printer --printer printer.icc"};
    command.run = [asked](const Showing& showing) { ShowColours(*asked, showing); };
    return command;
}

Command DifferenceCommand() {
    const auto asked = std::make_shared<DifferenceAsked>();
    const std::shared_ptr<DifferenceRequest> pictures(asked, &asked->pictures);
    Command command{
        .name = "difference",
        .about = "tells how far two colours, or two pictures, are apart",
        .details =
            "By the four formulas of the library: CIE76, CIE94 (textile weights), CMC and CIEDE2000. The second is the standard. Colours are written "
            "as for orlo colour. Pictures are of the same size, each taken by its profile; what is told is the mean over the pixels, what 95 % "
            "of them are within (to 0.004), and the largest.",
    };
    command.arguments = {
        {"FIRST", "IMAGE", "a picture or a colour", [asked](const std::string& word) { asked->words.push_back(word); }, true, true},
        {"SECOND", "IMAGE", "the standard: another of the same kind", {}},
        {"--map", "FILE",
         "write a grey picture of the differences of two pictures, .png or .tif: white is 25.5 or more, so that a level of 8 bits is 0.1",
         Into(pictures->map)},
        {"--formula", "cie76|cie94|cmc|ciede2000", "which the map shows; ciede2000 unless given",
         [pictures](const std::string& value) {
             pictures->mapped = static_cast<Formula>(std::ranges::find(kFormulaNames, value) - kFormulaNames.begin());
         }},
        {"--cmc", "L:C", "how CMC weighs lightness and chroma; 2:1 unless given",
         [pictures](const std::string& value) { pictures->weights = WeightsFrom(value); }},
        {"--input-profile", "PROFILE", "the profile of the first picture, whatever it carries", Into(pictures->pictureProfile)},
        {"--standard-profile", "PROFILE", "the profile of the second picture, whatever it carries", Into(pictures->standardProfile)},
        {"--max-pixels", "NUMBER", "the most pixels of a picture; 250000000 unless given",
         [pictures](const std::string& value) { pictures->mostPixels = WholeFrom("--max-pixels", value, 1, 100'000'000'000'000); }},
    };
    std::ranges::move(SharedOptions(asked), std::back_inserter(command.arguments));
    command.json =
        "colours: {\"cie76\", \"cie94\", \"cmc\", \"ciede2000\"};\n"
        "pictures: {\"width\", \"height\", FORMULA: {\"mean\", \"p95\", \"largest\"}, ...}";
    command.examples = {"orlo difference lab:50,20,-30 lab:52,19,-28", "orlo difference proof.png photo.jpg --map map.png"};
    command.run = [asked](const Showing& showing) { ShowDifference(*asked, showing); };
    return command;
}

}  // namespace

std::vector<Command> ColourCommands() {
    return {ColourCommand(), DifferenceCommand()};
}
