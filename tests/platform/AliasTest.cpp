#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/Carbon.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/CurrentDirectory.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes AliasOf(const std::string& path) {
    const FSRef ref = NewRef(path);
    AliasHandle alias = nullptr;
    EXPECT_EQ(FSNewAlias(nullptr, &ref, &alias), 0) << path;
    if (!alias) return {};
    const auto handle = reinterpret_cast<Handle>(alias);
    const auto* start = reinterpret_cast<std::uint8_t*>(*handle);
    Bytes bytes(start, start + GetHandleSize(handle));
    DisposeHandle(handle);
    return bytes;
}

struct Resolved {
    OSErr status;
    FSRef ref;
    bool wasChanged;
};

Resolved Resolve(const Bytes& bytes) {
    Handle handle = NewHandle(static_cast<Size>(bytes.size()));
    if (!bytes.empty()) std::memcpy(*handle, bytes.data(), bytes.size());
    Resolved result = {};
    Boolean wasChanged = FALSE;
    result.status = FSResolveAlias(nullptr, reinterpret_cast<AliasHandle>(handle), &result.ref, &wasChanged);
    result.wasChanged = wasChanged;
    DisposeHandle(handle);
    return result;
}

// "path", "path (changed)" or "(status)".
std::string Outcome(const Bytes& bytes) {
    const Resolved result = Resolve(bytes);
    if (result.status != 0) return "(" + std::to_string(result.status) + ")";
    return PathOf(result.ref) + (result.wasChanged ? " (changed)" : "");
}

std::string Changed(const std::string& path) {
    return path + " (changed)";
}

// Opening by a file handle is a privilege: with it a moved file is known at once, without it the folders are searched. Every test that finds
// a file runs both ways.
enum class Caller { AsItIs, Nobody };

struct Alias : testing::TestWithParam<Caller> {
    void SetUp() override {
        if (GetParam() == Caller::Nobody && geteuid() != 0) GTEST_SKIP() << "only root can become another user";
        fs::permissions(root, fs::perms(0755));
        fs::create_directories(At("home/.local/share/icc/mine"));
        fs::create_directories(At("a/b/c/d"));
        fs::create_directories(At("a/b/side"));
        fs::create_directories(At("far/away"));
        setenv("HOME", At("home").c_str(), 1);
        unsetenv("XDG_DATA_HOME");
        unsetenv("XDG_DATA_DIRS");
        WriteFile(At(kOld), "profile");
    }

    std::string At(const std::string& name) const { return root + "/" + name; }
    static std::string As(const Bytes& bytes) {
        return GetParam() == Caller::Nobody ? AsNobody([&] { return Outcome(bytes); }) : Outcome(bytes);
    }

    static constexpr const char* kOld = "a/b/c/old.icc";
    TemporaryFolder folder;
    const std::string root = fs::canonical(folder / ".");
};

struct AliasRecordBytes : testing::Test {
    TemporaryFolder folder;
    const std::string root = fs::canonical(folder / ".");
    std::string At(const std::string& name) const { return root + "/" + name; }
};

INSTANTIATE_TEST_SUITE_P(, Alias, testing::Values(Caller::AsItIs, Caller::Nobody),
                         [](const auto& row) { return row.param == Caller::AsItIs ? "AsItIs" : "AsNobody"; });

// Whether a file can be opened by its handle at all: the privilege, and a file system that has handles.
bool MayOpenByHandle(const std::string& path) {
    alignas(file_handle) char space[sizeof(file_handle) + MAX_HANDLE_SZ];
    auto* handle = reinterpret_cast<file_handle*>(space);
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mount = 0;
    const int volume = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (volume < 0 || name_to_handle_at(AT_FDCWD, path.c_str(), handle, &mount, 0) != 0) return false;
    const int file = open_by_handle_at(volume, handle, O_PATH | O_CLOEXEC);
    close(volume);
    return file >= 0 && close(file) == 0;
}

}  // namespace

