#include "images/ImageReading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "images/Complaint.h"

namespace {

constexpr const char* kUsableImage = "an image of a kind that libvips loads is needed, such as PNG, TIFF or JPEG";

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

/// format   nothing: of a kind that libvips finds a loader for
ImageHold Decode(VipsSource* source, std::optional<ImageFormat> format, VipsAccess access, int page) {
    VipsImage* image = nullptr;
    // A short or damaged file is an error; a harmless oddity, such as an unknown tag, is not.
    constexpr VipsFailOn kFailOn = VIPS_FAIL_ON_ERROR;
    if (!format) return ImageHold(vips_image_new_from_source(source, "", "access", access, "fail_on", kFailOn, nullptr));
    switch (*format) {
        case ImageFormat::Png:
            vips_pngload_source(source, &image, "access", access, "fail_on", kFailOn, nullptr);
            break;
        case ImageFormat::Tiff:
            vips_tiffload_source(source, &image, "access", access, "fail_on", kFailOn, "page", page - 1, nullptr);
            break;
        case ImageFormat::Jpeg:
            vips_jpegload_source(source, &image, "access", access, "fail_on", kFailOn, nullptr);
            break;
        default:
            break;  // told by no first bytes here
    }
    return ImageHold(image);
}

/// Throws Complaint when a page is asked for that a readable file does not have.
void RequirePage(VipsSource* source, std::optional<ImageFormat> format, const std::string& path, int page) {
    const ImageHold first = Decode(source, format, VIPS_ACCESS_SEQUENTIAL, 1);
    const int pages = first ? vips_image_get_n_pages(first.get()) : page;
    if (page > pages)
        throw Complaint{path, "it has " + std::to_string(pages) + (pages == 1 ? " page" : " pages"), "name a page that is there", Exit::NotThere};
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
    throw Complaint{path, "the image is damaged or cut short, or its form is not supported" + (reason.empty() ? "" : " (" + reason + ")"),
                    "a whole image of 8 or 16 bits is needed"};
}

int PagesOf(VipsImage* image) {
    return vips_image_get_n_pages(image);
}

ImageHold OpenImage(const std::string& path, bool upright, int page) {
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
    ImageHold image = Decode(source.get(), format, upright ? VIPS_ACCESS_RANDOM : VIPS_ACCESS_SEQUENTIAL, page);
    if (page > 1 && (format != ImageFormat::Tiff || !image)) RequirePage(source.get(), format, path, page);
    if (!image) ComplainOfDamage(path);
    if (!upright) return image;

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
