#include "images/Metadata.h"

#include <algorithm>
#include <array>
#include <exiv2/exiv2.hpp>
#include <string_view>

namespace {

/// Of the tags that TIFF files keep beside the pixels' layout, those that tell about the picture.
bool TellsAboutPicture(const Exiv2::Exifdatum& datum) {
    constexpr std::array<std::string_view, 10> kTags = {"ImageDescription", "Make",         "Model",     "Orientation", "Software",
                                                        "DateTime",         "HostComputer", "Copyright", "Artist",      "Rating"};
    const std::string group = datum.groupName();
    if (group == "Image") return std::ranges::find(kTags, datum.tagName()) != kTags.end();
    return group != "Thumbnail" && !group.starts_with("Image") && !group.starts_with("SubImage") && !group.starts_with("SubThumb");
}

}  // namespace

std::string CarryMetadata(const std::string& from, const std::string& to, bool upright) try {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    const auto source = Exiv2::ImageFactory::open(from);
    source->readMetadata();
    Exiv2::ExifData exif;
    for (const Exiv2::Exifdatum& datum : source->exifData()) {
        if (TellsAboutPicture(datum)) exif.add(datum);
    }
    if (exif.empty() && source->iptcData().empty() && source->xmpData().empty()) return {};

    const auto target = Exiv2::ImageFactory::open(to);
    target->readMetadata();
    constexpr const char* kOrientation = "Exif.Image.Orientation";
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