// ---- found ----

TEST_P(Alias, OfAFileInItsPlaceResolvesUnchanged) {
    EXPECT_EQ(As(AliasOf(At(kOld))), At(kOld));
}

TEST_P(Alias, FollowsTheFileToItsNewPlace) {
    const struct {
        const char* to;
        const char* what;
    } rows[] = {
        {"a/b/c/new.icc", "renamed"},
        {"a/b/c/d/old.icc", "into a folder of the old one"},
        {"a/b/old.icc", "one folder up"},
        {"a/b/side/other name.icc", "into a folder beside the old one, with another name"},
        {"home/.local/share/icc/old.icc", "into the user's profile folder"},
        {"home/.local/share/icc/mine/old.icc", "into a folder of that"},
    };
    for (const auto& row : rows) {
        const Bytes bytes = AliasOf(At(kOld));
        fs::rename(At(kOld), At(row.to));
        EXPECT_EQ(As(bytes), Changed(At(row.to))) << row.what;
        fs::rename(At(row.to), At(kOld));
    }
}

TEST_P(Alias, FollowsTheFolder) {
    const Bytes bytes = AliasOf(At(kOld));
    fs::rename(At("a/b/c"), At("a/b/renamed"));
    EXPECT_EQ(As(bytes), Changed(At("a/b/renamed/old.icc")));
}

TEST_P(Alias, TakesTheFileThatASafeSavePutInPlace) {
    const Bytes bytes = AliasOf(At(kOld));
    ReplaceFile(At(kOld), "edited");
    EXPECT_EQ(As(bytes), At(kOld));
}

TEST_P(Alias, TakesASafeSavedFileInARenamedFolder) {
    const Bytes bytes = AliasOf(At(kOld));
    ReplaceFile(At(kOld), "edited");
    fs::rename(At("a/b/c"), At("a/b/renamed"));
    EXPECT_EQ(As(bytes), Changed(At("a/b/renamed/old.icc")));
}

TEST_P(Alias, TakesTheFileAtItsPathBeforeTheOneThatWasThere) {
    for (const char* backup : {"a/b/c/old.icc~", "a/b/c/old.icc.bak", "a/b/side/moved.icc", "home/.local/share/icc/old.icc"}) {
        const Bytes bytes = AliasOf(At(kOld));
        fs::rename(At(kOld), At(backup));
        WriteFile(At(kOld), "another");
        EXPECT_EQ(As(bytes), At(kOld)) << backup;
        fs::remove(At(kOld));
        EXPECT_EQ(As(bytes), Changed(At(backup))) << "the path names nothing any longer";
        fs::rename(At(backup), At(kOld));
    }
}

TEST_P(Alias, TakesTheFileAtItsPathInARenamedFolderBeforeTheOneThatWasThere) {
    const Bytes bytes = AliasOf(At(kOld));
    fs::rename(At(kOld), At("a/b/c/old.icc~"));
    WriteFile(At(kOld), "another");
    fs::rename(At("a/b/c"), At("a/b/renamed"));
    EXPECT_EQ(As(bytes), Changed(At("a/b/renamed/old.icc")));
    fs::remove(At("a/b/renamed/old.icc"));
    EXPECT_EQ(As(bytes), Changed(At("a/b/renamed/old.icc~")));
}

TEST_P(Alias, MayBeOfAFolderOrALinkOrTheRoot) {
    fs::create_symlink("old.icc", At("a/b/c/link"));
    for (const std::string& path : {At("a/b/c"), At("a/b/c/link"), std::string("/")}) EXPECT_EQ(As(AliasOf(path)), path);
}

