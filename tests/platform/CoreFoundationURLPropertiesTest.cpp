#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

struct URLProperties : testing::Test {
    TemporaryFolder folder;

    Owned<CFURLRef> URL(const std::string& name) const { return NewURL(folder / name); }
    /// The property; null also when it cannot be read.
    Owned<CFTypeRef> Property(const std::string& name, CFStringRef key) const {
        CFTypeRef value = nullptr;
        EXPECT_TRUE(CFURLCopyResourcePropertyForKey(URL(name).Get(), key, &value, nullptr)) << name;
        return Owned<CFTypeRef>(value);
    }
};

TEST_F(URLProperties, TellTheLengthOfPlainFilesOnly) {
    WriteFile(folder / "a", "12345");
    fs::create_directory(folder / "sub");
    const Owned<CFTypeRef> size = Property("a", kCFURLFileSizeKey);
    ASSERT_TRUE(size);
    ASSERT_EQ(CFGetTypeID(size.Get()), CFNumberGetTypeID());
    int64_t length = 0;
    EXPECT_TRUE(CFNumberGetValue(static_cast<CFNumberRef>(size.Get()), kCFNumberSInt64Type, &length));
    EXPECT_EQ(length, 5);
    EXPECT_FALSE(Property("sub", kCFURLFileSizeKey)) << "a folder has none, which is no failure";
}

TEST_F(URLProperties, TellNamesAndAliases) {
    WriteFile(folder / "a b", "");
    fs::create_symlink("a b", folder / "link");
    const Owned<CFTypeRef> name = Property("a b", kCFURLLocalizedNameKey);
    EXPECT_EQ(Text(static_cast<CFStringRef>(name.Get())), "a b");
    EXPECT_EQ(Property("a b", kCFURLIsAliasFileKey).Get(), kCFBooleanFalse);
    EXPECT_EQ(Property("link", kCFURLIsAliasFileKey).Get(), kCFBooleanTrue);
    EXPECT_FALSE(Property("a b", CFSTR("NSURLColourOfInkKey"))) << "a property that nobody knows";
}

TEST_F(URLProperties, IdentifyObjects) {
    WriteFile(folder / "a", "");
    WriteFile(folder / "b", "");
    fs::create_hard_link(folder / "a", folder / "same");
    const Owned<CFTypeRef> a = Property("a", kCFURLFileResourceIdentifierKey);
    EXPECT_TRUE(CFEqual(a.Get(), Property("same", kCFURLFileResourceIdentifierKey).Get()));
    EXPECT_FALSE(CFEqual(a.Get(), Property("b", kCFURLFileResourceIdentifierKey).Get()));
}

