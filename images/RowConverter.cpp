#include "images/RowConverter.h"

#include <algorithm>

#include "images/FourCharCodes.h"

namespace {

constexpr std::size_t kStride = 4;         // samples of a device or reference pixel
constexpr double kWhiteDifference = 25.5;  // in CIE76, so that a level of 8 bits is a tenth

constexpr uint16_t Widened(uint8_t v) {
    return static_cast<uint16_t>(v * 257);
}
constexpr uint16_t Widened(uint16_t v) {
    return v;
}

/// To the nearest of the 256 values.
constexpr void Narrow(uint16_t v, uint8_t& out) {
    out = static_cast<uint8_t>((v + 128) / 257);
}
constexpr void Narrow(uint16_t v, uint16_t& out) {
    out = v;
}

/// Colour samples as 16-bit ones, `channels` a pixel: 1 packed, 3 (with a fourth word skipped) or 4. Grey is repeated into RGB.
template <typename Sample>
void SpreadSource(const Sample* in, const ImageShape& shape, int channels, bool flatten, uint16_t* out, std::size_t count) {
    const auto samples = static_cast<std::size_t>(shape.Samples());
    const std::size_t stride = channels == 1 ? 1 : kStride;
    const uint32_t paper = shape.colours == 4 ? 0 : kFull65535;
    for (std::size_t i = 0; i < count; i++, in += samples, out += stride) {
        const uint32_t cover = flatten ? Widened(in[shape.colours]) : kFull65535;
        for (int c = 0; c < channels; c++) {
            const uint32_t value = Widened(in[shape.colours == 1 ? 0 : c]);
            out[c] = static_cast<uint16_t>((value * cover + paper * (kFull65535 - cover) + kFull65535 / 2) / kFull65535);
        }
    }
}

/// Device samples unchanged, four a pixel; `skip` stands before the first colour.
template <typename Sample>
void SpreadDevice(const Sample* in, const ImageShape& shape, int channels, std::size_t skip, Sample* out, std::size_t count) {
    const auto samples = static_cast<std::size_t>(shape.Samples());
    for (std::size_t i = 0; i < count; i++, in += samples, out += kStride) {
        for (int c = 0; c < channels; c++) out[skip + static_cast<std::size_t>(c)] = in[shape.colours == 1 ? 0 : c];
    }
}

template <typename Sample>
void PackColours(const Sample* device, std::size_t skip, const ImageShape& shape, Sample* out, std::size_t count) {
    const auto samples = static_cast<std::size_t>(shape.Samples());
    for (std::size_t i = 0; i < count; i++, device += kStride, out += samples) {
        std::copy_n(device + skip, shape.colours, out);
    }
}

template <typename From, typename To>
void CopyAlpha(const From* in, const ImageShape& inShape, To* out, const ImageShape& outShape, std::size_t count) {
    const auto inSamples = static_cast<std::size_t>(inShape.Samples());
    const auto outSamples = static_cast<std::size_t>(outShape.Samples());
    for (std::size_t i = 0; i < count; i++) Narrow(Widened(in[i * inSamples + inSamples - 1]), out[i * outSamples + outSamples - 1]);
}

/// 8-bit RGB pixels start with a padding byte; the four inks fill theirs.
std::size_t SkipOf(int colours) {
    return colours == 4 ? 0 : 1;
}

}  // namespace

/// How samples of so many channels lie in the buffers: three have a fourth beside them that is skipped.
struct RowConverter::Layout {
    explicit Layout(std::size_t channels) : stride(channels == 3 ? kStride : channels), alpha(kCGImageAlphaNone) {
        if (channels == 3) alpha = kCGImageAlphaNoneSkipLast;
    }

    std::size_t stride;
    ColorSyncDataLayout alpha;
};

struct RowConverter::Samples {
    void* data;
    Layout layout;
    ColorSyncDataDepth depth;

    std::size_t PixelBytes() const { return layout.stride * (depth == kColorSync8BitInteger ? 1 : depth == kColorSync16BitInteger ? 2 : 4); }
};

