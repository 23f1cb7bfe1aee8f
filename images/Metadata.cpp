#include "images/Metadata.h"

#include <algorithm>
#include <array>
#include <exiv2/exiv2.hpp>
#include <string_view>

namespace {

auto Read(const std::string& path) {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::enableBMFF();  // AVIF and HEIF
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    return image;
}

/// Of the tags that TIFF files keep beside the pixels' layout, those that tell about the picture.
bool TellsAboutPicture(const Exiv2::Exifdatum& datum) {
    constexpr std::array<std::string_view, 10> kTags = {"ImageDescription", "Make",         "Model",     "Orientation", "Software",
                                                        "DateTime",         "HostComputer", "Copyright", "Artist",      "Rating"};
    const std::string group = datum.groupName();
    if (group == "Image") return std::ranges::find(kTags, datum.tagName()) != kTags.end();
    return group != "Thumbnail" && !group.starts_with("Image") && !group.starts_with("SubImage") && !group.starts_with("SubThumb");
}

/// Of the source, as far as it tells about the picture.
Exiv2::ExifData PictureData(const Exiv2::ExifData& source) {
    Exiv2::ExifData exif;
    for (const Exiv2::Exifdatum& datum : source) {
        if (TellsAboutPicture(datum)) exif.add(datum);
    }
    return exif;
}

constexpr const char* kOrientation = "Exif.Image.Orientation";

/// Whether that is more than what every program writes that writes EXIF data at all.
bool TellsMore(const Exiv2::Exifdatum& datum) {
    constexpr std::array<std::string_view, 7> kUsual = {kOrientation,
                                                        "Exif.Photo.ExifVersion",
                                                        "Exif.Photo.ComponentsConfiguration",
                                                        "Exif.Photo.FlashpixVersion",
                                                        "Exif.Photo.ColorSpace",
                                                        "Exif.Photo.PixelXDimension",
                                                        "Exif.Photo.PixelYDimension"};
    return std::ranges::find(kUsual, datum.key()) == kUsual.end();
}

}  // namespace

std::string CarryMetadata(const std::string& from, const std::string& to, bool upright) try {
    const auto source = Read(from);
    Exiv2::ExifData exif = PictureData(source->exifData());
    if (exif.empty() && source->iptcData().empty() && source->xmpData().empty()) return {};

    const auto target = Exiv2::ImageFactory::open(to);
    target->readMetadata();
    if (upright && exif.findKey(Exiv2::ExifKey(kOrientation)) != exif.end()) exif[kOrientation] = std::uint16_t{1};
    constexpr const char* kColourSpace = "Exif.Photo.ColorSpace";
    if (exif.findKey(Exiv2::ExifKey(kColourSpace)) != exif.end()) exif[kColourSpace] = std::uint16_t{65535};
    for (const Exiv2::Exifdatum& datum : exif) target->exifData()[datum.key()].setValue(&datum.value());
    target->setIptcData(source->iptcData());
    target->setXmpData(source->xmpData());
    target->writeMetadata();
    return {};
} catch (const Exiv2::AnyError& error) {
    return error.what();
}

CameraData CameraDataOf(const std::string& path, VipsImage* image) try {
    const auto source = Read(path);
    const Exiv2::ExifData exif = PictureData(source->exifData());
    return {std::ranges::any_of(exif, TellsMore), !source->iptcData().empty(), !source->xmpData().empty()};
} catch (const Exiv2::AnyError&) {
    const auto has = [image](const char* field) { return image && vips_image_get_typeof(image, field) != 0; };
    return {has(VIPS_META_EXIF_NAME), has(VIPS_META_IPTC_NAME), has(VIPS_META_XMP_NAME)};
}
