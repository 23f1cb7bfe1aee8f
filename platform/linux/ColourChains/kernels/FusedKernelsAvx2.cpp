#define CM_KERNEL_SET kAvx2
#define CM_FUSED_KERNELS kAvx2FusedKernels

#include "platform/linux/ColourChains/kernels/FusedKernelBodies.h"
