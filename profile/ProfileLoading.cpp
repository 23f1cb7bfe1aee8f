#include "profile/ProfileLoading.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <new>
#include <string>

#include "platform/Codes.h"
#include "platform/Owned.h"
#include "profile/ProfileCache.h"
#include "profile/ProfileReading.h"
#include "profile/Refusals.h"

namespace {

/// An open data fork, closed at the end of the scope.
class DataFork {
public:
    explicit DataFork(const FSRef& file) {
        HFSUniStr255 name;
        status_ = FSGetDataForkName(&name);
        if (status_ == 0) status_ = FSOpenFork(&file, name.length, name.unicode, fsRdPerm, &fork_);
        open_ = status_ == 0;
    }
    DataFork(const DataFork&) = delete;
    DataFork& operator=(const DataFork&) = delete;
    ~DataFork() {
        if (open_) FSCloseFork(fork_);
    }

    OSErr Status() const { return status_; }
    FSIORefNum Number() const { return fork_; }

private:
    FSIORefNum fork_ = 0;
    OSErr status_ = 0;
    bool open_ = false;
};

/// What the platform has against the bytes: asked only when they are refused.
void RefuseBytes(CFDataRef bytes) noexcept try {
    CFErrorRef error = nullptr;
    const Owned<ColorSyncProfileRef> profile(ColorSyncProfileCreate(bytes, &error));
    const Owned<CFErrorRef> owner(error);
    const Owned<CFStringRef> reason(error ? CFErrorCopyDescription(error) : nullptr);
    char text[512] = "";
    if (!reason || !CFStringGetCString(reason.Get(), text, sizeof text, kCFStringEncodingUTF8)) return;
    std::string what = text;
    if (what.ends_with('.')) what.pop_back();
    if (!what.empty()) what[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(what[0])));
    Refuse({"this is not a whole ICC profile: ", what}, "a whole ICC profile is needed");
} catch (const std::bad_alloc&) {
}

OSErr ReadWholeFork(const DataFork& fork, Owned<CFMutableDataRef>* bytes) {
    if (fork.Status() != 0) return fork.Status();
    SInt64 size = 0;
    OSErr status = FSGetForkSize(fork.Number(), &size);
    if (status == 0) status = CheckProfileSize(size);
    if (status != 0) return status;
    const auto length = static_cast<CFIndex>(size);
    bytes->Reset(CFDataCreateMutable(kCFAllocatorDefault, length));
    if (!*bytes) return kStatusNoMemory;
    CFDataSetLength(bytes->Get(), length);
    if (CFDataGetLength(bytes->Get()) != length) return kStatusNoMemory;
    unsigned long read = 0;
    return FSReadFork(fork.Number(), fsFromStart, 0, static_cast<unsigned long>(length), CFDataGetMutableBytePtr(bytes->Get()), &read);
}

Owned<CFURLRef> CopyResourceProfileURL(CFStringRef name) {
    CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR("com.brenwick.ColourMatch"));
    return Owned<CFURLRef>(bundle ? CFBundleCopyResourceURL(bundle, name, CFSTR("icc"), nullptr) : nullptr);
}

}  // namespace

OSErr GetAliasTarget(AliasHandle alias, FSRef* target) {
    Boolean wasChanged = FALSE;
    const OSErr status = FSResolveAliasWithMountFlags(nullptr, alias, target, &wasChanged, kResolveAliasFileNoUI);
    if (status != 0) return status;
    Boolean isFolder = FALSE;
    Boolean wasAliased = FALSE;
    return FSResolveAliasFileWithMountFlags(target, TRUE, &isFolder, &wasAliased, kResolveAliasFileNoUI);
}

CFStringRef LocateProfilePath(AliasHandle alias) {
    FSRef target;
    if (!alias || GetAliasTarget(alias, &target) != 0) return nullptr;
    const Owned<CFURLRef> url(CFURLCreateFromFSRef(kCFAllocatorDefault, &target));
    // NOLINTNEXTLINE(clang-analyzer-osx.cocoa.RetainCount): the caller releases it.
    return url ? CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle) : nullptr;
}

CFStringRef LocateResourceProfilePath(CFStringRef name) {
    const Owned<CFURLRef> url = CopyResourceProfileURL(name);
    // NOLINTNEXTLINE(clang-analyzer-osx.cocoa.RetainCount): the caller releases it.
    return url ? CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle) : nullptr;
}

ColorSyncProfileRef CreateProfileFromAlias(AliasHandle alias, OSErr* error) {
    FSRef target;
    const OSErr status = GetAliasTarget(alias, &target);
    if (status != 0) {
        std::fprintf(stderr, "CreateProfileFromAlias, GetAliasTarget failed (%d)\n", status);
        *error = status;
        ForgetRefusal();
        RefuseForStatus(status);
        return nullptr;
    }
    return CreateProfileFromFSRef(&target, error);
}

OSErr CheckProfileSize(SInt64 size) {
    constexpr SInt64 kLargest = 20971520;
    if (size <= kLargest) return 0;
    Refuse({"it has ", std::to_string(size), " bytes"}, "a profile of 20 MiB (20971520 bytes) at most is needed");
    return kStatusParameter;
}

ColorSyncProfileRef CreateProfileFromBytes(CFDataRef bytes, OSErr* error) {
    errno = 0;
    ColorSyncProfileRef profile = ColorSyncProfileCreate(bytes, nullptr);
    // Null for bytes that are no profile, which is no error here, and without memory.
    *error = !profile && errno == ENOMEM ? kStatusNoMemory : OSErr{0};
    if (!profile && *error == 0) RefuseBytes(bytes);
    return profile;
}

ColorSyncProfileRef CreateProfileFromFSRef(const FSRef* file, OSErr* error) {
    const CachedProfile known(Owned<CFURLRef>(CFURLCreateFromFSRef(kCFAllocatorDefault, file)).Get());
    if (ColorSyncProfileRef profile = known.Create()) {
        *error = 0;
        return profile;
    }
    ForgetRefusal();
    const DataFork fork(*file);
    Owned<CFMutableDataRef> bytes;
    *error = ReadWholeFork(fork, &bytes);
    ColorSyncProfileRef profile = *error == 0 ? CreateProfileFromBytes(bytes.Get(), error) : nullptr;
    if (!profile) {
        RefuseForStatus(*error);
        NameRefusedFile(file);
    }
    known.Keep(profile);
    return profile;
}

ColorSyncProfileRef CreateProfileFromNamedResource(CFStringRef name, OSErr* error) {
    const Owned<CFURLRef> url = CopyResourceProfileURL(name);
    const CachedProfile known(url.Get());
    ColorSyncProfileRef profile = known.Create();
    if (!profile && url) {
        profile = ColorSyncProfileCreateWithURL(url.Get(), nullptr);
        known.Keep(profile);
    }
    *error = profile ? 0 : kStatusFileNotFound;
    if (!profile)
        Refuse({"the library's own profile is not there or is damaged"}, "the file MatrixCalRGB.icc in the folder colourmatch-2 beside it is needed");
    return profile;
}
