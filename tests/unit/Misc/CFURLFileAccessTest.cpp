#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "Misc/CFURLFileAccess.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/SmallVolume.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/TracedChild.h"

namespace {

namespace fs = std::filesystem;

struct URLFileAccess : testing::Test {
    TemporaryFolder folder;

    std::string At(const std::string& name) const { return folder / name; }
    Owned<CFURLRef> URL(const std::string& name) const { return NewURL(At(name)); }
    Owned<CFURLRef> Written(const std::string& name, const std::string& text) const {
        WriteFile(At(name), text);
        return URL(name);
    }
    std::string Contents(const std::string& name) const {
        if (!fs::exists(At(name))) return "(none)";
        const auto bytes = ReadFile(At(name));
        return {bytes.begin(), bytes.end()};
    }
};

Owned<CFDataRef> NewData(const std::string& bytes) {
    return Owned<CFDataRef>(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
}

std::string Bytes(const Owned<CFDataRef>& data) {
    return data ? std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data.Get())), static_cast<size_t>(CFDataGetLength(data.Get())))
                : "(null)";
}

std::string Range(CFURLRef url, int64_t offset, int64_t length) {
    return Bytes(Owned<CFDataRef>(CreateCFDataWithRangeOfContentsOfURL(url, offset, length)));
}

