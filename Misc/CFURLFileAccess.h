#pragma once

/// Questions about files named by URLs, and reading and writing them whole or in part. Nothing is raised: a failure is an empty result (null, 0 or
/// false), as is a URL that names no file. Results of Create and Copy functions belong to the caller. Any thread.

#include <stdbool.h>
#include <stdint.h>

#include "platform/CoreFoundation.h"

CM_C_BEGIN

/// Writes a whole file or nothing, through links; false for a folder and for what is no plain file.
CM_EXPORT bool WriteCFDataToFile(CFDataRef data, CFURLRef url);
CM_EXPORT CFDataRef CreateCFDataWithContentsOfURL(CFURLRef url);
/// Up to `length` bytes from `offset`: fewer where the file ends before, none past its end.
CM_EXPORT CFDataRef CreateCFDataWithRangeOfContentsOfURL(CFURLRef url, int64_t offset, int64_t length);

CM_EXPORT int64_t GetFileLength(CFURLRef url);
/// 0 also for what is no plain file.
CM_EXPORT int64_t FileLengthAtURL(CFURLRef url);
/// The name as shown to users.
CM_EXPORT CFStringRef CopyDisplayNameForURL(CFURLRef url);
/// Where an alias file leads; the URL itself, with one more reference, for any other file. Null for an alias that leads nowhere.
CM_EXPORT CFURLRef CreateActualFileURLForAlias(CFURLRef url);

/// True also when something of that name stands there already.
CM_EXPORT bool CreateFolderAtURL(CFURLRef url);
/// Removes a file, a link itself, or a folder with all it holds. False, with all left as it is, also for the root, a mount point, a home folder, the
/// current folder, and a folder that holds one of them.
CM_EXPORT bool DeleteFileSystemObjectAtURL(CFURLRef url);
CM_EXPORT bool FileExistsAtURL(CFURLRef url);
CM_EXPORT bool DirectoryExistsAtURL(CFURLRef url);
CM_EXPORT bool URLsReferToSameFileSystemObject(CFURLRef a, CFURLRef b);
/// Whether it lies inside a trash folder; the trash folder itself does not.
CM_EXPORT bool URLIsInTrash(CFURLRef url);

/// The file's type code; 0 for a folder, and for a file without one.
CM_EXPORT OSType GetFileTypeFromFileURL(CFURLRef url);
/// Gives a file its creator and type, four characters each; other lengths stop the process. 0, 1 for a URL without a path, 22 (and a line on
/// standard error) for what is no plain file, else the number of the error.
CM_EXPORT int SetURLFinderInfo(CFURLRef url, const char* creator, const char* fileType);
/// The code's characters and a terminating 0; answers the buffer, of 5 bytes.
CM_EXPORT char* OSTypeToStr(OSType code, char* buffer);

/// An error of the domain NSPOSIXErrorDomain with the number's text as its reason.
CM_EXPORT CFErrorRef CreateErrorFromErrno(CFStringRef description, int number);

CM_C_END
