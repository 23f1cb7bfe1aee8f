#include "engine/kernels/MonitorKernels.h"

#include <algorithm>

#include "platform/MadeOnce.h"

namespace {

/// As ICC_MatrixMultiply, whose flag is true where a sum passes either end.
inline bool Multiply(const FixedMatrix& matrix, uint32_t x, uint32_t y, uint32_t z, uint16_t out[3]) {
    constexpr int64_t kLargest = 65535LL * 65536;
    bool clamped = false;
    const int32_t* m = matrix.element;
    for (int row = 0; row < 3; ++row, m += 3) {
        const int64_t sum = int64_t{m[0]} * x + int64_t{m[1]} * y + int64_t{m[2]} * z;
        clamped |= sum < 0 || sum > kLargest;
        out[row] = static_cast<uint16_t>(std::clamp<int64_t>((sum + 32768) >> 16, 0, 65535));
    }
    return clamped;
}

void Match8(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    for (size_t i = 0; i < count; ++i, in += 4, out += 4) {
        uint16_t linear[3];
        Multiply(tables.inverseMatrix, in[0], in[1], in[2], linear);
        for (int c = 0; c < 3; ++c) out[c + 1] = static_cast<uint8_t>(tables.toDevice[c][linear[c]] >> 8);
    }
}

void Match16(const MonitorTables& tables, const uint16_t* in, uint16_t* out, size_t count) {
    for (size_t i = 0; i < count; ++i, in += 4, out += 4) {
        uint16_t linear[3];
        Multiply(tables.inverseMatrix, in[0], in[1], in[2], linear);
        for (int c = 0; c < 3; ++c) out[c] = tables.toDevice[c][linear[c]];
    }
}

void Predict8(const MonitorTables& tables, const uint8_t* in, uint16_t* out, size_t count) {
    for (size_t i = 0; i < count; ++i, in += 4, out += 4) {
        uint16_t linear[3];
        for (int c = 0; c < 3; ++c) linear[c] = tables.toLinear[c][in[c + 1] * size_t{257}];
        Multiply(tables.matrix, linear[0], linear[1], linear[2], out);
    }
}

void Predict16(const MonitorTables& tables, const uint16_t* in, uint16_t* out, size_t count) {
    for (size_t i = 0; i < count; ++i, in += 4, out += 4) {
        Multiply(tables.matrix, tables.toLinear[0][in[0]], tables.toLinear[1][in[1]], tables.toLinear[2][in[2]], out);
    }
}

void Gamut(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    for (size_t i = 0; i < count; ++i, in += 4) {
        uint16_t linear[3];
        bool outside = Multiply(tables.inverseMatrix, in[0], in[1], in[2], linear);
        for (int c = 0; c < 3; ++c) outside |= linear[c] < tables.lowest[c] || linear[c] > tables.highest[c];
        out[i] = outside ? 255 : 0;
    }
}

}  // namespace

const MonitorKernels kPlainMonitorKernels = {platform::InstructionSet::kPlain, Match8, Match16, Predict8, Predict16, Gamut};

std::span<const MonitorKernels* const> AllMonitorKernels() {
#define CM_SET(name, text, runs) &k##name##MonitorKernels,
    static constexpr const MonitorKernels* kSets[] = {&kPortableMonitorKernels, CM_BUILT_X86_SETS(CM_SET)};
#undef CM_SET
    return kSets;
}

const MonitorKernels* MonitorKernelsInUse() {
    static constinit platform::MadeOnce<const MonitorKernels> best;
    return best.Get([] { return platform::BestAllowed(AllMonitorKernels()); });
}
