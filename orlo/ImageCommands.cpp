#include "orlo/ImageCommands.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "images/Complaint.h"
#include "images/Texts.h"
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

/// What the user asks for on the command line beside the request itself.
struct Asked {
    ImageRequest request;
    bool session = false;
    std::vector<std::string> files;  // inputs, and without a folder for outputs the output
    std::string outputFolder;
    bool recursive = false;
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
        path = PathOfStored(place, stored, command);
        taken.emplace_back(place);
    };
    // A session has a printer, whose paper its conditions may ask for.
    const bool needsPrinter = asked.session || UsesPrinter(request);
    if (asked.session || request.monitor.empty() || (needsPrinter && request.printer.empty())) {
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

constexpr std::array<const char*, 4> kIntentWords = {"absolute", "relative", "perceptual", "saturation"};

bool TakesRendering(Operation operation) {
    return operation == Operation::PrinterMatch || operation == Operation::Proof;
}

void CheckRendering(const Rendering& rendering) {
    if (rendering.compensatesBlack && rendering.UsedIntent() == Intent::Absolute) {
        throw Complaint{"--black-point-compensation", "the intent absolute keeps black as it is", "add --intent relative, perceptual or saturation"};
    }
    if (rendering.showsInkAsBlack && !rendering.showsPaperAsWhite) {
        throw Complaint{"--ink-black", "with the paper simulated the ink is, too", "add --paper white"};
    }
}

/// "intent perceptual, black point compensation, paper white, "; empty for what sessions show.
std::string RenderingText(const Rendering& rendering) {
    if (rendering.IsOfSessions()) return {};
    std::string text = std::string("intent ") + kIntentWords[static_cast<std::size_t>(rendering.UsedIntent())] + ", ";
    if (rendering.compensatesBlack) text += "black point compensation, ";
    if (rendering.showsPaperAsWhite) text += "paper white, ";
    if (rendering.showsInkAsBlack) text += "ink black, ";
    return text;
}

Json JsonOf(const Rendering& rendering, Operation operation) {
    Json json = {{"intent", kIntentWords[static_cast<std::size_t>(rendering.UsedIntent())]}, {"blackPointCompensation", rendering.compensatesBlack}};
    if (operation == Operation::Proof) {
        json["paper"] = rendering.showsPaperAsWhite ? "white" : "simulated";
        json["inkBlack"] = rendering.showsInkAsBlack ? "black" : "simulated";
    }
    return json;
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

/// What is told of one picture: as JSON, and in a line.
struct Told {
    Json json;
    std::string line;
};

Told RunOne(const ImageRequest& request, const std::string& command, const std::vector<std::string>& taken) {
    const auto start = std::chrono::steady_clock::now();
    const ImageReport report = RunImage(request);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::array<char, 160> figures{};
    std::snprintf(figures.data(), figures.size(), ": %d x %d pixels, %d bits, ", report.width, report.height, report.depth);
    std::string line = command + ": " + request.input + " -> " + request.output + figures.data() + report.from + " to " + report.to + ", " +
                       StoredText(taken) + RenderingText(request.rendering) + ConditionsText(request.conditions);
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
    if (TakesRendering(request.operation)) told["rendering"] = JsonOf(request.rendering, request.operation);
    if (request.operation == Operation::Gamut) told["marked"] = report.marked;
    if (report.pages > 1) told["page"] = request.page, told["pages"] = report.pages;
    if (!report.note.empty()) told["note"] = report.note;
    return {told, line};
}

/// An input, and where its output goes.
struct Job {
    std::string input, output;
};

/// A file, whatever names and links lead to it.
using FileNumber = std::pair<dev_t, ino_t>;
using FileNumbers = std::set<FileNumber>;

std::optional<FileNumber> NumberOf(const std::filesystem::path& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return FileNumber{status.st_dev, status.st_ino};
}

void AddNumberOf(const std::filesystem::path& path, FileNumbers& numbers) {
    if (const auto number = NumberOf(path)) numbers.insert(*number);
}

/// What there is to do, and what no output may replace meanwhile.
struct Work {
    std::vector<Job> jobs;
    std::vector<std::pair<std::string, Complaint>> failures;  // inputs that give none, and why
    FileNumbers originals;
};

/// Whether a file of a folder is taken for a picture.
bool IsPicture(const std::filesystem::directory_entry& entry) {
    constexpr std::array<std::string_view, 14> kSuffixes = {".png",  ".tif",  ".tiff", ".jpg", ".jpeg", ".webp", ".avif",
                                                            ".heic", ".heif", ".jxl",  ".ppm", ".pgm",  ".gif",  ".jp2"};
    std::error_code none;
    return entry.is_regular_file(none) && std::ranges::find(kSuffixes, SmallLetters(entry.path().extension().string())) != kSuffixes.end();
}

/// The suffix of an output: by the kind that is asked for, or the input's.
std::string OutputSuffix(const ImageRequest& request, const std::filesystem::path& input) {
    if (request.format.empty()) return input.extension().string();
    return request.format == "jpeg" ? ".jpg" : request.format == "tiff" ? ".tif" : request.format == "heif" ? ".heic" : "." + request.format;
}

/// Where the folder for outputs lies in a folder of inputs; empty when it does not.
std::filesystem::path OutputsIn(const std::string& folder, const std::string& outputFolder) {
    std::error_code none;
    const std::filesystem::path way =
        std::filesystem::weakly_canonical(outputFolder, none).lexically_relative(std::filesystem::weakly_canonical(folder, none));
    return way.empty() || way == "." || *way.begin() == ".." ? std::filesystem::path() : folder / way;
}

bool LiesIn(const std::filesystem::path& file, const std::filesystem::path& folder) {
    return !folder.empty() && *file.lexically_relative(folder).begin() != "..";
}

/// The pictures in a folder, in order. Those in the folder for outputs are none of them, and yet `originals` like them: whoever put them there, they
/// are the user's.
std::vector<std::filesystem::path> PicturesIn(const std::string& folder, const Asked& asked, FileNumbers& originals) {
    const std::filesystem::path outputs = OutputsIn(folder, asked.outputFolder);
    std::vector<std::filesystem::path> pictures;
    const auto take = [&](const std::filesystem::directory_entry& entry) {
        if (!IsPicture(entry)) return;
        AddNumberOf(entry.path(), originals);
        if (!LiesIn(entry.path(), outputs)) pictures.push_back(entry.path());
    };
    std::error_code error;
    if (asked.recursive) {
        for (std::filesystem::recursive_directory_iterator at(folder, error), end; at != end; at.increment(error)) take(*at);
    } else {
        for (std::filesystem::directory_iterator at(folder, error), end; at != end; at.increment(error)) take(*at);
    }
    if (error) throw Complaint{folder, "the folder cannot be read (" + error.message() + ")", "name a readable folder", Exit::Failed};
    if (pictures.empty())
        throw Complaint{folder, "there is no picture in it", asked.recursive ? "name another folder" : "add --recursive, or name another folder",
                        Exit::NotThere};
    std::ranges::sort(pictures);
    return pictures;
}

Work WorkOf(const Asked& asked, const std::string& command) {
    const std::string how = "orlo " + command + " --help shows how";
    if (asked.outputFolder.empty()) {
        if (asked.recursive) throw Complaint{"--recursive", "no folder for the outputs is named", "add --output-dir FOLDER"};
        if (asked.files.size() < 2) throw Complaint{command, "OUTPUT is missing", how};
        if (asked.files.size() > 2)
            throw Complaint{asked.files[2], "it is one argument too many", "name a folder with --output-dir for several inputs"};
        return {{{asked.files[0], asked.files[1]}}, {}, {}};
    }
    const std::filesystem::path target = asked.outputFolder;
    Work work;
    const auto add = [&](const std::filesystem::path& input, std::filesystem::path name) {
        name.replace_extension(OutputSuffix(asked.request, input));
        work.jobs.push_back({input.string(), (target / name).string()});
    };
    for (const std::string& file : asked.files) {
        std::error_code none;
        if (!std::filesystem::is_directory(file, none)) {
            AddNumberOf(file, work.originals);
            add(file, std::filesystem::path(file).filename());
            continue;
        }
        try {
            for (const std::filesystem::path& picture : PicturesIn(file, asked, work.originals)) add(picture, picture.lexically_relative(file));
        } catch (const Complaint& complaint) {
            work.failures.emplace_back(file, complaint);
        }
    }
    if (work.jobs.empty()) throw work.failures.front().second;
    return work;
}

/// Throws Complaint when the output would take the place of an original or of another output.
void RequireOwnPlace(const Job& job, const FileNumbers& originals, const FileNumbers& written) {
    const std::optional<FileNumber> there = NumberOf(job.output);
    if (!there) return;
    if (there == NumberOf(job.input)) throw Complaint{job.output, "it would replace its input", "name another folder with --output-dir"};
    if (originals.contains(*there)) throw Complaint{job.output, "it would replace another input", "name another folder with --output-dir"};
    if (written.contains(*there)) throw Complaint{job.output, "another input was written there already", "give one of the two another name"};
}

void MakeFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error)
        throw Complaint{folder.string(), "the folder cannot be made (" + error.message() + ")", "name another with --output-dir", Exit::Failed};
}

