#pragma once

/// The shaper/matrix model evaluated from its curves and matrices alone, in exact whole numbers.

#include <array>
#include <cstdint>
#include <vector>

#include "colour/FixedPoint.h"
#include "tests/reference/OneDReference.h"

namespace reference {

using Colour16 = std::array<std::uint16_t, 3>;

struct Multiplied {
    Colour16 colour;
    bool clamped;
};

struct Model {
    std::array<std::vector<std::uint16_t>, 3> curves;
    FixedMatrix matrix;
    FixedMatrix inverseMatrix;
};

Multiplied MatrixMultiply(const FixedMatrix& matrix, const Colour16& in);
Colour16 Match(const Model& model, const Colour16& in);
Colour16 Predict(const Model& model, const Colour16& in);
std::uint8_t Gamut(const Model& model, const Colour16& in);

}  // namespace reference
