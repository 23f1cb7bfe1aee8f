#include "Misc/CFURLFileAccess.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/Foundation.h"
#include "platform/Owned.h"
#include "platform/Posix.h"

namespace {

constexpr CFIndex kPathSize = 1024;
constexpr int kNoPath = 1;
constexpr int64_t kLargestRead = int64_t{1} << 30;  // systems differ in how much they take in one call

bool GetPath(CFURLRef url, char (&path)[kPathSize]) {
    return url && CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(path), kPathSize);
}

/// Null for a property that the object does not have.
template <typename Ref>
Owned<Ref> CopyProperty(CFURLRef url, CFStringRef key) {
    Ref value = nullptr;
    const bool known = url && CFURLCopyResourcePropertyForKey(url, key, &value, nullptr);
    return Owned<Ref>(known ? value : nullptr);
}

struct FinderInformation {
    uint32_t length;
    uint32_t objectType;
    unsigned char bytes[32];  // type, creator, and 24 further ones
};
static_assert(sizeof(FinderInformation) == 40);

int ReadFinderInformation(const char* path, FinderInformation* information) {
    attrlist wanted = {};
    wanted.bitmapcount = ATTR_BIT_MAP_COUNT;
    wanted.commonattr = ATTR_CMN_OBJTYPE | ATTR_CMN_FNDRINFO;
    *information = {};
    errno = 0;
    return getattrlist(path, &wanted, information, sizeof *information, 0);
}

/// A wrong length is the caller's mistake, also in a build without assertions.
void CheckLength(const char* text, const char* function, const char* expression) {
    if (std::strlen(text) == 4) return;
    std::fprintf(stderr, "Assertion failed: (%s), function %s.\n", expression, function);
    std::abort();
}

}  // namespace

bool WriteCFDataToFile(CFDataRef data, CFURLRef url) {
    return platform::WriteDataAtomically(data, url);
}

CFDataRef CreateCFDataWithContentsOfURL(CFURLRef url) {
    return platform::CreateDataWithContents(url);
}

CFDataRef CreateCFDataWithRangeOfContentsOfURL(CFURLRef url, int64_t offset, int64_t length) {
    char path[kPathSize];
    if (!GetPath(url, path)) return nullptr;
    // Without waiting for a pipe's other end or a line's carrier. What has bytes at an offset is read, devices too; a pipe has none.
    const int file = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (file < 0) return nullptr;
    Owned<CFMutableDataRef> data;
    // Deliberate: descriptor 0, which a process without standard input gets, counts as a failure.
    if (file > 0 && length >= 0) data.Reset(CFDataCreateMutable(kCFAllocatorDefault, length));
    if (data) CFDataSetLength(data.Get(), length);
    if (data && CFDataGetLength(data.Get()) != length) data.Reset(nullptr);
    int64_t done = 0;
    ssize_t count = 1;
    // Read once also for no bytes, as that tells whether there is anything to read from.
    while (data && count > 0) {
        const auto wanted = static_cast<size_t>(std::min(length - done, kLargestRead));
        count = pread(file, CFDataGetMutableBytePtr(data.Get()) + done, wanted, offset + done);
        if (count < 0) data.Reset(nullptr);
        if (count > 0) done += count;
    }
    close(file);
    if (data && done < length) CFDataSetLength(data.Get(), done);
    return data.Detach();
}

int64_t GetFileLength(CFURLRef url) {
    const Owned<CFNumberRef> size = CopyProperty<CFNumberRef>(url, kCFURLFileSizeKey);
    int64_t length = 0;
    if (size) CFNumberGetValue(size.Get(), kCFNumberSInt64Type, &length);
    return length;
}

int64_t FileLengthAtURL(CFURLRef url) {
    return platform::FileSize(url);
}

CFStringRef CopyDisplayNameForURL(CFURLRef url) {
    return CopyProperty<CFStringRef>(url, kCFURLLocalizedNameKey).Detach();
}

