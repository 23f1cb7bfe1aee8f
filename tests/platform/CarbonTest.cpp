#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/Carbon.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/CurrentDirectory.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/TracedChild.h"

namespace fs = std::filesystem;

namespace {

struct Files : testing::Test {
    TemporaryFolder folder;
    const std::string root = fs::canonical(folder / ".");
    std::string At(const std::string& name) const { return root + "/" + name; }
    std::string Write(const std::string& name, const std::string& text) const {
        WriteFile(At(name), text);
        return At(name);
    }
};

OSErr Open(const FSRef& ref, FSIORefNum* fork) {
    HFSUniStr255 name;
    EXPECT_EQ(FSGetDataForkName(&name), 0);
    return FSOpenFork(&ref, name.length, name.unicode, fsRdPerm, fork);
}

// The whole data fork, or "(status)".
std::string Contents(const FSRef& ref) {
    FSIORefNum fork = -1;
    if (const OSErr status = Open(ref, &fork)) return "(" + std::to_string(status) + ")";
    SInt64 size = -1;
    EXPECT_EQ(FSGetForkSize(fork, &size), 0);
    std::string text(static_cast<std::size_t>(size), '?');
    unsigned long actual = 0;
    EXPECT_EQ(FSReadFork(fork, fsFromStart, 0, text.size(), text.data(), &actual), 0);
    EXPECT_EQ(actual, text.size());
    EXPECT_EQ(FSCloseFork(fork), 0);
    return text;
}

}  // namespace

using FileReference = Files;
using DataFork = Files;
using AliasFile = Files;

// ---- references ----

TEST_F(FileReference, IsAPlainRecordOfEightyBytes) {
    static_assert(sizeof(FSRef) == 80 && std::is_trivially_copyable_v<FSRef>);
    const FSRef ref = NewRef(Write("a.icc", "bytes"));
    std::vector<UInt8> stored(sizeof ref);
    std::memcpy(stored.data(), &ref, sizeof ref);
    FSRef copy;
    std::memcpy(&copy, stored.data(), sizeof copy);
    EXPECT_EQ(PathOf(copy), At("a.icc"));
}

TEST_F(FileReference, ExistsForFilesFoldersAndLinksThatExist) {
    fs::create_directory(At("sub"));
    Write("file", "x");
    fs::create_symlink("nowhere", At("dangling"));
    const struct {
        Owned<CFURLRef> url;
        bool exists;
        const char* what;
    } rows[] = {
        {NewURL(At("file")), true, "a file"},
        {NewURL(At("sub")), true, "a folder"},
        {NewURL(At("sub"), true), true, "a folder by a folder's URL"},
        {NewURL("/"), true, "the root"},
        {NewURL(At("dangling")), true, "a link counts, wherever it leads"},
        {NewURL(At("missing")), false, "nothing there"},
        {NewURL(At("file/below")), false, "below a file"},
        {Owned<CFURLRef>(CFURLCreateWithString(nullptr, CFSTR("https://example.org/a.icc"), nullptr)), false, "no file URL"},
        {Owned<CFURLRef>(), false, "no URL"},
    };
    for (const auto& row : rows) {
        FSRef ref = {};
        EXPECT_EQ(CFURLGetFSRef(row.url.Get(), &ref) != FALSE, row.exists) << row.what;
    }
    EXPECT_FALSE(CFURLGetFSRef(NewURL(At("file")).Get(), nullptr));
}

TEST_F(FileReference, LeadsBackToAURLOfTheRightKind) {
    fs::create_directory(At("sub"));
    fs::create_symlink("sub", At("link"));
    const struct {
        std::string path;
        bool isDirectory;
    } rows[] = {{Write("a b.icc", "x"), false}, {At("sub"), true}, {At("link"), false}, {"/", true}};
    for (const auto& row : rows) {
        const FSRef ref = NewRef(row.path);
        EXPECT_EQ(PathOf(ref), row.path);
        const Owned<CFURLRef> url(CFURLCreateFromFSRef(nullptr, &ref));
        ASSERT_TRUE(url) << row.path;
        EXPECT_EQ(Text(CFURLGetString(url.Get())).ends_with("/"), row.isDirectory) << row.path;
    }
}

TEST_F(FileReference, ResolvesLinksInTheFolderPartOnly) {
    fs::create_directory(At("sub"));
    WriteFile(At("sub/file"), "x");
    fs::create_symlink("sub", At("link"));
    fs::create_symlink("file", At("sub/alias"));
    const struct {
        const char* given;
        const char* canonical;
    } rows[] = {{"link/file", "sub/file"},  {"sub/../sub/file", "sub/file"},
                {"sub/./file", "sub/file"}, {"link/alias", "sub/alias"},
                {"sub/.", "sub"},           {"link/..", ""},
                {"sub//file", "sub/file"},  {"link", "link"}};
    for (const auto& row : rows) {
        EXPECT_EQ(PathOf(NewRef(At(row.given))), *row.canonical ? At(row.canonical) : root) << row.given;
    }
}

