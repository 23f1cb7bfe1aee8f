#include "appearance/kernels/PixelKernels.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

constinit std::atomic<const PixelKernels*> inUse = nullptr;

const PixelKernels* Choose() {
    const PixelKernels* const* const runnable = RunnablePixelKernels();
    const char* const wanted = std::getenv("CM_PIXEL_KERNELS");
    const PixelKernels* chosen = runnable[0];
    for (const PixelKernels* const* set = runnable; *set; ++set) {
        chosen = *set;
        if (wanted && std::strcmp(wanted, (*set)->name) == 0) break;
    }
    return chosen;
}

}  // namespace

const PixelKernels* const* RunnablePixelKernels() {
#ifdef CM_AVX2_KERNELS  // set by the build where it compiles them
    static const PixelKernels* const kWithAvx2[] = {&kPlainPixelKernels, &kAvx2PixelKernels, nullptr};
    if (__builtin_cpu_supports("avx2")) return kWithAvx2;
#endif
    static const PixelKernels* const kPlainAlone[] = {&kPlainPixelKernels, nullptr};
    return kPlainAlone;
}

const PixelKernels& PixelKernelsInUse() {
    const PixelKernels* chosen = inUse.load(std::memory_order_relaxed);
    if (!chosen) {
        // Two threads that come here at once choose the same.
        chosen = Choose();
        inUse.store(chosen, std::memory_order_relaxed);
    }
    return *chosen;
}
