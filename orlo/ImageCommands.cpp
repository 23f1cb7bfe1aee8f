#include "orlo/ImageCommands.h"

#include <memory>
#include <nlohmann/json.hpp>

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

Command ImageCommand(const About& row) {
    const auto request = std::make_shared<ImageRequest>();
    request->operation = row.operation;
    request->command = row.name;
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
    command.run = [request](const Showing& showing) { RunImageCommand(*request, showing); };
    return command;
}

}  // namespace

std::vector<Command> ImageCommands() {
    std::vector<Command> commands;
    for (const About& row : kCommands) commands.push_back(ImageCommand(row));
    return commands;
}
