#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <optional>
#include <string>

#include "images/Complaint.h"
#include "images/Conversion.h"
#include "images/CurrentMatching.h"
#include "images/FourCharCodes.h"
#include "images/ImageReading.h"
#include "images/ImageWriting.h"
#include "images/Metadata.h"
#include "images/ProfileChoice.h"
#include "images/Route.h"
#include "images/SourceColour.h"
#include "images/Texts.h"
#include "orlo/ImageModule.h"
#include "orlo/OutputFile.h"
#include "orlo/ProgressBar.h"

namespace {

/// Where the colours end up, and in which form.
struct OutputForm {
    ImageFormat format;
    ImageShape shape;
    ColorSyncProfileRef profile;  // borrowed; null: none is embedded
};

/// "PNG"
std::string NameInMessages(const FormatTraits& traits) {
    return CapitalLetters(traits.name);
}

/// Everything that can be said against the output from its name alone.
ImageFormat CheckOutputName(const ImageRequest& request) {
    const std::optional<ImageFormat> format = request.format.empty() ? FormatOfName(request.output) : FormatCalled(request.format);
    if (!format) {
        throw Complaint{request.output, "its suffix names no known kind of image",
                        "use .png, .tif, .jpg, .webp, .avif, .heic, .jxl or .ppm, or name the kind with --format"};
    }
    const FormatTraits& traits = TraitsOf(*format);
    const std::string name = NameInMessages(traits);
    const bool isMask = request.operation == Operation::Gamut && request.gamutForm == GamutForm::Mask;
    if (isMask && !traits.isExact) throw Complaint{request.output, name + " would blur the mask", "use .png or .tif"};
    if (ReadsDeviceValues(request.operation) && (traits.mostBits < 16 || !traits.isExact)) {
        throw Complaint{request.output, name + " cannot hold the 16 bits of reference RGB", "use .png or .tif"};
    }
    if (request.depth == 16 && traits.mostBits < 16) throw Complaint{request.output, name + " has 8 bits", "use .png or .tif, or --depth 8"};
    if (request.depth == 16 && isMask) throw Complaint{"--depth", "a mask has 8 bits", "leave --depth out"};
    if (request.depth == 8 && ReadsDeviceValues(request.operation)) {
        throw Complaint{"--depth", "reference RGB is linear and needs 16 bits", "leave --depth out"};
    }
    if (request.compression && *format != ImageFormat::Tiff) throw Complaint{"--compression", "only TIFF files have it", "leave it out, or use .tif"};
    return *format;
}

OutputForm FormOfOutput(const ImageRequest& request, ImageFormat format, const ImageShape& input, ColorSyncProfileRef monitor,
                        ColorSyncProfileRef printer, ColorSyncProfileRef reference) {
    OutputForm form{format, {3, input.hasAlpha && TraitsOf(format).holdsAlpha, request.depth.value_or(input.depth)}, monitor};
    switch (request.operation) {
        case Operation::Match:
        case Operation::Proof:
            break;
        case Operation::Gamut:
            form.shape = {request.gamutForm == GamutForm::Overlay ? 3 : 1, false, request.gamutForm == GamutForm::Mask ? 8 : form.shape.depth};
            if (request.gamutForm != GamutForm::Overlay) form.profile = nullptr;
            break;
        case Operation::Predict:
        case Operation::PrinterPredict:
            form.shape.depth = 16;
            form.profile = reference;
            break;
        case Operation::PrinterMatch:
            form.profile = printer;
            if (GetProfileColourSpace(printer) == kColourSpaceCMYK) {
                if (!TraitsOf(format).holdsCMYK) {
                    throw Complaint{request.output, NameInMessages(TraitsOf(format)) + " cannot hold CMYK", "use .tif or .jpg"};
                }
                form.shape.colours = 4;
                form.shape.hasAlpha = false;
            }
            break;
    }
    form.shape.depth = std::min(form.shape.depth, TraitsOf(format).mostBits);
    return form;
}

GamutPlan PlanOfGamut(const ImageRequest& request, ColorSyncProfileRef reference, std::atomic<uint64_t>& marked) {
    GamutPlan plan;
    plan.printer = request.printerGamut;
    plan.form = request.gamutForm;
    if (!request.exactGamut) plan.tolerance = request.tolerance.value_or(request.printerGamut ? kPrinterTolerance : kMonitorTolerance);
    plan.primaries = PrimariesOf(reference);
    plan.marked = &marked;
    return plan;
}

std::string NameOfGamutPicture(const ImageRequest& request) {
    const std::string device = request.printerGamut ? "printer" : "monitor";
    switch (request.gamutForm) {
        case GamutForm::Mask:
            break;
        case GamutForm::Overlay:
            return "what is out of gamut of the " + device;
        case GamutForm::Difference:
            return "differences of what the " + device + " shows";
    }
    return "gamut mask of the " + device;
}

/// Device values go in as they are, so they must be of the device's own kind.
void CheckDeviceValues(const ImageRequest& request, const ImageShape& input, ColorSyncProfileRef printer) {
    const bool wantsCMYK = request.operation == Operation::PrinterPredict && GetProfileColourSpace(printer) == kColourSpaceCMYK;
    if (wantsCMYK && input.colours != 4) throw Complaint{request.input, "it holds no CMYK values", "an image of the printer's CMYK is needed"};
    if (!wantsCMYK && input.colours == 4) throw Complaint{request.input, "it holds CMYK values", "an image of the device's RGB is needed"};
}

/// "EXIF, XMP"
std::string LostCameraData(const CameraData& before, const CameraData& after) {
    std::string lost;
    const auto add = [&lost](const char* name) { lost += (lost.empty() ? "" : ", ") + std::string(name); };
    if (before.exif && !after.exif) add("EXIF");
    if (before.iptc && !after.iptc) add("IPTC");
    if (before.xmp && !after.xmp) add("XMP");
    return lost;
}

/// The printer as a session has it, whose user may have given it another white.
Owned<ColorSyncProfileRef> PrinterOf(const ImageRequest& request, const ChosenProfile& printer) {
    if (!request.conditions || !request.conditions->printerWhite) return Owned<ColorSyncProfileRef>::Retain(printer.profile.Get());
    Owned<ColorSyncMutableProfileRef> copy(ColorSyncProfileCreateMutableCopy(printer.profile.Get()));
    if (copy) SetMediaWhitePoint(copy.Get(), *request.conditions->printerWhite);
    return Owned<ColorSyncProfileRef>(copy.Detach());
}

/// takesDamaged   whether what there is of a damaged input is taken
void RunOnce(const ImageRequest& request, bool takesDamaged, ImageReport* report) {
    const ReadingLimits limits = {request.mostPixels, takesDamaged};
    const ImageFormat format = CheckOutputName(request);
    ChosenProfile monitor = ChooseMonitor(request.monitor);
    // A session shows what hosts show, and those take the profile as it is.
    if (!request.plainCurves && !request.conditions) RefineCurves(monitor);
    ChosenProfile printer = request.printer.empty() ? StandInPrinter() : ChoosePrinter(request.printer);
    if (request.conditions && request.conditions->intent == kRenderingIntent3) RequireLuminance(monitor);
    std::optional<ChosenProfile> proofer;
    if (!request.proofer.empty()) proofer = ChooseProofer(request.proofer);
    const Owned<ColorSyncProfileRef> reference = OpenReferenceProfile();

    // Other kinds have no place for the orientation that TIFF and JPEG keep in a tag.
    const bool upright = !TraitsOf(format).keepsOrientation;
    const ImageHold image = OpenImage(request.input, upright, request.page, limits);
    RunPlan plan;
    plan.operation = request.operation;
    std::atomic<uint64_t> marked = 0;
    if (request.operation == Operation::Gamut) plan.gamut = PlanOfGamut(request, reference.Get(), marked);
    plan.input = ExamineImage(image.get(), request.input);
    const OutputForm form = FormOfOutput(request, format, plan.input, monitor.profile.Get(), printer.profile.Get(), reference.Get());
    plan.output = form.shape;
    plan.flattenOntoWhite = plan.input.hasAlpha && !form.shape.hasAlpha && request.operation != Operation::Gamut;
    const FormatTraits& traits = TraitsOf(format);
    if (std::max(vips_image_get_width(image.get()), vips_image_get_height(image.get())) > traits.longestSide) {
        throw Complaint{request.output, NameInMessages(traits) + " ends at " + std::to_string(traits.longestSide) + " pixels a side",
                        "use .png or .tif"};
    }

    SourceColour source;
    std::string deviceName;
    if (ReadsDeviceValues(request.operation)) {
        CheckDeviceValues(request, plan.input, printer.profile.Get());
        deviceName = ProfileName(request.operation == Operation::Predict ? monitor.profile.Get() : printer.profile.Get());
    } else {
        source = FindSourceColour(image.get(), plan.input, request.input, request.inputProfile, reference.Get());
        plan.toReference = source.toReference.Get();
        plan.sourceChannels = source.channels;
    }

    // Viewing conditions, and curves as hosts read them, are the library's alone.
    const bool matchesInLibrary = request.conditions || request.plainCurves;
    const bool isOnRoute = !request.rendering.IsOfSessions();
    std::vector<Leg> route;
    if (isOnRoute) {
        const Owned<ColorSyncProfileRef> print = PrinterOf(request, printer);
        const ColorSyncProfileRef screen = matchesInLibrary ? reference.Get() : monitor.profile.Get();
        route = RouteThrough(
            {source.profile.Get(), proofer ? proofer->profile.Get() : nullptr, print.Get(), request.operation == Operation::Proof ? screen : nullptr},
            request.rendering);
        plan.route = &route;
        plan.routeEndsInReference = request.operation == Operation::Proof && matchesInLibrary;
    }

    // The printer's operations read no precomputed tables, so none are built for them.
    const bool printerOnly = request.operation == Operation::PrinterMatch || request.operation == Operation::PrinterPredict || request.printerGamut;
    // Nor are they exact enough to tell a colour from its prediction back.
    const bool readsTables =
        !printerOnly && !(request.operation == Operation::Gamut && plan.gamut.tolerance) && (!isOnRoute || plan.routeEndsInReference);
    const int quality = !readsTables ? 1 : request.quality.value_or(2);
    const CurrentMatching matching(monitor, printer, proofer, request.conditions ? &*request.conditions : nullptr, kQualities[quality]);
    // The engine has read them, and a signal would leave them behind.
    monitor.file.reset();
    printer.file.reset();
    OutputFile file(request.output);
    const Conversion conversion(image.get(), plan, form.profile);
    bool written = false;
    {
        const ProgressBar bar(conversion.Image());
        written = WriteImage(conversion.Image(), format, request.compression.value_or(TiffCompression::Lzw), file.Descriptor());
    }
    if (conversion.InputFailed()) ComplainOfDamage(request.input);
    if (conversion.OperationFailed()) throw Complaint{request.input, "its colours cannot be converted", "other profiles are needed"};
    if (!written) file.ComplainOfWriting();
    // libvips carries it between files of one kind, but for TIFF.
    const bool sameKind = format == FormatOfName(request.input) && format != ImageFormat::Tiff;
    const bool isWritable = format == ImageFormat::Png || format == ImageFormat::Tiff || format == ImageFormat::Jpeg || format == ImageFormat::WebP;
    const std::string reason =
        sameKind || !isWritable || request.operation == Operation::Gamut ? "" : CarryMetadata(request.input, file.TemporaryPath(), upright);
    const auto note = [report](const std::string& text) { report->note += (report->note.empty() ? "" : ", ") + text; };
    if (form.profile && !traits.holdsProfile) note(NameInMessages(traits) + " carries no profile");
    if (request.operation != Operation::Gamut && (!isWritable || !reason.empty())) {
        const std::string lost = LostCameraData(CameraDataOf(request.input, image.get()), CameraDataOf(file.TemporaryPath(), nullptr));
        if (!lost.empty()) note("camera data is not carried over (" + lost + ")");
    }
    file.Commit();

    report->width = vips_image_get_width(image.get());
    report->height = vips_image_get_height(image.get());
    report->depth = form.shape.depth;
    report->from = plan.toReference ? source.profileName : deviceName;
    report->to = request.operation == Operation::Gamut ? NameOfGamutPicture(request) : ProfileName(form.profile);
    report->pages = PagesOf(image.get());
    report->marked = static_cast<double>(marked) / (static_cast<double>(report->width) * report->height);
}

/// A damaged input is the user's only copy of what is left of it.
void RequireOtherOutput(const ImageRequest& request) {
    std::error_code none;
    if (std::filesystem::equivalent(request.input, request.output, none)) {
        throw Complaint{request.output, "what is left of a damaged image never replaces it", "name another file for the output"};
    }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void OrloRunImage(const ImageRequest* request, ImageReport* report) {
    StartVips();
    try {
        RunOnce(*request, false, report);
    } catch (const DamageComplaint& complaint) {
        if (!request->salvage) throw;
        RequireOtherOutput(*request);
        vips_error_clear();
        RunOnce(*request, true, report);
        report->note += (report->note.empty() ? "" : ", ") + std::string("salvaged: ") + complaint.wrong;
    }
}
