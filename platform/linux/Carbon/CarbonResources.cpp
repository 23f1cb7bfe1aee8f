// Resource files: plain files with the structure of the classic resource fork.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/BigEndian.h"
#include "platform/MadeOnce.h"
#include "platform/linux/Carbon/CarbonFiles.h"
#include "platform/linux/Carbon/CarbonResourceFork.h"
#include "platform/linux/Carbon/CarbonStatus.h"
#include "platform/linux/Posix/Descriptor.h"

using platform::Descriptor;
using platform::ForkResource;
using platform::StatusFromErrno;

namespace {

thread_local OSErr sError = 0;

OSErr ReadAt(int file, std::uint64_t offset, void* buffer, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = pread(file, static_cast<char*>(buffer) + done, size - done, static_cast<off_t>(offset + done));
        if (count == 0) return kEndOfFile;
        if (count < 0 && errno != EINTR) return StatusFromErrno(errno);
        if (count > 0) done += static_cast<std::size_t>(count);
    }
    return 0;
}

OSErr WriteWhole(int file, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = pwrite(file, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (count < 0 && errno != EINTR) return StatusFromErrno(errno);
        if (count > 0) done += static_cast<std::size_t>(count);
    }
    return ftruncate(file, static_cast<off_t>(bytes.size())) == 0 ? OSErr{0} : StatusFromErrno(errno);
}

/// A resource of an open file; the handle is null until somebody asks for it.
struct Resource {
    ForkResource inFork;
    Handle handle = nullptr;
    bool isAdded = false;
};

class ResourceFile {
public:
    ResourceFile(ResFileRefNum number, int file, bool isWritable) : number_(number), file_(file), isWritable_(isWritable) {}
    ResourceFile(const ResourceFile&) = delete;
    ResourceFile& operator=(const ResourceFile&) = delete;
    ~ResourceFile() {
        for (const Resource& resource : resources_) DisposeHandle(resource.handle);
    }

    ResFileRefNum Number() const { return number_; }

    OSErr ReadMap() {
        struct stat about;
        if (fstat(file_.Get(), &about) != 0) return StatusFromErrno(errno);
        std::uint8_t bytes[platform::kForkHeaderSize];
        if (const OSErr status = ReadAt(file_.Get(), 0, bytes, sizeof bytes)) return status;
        const auto header = platform::ParseForkHeader(bytes, static_cast<std::uint64_t>(about.st_size));
        if (!header) return kDamagedMap;
        header_ = *header;
        const auto map = std::make_unique_for_overwrite<std::uint8_t[]>(header_.mapLength);
        if (const OSErr status = ReadAt(file_.Get(), header_.mapOffset, map.get(), header_.mapLength)) return status;
        auto found = platform::ParseForkMap(map.get(), header_.mapLength, header_.dataLength);
        if (!found) return kDamagedMap;
        resources_.reserve(found->size());
        for (ForkResource& resource : *found) resources_.push_back({std::move(resource)});
        return 0;
    }

    ResourceCount Count(ResType type) const {
        const auto count = std::count_if(resources_.begin(), resources_.end(), [type](const Resource& r) { return r.inFork.type == type; });
        return static_cast<ResourceCount>(std::min<std::ptrdiff_t>(count, INT16_MAX));
    }

    Handle Get(ResType type, ResID id, OSErr* status) {
        for (Resource& resource : resources_) {
            if (resource.inFork.type != type || resource.inFork.id != id) continue;
            if (!resource.handle) *status = Load(resource);
            return resource.handle;
        }
        *status = kNoSuchResource;
        return nullptr;
    }

    bool Owns(Handle handle) const { return FindHandle(handle) != resources_.end(); }

    bool Release(Handle handle) {
        const auto place = FindHandle(handle);
        if (place == resources_.end()) return false;
        // What is not written yet has its only bytes in the handle.
        if (place->isAdded) return true;
        const auto index = static_cast<std::size_t>(place - resources_.begin());
        DisposeHandle(std::exchange(resources_[index].handle, nullptr));
        return true;
    }

