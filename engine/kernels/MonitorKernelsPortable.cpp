#define CM_KERNEL_SET kPortable
#define CM_MONITOR_KERNELS kPortableMonitorKernels

#include "engine/kernels/MonitorKernelBodies.h"
