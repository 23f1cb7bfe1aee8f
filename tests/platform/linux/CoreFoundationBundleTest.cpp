#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/CoreFoundation.h"
#include "platform/linux/CoreFoundation/ResourceFolder.h"
#include "tests/fixtures/CurrentDirectory.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

constexpr std::uint8_t kContent[] = {'x'};

TEST(CoreFoundationBundle, OnlyTheOwnIdentifierIsKnown) {
    const CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR("com.brenwick.ColourMatch"));
    ASSERT_NE(bundle, nullptr);
    EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.brenwick.ColourMatch")), bundle);
    EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.brenwick.colourmatch")), nullptr);
    EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.brenwick.ColourMatch2")), nullptr);
    EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("")), nullptr);
    EXPECT_EQ(CFBundleGetBundleWithIdentifier(nullptr), nullptr);
    EXPECT_EQ(CFBundleCopyResourceURL(nullptr, CFSTR("a"), CFSTR("icc"), nullptr), nullptr);
}

TEST(CoreFoundationBundle, ResourcesOfAProgramStandBesideIt) {
    EXPECT_EQ(platform::ResourceFolder(), std::filesystem::read_symlink("/proc/self/exe").parent_path() / "colourmatch-2");
}

/// A library that holds the code under test, in a folder of its own with resources beside it, loaded through a link by a relative path.
class LoadedLibrary {
public:
    LoadedLibrary() {
        std::filesystem::create_directories(Library() / "colourmatch-2/Sub folder");
        std::filesystem::copy_file(CM_PLATFORM_PROBE, Library() / "probe.so");
        std::filesystem::create_symlink("library/probe.so", folder_ / "link.so");
        folder_.Write("library/colourmatch-2/Plain", kContent);
        folder_.Write("library/colourmatch-2/Pro\xC3\xA9.icc", kContent);
        folder_.Write("library/colourmatch-2/Sub folder/Inner.icc", kContent);
        std::filesystem::create_directory(Library() / "colourmatch-2/Folder.icc");
        std::filesystem::create_symlink("Plain", Library() / "colourmatch-2/Linked.icc");
        std::filesystem::create_symlink("nowhere", Library() / "colourmatch-2/Broken.icc");
        const CurrentDirectory current(folder_ / ".");
        handle_ = dlopen("./link.so", RTLD_NOW | RTLD_LOCAL);
    }
    ~LoadedLibrary() {
        if (handle_) dlclose(handle_);
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    bool IsLoaded() const { return handle_ != nullptr; }
    std::filesystem::path Library() const { return std::filesystem::canonical(folder_ / ".") / "library"; }

    template <typename Function>
    Function Find(const char* name) const {
        return reinterpret_cast<Function>(dlsym(handle_, name));
    }

private:
    TemporaryFolder folder_;
    void* handle_ = nullptr;
};

struct ResourceRow {
    const char* what;
    const char* name;
    const char* type;
    const char* subdirectory;
    /// Below the resource folder; null: there is none.
    const char* path;
};

TEST(CoreFoundationBundle, ResourcesOfALibraryStandBesideItsRealFile) {
    const ResourceRow rows[] = {
        {"name and type", "Pro\xC3\xA9", "icc", nullptr, "Pro\xC3\xA9.icc"},
        {"no type", "Plain", nullptr, nullptr, "Plain"},
        {"empty type", "Plain", "", nullptr, "Plain"},
        {"the type within the name", "Pro\xC3\xA9.icc", nullptr, nullptr, "Pro\xC3\xA9.icc"},
        {"in a folder", "Inner", "icc", "Sub folder", "Sub folder/Inner.icc"},
        {"not in that folder", "Plain", nullptr, "Sub folder", nullptr},
        {"not there", "Missing", "icc", nullptr, nullptr},
        {"another type", "Plain", "icc", nullptr, nullptr},
        {"a folder is no resource", "Folder", "icc", nullptr, nullptr},
        {"a link to a file is one", "Linked", "icc", nullptr, "Linked.icc"},
        {"a link to nothing is none", "Broken", "icc", nullptr, nullptr},
        {"no name", nullptr, "icc", nullptr, nullptr},
    };
    const LoadedLibrary library;
    ASSERT_TRUE(library.IsLoaded()) << dlerror();
    const auto getBundle = library.Find<decltype(&CFBundleGetBundleWithIdentifier)>("CFBundleGetBundleWithIdentifier");
    const auto copyURL = library.Find<decltype(&CFBundleCopyResourceURL)>("CFBundleCopyResourceURL");
    const auto getPath = library.Find<decltype(&CFURLGetFileSystemRepresentation)>("CFURLGetFileSystemRepresentation");
    const auto release = library.Find<decltype(&CFRelease)>("CFRelease");
    const auto newString = library.Find<decltype(&CFStringCreateWithCString)>("CFStringCreateWithCString");
    ASSERT_TRUE(getBundle && copyURL && getPath && release && newString);
    ASSERT_NE(getBundle, &CFBundleGetBundleWithIdentifier) << "the library has code of its own";
    const auto string = [&](const char* text) { return text ? newString(kCFAllocatorDefault, text, kCFStringEncodingUTF8) : nullptr; };
    const auto drop = [&](CFTypeRef object) {
        if (object) release(object);
    };
    const CFStringRef identifier = string("com.brenwick.ColourMatch");
    const CFBundleRef bundle = getBundle(identifier);
    release(identifier);
    ASSERT_NE(bundle, nullptr);
    for (const ResourceRow& row : rows) {
        SCOPED_TRACE(row.what);
        const CFStringRef name = string(row.name);
        const CFStringRef type = string(row.type);
        const CFStringRef subdirectory = string(row.subdirectory);
        const CFURLRef url = copyURL(bundle, name, type, subdirectory);
        ASSERT_EQ(url != nullptr, row.path != nullptr);
        if (url) {
            UInt8 path[1024];
            EXPECT_TRUE(getPath(url, true, path, sizeof path));
            EXPECT_EQ(reinterpret_cast<const char*>(path), (library.Library() / "colourmatch-2" / row.path).string());
        }
        for (const CFTypeRef object : {CFTypeRef(url), CFTypeRef(name), CFTypeRef(type), CFTypeRef(subdirectory)}) drop(object);
    }
}

}  // namespace
