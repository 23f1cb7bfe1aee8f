#include "colour/ChromaticAdaptation.h"

#include "colour/GuardedArithmetic.h"
#include "colour/MatrixArithmetic.h"

const FixedXYZ PCSWhite = {63190, 65536, 54061};
const FixedXYZ D65White = {62273, 65536, 71335};
const FixedMatrix bradfordMatrix = {{58661, 17459, -10578, -49165, 112296, 2405, 2549, -4496, 67476}};

namespace {

// Computed on first use and kept; the flag only ever goes from unset to set.
FixedMatrix inverseBradford;
bool setupInverse = false;

/// destination / source in s15.16, rounded for positive responses.
int32_t ConeScale(int32_t source, int32_t destination) {
    return QuotientOrZero(int64_t{destination} * kFixedOne + source / 2, source);
}

}  // namespace

void BradfordTransform(const FixedXYZ* source, const FixedXYZ* destination, FixedMatrix* result) {
    if (!setupInverse) {
        ICC_MatrixInverse(&bradfordMatrix, &inverseBradford);
        ICC_ImproveMatrixInverse(&bradfordMatrix, &inverseBradford);
        setupInverse = true;
    }

    FixedXYZ sourceCones;
    FixedXYZ destinationCones;
    ICC_FixedMatrixMultiply(&bradfordMatrix, source, &sourceCones);
    ICC_FixedMatrixMultiply(&bradfordMatrix, destination, &destinationCones);

    FixedMatrix scale;
    ICC_MatrixIdentity(&scale);
    scale.element[0] = ConeScale(sourceCones.X, destinationCones.X);
    scale.element[4] = ConeScale(sourceCones.Y, destinationCones.Y);
    scale.element[8] = ConeScale(sourceCones.Z, destinationCones.Z);

    FixedMatrix scaledCones;
    ICC_MatrixConcat(&scale, &bradfordMatrix, &scaledCones);
    ICC_MatrixConcat(&inverseBradford, &scaledCones, result);
}