/// Goes on after a picture that cannot be done, and tells at the end which those are.
void RunAll(ImageRequest request, const Work& work, const std::string& command, const std::vector<std::string>& taken, const Showing& showing) {
    Json results = Json::array(), failures = Json::array();
    std::string table;
    FileNumbers written;
    const auto fail = [&](const std::string& input, const Complaint& complaint) {
        failures.push_back({{"input", input}, {"about", complaint.about}, {"wrong", complaint.wrong}, {"right", complaint.right}});
        table += ComplaintLine(complaint) + "\n";
    };
    for (const auto& [input, complaint] : work.failures) fail(input, complaint);
    for (const Job& job : work.jobs) {
        try {
            RequireOwnPlace(job, work.originals, written);
            MakeFolder(std::filesystem::path(job.output).parent_path());
            request.input = job.input;
            request.output = job.output;
            const Told told = RunOne(request, command, taken);
            AddNumberOf(job.output, written);
            results.push_back(told.json);
            if (!showing.json) showing.Tell({}, told.line);
        } catch (const Complaint& complaint) {
            fail(job.input, complaint);
        }
    }
    if (showing.json) showing.Tell({{"results", results}, {"failures", failures}}, "");
    if (failures.empty()) return;
    std::fputs(table.c_str(), stderr);
    throw Complaint{
        command, std::to_string(failures.size()) + " of " + std::to_string(work.jobs.size() + work.failures.size()) + " pictures could not be done",
        "the lines above tell why", Exit::Failed};
}

