#define CM_KERNEL_SET kAvx512
#define CM_PIXEL_KERNELS kAvx512PixelKernels

#include "appearance/kernels/PixelKernelBodies.h"
