// Which files are read again: the program is linked so that every open passes through here, below the code under test.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "profile/ProfileCache.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileModel.h"
#include "tests/fixtures/FixedValues.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

std::atomic<int> sOpens = 0;    // of files whose names end as those of profiles do
std::atomic<int> sParsed = 0;   // profiles that the colour engine looked at
std::function<void()> sOnOpen;  // before such a file is opened

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
void* __real_cmsOpenProfileFromMemTHR(void* context, const void* bytes, unsigned size);
void* __wrap_cmsOpenProfileFromMemTHR(void* context, const void* bytes, unsigned size);

int __wrap_open(const char* path, int flags, ...) {
    const std::string name = path;
    if (name.ends_with(".icc")) {
        ++sOpens;
        if (sOnOpen) sOnOpen();
    }
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    return __real_open(path, flags, mode);
}

void* __wrap_cmsOpenProfileFromMemTHR(void* context, const void* bytes, unsigned size) {
    ++sParsed;
    return __real_cmsOpenProfileFromMemTHR(context, bytes, size);
}

}  // extern "C"

namespace {

Bytes ProfileWithWhite(double white) {
    return MatrixMonitor(CurvTag({563})).Set("wtpt", XYZTag(white, white, white)).Make();
}

/// Files as old as any that a user chose earlier: written when the tests begin, and left alone until every later write leaves a trace.
class ProfileCacheTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        sFolder = new TemporaryFolder;
        for (int i = 0; i < 40; ++i) sFolder->Write(Name(i), ProfileWithWhite(0.5 + i / 256.0));
        WaitUntilSettled(*sFolder / Name(39));
    }
    static void TearDownTestSuite() { delete sFolder; }
    void TearDown() override { sOnOpen = nullptr; }

    static std::string Name(int i) { return "profile" + std::to_string(i) + ".icc"; }
    /// A file that no other test has used.
    static std::string NextFile() { return *sFolder / Name(sNext++); }
    static void WaitUntilSettled(const std::string& path) {
        while (!IsSettled(FileStateOf(path.c_str()).value())) usleep(50000);
    }

    struct Opened {
        Owned<ColorSyncProfileRef> profile;
        OSErr status = 12345;
        int opens = 0;   // of the file, for this
        int parsed = 0;  // times that its bytes were looked at
        double white = 0;
    };
    static Opened Open(const std::string& path) {
        const FSRef file = FileRef(path);
        Opened opened;
        const int opens = sOpens, parsed = sParsed;
        opened.profile.Reset(CreateProfileFromFSRef(&file, &opened.status));
        opened.opens = sOpens - opens;
        opened.parsed = sParsed - parsed;
        if (opened.profile) opened.white = GetMediaWhitePoint(opened.profile.Get()).Y / 65536.0;
        return opened;
    }

    static TemporaryFolder* sFolder;
    static int sNext;
};
TemporaryFolder* ProfileCacheTest::sFolder = nullptr;
int ProfileCacheTest::sNext = 0;

Bytes DataOf(ColorSyncProfileRef profile) {
    const Owned<CFDataRef> data(ColorSyncProfileCopyData(profile, nullptr));
    return {CFDataGetBytePtr(data.Get()), CFDataGetBytePtr(data.Get()) + CFDataGetLength(data.Get())};
}

TEST_F(ProfileCacheTest, AnUnchangedFileIsReadOnce) {
    const std::string path = NextFile();
    const Opened first = Open(path);
    EXPECT_EQ(first.opens, 1);
    EXPECT_EQ(first.parsed, 1);
    for (int i = 0; i < 3; ++i) {
        const Opened again = Open(path);
        EXPECT_EQ(again.status, 0);
        EXPECT_EQ(again.opens, 0);
        EXPECT_EQ(again.parsed, 0);
        EXPECT_NE(again.profile.Get(), first.profile.Get()) << "an object of its own";
        EXPECT_EQ(CFGetRetainCount(again.profile.Get()), 1);
        EXPECT_EQ(DataOf(again.profile.Get()), ReadFile(path));
    }
}