TEST_P(Alias, KeepsNamesThatAreNoText) {
    for (const char* name : {"a/b/c/ blank ", "a/b/c/line\nbreak", "a/b/c/not utf-8 \xFF", "a/b/c/back\\040slash"}) {
        WriteFile(At(name), "x");
        const Bytes bytes = AliasOf(At(name));
        EXPECT_EQ(As(bytes), At(name));
        fs::rename(At(name), At(std::string(name) + "2"));
        EXPECT_EQ(As(bytes), Changed(At(std::string(name) + "2")));
    }
}

TEST_P(Alias, ReachesTheLongestPath) {
    // Built step by step, as no call takes more than a whole path; the last name makes it exactly the longest one.
    std::string path = root;
    const std::string name = [&] {
        const CurrentDirectory inside(path);
        while (PATH_MAX - 1 - path.size() > 210) {
            const std::string folderName(200, 'd');
            fs::create_directory(folderName);
            fs::current_path(folderName);
            path += "/" + folderName;
        }
        std::string last(PATH_MAX - 1 - path.size() - 1, 'f');
        WriteFile(last, "x");
        return last;
    }();
    path += "/" + name;
    ASSERT_EQ(path.size(), std::size_t{PATH_MAX - 1});
    const Bytes bytes = AliasOf(path);
    EXPECT_EQ(As(bytes), path);
    const std::string shorter = path.substr(0, path.size() - 1);
    fs::rename(path, shorter);
    EXPECT_EQ(As(bytes), Changed(shorter));
}

TEST(AliasOfAFarMove, ResolvesWithThePrivilegeOnly) {
    TemporaryFolder folder;
    const fs::path root = fs::canonical(folder / ".");
    if (!MayOpenByHandle(root)) GTEST_SKIP() << "this user may not open files by handle, or the file system has none";
    fs::permissions(root, fs::perms(0755));
    const fs::path here = root / "a/b/c", there = root / "x/y/z";
    fs::create_directories(here);
    fs::create_directories(there);
    WriteFile(here / "old.icc", "profile");
    const Bytes bytes = AliasOf((here / "old.icc").string());
    fs::rename(here / "old.icc", there / "old.icc");
    EXPECT_EQ(Outcome(bytes), Changed((there / "old.icc").string()));
    EXPECT_EQ(AsNobody([&] { return Outcome(bytes); }), "(-43)");
}

// ---- not found ----

TEST_P(Alias, OfADeletedFileIsNotFound) {
    const Bytes bytes = AliasOf(At(kOld));
    fs::remove(At(kOld));
    EXPECT_EQ(As(bytes), "(-43)");
}

TEST_P(Alias, OfADeletedFileThatIsStillOpenIsNotFound) {
    const Bytes bytes = AliasOf(At(kOld));
    const int file = open(At(kOld).c_str(), O_RDONLY | O_CLOEXEC);
    fs::remove(At(kOld));
    EXPECT_EQ(As(bytes), "(-43)");
    close(file);
}

TEST_P(Alias, OfADeletedFolderIsNotFound) {
    const Bytes bytes = AliasOf(At(kOld));
    fs::remove_all(At("a"));
    EXPECT_EQ(As(bytes), "(-43)");
}

TEST_P(Alias, DoesNotTakeANewFileWithTheOldInodeNumber) {
    const Bytes bytes = AliasOf(At(kOld));
    struct stat old, fresh = {};
    ASSERT_EQ(stat(At(kOld).c_str(), &old), 0);
    fs::remove(At(kOld));
    // Whichever way the file system hands out numbers, the old one is among the first few hundred.
    std::string name;
    for (int i = 0; i < 500 && fresh.st_ino != old.st_ino; ++i) {
        name = At("a/b/c/new" + std::to_string(i));
        WriteFile(name, "another");
        ASSERT_EQ(stat(name.c_str(), &fresh), 0);
    }
    if (fresh.st_ino != old.st_ino) GTEST_SKIP() << "this file system does not give the number of a deleted file to a new one";
    EXPECT_EQ(As(bytes), "(-43)");
}

// ---- volumes ----

