#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/Posix.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

attrlist Wanted(uint32_t common) {
    attrlist list = {};
    list.bitmapcount = ATTR_BIT_MAP_COUNT;
    list.commonattr = common;
    return list;
}

TEST(FinderInformation, ComesWithTheTypeOfTheObject) {
    const TemporaryFolder folder;
    WriteFile(folder / "a", "x");
    std::filesystem::create_symlink("a", folder / "link");
    const struct {
        std::string path;
        uint32_t type;
    } rows[] = {{folder / "a", VREG}, {folder / "link", VREG}, {folder / ".", VDIR}, {"/dev/null", VNON}};
    for (const auto& row : rows) {
        attrlist both = Wanted(ATTR_CMN_OBJTYPE | ATTR_CMN_FNDRINFO);
        uint32_t answer[10];
        std::memset(answer, 0xAA, sizeof answer);
        EXPECT_EQ(getattrlist(row.path.c_str(), &both, answer, sizeof answer, 0), 0) << row.path;
        EXPECT_EQ(answer[0], 40U) << row.path;
        EXPECT_EQ(answer[1], row.type) << row.path;
        for (int i = 2; i < 10; ++i) EXPECT_EQ(answer[i], 0U) << row.path;
    }
    attrlist one = Wanted(ATTR_CMN_OBJTYPE);
    uint32_t answer[3] = {0, 0, 0xAAAAAAAA};
    EXPECT_EQ(getattrlist((folder / "a").c_str(), &one, answer, sizeof answer, 0), 0);
    EXPECT_EQ(answer[0], 8U);
    EXPECT_EQ(answer[2], 0xAAAAAAAA);
    EXPECT_EQ(getattrlist((folder / "a").c_str(), &one, answer, 4, 0), 0) << "what does not fit is left out";
}

TEST(FinderInformation, KeepsTypeAndCreator) {
    const TemporaryFolder folder;
    WriteFile(folder / "a", "x");
    attrlist information = Wanted(ATTR_CMN_FNDRINFO);
    char bytes[32] = {'T', 'E', 'X', 'T', 'O', 'r', 'l', 'o'};
    const int stored = setattrlist((folder / "a").c_str(), &information, bytes, sizeof bytes, 0);
    if (stored != 0 && errno == ENOTSUP) GTEST_SKIP() << "the temporary folder's volume keeps no extended attributes";
    ASSERT_EQ(stored, 0);
    char answer[36];
    EXPECT_EQ(getattrlist((folder / "a").c_str(), &information, answer, sizeof answer, 0), 0);
    EXPECT_EQ(std::memcmp(answer + 4, bytes, sizeof bytes), 0);
}

TEST(FinderInformation, RefusesWhatItDoesNotKnow) {
    const TemporaryFolder folder;
    WriteFile(folder / "a", "x");
    char bytes[64] = {};
    attrlist unknown = Wanted(0x00000002), wrongCount = Wanted(ATTR_CMN_FNDRINFO), type = Wanted(ATTR_CMN_OBJTYPE),
             information = Wanted(ATTR_CMN_FNDRINFO);
    wrongCount.bitmapcount = 4;
    const std::string path = folder / "a";
    for (attrlist* list : {&unknown, &wrongCount}) {
        EXPECT_EQ(getattrlist(path.c_str(), list, bytes, sizeof bytes, 0), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(setattrlist(path.c_str(), &type, bytes, sizeof bytes, 0), -1);
    EXPECT_EQ(errno, EINVAL) << "the type of an object does not change";
    EXPECT_EQ(setattrlist(path.c_str(), &information, bytes, 31, 0), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(getattrlist((folder / "none").c_str(), &information, bytes, sizeof bytes, 0), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(setattrlist((folder / "none").c_str(), &information, bytes, sizeof bytes, 0), -1);
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