TEST_F(FileReference, MadeFromARelativePathKeepsItsMeaningAfterAChangeOfFolder) {
    Write("a.icc", "x");
    FSRef ref;
    {
        const CurrentDirectory inside(root);
        ASSERT_TRUE(CFURLGetFSRef(NewURL("a.icc").Get(), &ref));
    }
    EXPECT_EQ(PathOf(ref), At("a.icc"));
}

TEST_F(FileReference, NamesTheFileThatASafeSavePutInPlace) {
    const std::string path = Write("a.icc", "old");
    const FSRef ref = NewRef(path);
    ReplaceFile(path, "new one");
    EXPECT_EQ(Contents(ref), "new one");
}

TEST_F(FileReference, IsNotFoundOnceTheFileIsGone) {
    const std::string path = Write("a.icc", "x");
    const FSRef ref = NewRef(path);
    fs::remove(path);
    FSIORefNum fork;
    EXPECT_EQ(Open(ref, &fork), -43);
    EXPECT_EQ(PathOf(ref), "(null)");
    AliasHandle alias = nullptr;
    EXPECT_EQ(FSNewAlias(nullptr, &ref, &alias), -43);
    EXPECT_EQ(alias, nullptr);
}

TEST_F(FileReference, ThatWasNeverFilledIsAParameterError) {
    std::vector<FSRef> refs(2);
    std::memset(&refs[1], 0xFF, sizeof refs[1]);
    const FSRef real = NewRef(Write("a.icc", "x"));
    for (std::size_t i = 0; i < 24; ++i) {
        FSRef changed = real;
        changed.hidden[i] ^= 0x10;
        refs.push_back(changed);
    }
    for (const FSRef& ref : refs) {
        FSIORefNum fork;
        EXPECT_EQ(Open(ref, &fork), -50);
        EXPECT_EQ(PathOf(ref), "(null)");
        AliasHandle alias;
        EXPECT_EQ(FSNewAlias(nullptr, &ref, &alias), -50);
        FSRef followed = ref;
        Boolean isFolder, wasAliased;
        EXPECT_EQ(FSResolveAliasFileWithMountFlags(&followed, TRUE, &isFolder, &wasAliased, kResolveAliasFileNoUI), -50);
    }
    EXPECT_EQ(CFURLCreateFromFSRef(nullptr, nullptr), nullptr);
}

