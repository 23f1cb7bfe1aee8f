// Properties of the files that URLs name, and bookmarks, which are alias records here.

#include <glib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/Carbon.h"
#include "platform/linux/Carbon/CarbonStatus.h"
#include "platform/linux/CoreFoundation/CoreFoundationError.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/CoreFoundation/CoreFoundationURL.h"

namespace {

constinit const __CFString kFileSizeText{u"NSURLFileSizeKey"};
constinit const __CFString kShownNameText{u"NSURLLocalizedNameKey"};
constinit const __CFString kIsAliasFileText{u"NSURLIsAliasFileKey"};
constinit const __CFString kFileResourceIdentifierText{u"NSURLFileResourceIdentifierKey"};

CFStringRef CreateDisplayName(const char* path) {
    const std::unique_ptr<char, decltype(&g_free)> name(g_filename_display_basename(path), &g_free);
    return platform::CreateStringFromUTF8(name.get());
}

CFDataRef CreateIdentifier(const struct stat& about) {
    const uint64_t numbers[2] = {about.st_dev, about.st_ino};
    return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(numbers), sizeof numbers);
}

CFTypeRef CreateProperty(const char* path, const struct stat& about, CFStringRef key) {
    if (CFEqual(key, kCFURLFileSizeKey)) {
        const int64_t size = about.st_size;
        return S_ISREG(about.st_mode) ? CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &size) : nullptr;
    }
    if (CFEqual(key, kCFURLLocalizedNameKey)) return CreateDisplayName(path);
    if (CFEqual(key, kCFURLIsAliasFileKey)) return CFRetain(S_ISLNK(about.st_mode) ? kCFBooleanTrue : kCFBooleanFalse);
    if (CFEqual(key, kCFURLFileResourceIdentifierKey)) return CreateIdentifier(about);
    return nullptr;
}

struct DisposeAlias {
    void operator()(AliasPtr* alias) const { DisposeHandle(reinterpret_cast<Handle>(alias)); }
};
using OwnedAlias = std::unique_ptr<AliasPtr, DisposeAlias>;

int ErrnoFromStatus(OSErr status) {
    return status == kStatusFileNotFound || status == kNoSuchVolume ? ENOENT
           : status == kPermission                                  ? EACCES
           : status == kStatusNoMemory                              ? ENOMEM
                                                                    : EIO;
}

}  // namespace

const CFStringRef kCFURLFileSizeKey = &kFileSizeText;
const CFStringRef kCFURLLocalizedNameKey = &kShownNameText;
const CFStringRef kCFURLIsAliasFileKey = &kIsAliasFileText;
const CFStringRef kCFURLFileResourceIdentifierKey = &kFileResourceIdentifierText;

Boolean CFURLCopyResourcePropertyForKey(CFURLRef url, CFStringRef key, void* value, CFErrorRef* error) {
    const std::string_view path = platform::NativePath(url);
    struct stat about;
    if (path.empty() || lstat(path.data(), &about) != 0) {
        return platform::FailWithErrno(path.empty() ? EINVAL : errno, error);
    }
    const CFTypeRef property = CreateProperty(path.data(), about, key);
    std::memcpy(value, &property, sizeof property);
    return true;
}

CFDataRef CFURLCreateBookmarkDataFromFile(CFAllocatorRef allocator, CFURLRef file, CFErrorRef* error) {
    FSRef ref;
    Boolean wasAlias = false;
    AliasHandle alias = nullptr;
    OSErr status = file && CFURLGetFSRef(file, &ref) ? OSErr{0} : OSErr{kStatusFileNotFound};
    if (status == 0) status = FSResolveAliasFileWithMountFlags(&ref, true, nullptr, &wasAlias, kResolveAliasFileNoUI);
    if (status == 0 && wasAlias) status = FSNewAlias(nullptr, &ref, &alias);
    const OwnedAlias owner(alias);
    if (status != 0 || !alias) {
        platform::FailWithErrno(status == 0 ? EINVAL : ErrnoFromStatus(status), error);
        return nullptr;
    }
    const auto block = reinterpret_cast<Handle>(alias);
    return CFDataCreate(allocator, reinterpret_cast<const UInt8*>(*block), GetHandleSize(block));
}

CFURLRef CFURLCreateByResolvingBookmarkData(CFAllocatorRef allocator, CFDataRef bookmark, CFURLBookmarkResolutionOptions, CFURLRef, CFArrayRef,
                                            Boolean* isStale, CFErrorRef* error) {
    const OwnedAlias alias(reinterpret_cast<AliasHandle>(NewHandle(CFDataGetLength(bookmark))));
    if (!alias) {
        platform::FailWithErrno(ENOMEM, error);
        return nullptr;
    }
    if (CFDataGetLength(bookmark) > 0) {
        std::memcpy(*reinterpret_cast<Handle>(alias.get()), CFDataGetBytePtr(bookmark), static_cast<size_t>(CFDataGetLength(bookmark)));
    }
    FSRef ref;
    if (const OSErr status = FSResolveAliasWithMountFlags(nullptr, alias.get(), &ref, isStale, kResolveAliasFileNoUI)) {
        platform::FailWithErrno(ErrnoFromStatus(status), error);
        return nullptr;
    }
    return CFURLCreateFromFSRef(allocator, &ref);
}
