#include "appearance/kernels/PixelKernels.h"

#include "platform/MadeOnce.h"

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
    static constinit platform::MadeOnce<const PixelKernels> best;
    return *best.Get([] { return platform::BestAllowed(AllPixelKernels()); });
}

bool IsUsualGrid(const PixelTable& grid) {
    if (grid.shift > 15) return false;
    const uint32_t bits = 15 - grid.shift;
    return grid.cellSize == 1u << grid.shift && grid.fractionMask == grid.cellSize - 1 && grid.gridSize == (1u << bits) + 1 &&
           grid.indexMask == (2u << bits) - 1;
}