CFURLRef CreateActualFileURLForAlias(CFURLRef url) {
    if (!url) return nullptr;
    const Owned<CFBooleanRef> isAlias = CopyProperty<CFBooleanRef>(url, kCFURLIsAliasFileKey);
    if (!isAlias || !CFBooleanGetValue(isAlias.Get())) return Owned<CFURLRef>::Retain(url).Detach();
    const Owned<CFDataRef> bookmark(CFURLCreateBookmarkDataFromFile(kCFAllocatorDefault, url, nullptr));
    if (!bookmark) return nullptr;
    return CFURLCreateByResolvingBookmarkData(kCFAllocatorDefault, bookmark.Get(), kCFURLBookmarkResolutionWithoutUIMask, nullptr, nullptr, nullptr,
                                              nullptr);
}

bool CreateFolderAtURL(CFURLRef url) {
    char path[kPathSize];
    return GetPath(url, path) && (mkdir(path, 0777) == 0 || errno == EEXIST);
}

bool DeleteFileSystemObjectAtURL(CFURLRef url) {
    return platform::RemoveItem(url);
}

bool FileExistsAtURL(CFURLRef url) {
    return platform::IsRegularFile(url);
}

bool DirectoryExistsAtURL(CFURLRef url) {
    return platform::IsDirectory(url);
}

bool URLsReferToSameFileSystemObject(CFURLRef a, CFURLRef b) {
    const Owned<CFTypeRef> first = CopyProperty<CFTypeRef>(a, kCFURLFileResourceIdentifierKey);
    const Owned<CFTypeRef> second = CopyProperty<CFTypeRef>(b, kCFURLFileResourceIdentifierKey);
    return first && second && CFEqual(first.Get(), second.Get());
}

bool URLIsInTrash(CFURLRef url) {
    return platform::TrashContains(url);
}

OSType GetFileTypeFromFileURL(CFURLRef url) {
    char path[kPathSize];
    FinderInformation information;
    if (!GetPath(url, path)) return 0;
    if (ReadFinderInformation(path, &information) != 0 && errno != 0) return 0;
    if (information.objectType != VREG) return 0;
    const unsigned char* const type = information.bytes;
    return OSType{type[0]} << 24 | OSType{type[1]} << 16 | OSType{type[2]} << 8 | type[3];
}

int SetURLFinderInfo(CFURLRef url, const char* creator, const char* fileType) {
    char path[kPathSize];
    if (!GetPath(url, path)) return kNoPath;
    CheckLength(fileType, "SetURLFinderInfo", "strlen(fileType) == 4");
    CheckLength(creator, "SetURLFinderInfo", "strlen(creator) == 4");
    FinderInformation information;
    if (ReadFinderInformation(path, &information) == 0 && information.objectType != VREG) {
        std::fprintf(stderr, "SetURLFinderInfo: %s is not a standard file.\n", path);
        return EINVAL;
    }
    std::memcpy(information.bytes, fileType, 4);
    std::memcpy(information.bytes + 4, creator, 4);
    attrlist given = {};
    given.bitmapcount = ATTR_BIT_MAP_COUNT;
    given.commonattr = ATTR_CMN_FNDRINFO;
    return setattrlist(path, &given, information.bytes, sizeof information.bytes, 0) == 0 ? 0 : errno;
}

char* OSTypeToStr(OSType code, char* buffer) {
    for (int i = 0; i < 4; ++i) buffer[i] = static_cast<char>(code >> (24 - 8 * i));
    buffer[4] = 0;
    return buffer;
}

CFErrorRef CreateErrorFromErrno(CFStringRef description, int number) {
    const Owned<CFMutableDictionaryRef> information(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!information) return nullptr;
    const Owned<CFStringRef> reason(CFStringCreateWithCString(kCFAllocatorDefault, std::strerror(number), kCFStringEncodingUTF8));
    if (description) CFDictionarySetValue(information.Get(), kCFErrorLocalizedDescriptionKey, description);
    if (reason) CFDictionarySetValue(information.Get(), kCFErrorLocalizedFailureReasonKey, reason.Get());
    return CFErrorCreate(kCFAllocatorDefault, kCFErrorDomainPOSIX, number, information.Get());
}
