#include "python/native/PixelRuns.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace {

constexpr std::size_t kTile = 1024;  // pixels: both tiles stay in the first cache
constexpr std::size_t kStride = 4;   // samples of a pixel of the library's
constexpr std::size_t kPacked = 3;

/// Room for a tile; a padding sample stands before the first colour of 8 bits and after it of 16.
template <typename Sample>
struct Tile {
    static constexpr std::size_t kSkip = sizeof(Sample) == 1 ? 1 : 0;
    alignas(64) std::array<Sample, kTile * kStride + kStride> samples;

    Sample* Colours() { return samples.data() + kSkip; }
};

// Each pixel but the last is moved as four samples, the fourth of which falls into padding or is written over by the next: one load and one store.

template <typename Sample>
void Spread(const Sample* packed, Tile<Sample>& tile, std::size_t count) {
    Sample* out = tile.Colours();
    for (std::size_t i = 0; i + 1 < count; ++i, packed += kPacked, out += kStride) std::memcpy(out, packed, kStride * sizeof(Sample));
    std::memcpy(out, packed, kPacked * sizeof(Sample));
}

template <typename Sample>
void Pack(Tile<Sample>& tile, Sample* packed, std::size_t count) {
    const Sample* in = tile.Colours();
    for (std::size_t i = 0; i + 1 < count; ++i, packed += kPacked, in += kStride) std::memcpy(packed, in, kStride * sizeof(Sample));
    std::memcpy(packed, in, kPacked * sizeof(Sample));
}

template <typename Source, typename Destination>
using RecordOperation = int16_t(const MatchingData* record, const Source* source, Destination* destination, std::size_t count);

/// An array of the caller's and how far apart its pixels are.
template <typename Sample>
struct Pixels {
    Sample* samples;
    std::size_t channels;

    bool IsPacked() const { return channels == kPacked; }
};

template <typename Source, typename Destination>
int16_t Run(RecordOperation<Source, Destination> operation, const MatchingData* record, Pixels<const Source> in, Pixels<Destination> out,
            std::size_t count) {
    if (!in.IsPacked() && !out.IsPacked()) return operation(record, in.samples, out.samples, count);
    Tile<Source> source;
    Tile<Destination> destination;
    int16_t status = 0;
    for (std::size_t done = 0; done < count && status == 0; done += kTile) {
        const std::size_t now = std::min(kTile, count - done);
        const Source* from = in.samples + done * in.channels;
        Destination* const to = out.samples + done * out.channels;
        if (in.IsPacked()) {
            Spread(from, source, now);
            from = source.samples.data();
        }
        status = operation(record, from, out.IsPacked() ? destination.samples.data() : to, now);
        if (out.IsPacked() && status == 0) Pack(destination, to, now);
    }
    return status;
}

/// What RunPixels was asked for.
struct Call {
    int depth;
    const MatchingData* record;
    const void* source;
    std::size_t sourceChannels;
    void* destination;
    std::size_t destinationChannels, count;

    int16_t ToDevice(RecordOperation<uint16_t, uint8_t> narrow, RecordOperation<uint16_t, uint16_t> wide) const {
        return depth == 8 ? Apply(narrow, destinationChannels) : Apply(wide, destinationChannels);
    }
    int16_t FromDevice(RecordOperation<uint8_t, uint16_t> narrow, RecordOperation<uint16_t, uint16_t> wide) const {
        return depth == 8 ? Apply(narrow, destinationChannels) : Apply(wide, destinationChannels);
    }
    int16_t ToFlags(RecordOperation<uint16_t, uint8_t> gamut) const { return Apply(gamut, 1); }

private:
    template <typename Source, typename Destination>
    int16_t Apply(RecordOperation<Source, Destination> operation, std::size_t channels) const {
        return Run<Source, Destination>(operation, record, {static_cast<const Source*>(source), sourceChannels},
                                        {static_cast<Destination*>(destination), channels}, count);
    }
};

constexpr uint16_t Widened(uint8_t v) {
    return static_cast<uint16_t>(v * 257);
}
constexpr uint16_t Widened(uint16_t v) {
    return v;
}

/// Colours as the transform takes them: 1 packed, 3 (with a fourth sample skipped) or 4.
template <typename Sample>
void SpreadSource(const Sample* in, std::size_t samples, std::size_t channels, uint16_t* out, std::size_t count) {
    const std::size_t stride = channels == 1 ? 1 : kStride;
    const std::size_t step = samples < kPacked ? 0 : 1;
    for (std::size_t i = 0; i < count; ++i, in += samples, out += stride) {
        for (std::size_t c = 0; c < channels; ++c) out[c] = Widened(in[c * step]);
    }
}

