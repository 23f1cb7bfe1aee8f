#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>

#include "engine/DirectMonitor.h"
#include "engine/DirectPrinter.h"
#include "engine/MatchingData.h"
#include "engine/ProofTransform.h"
#include "platform/FourCharCode.h"

namespace {

constexpr uint32_t kTableBits = 6;
constexpr uint16_t kFull65535 = 65535;
/// Nodes converted at a time: a whole row of a table of kTableBits.
constexpr uint32_t kRunLength = 65;
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
        uint16_t pixels[4 * kRunLength] = {};
        for (uint32_t j = 0; j < gridSize; ++j) {
            for (uint32_t first = 0; first < gridSize; first += kRunLength) {
                const uint32_t count = std::min(gridSize - first, kRunLength);
                uint16_t* pixel = pixels;
                for (uint32_t k = first; k < first + count; ++k, pixel += 4) {
                    pixel[0] = NodeInput(inputs, 0, i, gridSize);
                    pixel[1] = NodeInput(inputs, 1, j, gridSize);
                    pixel[2] = NodeInput(inputs, 2, k, gridSize);
                }
                convert(pixels, node, count);
                node += count * nodeSize;
            }
        }
    });
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
    if (quality != FourChar("Qua0")) {
        data->tablesBuilt = 0;
        return 0;
    }
    for (PixelTable* table : {&data->matchTable, &data->proofTable, &data->predictTable}) {
        if (table->table) continue;
        const int status = CreateTablePixel16(kTableBits, table);
        if (status != 0) return static_cast<OSErr>(status);
    }
    if (!data->gamutTable.table) {
        const int status = CreateTableUInt8(kTableBits, &data->gamutTable);
        if (status != 0) return static_cast<OSErr>(status);
    }
    BuildMatchingTables(data);
    data->tablesBuilt = 1;
    return 0;
}

void BuildMatchingTables(MatchingData* data) {
    const auto match = [=](const uint16_t* in, uint16_t* nodes, size_t count) { DirectMonitorMatch16(data, in, nodes, count); };
    const auto proof = [=](const uint16_t* in, uint16_t* nodes, size_t count) { DirectProofMatch16(data, in, nodes, count); };
    const auto predict = [=](const uint16_t* in, uint16_t* nodes, size_t count) { DirectMonitorPredict16(data, in, nodes, count); };
    const auto gamut = [=](const uint16_t* in, uint8_t* nodes, size_t count) { DirectMonitorGamut(data, in, nodes, count); };

    constexpr uint16_t kDeviceWhite[3] = {kFull65535, kFull65535, kFull65535};
    constexpr uint16_t kDeviceBlack[3] = {0, 0, 0};
    uint16_t white[4] = {};
    uint16_t black[4] = {};
    Predict_ShaperMatrix(&data->monitorShaper, kDeviceWhite, white);
    Predict_ShaperMatrix(&data->monitorShaper, kDeviceBlack, black);
    const PixelScale monitorScale = ScaleBetween(black, white);

    data->matchTable.scale = monitorScale;
    FillTable<uint16_t>(data->matchTable, monitorScale, 4, match);

    uint16_t proofedWhite[4] = {};
    uint16_t proofedBlack[4] = {};
    ConvertThroughProof(data, white, proofedWhite, 1);
    ConvertThroughProof(data, black, proofedBlack, 1);
    data->proofTable.scale = ScaleBetween(proofedBlack, proofedWhite);
    FillTable<uint16_t>(data->proofTable, data->proofTable.scale, 4, proof);

    UnscaledTable(&data->predictTable.scale);
    constexpr PixelScale kDeviceRange = {{kFull65535, kFull65535, kFull65535}, {0, 0, 0}};
    FillTable<uint16_t>(data->predictTable, kDeviceRange, 4, predict);

    data->gamutTable.scale = monitorScale;
    FillTable<uint8_t>(data->gamutTable, monitorScale, 1, gamut);
}
