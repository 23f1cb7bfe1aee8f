#include "appearance/kernels/PixelKernels.h"

std::span<const PixelKernels* const> AllPixelKernels() {
    static constexpr const PixelKernels* kSets[] = {
        &kPlainPixelKernels, &kPortablePixelKernels,
#ifdef CM_NEON_KERNELS
        &kNeonPixelKernels,
#endif
#ifdef CM_AVX_KERNELS
        &kAvx2PixelKernels,  &kAvx512PixelKernels,
#endif
    };
    return kSets;
}

const PixelKernels& PixelKernelsInUse() {
    static const PixelKernels& best = *platform::BestAllowed(AllPixelKernels());
    return best;
}

bool IsUsualGrid(const PixelTable& grid) {
    if (grid.shift > 15) return false;
    const uint32_t bits = 15 - grid.shift;
    return grid.cellSize == 1u << grid.shift && grid.fractionMask == grid.cellSize - 1 && grid.gridSize == (1u << bits) + 1 &&
           grid.indexMask == (2u << bits) - 1;
}
