#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>

#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/CoreFoundation/ResourceFolder.h"

using platform::Object;

namespace {

constinit const platform::ObjectClass kBundleClass{"CFBundle", [](const Object*) {}};

}  // namespace

struct __CFBundle : Object {
    constexpr __CFBundle() : Object(kBundleClass, kConstant) {}
};

namespace {

constinit __CFBundle ownBundle;
constexpr std::u16string_view kOwnIdentifier = u"com.brenwick.ColourMatch";

std::string FindResourceFolder() {
    Dl_info info;
    void* found = nullptr;
    if (!dladdr1(&ownBundle, &info, &found, RTLD_DL_LINKMAP) || !found) return {};
    // The program itself has no name here; `info` would name it as it was called, which need not be where it is.
    const char* name = static_cast<const link_map*>(found)->l_name;
    const std::unique_ptr<char, decltype(&std::free)> file(realpath(*name ? name : "/proc/self/exe", nullptr), &std::free);
    if (!file) return {};
    const std::string path = file.get();
    return path.substr(0, path.rfind('/') + 1) + "colourmatch-2";
}

const std::string& KnownResourceFolder() {
    static const auto* const folder = new std::string(FindResourceFolder());
    return *folder;
}

// The name may be relative to the directory that is current while the library is loaded.
[[gnu::constructor]] void FindResourceFolderOnLoad() {
    static_cast<void>(platform::NullIfRaised([] { return KnownResourceFolder().size(); }));
}

}  // namespace

std::string platform::ResourceFolder() {
    return KnownResourceFolder();
}

CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef identifier) {
    return identifier && platform::Units(identifier) == kOwnIdentifier ? &ownBundle : nullptr;
}

CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef name, CFStringRef type, CFStringRef subdirectory) {
    if (!bundle || !name) return nullptr;
    return platform::NullIfRaised([&]() -> CFURLRef {
        const std::string& folder = KnownResourceFolder();
        const std::optional<std::string> file = platform::UTF8FromString(name);
        if (folder.empty() || !file) return nullptr;
        std::string path = folder + "/";
        if (subdirectory) path += platform::UTF8FromString(subdirectory).value_or("?") + "/";
        path += *file;
        if (type && CFStringGetLength(type) > 0) path += "." + platform::UTF8FromString(type).value_or("?");
        struct stat status;
        if (path.find('\0') != std::string::npos || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
        return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                       static_cast<CFIndex>(path.size()), false);
    });
}
