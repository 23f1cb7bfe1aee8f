#define CM_FUSED_LANES 8
#define CM_FUSED_SET kAvx2
#define CM_FUSED_NAME "AVX2"
#define CM_FUSED_KERNELS kFusedAvx2

#include "platform/linux/ColourChains/kernels/FusedKernelBodies.h"
