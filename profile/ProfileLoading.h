#pragma once

/// Opening profiles from alias records, file references and the library's own resources.
///
/// Status codes: 0 done, -43 a named or resolved file is missing, -50 the file is larger than 20 MiB, -108 there is no memory for it, else the code
/// of the failing file call. A Create result belongs to the caller (CFRelease); null means failure. Any thread.

#include "platform/Carbon.h"
#include "platform/ColorSync.h"

CM_C_BEGIN

/// Resolves the record and then chains of alias files, without user interaction.
CM_EXPORT OSErr GetAliasTarget(AliasHandle alias, FSRef* target);
/// The POSIX path of the alias's target, or null (also for a null alias). The caller releases it.
CM_EXPORT CFStringRef LocateProfilePath(AliasHandle alias);
/// The POSIX path of the library's own "icc" resource of that name, or null. The caller releases it.
CM_EXPORT CFStringRef LocateResourceProfilePath(CFStringRef name);

/// On an alias that does not resolve, also writes one line to standard error.
CM_EXPORT ColorSyncProfileRef CreateProfileFromAlias(AliasHandle alias, OSErr* error);
/// A file that was read but is no profile gives null with error 0.
CM_EXPORT ColorSyncProfileRef CreateProfileFromFSRef(const FSRef* file, OSErr* error);
CM_EXPORT ColorSyncProfileRef CreateProfileFromNamedResource(CFStringRef name, OSErr* error);

CM_C_END
