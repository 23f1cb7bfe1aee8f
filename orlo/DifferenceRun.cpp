#include <filesystem>
#include <optional>

#include "images/Complaint.h"
#include "images/ImageDifference.h"
#include "images/ImageReading.h"
#include "images/ImageWriting.h"
#include "images/ProfileChoice.h"
#include "images/SourceColour.h"
#include "orlo/ImageModule.h"
#include "orlo/OutputFile.h"
#include "orlo/ProgressBar.h"

namespace {

/// A picture that is compared, with what its colours are taken by.
struct Compared {
    ImageHold image;
    SourceColour colour;
    RunPlan plan;

    ImageDifference::Side Side() const { return {image.get(), plan}; }
};

Compared Open(const std::string& path, const std::string& profile, int64_t mostPixels, ColorSyncProfileRef reference) {
    Compared compared;
    // As they are seen: two pictures may be turned by different tags.
    compared.image = OpenImage(path, true, 1, {mostPixels, false});
    compared.plan.input = ExamineImage(compared.image.get(), path);
    compared.colour = FindSourceColour(compared.image.get(), compared.plan.input, path, profile, reference);
    compared.plan.toReference = compared.colour.toReference.Get();
    compared.plan.sourceChannels = compared.colour.channels;
    return compared;
}

std::string SizeOf(VipsImage* image) {
    return std::to_string(vips_image_get_width(image)) + " x " + std::to_string(vips_image_get_height(image));
}

ImageFormat FormatOfMap(const DifferenceRequest& request) {
    const std::optional<ImageFormat> format = FormatOfName(request.map);
    if (!format || !TraitsOf(*format).isExact || TraitsOf(*format).mostBits < 16) {
        throw Complaint{request.map, "this kind of file does not hold 16 bits as they are", "use .png or .tif"};
    }
    for (const std::string& input : {request.picture, request.standard}) {
        std::error_code none;
        if (std::filesystem::equivalent(input, request.map, none)) throw Complaint{request.map, "it would replace its input", "name another file"};
    }
    return *format;
}

/// Pulls every pixel, into a file where one is asked for.
void Compare(const ImageDifference& difference, const DifferenceRequest& request) {
    bool isPulled = false;
    const ProgressBar bar(difference.Map());
    if (request.map.empty()) {
        double mean = 0;
        isPulled = vips_avg(difference.Map(), &mean, nullptr) == 0;
    } else {
        OutputFile file(request.map);
        isPulled = WriteImage(difference.Map(), FormatOfMap(request), TiffCompression::Lzw, file.Descriptor());
        if (isPulled) file.Commit();
    }
    if (difference.OperationFailed()) throw Complaint{request.picture, "its colours cannot be converted", "other profiles are needed"};
    if (!isPulled) ComplainOfDamage(request.picture + " or " + request.standard);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void OrloCompareImages(const DifferenceRequest* request, DifferenceReport* report) {
    StartVips();
    if (!request->map.empty()) FormatOfMap(*request);
    const Owned<ColorSyncProfileRef> reference = OpenReferenceProfile();
    const Compared picture = Open(request->picture, request->pictureProfile, request->mostPixels, reference.Get());
    const Compared standard = Open(request->standard, request->standardProfile, request->mostPixels, reference.Get());
    report->width = vips_image_get_width(picture.image.get());
    report->height = vips_image_get_height(picture.image.get());
    if (report->width != vips_image_get_width(standard.image.get()) || report->height != vips_image_get_height(standard.image.get())) {
        throw Complaint{request->picture, "it has " + SizeOf(picture.image.get()) + " pixels, and the other " + SizeOf(standard.image.get()),
                        "pictures of the same size are needed"};
    }
    const ImageDifference difference(picture.Side(), standard.Side(), PrimariesOf(reference.Get()), request->weights, request->mapped);
    Compare(difference, *request);
    report->figures = difference.Figures();
}
