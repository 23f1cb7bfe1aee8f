#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "ColourMatch/ColourMatch.h"
#include "images/ImageReading.h"
#include "images/Operation.h"
#include "images/Route.h"

/// How colours are marked that a device cannot show.
struct GamutPlan {
    bool printer = false;  // whose gamut
    GamutForm form = GamutForm::Mask;
    /// A colour is marked when it and its prediction back from the device differ by more, in CIE76; nothing: by the library's own flag.
    std::optional<double> tolerance;
    std::array<XYZColour, 3> primaries;       // of reference RGB, in the connection space
    std::atomic<uint64_t>* marked = nullptr;  // how many pixels were; borrowed
};

/// What happens to every pixel. The current matching data does the work.
struct RunPlan {
    Operation operation = Operation::Match;
    GamutPlan gamut = {};
    ImageShape input, output;
    ColorSyncTransformRef toReference = nullptr;  // null when the input is device values
    int sourceChannels = 3;                       // of toReference and of the route
    const std::vector<Leg>* route = nullptr;      // in place of the library's operations; borrowed
    bool routeEndsInReference = false;            // which is then matched to the monitor
    bool flattenOntoWhite = false;                // the input's alpha, which the output cannot hold
};

/// The primaries of reference RGB, in the connection space.
std::array<XYZColour, 3> PrimariesOf(ColorSyncProfileRef reference);
LabColour LabOfReference(const std::array<XYZColour, 3>& primaries, const uint16_t* colour);
/// A difference as a level of a grey picture of 16 bits, whose white is 25.5 or more.
uint16_t LevelOfDifference(float difference);

/// Room for one row; each thread has its own.
class RowConverter {
public:
    RowConverter(const RunPlan& plan, std::size_t width);

    /// Converts `count` pixels, at most the width. Samples are interleaved, in host byte order. False when an operation fails.
    bool Convert(const void* in, void* out, std::size_t count);
    /// The colours in reference RGB, four words a pixel, until the next call; null when that fails.
    const uint16_t* ReferenceOf(const void* in, std::size_t count) { return ToReference(in, count) ? reference_.data() : nullptr; }

private:
    /// The picture's own colours into `source_`.
    void Spread(const void* in, std::size_t count);
    bool ToReference(const void* in, std::size_t count);
    bool AlongRoute(const void* in, std::size_t count);
    struct Layout;
    struct Samples;
    /// Where the last leg of the route writes.
    Samples EndOfRoute(Layout layout);
    bool FromReference(std::size_t count);
    bool FromDevice(const void* in, std::size_t count);
    /// Marks colours and writes what the gamut's picture holds.
    bool Mark(void* out, std::size_t count);
    void FindDifferences(std::size_t count);

    const RunPlan& plan_;
    std::vector<uint16_t> source_;     // what toReference or a predict operation reads
    std::vector<uint16_t> reference_;  // four words a pixel
    std::vector<uint16_t> device16_;
    std::vector<uint8_t> device8_;             // four bytes a pixel, or a gamut answer
    std::array<std::vector<float>, 3> onWay_;  // what a route begins with, and what its legs answer in turn; of either depth
    // For gamut alone.
    std::vector<uint16_t> back_;  // reference RGB, predicted back
    std::vector<float> differences_;
};