    OSErr Add(Handle data, ResType type, ResID id, const std::string& name) {
        if (!isWritable_) return kCannotBeAdded;
        resources_.push_back({{type, id, 0, name, 0, {}}, data, true});
        isChanged_ = true;
        return 0;
    }

    OSErr Write() {
        if (!isChanged_) return 0;
        std::vector<ForkResource> whole;
        for (Resource& resource : resources_) {
            if (!resource.handle) {
                if (const OSErr status = Load(resource)) return status;
            }
            whole.push_back(resource.inFork);
            whole.back().data.assign(*resource.handle, static_cast<std::size_t>(GetHandleSize(resource.handle)));
        }
        const auto fork = platform::BuildFork(whole);
        return fork ? WriteWhole(file_.Get(), *fork) : kCannotBeAdded;
    }

private:
    std::vector<Resource>::const_iterator FindHandle(Handle handle) const {
        return handle ? std::find_if(resources_.begin(), resources_.end(), [handle](const Resource& r) { return r.handle == handle; })
                      : resources_.end();
    }

    OSErr Load(Resource& resource) {
        const std::uint64_t offset = resource.inFork.offset;
        if (offset + 4 > header_.dataLength) return kStatusInputOutput;
        std::uint8_t bytes[4];
        if (const OSErr status = ReadAt(file_.Get(), header_.dataOffset + offset, bytes, sizeof bytes)) return status;
        const std::uint64_t size = ReadBigEndian32(bytes);
        if (offset + 4 + size > header_.dataLength) return kStatusInputOutput;
        const Handle handle = NewHandle(static_cast<Size>(size));
        if (!handle) return kStatusNoMemory;
        if (const OSErr status = ReadAt(file_.Get(), header_.dataOffset + offset + 4, *handle, static_cast<std::size_t>(size))) {
            DisposeHandle(handle);
            return status;
        }
        resource.handle = handle;
        return 0;
    }

    ResFileRefNum number_;
    Descriptor file_;
    bool isWritable_;
    bool isChanged_ = false;
    platform::ForkHeader header_ = {};
    std::vector<Resource> resources_;
};

/// The open files in the order of opening, and the current one.
struct OpenFiles {
    platform::ForkSafeMutex lock;
    std::vector<std::unique_ptr<ResourceFile>> files;
    ResFileRefNum current = 0;
    ResFileRefNum last = 0;

    std::vector<std::unique_ptr<ResourceFile>>::iterator Find(ResFileRefNum number) {
        return std::find_if(files.begin(), files.end(), [number](const auto& file) { return file->Number() == number; });
    }
    ResourceFile* Current() {
        const auto place = Find(current);
        return place == files.end() ? nullptr : place->get();
    }
};

OpenFiles& Open() {
    static constinit platform::MadeOnce<OpenFiles> open;
    return *open.Get();
}

/// Runs `work`, which answers a status, under the lock, and records its status.
template <typename Work>
void WithOpenFiles(Work work) {
    try {
        OpenFiles& open = Open();
        const std::lock_guard guard(open.lock);
        sError = work(open);
    } catch (...) {
        sError = kStatusNoMemory;
    }
}

OSErr OpenFile(OpenFiles& open, const FSRef* ref, bool isWritable) {
    std::string path;
    if (const OSErr status = platform::PathFromRef(ref, path)) return status;
    struct stat about;
    if (stat(path.c_str(), &about) != 0) return StatusFromErrno(errno);
    if (!S_ISREG(about.st_mode)) return kStatusNotAFile;
    int descriptor = -1;
    do {
        descriptor = ::open(path.c_str(), (isWritable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) return StatusFromErrno(errno);
    auto file = std::make_unique<ResourceFile>(open.last + 1, descriptor, isWritable);
    if (const OSErr status = file->ReadMap()) return status;
    open.files.push_back(std::move(file));
    open.current = ++open.last;
    return 0;
}

OSErr CreateFile(const std::string& path) {
    const auto fork = platform::BuildFork({});
    if (!fork) return kStatusInputOutput;
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file.Get() < 0) return errno == EEXIST ? kFileExists : StatusFromErrno(errno);
    const OSErr status = WriteWhole(file.Get(), *fork);
    if (status != 0) unlink(path.c_str());
    return status;
}

}  // namespace

