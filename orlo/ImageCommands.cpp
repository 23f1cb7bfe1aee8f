#include "orlo/ImageCommands.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"
#include "orlo/ImageModule.h"
#include "orlo/StoredSettings.h"

namespace {

struct About {
    Operation operation;
    const char *name, *about, *details, *example;
};

constexpr About kCommands[] = {
    {Operation::Match, "match", "matches a picture to the monitor",
     "OUTPUT holds monitor RGB and carries the monitor's profile. An alpha channel is kept.",
     "orlo match photo.jpg matched.png --monitor monitor.icc"},
    {Operation::Proof, "proof", "shows on the monitor what the printer would make of a picture",
     "OUTPUT holds the monitor RGB that shows what the printer would render, and carries the monitor's profile. An alpha channel is kept.",
     "orlo proof photo.jpg proof.png --monitor monitor.icc --printer printer.icc"},
    {Operation::Gamut, "gamut", "marks the colours of a picture that a device cannot show",
     "OUTPUT, a PNG or TIFF file, is a grey mask of 8 bits: 255 where the colour is out of the device's gamut, that is, where it and its prediction "
     "back from the device differ by more than the tolerance; paper that is not white counts. The share that is marked is told. With --exact it is "
     "the library's own answer, which one unit of rounding decides; with --quality 0 that mask has values between at the boundary.",
     "orlo gamut photo.jpg outside.png --overlay --device printer --monitor monitor.icc --printer printer.icc"},
    {Operation::Predict, "predict", "turns monitor RGB into reference RGB",
     "OUTPUT, a PNG or TIFF file, holds reference RGB (linear, 16 bits) and carries the reference profile. A profile embedded in INPUT is ignored: "
     "its "
     "values are taken for the monitor's.",
     "orlo predict screen.png linear.tif --monitor monitor.icc"},
    {Operation::PrinterMatch, "printer-match", "matches a picture to the printer",
     "OUTPUT holds printer RGB or CMYK and carries the printer's profile. For a CMYK printer it is a TIFF or JPEG file, and an alpha channel is "
     "flattened onto white.",
     "orlo printer-match photo.jpg print.tif --monitor monitor.icc --printer printer.icc"},
    {Operation::PrinterPredict, "printer-predict", "turns printer values into reference RGB",
     "OUTPUT, a PNG or TIFF file, holds reference RGB (linear, 16 bits) and carries the reference profile. A profile embedded in INPUT is ignored: "
     "its "
     "values are taken for the printer's.",
     "orlo printer-predict print.tif linear.tif --monitor monitor.icc --printer printer.icc"},
};

/// The path of a stored profile that the command needs.
std::string StoredPathFor(const char* place, const StoredProfile& stored, const std::string& command) {
    const std::string name = place;
    const std::string right = "add --" + name + " PROFILE, or store one with orlo settings set " + name + "-profile PROFILE";
    if (!stored.isStored) throw Complaint{command, "no " + name + " profile is given, and none is stored", right, Exit::NotThere};
    if (stored.path.empty()) throw Complaint{command, "the stored " + name + " profile cannot be found", right, Exit::NotThere};
    return stored.path;
}

/// What the user asks for on the command line beside the request itself.
struct Asked {
    ImageRequest request;
    bool session = false;
};

bool UsesPrinter(const ImageRequest& request) {
    const Operation operation = request.operation;
    return operation == Operation::Proof || operation == Operation::PrinterMatch || operation == Operation::PrinterPredict || request.printerGamut;
}

/// Profiles that are not given come from the store, and for a session its conditions. Answers which profiles were taken.
std::vector<std::string> TakeFromStore(Asked& asked, const std::string& command) {
    ImageRequest& request = asked.request;
    std::vector<std::string> taken;
    const auto take = [&taken, &command](std::string& path, const char* place, const StoredProfile& stored) {
        path = StoredPathFor(place, stored, command);
        taken.emplace_back(place);
    };
    // A session has a printer, whose paper its conditions may ask for.
    const bool needsPrinter = asked.session || UsesPrinter(request);
    if (request.monitor.empty() || (needsPrinter && request.printer.empty())) {
        const StoredProfiles stored = ReadStoredProfiles();
        if (request.monitor.empty()) take(request.monitor, "monitor", stored.monitor);
        if (needsPrinter && request.printer.empty()) take(request.printer, "printer", stored.printer);
        if (needsPrinter && request.proofer.empty() && stored.proofer.isStored) take(request.proofer, "proofer", stored.proofer);
    }
    if (asked.session) {
        request.conditions = ReadStoredConditions();
        if (!request.quality) request.quality = request.conditions->quality;
    }
    return taken;
}

std::string NumberText(double number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", number);
    return text.data();
}

/// The conditions in force, as the summary tells them.
std::string ConditionsText(const std::optional<StoredConditions>& conditions) {
    if (!conditions) return "no viewing conditions";
    std::string text = "session with intent " + IntentName(conditions->intent);
    if (IsUnadjusted(conditions->intent)) return text;
    const ViewingConditions& viewing = conditions->viewing;
    text += ", flare " + NumberText(viewing.flare) + ", contrast " + NumberText(viewing.contrast);
    if (viewing.aOffset != 0) text += ", a* offset " + NumberText(viewing.aOffset);
    if (viewing.bOffset != 0) text += ", b* offset " + NumberText(viewing.bOffset);
    if (viewing.usePrinter) text += ", adapted to paper";
    if (conditions->monitorWhite) text += ", fixed monitor white";
    if (conditions->printerWhite) text += ", fixed printer white";
    return text;
}

Json JsonOf(const std::optional<StoredConditions>& conditions) {
    if (!conditions) return nullptr;
    const ViewingConditions& viewing = conditions->viewing;
    return {{"intent", IntentName(conditions->intent)},
            {"flare", viewing.flare},
            {"contrast", viewing.contrast},
            {"aOffset", viewing.aOffset},
            {"bOffset", viewing.bOffset},
            {"adaptToPaper", viewing.usePrinter != 0},
            {"fixedMonitorWhite", conditions->monitorWhite.has_value()},
            {"fixedPrinterWhite", conditions->printerWhite.has_value()}};
}

/// "stored monitor and printer profile, "
std::string StoredText(const std::vector<std::string>& taken) {
    std::string text;
    for (std::size_t i = 0; i < taken.size(); ++i) text += (i == 0 ? "stored " : i + 1 == taken.size() ? " and " : ", ") + taken[i];
    return text.empty() ? "" : text + " profile, ";
}

void Run(Asked asked, const std::string& command, const Showing& showing) {
    const auto start = std::chrono::steady_clock::now();
    const std::vector<std::string> taken = TakeFromStore(asked, command);
    const ImageRequest& request = asked.request;
    const ImageReport report = RunImage(request);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::array<char, 160> figures{};
    std::snprintf(figures.data(), figures.size(), ": %d x %d pixels, %d bits, ", report.width, report.height, report.depth);
    std::string line = command + ": " + request.input + " -> " + request.output + figures.data() + report.from + " to " + report.to + ", " +
                       StoredText(taken) + ConditionsText(request.conditions);
    if (report.pages > 1) line += ", page " + std::to_string(request.page) + " of " + std::to_string(report.pages);
    if (!report.note.empty()) line += ", " + report.note;
    if (request.operation == Operation::Gamut) {
        std::snprintf(figures.data(), figures.size(), ", %.2f %% out of gamut", 100 * report.marked);
        line += figures.data();
    }
    std::snprintf(figures.data(), figures.size(), ", %.2f s, %.1f Mpixel/s\n", seconds,
                  static_cast<double>(report.width) * report.height / 1e6 / seconds);
    line += figures.data();
    Json told = {{"command", command},       {"input", request.input},
                 {"output", request.output}, {"width", report.width},
                 {"height", report.height},  {"bits", report.depth},
                 {"from", report.from},      {"to", report.to},
                 {"stored", taken},          {"conditions", JsonOf(request.conditions)},
                 {"seconds", seconds}};
    if (request.operation == Operation::Gamut) told["marked"] = report.marked;
    if (report.pages > 1) told["page"] = request.page, told["pages"] = report.pages;
    if (!report.note.empty()) told["note"] = report.note;
    showing.Tell(told, line);
}

Command ImageCommand(const About& row) {
    const auto asked = std::make_shared<Asked>();
    const std::shared_ptr<ImageRequest> request(asked, &asked->request);
    request->operation = row.operation;
    Command command{.name = row.name, .about = row.about, .details = row.details};
    command.arguments = {
        {"INPUT", "IMAGE", "a file of any kind that libvips loads", Into(request->input), true},
        {"OUTPUT", "IMAGE", "the file to write; its suffix says which kind: .png, .tif, .jpg, .webp, .avif, .heic, .jxl or .ppm",
         Into(request->output), true},
        {"--monitor", "PROFILE", "the monitor's ICC profile: a matrix model with tone curves. Default: the stored one", Into(request->monitor)},
        {"--printer", "PROFILE", "the printer's ICC profile: class prtr, RGB or CMYK. Default: the stored one, where a printer is needed",
         Into(request->printer)},
        {"--proofer", "PROFILE", "a proofing device whose rendering stands before the printer's", Into(request->proofer)},
        {"--session", "", "take the stored viewing conditions, intent, fixed whites and quality, as every open host shows it",
         SwitchOn(asked->session)},
        {"--plain-curves", "", "take the monitor's tone curves as hosts do, which is coarse where they have few entries; with --session they are",
         SwitchOn(request->plainCurves)},
        {"--quality", "0|1|2", "1 and 2 (default) evaluate every colour; 0 reads precomputed tables, for fast proofs",
         [request](const std::string& value) { request->quality = value[0] - '0'; }},
    };
    const auto add = [&command](Argument argument) { command.arguments.push_back(std::move(argument)); };
    if (row.operation == Operation::Gamut) {
        add({"--device", "monitor|printer", "whose gamut; monitor unless given",
             [request](const std::string& value) { request->printerGamut = value == "printer"; }});
        add({"--tolerance", "NUMBER", "the largest difference, in CIE76, that is not marked; 1 for the monitor and 3 for the printer unless given",
             [request](const std::string& value) { request->tolerance = RealFrom("--tolerance", value, 0, 1000); }});
        add({"--exact", "", "mark what the library's own gamut operation answers", SwitchOn(request->exactGamut)});
        add({"--overlay", "", "OUTPUT is the picture on the monitor, pale, with what is marked in green",
             [request](const std::string&) { request->gamutForm = GamutForm::Overlay; }});
        add({"--difference", "", "OUTPUT is a grey map of the differences: white is 25.5 or more, so that a level of 8 bits is 0.1",
             [request](const std::string&) { request->gamutForm = GamutForm::Difference; }});
    }
    if (!ReadsDeviceValues(row.operation)) {
        add({"--input-profile", "PROFILE", "the profile that INPUT's colours are in, whatever it carries", Into(request->inputProfile)});
    }
    add({"--format", "png|tiff|jpeg|webp|avif|heif|jxl|ppm", "which kind of file OUTPUT is. Default: what its suffix says", Into(request->format)});
    add({"--page", "NUMBER", "which page of a TIFF file that has several; 1 unless given",
         [request](const std::string& value) { request->page = static_cast<int>(WholeFrom("--page", value, 1, 65535)); }});
    add({"--depth", "8|16", "bits of a sample of OUTPUT. Default: those of INPUT; a mask and JPEG have 8, reference RGB has 16",
         [request](const std::string& value) { request->depth = value == "8" ? 8 : 16; }});
    add({"--compression", "lzw|deflate|none", "of a TIFF file; lzw unless given, none is the fastest", [request](const std::string& value) {
             request->compression = value == "lzw" ? TiffCompression::Lzw : value == "deflate" ? TiffCompression::Deflate : TiffCompression::None;
         }});
    command.json =
        "{\"command\", \"input\", \"output\", \"width\", \"height\", \"bits\", \"from\", \"to\": names of profiles,\n"
        " \"stored\": [\"monitor\", \"printer\", \"proofer\"] as far as they came from the store,\n"
        " \"conditions\": null, or with --session {\"intent\", \"flare\", \"contrast\", \"aOffset\", \"bOffset\", \"adaptToPaper\",\n"
        "   \"fixedMonitorWhite\", \"fixedPrinterWhite\"},\n"
        " \"seconds\"; gamut: \"marked\": 0..1, the share of the pixels;\n"
        " \"page\" and \"pages\" of an input with several; \"note\": what could not be done beside the picture}";
    command.examples = {row.example};
    command.run = [asked, name = command.name](const Showing& showing) { Run(*asked, name, showing); };
    return command;
}

}  // namespace

std::vector<Command> ImageCommands() {
    std::vector<Command> commands;
    for (const About& row : kCommands) commands.push_back(ImageCommand(row));
    return commands;
}