namespace {

// Mounts a volume of its own in `point`, in a name space that ends with the child process.
bool MountPrivately(const std::string& point) {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("volume", point.c_str(), "tmpfs", 0, "size=1m") == 0;
}

}  // namespace

TEST(AliasOnAVolume, TellsAMissingVolumeFromAMissingFile) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may mount a volume";
    TemporaryFolder folder;
    const std::string root = fs::canonical(folder / ".");
    const std::string first = root + "/first volume", second = root + "/second volume";
    fs::create_directories(first);
    fs::create_directories(second);
    const std::string seen = InAChild([&]() -> std::string {
        if (!MountPrivately(first)) return "(no mount)";
        fs::create_directory(first + "/sub");
        WriteFile(first + "/sub/file", "x");
        const Bytes bytes = AliasOf(first + "/sub/file");
        const Bytes ofVolume = AliasOf(first);
        std::string lines = Outcome(bytes) + "\n" + Outcome(ofVolume) + "\n";
        if (mount(first.c_str(), second.c_str(), nullptr, MS_MOVE, nullptr) != 0) return "(no move)";
        lines += Outcome(bytes) + "\n";
        ReplaceFile(second + "/sub/file", "edited");
        lines += Outcome(bytes) + "\n";
        fs::rename(second + "/sub/file", second + "/sub/file~");
        WriteFile(second + "/sub/file", "another");
        const Bytes moved = AliasOf(second + "/sub/file~");
        fs::rename(second + "/sub/file~", second + "/backup");
        WriteFile(second + "/sub/file~", "another");
        if (mount(second.c_str(), first.c_str(), nullptr, MS_MOVE, nullptr) != 0) return "(no move)";
        lines += Outcome(moved) + "\n";
        if (mount(first.c_str(), second.c_str(), nullptr, MS_MOVE, nullptr) != 0) return "(no move)";
        fs::remove(second + "/sub/file");
        lines += Outcome(bytes) + "\n";
        if (umount(second.c_str()) != 0) return "(no unmount)";
        lines += Outcome(bytes) + "\n";
        return lines;
    });
    if (seen == "(no mount)") GTEST_SKIP() << "this system does not let root mount a volume";
    EXPECT_EQ(seen, first + "/sub/file\n" +                 // in place
                        first + "\n" +                      // the volume itself
                        second + "/sub/file (changed)\n" +  // mounted elsewhere
                        second + "/sub/file (changed)\n" +  // and replaced by a safe save there
                        first + "/sub/file~ (changed)\n" +  // mounted elsewhere, with another file at the path on it
                        "(-43)\n" +                         // deleted
                        "(-35)\n");                         // volume taken away
}

// ---- bytes ----

TEST_F(AliasRecordBytes, BeginWithThePublicHeader) {
    WriteFile(At("a.icc"), "x");
    const FSRef ref = NewRef(At("a.icc"));
    AliasHandle alias = nullptr;
    ASSERT_EQ(FSNewAlias(nullptr, &ref, &alias), 0);
    EXPECT_EQ((*alias)->userType, 0u);
    EXPECT_EQ((*alias)->aliasSize, GetHandleSize(reinterpret_cast<Handle>(alias)));
    (*alias)->userType = 0x41424344;  // belongs to the host
    FSRef found;
    Boolean wasChanged = TRUE;
    EXPECT_EQ(FSResolveAliasWithMountFlags(nullptr, alias, &found, &wasChanged, kResolveAliasFileNoUI), 0);
    EXPECT_FALSE(wasChanged);
    EXPECT_EQ(PathOf(found), At("a.icc"));
    EXPECT_EQ(FSResolveAliasWithMountFlags(nullptr, alias, &found, nullptr, kResolveAliasFileNoUI), 0) << "nobody need ask whether it moved";
    EXPECT_EQ(FSResolveAlias(nullptr, alias, nullptr, &wasChanged), -50);
    DisposeHandle(reinterpret_cast<Handle>(alias));
}

