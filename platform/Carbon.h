#pragma once

/// File references, forks, alias records, relocatable memory blocks.
///
/// Status codes are the classic ones: 0 done, -35 no such volume, -36 input/output (also links that lead in a circle), -39 end of file,
/// -42 too many open files, -43 file not found, -50 parameter, -51 no open fork, -54 permission, -108 out of memory, -109 null block,
/// -1302 no plain file, -1409 no such fork.

#include "platform/CoreFoundation.h"

#if defined(__APPLE__)

#include <Carbon/Carbon.h>

#elif defined(__linux__)

CM_C_BEGIN

// ---- memory ----

typedef char* Ptr;
typedef Ptr* Handle;
typedef long Size;

/// A relocatable block: a pointer to the block's address. Zero bytes long is allowed. Null when there is no memory.
CM_EXPORT Handle NewHandle(Size size);
/// Nothing happens for a null handle.
CM_EXPORT void DisposeHandle(Handle handle);
/// The block's size, or a negative status (-109) for a null handle.
CM_EXPORT Size GetHandleSize(Handle handle);
CM_EXPORT void HLock(Handle handle);
CM_EXPORT void HUnlock(Handle handle);
/// Replaces *handle by a handle to a copy of its block. -109 for a null handle, -108 without memory (*handle is then unchanged).
CM_EXPORT OSErr HandToHand(Handle* handle);
CM_EXPORT Ptr NewPtr(Size size);
CM_EXPORT void DisposePtr(Ptr block);
CM_EXPORT Size GetPtrSize(Ptr block);
/// The status of the calling thread's last memory call.
CM_EXPORT OSErr MemError(void);

/// Stops in an attached debugger (SIGTRAP); does nothing when none is attached.
CM_EXPORT void Debugger(void);

// ---- file references and forks ----

/// Names an existing file or folder (or a link itself) within this process, by its place: after a safe save it names the new file.
/// A plain record: copy it freely. One that was never filled gives -50.
typedef struct FSRef {
    UInt8 hidden[80];
} FSRef;

typedef struct HFSUniStr255 {
    UInt16 length;
    UniChar unicode[255];
} HFSUniStr255;

typedef int FSIORefNum;
enum { fsRdPerm = 1, fsFromStart = 1 };

/// True when the URL names an existing file or folder.
CM_EXPORT Boolean CFURLGetFSRef(CFURLRef url, FSRef* ref);
/// Null for a reference that was never filled, or when nothing stands there any more.
CM_EXPORT CFURLRef CFURLCreateFromFSRef(CFAllocatorRef allocator, const FSRef* ref);

/// The data fork's name: empty.
CM_EXPORT OSErr FSGetDataForkName(HFSUniStr255* name);
/// Opens a plain file for reading: the data fork only, `permissions` fsRdPerm only. Never waits for a pipe or a device: those are -1302.
CM_EXPORT OSErr FSOpenFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName, SInt8 permissions, FSIORefNum* fork);
CM_EXPORT OSErr FSGetForkSize(FSIORefNum fork, SInt64* size);
/// -39 when the file ended before `requested` bytes; *actual tells how many came.
CM_EXPORT OSErr FSReadFork(FSIORefNum fork, UInt16 positionMode, SInt64 positionOffset, unsigned long requested, void* buffer, unsigned long* actual);
CM_EXPORT OSErr FSCloseFork(FSIORefNum fork);

// ---- alias records ----

typedef struct AliasRecord {
    OSType userType;
    UInt16 aliasSize;
} AliasRecord;
typedef AliasRecord* AliasPtr;
typedef AliasPtr* AliasHandle;

enum { kResolveAliasFileNoUI = 0x00000001 };

/// A persistent reference to an existing file: found again after a rename or a move nearby, or when a safe save replaced the file.
/// The caller disposes of *alias with DisposeHandle. The block can be copied and stored byte for byte.
CM_EXPORT OSErr FSNewAlias(const FSRef* fromFile, const FSRef* target, AliasHandle* alias);
/// -43 when the file is gone, -35 when its volume is not there, -50 for bytes that are no alias record. `wasChanged` tells that the
/// file is at another path now; the record itself stays as it is.
CM_EXPORT OSErr FSResolveAlias(const FSRef* fromFile, AliasHandle alias, FSRef* target, Boolean* wasChanged);
CM_EXPORT OSErr FSResolveAliasWithMountFlags(const FSRef* fromFile, AliasHandle alias, FSRef* target, Boolean* wasChanged, unsigned long mountFlags);
/// Follows `ref` when it is an alias file (a symbolic link), in place: to the end of the chain, or one step.
CM_EXPORT OSErr FSResolveAliasFileWithMountFlags(FSRef* ref, Boolean resolveAliasChains, Boolean* targetIsFolder, Boolean* wasAliased,
                                                 unsigned long mountFlags);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
