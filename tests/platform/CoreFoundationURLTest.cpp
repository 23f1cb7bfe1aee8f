#include <glib.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "platform/CoreFoundation.h"
#include "tests/fixtures/CurrentDirectory.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

std::string NativePath(CFURLRef url) {
    char path[1024];
    const bool done = CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(path), sizeof path);
    return done ? path : "(none)";
}

std::string Path(CFURLRef url) {
    return Text(Owned<CFStringRef>(CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle)));
}
std::string LastComponent(CFURLRef url) {
    return Text(Owned<CFStringRef>(CFURLCopyLastPathComponent(url)));
}
std::string URLText(CFURLRef url) {
    return url ? Text(CFURLGetString(url)) : "(no URL)";
}

Owned<CFURLRef> FromPath(const std::string& path, bool isDirectory = false) {
    return Owned<CFURLRef>(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, NewString(path).Get(), kCFURLPOSIXPathStyle, isDirectory));
}

Owned<CFURLRef> FromBytes(const std::string& path, bool isDirectory = false) {
    return Owned<CFURLRef>(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                                   static_cast<CFIndex>(path.size()), isDirectory));
}

Owned<CFURLRef> FromText(const std::string& text, CFURLRef base = nullptr) {
    return Owned<CFURLRef>(CFURLCreateWithString(kCFAllocatorDefault, NewString(text).Get(), base));
}

struct PathRow {
    const char* what;
    const char* path;
    bool isDirectory;
    const char* text;
    const char* native;
    const char* last;
};

const PathRow kPaths[] = {
    {"a file", "/a/b.icc", false, "file:///a/b.icc", "/a/b.icc", "b.icc"},
    {"a directory", "/a/b", true, "file:///a/b/", "/a/b", "b"},
    {"a directory with its slash", "/a/b/", true, "file:///a/b/", "/a/b", "b"},
    {"a slash does not make a file a directory", "/a/b/", false, "file:///a/b", "/a/b", "b"},
    {"the root", "/", true, "file:///", "/", "/"},
    {"the root is a directory", "/", false, "file:///", "/", "/"},
    {"a blank", "/a b", false, "file:///a%20b", "/a b", "a b"},
    {"marks that stay", "/!$&'()*+,-.:=@_~", false, "file:///!$&'()*+,-.:=@_~", "/!$&'()*+,-.:=@_~", "!$&'()*+,-.:=@_~"},
    {"marks with a meaning in URLs", "/50%#?;[1]", false, "file:///50%25%23%3F%3B%5B1%5D", "/50%#?;[1]", "50%#?;[1]"},
    {"what looks encoded is a name", "/a%20b", false, "file:///a%2520b", "/a%20b", "a%20b"},
    {"beyond ASCII", "/\xC3\xA9", false, "file:///%C3%A9", "/\xC3\xA9", "\xC3\xA9"},
    {"a control character", "/a\nb", false, "file:///a%0Ab", "/a\nb", "a\nb"},
    {"dots stay", "/a/../b/.", false, "file:///a/../b/.", "/a/../b/.", "."},
    {"slashes in the middle stay", "/a//b", false, "file:///a//b", "/a//b", "b"},
};

TEST(CoreFoundationURL, HoldsAnAbsolutePath) {
    for (const PathRow& row : kPaths) {
        SCOPED_TRACE(row.what);
        for (const Owned<CFURLRef>& url : {FromPath(row.path, row.isDirectory), FromBytes(row.path, row.isDirectory)}) {
            EXPECT_EQ(URLText(url.Get()), row.text);
            EXPECT_EQ(NativePath(url.Get()), row.native);
            EXPECT_EQ(Path(url.Get()), row.native);
            EXPECT_EQ(LastComponent(url.Get()), row.last);
            EXPECT_EQ(CFGetTypeID(url.Get()), CFURLGetTypeID());
        }
    }
}

TEST(CoreFoundationURL, ItsTextGivesTheSameURL) {
    for (const PathRow& row : kPaths) {
        SCOPED_TRACE(row.what);
        const Owned<CFURLRef> url = FromText(row.text);
        EXPECT_EQ(NativePath(url.Get()), row.native);
        EXPECT_EQ(LastComponent(url.Get()), row.last);
        EXPECT_TRUE(CFEqual(url.Get(), FromPath(row.path, row.isDirectory).Get()));
        EXPECT_EQ(CFHash(url.Get()), CFHash(FromPath(row.path, row.isDirectory).Get()));
    }
}