OSErr FSCreateResourceFile(const FSRef* folder, UniCharCount nameLength, const UniChar* name, FSCatalogInfoBitmap whichInformation,
                           const FSCatalogInfo* information, UniCharCount forkNameLength, const UniChar* forkName, FSRef* file, FSSpecPtr unused) {
    OSErr status = kStatusParameter;
    if (whichInformation == 0 && !information && !unused && platform::IsResourceForkName(forkNameLength, forkName)) {
        try {
            std::string path;
            status = platform::PathInFolder(folder, nameLength, name, path);
            if (status == 0) status = CreateFile(path);
            if (status == 0 && file) status = platform::RefFromPath(path, file);
        } catch (...) {
            status = kStatusNoMemory;
        }
    }
    return sError = status;
}

ResFileRefNum FSOpenResFile(const FSRef* file, SInt8 permissions) {
    ResFileRefNum number = -1;
    WithOpenFiles([&](OpenFiles& open) -> OSErr {
        if (permissions != fsRdPerm && permissions != fsRdWrPerm) return kPermission;
        const OSErr status = OpenFile(open, file, permissions == fsRdWrPerm);
        if (status == 0) number = open.last;
        return status;
    });
    return number;
}

void CloseResFile(ResFileRefNum file) {
    WithOpenFiles([&](OpenFiles& open) -> OSErr {
        const auto place = open.Find(file);
        if (place == open.files.end()) return kNoSuchResourceFile;
        const std::unique_ptr<ResourceFile> closing = std::move(*place);
        open.files.erase(place);
        if (open.current == file) open.current = open.files.empty() ? 0 : open.files.back()->Number();
        return closing->Write();
    });
}

ResFileRefNum CurResFile(void) {
    ResFileRefNum current = 0;
    WithOpenFiles([&](OpenFiles& open) {
        current = open.current;
        return OSErr{0};
    });
    return current;
}

void UseResFile(ResFileRefNum file) {
    WithOpenFiles([&](OpenFiles& open) -> OSErr {
        if (file != 0 && open.Find(file) == open.files.end()) return kNoSuchResourceFile;
        open.current = file;
        return 0;
    });
}

OSErr ResError(void) {
    return sError;
}

ResourceCount Count1Resources(ResType type) {
    ResourceCount count = 0;
    WithOpenFiles([&](OpenFiles& open) -> OSErr {
        const ResourceFile* file = open.Current();
        if (!file) return kNoSuchResourceFile;
        count = file->Count(type);
        return 0;
    });
    return count;
}

Handle Get1Resource(ResType type, ResID id) {
    Handle resource = nullptr;
    WithOpenFiles([&](OpenFiles& open) -> OSErr {
        ResourceFile* file = open.Current();
        if (!file) return kNoSuchResourceFile;
        OSErr status = 0;
        resource = file->Get(type, id, &status);
        return status;
    });
    return resource;
}

void ReleaseResource(Handle resource) {
    WithOpenFiles([&](OpenFiles& open) -> OSErr {
        const auto releases = [resource](const auto& file) { return file->Release(resource); };
        return std::any_of(open.files.begin(), open.files.end(), releases) ? OSErr{0} : kNoSuchResource;
    });
}

void AddResource(Handle data, ResType type, ResID id, ConstStr255Param name) {
    WithOpenFiles([&](OpenFiles& open) -> OSErr {
        ResourceFile* file = open.Current();
        if (!file) return kNoSuchResourceFile;
        if (!data || std::any_of(open.files.begin(), open.files.end(), [data](const auto& other) { return other->Owns(data); }))
            return kCannotBeAdded;
        return file->Add(data, type, id, name ? std::string(reinterpret_cast<const char*>(name + 1), name[0]) : std::string());
    });
}
