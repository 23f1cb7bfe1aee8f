#define CM_KERNEL_SET kPortable
#define CM_FUSED_KERNELS kPortableFusedKernels

#include "platform/linux/ColourChains/kernels/FusedKernelBodies.h"