TEST_F(URLFileAccess, WritesAWholeFileOrNothing) {
    EXPECT_TRUE(WriteCFDataToFile(NewData("first").Get(), URL("a").Get()));
    EXPECT_EQ(Contents("a"), "first");
    ASSERT_EQ(chmod(At("a").c_str(), 0600), 0);
    EXPECT_TRUE(WriteCFDataToFile(NewData("").Get(), URL("a").Get()));
    EXPECT_EQ(Contents("a"), "");
    struct stat about;
    ASSERT_EQ(stat(At("a").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0600U) << "a replaced file keeps its permissions";
    fs::create_directory(At("folder"));
    EXPECT_FALSE(WriteCFDataToFile(NewData("x").Get(), URL("folder").Get()));
    EXPECT_FALSE(WriteCFDataToFile(NewData("x").Get(), URL("no folder/a").Get()));
    EXPECT_TRUE(fs::is_directory(At("folder")));
    EXPECT_EQ(std::distance(fs::directory_iterator(At(".")), {}), 2) << "nothing else is left";
}

TEST_F(URLFileAccess, WritesThroughALink) {
    WriteFile(At("behind"), "old");
    fs::create_symlink("behind", At("link"));
    EXPECT_TRUE(WriteCFDataToFile(NewData("new").Get(), URL("link").Get()));
    EXPECT_TRUE(fs::is_symlink(At("link")));
    EXPECT_EQ(Contents("behind"), "new");
}

TEST_F(URLFileAccess, WritesTheFileThatALinkLeadsToAlsoWhereNothingStandsYet) {
    fs::create_directory(At("far"));
    fs::create_symlink("far/behind", At("link"));
    EXPECT_TRUE(WriteCFDataToFile(NewData("new").Get(), URL("link").Get()));
    EXPECT_TRUE(fs::is_symlink(At("link")));
    EXPECT_EQ(Contents("far/behind"), "new");
    fs::create_symlink("round", At("round"));
    EXPECT_FALSE(WriteCFDataToFile(NewData("new").Get(), URL("round").Get()));
    EXPECT_TRUE(fs::is_symlink(At("round")));
}

TEST_F(URLFileAccess, WritesOverPlainFilesOnly) {
    fs::create_directories(At("folder/part"));
    fs::create_directory_symlink("folder", At("link"));
    ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
    for (const char* name : {"folder", "link", "pipe", "folder/part/.."}) {
        EXPECT_FALSE(WriteCFDataToFile(NewData("new").Get(), URL(name).Get())) << name;
    }
    EXPECT_TRUE(fs::is_directory(At("folder/part")));
    EXPECT_TRUE(fs::is_symlink(At("link")));
    EXPECT_TRUE(fs::is_fifo(At("pipe")));
}

TEST_F(URLFileAccess, KeepsTheOldFileOnAFullVolume) {
    fs::create_directory(At("volume"));
    const std::string answer = OnASmallVolume(At("volume"), "64k", [&]() -> std::string {
        if (!WriteCFDataToFile(NewData("old").Get(), URL("volume/a").Get())) return "not written";
        const bool written = WriteCFDataToFile(NewData(std::string(200000, 'x')).Get(), URL("volume/a").Get());
        const auto count = std::distance(fs::directory_iterator(At("volume")), {});
        return (written ? "written " : "refused ") + Contents("volume/a") + " " + std::to_string(count);
    });
    if (answer == kNoVolume) GTEST_SKIP() << "mounting a small volume is not permitted here";
    EXPECT_EQ(answer, "refused old 1");
}

TEST_F(URLFileAccess, NeverLeavesHalfAFileWhereverWritingIsCutShort) {
    const std::string old(9000, 'o'), fresh(12000, 'n');
    WriteFile(At("a"), old);
    bool killed = true;
    int olds = 0, news = 0;
    for (int count = 1; killed; ++count) {
        const TracedEnd end = RunAndKillAtSystemCall(
            count, [&] { return WriteCFDataToFile(NewData(fresh).Get(), URL("a").Get()) ? 0 : 1; }, &killed);
        if (!end.traced) GTEST_SKIP() << "tracing is not permitted here";
        const std::string found = Contents("a");
        ASSERT_TRUE(found == old || found == fresh) << "after system call " << count;
        ++(found == old ? olds : news);
        ASSERT_LT(count, 1000);
        EXPECT_EQ(end.status, killed ? -1 : 0);
        WriteFile(At("a"), old);
    }
    EXPECT_GT(olds, 5);
    EXPECT_GT(news, 1);
}

TEST_F(URLFileAccess, ReadsAWholeFile) {
    EXPECT_EQ(Bytes(Owned<CFDataRef>(CreateCFDataWithContentsOfURL(Written("a", "some text").Get()))), "some text");
    EXPECT_EQ(Bytes(Owned<CFDataRef>(CreateCFDataWithContentsOfURL(Written("b", "").Get()))), "");
    EXPECT_EQ(Bytes(Owned<CFDataRef>(CreateCFDataWithContentsOfURL(Written("c", std::string(300000, 'c')).Get()))), std::string(300000, 'c'));
    EXPECT_EQ(CreateCFDataWithContentsOfURL(URL("none").Get()), nullptr);
    EXPECT_EQ(CreateCFDataWithContentsOfURL(URL(".").Get()), nullptr);
}

TEST_F(URLFileAccess, ReadsARangeOfAFile) {
    const Owned<CFURLRef> file = Written("a", "0123456789");
    const struct {
        int64_t offset, length;
        const char* expected;
        const char* what;
    } rows[] = {
        {0, 10, "0123456789", "all of it"},
        {3, 4, "3456", "a part"},
        {8, 5, "89", "cut at the end"},
        {10, 5, "", "from the end: empty"},
        {1000, 5, "", "past the end: empty"},
        {4, 0, "", "nothing asked for"},
        {-1, 5, "(null)", "before the start"},
        {0, -1, "(null)", "a negative length"},
        {0, INT64_MAX, "(null)", "more than there is memory"},
    };
    for (const auto& row : rows) EXPECT_EQ(Range(file.Get(), row.offset, row.length), row.expected) << row.what;
    EXPECT_EQ(Range(URL("none").Get(), 0, 1), "(null)");
    EXPECT_EQ(Range(URL(".").Get(), 0, 1), "(null)") << "a folder opens but cannot be read";
    EXPECT_EQ(Range(URL(".").Get(), 0, 0), "(null)") << "not even no bytes of it";
    EXPECT_EQ(Range(file.Get(), -1, 0), "(null)") << "no bytes from before the start";
    EXPECT_EQ(Range(NewURL("/dev/zero").Get(), 1000, 3), std::string(3, '\0')) << "a device that has bytes at every offset";
}

TEST_F(URLFileAccess, NeverWaitsForAPipesOtherEnd) {
    ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
    const auto answers = [&] {
        alarm(30);  // against waiting for ever
        const Owned<CFURLRef> pipe = URL("pipe");
        return Range(pipe.Get(), 0, 1) + Range(pipe.Get(), 0, 0) + Bytes(Owned<CFDataRef>(CreateCFDataWithContentsOfURL(pipe.Get()))) + "," +
               std::to_string(GetFileTypeFromFileURL(pipe.Get())) + "," + std::to_string(GetFileLength(pipe.Get()));
    };
    EXPECT_EQ(InAChild(answers), "(null)(null)(null),0,0");
    const int ends = open(At("pipe").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(write(ends, "text", 4), 4);
    EXPECT_EQ(InAChild(answers), "(null)(null)(null),0,0") << "bytes that wait are not taken";
    char bytes[5] = {};
    EXPECT_EQ(read(ends, bytes, 4), 4);
    close(ends);
}

TEST_F(URLFileAccess, CountsDescriptor0AsAFailure) {
    const Owned<CFURLRef> file = Written("a", "0123456789");
    EXPECT_EQ(InAChild([&] {
                  close(0);
                  const std::string first = Range(file.Get(), 0, 3);
                  return first + (fcntl(0, F_GETFD) == -1 ? " closed" : " open");
              }),
              "(null) closed");
}

TEST_F(URLFileAccess, TellsTheLengthOfPlainFiles) {
    fs::create_directory(At("folder"));
    fs::create_symlink("a", At("link"));
    const struct {
        Owned<CFURLRef> url;
        int64_t length;
        const char* what;
    } rows[] = {
        {Written("a", std::string(70000, 'x')), 70000, "a file"},
        {Written("b", ""), 0, "an empty file"},
        {URL("folder"), 0, "a folder"},
        {URL("link"), 0, "a link"},
        {URL("none"), 0, "nothing"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(GetFileLength(row.url.Get()), row.length) << row.what;
        EXPECT_EQ(FileLengthAtURL(row.url.Get()), row.length) << row.what;
    }
    fs::resize_file(At("a"), int64_t{5} << 32);
    EXPECT_EQ(GetFileLength(URL("a").Get()), int64_t{5} << 32);
    EXPECT_EQ(FileLengthAtURL(URL("a").Get()), int64_t{5} << 32);
}

TEST_F(URLFileAccess, ShowsNamesAsUsersSeeThem) {
    EXPECT_EQ(Text(Owned<CFStringRef>(CopyDisplayNameForURL(Written("caf\xC3\xA9 profile.icc", "").Get()))), "caf\xC3\xA9 profile.icc");
    EXPECT_EQ(Text(Owned<CFStringRef>(CopyDisplayNameForURL(Written("bad\xFF.icc", "").Get()))), "bad\xEF\xBF\xBD.icc");
    EXPECT_EQ(Text(Owned<CFStringRef>(CopyDisplayNameForURL(NewURL("/").Get()))), "/");
    EXPECT_EQ(CopyDisplayNameForURL(URL("none").Get()), nullptr);
}

TEST_F(URLFileAccess, TellsFilesFromFolders) {
    fs::create_directory(At("folder"));
    fs::create_symlink("folder", At("link"));
    ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
    const struct {
        Owned<CFURLRef> url;
        bool isFile, isFolder;
        const char* what;
    } rows[] = {
        {Written("a", ""), true, false, "a file"}, {URL("folder"), false, true, "a folder"}, {URL("link"), false, false, "a link to a folder"},
        {URL("pipe"), false, false, "a pipe"},     {URL("none"), false, false, "nothing"},   {NewURL("/"), false, true, "the root"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FileExistsAtURL(row.url.Get()), row.isFile) << row.what;
        EXPECT_EQ(DirectoryExistsAtURL(row.url.Get()), row.isFolder) << row.what;
    }
}

TEST_F(URLFileAccess, MakesFolders) {
    EXPECT_TRUE(CreateFolderAtURL(URL("folder").Get()));
    EXPECT_TRUE(fs::is_directory(At("folder")));
    EXPECT_TRUE(CreateFolderAtURL(URL("folder").Get())) << "there already";
    EXPECT_TRUE(CreateFolderAtURL(Written("file", "x").Get())) << "a file of that name: deliberately true";
    EXPECT_EQ(Contents("file"), "x");
    EXPECT_FALSE(CreateFolderAtURL(URL("none/folder").Get()));
    std::string deep = At("deep");
    while (deep.size() < 800) deep += "/" + std::string(200, 'a');
    fs::create_directories(deep);
    const std::string longest = deep + "/" + std::string(1023 - deep.size() - 1, 'b');
    EXPECT_TRUE(CreateFolderAtURL(NewURL(longest).Get())) << "1023 bytes and a terminating 0";
    EXPECT_TRUE(fs::is_directory(longest));
    EXPECT_FALSE(CreateFolderAtURL(NewURL(longest + "b").Get())) << "1024 bytes and a terminating 0";
}

TEST_F(URLFileAccess, DeletesFilesLinksAndFoldersWithAllTheyHold) {
    fs::create_directories(At("folder/sub"));
    WriteFile(At("folder/sub/a"), "x");
    WriteFile(At("kept"), "x");
    fs::create_symlink("../kept", At("folder/link"));
    EXPECT_TRUE(DeleteFileSystemObjectAtURL(URL("folder").Get()));
    EXPECT_FALSE(fs::exists(At("folder")));
    EXPECT_EQ(Contents("kept"), "x") << "what a link leads to stays";
    EXPECT_TRUE(DeleteFileSystemObjectAtURL(URL("kept").Get()));
    EXPECT_FALSE(DeleteFileSystemObjectAtURL(URL("kept").Get()));
    EXPECT_FALSE(DeleteFileSystemObjectAtURL(URL("kept/below").Get()));
}

TEST_F(URLFileAccess, DeletesALinkAndNeverWhatItLeadsTo) {
    fs::create_directory(At("folder"));
    WriteFile(At("folder/a"), "x");
    fs::create_directory_symlink("folder", At("link"));
    fs::create_directory_symlink("folder", At("link to folder"));
    fs::create_symlink("none", At("astray"));
    EXPECT_TRUE(DeleteFileSystemObjectAtURL(URL("link").Get()));
    EXPECT_TRUE(DeleteFileSystemObjectAtURL(NewURL(At("link to folder/"), true).Get())) << "named as a folder";
    EXPECT_TRUE(DeleteFileSystemObjectAtURL(URL("astray").Get()));
    for (const char* name : {"link", "link to folder", "astray"}) EXPECT_FALSE(fs::is_symlink(At(name))) << name;
    EXPECT_EQ(Contents("folder/a"), "x");
}

TEST_F(URLFileAccess, DeletesTheFolderThatAPathOfDotsLeadsTo) {
    fs::create_directories(At("folder/sub"));
    EXPECT_TRUE(DeleteFileSystemObjectAtURL(URL("folder/sub/..").Get()));
    EXPECT_FALSE(fs::exists(At("folder")));
}

// What may not go at all is the subject of ItemRemovalTest: here, that nothing is deleted without asking.
TEST_F(URLFileAccess, DeletesNeitherTheHomeFolderNorTheCurrentOneNorAVolumeByAnyName) {
    fs::create_directories(At("home/sub"));
    fs::create_directories(At("work/inner/sub"));
    fs::create_directories(At("volumes/one"));
    fs::create_directory_symlink("home", At("link"));
    const auto refused = [&](const std::vector<const char*>& names) {
        std::string deleted;
        for (const char* name : names) {
            if (DeleteFileSystemObjectAtURL(URL(name).Get())) deleted += std::string(name) + ";";
        }
        return deleted;
    };
    EXPECT_EQ(InAChild([&] {
                  setenv("HOME", At("home").c_str(), 1);
                  return refused({"home", "home/.", "home/sub/..", "link/.", "."});
              }),
              "");
    EXPECT_EQ(InAChild([&] {
                  fs::current_path(At("work/inner"));
                  return refused({"work/inner", "work", "work/inner/sub/..", "work/inner/.."});
              }),
              "");
    const std::string volume = OnASmallVolume(At("volumes/one"), "64k", [&] {
        fs::create_directory(At("volumes/one/sub"));
        return refused({"volumes/one", "volumes/one/sub/..", "volumes"}) + (fs::exists(At("volumes/one/sub")) ? "" : "emptied");
    });
    if (volume != kNoVolume) {
        EXPECT_EQ(volume, "");
    }
    for (const char* name : {"home/sub", "work/inner/sub", "volumes/one"}) EXPECT_TRUE(fs::is_directory(At(name))) << name;
}

TEST_F(URLFileAccess, TellsWhetherTwoURLsNameOneObject) {
    Written("a", "x");
    Written("b", "x");
    fs::create_hard_link(At("a"), At("hard link"));
    fs::create_symlink("a", At("link"));
    fs::create_directory(At("folder"));
    const struct {
        const char *a, *b;
        bool same;
    } rows[] = {
        {"a", "a", true},     {"a", "./folder/../a", true}, {"a", "hard link", true}, {"a", "b", false},
        {"a", "link", false}, {"folder", "folder/.", true}, {"a", "none", false},     {"none", "none", false},
    };
    for (const auto& row : rows) EXPECT_EQ(URLsReferToSameFileSystemObject(URL(row.a).Get(), URL(row.b).Get()), row.same) << row.a << ", " << row.b;
}

TEST_F(URLFileAccess, FollowsAliasFiles) {
    const Owned<CFURLRef> file = Written("a", "x");
    fs::create_symlink("a", At("link"));
    fs::create_symlink("link", At("chain"));
    fs::create_symlink("none", At("dangling"));
    fs::create_symlink("loop", At("loop"));
    const auto actual = [&](const char* name) {
        const Owned<CFURLRef> found(CreateActualFileURLForAlias(URL(name).Get()));
        UInt8 path[4096];
        return found && CFURLGetFileSystemRepresentation(found.Get(), true, path, sizeof path) ? std::string(reinterpret_cast<const char*>(path))
                                                                                               : "(null)";
    };
    const std::string expected = fs::canonical(At("a"));
    EXPECT_EQ(actual("link"), expected);
    EXPECT_EQ(actual("chain"), expected);
    EXPECT_EQ(actual("dangling"), "(null)");
    EXPECT_EQ(actual("loop"), "(null)");
    EXPECT_EQ(actual("none"), At("none")) << "what is no alias is its own actual file, there or not";
    const CFIndex count = CFGetRetainCount(file.Get());
    const Owned<CFURLRef> same(CreateActualFileURLForAlias(file.Get()));
    EXPECT_EQ(same.Get(), file.Get());
    EXPECT_EQ(CFGetRetainCount(file.Get()), count + 1);
}

TEST_F(URLFileAccess, KeepsTypeAndCreatorOfAFile) {
    const Owned<CFURLRef> file = Written("a", "x");
    EXPECT_EQ(GetFileTypeFromFileURL(file.Get()), 0U);
    const int stored = SetURLFinderInfo(file.Get(), "Orlo", "prof");
    if (stored == ENOTSUP) GTEST_SKIP() << "the temporary folder's volume keeps no extended attributes";
    EXPECT_EQ(stored, 0);
    EXPECT_EQ(GetFileTypeFromFileURL(file.Get()), 0x70726F66U);
    char bytes[16] = {};
    EXPECT_EQ(getxattr(At("a").c_str(), "user.colourmatch.finderinfo", bytes, sizeof bytes), 8);
    EXPECT_STREQ(bytes, "profOrlo") << "the type comes first";
    EXPECT_EQ(SetURLFinderInfo(file.Get(), "abcd",
                               "\x80\xFF"
                               "ab"),
              0);
    EXPECT_EQ(GetFileTypeFromFileURL(file.Get()), 0x80FF6162U);
    EXPECT_EQ(Contents("a"), "x");
}

TEST_F(URLFileAccess, KeepsNoTypeOfWhatIsNoPlainFile) {
    fs::create_directory(At("folder"));
    EXPECT_EQ(GetFileTypeFromFileURL(URL("folder").Get()), 0U);
    testing::internal::CaptureStderr();
    EXPECT_EQ(SetURLFinderInfo(URL("folder").Get(), "Orlo", "prof"), 22);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "SetURLFinderInfo: " + At("folder") + " is not a standard file.\n");
    EXPECT_EQ(SetURLFinderInfo(URL("none").Get(), "Orlo", "prof"), ENOENT);
    EXPECT_EQ(GetFileTypeFromFileURL(URL("none").Get()), 0U);
}

TEST_F(URLFileAccess, AnswersTheErrorOfAFileThatMayNotBeChanged) {
    Written("a", "x");
    fs::permissions(At("a"), fs::perms::owner_read | fs::perms::others_read);
    fs::permissions(At("."), fs::perms::owner_all | fs::perms::others_exec);
    const auto set = [&] { return std::to_string(SetURLFinderInfo(URL("a").Get(), "Orlo", "prof")); };
    EXPECT_EQ(geteuid() == 0 ? AsNobody(set) : InAChild(set), std::to_string(EACCES));
}

TEST_F(URLFileAccess, StopsTheProcessForCodesOfAnotherLength) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Owned<CFURLRef> file = Written("a", "x");
    EXPECT_EXIT(SetURLFinderInfo(file.Get(), "Orlo", "pro"), testing::KilledBySignal(SIGABRT), "strlen\\(fileType\\) == 4.*SetURLFinderInfo");
    EXPECT_EXIT(SetURLFinderInfo(file.Get(), "Orlos", "prof"), testing::KilledBySignal(SIGABRT), "strlen\\(creator\\) == 4.*SetURLFinderInfo");
    EXPECT_EXIT(SetURLFinderInfo(file.Get(), "", ""), testing::KilledBySignal(SIGABRT), "strlen\\(fileType\\) == 4");
    const Owned<CFURLRef> web(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://localhost/a"), nullptr));
    EXPECT_EQ(SetURLFinderInfo(web.Get(), "", ""), 1) << "the path comes before the lengths";
}

TEST(OSTypeText, IsTheFourCharactersAndATerminatingZero) {
    char buffer[6] = "xxxxx";
    EXPECT_EQ(OSTypeToStr(0x54455854, buffer), buffer);
    EXPECT_EQ(std::memcmp(buffer, "TEXT\0", 5), 0);
    OSTypeToStr(0x00FF8001, buffer);
    EXPECT_EQ(std::memcmp(buffer, "\0\xFF\x80\x01\0", 5), 0);
}

TEST(ErrorFromErrno, HasTheNumbersTextAsItsReason) {
    const Owned<CFErrorRef> error(CreateErrorFromErrno(CFSTR("Could not save"), ENOENT));
    ASSERT_TRUE(error);
    EXPECT_EQ(Text(CFErrorGetDomain(error.Get())), "NSPOSIXErrorDomain");
    EXPECT_EQ(CFErrorGetCode(error.Get()), ENOENT);
    const Owned<CFDictionaryRef> information(CFErrorCopyUserInfo(error.Get()));
    EXPECT_EQ(CFDictionaryGetCount(information.Get()), 2);
    EXPECT_EQ(Text(static_cast<CFStringRef>(CFDictionaryGetValue(information.Get(), CFSTR("NSLocalizedDescription")))), "Could not save");
    EXPECT_EQ(Text(static_cast<CFStringRef>(CFDictionaryGetValue(information.Get(), CFSTR("NSLocalizedFailureReason")))), std::strerror(ENOENT));
    EXPECT_EQ(Text(Owned<CFStringRef>(CFErrorCopyDescription(error.Get()))), "Could not save");
}

TEST(URLOfNoFile, GivesEveryPathFunctionItsEmptyResult) {
    const Owned<CFURLRef> web(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://localhost/a"), nullptr));
    for (const CFURLRef url : {web.Get(), CFURLRef{nullptr}}) {
        EXPECT_FALSE(WriteCFDataToFile(NewData("x").Get(), url));
        EXPECT_EQ(CreateCFDataWithContentsOfURL(url), nullptr);
        EXPECT_EQ(CreateCFDataWithRangeOfContentsOfURL(url, 0, 1), nullptr);
        EXPECT_EQ(GetFileLength(url), 0);
        EXPECT_EQ(FileLengthAtURL(url), 0);
        EXPECT_EQ(CopyDisplayNameForURL(url), nullptr);
        EXPECT_FALSE(CreateFolderAtURL(url));
        EXPECT_FALSE(DeleteFileSystemObjectAtURL(url));
        EXPECT_FALSE(FileExistsAtURL(url));
        EXPECT_FALSE(DirectoryExistsAtURL(url));
        EXPECT_FALSE(URLsReferToSameFileSystemObject(url, url));
        EXPECT_FALSE(URLIsInTrash(url));
        EXPECT_EQ(GetFileTypeFromFileURL(url), 0U);
        EXPECT_EQ(SetURLFinderInfo(url, "Orlo", "prof"), 1);
    }
    const Owned<CFURLRef> same(CreateActualFileURLForAlias(web.Get()));
    EXPECT_EQ(same.Get(), web.Get());
    EXPECT_EQ(CreateActualFileURLForAlias(nullptr), nullptr);
}

struct Trash : URLFileAccess {
    void SetUp() override {
        setenv("XDG_DATA_HOME", At("data").c_str(), 1);
        fs::create_directories(At("data/Trash/files/folder"));
        fs::create_directories(At("data/Trash/info"));
        WriteFile(At("data/Trash/files/a"), "x");
        WriteFile(At("data/Trash/files/folder/b"), "x");
        WriteFile(At("data/Trash/info/a.trashinfo"), "[Trash Info]\nPath=" + At("a%20b") + "\n");
        WriteFile(At("outside"), "x");
    }
    void TearDown() override { unsetenv("XDG_DATA_HOME"); }
};

TEST_F(Trash, HoldsWhatLiesBelowItsFilesFolder) {
    fs::create_symlink("../../../outside", At("data/Trash/files/link"));
    fs::create_symlink("data/Trash/files/a", At("link to trash"));
    fs::create_symlink("data/Trash/files", At("way in"));
    const struct {
        const char* name;
        bool inTrash;
        const char* what;
    } rows[] = {
        {"data/Trash/files/a", true, "a file"},
        {"data/Trash/files/folder", true, "a folder"},
        {"data/Trash/files/folder/b", true, "a file in a folder"},
        {"data/Trash/files/link", true, "a link that lies there, wherever it leads"},
        {"way in/a", true, "through a link"},
        {"data/Trash/files", false, "the trash folder itself"},
        {"data/Trash/files/folder/..", false, "the trash folder itself, by another way"},
        {"way in/folder/.", true, "a folder by another way"},
        {"data/Trash", false, "the folder around it"},
        {"data/Trash/info/a.trashinfo", false, "what is known about an item"},
        {"link to trash", false, "a link that only leads there"},
        {"outside", false, "any other file"},
        {"data/Trash/files/none", false, "nothing"},
    };
    for (const auto& row : rows) EXPECT_EQ(URLIsInTrash(URL(row.name).Get()), row.inTrash) << row.what;
    EXPECT_FALSE(URLIsInTrash(NewURL("/").Get()));
    setenv("XDG_DATA_HOME", At("other").c_str(), 1);
    EXPECT_FALSE(URLIsInTrash(URL("data/Trash/files/a").Get())) << "another user's";
}

TEST_F(Trash, StandsAtTheTopOfEveryVolume) {
    fs::create_directory(At("volume"));
    const std::string user = std::to_string(getuid());
    const std::string answer = OnASmallVolume(At("volume"), "256k", [&] {
        std::string answers;
        const auto ask = [&](const std::string& name) {
            fs::create_directories(fs::path(At(name)).parent_path());
            WriteFile(At(name), "x");
            answers += URLIsInTrash(URL(name).Get()) ? '1' : '0';
        };
        ask("volume/.Trash-" + user + "/files/a");
        ask("volume/.Trash-" + user + "/info/a.trashinfo");
        ask("volume/.Trash-" + std::to_string(getuid() + 1) + "/files/a");
        ask("volume/sub/.Trash-" + user + "/files/a");
        ask("volume/.Trash/" + user + "/files/a");  // without the sticky bit
        chmod(At("volume/.Trash").c_str(), 01777);
        ask("volume/.Trash/" + user + "/files/a");
        return answers;
    });
    if (answer == kNoVolume) GTEST_SKIP() << "mounting a small volume is not permitted here";
    EXPECT_EQ(answer, "100001");
}

}  // namespace
