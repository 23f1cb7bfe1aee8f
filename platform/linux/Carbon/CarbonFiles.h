#pragma once

/// What file references are made of, shared by forks, resource files and alias records. Paths are absolute, with the links in the folder
/// part resolved and a link as the last component kept: a reference can name a link itself.

#include <string>

#include "platform/Carbon.h"

namespace platform {

/// The absolute path of what stands at `path`, links in its folder part resolved, a link as its last component kept. 0 or an errno value.
int CanonicalPath(const std::string& path, std::string& canonical);
/// Where writing to `path` goes: to the end of the chain of links that starts there, whether anything stands at that end or not. 0 or an errno value:
/// ELOOP for links in a circle, EACCES for those that may not be followed.
int EndOfLinks(const std::string& path, std::string& end);

/// The classic status for a failed file call.
OSErr StatusFromErrno(int error);
/// Makes a reference to what stands at `path`, absolute or relative to the working directory; -43 when nothing does.
OSErr RefFromPath(const std::string& path, FSRef* ref);
/// The path of a reference, whatever stands there now; -50 for a reference that was never filled, -43 when nothing stands there.
OSErr PathFromRef(const FSRef* ref, std::string& path);
/// Ends the references to a folder that is gone for good and to what it held, so that they take no memory any longer; they answer -43.
void ForgetRefsWithin(const std::string& canonicalFolder);
/// The path of a name in a folder, whether anything stands there or not; -37 for what no file here can be called.
OSErr PathInFolder(const FSRef* folder, UniCharCount nameLength, const UniChar* name, std::string& path);

/// Whether a fork's name is the one that FSGetResourceForkName answers.
bool IsResourceForkName(UniCharCount length, const UniChar* name);

}  // namespace platform
