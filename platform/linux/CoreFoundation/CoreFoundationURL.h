#pragma once

#include <string_view>

#include "platform/CoreFoundation.h"

namespace platform {

/// The absolute native path of a file URL, without a trailing slash unless it is "/"; empty for any other URL, and for null. A zero
/// byte never stands in it. Lives as long as the URL; data() ends with a zero byte, so that it can go to a system call.
std::string_view NativePath(CFURLRef url);

}  // namespace platform