RowConverter::RowConverter(const RunPlan& plan, std::size_t width)
    : plan_(plan), source_(width * kStride), reference_(width * kStride), device16_(width * kStride), device8_(width * kStride) {
    std::size_t widest = kStride;
    if (plan.route) {
        for (const Leg& leg : *plan.route) widest = std::max(widest, leg.channels);
        for (std::vector<float>& values : onWay_) values.resize(width * widest);
    }
    if (plan.operation != Operation::Gamut) return;
    back_.resize(width * kStride);
    differences_.resize(width);
}

void RowConverter::Spread(const void* in, std::size_t count) {
    const int channels = plan_.sourceChannels;
    if (plan_.input.depth == 8) {
        SpreadSource(static_cast<const uint8_t*>(in), plan_.input, channels, plan_.flattenOntoWhite, source_.data(), count);
    } else {
        SpreadSource(static_cast<const uint16_t*>(in), plan_.input, channels, plan_.flattenOntoWhite, source_.data(), count);
    }
}

bool RowConverter::ToReference(const void* in, std::size_t count) {
    Spread(in, count);
    const Layout source(static_cast<std::size_t>(plan_.sourceChannels)), reference(3);
    return ColorSyncTransformConvert(plan_.toReference, count, 1, reference_.data(), kColorSync16BitInteger, reference.alpha,
                                     count * reference.stride * sizeof(uint16_t), source_.data(), kColorSync16BitInteger, source.alpha,
                                     count * source.stride * sizeof(uint16_t), nullptr);
}

bool RowConverter::AlongRoute(const void* in, std::size_t count) {
    Spread(in, count);
    const std::vector<Leg>& route = *plan_.route;
    const Layout source(static_cast<std::size_t>(plan_.sourceChannels));
    const bool isWide = plan_.output.depth == 16;
    // 16 bits are worth the exact way, where nothing is rounded on it; it is the slower one.
    Samples from = {source_.data(), source, isWide ? kColorSync32BitFloat : kColorSync16BitInteger};
    if (isWide) {
        std::transform(source_.begin(), source_.begin() + static_cast<std::ptrdiff_t>(count * source.stride), onWay_[0].begin(),
                       [](uint16_t value) { return static_cast<float>(value) / static_cast<float>(kFull65535); });
        from.data = onWay_[0].data();
    }
    for (std::size_t i = 0; i < route.size(); i++) {
        Samples to = {onWay_[1 + i % 2].data(), Layout(route[i].channels), from.depth};
        if (i + 1 == route.size()) to = EndOfRoute(to.layout);
        if (!ColorSyncTransformConvert(route[i].transform.Get(), count, 1, to.data, to.depth, to.layout.alpha, count * to.PixelBytes(), from.data,
                                       from.depth, from.layout.alpha, count * from.PixelBytes(), nullptr)) {
            return false;
        }
        // No device has values beyond its range.
        if (to.depth == kColorSync32BitFloat) {
            auto* const values = static_cast<float*>(to.data);
            std::transform(values, values + count * to.layout.stride, values, [](float value) { return value > 0 ? std::min(value, 1.0F) : 0.0F; });
        }
        from = to;
    }
    if (!plan_.routeEndsInReference) return true;
    return (isWide ? MonitorMatch16(reference_.data(), device16_.data(), count) : MonitorMatch(reference_.data(), device8_.data(), count)) == 0;
}

RowConverter::Samples RowConverter::EndOfRoute(Layout layout) {
    if (plan_.routeEndsInReference) return {reference_.data(), layout, kColorSync16BitInteger};
    if (plan_.output.depth == 16) return {device16_.data(), layout, kColorSync16BitInteger};
    if (layout.alpha != kCGImageAlphaNone) layout.alpha = kCGImageAlphaNoneSkipFirst;
    return {device8_.data(), layout, kColorSync8BitInteger};
}

