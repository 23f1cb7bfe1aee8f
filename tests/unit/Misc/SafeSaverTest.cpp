#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>

#include "Misc/SafeSaver.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/SmallVolume.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/TracedChild.h"

namespace {

namespace fs = std::filesystem;

struct SafeSaving : testing::Test {
    TemporaryFolder folder;

    std::string Path(CFURLRef url) const {
        UInt8 path[4096];
        return url && CFURLGetFileSystemRepresentation(url, true, path, sizeof path) ? reinterpret_cast<const char*>(path) : "(null)";
    }
    std::string Contents(const std::string& name) const {
        if (!fs::exists(folder / name)) return "(none)";
        const auto bytes = ReadFile(folder / name);
        return {bytes.begin(), bytes.end()};
    }
    std::size_t Count() const { return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder / "."), {})); }
    Owned<CFURLRef> Target(const std::string& name = "doc") const { return NewURL(folder / name); }
};

/// A save of `text` from beginning to end; the error's number, 0 for none, -1 for a failure without an error.
CFIndex Save(CFURLRef target, const std::string& text) {
    SafeSaver saver(target);
    CFErrorRef error = nullptr;
    bool done = saver.PrepareToSave(&error);
    if (done) {
        UInt8 path[4096];
        CFURLGetFileSystemRepresentation(saver.SafeSaveURL(), true, path, sizeof path);
        WriteFile(reinterpret_cast<const char*>(path), text);
        done = saver.CompleteSave(&error);
    }
    const Owned<CFErrorRef> owner(error);
    if (done) return 0;
    return error ? CFErrorGetCode(error) : -1;
}

TEST_F(SafeSaving, HasNoSaveURLBeforeItIsPrepared) {
    EXPECT_EQ(SafeSaver(Target().Get()).SafeSaveURL(), nullptr);
}

TEST_F(SafeSaving, IsPreparedWithAPrivateFolderOnTheTargetsVolume) {
    SafeSaver saver(Target().Get());
    CFErrorRef error = nullptr;
    ASSERT_TRUE(saver.PrepareToSave(&error));
    EXPECT_EQ(error, nullptr);
    const fs::path save = Path(saver.SafeSaveURL());
    EXPECT_EQ(save.filename(), "doc");
    EXPECT_FALSE(fs::exists(save));
    struct stat privateFolder, volume;
    ASSERT_EQ(stat(save.parent_path().c_str(), &privateFolder), 0);
    ASSERT_EQ(stat((folder / ".").c_str(), &volume), 0);
    EXPECT_EQ(privateFolder.st_mode & 0777, 0700U);
    EXPECT_EQ(privateFolder.st_dev, volume.st_dev);
}

TEST_F(SafeSaving, ReplacesTheTargetAndRemovesItsFolder) {
    WriteFile(folder / "doc", "old");
    {
        SafeSaver saver(Target().Get());
        ASSERT_TRUE(saver.PrepareToSave(nullptr));
        WriteFile(Path(saver.SafeSaveURL()), "new");
        EXPECT_EQ(Contents("doc"), "old");
        EXPECT_TRUE(saver.CompleteSave(nullptr));
        EXPECT_EQ(Contents("doc"), "new");
        EXPECT_EQ(Count(), 2U) << "the empty folder stays until the end";
    }
    EXPECT_EQ(Contents("doc"), "new");
    EXPECT_EQ(Count(), 1U);
}

TEST_F(SafeSaving, MovesTheNewFileIntoPlaceWhereNoTargetIs) {
    EXPECT_EQ(Save(Target().Get(), "new"), 0);
    EXPECT_EQ(Contents("doc"), "new");
    EXPECT_EQ(Count(), 1U);
}

TEST_F(SafeSaving, LeavesTheTargetWhenItIsNotCompleted) {
    WriteFile(folder / "doc", "old");
    {
        SafeSaver saver(Target().Get());
        ASSERT_TRUE(saver.PrepareToSave(nullptr));
        WriteFile(Path(saver.SafeSaveURL()), "new");
        fs::create_directories(Path(saver.SafeSaveURL()) + " more/of it");
    }
    EXPECT_EQ(Contents("doc"), "old");
    EXPECT_EQ(Count(), 1U);
}

