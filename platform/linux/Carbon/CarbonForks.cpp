// Reading a file's forks, which are both the file itself.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string_view>

#include "platform/linux/Carbon/CarbonFiles.h"
#include "platform/linux/Carbon/CarbonStatus.h"

using platform::StatusFromErrno;

namespace {

constexpr unsigned long kLargestRead = 1UL << 30;  // the kernel takes just under 2 GiB a call

constexpr std::u16string_view kResourceForkName = u"RESOURCE_FORK";

OSErr Open(const FSRef* ref, FSIORefNum* fork) {
    std::string path;
    if (const OSErr status = platform::PathFromRef(ref, path)) return status;
    // Devices and pipes are never opened: opening alone can have effects, or wait for a writer.
    struct stat about;
    if (stat(path.c_str(), &about) != 0) return StatusFromErrno(errno);
    if (!S_ISREG(about.st_mode)) return kStatusNotAFile;
    int file = -1;
    do {
        file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (file < 0 && errno == EINTR);
    if (file < 0) return StatusFromErrno(errno);
    if (fstat(file, &about) != 0 || !S_ISREG(about.st_mode)) {
        close(file);
        return kStatusNotAFile;
    }
    *fork = file;
    return 0;
}

}  // namespace

OSErr FSGetDataForkName(HFSUniStr255* name) {
    if (!name) return kStatusParameter;
    name->length = 0;
    return 0;
}

OSErr FSGetResourceForkName(HFSUniStr255* name) {
    if (!name) return kStatusParameter;
    name->length = static_cast<UInt16>(kResourceForkName.size());
    std::copy(kResourceForkName.begin(), kResourceForkName.end(), name->unicode);
    return 0;
}

OSErr FSOpenFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName, SInt8 permissions, FSIORefNum* fork) try {
    if (!ref || !fork) return kStatusParameter;
    if (forkNameLength != 0 && !platform::IsResourceForkName(forkNameLength, forkName)) return kNoSuchFork;
    if (permissions != fsRdPerm) return kPermission;
    return Open(ref, fork);
} catch (...) {
    return kStatusNoMemory;
}

OSErr FSGetForkSize(FSIORefNum fork, SInt64* size) {
    if (!size) return kStatusParameter;
    struct stat about;
    if (fstat(fork, &about) != 0) return StatusFromErrno(errno);
    *size = about.st_size;
    return 0;
}

OSErr FSReadFork(FSIORefNum fork, UInt16 positionMode, SInt64 positionOffset, unsigned long requested, void* buffer, unsigned long* actual) {
    if (actual) *actual = 0;
    if (positionMode != fsFromStart || positionOffset < 0 || (!buffer && requested != 0)) return kStatusParameter;
    unsigned long done = 0;
    OSErr status = 0;
    while (done < requested && status == 0) {
        const std::size_t wanted = std::min(requested - done, kLargestRead);
        const ssize_t count = pread(fork, static_cast<char*>(buffer) + done, wanted, positionOffset + static_cast<SInt64>(done));
        if (count > 0) {
            done += static_cast<unsigned long>(count);
        } else if (count == 0) {
            status = kEndOfFile;
        } else if (errno != EINTR) {
            status = StatusFromErrno(errno);
        }
    }
    if (actual) *actual = done;
    return status;
}

OSErr FSCloseFork(FSIORefNum fork) {
    // After an interrupted close the descriptor is free all the same; another close could hit a stranger's.
    if (close(fork) != 0 && errno != EINTR) return StatusFromErrno(errno);
    return 0;
}

bool platform::IsResourceForkName(UniCharCount length, const UniChar* name) {
    return name && std::equal(name, name + length, kResourceForkName.begin(), kResourceForkName.end());
}
