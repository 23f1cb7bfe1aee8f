#pragma once

#include <string>

namespace platform {

/// The folder `colourmatch-2` beside the file that holds this code: the shared library, or the program it is linked into.
///
/// Links are resolved, without a trailing slash; empty when the file cannot be found. The folder itself need not exist. The file is looked
/// up when the code is loaded, so later changes of the current directory make no difference. Any thread.
std::string ResourceFolder();

}  // namespace platform
