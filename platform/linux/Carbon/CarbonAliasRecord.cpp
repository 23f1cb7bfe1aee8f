#include "platform/linux/Carbon/CarbonAliasRecord.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>

#include <bit>
#include <concepts>
#include <cstring>
#include <type_traits>

namespace platform {

namespace {

// Hosts read userType and aliasSize in place.
static_assert(std::endian::native == std::endian::little);

constexpr std::uint32_t kMagic = 0x6C61694F;
constexpr std::uint16_t kVersion = 1;
constexpr std::uint16_t kBirthKnown = 1;
constexpr std::size_t kSizeOffset = 4;
constexpr std::size_t kLongestType = 255;

class ByteWriter {
public:
    template <std::integral Number>
    void Put(Number value) {
        auto bits = static_cast<std::make_unsigned_t<Number>>(value);
        for (std::size_t i = 0; i < sizeof bits; ++i) bytes_.push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
    }
    void Put(const std::string& text) { bytes_.insert(bytes_.end(), text.begin(), text.end()); }
    std::vector<std::uint8_t>& Bytes() { return bytes_; }

private:
    std::vector<std::uint8_t> bytes_;
};

// Reads zeros once the bytes have run out; `Whole` tells whether every byte was read and none was missing.
class ByteReader {
public:
    ByteReader(const void* bytes, std::size_t count) : next_(static_cast<const std::uint8_t*>(bytes)), left_(count) {}

    template <std::integral Number>
    void Get(Number& value) {
        std::make_unsigned_t<Number> bits = 0;
        if (const std::uint8_t* from = Take(sizeof bits)) {
            for (std::size_t i = 0; i < sizeof bits; ++i) bits = static_cast<decltype(bits)>(bits | static_cast<decltype(bits)>(from[i]) << (8 * i));
        }
        value = static_cast<Number>(bits);
    }
    void Get(std::string& text, std::size_t length) {
        const std::uint8_t* from = Take(length);
        text.assign(reinterpret_cast<const char*>(from), from ? length : 0);
    }
    bool Whole() const { return !failed_ && left_ == 0; }

private:
    const std::uint8_t* Take(std::size_t count) {
        if (failed_ || count > left_) {
            failed_ = true;
            return nullptr;
        }
        const std::uint8_t* from = next_;
        next_ += count;
        left_ -= count;
        return from;
    }

