#pragma once

#include <stdint.h>

#include "platform/Export.h"

/// 1.0 of 16-bit channel values.
CM_CONSTANT(uint32_t, kFull65535, 65535);
