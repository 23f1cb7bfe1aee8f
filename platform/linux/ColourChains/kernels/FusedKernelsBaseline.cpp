#define CM_FUSED_LANES 4
#define CM_FUSED_SET kPlain
#define CM_FUSED_NAME "baseline"
#define CM_FUSED_KERNELS kFusedBaseline

#include "platform/linux/ColourChains/kernels/FusedKernelBodies.h"