bool RowConverter::FromReference(std::size_t count) {
    const uint16_t* in = reference_.data();
    const bool narrow = plan_.output.depth == 8;
    switch (plan_.operation) {
        case Operation::Match:
            return (narrow ? MonitorMatch(in, device8_.data(), count) : MonitorMatch16(in, device16_.data(), count)) == 0;
        case Operation::Proof:
            return (narrow ? SoftProofMatch(in, device8_.data(), count) : SoftProofMatch16(in, device16_.data(), count)) == 0;
        case Operation::PrinterMatch:
            return (narrow ? PrinterMatch(in, device8_.data(), count) : PrinterMatch16(in, device16_.data(), count)) == 0;
        case Operation::Gamut:
        case Operation::Predict:
        case Operation::PrinterPredict:
            break;
    }
    return false;
}

bool RowConverter::FromDevice(const void* in, std::size_t count) {
    const bool printer = plan_.operation == Operation::PrinterPredict;
    const int channels = plan_.input.colours == 4 ? 4 : 3;
    if (plan_.input.depth == 8) {
        SpreadDevice(static_cast<const uint8_t*>(in), plan_.input, channels, SkipOf(channels), device8_.data(), count);
        return (printer ? PrinterPredict : MonitorPredict)(device8_.data(), reference_.data(), count) == 0;
    }
    SpreadDevice(static_cast<const uint16_t*>(in), plan_.input, channels, 0, device16_.data(), count);
    return (printer ? PrinterPredict16 : MonitorPredict16)(device16_.data(), reference_.data(), count) == 0;
}

std::array<XYZColour, 3> PrimariesOf(ColorSyncProfileRef reference) {
    constexpr std::array<uint32_t, 3> kColourants = {Code("rXYZ"), Code("gXYZ"), Code("bXYZ")};
    std::array<XYZColour, 3> primaries;
    for (std::size_t c = 0; c < 3; c++) {
        const FixedXYZ xyz = GetMediaColourant(reference, kColourants[c]);
        const auto real = [](int32_t fixed) { return static_cast<float>(fixed) / static_cast<float>(kFixedOne); };
        primaries[c] = {real(xyz.X), real(xyz.Y), real(xyz.Z)};
    }
    return primaries;
}

LabColour LabOfReference(const std::array<XYZColour, 3>& primaries, const uint16_t* colour) {
    XYZColour sum;
    for (std::size_t c = 0; c < 3; c++) sum += primaries[c] * (static_cast<float>(colour[c]) / static_cast<float>(kFull65535));
    return XYZToCIELab(sum, PCSWhiteColour);
}

void RowConverter::FindDifferences(std::size_t count) {
    const auto lab = [this](const uint16_t* colour) { return LabOfReference(plan_.gamut.primaries, colour); };
    for (std::size_t i = 0; i < count; i++) {
        const uint16_t *colour = reference_.data() + i * kStride, *back = back_.data() + i * kStride;
        differences_[i] = std::equal(colour, colour + 3, back) ? 0.0F : static_cast<float>(deltaE(lab(colour), lab(back)));
    }
}

namespace {

// Over a pale picture without its colours, a green that photographs rarely have.
constexpr std::array<double, 3> kMark = {0.0, 200 / 255.0, 90 / 255.0};

/// The overlay's colour, 0..1: the mark, or a pale grey as bright as the monitor's colour.
std::array<double, 3> OverlayColour(const uint16_t* monitor, bool isMarked) {
    if (isMarked) return kMark;
    constexpr std::array<double, 3> kWeights = {0.2126, 0.7152, 0.0722};
    double grey = 0.0;
    for (std::size_t c = 0; c < 3; c++) grey += kWeights[c] * monitor[c] / kFull65535;
    grey = 0.8 * grey + 0.12;
    return {grey, grey, grey};
}

template <typename Sample>
Sample Scaled(double share) {
    constexpr double kMost = static_cast<Sample>(~Sample{0});
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): right for shares of 0 to 1, and no call for every sample.
    return static_cast<Sample>(std::min(share, 1.0) * kMost + 0.5);
}

