#pragma once

#include <cstdint>
#include <vector>

#include "ColourMatch/ColourMatch.h"
#include "images/ImageReading.h"
#include "images/Operation.h"

/// What happens to every pixel. The current matching data does the work.
struct RunPlan {
    Operation operation = Operation::Match;
    bool printerGamut = false;
    ImageShape input, output;
    ColorSyncTransformRef toReference = nullptr;  // null when the input is device values
    int sourceChannels = 3;                       // of toReference
    bool flattenOntoWhite = false;                // the input's alpha, which the output cannot hold
};

/// Room for one row; each thread has its own.
class RowConverter {
public:
    RowConverter(const RunPlan& plan, std::size_t width);

    /// Converts `count` pixels, at most the width. Samples are interleaved, in host byte order. False when an operation fails.
    bool Convert(const void* in, void* out, std::size_t count);

private:
    bool ToReference(const void* in, std::size_t count);
    bool FromReference(std::size_t count);
    bool FromDevice(const void* in, std::size_t count);

    const RunPlan& plan_;
    std::vector<uint16_t> source_;     // what toReference or a predict operation reads
    std::vector<uint16_t> reference_;  // four words a pixel
    std::vector<uint16_t> device16_;
    std::vector<uint8_t> device8_;  // four bytes a pixel, or a gamut answer
};
