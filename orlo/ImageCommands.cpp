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
     "orlo match photo.jpg matched.png --monitor monitor.icc --printer printer.icc"},
    {Operation::Proof, "proof", "shows on the monitor what the printer would make of a picture",
     "OUTPUT holds the monitor RGB that shows what the printer would render, and carries the monitor's profile. An alpha channel is kept.",
     "orlo proof photo.jpg proof.png --monitor monitor.icc --printer printer.icc"},
    {Operation::Gamut, "gamut", "marks the colours of a picture that a device cannot show",
     "OUTPUT, a PNG or TIFF file, is a grey mask of 8 bits: 255 where the colour is out of the device's gamut. With --quality 0 the monitor's mask "
     "has "
     "values between at the boundary.",
     "orlo gamut photo.jpg outside.png --device printer --monitor monitor.icc --printer printer.icc"},
    {Operation::Predict, "predict", "turns monitor RGB into reference RGB",
     "OUTPUT, a PNG or TIFF file, holds reference RGB (linear, 16 bits) and carries the reference profile. A profile embedded in INPUT is ignored: "
     "its "
     "values are taken for the monitor's.",
     "orlo predict screen.png linear.tif --monitor monitor.icc --printer printer.icc"},
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

/// A profile that is not given comes from the store, and with it everything else that a session takes from there.
void TakeFromStore(ImageRequest& request, const std::string& command) {
    if (!request.monitor.empty() && !request.printer.empty()) return;
    const StoredProfiles stored = ReadStoredProfiles();
    if (request.monitor.empty()) request.monitor = StoredPathFor("monitor", stored.monitor, command);
    if (request.printer.empty()) request.printer = StoredPathFor("printer", stored.printer, command);
    if (request.proofer.empty() && stored.proofer.isStored) request.proofer = StoredPathFor("proofer", stored.proofer, command);
    request.conditions = ReadStoredConditions();
    if (!request.quality) request.quality = request.conditions->quality;
}

void Run(ImageRequest request, const std::string& command, const Showing& showing) {
    const auto start = std::chrono::steady_clock::now();
    TakeFromStore(request, command);
    const ImageReport report = RunImage(request);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::array<char, 160> figures{};
    std::snprintf(figures.data(), figures.size(), ": %d x %d pixels, %d bits, ", report.width, report.height, report.depth);
    std::string line = command + ": " + request.input + " -> " + request.output + figures.data() + report.from + " to " + report.to;
    std::snprintf(figures.data(), figures.size(), ", %.2f s, %.1f Mpixel/s\n", seconds,
                  static_cast<double>(report.width) * report.height / 1e6 / seconds);
    line += figures.data();
    showing.Tell({{"command", command},
                  {"input", request.input},
                  {"output", request.output},
                  {"width", report.width},
                  {"height", report.height},
                  {"bits", report.depth},
                  {"from", report.from},
                  {"to", report.to},
                  {"seconds", seconds}},
                 line);
}

Command ImageCommand(const About& row) {
    const auto request = std::make_shared<ImageRequest>();
    request->operation = row.operation;
    Command command{.name = row.name, .about = row.about, .details = row.details};
    command.arguments = {
        {"INPUT", "IMAGE", "a PNG, TIFF or JPEG file", Into(request->input), true},
        {"OUTPUT", "IMAGE", "the file to write; its suffix says which kind: .png, .tif, .tiff, .jpg or .jpeg", Into(request->output), true},
        {"--monitor", "PROFILE", "the monitor's ICC profile: a matrix model with tone curves. Default: the stored one", Into(request->monitor)},
        {"--printer", "PROFILE", "the printer's ICC profile: class prtr, RGB or CMYK. Default: the stored one", Into(request->printer)},
        {"--proofer", "PROFILE", "a proofing device whose rendering stands before the printer's", Into(request->proofer)},
        {"--quality", "0|1|2", "1 and 2 (default) evaluate every colour; 0 reads precomputed tables, for fast proofs",
         [request](const std::string& value) { request->quality = value[0] - '0'; }},
    };
    const auto add = [&command](Argument argument) { command.arguments.push_back(std::move(argument)); };
    if (row.operation == Operation::Gamut) {
        add({"--device", "monitor|printer", "whose gamut; monitor unless given",
             [request](const std::string& value) { request->printerGamut = value == "printer"; }});
    }
    add({"--depth", "8|16", "bits of a sample of OUTPUT. Default: those of INPUT; a mask and JPEG have 8, reference RGB has 16",
         [request](const std::string& value) { request->depth = value == "8" ? 8 : 16; }});
    add({"--compression", "lzw|deflate|none", "of a TIFF file; lzw unless given, none is the fastest", [request](const std::string& value) {
             request->compression = value == "lzw" ? TiffCompression::Lzw : value == "deflate" ? TiffCompression::Deflate : TiffCompression::None;
         }});
    command.json = "{\"command\", \"input\", \"output\", \"width\", \"height\", \"bits\", \"from\", \"to\": names of profiles, \"seconds\"}";
    command.examples = {row.example};
    command.run = [request, name = command.name](const Showing& showing) { Run(*request, name, showing); };
    return command;
}

}  // namespace

std::vector<Command> ImageCommands() {
    std::vector<Command> commands;
    for (const About& row : kCommands) commands.push_back(ImageCommand(row));
    return commands;
}
