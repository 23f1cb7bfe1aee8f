#define CM_KERNEL_SET kPortable
#define CM_PIXEL_KERNELS kPortablePixelKernels

#include "appearance/kernels/PixelKernelBodies.h"
