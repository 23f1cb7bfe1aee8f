#include "images/ImageReading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "images/Complaint.h"
#include "images/FileContents.h"

namespace {

constexpr const char* kUsableImage = "an image of a kind that libvips loads is needed, such as PNG, TIFF or JPEG";

struct ClassRelease {
    void operator()(GObjectClass* of) const { g_type_class_unref(of); }
};

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    int Number() const { return number_; }

private:
    int number_;
};

std::optional<ImageFormat> FormatOfContents(int descriptor) {
    std::array<char, 8> start{};
    const ssize_t count = pread(descriptor, start.data(), start.size(), 0);
    const std::string_view bytes(start.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    using namespace std::literals;
    if (bytes.starts_with("\x89PNG\r\n\x1a\n"sv)) return ImageFormat::Png;
    if (bytes.starts_with("\xff\xd8\xff"sv)) return ImageFormat::Jpeg;
    // The second word tells ordinary TIFF files from the large kind.
    for (const std::string_view mark : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv}) {
        if (bytes.starts_with(mark)) return ImageFormat::Tiff;
    }
    return std::nullopt;
}

/// Whether what libvips loads the source with can begin at a page.
bool TakesPage(VipsSource* source) {
    const char* const loader = vips_foreign_find_load_source(source);
    const GType type = loader ? g_type_from_name(loader) : 0;
    if (type == 0) return false;
    const std::unique_ptr<GObjectClass, ClassRelease> of(static_cast<GObjectClass*>(g_type_class_ref(type)));
    return g_object_class_find_property(of.get(), "page") != nullptr;
}

/// format   nothing: of a kind that libvips finds a loader for
ImageHold Decode(VipsSource* source, std::optional<ImageFormat> format, VipsAccess access, int page, bool takesDamaged) {
    VipsImage* image = nullptr;
    // A short or damaged file is an error; a harmless oddity, such as an unknown tag, is not.
    const VipsFailOn failOn = takesDamaged ? VIPS_FAIL_ON_NONE : VIPS_FAIL_ON_ERROR;
    if (!format) {
        if (page == 1 || !TakesPage(source)) return ImageHold(vips_image_new_from_source(source, "", "access", access, "fail_on", failOn, nullptr));
        return ImageHold(vips_image_new_from_source(source, "", "access", access, "fail_on", failOn, "page", page - 1, nullptr));
    }
    switch (*format) {
        case ImageFormat::Png:
            vips_pngload_source(source, &image, "access", access, "fail_on", failOn, nullptr);
            break;
        case ImageFormat::Tiff:
            vips_tiffload_source(source, &image, "access", access, "fail_on", failOn, "page", page - 1, nullptr);
            break;
        case ImageFormat::Jpeg:
            vips_jpegload_source(source, &image, "access", access, "fail_on", failOn, nullptr);
            break;
        default:
            break;  // told by no first bytes here
    }
    return ImageHold(image);
}

/// Throws Complaint when a page is asked for that a readable file does not have, or that its loader does not begin at.
void RequirePage(VipsSource* source, std::optional<ImageFormat> format, const std::string& path, int page) {
    const ImageHold first = Decode(source, format, VIPS_ACCESS_SEQUENTIAL, 1, false);
    const int pages = first ? vips_image_get_n_pages(first.get()) : page;
    if (page > pages)
        throw Complaint{path, "it has " + std::to_string(pages) + (pages == 1 ? " page" : " pages"), "name a page that is there", Exit::NotThere};
    if (format != ImageFormat::Tiff && !TakesPage(source))
        throw Complaint{path, "of this kind of file only the first page is read", "leave --page out"};
}

void RequireSize(VipsImage* image, const std::string& path, int64_t mostPixels) {
    const int64_t width = vips_image_get_width(image), height = vips_image_get_height(image);
    if (width * height <= mostPixels) return;
    throw Complaint{
        path, "it has " + std::to_string(width) + " x " + std::to_string(height) + " pixels, and " + std::to_string(mostPixels) + " are the most",
        "add --max-pixels " + std::to_string(width * height) + " if it is what you expect"};
}

}  // namespace

