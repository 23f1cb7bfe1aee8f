#include "images/Conversion.h"

#include <memory>
#include <new>

#include "images/Complaint.h"
#include "platform/Owned.h"

struct Conversion::Worker {
    Worker(VipsImage* input, const RunPlan& plan)
        : region(vips_region_new(input)), row(plan, static_cast<std::size_t>(vips_image_get_width(input))) {}

    VipsHold<VipsRegion> region;
    RowConverter row;
};

namespace {

VipsInterpretation InterpretationOf(const ImageShape& shape) {
    switch (shape.colours) {
        case 1:
            return shape.depth == 8 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_GREY16;
        case 3:
            return shape.depth == 8 ? VIPS_INTERPRETATION_sRGB : VIPS_INTERPRETATION_RGB16;
        default:
            return VIPS_INTERPRETATION_CMYK;
    }
}

/// Drops what described the old pixels: thumbnails, the page count, and the camera's claim that they are sRGB.
void CorrectMetadata(VipsImage* image, ColorSyncProfileRef profile) {
    for (const char* name : {VIPS_META_ICC_NAME, "jpeg-thumbnail-data", VIPS_META_PHOTOSHOP_NAME, VIPS_META_N_PAGES, VIPS_META_PAGE_HEIGHT}) {
        vips_image_remove(image, name);
    }
    if (vips_image_get_typeof(image, "exif-ifd2-ColorSpace") != 0) vips_image_set_string(image, "exif-ifd2-ColorSpace", "65535");
    if (!profile) return;
    const Owned<CFDataRef> data(ColorSyncProfileCopyData(profile, nullptr));
    if (data)
        vips_image_set_blob_copy(image, VIPS_META_ICC_NAME, CFDataGetBytePtr(data.Get()), static_cast<std::size_t>(CFDataGetLength(data.Get())));
}

}  // namespace

Conversion::Conversion(VipsImage* input, const RunPlan& plan, ColorSyncProfileRef outputProfile) : plan_(plan), image_(vips_image_new()) {
    VipsImage* out = image_.get();
    if (vips_image_pipelinev(out, VIPS_DEMAND_STYLE_THINSTRIP, input, nullptr) != 0) {
        throw Complaint{"image", "it cannot be converted", "more memory is needed", Exit::Failed};
    }
    out->Bands = plan.output.Samples();
    out->BandFmt = plan.output.depth == 8 ? VIPS_FORMAT_UCHAR : VIPS_FORMAT_USHORT;
    out->Type = InterpretationOf(plan.output);
    CorrectMetadata(out, outputProfile);
    if (vips_image_generate(out, StartWorker, ConvertRegion, StopWorker, input, this) != 0) {
        throw Complaint{"image", "it cannot be converted", "more memory is needed", Exit::Failed};
    }
}

void* Conversion::StartWorker(VipsImage*, void* input, void* conversion) {
    try {
        return new Worker(static_cast<VipsImage*>(input), static_cast<Conversion*>(conversion)->plan_);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

int Conversion::ConvertRegion(VipsRegion* out, void* worker, void* /*input*/, void* conversion, gboolean* /*stop*/) {
    auto* self = static_cast<Conversion*>(conversion);
    auto* state = static_cast<Worker*>(worker);
    const VipsRect area = out->valid;
    if (vips_region_prepare(state->region.get(), &area) != 0) {
        self->inputFailed_ = true;
        return -1;
    }
    for (int y = area.top; y < area.top + area.height; y++) {
        const void* from = VIPS_REGION_ADDR(state->region.get(), area.left, y);
        if (!state->row.Convert(from, VIPS_REGION_ADDR(out, area.left, y), static_cast<std::size_t>(area.width))) {
            self->operationFailed_ = true;
            return -1;
        }
    }
    return 0;
}

int Conversion::StopWorker(void* worker, void*, void*) {
    delete static_cast<Worker*>(worker);
    return 0;
}
