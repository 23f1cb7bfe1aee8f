#pragma once

#include "colour/FixedPoint.h"

/// Whether the matrix has an inverse whose elements fit 32 bits: ICC_MatrixInverse answers for such a matrix. Exact; any thread.
bool HasInverse(const FixedMatrix& matrix);