TEST(CoreFoundationURL, EveryByteOfANameSurvives) {
    std::string name = "/";
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/') name += static_cast<char>(byte);
    }
    const Owned<CFURLRef> url = FromBytes(name);
    EXPECT_EQ(NativePath(url.Get()), name);
    EXPECT_EQ(NativePath(FromText(URLText(url.Get())).Get()), name);
    const std::unique_ptr<char, decltype(&g_free)> expected(g_filename_to_uri(name.c_str(), nullptr, nullptr), &g_free);
    EXPECT_EQ(URLText(url.Get()), expected.get());
    EXPECT_EQ(Path(url.Get()), "(null)") << "the bytes are not UTF-8";
    EXPECT_EQ(LastComponent(url.Get()), "(null)") << "the bytes are not UTF-8";
}

TEST(CoreFoundationURL, HasNoEmptyPathAndNoZeroByte) {
    EXPECT_FALSE(FromPath(""));
    EXPECT_FALSE(FromBytes(""));
    EXPECT_FALSE(FromPath(std::string("/a\0b", 4)));
    EXPECT_FALSE(FromBytes(std::string("/a\0b", 4)));
    EXPECT_EQ(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>("/a"), -1, false), nullptr);
    EXPECT_EQ(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("/a"), 1, false), nullptr) << "another path style";
}

TEST(CoreFoundationURL, ARelativePathStartsFromTheCurrentDirectory) {
    const TemporaryFolder folder;
    const std::string path = std::filesystem::canonical(folder / ".").string();
    Owned<CFURLRef> url;
    {
        const CurrentDirectory current(path);
        url = FromPath("profiles/a.icc");
        EXPECT_EQ(NativePath(FromBytes("a.icc").Get()), path + "/a.icc");
        EXPECT_EQ(NativePath(FromPath("file:///a.icc").Get()), path + "/file:///a.icc") << "a path is never taken for a URL";
    }
    EXPECT_EQ(NativePath(url.Get()), path + "/profiles/a.icc") << "it stays where it was";
    EXPECT_EQ(URLText(url.Get()), "file://" + path + "/profiles/a.icc");
}

TEST(CoreFoundationURL, ThereIsNoRelativePathInADirectoryThatIsGone) {
    const TemporaryFolder folder;
    const std::filesystem::path gone = folder / "gone";
    std::filesystem::create_directory(gone);
    const CurrentDirectory current(gone);
    std::filesystem::remove(gone);
    EXPECT_FALSE(FromPath("a.icc"));
    EXPECT_EQ(NativePath(FromPath("/a.icc").Get()), "/a.icc");
}

struct BaseRow {
    const char* what;
    const char* path;
    const char* base;
    const char* text;
};

TEST(CoreFoundationURL, ARelativePathStartsFromTheBase) {
    const BaseRow rows[] = {
        {"a directory", "c", "file:///a/b/", "file:///a/b/c"},
        {"a file: its folder", "c", "file:///a/b", "file:///a/c"},
        {"the root", "c", "file:///", "file:///c"},
        {"a file in the root", "c", "file:///a", "file:///c"},
        {"an absolute path needs none", "/c", "file:///a/b/", "file:///c"},
        {"a base that is no file", "c", "http://example.com/a/", "(no URL)"},
        {"a blank on both sides", "c d", "file:///a%20b/", "file:///a%20b/c%20d"},
    };
    for (const BaseRow& row : rows) {
        SCOPED_TRACE(row.what);
        const Owned<CFURLRef> base = FromText(row.base);
        const Owned<CFURLRef> url(
            CFURLCreateWithFileSystemPathRelativeToBase(kCFAllocatorDefault, NewString(row.path).Get(), kCFURLPOSIXPathStyle, false, base.Get()));
        EXPECT_EQ(URLText(url.Get()), row.text);
    }
}

struct TextRow {
    const char* what;
    const char* text;
    const char* native;
    const char* last;
};

