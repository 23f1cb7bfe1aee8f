#include "images/ImageWriting.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include "images/Texts.h"

namespace {

VipsForeignTiffCompression VipsCompression(TiffCompression compression) {
    switch (compression) {
        case TiffCompression::Lzw:
            return VIPS_FOREIGN_TIFF_COMPRESSION_LZW;
        case TiffCompression::Deflate:
            return VIPS_FOREIGN_TIFF_COMPRESSION_DEFLATE;
        case TiffCompression::None:
            break;
    }
    return VIPS_FOREIGN_TIFF_COMPRESSION_NONE;
}

constexpr int kLongest = 10'000'000;  // what libvips works on
constexpr std::array<FormatTraits, 8> kFormats = {{
    {ImageFormat::Png, "png", {".png", ".png"}, 16, false, true, true, true, false, kLongest},
    {ImageFormat::Tiff, "tiff", {".tif", ".tiff"}, 16, true, true, true, true, true, kLongest},
    {ImageFormat::Jpeg, "jpeg", {".jpg", ".jpeg"}, 8, true, false, true, false, true, 65500},
    {ImageFormat::WebP, "webp", {".webp", ".webp"}, 8, false, true, true, true, false, 16383},
    {ImageFormat::Avif, "avif", {".avif", ".avif"}, 8, false, true, true, false, false, 16384},
    {ImageFormat::Heif, "heif", {".heic", ".heif"}, 8, false, true, true, false, false, 16384},
    {ImageFormat::JpegXl, "jxl", {".jxl", ".jxl"}, 16, false, true, true, true, false, kLongest},
    {ImageFormat::Ppm, "ppm", {".ppm", ".pgm"}, 16, false, false, false, true, false, kLongest},
}};

}  // namespace

const FormatTraits& TraitsOf(ImageFormat format) {
    return *std::ranges::find(kFormats, format, &FormatTraits::format);
}

std::optional<ImageFormat> FormatOfName(const std::string& path) {
    const std::string suffix = SmallLetters(std::filesystem::path(path).extension().string());
    for (const FormatTraits& traits : kFormats) {
        if (suffix == traits.suffixes[0] || suffix == traits.suffixes[1]) return traits.format;
    }
    return std::nullopt;
}

std::optional<ImageFormat> FormatCalled(const std::string& name) {
    for (const FormatTraits& traits : kFormats) {
        if (name == traits.name) return traits.format;
    }
    return std::nullopt;
}

bool WriteImage(VipsImage* image, ImageFormat format, TiffCompression compression, int descriptor) {
    const VipsHold<VipsTarget> target(vips_target_new_to_descriptor(descriptor));
    if (!target) return false;
    switch (format) {
        case ImageFormat::Png:
            return vips_pngsave_target(image, target.get(), "filter", VIPS_FOREIGN_PNG_FILTER_ALL, nullptr) == 0;
        case ImageFormat::Tiff: {
            // An ordinary TIFF file ends at 4 GiB; compression can make the pixels larger, too.
            const bool large = VIPS_IMAGE_SIZEOF_IMAGE(image) > (guint64{3} << 30);
            return vips_tiffsave_target(image, target.get(), "compression", VipsCompression(compression), "predictor",
                                        VIPS_FOREIGN_TIFF_PREDICTOR_HORIZONTAL, "bigtiff", static_cast<gboolean>(large), nullptr) == 0;
        }
        case ImageFormat::Jpeg:
            // Colour is the point of the file: no coarser chroma.
            return vips_jpegsave_target(image, target.get(), "Q", 95, "subsample_mode", VIPS_FOREIGN_SUBSAMPLE_OFF, nullptr) == 0;
        case ImageFormat::WebP:
            return vips_webpsave_target(image, target.get(), "lossless", TRUE, nullptr) == 0;
        case ImageFormat::Avif:
        case ImageFormat::Heif:
            return vips_heifsave_target(image, target.get(), "Q", 95, "subsample_mode", VIPS_FOREIGN_SUBSAMPLE_OFF, "compression",
                                        format == ImageFormat::Avif ? VIPS_FOREIGN_HEIF_COMPRESSION_AV1 : VIPS_FOREIGN_HEIF_COMPRESSION_HEVC,
                                        nullptr) == 0;
        case ImageFormat::JpegXl:
            return vips_jxlsave_target(image, target.get(), "lossless", TRUE, nullptr) == 0;
        case ImageFormat::Ppm:
            return vips_ppmsave_target(image, target.get(), nullptr) == 0;
    }
    return false;
}
