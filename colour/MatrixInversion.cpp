#include "colour/MatrixInversion.h"

#include <algorithm>
#include <cstddef>

namespace {

// A determinant takes up to 96 bits.
__extension__ typedef __int128 Int128;

Int128 Magnitude(Int128 value) {
    return value < 0 ? -value : value;
}

}  // namespace

bool HasInverse(const FixedMatrix& matrix) {
    const int32_t* m = matrix.element;
    Int128 determinant = 0;
    Int128 largestCofactor = 0;
    for (size_t row = 0; row < 3; ++row) {
        const int32_t* next = m + 3 * ((row + 1) % 3);
        const int32_t* last = m + 3 * ((row + 2) % 3);
        for (size_t column = 0; column < 3; ++column) {
            const size_t right = (column + 1) % 3;
            const size_t left = (column + 2) % 3;
            const Int128 cofactor = Int128{next[right]} * last[left] - Int128{next[left]} * last[right];
            largestCofactor = std::max(largestCofactor, Magnitude(cofactor));
            if (row == 0) determinant += m[column] * cofactor;
        }
    }
    // In s15.16 an element of the inverse is 2^32 * cofactor / determinant. Where the determinant is 0, none is smaller.
    return 2 * largestCofactor < Magnitude(determinant);
}