void Run(Asked asked, const std::string& command, const Showing& showing) {
    CheckRendering(asked.request.rendering);
    if (asked.request.exactGamut && asked.request.tolerance) {
        throw Complaint{"--tolerance", "the library's own answer, for --exact, has none", "leave one of the two out"};
    }
    const Work work = WorkOf(asked, command);
    const std::vector<std::string> taken = TakeFromStore(asked, command);
    if (!asked.outputFolder.empty()) return RunAll(asked.request, work, command, taken, showing);
    asked.request.input = work.jobs.front().input;
    asked.request.output = work.jobs.front().output;
    const Told told = RunOne(asked.request, command, taken);
    showing.Tell(told.json, told.line);
}

void SetForm(ImageRequest& request, GamutForm form) {
    if (request.gamutForm != GamutForm::Mask && request.gamutForm != form) {
        throw Complaint{"--difference", "OUTPUT cannot be an overlay and a map of differences at once", "leave one of the two out"};
    }
    request.gamutForm = form;
}

Command ImageCommand(const About& row) {
    const auto asked = std::make_shared<Asked>();
    const std::shared_ptr<ImageRequest> request(asked, &asked->request);
    request->operation = row.operation;
    Command command{.name = row.name, .about = row.about, .details = row.details};
    command.arguments = {
        {"INPUT", "IMAGE", "a file of any kind that libvips loads; several, and folders, with --output-dir",
         [asked](const std::string& file) { asked->files.push_back(file); }, true, true},
        {"OUTPUT", "IMAGE", "the file to write; its suffix says which kind: .png, .tif, .jpg, .webp, .avif, .heic, .jxl or .ppm", {}},
        {"--output-dir", "FOLDER",
         "write the outputs of all inputs there, under their names and of their kinds, or those of --format; go on after a bad one",
         Into(asked->outputFolder)},
        {"--recursive", "", "with --output-dir: take the pictures of all folders in a folder, and keep its order", SwitchOn(asked->recursive)},
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
             [request](const std::string&) { SetForm(*request, GamutForm::Overlay); }});
        add({"--difference", "", "OUTPUT is a grey map of the differences: white is 25.5 or more, so that a level of 8 bits is 0.1",
             [request](const std::string&) { SetForm(*request, GamutForm::Difference); }});
    }
    if (TakesRendering(row.operation)) {
        add({"--intent", "absolute|relative|perceptual|saturation",
             "how the picture is brought to the printer, or to the proofer before it; absolute unless given, and what matching sessions show",
             [request](const std::string& value) {
                 request->rendering.given = static_cast<Intent>(std::ranges::find(kIntentWords, value) - kIntentWords.begin());
             }});
        add({"--black-point-compensation", "", "the picture's black becomes the printer's; not with the intent absolute",
             SwitchOn(request->rendering.compensatesBlack)});
    }
    if (row.operation == Operation::Proof) {
        add({"--paper", "simulated|white", "whether the paper's colour is seen, or shown as the monitor's white; simulated unless given",
             [request](const std::string& value) { request->rendering.showsPaperAsWhite = value == "white"; }});
        add({"--ink-black", "simulated|black", "with --paper white: whether the darkest ink is seen, or shown as the monitor's black",
             [request](const std::string& value) { request->rendering.showsInkAsBlack = value == "black"; }});
    }
    if (!ReadsDeviceValues(row.operation)) {
        add({"--input-profile", "PROFILE", "the profile that INPUT's colours are in, whatever it carries", Into(request->inputProfile)});
    }
    add({"--format", "png|tiff|jpeg|webp|avif|heif|jxl|ppm", "which kind of file OUTPUT is. Default: what its suffix says", Into(request->format)});
    add({"--page", "NUMBER", "which page of a TIFF, GIF or WebP file that has several; 1 unless given",
         [request](const std::string& value) { request->page = static_cast<int>(WholeFrom("--page", value, 1, 65535)); }});
    add({"--max-pixels", "NUMBER", "the most pixels of INPUT; 250000000 unless given, against small files that need much memory",
         [request](const std::string& value) { request->mostPixels = WholeFrom("--max-pixels", value, 1, 100'000'000'000'000); }});
    add({"--salvage", "", "take what there is of a damaged INPUT, into another file", SwitchOn(request->salvage)});
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
        " \"seconds\"; printer-match, proof: \"rendering\": {\"intent\", \"blackPointCompensation\", of a proof \"paper\", \"inkBlack\"};\n"
        " gamut: \"marked\": 0..1, the share of the pixels;\n"
        " \"page\" and \"pages\" of an input with several; \"note\": what could not be done beside the picture}\n"
        "with --output-dir {\"results\": [such, ...], \"failures\": [{\"input\", \"about\", \"wrong\", \"right\"}, ...]}";
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
