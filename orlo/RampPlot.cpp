#include "orlo/RampPlot.h"

#include <algorithm>
#include <cmath>

#include "images/Complaint.h"
#include "images/ImageReading.h"
#include "images/ImageWriting.h"
#include "orlo/OutputFile.h"

namespace {

/// The ramp's value at a place 0..1, straight between the entries; 0..1.
double ValueAt(const std::vector<uint16_t>& entries, double place) {
    const double position = place * static_cast<double>(entries.size() - 1);
    const std::size_t i = std::min(static_cast<std::size_t>(position), entries.size() - 2);
    const double part = position - static_cast<double>(i);
    return (entries[i] * (1.0 - part) + entries[i + 1] * part) / 65535.0;
}

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

std::string TextPlot(const RampEntries& ramp) {
    constexpr int kColumns = 64, kRows = 20;
    std::vector<std::string> rows(kRows, std::string(kColumns, ' '));
    for (std::size_t c = 0; c < 3; ++c) {
        for (int x = 0; x < kColumns; ++x) {
            const double value = ValueAt(ramp[c], static_cast<double>(x) / (kColumns - 1));
            char& place = rows[static_cast<std::size_t>(kRows - 1 - std::lround(value * (kRows - 1)))][static_cast<std::size_t>(x)];
            place = place == ' ' ? "RGB"[c] : '*';
        }
    }
    std::string text;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const char* const label = i == 0 ? "65535 |" : i + 1 == rows.size() ? "    0 |" : "      |";
        rows[i].erase(rows[i].find_last_not_of(' ') + 1);
        text += label + rows[i] + "\n";
    }
    return text + "      +" + std::string(kColumns, '-') + "\n";
}

void WritePlot(const RampEntries& ramp, const std::string& path) {
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
            const int y = static_cast<int>(std::lround(kSide * (1.0 - ValueAt(ramp[c], static_cast<double>(x) / kSide))));
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
