// Type and creator of files, kept in an extended attribute.

#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/Posix.h"

namespace {

constexpr char kAttribute[] = "user.colourmatch.finderinfo";
constexpr size_t kInformationSize = 32;
constexpr size_t kStoredSize = 8;

bool IsWellFormed(const attrlist* wanted, uint32_t allowed) {
    return wanted->bitmapcount == ATTR_BIT_MAP_COUNT && (wanted->commonattr & ~allowed) == 0 && wanted->volattr == 0 && wanted->dirattr == 0 &&
           wanted->fileattr == 0 && wanted->forkattr == 0;
}

}  // namespace

int getattrlist(const char* path, void* attributes, void* buffer, size_t size, unsigned) {
    const auto* wanted = static_cast<const attrlist*>(attributes);
    if (!IsWellFormed(wanted, ATTR_CMN_OBJTYPE | ATTR_CMN_FNDRINFO)) {
        errno = EINVAL;
        return -1;
    }
    struct stat about;
    if (stat(path, &about) != 0) return -1;
    unsigned char answer[8 + kInformationSize] = {};
    uint32_t length = 4;
    if (wanted->commonattr & ATTR_CMN_OBJTYPE) {
        const uint32_t type = S_ISREG(about.st_mode) ? VREG : S_ISDIR(about.st_mode) ? VDIR : VNON;
        std::memcpy(answer + length, &type, sizeof type);
        length += sizeof type;
    }
    if (wanted->commonattr & ATTR_CMN_FNDRINFO) {
        unsigned char stored[kStoredSize];
        // A file without the attribute, and a volume without attributes, have no type.
        if (getxattr(path, kAttribute, stored, sizeof stored) == sizeof stored) std::memcpy(answer + length, stored, sizeof stored);
        length += kInformationSize;
    }
    std::memcpy(answer, &length, sizeof length);
    std::memcpy(buffer, answer, std::min<size_t>(size, length));
    return 0;
}

int setattrlist(const char* path, void* attributes, void* buffer, size_t size, unsigned) {
    const auto* given = static_cast<const attrlist*>(attributes);
    if (!IsWellFormed(given, ATTR_CMN_FNDRINFO) || given->commonattr != ATTR_CMN_FNDRINFO || size < kInformationSize) {
        errno = EINVAL;
        return -1;
    }
    return setxattr(path, kAttribute, buffer, kStoredSize, 0);
}