TEST_F(ProfileCacheTest, AnAliasALinkAndTheFileItselfAreOneFile) {
    const std::string path = NextFile();
    Open(path);
    const std::string link = *sFolder / "link.icc";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    EXPECT_EQ(Open(link).opens, 0);
    const Alias alias(path);
    OSErr status = 12345;
    const int opens = sOpens;
    const Owned<ColorSyncProfileRef> profile(CreateProfileFromAlias(alias.Get(), &status));
    EXPECT_TRUE(profile);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(sOpens, opens);
}

TEST_F(ProfileCacheTest, TheReferenceProfileIsReadOnce) {
    OSErr status = 12345;
    const Owned<ColorSyncProfileRef> first(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &status));
    const int opens = sOpens;
    const Owned<ColorSyncProfileRef> again(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &status));
    EXPECT_TRUE(again);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(sOpens, opens);
    EXPECT_EQ(DataOf(again.Get()), DataOf(first.Get()));
    EXPECT_EQ(CreateProfileFromNamedResource(CFSTR("NoSuchProfile"), &status), nullptr);
    EXPECT_EQ(status, -43);
}

TEST_F(ProfileCacheTest, AFileReplacedByAnotherIsTakenUp) {
    const std::string path = NextFile();
    EXPECT_NE(Open(path).white, 0.25);
    std::filesystem::rename(sFolder->Write("new.tmp", ProfileWithWhite(0.25)), path);
    const Opened after = Open(path);
    EXPECT_EQ(after.opens, 1);
    EXPECT_EQ(after.white, 0.25);
}

TEST_F(ProfileCacheTest, AnOldFileMovedIntoItsPlaceIsTakenUp) {
    const std::string path = NextFile(), other = NextFile();
    const double white = Open(path).white;
    const double otherWhite = Open(other).white;
    ASSERT_NE(white, otherWhite);
    std::filesystem::rename(other, path);
    EXPECT_EQ(Open(path).white, otherWhite);
    WaitUntilSettled(path);
    EXPECT_EQ(Open(path).white, otherWhite);
    EXPECT_EQ(Open(path).opens, 0);
}

TEST_F(ProfileCacheTest, AFileWrittenOverInPlaceIsTakenUpThoughItsSizeAndItsTimeOfWritingStay) {
    const std::string path = NextFile();
    const Opened before = Open(path);
    struct stat about;
    ASSERT_EQ(stat(path.c_str(), &about), 0);
    const timespec times[2] = {about.st_atim, about.st_mtim};
    sFolder->Write(std::filesystem::path(path).filename(), ProfileWithWhite(0.125));
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    struct stat after;
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    ASSERT_EQ(after.st_ino, about.st_ino);
    ASSERT_EQ(after.st_size, about.st_size);
    ASSERT_EQ(after.st_mtim.tv_nsec, about.st_mtim.tv_nsec);
    EXPECT_NE(before.white, 0.125);
    EXPECT_EQ(Open(path).white, 0.125);
    WaitUntilSettled(path);
    EXPECT_EQ(Open(path).white, 0.125);
    EXPECT_EQ(Open(path).opens, 0);
    EXPECT_EQ(DataOf(before.profile.Get()), ProfileWithWhite(before.white)) << "what was opened earlier stays";
}

TEST_F(ProfileCacheTest, AFileThatWasTouchedOnlyIsReadAgainAndComesOutTheSame) {
    const std::string path = NextFile();
    const Opened before = Open(path);
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), nullptr, 0), 0);
    const Opened after = Open(path);
    EXPECT_EQ(after.opens, 1);
    EXPECT_EQ(DataOf(after.profile.Get()), DataOf(before.profile.Get()));
}

TEST_F(ProfileCacheTest, AChangeOfRightsHasTheFileOpenedAgain) {
    const std::string path = NextFile();
    Open(path);
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    EXPECT_EQ(Open(path).opens, 1);
}

