#include "session/ColourOperations.h"

#include "engine/DirectPrinter.h"
#include "platform/Codes.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingRecord.h"

namespace {

constexpr uint32_t kNoColourSpace = 1;

/// Runs an operation on the current matching data: its answer, or 1000 when there is none.
///
/// Deliberate: when the operation raises, the status is 0 and the reference is not given back, so that record outlives its replacement.
template <typename Source, typename Destination>
int16_t OnCurrent(int16_t operate(const MatchingData*, const Source*, Destination*, size_t), const Source* source, Destination* destination,
                  size_t count) noexcept {
    int16_t status = kStatusNoMatchingData;
    try {
        MatchingData* data = GetMatchingData();
        if (!data) return status;
        status = 0;
        status = operate(data, source, destination, count);
        ReleaseMatchingData(data);
    } catch (...) {
    }
    return status;
}

}  // namespace

int16_t MonitorMatch(const uint16_t* source, uint8_t* destination, size_t count) {
    return OnCurrent(RecordMonitorMatch, source, destination, count);
}

int16_t MonitorMatch16(const uint16_t* source, uint16_t* destination, size_t count) {
    return OnCurrent(RecordMonitorMatch16, source, destination, count);
}

int16_t MonitorPredict(const uint8_t* source, uint16_t* destination, size_t count) {
    return OnCurrent(RecordMonitorPredict, source, destination, count);
}

int16_t MonitorPredict16(const uint16_t* source, uint16_t* destination, size_t count) {
    return OnCurrent(RecordMonitorPredict16, source, destination, count);
}

int16_t MonitorGamut(const uint16_t* source, uint8_t* destination, size_t count) {
    return OnCurrent(RecordMonitorGamut, source, destination, count);
}

int16_t PrinterMatch(const uint16_t* source, uint8_t* destination, size_t count) {
    return OnCurrent(RecordPrinterMatch, source, destination, count);
}

int16_t PrinterMatch16(const uint16_t* source, uint16_t* destination, size_t count) {
    return OnCurrent(RecordPrinterMatch16, source, destination, count);
}

int16_t PrinterPredict(const uint8_t* source, uint16_t* destination, size_t count) {
    return OnCurrent(RecordPrinterPredict, source, destination, count);
}

int16_t PrinterPredict16(const uint16_t* source, uint16_t* destination, size_t count) {
    return OnCurrent(RecordPrinterPredict16, source, destination, count);
}

int16_t PrinterGamut(const uint16_t* source, uint8_t* destination, size_t count) {
    return OnCurrent(RecordPrinterGamut, source, destination, count);
}

int16_t SoftProofMatch(const uint16_t* source, uint8_t* destination, size_t count) {
    return OnCurrent(RecordSoftProofMatch, source, destination, count);
}

int16_t SoftProofMatch16(const uint16_t* source, uint16_t* destination, size_t count) {
    return OnCurrent(RecordSoftProofMatch16, source, destination, count);
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
