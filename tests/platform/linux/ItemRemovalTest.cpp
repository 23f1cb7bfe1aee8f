// What may never be removed. Only the judgement is asked for, never a removal.

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/Carbon/CarbonFiles.h"
#include "platform/linux/Foundation/ItemRemoval.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/SmallVolume.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace fs = std::filesystem;

namespace {

// '1' for an item that may not be removed, '0' for one that may, '?' for none.
std::string Judged(const std::vector<std::string>& paths) {
    std::string answers;
    for (const std::string& path : paths) {
        std::string canonical;
        answers += platform::CanonicalPath(path, canonical) != 0 ? '?' : platform::IsIndispensable(canonical) ? '1' : '0';
    }
    return answers;
}

struct Removal : testing::Test {
    void SetUp() override {
        fs::create_directories(At("a/b/c"));
        fs::create_directories(At("beside"));
        WriteFile(At("a/file"), "x");
        fs::create_directory_symlink("a/b", At("link"));
    }
    std::string At(const std::string& name) const { return folder / name; }

    TemporaryFolder folder;
};

}  // namespace

TEST_F(Removal, OfOrdinaryItemsIsAllowed) {
    EXPECT_EQ(Judged({At("a"), At("a/b"), At("a/b/c/.."), At("a/file"), At("link"), At("link/.")}), "000000");
}

TEST_F(Removal, OfTheRootIsRefusedByEveryName) {
    EXPECT_EQ(Judged({"/", "/.", "/..", "//", "/./..", At("../../.."), At("a/../../../.."), "/usr/.."}), "11111111");
    fs::create_directory_symlink("/", At("to the root"));
    EXPECT_EQ(Judged({At("to the root/."), At("to the root")}), "10") << "the link itself may go";
}

TEST_F(Removal, OfTheHomeFolderIsRefusedWithAllAboveIt) {
    const auto inHome = [&](const std::string& home) {
        return InAChild([&] {
            setenv("HOME", home.c_str(), 1);
            return Judged({At("a"), At("a/b"), At("a/b/c"), At("link/."), At("link"), At("beside"), At("a/file"), At(".")});
        });
    };
    EXPECT_EQ(inHome(At("a/b")), "11010001");
    EXPECT_EQ(inHome(At("link")), "11010001") << "through a link";
    EXPECT_EQ(inHome(At("none")), "00000000");
    EXPECT_EQ(inHome(""), "00000000");
}

TEST_F(Removal, OfTheHomeFolderInThePasswordDatabaseIsRefusedWhateverHOMESays) {
    const passwd* entry = getpwuid(getuid());
    if (!entry || !fs::is_directory(entry->pw_dir)) GTEST_SKIP() << "this user has no home folder";
    const std::string home = entry->pw_dir;
    EXPECT_EQ(InAChild([&] {
                  setenv("HOME", At("beside").c_str(), 1);
                  return Judged({home, home + "/.", home + "/.."});
              }),
              "111");
}

TEST_F(Removal, OfTheCurrentFolderIsRefusedWithAllAboveIt) {
    EXPECT_EQ(InAChild([&] {
                  fs::current_path(At("link"));
                  return Judged({".", "..", At("a/b"), At("a"), At("."), At("a/b/c"), At("beside"), At("link")});
              }),
              "11111000");
}

TEST_F(Removal, OfTheCurrentFolderIsRefusedUnderAnyOfItsMounts) {
    const std::string answer = OnASmallVolume(At("beside"), "64k", [&]() -> std::string {
        fs::create_directories(At("beside/one/two"));
        fs::create_directory(At("beside/twin"));
        if (mount(At("beside/one").c_str(), At("beside/twin").c_str(), nullptr, MS_BIND, nullptr) != 0) return kNoVolume;
        fs::current_path(At("beside/twin/two"));
        return Judged({At("beside/one"), At("beside/one/two")});
    });
    if (answer == kNoVolume) GTEST_SKIP() << "mounting a small volume is not permitted here";
    EXPECT_EQ(answer, "11");
}

TEST_F(Removal, OfAMountPointIsRefusedWithAllAboveIt) {
    const std::string answer = OnASmallVolume(At("a/b"), "64k", [&]() -> std::string {
        fs::create_directories(At("a/b/of the volume"));
        WriteFile(At("beside/file"), "x");
        if (mount(At("a/file").c_str(), At("beside/file").c_str(), nullptr, MS_BIND, nullptr) != 0) return kNoVolume;
        return Judged({At("a/b"), At("a"), At("a/b/of the volume/.."), At("a/b/of the volume"), At("link/."), At("link"), At("a/file"),
                       At("beside/file"), At("beside")});
    });
    if (answer == kNoVolume) GTEST_SKIP() << "mounting a small volume is not permitted here";
    EXPECT_EQ(answer, "111010011") << "a file is a mount point too, where it is one";
}

TEST_F(Removal, OfAMountPointIsRefusedAlsoWhereNoMountTableCanBeRead) {
    const std::string answer = OnASmallVolume(At("a/b"), "64k", [&]() -> std::string {
        fs::create_directory(At("a/b/of the volume"));
        return chroot(At("a").c_str()) == 0 ? Judged({"/b", "/b/of the volume"}) : kNoVolume;
    });
    if (answer == kNoVolume) GTEST_SKIP() << "mounting a small volume is not permitted here";
    EXPECT_EQ(answer, "10");
}

TEST_F(Removal, OfTheRootThatAProcessWasGivenIsRefused) {
    const std::string answer = InAChild([&]() -> std::string {
        return chroot(At("a").c_str()) == 0 ? Judged({"/", "/b/..", "/b/c"}) : "(not permitted)";
    });
    if (answer == "(not permitted)") GTEST_SKIP() << "only root may be given another root";
    EXPECT_EQ(answer, "110");
}
