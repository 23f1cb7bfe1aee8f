#include "engine/ShaperMatrix.h"

#include <cstdlib>

#include "colour/MatrixArithmetic.h"

namespace {

/// A channel whose curve has no reverse table answers 0.
uint16_t ReverseLookup(uint16_t y, const ICC_ReverseTable* table, uint8_t* flag) {
    return table ? ICC_ReverseOneDLookup(y, table, flag) : uint16_t{0};
}

}  // namespace

void Match_ShaperMatrix(const ICC_ShaperMatrix* shaper, const uint16_t in[3], uint16_t out[3]) {
    uint16_t linear[3];
    uint8_t flag = 0;
    ICC_MatrixMultiply(&shaper->inverseMatrix, in, linear, &flag);
    for (int c = 0; c < 3; ++c) out[c] = ReverseLookup(linear[c], shaper->reverse[c], &flag);
}

void Predict_ShaperMatrix(const ICC_ShaperMatrix* shaper, const uint16_t in[3], uint16_t out[3]) {
    uint16_t linear[3];
    uint8_t flag = 0;
    for (int c = 0; c < 3; ++c) linear[c] = ICC_OneDLookup(in[c], shaper->curves[c], shaper->counts[c]);
    ICC_MatrixMultiply(&shaper->matrix, linear, out, &flag);
}

void Gamut_ShaperMatrix(const ICC_ShaperMatrix* shaper, const uint16_t in[3], uint8_t* flag) {
    *flag = 0;
    uint16_t linear[3];
    ICC_MatrixMultiply(&shaper->inverseMatrix, in, linear, flag);
    if (*flag) return;
    for (int c = 0; c < 3; ++c) ReverseLookup(linear[c], shaper->reverse[c], flag);
}

void DeleteShaperMatrix(ICC_ShaperMatrix* shaper) {
    for (uint16_t*& curve : shaper->curves) {
        std::free(curve);
        curve = nullptr;
    }
    for (ICC_ReverseTable*& reverse : shaper->reverse) {
        ICC_DisposeReverseTable(reverse);
        reverse = nullptr;
    }
}
