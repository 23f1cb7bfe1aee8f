#include <algorithm>
#include <cmath>

#include "images/Complaint.h"
#include "images/ImageReading.h"
#include "images/ImageWriting.h"
#include "orlo/ImageModule.h"
#include "orlo/OutputFile.h"

namespace {

struct Colour {
    unsigned char red, green, blue;
};

/// A small picture of our own, top row first.
class Canvas {
public:
    Canvas(int width, int height)
        : width_(width), height_(height), bytes_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3, 255) {}

    void Set(int x, int y, Colour colour) {
        if (x < 0 || y < 0 || x >= width_ || y >= height_) return;
        unsigned char* const pixel = At(x, y);
        // Lines that meet darken each other, so that none hides another.
        pixel[0] = std::min(pixel[0], colour.red);
        pixel[1] = std::min(pixel[1], colour.green);
        pixel[2] = std::min(pixel[2], colour.blue);
    }
    VipsImage* Image() { return vips_image_new_from_memory_copy(bytes_.data(), bytes_.size(), width_, height_, 3, VIPS_FORMAT_UCHAR); }

private:
    unsigned char* At(int x, int y) {
        return bytes_.data() + (static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)) * 3;
    }

    int width_, height_;
    std::vector<unsigned char> bytes_;
};

constexpr int kSide = 512;
constexpr int kMargin = 24;

}  // namespace

extern "C" __attribute__((visibility("default"))) void OrloWritePlot(const RampEntries* wanted, const std::string* place) {
    const RampEntries& ramp = *wanted;
    const std::string& path = *place;
    if (FormatOfName(path) != ImageFormat::Png) throw Complaint{path, "a plot is a PNG file", "use the suffix .png"};
    Canvas canvas(kSide + 2 * kMargin, kSide + 2 * kMargin);
    constexpr Colour kGrid = {225, 225, 225}, kFrame = {120, 120, 120};
    for (int i = 0; i <= kSide; ++i) {
        for (int quarter = 0; quarter <= 4; ++quarter) {
            const Colour colour = quarter == 0 || quarter == 4 ? kFrame : kGrid;
            canvas.Set(kMargin + i, kMargin + quarter * kSide / 4, colour);
            canvas.Set(kMargin + quarter * kSide / 4, kMargin + i, colour);
        }
        // The straight ramp, to compare with.
        if (i % 6 < 3) canvas.Set(kMargin + i, kMargin + kSide - i, kFrame);
    }
    constexpr Colour kChannels[3] = {{255, 110, 110}, {90, 210, 90}, {110, 140, 255}};
    for (std::size_t c = 0; c < 3; ++c) {
        int last = 0;
        for (int x = 0; x <= kSide; ++x) {
            const int y = static_cast<int>(std::lround(kSide * (1.0 - RampValueAt(ramp[c], static_cast<double>(x) / kSide))));
            if (x == 0) last = y;
            for (int between = std::min(last, y); between <= std::max(last, y); ++between) {
                canvas.Set(kMargin + x, kMargin + between, kChannels[c]);
                canvas.Set(kMargin + x, kMargin + between + 1, kChannels[c]);
            }
            last = y;
        }
    }
    StartVips();
    OutputFile file(path);
    const ImageHold image(canvas.Image());
    if (!image || !WriteImage(image.get(), ImageFormat::Png, TiffCompression::None, file.Descriptor())) file.ComplainOfWriting();
    file.Commit();
}
