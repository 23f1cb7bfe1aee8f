#include "tests/reference/ShaperReference.h"

namespace reference {

Multiplied MatrixMultiply(const FixedMatrix& matrix, const Colour16& in) {
    Multiplied result{};
    for (std::size_t row = 0; row < 3; ++row) {
        Wide sum = 0;
        for (std::size_t column = 0; column < 3; ++column) sum += Wide{matrix.element[3 * row + column]} * in[column];
        const Wide largest = Wide{65535} * 65536;
        const Wide inside = sum < 0 ? 0 : sum > largest ? largest : sum;
        if (inside != sum) result.clamped = true;
        result.colour[row] = static_cast<std::uint16_t>((inside + 32768) / 65536);
    }
    return result;
}

Colour16 Match(const Model& model, const Colour16& in) {
    const Colour16 linear = MatrixMultiply(model.inverseMatrix, in).colour;
    Colour16 out{};
    for (std::size_t c = 0; c < 3; ++c) out[c] = ReverseOneDLookup(linear[c], model.curves[c]).value;
    return out;
}

Colour16 Predict(const Model& model, const Colour16& in) {
    Colour16 linear{};
    for (std::size_t c = 0; c < 3; ++c) linear[c] = OneDLookup(in[c], model.curves[c]);
    return MatrixMultiply(model.matrix, linear).colour;
}

std::uint8_t Gamut(const Model& model, const Colour16& in) {
    const Multiplied linear = MatrixMultiply(model.inverseMatrix, in);
    if (linear.clamped) return 255;
    for (std::size_t c = 0; c < 3; ++c) {
        if (ReverseOneDLookup(linear.colour[c], model.curves[c]).flag != 0) return 255;
    }
    return 0;
}

}  // namespace reference
