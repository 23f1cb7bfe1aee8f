#pragma once

/// What file references are made of, shared by forks, resource files and alias records. Paths are absolute, with the links in the folder
/// part resolved and a link as the last component kept: a reference can name a link itself.

#include <string>

#include "platform/Carbon.h"

namespace platform {

/// The classic status for a failed file call.
OSErr StatusFromErrno(int error);
/// Makes a reference to what stands at `path`, absolute or relative to the working directory; -43 when nothing does.
OSErr RefFromPath(const std::string& path, FSRef* ref);
/// The path of a reference, whatever stands there now; -50 for a reference that was never filled, -43 when nothing stands there.
OSErr PathFromRef(const FSRef* ref, std::string& path);
/// The path of a name in a folder, whether anything stands there or not; -37 for what no file here can be called.
OSErr PathInFolder(const FSRef* folder, UniCharCount nameLength, const UniChar* name, std::string& path);

}  // namespace platform
