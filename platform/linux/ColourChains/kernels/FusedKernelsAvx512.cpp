#define CM_KERNEL_SET kAvx512
#define CM_FUSED_KERNELS kAvx512FusedKernels

#include "platform/linux/ColourChains/kernels/FusedKernelBodies.h"
