#define CM_KERNEL_SET kAvx512
#define CM_MONITOR_KERNELS kAvx512MonitorKernels

#include "engine/kernels/MonitorKernelBodies.h"
