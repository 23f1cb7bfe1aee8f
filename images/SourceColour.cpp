#include "images/SourceColour.h"

#include "images/Complaint.h"
#include "images/FileContents.h"
#include "images/ProfileChoice.h"
#include "images/Transforms.h"

namespace {

struct BlobRelease {
    void operator()(VipsBlob* blob) const { vips_area_unref(VIPS_AREA(blob)); }
};

Owned<ColorSyncProfileRef> ProfileFromBytes(const void* bytes, std::size_t length) {
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, static_cast<const UInt8*>(bytes), static_cast<CFIndex>(length)));
    return Owned<ColorSyncProfileRef>(data ? ColorSyncProfileCreate(data.Get(), nullptr) : nullptr);
}

Owned<ColorSyncProfileRef> SRGBProfile() {
    VipsBlob* loaded = nullptr;
    if (vips_profile_load("srgb", &loaded, nullptr) != 0) return {};
    const std::unique_ptr<VipsBlob, BlobRelease> blob(loaded);
    std::size_t length = 0;
    const void* bytes = vips_blob_get(blob.get(), &length);
    return ProfileFromBytes(bytes, length);
}

}  // namespace

SourceColour FindSourceColour(VipsImage* image, const ImageShape& shape, const std::string& path, const std::string& inputProfile,
                              ColorSyncProfileRef reference) {
    SourceColour source;
    Owned<ColorSyncProfileRef> profile;
    const void* bytes = nullptr;
    std::size_t length = 0;
    if (!inputProfile.empty()) {
        profile = std::move(OpenProfile(inputProfile, "the profile of an image's colours is needed").profile);
        source.channels = ChannelsOfImages(profile.Get());
        source.profileName = ProfileName(profile.Get());
        if (source.channels != shape.colours && !(shape.colours == 1 && source.channels == 3)) {
            throw Complaint{inputProfile, "it (" + source.profileName + ") is not for images such as " + path,
                            "name a profile for this kind of image"};
        }
    } else if (vips_image_get_typeof(image, VIPS_META_ICC_NAME) != 0 && vips_image_get_blob(image, VIPS_META_ICC_NAME, &bytes, &length) == 0) {
        profile = ProfileFromBytes(bytes, length);
        if (!profile) throw Complaint{path, "its embedded profile is damaged", "remove the profile or embed a whole one"};
        source.channels = ChannelsOfImages(profile.Get());
        // A grey image may carry an RGB profile: its values then stand for equal red, green and blue.
        if (source.channels != shape.colours && !(shape.colours == 1 && source.channels == 3)) {
            throw Complaint{path, "its embedded profile (" + ProfileName(profile.Get()) + ") is not for this kind of image",
                            "remove the profile or embed one that fits"};
        }
        source.profileName = ProfileName(profile.Get());
    } else if (CarriesProfile(path)) {
        // libvips passes over one that it cannot read.
        throw Complaint{path, "its embedded profile is damaged, or not for this kind of image",
                        "embed a whole one that fits, or add --input-profile PROFILE"};
    } else if (shape.colours == 4) {
        throw Complaint{path, "a CMYK image without a profile can mean any colour", "add --input-profile PROFILE, with the one that it was made for"};
    } else {
        profile = SRGBProfile();
        source.channels = 3;
        source.profileName = "sRGB";
    }
    if (profile)
        source.toReference = TransformThrough({{profile.Get(), kColorSyncRenderingIntentRelative}, {reference, kColorSyncRenderingIntentRelative}});
    source.profile = std::move(profile);
    if (!source.toReference) {
        throw Complaint{path, "no colours can be converted through its profile (" + source.profileName + ")", "embed another profile"};
    }
    return source;
}
