#pragma once

#include <string>

namespace platform {

/// Whether an item must not be removed whatever asks for it: the root, a mount point, a home folder (that of HOME and that of the password
/// database), the current folder, and every folder that holds one of these. Told by what stands at the path, so by any name for it; of a link that is
/// the link itself, which may always go.
///
/// canonicalPath   as CanonicalPath has it
bool IsIndispensable(const std::string& canonicalPath);

}  // namespace platform