void StartVips() {
    if (vips_init("orlo") != 0) throw Complaint{"libvips", "it cannot be started", "install it again", Exit::Failed};
    // It takes nearly everything for an image.
    vips_operation_block_set("VipsForeignLoadMagick", TRUE);
    // What libvips has to say about a file is said in one line here.
    g_log_set_handler(
        "VIPS", static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_INFO), [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {},
        nullptr);
}

void ComplainOfDamage(const std::string& path) {
    // The first line says what went wrong first.
    std::string reason = vips_error_buffer();
    reason = reason.substr(0, reason.find('\n'));
    throw DamageComplaint{{path, "the image is damaged or cut short, or its form is not supported" + (reason.empty() ? "" : " (" + reason + ")"),
                           "a whole image of 8 or 16 bits is needed"}};
}

int PagesOf(VipsImage* image) {
    return vips_image_get_n_pages(image);
}

ImageHold OpenImage(const std::string& path, bool upright, int page, const ReadingLimits& limits) {
    // Without waiting for the other end of a pipe, which is refused.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.Number() < 0) {
        if (errno == ENOENT) throw Complaint{path, "there is no such file", kUsableImage, Exit::NotThere};
        throw Complaint{path, std::string("the file cannot be read (") + std::strerror(errno) + ")", "a readable image file is needed", Exit::Failed};
    }
    struct stat status {};
    if (fstat(file.Number(), &status) != 0 || !S_ISREG(status.st_mode)) throw Complaint{path, "this is not a file of its own", kUsableImage};
    if (status.st_size == 0) throw Complaint{path, "the file is empty", kUsableImage};
    const std::optional<ImageFormat> format = FormatOfContents(file.Number());
    const VipsHold<VipsSource> source(vips_source_new_from_descriptor(file.Number()));
    if (!source) ComplainOfDamage(path);
    if (!format && !vips_foreign_find_load_source(source.get())) {
        vips_error_clear();
        throw Complaint{path, "this is not an image of a known kind", kUsableImage};
    }
    CheckPortableMap(path);
    ImageHold image = Decode(source.get(), format, VIPS_ACCESS_SEQUENTIAL, page, limits.takesDamaged);
    if (page > 1) RequirePage(source.get(), format, path, page);
    if (!image) ComplainOfDamage(path);
    RequireSize(image.get(), path, limits.mostPixels);
    // libvips counts what libjpeg has to say about the pixels, and goes on.
    const auto damage = format == ImageFormat::Jpeg && !limits.takesDamaged ? DamageOfJpeg(path) : std::nullopt;
    if (damage) throw DamageComplaint{{path, *damage, "a whole image is needed, or --salvage for what there is"}};
    if (!upright || vips_image_get_orientation(image.get()) < 2) return image;

    image = Decode(source.get(), format, VIPS_ACCESS_RANDOM, page, limits.takesDamaged);
    if (!image) ComplainOfDamage(path);
    VipsImage* turned = nullptr;
    if (vips_autorot(image.get(), &turned, nullptr) != 0) ComplainOfDamage(path);
    return ImageHold(turned);
}

ImageShape ExamineImage(VipsImage* image, const std::string& path) {
    ImageShape shape;
    switch (vips_image_get_format(image)) {
        case VIPS_FORMAT_UCHAR:
            shape.depth = 8;
            break;
        case VIPS_FORMAT_USHORT:
            shape.depth = 16;
            break;
        default:
            throw Complaint{path, "its samples are neither 8 nor 16 bits wide", "save it with 8 or 16 bits"};
    }
    switch (vips_image_get_interpretation(image)) {
        case VIPS_INTERPRETATION_B_W:
        case VIPS_INTERPRETATION_GREY16:
            shape.colours = 1;
            break;
        case VIPS_INTERPRETATION_sRGB:
        case VIPS_INTERPRETATION_RGB:
        case VIPS_INTERPRETATION_RGB16:
            shape.colours = 3;
            break;
        case VIPS_INTERPRETATION_CMYK:
            shape.colours = 4;
            break;
        default:
            throw Complaint{path, "it is neither grey nor RGB nor CMYK", "save it as one of these"};
    }
    const int samples = vips_image_get_bands(image);
    shape.hasAlpha = samples == shape.colours + 1;
    if (samples != shape.Samples()) {
        throw Complaint{path, "it has " + std::to_string(samples) + " channels", "grey, RGB or CMYK with at most one alpha channel is needed"};
    }
    return shape;
}
