#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "platform/linux/Carbon/CarbonAliasRecord.h"
#include "tests/fixtures/GuardedBytes.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

platform::AliasContents Sample() {
    platform::AliasContents contents;
    contents.volumeType = "ext4";
    contents.path = "/vol/folder/f";
    contents.mountLength = 4;
    contents.file.handle = "12345678";
    contents.folderHandle = "1234";
    return contents;
}

}  // namespace

// ---- bytes ----

TEST(AliasBytes, HaveAFixedOrderOnEveryMachine) {
    platform::AliasContents contents;
    contents.volumeId = 0x0102030405060708;
    contents.volumeType = "ext4";
    contents.path = "/vol/f";
    contents.mountLength = 4;
    contents.file = {0x1112131415161718, true, 0x2122232425262728, 0x31323334, 0x41424344, -2, 0x51525354, 0x61626364, "HH"};
    contents.folderHandleType = -1;
    contents.folderHandle = "P";
    const Bytes expected = {
        0,    0,    0,    0,    95,   0,    0,    0,                             // user type, size 95
        0x4F, 0x69, 0x61, 0x6C, 1,    0,    1,    0,                             // magic, version, birth known
        0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,                          // volume
        0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11,                          // inode
        0x28, 0x27, 0x26, 0x25, 0x24, 0x23, 0x22, 0x21, 0x34, 0x33, 0x32, 0x31,  // birth
        0x44, 0x43, 0x42, 0x41, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  // modified
        0x54, 0x53, 0x52, 0x51, 0,    0,    0,    0,                             // size
        0x64, 0x63, 0x62, 0x61, 0xFF, 0xFF, 0xFF, 0xFF,                          // handle types
        2,    0,    1,    0,    4,    0,    4,    0,    6,    0,                 // lengths
        'H',  'H',  'P',  'e',  'x',  't',  '4',  '/',  'v',  'o',  'l',  '/',  'f',
    };
    EXPECT_EQ(platform::AliasBytes(contents), expected);
    platform::AliasContents parsed;
    ASSERT_TRUE(platform::ParseAlias(expected.data(), expected.size(), parsed));
    EXPECT_EQ(platform::AliasBytes(parsed), expected);
    EXPECT_EQ(parsed.MountPoint(), "/vol");
    EXPECT_EQ(parsed.Folder(), "/vol");
    EXPECT_EQ(parsed.BaseName(), "f");
}

TEST(AliasBytes, CutShortAnywhereAreRefusedWithinTheirBounds) {
    const Bytes good = platform::AliasBytes(Sample());
    for (std::size_t length = 0; length < good.size(); ++length) {
        Bytes bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length));
        const auto size = static_cast<std::uint16_t>(length);
        if (length >= 6) std::memcpy(&bytes[4], &size, sizeof size);
        const GuardedBytes guarded(bytes);
        platform::AliasContents contents;
        EXPECT_FALSE(platform::ParseAlias(guarded.Data(), guarded.Length(), contents)) << length;
    }
}

TEST(AliasBytes, HoldPathsThatTheSystemTakes) {
    platform::AliasContents contents = Sample();
    for (const std::size_t length : {PATH_MAX - 1, PATH_MAX, PATH_MAX + 1}) {
        contents.path = "/vol/" + std::string(length - 5, 'x');
        const Bytes bytes = platform::AliasBytes(contents);
        platform::AliasContents parsed;
        EXPECT_EQ(!bytes.empty() && platform::ParseAlias(bytes.data(), bytes.size(), parsed), length < PATH_MAX) << length;
    }
}

TEST(AliasBytes, ChangedToAnyValueAreReadWithinTheirBounds) {
    const Bytes good = platform::AliasBytes(Sample());
    for (std::size_t i = 0; i < good.size(); ++i) {
        for (int value = 0; value < 256; ++value) {
            Bytes bytes = good;
            bytes[i] = static_cast<std::uint8_t>(value);
            const GuardedBytes guarded(bytes);
            platform::AliasContents parsed;
            if (!platform::ParseAlias(guarded.Data(), guarded.Length(), parsed)) continue;
            EXPECT_EQ(parsed.path.front(), '/') << i << " " << value;
            EXPECT_LE(parsed.mountLength, parsed.path.size()) << i << " " << value;
            EXPECT_EQ(platform::AliasBytes(parsed).size(), bytes.size()) << i << " " << value;
        }
    }
}

// ---- identity ----

TEST(FileIdentity, IsTheStrongestThatBothSidesKnow) {
    using platform::FileIdentity;
    const FileIdentity full = {7, true, 100, 5, 6, 200, 3, 1, "handle"};
    const auto with = [&](auto change) {
        FileIdentity identity = full;
        change(identity);
        return identity;
    };
    const FileIdentity noHandle = with([](FileIdentity& i) { i.handle.clear(); });
    const FileIdentity bare = with([](FileIdentity& i) { i.handle.clear(), i.birthKnown = false; });
    const struct {
        FileIdentity a, b;
        bool same;
        const char* what;
    } rows[] = {
        {full, full, true, "equal"},
        {full, with([](FileIdentity& i) { i.size = 9, i.modifiedSeconds = 201; }), true, "written to"},
        {full, with([](FileIdentity& i) { i.inode = 8; }), false, "another inode"},
        {full, with([](FileIdentity& i) { i.handle = "hundle"; }), false, "another handle: the inode was given again"},
        {full, with([](FileIdentity& i) { i.handleType = 2; }), false, "another kind of handle"},
        {full, with([](FileIdentity& i) { i.birthNanoseconds = 6; }), false, "born later, on a file system whose handles have no generation"},
        {full, noHandle, true, "no handle on one side: the birth time tells"},
        {noHandle, with([](FileIdentity& i) { i.handle.clear(), i.birthSeconds = 101; }), false, "no handles, born later"},
        {full, bare, true, "neither on one side: size and modification time tell"},
        {bare, with([](FileIdentity& i) { i.handle.clear(), i.size = 4; }), false, "neither, another size"},
        {bare, with([](FileIdentity& i) { i.handle.clear(), i.modifiedSeconds = 201; }), false, "neither, modified later"},
        {bare, with([](FileIdentity& i) { i.handle.clear(), i.modifiedNanoseconds = 7; }), false, "neither, modified a little later"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(platform::SameFile(row.a, row.b), row.same) << row.what;
        EXPECT_EQ(platform::SameFile(row.b, row.a), row.same) << row.what;
    }
}