TEST_F(SafeSaving, CleansUpOnDemandAndKeepsItsURLs) {
    SafeSaver saver(Target().Get());
    saver.Cleanup();
    ASSERT_TRUE(saver.PrepareToSave(nullptr));
    const std::string save = Path(saver.SafeSaveURL());
    WriteFile(save, "new");
    saver.Cleanup();
    EXPECT_EQ(Count(), 0U);
    EXPECT_EQ(Path(saver.SafeSaveURL()), save);
    saver.Cleanup();
    CFErrorRef error = nullptr;
    EXPECT_FALSE(saver.CompleteSave(&error));
    const Owned<CFErrorRef> owner(error);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(CFErrorGetCode(error), ENOENT);
}

TEST_F(SafeSaving, CanBePreparedOnceMore) {
    SafeSaver saver(Target().Get());
    ASSERT_TRUE(saver.PrepareToSave(nullptr));
    WriteFile(Path(saver.SafeSaveURL()), "first");
    ASSERT_TRUE(saver.PrepareToSave(nullptr));
    EXPECT_EQ(Count(), 1U) << "one private folder";
    WriteFile(Path(saver.SafeSaveURL()), "second");
    EXPECT_TRUE(saver.CompleteSave(nullptr));
    EXPECT_EQ(Contents("doc"), "second");
}