TEST_F(AliasRecordBytes, AreTheSameForTheSameFile) {
    WriteFile(At("a.icc"), "x");
    EXPECT_EQ(AliasOf(At("a.icc")), AliasOf(At("a.icc")));
}

TEST_F(AliasRecordBytes, ThatAreNoRecordAreAParameterError) {
    WriteFile(At("a.icc"), "x");
    const Bytes good = AliasOf(At("a.icc"));
    const auto with = [&](std::size_t offset, std::uint8_t value) {
        Bytes bytes = good;
        bytes.at(offset) = value;
        return bytes;
    };
    Bytes longer = good;
    longer.push_back('x');
    Bytes endsInSlash = good;
    endsInSlash.back() = '/';
    Bytes relative = good;
    relative.at(relative.size() - At("a.icc").size()) = 'x';
    Bytes cutByZero = good;
    cutByZero.back() = 0;
    const struct {
        Bytes bytes;
        const char* what;
    } rows[] = {
        {{}, "nothing"},
        {Bytes(8), "eight zeros"},
        {Bytes(300, 0xFF), "all ones"},
        {Bytes(65536), "longer than the size field can say"},
        {longer, "a byte behind the record"},
        {with(4, 0), "another size"},
        {with(8, 0), "another magic"},
        {with(12, 2), "a later version"},
        {with(72, 200), "a file handle longer than there are"},
        {with(80, 0), "a shorter path"},
        {with(78, 2), "a mount point that ends inside a name"},
        {relative, "a relative path"},
        {endsInSlash, "a path that ends in a slash"},
        {cutByZero, "a path with a zero byte"},
    };
    for (const auto& row : rows) EXPECT_EQ(Outcome(row.bytes), "(-50)") << row.what;
    FSRef ref;
    EXPECT_EQ(FSResolveAlias(nullptr, nullptr, &ref, nullptr), -50);
    const FSRef target = NewRef(At("a.icc"));
    EXPECT_EQ(FSNewAlias(nullptr, &target, nullptr), -50);
    AliasHandle alias;
    EXPECT_EQ(FSNewAlias(nullptr, nullptr, &alias), -50);
    EXPECT_EQ(alias, nullptr);
}

TEST_F(AliasRecordBytes, CutShortAnywhereAreAParameterError) {
    WriteFile(At("a.icc"), "x");
    const Bytes good = AliasOf(At("a.icc"));
    for (std::size_t length = 0; length < good.size(); ++length) {
        Bytes bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(Resolve(bytes).status, -50) << length;
        // Also when the record says of itself that it is that short.
        if (length >= 6) {
            const auto size = static_cast<std::uint16_t>(length);
            std::memcpy(&bytes[4], &size, sizeof size);
            EXPECT_EQ(Resolve(bytes).status, -50) << length;
        }
    }
}

TEST_F(AliasRecordBytes, ChangedAnywhereGiveAStatusOrAFileThatExists) {
    fs::create_directories(At("a/b"));
    WriteFile(At("a/b/f"), "x");
    const Bytes good = AliasOf(At("a/b/f"));
    int found = 0, refused = 0;
    for (std::size_t i = 0; i < good.size(); ++i) {
        for (const int change : {0x01, 0x20, 0x80, 0xFF}) {
            Bytes bytes = good;
            bytes[i] = static_cast<std::uint8_t>(bytes[i] ^ change);
            const Resolved result = Resolve(bytes);
            if (result.status == 0) {
                EXPECT_TRUE(fs::exists(fs::symlink_status(PathOf(result.ref)))) << i << " " << change;
                ++found;
            } else {
                EXPECT_TRUE(result.status == -50 || result.status == -43 || result.status == -35) << i << " " << change << ": " << result.status;
                if (result.status == -50) ++refused;
            }
        }
    }
    EXPECT_GT(found, 0);
    EXPECT_GT(refused, 0);
}
