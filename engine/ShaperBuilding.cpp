#include "engine/ShaperBuilding.h"

#include <cstdlib>
#include <cstring>

#include "engine/ReverseSegments.h"
#include "platform/Codes.h"

int CopyCurves(const ICC_ShaperMatrix& source, ICC_ShaperMatrix* copy) {
    *copy = {{}, {}, source.matrix, source.inverseMatrix, {}};
    for (int c = 0; c < 3; ++c) {
        const size_t entries = size_t{source.counts[c]} + 1;  // with the guard
        copy->curves[c] = static_cast<uint16_t*>(std::calloc(entries, sizeof(uint16_t)));
        if (!copy->curves[c]) return kStatusNoMemory;
        std::memcpy(copy->curves[c], source.curves[c], entries * sizeof(uint16_t));
        copy->counts[c] = source.counts[c];
    }
    return 0;
}

int BuildReverseTables(ICC_ShaperMatrix* shaper, int* swinging) {
    if (swinging) *swinging = -1;
    uint64_t room = uint64_t{20} << 20;
    int status = 0;
    for (int c = 0; c < 3 && status == 0; ++c) {
        status = BuildReverseTableWithin(shaper->curves[c], static_cast<int>(shaper->counts[c]), &room, &shaper->reverse[c]);
        if (status != 0 && room == 0 && swinging) *swinging = c;
    }
    return status;
}