TEST(CoreFoundationURL, KeepsItsText) {
    const TextRow rows[] = {
        {"this machine by name", "file://localhost/a", "/a", "a"},
        {"no authority", "file:/a/b", "/a/b", "b"},
        {"capitals in the scheme", "FILE:///a", "/a", "a"},
        {"a file on another machine", "file://server/a", "(none)", "a"},
        {"a query and a fragment are no part of the path", "file:///a?b/c#d/e", "/a", "a"},
        {"an encoded slash parts names as any other", "file:///a%2Fb", "/a/b", "b"},
        {"an encoded zero byte is in no path", "file:///a%00b", "(none)", "a"},
        {"lower-case digits", "file:///%c3%a9", "/\xC3\xA9", "\xC3\xA9"},
        {"no file", "http://example.com/a/b.html?q=1#f", "(none)", "b.html"},
        {"no path", "http://example.com", "(none)", ""},
        {"no hierarchy", "mailto:someone@example.com", "(none)", "someone@example.com"},
        {"a scheme that only begins like file", "files:///a", "(none)", "a"},
        {"no scheme", "a/b", "(none)", "b"},
    };
    for (const TextRow& row : rows) {
        SCOPED_TRACE(row.what);
        const Owned<CFURLRef> url = FromText(row.text);
        ASSERT_TRUE(url);
        EXPECT_EQ(URLText(url.Get()), row.text);
        EXPECT_EQ(NativePath(url.Get()), row.native);
        EXPECT_EQ(std::string(Path(url.Get())), std::string(row.native) == "(none)" ? "(null)" : row.native);
        // The zero byte ends the C text that the component is compared through.
        EXPECT_EQ(LastComponent(url.Get()), row.last);
    }
}

TEST(CoreFoundationURL, RefusesTextThatMustBeEncoded) {
    for (const char* text : {"", "file:///a b", "file:///\xC3\xA9", "file:///a%", "file:///a%2", "file:///a%zz", "http://a/<b>", "a\"b", "a\\b"}) {
        EXPECT_FALSE(FromText(text)) << text;
    }
}

TEST(CoreFoundationURL, RelativeTextIsResolvedAgainstTheBase) {
    const BaseRow rows[] = {
        {"a directory", "c%20d", "file:///a/b/", "file:///a/b/c%20d"},
        {"a file: its folder", "c", "file:///a/b", "file:///a/c"},
        {"up", "../c", "file:///a/b/", "file:///a/c"},
        {"no file", "c?d", "http://example.com/a/b", "http://example.com/a/c?d"},
        {"text with a scheme needs none", "http://example.com/", "file:///a/", "http://example.com/"},
    };
    for (const BaseRow& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(URLText(FromText(row.path, FromText(row.base).Get()).Get()), row.text);
    }
}

struct AppendRow {
    const char* what;
    const char* url;
    const char* component;
    bool isDirectory;
    const char* text;
};

TEST(CoreFoundationURL, TakesAnotherPathComponent) {
    const AppendRow rows[] = {
        {"to a directory", "file:///a/", "b.icc", false, "file:///a/b.icc"},
        {"to a file: as if it were a directory", "file:///a", "b.icc", false, "file:///a/b.icc"},
        {"a directory", "file:///a/", "b", true, "file:///a/b/"},
        {"to the root", "file:///", "b", false, "file:///b"},
        {"it is encoded", "file:///a/", "50% b", false, "file:///a/50%25%20b"},
        {"the rest stays encoded", "file:///a%20b/", "c", false, "file:///a%20b/c"},
        {"no file", "http://example.com/a", "b c", false, "http://example.com/a/b%20c"},
        {"before a query", "http://example.com/a/?q", "b", true, "http://example.com/a/b/?q"},
    };
    for (const AppendRow& row : rows) {
        SCOPED_TRACE(row.what);
        const Owned<CFURLRef> url = FromText(row.url);
        const Owned<CFURLRef> longer(
            CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, url.Get(), NewString(row.component).Get(), row.isDirectory));
        EXPECT_EQ(URLText(longer.Get()), row.text);
    }
}

TEST(CoreFoundationURL, AppendingKeepsBytesThatAreNotUTF8) {
    const Owned<CFURLRef> folder = FromBytes("/bad\xFF", true);
    const Owned<CFURLRef> url(CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, folder.Get(), CFSTR("b"), false));
    EXPECT_EQ(NativePath(url.Get()), "/bad\xFF/b");
}

TEST(CoreFoundationURL, ItsNativePathMustFitWithItsTerminatingZero) {
    const Owned<CFURLRef> url = FromPath("/abc");
    UInt8 buffer[8] = {};
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(url.Get(), true, buffer, 5));
    EXPECT_STREQ(reinterpret_cast<const char*>(buffer), "/abc");
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(url.Get(), true, buffer, 4));
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(url.Get(), true, buffer, 0));
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(url.Get(), true, buffer, -1));
}

TEST(CoreFoundationURL, IsEqualByItsText) {
    EXPECT_TRUE(CFEqual(FromPath("/a b").Get(), FromBytes("/a b").Get()));
    EXPECT_FALSE(CFEqual(FromPath("/a").Get(), FromPath("/b").Get()));
    EXPECT_FALSE(CFEqual(FromPath("/a", true).Get(), FromPath("/a", false).Get()));
}

}  // namespace