TEST_F(URLProperties, AnswerAnErrorWhereNothingStands) {
    const Owned<CFURLRef> web(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://localhost/a"), nullptr));
    const struct {
        Owned<CFURLRef> url;
        CFIndex error;
    } rows[] = {{URL("none"), ENOENT}, {Owned<CFURLRef>::Retain(web.Get()), EINVAL}};
    for (const auto& row : rows) {
        CFTypeRef value = nullptr;
        CFErrorRef error = nullptr;
        EXPECT_FALSE(CFURLCopyResourcePropertyForKey(row.url.Get(), kCFURLFileSizeKey, &value, &error));
        const Owned<CFErrorRef> owner(error);
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(CFErrorGetCode(error), row.error);
        EXPECT_FALSE(CFURLCopyResourcePropertyForKey(row.url.Get(), kCFURLFileSizeKey, &value, nullptr));
    }
}

TEST_F(URLProperties, BookmarksOfAliasFilesLeadToTheFileAlsoAfterARename) {
    WriteFile(folder / "a", "x");
    fs::create_symlink("a", folder / "link");
    const Owned<CFDataRef> bookmark(CFURLCreateBookmarkDataFromFile(kCFAllocatorDefault, URL("link").Get(), nullptr));
    ASSERT_TRUE(bookmark);
    const auto resolve = [&](CFDataRef data, Boolean* stale, CFErrorRef* error) {
        return Owned<CFURLRef>(
            CFURLCreateByResolvingBookmarkData(kCFAllocatorDefault, data, kCFURLBookmarkResolutionWithoutUIMask, nullptr, nullptr, stale, error));
    };
    Boolean stale = true;
    EXPECT_TRUE(CFEqual(resolve(bookmark.Get(), &stale, nullptr).Get(), NewURL(fs::canonical(folder / "a")).Get()));
    EXPECT_FALSE(stale);
    fs::rename(folder / "a", folder / "renamed");
    EXPECT_TRUE(CFEqual(resolve(bookmark.Get(), &stale, nullptr).Get(), NewURL(fs::canonical(folder / "renamed")).Get()));
    EXPECT_TRUE(stale);
    fs::remove(folder / "renamed");
    CFErrorRef error = nullptr;
    EXPECT_FALSE(resolve(bookmark.Get(), nullptr, &error));
    const Owned<CFErrorRef> gone(error);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(CFErrorGetCode(error), ENOENT);
    const UInt8 bytes[] = {1, 2, 3};
    const Owned<CFDataRef> text(CFDataCreate(kCFAllocatorDefault, bytes, sizeof bytes)), empty(CFDataCreate(kCFAllocatorDefault, bytes, 0));
    EXPECT_FALSE(resolve(text.Get(), nullptr, nullptr)) << "no bookmark";
    EXPECT_FALSE(resolve(empty.Get(), nullptr, nullptr)) << "no bytes";
}

TEST_F(URLProperties, OnlyAliasFilesThatLeadSomewhereGiveBookmarks) {
    WriteFile(folder / "a", "x");
    fs::create_symlink("none", folder / "dangling");
    for (const char* name : {"a", "dangling", "none"}) {
        CFErrorRef error = nullptr;
        EXPECT_EQ(CFURLCreateBookmarkDataFromFile(kCFAllocatorDefault, URL(name).Get(), &error), nullptr) << name;
        const Owned<CFErrorRef> owner(error);
        EXPECT_NE(error, nullptr) << name;
    }
}

TEST(URLFolder, IsTheURLWithoutItsLastComponent) {
    const struct {
        const char* path;
        const char* expected;
    } rows[] = {{"/a/b", "file:///a/"}, {"/a/b c/", "file:///a/"}, {"/b c/d", "file:///b%20c/"}, {"/a", "file:///"}, {"/", "file:///"}};
    for (const auto& row : rows) {
        const Owned<CFURLRef> above(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, NewURL(row.path).Get()));
        EXPECT_EQ(Text(CFURLGetString(above.Get())), row.expected);
    }
    const Owned<CFURLRef> web(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://localhost/a/b"), nullptr));
    EXPECT_EQ(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, web.Get()), nullptr);
}

TEST(UUID, IsItsBytesAndTheirText) {
    const CFUUIDBytes bytes = {0x68, 0x75, 0x3A, 0x44, 0x4D, 0x6F, 0x12, 0x26, 0x9C, 0x60, 0x00, 0x50, 0xE4, 0xC0, 0x00, 0x67};
    CFUUIDBytes others = bytes;
    others.byte15 = 0x68;
    const Owned<CFUUIDRef> uuid(CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes)), same(CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes)),
        other(CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, others));
    EXPECT_EQ(CFGetTypeID(uuid.Get()), CFUUIDGetTypeID());
    EXPECT_EQ(Text(Owned<CFStringRef>(CFUUIDCreateString(kCFAllocatorDefault, uuid.Get()))), "68753A44-4D6F-1226-9C60-0050E4C00067");
    EXPECT_TRUE(CFEqual(uuid.Get(), same.Get()));
    EXPECT_EQ(CFHash(uuid.Get()), CFHash(same.Get()));
    EXPECT_FALSE(CFEqual(uuid.Get(), other.Get()));
    EXPECT_EQ(CFUUIDGetUUIDBytes(uuid.Get()).byte14, 0x00);
    EXPECT_EQ(CFUUIDGetUUIDBytes(uuid.Get()).byte15, 0x67);
}

}  // namespace