    const std::uint8_t* next_;
    std::size_t left_;
    bool failed_ = false;
};

// Begins with a slash, ends without one (but for the root alone), has no empty or zero byte in between that could cut it short.
bool IsPlainPath(const std::string& path) {
    return !path.empty() && path.size() < PATH_MAX && path.front() == '/' && (path.size() == 1 || path.back() != '/') &&
           path.find('\0') == std::string::npos;
}

// A mount point ends where a component of the path ends; the root's is the leading slash.
bool EndsComponent(const std::string& path, std::size_t length) {
    return length == 1 || (length > 1 && (length == path.size() || (length < path.size() && path[length] == '/')));
}

}  // namespace

bool ReadIdentity(int folder, const char* name, FileIdentity& identity) {
    struct statx about;
    if (statx(folder, name, AT_SYMLINK_NOFOLLOW, STATX_INO | STATX_SIZE | STATX_MTIME | STATX_BTIME, &about) != 0) return false;
    identity = {};
    identity.inode = about.stx_ino;
    identity.birthKnown = (about.stx_mask & STATX_BTIME) != 0;
    if (identity.birthKnown) {
        identity.birthSeconds = about.stx_btime.tv_sec;
        identity.birthNanoseconds = about.stx_btime.tv_nsec;
    }
    identity.modifiedSeconds = about.stx_mtime.tv_sec;
    identity.modifiedNanoseconds = about.stx_mtime.tv_nsec;
    identity.size = about.stx_size;
    alignas(file_handle) char space[sizeof(file_handle) + MAX_HANDLE_SZ];
    auto* handle = reinterpret_cast<file_handle*>(space);
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mount = 0;
    if (name_to_handle_at(folder, name, handle, &mount, 0) == 0) {
        identity.handleType = handle->handle_type;
        identity.handle.assign(reinterpret_cast<const char*>(handle->f_handle), handle->handle_bytes);
    }
    return true;
}

bool SameFile(const FileIdentity& a, const FileIdentity& b) {
    if (a.inode != b.inode) return false;
    const bool handles = !a.handle.empty() && !b.handle.empty();
    const bool births = a.birthKnown && b.birthKnown;
    if (handles && (a.handleType != b.handleType || a.handle != b.handle)) return false;
    if (births && (a.birthSeconds != b.birthSeconds || a.birthNanoseconds != b.birthNanoseconds)) return false;
    return handles || births || (a.size == b.size && a.modifiedSeconds == b.modifiedSeconds && a.modifiedNanoseconds == b.modifiedNanoseconds);
}

std::string AliasContents::Folder() const {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string AliasContents::BaseName() const {
    return path.substr(path.rfind('/') + 1);
}

std::vector<std::uint8_t> AliasBytes(const AliasContents& contents) {
    const FileIdentity& file = contents.file;
    ByteWriter out;
    out.Put(std::uint32_t{0});
    out.Put(std::uint32_t{0});
    out.Put(kMagic);
    out.Put(kVersion);
    out.Put(file.birthKnown ? kBirthKnown : std::uint16_t{0});
    out.Put(contents.volumeId);
    out.Put(file.inode);
    out.Put(file.birthSeconds);
    out.Put(file.birthNanoseconds);
    out.Put(file.modifiedNanoseconds);
    out.Put(file.modifiedSeconds);
    out.Put(file.size);
    out.Put(file.handleType);
    out.Put(contents.folderHandleType);
    for (const std::size_t length :
         {file.handle.size(), contents.folderHandle.size(), contents.volumeType.size(), contents.mountLength, contents.path.size()}) {
        if (length > PATH_MAX) return {};
        out.Put(static_cast<std::uint16_t>(length));
    }
    out.Put(file.handle);
    out.Put(contents.folderHandle);
    out.Put(contents.volumeType);
    out.Put(contents.path);
    std::vector<std::uint8_t>& bytes = out.Bytes();
    const auto size = static_cast<std::uint16_t>(bytes.size());  // five parts of at most PATH_MAX bytes
    std::memcpy(&bytes[kSizeOffset], &size, sizeof size);
    return std::move(bytes);
}

bool ParseAlias(const void* bytes, std::size_t count, AliasContents& contents) {
    contents = {};
    FileIdentity& file = contents.file;
    std::uint32_t userType, magic;
    std::uint16_t size, padding, version, flags, handleLength, folderHandleLength, typeLength, mountLength, pathLength;
    ByteReader in(bytes, count);
    in.Get(userType);
    in.Get(size);
    in.Get(padding);
    in.Get(magic);
    in.Get(version);
    in.Get(flags);
    in.Get(contents.volumeId);
    in.Get(file.inode);
    in.Get(file.birthSeconds);
    in.Get(file.birthNanoseconds);
    in.Get(file.modifiedNanoseconds);
    in.Get(file.modifiedSeconds);
    in.Get(file.size);
    in.Get(file.handleType);
    in.Get(contents.folderHandleType);
    in.Get(handleLength);
    in.Get(folderHandleLength);
    in.Get(typeLength);
    in.Get(mountLength);
    in.Get(pathLength);
    in.Get(file.handle, handleLength);
    in.Get(contents.folderHandle, folderHandleLength);
    in.Get(contents.volumeType, typeLength);
    in.Get(contents.path, pathLength);
    file.birthKnown = (flags & kBirthKnown) != 0;
    contents.mountLength = mountLength;
    return in.Whole() && size == count && magic == kMagic && version == kVersion && handleLength <= MAX_HANDLE_SZ &&
           folderHandleLength <= MAX_HANDLE_SZ && typeLength <= kLongestType && IsPlainPath(contents.path) &&
           EndsComponent(contents.path, mountLength);
}

}  // namespace platform
