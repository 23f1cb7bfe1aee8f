#include "appearance/kernels/PixelKernels.h"

#include "platform/MadeOnce.h"

std::span<const PixelKernels* const> AllPixelKernels() {
#define CM_SET(name, text, runs) &k##name##PixelKernels,
    static constexpr const PixelKernels* kSets[] = {&kPlainPixelKernels, &kPortablePixelKernels, CM_BUILT_X86_SETS(CM_SET)};
#undef CM_SET
    return kSets;
}

const PixelKernels& PixelKernelsInUse() {
    static constinit platform::MadeOnce<const PixelKernels> best;
    return *best.Get([] { return platform::BestAllowed(AllPixelKernels()); });
}
