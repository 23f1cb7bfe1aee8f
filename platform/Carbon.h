#pragma once

/// File references, forks, folders, resource files, alias records, relocatable memory blocks.
///
/// Status codes are the classic ones: 0 done, -35 no such volume, -36 input/output (also links that lead in a circle), -37 bad name, -39 end of
/// file, -42 too many open files, -43 file not found, -48 file exists, -50 parameter, -51 no open fork, -54 permission, -108 out of memory,
/// -109 null block, -192 no such resource, -193 no such resource file, -194 resource cannot be added, -199 damaged resource file,
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
enum { fsRdPerm = 1, fsRdWrPerm = 3, fsFromStart = 1 };

/// True when the URL names an existing file or folder.
CM_EXPORT Boolean CFURLGetFSRef(CFURLRef url, FSRef* ref);
/// Null for a reference that was never filled, or when nothing stands there any more.
CM_EXPORT CFURLRef CFURLCreateFromFSRef(CFAllocatorRef allocator, const FSRef* ref);

/// The data fork's name: empty.
CM_EXPORT OSErr FSGetDataForkName(HFSUniStr255* name);
/// "RESOURCE_FORK". A resource file is a plain file here, so that both forks of a file are the file itself.
CM_EXPORT OSErr FSGetResourceForkName(HFSUniStr255* name);
/// Opens a plain file for reading: one of the two forks, `permissions` fsRdPerm only. Never waits for a pipe or a device: those are -1302.
CM_EXPORT OSErr FSOpenFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName, SInt8 permissions, FSIORefNum* fork);
CM_EXPORT OSErr FSGetForkSize(FSIORefNum fork, SInt64* size);
/// -39 when the file ended before `requested` bytes; *actual tells how many came.
CM_EXPORT OSErr FSReadFork(FSIORefNum fork, UInt16 positionMode, SInt64 positionOffset, unsigned long requested, void* buffer, unsigned long* actual);
CM_EXPORT OSErr FSCloseFork(FSIORefNum fork);

typedef SInt16 FSVolumeRefNum;
typedef UInt32 TextEncoding;
enum { kUserDomain = -32763, kPreferencesFolderType = 0x70726566 /* 'pref' */ };

/// A reference to what stands in a folder under a name; -43 when nothing does, -37 for what cannot be a name. The hint is not looked at.
CM_EXPORT OSErr FSMakeFSRefUnicode(const FSRef* folder, UniCharCount nameLength, const UniChar* name, TextEncoding hint, FSRef* ref);
/// The user's preferences folder, $XDG_CONFIG_HOME or ~/.config; -43 when it is not there, or for another kind of folder, -35 for another domain.
///
/// createFolder   true: a folder that is not there is made, private to the user
CM_EXPORT OSErr FSFindFolder(FSVolumeRefNum domain, OSType folderType, Boolean createFolder, FSRef* folder);

// ---- resource files (one thread at a time) ----

typedef OSType ResType;
typedef SInt16 ResID;
typedef SInt16 ResourceCount;
typedef FSIORefNum ResFileRefNum;
typedef const unsigned char* ConstStr255Param;
typedef UInt32 FSCatalogInfoBitmap;
typedef struct FSCatalogInfo FSCatalogInfo;
typedef struct FSSpec* FSSpecPtr;

/// Makes a resource file without resources; -48 when something stands there already. Only 0 and null are allowed for the information, and
/// only the resource fork's name. `file` may be null.
CM_EXPORT OSErr FSCreateResourceFile(const FSRef* folder, UniCharCount nameLength, const UniChar* name, FSCatalogInfoBitmap whichInformation,
                                     const FSCatalogInfo* information, UniCharCount forkNameLength, const UniChar* forkName, FSRef* file,
                                     FSSpecPtr unused);
/// Opens a resource file with fsRdPerm or fsRdWrPerm and makes it the current one. -1 on failure (see ResError); -199 there for a damaged file.
CM_EXPORT ResFileRefNum FSOpenResFile(const FSRef* file, SInt8 permissions);
/// Writes out what was added, closes the file, and disposes of the handles of its resources. When it was the current one, the file that was opened
/// last among those still open becomes current.
CM_EXPORT void CloseResFile(ResFileRefNum file);
/// 0 when there is none.
CM_EXPORT ResFileRefNum CurResFile(void);
/// 0 means none.
CM_EXPORT void UseResFile(ResFileRefNum file);
/// The status of the calling thread's last call that is about resources.
CM_EXPORT OSErr ResError(void);

/// These work on the current file. A resource's handle belongs to the file: the same one each time, until it is released or the file closed.
CM_EXPORT ResourceCount Count1Resources(ResType type);
/// Null when there is no such resource (-192).
CM_EXPORT Handle Get1Resource(ResType type, ResID id);
/// Disposes of the handle, unless the resource was added and is not written yet; -192 for a handle that is no resource.
CM_EXPORT void ReleaseResource(Handle resource);
/// Makes a handle a resource; the file owns it unless this fails.
///
/// name   its length byte, then as many bytes
CM_EXPORT void AddResource(Handle data, ResType type, ResID id, ConstStr255Param name);

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
/// What stands at the recorded path comes first, also when it is another file by now; where nothing does, the file is looked for by its identity.
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