/// How the transform is told of a source pixel.
struct SourceForm {
    bool isKnown;        // it is laid out as the transform takes it; else the colours alone are, in 16 bits
    std::size_t stride;  // samples
    ColorSyncDataLayout layout;
};

SourceForm FormOf(std::size_t samples, std::size_t channels) {
    const bool skipsLast = channels == kPacked && samples == channels + 1;
    if (samples == channels || skipsLast) return {true, samples, skipsLast ? kCGImageAlphaNoneSkipLast : kCGImageAlphaNone};
    return {false, channels == kPacked ? kStride : channels, channels == kPacked ? kCGImageAlphaNoneSkipLast : kCGImageAlphaNone};
}

}  // namespace

int16_t RunPixels(enum PixelOperation operation, int depth, const MatchingData* record, const void* source, size_t sourceChannels, void* destination,
                  size_t destinationChannels, size_t count) {
    const Call call{depth, record, source, sourceChannels, destination, destinationChannels, count};
    switch (operation) {
        case kRunMatch:
            return call.ToDevice(RecordMonitorMatch, RecordMonitorMatch16);
        case kRunPredict:
            return call.FromDevice(RecordMonitorPredict, RecordMonitorPredict16);
        case kRunGamut:
            return call.ToFlags(RecordMonitorGamut);
        case kRunProof:
            return call.ToDevice(RecordSoftProofMatch, RecordSoftProofMatch16);
        case kRunPrinterMatch:
            return call.ToDevice(RecordPrinterMatch, RecordPrinterMatch16);
        case kRunPrinterPredict:
            return call.FromDevice(RecordPrinterPredict, RecordPrinterPredict16);
        case kRunPrinterGamut:
            return call.ToFlags(RecordPrinterGamut);
    }
    return kStatusParameter;
}

Boolean RunToReference(ColorSyncTransformRef transform, int depth, const void* source, size_t samples, size_t channels, uint16_t* destination,
                       size_t destinationChannels, size_t count) {
    const SourceForm form = FormOf(samples, channels);
    const std::size_t sampleSize = depth == 8 ? sizeof(uint8_t) : sizeof(uint16_t);
    std::array<uint16_t, kTile * kStride> spread;
    bool isDone = true;
    for (std::size_t done = 0; done < count && isDone; done += kTile) {
        const std::size_t now = std::min(kTile, count - done);
        const void* from = static_cast<const uint8_t*>(source) + done * samples * sampleSize;
        if (!form.isKnown) {
            depth == 8 ? SpreadSource(static_cast<const uint8_t*>(from), samples, channels, spread.data(), now)
                       : SpreadSource(static_cast<const uint16_t*>(from), samples, channels, spread.data(), now);
            from = spread.data();
        }
        const bool isNarrow = form.isKnown && depth == 8;
        isDone =
            ColorSyncTransformConvert(transform, now, 1, destination + done * destinationChannels, kColorSync16BitInteger,
                                      destinationChannels == kPacked ? kCGImageAlphaNone : kCGImageAlphaNoneSkipLast,
                                      now * destinationChannels * sizeof(uint16_t), from, isNarrow ? kColorSync8BitInteger : kColorSync16BitInteger,
                                      form.layout, now * form.stride * (isNarrow ? sizeof(uint8_t) : sizeof(uint16_t)), nullptr);
    }
    return isDone;
}

int16_t RunPicture(ColorSyncTransformRef transform, int sourceDepth, const void* source, size_t samples, size_t channels,
                   enum PixelOperation operation, const MatchingData* record, int depth, void* destination, size_t destinationChannels,
                   size_t count) {
    alignas(64) std::array<uint16_t, kTile * kStride> reference;
    const std::size_t sourceSize = static_cast<std::size_t>(sourceDepth) / 8 * samples;
    const std::size_t destinationSize = static_cast<std::size_t>(depth) / 8 * destinationChannels;
    const auto* const from = static_cast<const uint8_t*>(source);
    auto* const to = static_cast<uint8_t*>(destination);
    int16_t status = 0;
    for (std::size_t done = 0; done < count && status == 0; done += kTile) {
        const std::size_t now = std::min(kTile, count - done);
        if (!RunToReference(transform, sourceDepth, from + done * sourceSize, samples, channels, reference.data(), kStride, now))
            return kStatusNoMemory;
        status = RunPixels(operation, depth, record, reference.data(), kStride, to + done * destinationSize, destinationChannels, now);
    }
    return status;
}