TEST_F(ProfileCacheTest, AFileThatIsGoneIsNotFound) {
    const std::string path = NextFile();
    Open(path);
    const FSRef file = FileRef(path);
    const Alias alias(path);
    ASSERT_EQ(unlink(path.c_str()), 0);
    OSErr status = 12345;
    EXPECT_EQ(CreateProfileFromFSRef(&file, &status), nullptr);
    EXPECT_EQ(status, -43);
    testing::internal::CaptureStderr();
    EXPECT_EQ(CreateProfileFromAlias(alias.Get(), &status), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "CreateProfileFromAlias, GetAliasTarget failed (-43)\n");
    EXPECT_EQ(status, -43);
}

TEST_F(ProfileCacheTest, AFileWrittenJustNowIsReadEachTime) {
    // Two writes this close can leave the same times.
    const std::string path = sFolder->Write("now.icc", ProfileWithWhite(0.25));
    EXPECT_EQ(Open(path).white, 0.25);
    EXPECT_EQ(Open(path).opens, 1);
    sFolder->Write("now.icc", ProfileWithWhite(0.75));
    EXPECT_EQ(Open(path).white, 0.75);
}

TEST_F(ProfileCacheTest, WhatWasReadWhileTheFileChangedIsNotKept) {
    const std::string path = NextFile(), other = NextFile();
    const std::string link = *sFolder / "changing.icc";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    sOnOpen = [&] {
        sOnOpen = nullptr;
        std::filesystem::remove(link);
        std::filesystem::create_symlink(other, link);
    };
    const Bytes read = DataOf(Open(link).profile.Get());
    EXPECT_EQ(read, ReadFile(other));
    const Opened opened = Open(path);
    EXPECT_EQ(opened.opens, 1);
    EXPECT_EQ(DataOf(opened.profile.Get()), ReadFile(path));
}

TEST_F(ProfileCacheTest, AFileThatIsNoProfileIsReadEachTime) {
    const std::string path = NextFile();
    sFolder->Write(std::filesystem::path(path).filename(), Bytes(500, 'x'));
    WaitUntilSettled(path);
    for (int i = 0; i < 2; ++i) {
        const Opened opened = Open(path);
        EXPECT_FALSE(opened.profile);
        EXPECT_EQ(opened.status, 0);
        EXPECT_EQ(opened.opens, 1);
    }
}

TEST_F(ProfileCacheTest, AProfileThatIsChangedAfterOpeningChangesNoOther) {
    const std::string path = NextFile();
    const Opened first = Open(path);
    const Opened second = Open(path);
    ASSERT_EQ(second.opens, 0);
    for (const Opened* opened : {&first, &second}) {
        // Whoever opened it owns it, and may hold it for one that can be changed.
        auto* const changeable = const_cast<ColorSyncMutableProfileRef>(opened->profile.Get());
        SetMediaWhitePoint(changeable, {1, 2, 3});
        ColorSyncProfileRemoveTag(changeable, CFSTR("rXYZ"));
        const Opened next = Open(path);
        EXPECT_EQ(next.opens, 0);
        EXPECT_EQ(DataOf(next.profile.Get()), ReadFile(path));
        EXPECT_EQ(next.white, first.white);
    }
}

TEST_F(ProfileCacheTest, SixteenAreKept) {
    std::vector<std::string> paths;
    for (int i = 0; i < 17; ++i) paths.push_back(NextFile());
    for (int i = 0; i < 16; ++i) EXPECT_EQ(Open(paths[static_cast<size_t>(i)]).opens, 1);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(Open(paths[static_cast<size_t>(i)]).opens, 0);
    EXPECT_EQ(Open(paths[16]).opens, 1);
    EXPECT_EQ(Open(paths[0]).opens, 1) << "used longest ago";
    EXPECT_EQ(Open(paths[16]).opens, 0);
}

TEST_F(ProfileCacheTest, ManyThreadsOpenOneFile) {
    const std::string path = NextFile();
    const FSRef file = FileRef(path);
    const Bytes bytes = ReadFile(path);
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                OSErr status = 12345;
                const Owned<ColorSyncProfileRef> profile(CreateProfileFromFSRef(&file, &status));
                if (status != 0 || !profile || DataOf(profile.Get()) != bytes) ++wrong;
                SetMediaWhitePoint(const_cast<ColorSyncMutableProfileRef>(profile.Get()), {t, i, 0});
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
