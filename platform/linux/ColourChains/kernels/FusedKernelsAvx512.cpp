#define CM_FUSED_LANES 16
#define CM_FUSED_SET kAvx512
#define CM_FUSED_NAME "AVX-512"
#define CM_FUSED_KERNELS kFusedAvx512

#include "platform/linux/ColourChains/kernels/FusedKernelBodies.h"
