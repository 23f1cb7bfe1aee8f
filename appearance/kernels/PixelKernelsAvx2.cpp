#define CM_KERNEL_SET kAvx2
#define CM_PIXEL_KERNELS kAvx2PixelKernels

#include "appearance/kernels/PixelKernelBodies.h"