template <typename Sample>
void PackOverlay(const uint16_t* monitor, const uint8_t* flags, Sample* out, std::size_t count) {
    for (std::size_t i = 0; i < count; i++, monitor += kStride) {
        for (const double value : OverlayColour(monitor, flags[i] != 0)) *out++ = Scaled<Sample>(value);
    }
}

template <typename Sample>
void PackDifferences(const float* differences, Sample* out, std::size_t count) {
    for (std::size_t i = 0; i < count; i++) out[i] = Scaled<Sample>(static_cast<double>(differences[i]) / kWhiteDifference);
}

}  // namespace

uint16_t LevelOfDifference(float difference) {
    return Scaled<uint16_t>(static_cast<double>(difference) / kWhiteDifference);
}

bool RowConverter::Mark(void* out, std::size_t count) {
    const GamutPlan& gamut = plan_.gamut;
    uint8_t* const flags = device8_.data();
    const uint16_t* const in = reference_.data();
    if (gamut.tolerance || gamut.form == GamutForm::Difference) {
        const bool done = gamut.printer
                              ? PrinterMatch16(in, device16_.data(), count) == 0 && PrinterPredict16(device16_.data(), back_.data(), count) == 0
                              : MonitorMatch16(in, device16_.data(), count) == 0 && MonitorPredict16(device16_.data(), back_.data(), count) == 0;
        if (!done) return false;
        FindDifferences(count);
    }
    if (gamut.tolerance) {
        for (std::size_t i = 0; i < count; i++) flags[i] = static_cast<double>(differences_[i]) > *gamut.tolerance ? 255 : 0;
    } else if ((gamut.printer ? PrinterGamut : MonitorGamut)(in, flags, count) != 0) {
        return false;
    }
    *gamut.marked += static_cast<uint64_t>(std::count_if(flags, flags + count, [](uint8_t flag) { return flag != 0; }));

    const bool narrow = plan_.output.depth == 8;
    auto* const out8 = static_cast<uint8_t*>(out);
    auto* const out16 = static_cast<uint16_t*>(out);
    switch (gamut.form) {
        case GamutForm::Mask:
            std::copy_n(flags, count, out8);
            return true;
        case GamutForm::Overlay:
            if (MonitorMatch16(in, device16_.data(), count) != 0) return false;
            narrow ? PackOverlay(device16_.data(), flags, out8, count) : PackOverlay(device16_.data(), flags, out16, count);
            return true;
        case GamutForm::Difference:
            narrow ? PackDifferences(differences_.data(), out8, count) : PackDifferences(differences_.data(), out16, count);
            return true;
    }
    return false;
}

bool RowConverter::Convert(const void* in, void* out, std::size_t count) {
    const bool predicts = ReadsDeviceValues(plan_.operation);
    if (plan_.operation == Operation::Gamut) return ToReference(in, count) && Mark(out, count);
    if (predicts) {
        if (!FromDevice(in, count)) return false;
    } else if (plan_.route ? !AlongRoute(in, count) : !ToReference(in, count) || !FromReference(count)) {
        return false;
    }

    auto* out8 = static_cast<uint8_t*>(out);
    auto* out16 = static_cast<uint16_t*>(out);
    if (plan_.output.depth == 8) {
        PackColours(device8_.data(), SkipOf(plan_.output.colours), plan_.output, out8, count);
    } else {
        PackColours(predicts ? reference_.data() : device16_.data(), 0, plan_.output, out16, count);
    }
    if (!plan_.output.hasAlpha) return true;

    const auto* in8 = static_cast<const uint8_t*>(in);
    const auto* in16 = static_cast<const uint16_t*>(in);
    if (plan_.input.depth == 8) {
        plan_.output.depth == 8 ? CopyAlpha(in8, plan_.input, out8, plan_.output, count) : CopyAlpha(in8, plan_.input, out16, plan_.output, count);
    } else {
        plan_.output.depth == 8 ? CopyAlpha(in16, plan_.input, out8, plan_.output, count) : CopyAlpha(in16, plan_.input, out16, plan_.output, count);
    }
    return true;
}
