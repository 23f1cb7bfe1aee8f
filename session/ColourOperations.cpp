#include "session/ColourOperations.h"

#include "engine/DirectMonitor.h"
#include "engine/DirectPrinter.h"
#include "session/MatchingDataHandle.h"

namespace {

constexpr int16_t kNoMatchingData = 1000;
constexpr uint32_t kNoColourSpace = 1;

/// Runs `operate` on the current matching data: 0, or 1000 when there is none.
///
/// Deliberate: when `operate` raises, the status is 0 and the reference is not given back, so that record outlives its replacement.
template <typename Operate>
int16_t WithMatchingData(Operate operate) noexcept {
    int16_t status = kNoMatchingData;
    try {
        MatchingData* data = GetMatchingData();
        if (!data) return status;
        status = 0;
        operate(data);
        ReleaseMatchingData(data);
    } catch (...) {
    }
    return status;
}

template <typename Source, typename Destination>
using DirectOperation = void(const MatchingData* data, const Source* source, Destination* destination, size_t count);

template <typename Source, typename Destination>
using TableOperation = void(const PixelTable* table, const Source* source, Destination* destination, size_t count);

/// An operation without a table case.
template <typename Source, typename Destination>
int16_t Run(DirectOperation<Source, Destination> direct, const Source* source, Destination* destination, size_t count) noexcept {
    return WithMatchingData([=](const MatchingData* data) { direct(data, source, destination, count); });
}

/// An operation that the record's precomputed tables answer while they are in force.
template <typename Source, typename Destination>
int16_t Run(DirectOperation<Source, Destination> direct, TableOperation<Source, Destination> map, PixelTable MatchingData::*table,
            const Source* source, Destination* destination, size_t count) noexcept {
    return WithMatchingData([=](const MatchingData* data) {
        if (data->tablesBuilt) {
            map(&(data->*table), source, destination, count);
        } else {
            direct(data, source, destination, count);
        }
    });
}

}  // namespace

int16_t MonitorMatch(const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(DirectMonitorMatch, MapPixel16ToPixel8, &MatchingData::matchTable, source, destination, count);
}

int16_t MonitorMatch16(const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(DirectMonitorMatch16, MapPixel16ToDevice16, &MatchingData::matchTable, source, destination, count);
}

int16_t MonitorPredict(const uint8_t* source, uint16_t* destination, size_t count) {
    return Run(DirectMonitorPredict, MapDevice8ToPixel16, &MatchingData::predictTable, source, destination, count);
}

int16_t MonitorPredict16(const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(DirectMonitorPredict16, MapDevice16ToPixel16, &MatchingData::predictTable, source, destination, count);
}

int16_t MonitorGamut(const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(DirectMonitorGamut, MapPixel16ToUInt8, &MatchingData::gamutTable, source, destination, count);
}

int16_t PrinterMatch(const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(DirectPrinterMatch, source, destination, count);
}

int16_t PrinterMatch16(const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(DirectPrinterMatch16, source, destination, count);
}

int16_t PrinterPredict(const uint8_t* source, uint16_t* destination, size_t count) {
    return Run(DirectPrinterPredict, source, destination, count);
}

int16_t PrinterPredict16(const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(DirectPrinterPredict16, source, destination, count);
}

int16_t PrinterGamut(const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(DirectPrinterGamut, source, destination, count);
}

int16_t SoftProofMatch(const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(DirectProofMatch, MapPixel16ToPixel8, &MatchingData::proofTable, source, destination, count);
}

int16_t SoftProofMatch16(const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(DirectProofMatch16, MapPixel16ToDevice16, &MatchingData::proofTable, source, destination, count);
}

// Deliberate: predicting and testing under a soft proof are the monitor's.

int16_t SoftProofPredict(const uint8_t* source, uint16_t* destination, size_t count) {
    return MonitorPredict(source, destination, count);
}

int16_t SoftProofPredict16(const uint16_t* source, uint16_t* destination, size_t count) {
    return MonitorPredict16(source, destination, count);
}

int16_t SoftProofGamut(const uint16_t* source, uint8_t* destination, size_t count) {
    return MonitorGamut(source, destination, count);
}

uint32_t PrinterColourSpace() {
    try {
        const MatchingData* data = GetMatchingData();
        // Deliberate: the reference is not given back, so a record that was asked its colour space is never disposed of.
        return data ? DirectPrinterColourSpace(data) : kNoColourSpace;
    } catch (...) {
        return kNoColourSpace;
    }
}
