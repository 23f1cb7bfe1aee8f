#include "orlo/HelpText.h"

#include "orlo/StoredSettings.h"

namespace {

/// What a command does, and what goes in and comes out.
constexpr std::string_view About(Operation operation) {
    switch (operation) {
        case Operation::Match:
            return "Matches an image to the monitor: the output holds monitor RGB and carries the monitor profile.\n"
                   "An alpha channel is kept.\n";
        case Operation::Proof:
            return "Soft-proofs an image: the output holds the monitor RGB that shows what the printer would render,\n"
                   "and carries the monitor profile. An alpha channel is kept.\n";
        case Operation::Gamut:
            return "Marks the colours that a device cannot show: the output is a grey mask of 8 bits, 255 = out of gamut.\n"
                   "With --quality 0 the monitor's mask has values between at the boundary. OUTPUT is a PNG or TIFF file.\n";
        case Operation::Predict:
            return "Turns monitor RGB into reference RGB (linear, 16 bits), with the reference profile embedded.\n"
                   "A profile embedded in INPUT is ignored: its values are taken for the monitor's. OUTPUT is a PNG or TIFF file.\n";
        case Operation::PrinterMatch:
            return "Matches an image to the printer: the output holds printer RGB or CMYK and carries the printer profile.\n"
                   "For a CMYK printer OUTPUT is a TIFF or JPEG file, and an alpha channel is flattened onto white.\n";
        case Operation::PrinterPredict:
            return "Turns printer values into reference RGB (linear, 16 bits), with the reference profile embedded.\n"
                   "A profile embedded in INPUT is ignored: its values are taken for the printer's. OUTPUT is a PNG or TIFF file.\n";
    }
    return "";
}

constexpr std::string_view kOptions =
    "  --monitor PROFILE   the monitor's ICC profile: a matrix model with tone curves. Default: the stored one\n"
    "  --printer PROFILE   the printer's ICC profile: class prtr, RGB or CMYK. Default: the stored one\n"
    "  --proofer PROFILE   a proofing device whose rendering stands before the printer's\n"
    "  --quality 0|1|2     1 and 2 (default) evaluate every colour; 0 reads precomputed tables, for fast proofs\n";

}  // namespace

std::string GeneralHelp() {
    std::string text =
        "Usage: orlo COMMAND INPUT OUTPUT [--monitor PROFILE] [--printer PROFILE] [OPTIONS]\n"
        "       orlo settings list | get NAME | set NAME VALUE...\n"
        "       orlo watch\n"
        "\n"
        "Matches the colours of image files (PNG, TIFF, JPEG) between monitor, printer and proofing device.\n"
        "\n"
        "  match            image to monitor RGB\n"
        "  proof            image to the monitor RGB that shows what the printer would render\n"
        "  gamut            image to a mask of the colours that the monitor or the printer cannot show\n"
        "  predict          monitor RGB to reference RGB\n"
        "  printer-match    image to printer values\n"
        "  printer-predict  printer values to reference RGB\n"
        "  settings         shows and changes the settings that every host of this user shares\n"
        "  watch            tells each change of them as it happens\n"
        "\n";
    text += kOptions;
    text +=
        "  --depth 8|16        bits of a sample of OUTPUT. Default: those of INPUT\n"
        "  --compression KIND  of a TIFF OUTPUT: lzw (default), deflate or none, which is the fastest\n"
        "  --device DEVICE     gamut: monitor (default) or printer\n"
        "  --quiet             no summary line\n"
        "  --help              this text; orlo COMMAND --help tells about one command\n"
        "  --version           the version\n"
        "\n"
        "orlo displays lists the displays, orlo gamma shows and changes their ramps; each has its --help\n"
        "orlo calibration save|verify|install [FILE] keeps the ramps of the displays; orlo calibration --help tells more\n";
    return text;
}

std::string CommandHelp(Operation operation) {
    const std::string name(OperationName(operation));
    std::string text = "Usage: orlo " + name + " INPUT OUTPUT [--monitor PROFILE] [--printer PROFILE] [OPTIONS]\n\n";
    text += About(operation);
    text += "\n";
    text += kOptions;
    if (operation == Operation::Gamut) {
        text += "  --device DEVICE     monitor (default) or printer\n";
    } else if (!ReadsDeviceValues(operation)) {
        text += "  --depth 8|16        bits of a sample of OUTPUT. Default: those of INPUT; a JPEG file always has 8\n";
    }
    text +=
        "  --compression KIND  of a TIFF OUTPUT: lzw (default), deflate or none, which is the fastest\n"
        "  --quiet             no summary line\n"
        "  --help              this text\n";
    return text;
}

std::string SettingsHelp() {
    std::string text =
        "Usage: orlo settings list [--json]\n"
        "       orlo settings get NAME [--json]\n"
        "       orlo settings set NAME VALUE [NAME VALUE ...]\n"
        "\n"
        "Shows and changes the settings that all hosts of this user on this machine share. Every open session takes a change up at once.\n"
        "Of several changes none is stored unless all are right.\n"
        "\n";
    for (const SettingName& setting : SettingNames()) {
        std::string name = setting.name;
        name.resize(20, ' ');
        text += "  " + name + setting.about + "\n";
    }
    return text;
}

std::string WatchHelp() {
    return "Usage: orlo watch [--json]\n"
           "\n"
           "Opens a matching session and prints a line for each changed setting and each rebuild, until it is interrupted.\n"
           "\n"
           "  --json   each line is a JSON object\n";
}

std::string CalibrationHelp() {
    return "Usage: orlo calibration save|verify|install [FILE]\n"
           "\n"
           "  save       writes the ramps that the displays have now, with each display's depth and place, as a calibration document\n"
           "  verify     tells whether a document is whole, and whether the displays are those that it was made for\n"
           "  install    loads a document's ramps into the displays that are connected\n"
           "\n"
           "Without FILE it is the document that hosts load when they start: \"Orlo Monitor Calibration\" in the user's preferences folder.\n"
           "install then gives every display its system ramp first.\n";
}

std::string DisplaysHelp() {
    return "Usage: orlo displays [--json]\n"
           "\n"
           "Lists the active displays, the main one first: number, identifier, size and place, depth, and the entries of the gamma ramp.\n";
}

std::string GammaHelp() {
    return "Usage: orlo gamma show|plot|save|load|linear|reset [FILE] [--display NUMBER] [--json]\n"
           "\n"
           "  show          prints the ramp that the display has now: red, green and blue, 0 to 65535 a line\n"
           "  plot          draws it in the terminal\n"
           "  plot FILE     draws it into a PNG file\n"
           "  save FILE     writes what show prints\n"
           "  load FILE     gives the display such a ramp, of 2 to 256 lines\n"
           "  linear        gives the display a straight ramp\n"
           "  reset         gives every display the ramp of its profile, or a straight one\n"
           "\n"
           "  --display N   a number that orlo displays shows. Default: 1, the main display\n"
           "  --json        show: the ramp as a JSON object of three lists\n";
}
