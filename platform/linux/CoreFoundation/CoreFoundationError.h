#pragma once

#include "platform/CoreFoundation.h"

namespace platform {

/// Answers false, with an error of this number for the caller where one is wanted.
bool FailWithErrno(int number, CFErrorRef* error);

}  // namespace platform
