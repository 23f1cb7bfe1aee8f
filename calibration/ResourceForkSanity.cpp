// Reading what the check of a resource fork looks at.

#include <memory>
#include <new>

#include "calibration/MonitorCalibration.h"
#include "calibration/ResourceForkCheck.h"

namespace {

/// Closes a fork at the end of the scope.
class OpenFork {
public:
    explicit OpenFork(FSIORefNum fork) : fork_(fork) {}
    OpenFork(const OpenFork&) = delete;
    OpenFork& operator=(const OpenFork&) = delete;
    ~OpenFork() { FSCloseFork(fork_); }

    OSErr Read(std::uint32_t offset, std::uint32_t size, std::uint8_t* bytes) const {
        return FSReadFork(fork_, fsFromStart, offset, size, bytes, nullptr);
    }

private:
    FSIORefNum fork_;
};

}  // namespace

OSErr CheckResourceForkSanity(const FSRef* file, bool* sane) {
    *sane = false;
    HFSUniStr255 name;
    FSIORefNum number = -1;
    if (const OSErr error = FSGetResourceForkName(&name)) return error;
    if (const OSErr error = FSOpenFork(file, name.length, name.unicode, fsRdPerm, &number)) return error;
    const OpenFork fork(number);
    SInt64 size = 0;
    const OSErr sizeError = FSGetForkSize(number, &size);
    if (sizeError != 0 || size < static_cast<SInt64>(kResourceForkHeaderSize)) return sizeError;
    std::uint8_t bytes[kResourceForkHeaderSize];
    if (const OSErr error = fork.Read(0, kResourceForkHeaderSize, bytes)) return error;
    const ResourceForkHeader header = ReadResourceForkHeader(bytes);
    if (!IsSaneResourceForkHeader(header, static_cast<std::uint64_t>(size))) return 0;
    const std::unique_ptr<std::uint8_t[]> map(new (std::nothrow) std::uint8_t[header.mapLength]);
    if (!map) return 0;
    if (const OSErr error = fork.Read(header.mapOffset, header.mapLength, map.get())) return error;
    *sane = IsSaneResourceMap(header, map.get());
    return 0;
}