TEST_F(FileReference, MayBeMadeOnManyThreads) {
    constexpr int kFiles = 40;
    for (int i = 0; i < kFiles; ++i) Write(std::to_string(i), std::to_string(i));
    std::vector<std::thread> threads;
    std::vector<int> wrong(4);
    threads.reserve(wrong.size());
    for (int& count : wrong) {
        threads.emplace_back([&] {
            for (int round = 0; round < 5; ++round) {
                for (int i = 0; i < kFiles; ++i) {
                    FSRef ref;
                    const std::string name = At(std::to_string(i));
                    if (!CFURLGetFSRef(NewURL(name).Get(), &ref) || PathOf(ref) != name) ++count;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

// ---- data forks ----

TEST_F(DataFork, HasTheEmptyName) {
    HFSUniStr255 name;
    name.length = 9;
    EXPECT_EQ(FSGetDataForkName(&name), 0);
    EXPECT_EQ(name.length, 0);
    EXPECT_EQ(FSGetDataForkName(nullptr), -50);
}

TEST_F(DataFork, GivesSizeAndBytes) {
    EXPECT_EQ(Contents(NewRef(Write("a", "some bytes"))), "some bytes");
    EXPECT_EQ(Contents(NewRef(Write("empty", ""))), "");
    fs::create_symlink("a", At("link"));
    EXPECT_EQ(Contents(NewRef(At("link"))), "some bytes") << "a link is read through";
}

TEST_F(DataFork, ReadsFromAnyOffsetAndTellsWhereTheFileEnded) {
    FSIORefNum fork;
    ASSERT_EQ(Open(NewRef(Write("a", "0123456789")), &fork), 0);
    const struct {
        SInt64 offset;
        unsigned long requested;
        const char* bytes;
        const char* what;
        OSErr status;
        UInt16 mode;
    } rows[] = {
        {0, 10, "0123456789", "all", 0, fsFromStart},
        {3, 4, "3456", "the middle", 0, fsFromStart},
        {3, 0, "", "nothing", 0, fsFromStart},
        {8, 4, "89", "past the end", -39, fsFromStart},
        {10, 1, "", "at the end", -39, fsFromStart},
        {LLONG_MAX - 100, 1, "", "far behind the end", -39, fsFromStart},
        {0, 11, "0123456789", "one too many", -39, fsFromStart},
        {-1, 1, "", "before the start", -50, fsFromStart},
        {0, 1, "", "an unknown position mode", -50, 0},
    };
    for (const auto& row : rows) {
        char buffer[16] = {};
        unsigned long actual = 99;
        EXPECT_EQ(FSReadFork(fork, row.mode, row.offset, row.requested, buffer, &actual), row.status) << row.what;
        EXPECT_EQ(std::string(buffer), row.bytes) << row.what;
        EXPECT_EQ(actual, std::strlen(row.bytes)) << row.what;
    }
    char byte = 0;
    EXPECT_EQ(FSReadFork(fork, fsFromStart, 9, 1, &byte, nullptr), 0) << "nobody need ask for the count";
    EXPECT_EQ(byte, '9');
    EXPECT_EQ(FSReadFork(fork, fsFromStart, 0, 1, nullptr, nullptr), -50);
    EXPECT_EQ(FSCloseFork(fork), 0);
}

TEST_F(DataFork, MayBeLargerThanFourGibibytes) {
    constexpr SInt64 kSize = (5LL << 30) + 1;
    const std::string path = Write("a", "");
    fs::resize_file(path, kSize);
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(pwrite(file, "z", 1, kSize - 1), 1);
    close(file);
    FSIORefNum fork;
    ASSERT_EQ(Open(NewRef(path), &fork), 0);
    SInt64 size = 0;
    EXPECT_EQ(FSGetForkSize(fork, &size), 0);
    EXPECT_EQ(size, kSize);
    char last[2] = {};
    unsigned long actual = 0;
    EXPECT_EQ(FSReadFork(fork, fsFromStart, kSize - 2, 2, last, &actual), 0);
    EXPECT_EQ(last[0], 0);
    EXPECT_EQ(last[1], 'z');
    EXPECT_EQ(FSCloseFork(fork), 0);
}

TEST_F(DataFork, IsOpenedForReadingOnlyAndOfPlainFilesOnly) {
    fs::create_directory(At("sub"));
    fs::create_symlink("loop", At("loop"));
    fs::create_symlink("nowhere", At("dangling"));
    ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
    const FSRef file = NewRef(Write("a", "x"));
    const struct {
        FSRef ref;
        UniCharCount nameLength;
        const char* what;
        OSErr status;
        SInt8 permissions;
    } rows[] = {
        {file, 0, "for writing", -54, 3},
        {file, 13, "a fork of another name", -1409, fsRdPerm},
        {NewRef(At("sub")), 0, "a folder", -1302, fsRdPerm},
        {NewRef(At("pipe")), 0, "a pipe, without waiting for a writer", -1302, fsRdPerm},
        {NewRef("/dev/null"), 0, "a device", -1302, fsRdPerm},
        {NewRef(At("dangling")), 0, "a link that leads nowhere", -43, fsRdPerm},
        {NewRef(At("loop")), 0, "a link to itself", -36, fsRdPerm},
    };
    const UniChar name[] = {'R', 'E', 'S', 'O', 'U', 'R', 'C', 'E', '_', 'F', 'O', 'R', 'X'};
    for (const auto& row : rows) {
        FSIORefNum fork = -7;
        EXPECT_EQ(FSOpenFork(&row.ref, row.nameLength, name, row.permissions, &fork), row.status) << row.what;
        EXPECT_EQ(fork, -7) << row.what;
    }
    EXPECT_EQ(FSOpenFork(nullptr, 0, nullptr, fsRdPerm, nullptr), -50);
    EXPECT_EQ(FSOpenFork(&file, 0, nullptr, fsRdPerm, nullptr), -50);
}

// Opening alone can have effects: a pipe's writer would go on, a tape would wind back.
TEST_F(DataFork, OfWhatIsNoPlainFileIsNotEvenOpened) {
    ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
    const FSRef pipe = NewRef(At("pipe")), file = NewRef(Write("a", "x"));
    const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    ASSERT_GE(inotify_add_watch(watch, root.c_str(), IN_OPEN), 0);
    FSIORefNum fork;
    alignas(inotify_event) char events[4096];
    EXPECT_EQ(Open(pipe, &fork), -1302);
    EXPECT_EQ(read(watch, events, sizeof events), -1);
    ASSERT_EQ(Open(file, &fork), 0);
    EXPECT_GT(read(watch, events, sizeof events), 0) << "the watch sees a plain file's opening";
    FSCloseFork(fork);
    close(watch);
}

TEST_F(DataFork, OfAFileThatMayNotBeReadIsAPermissionError) {
    const std::string path = Write("a", "x");
    fs::permissions(path, fs::perms::none);
    fs::permissions(root, fs::perms::owner_all | fs::perms::others_read | fs::perms::others_exec);
    const FSRef ref = NewRef(path);
    const auto open = [&] {
        FSIORefNum fork;
        return std::to_string(Open(ref, &fork));
    };
    EXPECT_EQ(geteuid() == 0 ? AsNobody(open) : open(), "-54");
}

TEST_F(DataFork, IsNotOpenedWithoutAFreeDescriptor) {
    const FSRef ref = NewRef(Write("a", "x"));
    const TracedEnd end = RunTraced(
        [&] {
            const rlimit limit = {3, 3};
            FSIORefNum fork;
            return setrlimit(RLIMIT_NOFILE, &limit) == 0 && FSOpenFork(&ref, 0, nullptr, fsRdPerm, &fork) == -42 ? 0 : 1;
        },
        false);
    EXPECT_EQ(end.status, 0);
}

TEST_F(DataFork, IsNotHandedToProgramsThatTheHostStarts) {
    FSIORefNum fork;
    ASSERT_EQ(Open(NewRef(Write("a", "x")), &fork), 0);
    EXPECT_TRUE(fcntl(fork, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(FSCloseFork(fork), 0);
}

TEST_F(DataFork, ThatIsNotOpenIsTold) {
    SInt64 size;
    char byte;
    unsigned long actual = 5;
    EXPECT_EQ(FSGetForkSize(-1, &size), -51);
    EXPECT_EQ(FSReadFork(-1, fsFromStart, 0, 1, &byte, &actual), -51);
    EXPECT_EQ(actual, 0u);
    EXPECT_EQ(FSCloseFork(-1), -51);
    EXPECT_EQ(FSGetForkSize(-1, nullptr), -50);
}

// ---- alias files ----

TEST_F(AliasFile, IsFollowedInPlace) {
    fs::create_directory(At("sub"));
    Write("file", "x");
    fs::create_symlink("file", At("toFile"));
    fs::create_symlink(At("sub"), At("toFolder"));
    fs::create_symlink("toFile", At("toLink"));
    fs::create_symlink("../toLink", At("sub/deep"));
    fs::create_symlink("nowhere", At("dangling"));
    fs::create_symlink("dangling", At("toDangling"));
    fs::create_symlink("loopB", At("loopA"));
    fs::create_symlink("loopA", At("loopB"));
    const struct {
        const char* from;
        const char* to;
        const char* what;
        OSErr status;
        bool chains;
        bool isFolder;
        bool wasAliased;
    } rows[] = {
        {"file", "file", "a plain file is itself", 0, true, false, false},
        {"sub", "sub", "a folder is itself", 0, true, true, false},
        {"toFile", "file", "a link to a file", 0, true, false, true},
        {"toFolder", "sub", "an absolute link to a folder", 0, true, true, true},
        {"sub/deep", "file", "a chain of three, through another folder", 0, true, false, true},
        {"sub/deep", "toLink", "one step of it", 0, false, false, true},
        {"toFile", "file", "one step to the end", 0, false, false, true},
        {"toFolder", "sub", "one step to a folder", 0, false, true, true},
        {"dangling", "dangling", "leads nowhere", -43, true, false, false},
        {"dangling", "dangling", "leads nowhere in one step", -43, false, false, false},
        {"toDangling", "toDangling", "a chain that leads nowhere", -43, true, false, false},
        {"toDangling", "dangling", "the link in its middle exists", 0, false, false, true},
        {"loopA", "loopA", "a circle", -36, true, false, false},
    };
    for (const auto& row : rows) {
        FSRef ref = NewRef(At(row.from));
        Boolean isFolder = FALSE, wasAliased = FALSE;
        EXPECT_EQ(FSResolveAliasFileWithMountFlags(&ref, row.chains, &isFolder, &wasAliased, kResolveAliasFileNoUI), row.status) << row.what;
        EXPECT_EQ(PathOf(ref), At(row.to)) << row.what;
        EXPECT_EQ(isFolder != FALSE, row.isFolder) << row.what;
        EXPECT_EQ(wasAliased != FALSE, row.wasAliased) << row.what;
    }
    EXPECT_EQ(FSResolveAliasFileWithMountFlags(nullptr, TRUE, nullptr, nullptr, 0), -50);
    FSRef gone = NewRef(Write("gone", "x"));
    fs::remove(At("gone"));
    EXPECT_EQ(FSResolveAliasFileWithMountFlags(&gone, TRUE, nullptr, nullptr, 0), -43);
}