TEST_F(SafeSaving, AnswersWhyItFailed) {
    WriteFile(folder / "file", "x");
    const Owned<CFURLRef> web(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://localhost/doc"), nullptr));
    const struct {
        Owned<CFURLRef> target;
        CFIndex error;
        const char* what;
    } rows[] = {
        {Owned<CFURLRef>(), EINVAL, "no target"},
        {Owned<CFURLRef>::Retain(web.Get()), EINVAL, "no file"},
        {NewURL("/"), EINVAL, "the root"},
        {Target("no folder/doc"), ENOENT, "a folder that is not there"},
        {Target("file/doc"), ENOTDIR, "a file for a folder"},
        {Target("bad\xFFname"), EILSEQ, "a name that is no text"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Save(row.target.Get(), "new"), row.error) << row.what;
        SafeSaver saver(row.target.Get());
        EXPECT_FALSE(saver.PrepareToSave(nullptr)) << row.what;
        EXPECT_EQ(saver.SafeSaveURL(), nullptr) << row.what;
        EXPECT_FALSE(saver.CompleteSave(nullptr)) << row.what;
    }
    EXPECT_EQ(Count(), 1U) << "no private folder is left";
}

TEST_F(SafeSaving, FailsInAReadOnlyFolder) {
    fs::create_directory(folder / "closed");
    WriteFile(folder / "closed/doc", "old");
    fs::permissions(folder / "closed", fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read | fs::perms::others_exec);
    fs::permissions(folder / ".", fs::perms::all);
    const auto save = [&] { return std::to_string(Save(Target("closed/doc").Get(), "new")); };
    EXPECT_EQ(geteuid() == 0 ? AsNobody(save) : InAChild(save), std::to_string(EACCES));
    fs::permissions(folder / "closed", fs::perms::owner_all);
    EXPECT_EQ(Contents("closed/doc"), "old");
}

TEST_F(SafeSaving, FailsOnAReadOnlyVolume) {
    fs::create_directory(folder / "volume");
    const std::string answer = OnASmallVolume(folder / "volume", "64k", [&]() -> std::string {
        WriteFile(folder / "volume/doc", "old");
        if (mount(nullptr, (folder / "volume").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) return kNoVolume;
        return std::to_string(Save(Target("volume/doc").Get(), "new")) + Contents("volume/doc");
    });
    if (answer == kNoVolume) GTEST_SKIP() << "mounting a small volume is not permitted here";
    EXPECT_EQ(answer, std::to_string(EROFS) + "old");
}

TEST_F(SafeSaving, WorksForTheLongestName) {
    const std::string name(255, 'n');
    EXPECT_EQ(Save(Target(name).Get(), "new"), 0);
    EXPECT_EQ(Contents(name), "new");
    EXPECT_EQ(Save(Target(name + "n").Get(), "new"), ENAMETOOLONG);
    EXPECT_EQ(Count(), 1U);
}

TEST_F(SafeSaving, KeepsThePermissionsAndAttributesOfTheReplacedFile) {
    WriteFile(folder / "doc", "old");
    ASSERT_EQ(chmod((folder / "doc").c_str(), 0640), 0);
    const bool attributes = setxattr((folder / "doc").c_str(), "user.label", "blue", 4, 0) == 0;
    const bool owned = chown((folder / "doc").c_str(), kNobody, kNobody) == 0;
    EXPECT_EQ(Save(Target().Get(), "new"), 0);
    struct stat about;
    ASSERT_EQ(stat((folder / "doc").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777, 0640U);
    if (owned) {
        EXPECT_EQ(about.st_uid, kNobody);
    }
    char label[8] = {};
    if (attributes) {
        EXPECT_EQ(getxattr((folder / "doc").c_str(), "user.label", label, sizeof label), 4);
        EXPECT_STREQ(label, "blue");
    }
    EXPECT_EQ(Contents("doc"), "new");
}

TEST_F(SafeSaving, ReplacesFoldersInOneStepToo) {
    fs::create_directories(folder / "doc/old part");
    SafeSaver saver(Target().Get());
    ASSERT_TRUE(saver.PrepareToSave(nullptr));
    fs::create_directories(Path(saver.SafeSaveURL()) + "/new part");
    EXPECT_TRUE(saver.CompleteSave(nullptr));
    EXPECT_TRUE(fs::exists(folder / "doc/new part"));
    EXPECT_FALSE(fs::exists(folder / "doc/old part"));
    EXPECT_FALSE(fs::exists(Path(saver.SafeSaveURL()))) << "the replaced one is gone";
}

TEST_F(SafeSaving, NeverReplacesAFolderWithAFile) {
    fs::create_directories(folder / "doc/part");
    fs::create_directory(folder / "empty");
    fs::create_directory_symlink("doc", folder / "link");
    EXPECT_EQ(Save(Target().Get(), "new"), EISDIR);
    EXPECT_EQ(Save(Target("empty").Get(), "new"), EISDIR);
    EXPECT_EQ(Save(Target("link").Get(), "new"), EISDIR) << "a folder behind a link";
    EXPECT_EQ(Save(Target("doc/part/..").Get(), "new"), EISDIR) << "a folder by another name";
    EXPECT_TRUE(fs::is_directory(folder / "doc/part"));
    EXPECT_TRUE(fs::is_directory(folder / "empty"));
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(Count(), 3U);
}

TEST_F(SafeSaving, NeverReplacesAFileWithAFolder) {
    WriteFile(folder / "doc", "old");
    SafeSaver saver(Target().Get());
    ASSERT_TRUE(saver.PrepareToSave(nullptr));
    fs::create_directories(Path(saver.SafeSaveURL()) + "/part");
    CFErrorRef error = nullptr;
    EXPECT_FALSE(saver.CompleteSave(&error));
    const Owned<CFErrorRef> owner(error);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(CFErrorGetCode(error), ENOTDIR);
    EXPECT_EQ(Contents("doc"), "old");
    EXPECT_TRUE(fs::is_directory(Path(saver.SafeSaveURL()) + "/part")) << "the new one is as it was too";
}

TEST_F(SafeSaving, NeverReplacesWhatIsNeitherFileNorFolder) {
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Save(Target("pipe").Get(), "new"), EEXIST);
    EXPECT_TRUE(fs::is_fifo(folder / "pipe"));
    EXPECT_EQ(Count(), 1U);
}

TEST_F(SafeSaving, KeepsALinkAndReplacesWhatItLeadsTo) {
    fs::create_directory(folder / "far");
    WriteFile(folder / "far/behind", "old");
    ASSERT_EQ(chmod((folder / "far/behind").c_str(), 0640), 0);
    fs::create_symlink("far/behind", folder / "relative");
    fs::create_symlink(folder / "far/behind", folder / "absolute");
    fs::create_symlink("../relative", folder / "far/chain");
    for (const char* name : {"relative", "absolute", "far/chain"}) {
        const std::string fresh = std::string("new by ") + name;
        EXPECT_EQ(Save(Target(name).Get(), fresh), 0) << name;
        EXPECT_TRUE(fs::is_symlink(folder / name)) << name;
        EXPECT_EQ(Contents("far/behind"), fresh);
    }
    EXPECT_EQ(fs::status(folder / "far/behind").permissions(), fs::perms(0640));
    EXPECT_EQ(Count(), 3U);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "far"), {}), 2) << "nothing else is left beside it either";
}

