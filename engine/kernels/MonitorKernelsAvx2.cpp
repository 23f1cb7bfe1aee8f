#define CM_KERNEL_SET kAvx2
#define CM_MONITOR_KERNELS kAvx2MonitorKernels

#include "engine/kernels/MonitorKernelBodies.h"
