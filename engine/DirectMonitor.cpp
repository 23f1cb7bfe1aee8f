#include "engine/DirectMonitor.h"

#include "colour/MatrixArithmetic.h"
#include "engine/ThreeDTables.h"
#include "engine/kernels/MonitorKernels.h"

namespace {

/// What answers for a record: the kernels over its tables, or null where the model itself must be evaluated. A count of 0 asks for no record.
const MonitorKernels* KernelsFor(const MatchingData* data, size_t count) {
    return count != 0 && data->monitorTables ? MonitorKernelsInUse() : nullptr;
}

}  // namespace

void DirectMonitorMatch(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count) {
    if (const MonitorKernels* const kernels = KernelsFor(data, count)) return kernels->match8(*data->monitorTables, in, out, count);
    for (size_t i = 0; i < count; ++i, in += 4, out += 4) {
        uint16_t device[3];
        Match_ShaperMatrix(&data->monitorShaper, in, device);
        for (int c = 0; c < 3; ++c) out[c + 1] = static_cast<uint8_t>(device[c] >> 8);
    }
}

void DirectMonitorMatch16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count) {
    if (const MonitorKernels* const kernels = KernelsFor(data, count)) return kernels->match16(*data->monitorTables, in, out, count);
    for (size_t i = 0; i < count; ++i) Match_ShaperMatrix(&data->monitorShaper, in + 4 * i, out + 4 * i);
}

void DirectMonitorPredict(const MatchingData* data, const uint8_t* in, uint16_t* out, size_t count) {
    if (const MonitorKernels* const kernels = KernelsFor(data, count)) return kernels->predict8(*data->monitorTables, in, out, count);
    for (size_t i = 0; i < count; ++i, in += 4, out += 4) {
        uint16_t device[3];
        for (int c = 0; c < 3; ++c) device[c] = static_cast<uint16_t>(in[c + 1] * 257);
        Predict_ShaperMatrix(&data->monitorShaper, device, out);
    }
}

void DirectMonitorPredict16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count) {
    if (const MonitorKernels* const kernels = KernelsFor(data, count)) return kernels->predict16(*data->monitorTables, in, out, count);
    for (size_t i = 0; i < count; ++i) Predict_ShaperMatrix(&data->monitorShaper, in + 4 * i, out + 4 * i);
}

void DirectMonitorGamut(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count) {
    if (const MonitorKernels* const kernels = KernelsFor(data, count)) return kernels->gamut(*data->monitorTables, in, out, count);
    for (size_t i = 0; i < count; ++i) Gamut_ShaperMatrix(&data->monitorShaper, in + 4 * i, out + i);
}

void Match_3DLut(const ThreeDTable* record, const uint16_t in[3], uint16_t out[3]) {
    uint16_t turned[3];
    uint8_t flag = 0;
    ICC_MatrixMultiply(&record->matrix, in, turned, &flag);
    ICC_ThreeDLookup(turned, record->table, record->gridPoints, out, 3, 3);
}

void Predict_3DLut(const ThreeDTable* record, const uint16_t in[3], uint16_t out[3]) {
    ICC_ThreeDLookup(in, record->table, record->gridPoints, out, 3, 3);
}

void Gamut_3DLut(const ThreeDTable* record, const uint16_t in[3], uint8_t* flag) {
    *flag = 0;
    uint16_t turned[3];
    ICC_MatrixMultiply(&record->matrix, in, turned, flag);
    if (*flag) return;
    uint16_t value;
    ICC_ThreeDLookup(turned, record->table, record->gridPoints, &value, 3, 1);
    *flag = static_cast<uint8_t>(value >> 8);
}

void Proof_3DLut(const ThreeDTable* record, const uint16_t in[3], uint16_t out[3]) {
    Match_3DLut(record, in, out);
}
