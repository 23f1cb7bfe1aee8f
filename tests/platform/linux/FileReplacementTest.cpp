// What stands at a target is judged at the moment of the exchange: the program is linked so that the calls that exchange pass through here.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include "platform/Foundation.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace fs = std::filesystem;

namespace {

std::function<void()> sBeforeExchange;  // run once, before the next call that moves anything

void Pass() {
    if (sBeforeExchange) std::exchange(sBeforeExchange, nullptr)();
}

}  // namespace

extern "C" {

int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to);
int __real_renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags);
int __wrap_renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags);

__attribute__((used)) int __wrap_rename(const char* from, const char* to) {
    // A folder that holds something is moved by the other call: what changes, changes right before that one.
    if (!fs::is_directory(from)) Pass();
    return __real_rename(from, to);
}

__attribute__((used)) int __wrap_renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
    Pass();
    return __real_renameat2(fromFolder, from, toFolder, to, flags);
}

}  // extern "C"

namespace {

struct Replacing : testing::Test {
    void TearDown() override { EXPECT_FALSE(sBeforeExchange) << "nothing was moved"; }

    /// 0, or the number of the error.
    CFIndex Replace() const {
        CFErrorRef error = nullptr;
        const bool done = platform::ReplaceItem(NewURL(folder / "doc").Get(), NewURL(folder / "new").Get(), &error);
        const Owned<CFErrorRef> owner(error);
        return done ? 0 : error ? CFErrorGetCode(error) : -1;
    }
    static std::string PathOf(CFURLRef url) {
        UInt8 path[4096];
        return CFURLGetFileSystemRepresentation(url, true, path, sizeof path) ? reinterpret_cast<const char*>(path) : "(null)";
    }
    std::string Contents(const std::string& name) const {
        const auto bytes = ReadFile(folder / name);
        return {bytes.begin(), bytes.end()};
    }

    TemporaryFolder folder;
};

}  // namespace

TEST_F(Replacing, AFileKeepsAFolderThatAppearsMeanwhile) {
    for (const bool wasThere : {false, true}) {
        WriteFile(folder / "new", "new");
        if (wasThere) WriteFile(folder / "doc", "old");
        sBeforeExchange = [&] {
            fs::remove(folder / "doc");
            fs::create_directories(folder / "doc/part");
        };
        EXPECT_EQ(Replace(), EISDIR) << wasThere;
        EXPECT_TRUE(fs::is_directory(folder / "doc/part")) << wasThere;
        EXPECT_EQ(Contents("new"), "new") << wasThere;
        fs::remove_all(folder / "doc");
    }
}

TEST_F(Replacing, AFolderKeepsAFileThatAppearsMeanwhile) {
    fs::create_directories(folder / "doc/old part");
    fs::create_directories(folder / "new/new part");
    sBeforeExchange = [&] {
        fs::remove_all(folder / "doc");
        WriteFile(folder / "doc", "appeared");
    };
    EXPECT_EQ(Replace(), ENOTDIR);
    EXPECT_EQ(Contents("doc"), "appeared");
    EXPECT_TRUE(fs::is_directory(folder / "new/new part"));
}

TEST_F(Replacing, AFolderTakesTheOneThatAppearsMeanwhile) {
    fs::create_directories(folder / "doc/old part");
    fs::create_directories(folder / "new/new part");
    sBeforeExchange = [&] { WriteFile(folder / "doc/late", "x"); };
    EXPECT_EQ(Replace(), 0);
    EXPECT_TRUE(fs::is_directory(folder / "doc/new part"));
    EXPECT_FALSE(fs::exists(folder / "new")) << "the replaced one is gone with all it held";
}

TEST_F(Replacing, ReferencesIntoAPrivateFolderEndWithIt) {
    const Owned<CFURLRef> privateFolder(platform::CreateItemReplacementFolder(NewURL(folder / "doc").Get(), nullptr));
    ASSERT_TRUE(privateFolder);
    const std::string path = PathOf(privateFolder.Get());
    WriteFile(path + "/doc", "x");
    WriteFile(path + " beside", "x");
    const FSRef within = NewRef(path + "/doc"), itself = NewRef(path), beside = NewRef(path + " beside");
    platform::RemoveItemReplacementFolder(privateFolder.Get());
    fs::create_directory(path);
    WriteFile(path + "/doc", "another");
    const FSRef another = NewRef(path + "/doc");
    FSIORefNum fork;
    EXPECT_EQ(FSOpenFork(&within, 0, nullptr, fsRdPerm, &fork), -43);
    EXPECT_EQ(FSOpenFork(&itself, 0, nullptr, fsRdPerm, &fork), -43);
    EXPECT_EQ(::PathOf(beside), fs::canonical(path + " beside"));
    EXPECT_EQ(::PathOf(another), fs::canonical(path + "/doc"));
}
