#include "engine/MatchingTables.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <exception>
#include <thread>
#include <utility>

#include "engine/DirectMonitor.h"
#include "engine/DirectPrinter.h"
#include "engine/MatchingData.h"
#include "engine/MonitorTables.h"
#include "engine/PrinterTransforms.h"
#include "engine/kernels/MonitorKernels.h"
#include "platform/Codes.h"
#include "platform/FullScale.h"

namespace {

constexpr uint32_t kTableBits = 6;
/// A whole row of a table of kTableBits, and the nodes converted at a time: a whole plane.
constexpr uint32_t kRowLength = 65;
constexpr uint32_t kRunLength = kRowLength * kRowLength;
constexpr size_t kMostThreads = 16;

/// The node inputs along one axis: min + range * index / (gridSize - 1), in 16 bits. The product is below 65536 * 65536.
uint16_t NodeInput(const PixelScale& scale, int axis, uint32_t index, uint32_t gridSize) {
    return static_cast<uint16_t>(scale.min[axis] + scale.range[axis] * index / (gridSize - 1));
}

/// Runs `fill(index)` for every index below `count`, on the caller's thread and one more for each further core. Where none can be had, the
/// caller's does it all.
template <typename Fill>
void OnAllCores(uint32_t count, Fill fill) {
    std::atomic<uint32_t> next = 0;
    const auto work = [&] {
        for (uint32_t index = next++; index < count; index = next++) fill(index);
    };
    std::thread others[kMostThreads - 1];
    try {
        const size_t cores = std::min<size_t>(std::thread::hardware_concurrency(), kMostThreads);
        for (size_t i = 0; i + 1 < cores; ++i) others[i] = std::thread(work);
    } catch (const std::exception&) {
    }
    work();
    for (std::thread& other : others) {
        if (other.joinable()) other.join();
    }
}

/// Runs `convert(pixels, nodes, count)` over all nodes of a table, third input fastest, plane by plane of the first.
template <typename Value, typename Convert>
void FillTable(const PixelTable& table, const PixelScale& inputs, size_t nodeSize, Convert convert) {
    const uint32_t gridSize = table.gridSize;
    OnAllCores(gridSize, [&](uint32_t i) {
        auto* node = static_cast<Value*>(table.table) + nodeSize * gridSize * gridSize * i;
        // A pixel is written in one piece, the first input the lowest.
        static_assert(std::endian::native == std::endian::little);
        uint16_t pixels[4 * kRunLength];
        uint64_t third[kRowLength];
        size_t held = 0;
        for (uint32_t j = 0; j < gridSize; ++j) {
            const uint64_t firstTwo = NodeInput(inputs, 0, i, gridSize) | uint64_t{NodeInput(inputs, 1, j, gridSize)} << 16;
            for (uint32_t first = 0; first < gridSize; first += kRowLength) {
                const uint32_t count = std::min(gridSize - first, kRowLength);
                if (j == 0 || gridSize > kRowLength) {
                    for (uint32_t k = 0; k < count; ++k) third[k] = uint64_t{NodeInput(inputs, 2, first + k, gridSize)} << 32;
                }
                for (uint32_t k = 0; k < count; ++k) {
                    const uint64_t pixel = firstTwo | third[k];
                    std::memcpy(pixels + 4 * (held + k), &pixel, sizeof pixel);
                }
                held += count;
                if (held + kRowLength > kRunLength || (j + 1 == gridSize && first + count == gridSize)) {
                    convert(pixels, node, held);
                    node += nodeSize * held;
                    held = 0;
                }
            }
        }
    });
}

/// Those that are not there yet. 0 or -108; what was allocated before a failure stays.
int AllocateGrids(MatchingData* data) {
    for (PixelTable* table : {&data->matchTable, &data->proofTable, &data->predictTable}) {
        const int status = table->table ? 0 : CreateTablePixel16(kTableBits, table);
        if (status != 0) return status;
    }
    return data->gamutTable.table ? 0 : CreateTableUInt8(kTableBits, &data->gamutTable);
}

struct Pixel {
    uint16_t value[4];
};

/// The monitor's black and white in reference RGB.
std::pair<Pixel, Pixel> MonitorRange(const MatchingData* data) {
    constexpr uint16_t kDeviceBlack[3] = {0, 0, 0};
    constexpr uint16_t kDeviceWhite[3] = {kFull65535, kFull65535, kFull65535};
    Pixel black{}, white{};
    Predict_ShaperMatrix(&data->monitorShaper, kDeviceBlack, black.value);
    Predict_ShaperMatrix(&data->monitorShaper, kDeviceWhite, white.value);
    return {black, white};
}

/// The inputs from `low` to `high` on each channel. A channel without extent has range 1: a range is divided by.
PixelScale ScaleBetween(const uint16_t low[3], const uint16_t high[3]) {
    PixelScale scale;
    for (int c = 0; c < 3; ++c) {
        scale.min[c] = low[c];
        scale.range[c] = std::max<uint16_t>(static_cast<uint16_t>(high[c] - low[c]), 1);
    }
    return scale;
}

}  // namespace

OSErr SetDirectMatchingQuality(MatchingData* data, uint32_t quality) {
    if (!data) return 0;
    const bool precomputed = quality == kMatchingQuality0;
    if (precomputed) {
        const int status = AllocateGrids(data);
        if (status != 0) return static_cast<OSErr>(status);
    }
    TabulateMonitor(data);
    if (precomputed) BuildMatchingTables(data);
    data->tablesBuilt = precomputed ? 1 : 0;
    return 0;
}

void TabulateMonitor(MatchingData* data) {
    if (!data->monitorTables && MonitorKernelsInUse()) data->monitorTables = MakeMonitorTables(data->monitorShaper);
}

void BuildMatchingTables(MatchingData* data) {
    BuildMonitorGrids(data);
    BuildProofGrid(data);
}

void BuildMonitorGrids(MatchingData* data) {
    const auto [black, white] = MonitorRange(data);
    const PixelScale scale = ScaleBetween(black.value, white.value);
    data->matchTable.scale = scale;
    FillTable<uint16_t>(data->matchTable, scale, 4,
                        [=](const uint16_t* in, uint16_t* nodes, size_t count) { DirectMonitorMatch16(data, in, nodes, count); });

    UnscaledTable(&data->predictTable.scale);
    constexpr PixelScale kDeviceRange = {{kFull65535, kFull65535, kFull65535}, {0, 0, 0}};
    FillTable<uint16_t>(data->predictTable, kDeviceRange, 4,
                        [=](const uint16_t* in, uint16_t* nodes, size_t count) { DirectMonitorPredict16(data, in, nodes, count); });

    data->gamutTable.scale = scale;
    FillTable<uint8_t>(data->gamutTable, scale, 1,
                       [=](const uint16_t* in, uint8_t* nodes, size_t count) { DirectMonitorGamut(data, in, nodes, count); });
}

void BuildProofGrid(MatchingData* data) {
    const auto [black, white] = MonitorRange(data);
    Pixel proofedBlack{}, proofedWhite{};
    ConvertThroughProof(data, black.value, proofedBlack.value, 1);
    ConvertThroughProof(data, white.value, proofedWhite.value, 1);
    data->proofTable.scale = ScaleBetween(proofedBlack.value, proofedWhite.value);
    FillTable<uint16_t>(data->proofTable, data->proofTable.scale, 4,
                        [=](const uint16_t* in, uint16_t* nodes, size_t count) { DirectProofMatch16(data, in, nodes, count); });
}