TEST_F(SafeSaving, IsPreparedBesideWhatALinkLeadsToUnderTheLinksName) {
    fs::create_directory(folder / "far");
    fs::create_symlink("far/behind", folder / "doc");
    SafeSaver saver(Target().Get());
    ASSERT_TRUE(saver.PrepareToSave(nullptr));
    const fs::path save = Path(saver.SafeSaveURL());
    EXPECT_EQ(save.filename(), "doc");
    EXPECT_EQ(save.parent_path().parent_path(), fs::canonical(folder / "far"));
}

TEST_F(SafeSaving, FollowsALinkToAnotherVolume) {
    fs::create_directory(folder / "volume");
    const std::string answer = OnASmallVolume(folder / "volume", "64k", [&]() -> std::string {
        WriteFile(folder / "volume/behind", "old");
        fs::create_symlink("volume/behind", folder / "doc");
        const CFIndex error = Save(Target().Get(), "new");
        return std::to_string(error) + Contents("volume/behind");
    });
    if (answer == kNoVolume) GTEST_SKIP() << "mounting a small volume is not permitted here";
    EXPECT_EQ(answer, "0new");
    EXPECT_TRUE(fs::is_symlink(folder / "doc"));
}

TEST_F(SafeSaving, MakesTheFileThatALinkLeadsTo) {
    fs::create_directory(folder / "far");
    fs::create_symlink("far/behind", folder / "doc");
    EXPECT_EQ(Save(Target().Get(), "new"), 0);
    EXPECT_TRUE(fs::is_symlink(folder / "doc"));
    EXPECT_EQ(Contents("far/behind"), "new");
}

TEST_F(SafeSaving, RefusesLinksThatLeadToNoPlaceForAFile) {
    fs::create_symlink("round", folder / "about");
    fs::create_symlink("about", folder / "round");
    fs::create_symlink("no folder/doc", folder / "astray");
    EXPECT_EQ(Save(Target("about").Get(), "new"), ELOOP);
    EXPECT_EQ(Save(Target("astray").Get(), "new"), ENOENT);
    for (const char* name : {"about", "round", "astray"}) EXPECT_TRUE(fs::is_symlink(folder / name)) << name;
    EXPECT_EQ(Count(), 3U);
}

TEST_F(SafeSaving, NeverLeavesHalfAFileWhereverItIsCutShort) {
    const std::string old(9000, 'o'), fresh(12000, 'n');
    WriteFile(folder / "doc", old);
    bool killed = true;
    int olds = 0, news = 0;
    for (int count = 1; killed; ++count) {
        const TracedEnd end = RunAndKillAtSystemCall(
            count, [&] { return static_cast<int>(Save(Target().Get(), fresh)); }, &killed);
        if (!end.traced) GTEST_SKIP() << "tracing is not permitted here";
        const std::string found = Contents("doc");
        ASSERT_TRUE(found == old || found == fresh) << "after system call " << count;
        ++(found == old ? olds : news);
        ASSERT_LT(count, 1000);
        EXPECT_EQ(end.status, killed ? -1 : 0);
        WriteFile(folder / "doc", old);
    }
    EXPECT_GT(olds, 5);
    EXPECT_GT(news, 1);
}

}  // namespace
