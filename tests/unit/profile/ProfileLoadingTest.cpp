#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "profile/CurveSampling.h"
#include "profile/ProfileHeader.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileModel.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

constexpr std::size_t kLargestProfile = 20971520;

Bytes MonitorBytes() {
    return MatrixMonitor(CurvTag({563})).Make();
}

/// A profile padded to a whole file of `size` bytes by a private tag.
Bytes ProfileOfSize(std::size_t size) {
    ProfileMaker maker = MatrixMonitor(CurvTag({563}));
    maker.Set("padd", Bytes(4));
    const std::size_t smallest = maker.Make().size();
    maker.Set("padd", Bytes(4 + size - smallest, 0xA5));
    Bytes bytes = maker.Make();
    bytes.resize(size);
    Put32(bytes, 0, static_cast<std::uint32_t>(size));
    return bytes;
}

std::size_t OpenDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
}

struct Opened {
    Owned<ColorSyncProfileRef> profile;
    OSErr error;
};

Opened OpenFile(const std::string& path) {
    const FSRef ref = FileRef(path);
    OSErr error = 12345;
    Owned<ColorSyncProfileRef> profile(CreateProfileFromFSRef(&ref, &error));
    return {std::move(profile), error};
}

struct OpenedAlias {
    Owned<ColorSyncProfileRef> profile;
    OSErr error;
    std::string printed;
};

OpenedAlias OpenAlias(AliasHandle alias) {
    OSErr error = 12345;
    testing::internal::CaptureStderr();
    Owned<ColorSyncProfileRef> profile(CreateProfileFromAlias(alias, &error));
    return {std::move(profile), error, testing::internal::GetCapturedStderr()};
}

// ---- from a file ----

TEST(ProfileFromFile, IsRead) {
    const TemporaryFolder folder;
    const Opened opened = OpenFile(folder.Write("monitor.icc", MonitorBytes()));
    ASSERT_TRUE(opened.profile);
    EXPECT_EQ(opened.error, 0);
    EXPECT_EQ(GetProfileClass(opened.profile.Get()), Code("mntr"));
    EXPECT_TRUE(IsMatrixModel(opened.profile.Get()));
}

TEST(ProfileFromFile, TwentyMebibytesAreReadAndOneMoreIsRefused) {
    const TemporaryFolder folder;
    const Opened largest = OpenFile(folder.Write("largest.icc", ProfileOfSize(kLargestProfile)));
    ASSERT_EQ(std::filesystem::file_size(folder / "largest.icc"), kLargestProfile);
    ASSERT_TRUE(largest.profile);
    EXPECT_EQ(largest.error, 0);
    EXPECT_EQ(GetProfileHeader(largest.profile.Get()).size, kLargestProfile);

    const Opened larger = OpenFile(folder.Write("larger.icc", ProfileOfSize(kLargestProfile + 1)));
    EXPECT_FALSE(larger.profile);
    EXPECT_EQ(larger.error, -50);
}

TEST(ProfileFromFile, FileThatIsNoProfileIsNullWithErrorZero) {
    const TemporaryFolder folder;
    const Bytes text = {'n', 'o', ' ', 'p', 'r', 'o', 'f', 'i', 'l', 'e'};
    for (const Bytes& bytes : {text, Bytes(), Bytes(1000, 0), Bytes(127, 0xFF)}) {
        const Opened opened = OpenFile(folder.Write("file.icc", bytes));
        EXPECT_FALSE(opened.profile) << bytes.size();
        EXPECT_EQ(opened.error, 0) << bytes.size();
    }
}

TEST(ProfileFromFile, FileThatIsGoneGivesTheFileCallsStatus) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("gone.icc", MonitorBytes());
    const FSRef ref = FileRef(path);
    std::filesystem::remove(path);
    OSErr error = 0;
    EXPECT_EQ(CreateProfileFromFSRef(&ref, &error), nullptr);
    EXPECT_EQ(error, -43);
}

TEST(ProfileFromFile, FolderIsRefusedByTheFileCalls) {
    const TemporaryFolder folder;
    const Opened opened = OpenFile(folder / "");
    EXPECT_FALSE(opened.profile);
    EXPECT_NE(opened.error, 0);
}

TEST(ProfileFromFile, ForkIsClosedOnEveryPath) {
    const TemporaryFolder folder;
    const std::string good = folder.Write("good.icc", MonitorBytes());
    const std::string bad = folder.Write("bad.icc", Bytes(1000, 0));
    const std::string large = folder.Write("large.icc", Bytes(kLargestProfile + 1, 0));
    const std::size_t before = OpenDescriptors();
    for (const std::string& path : {good, bad, large}) OpenFile(path);
    EXPECT_EQ(OpenDescriptors(), before);
}

// ---- malformed files: a null profile, or one whose reading stays inside its bytes ----

/// Everything that the library reads of a profile.
void ReadAll(ColorSyncProfileRef profile) {
    GetProfileHeader(profile);
    GetMediaWhitePoint(profile);
    GetMonitorLuminance(profile);
    FixedMatrix matrix;
    GetMonitorMatrix(profile, &matrix);
    for (const char* signature : {"rTRC", "gTRC", "bTRC", "rXYZ"}) {
        uint16_t* table = nullptr;
        uint32_t count = 0;
        const OSErr status = GetColourantLUT(profile, Code(signature), &table, &count);
        EXPECT_TRUE(status == 0 || status == -170) << status;
        EXPECT_EQ(table == nullptr, status != 0);
        std::free(table);
    }
}

/// A copy of exactly the bytes given, so that a memory checker sees any read past them.
void OpenAndRead(const Bytes& bytes) {
    const auto profile = ProfileFrom(bytes);
    if (profile) ReadAll(profile.Get());
}

TEST(MalformedProfile, TruncatedAtEveryLengthIsRefused) {
    const Bytes whole = MatrixMonitor(ParaTag(3, {2.4, 0.9, 0.1, 0.1, 0.04})).Make();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const TemporaryFolder folder;
        const Opened opened = OpenFile(folder.Write("cut.icc", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))));
        EXPECT_FALSE(opened.profile) << length;
        EXPECT_EQ(opened.error, 0) << length;
    }
}

TEST(MalformedProfile, TagsOutsideTheFileAreRefused) {
    const Bytes whole = MonitorBytes();
    struct Row {
        const char* what;
        std::size_t offset;
        std::uint32_t value;
    };
    const auto size = static_cast<std::uint32_t>(whole.size());
    const Row rows[] = {
        {"file size beyond the end", 0, size + 1},
        {"file size of all ones", 0, 0xFFFFFFFF},
        {"file size below the header", 0, 100},
        {"tag count beyond the end", 128, 0xFFFFFFFF},
        {"tag count that wraps", 128, 0x15555556},
        {"tag offset at the end", 128 + 4 + 4, size},
        {"tag offset beyond the end", 128 + 4 + 4, size + 100},
        {"tag offset that wraps", 128 + 4 + 4, 0xFFFFFFF0},
        {"tag offset inside the header", 128 + 4 + 4, 0},
        {"tag size beyond the end", 128 + 4 + 8, size},
        {"tag size that wraps", 128 + 4 + 8, 0xFFFFFFFF},
    };
    for (const Row& row : rows) {
        Bytes bytes = whole;
        Put32(bytes, row.offset, row.value);
        EXPECT_FALSE(ProfileFrom(bytes)) << row.what;
    }
}

TEST(MalformedProfile, AnyChangedBytesAreReadSafely) {
    std::mt19937 random(20240607);
    for (const Bytes& whole :
         {MonitorBytes(), MatrixMonitor(ParaTag(4, {2.4, 0.9, 0.1, 0.1, 0.04, 0, 0})).Make(), MatrixMonitor(CurvTag({1, 2, 3, 4})).Make()}) {
        for (int round = 0; round < 2000; ++round) {
            Bytes bytes = whole;
            for (unsigned changes = 1 + random() % 4; changes > 0; --changes) {
                // Half of the changes hit the sizes and offsets.
                const std::size_t place = random() % 2 ? random() % bytes.size() : 128 + random() % (4 + 12 * 7);
                bytes[place] = static_cast<std::uint8_t>(random() % 3 ? random() : 0xFF);
            }
            OpenAndRead(bytes);
        }
    }
}

// ---- from an alias ----

TEST(ProfileFromAlias, IsFoundThroughTheRecord) {
    const TemporaryFolder folder;
    const Alias alias(folder.Write("monitor.icc", MonitorBytes()));
    const OpenedAlias opened = OpenAlias(alias.Get());
    EXPECT_TRUE(opened.profile);
    EXPECT_EQ(opened.error, 0);
    EXPECT_EQ(opened.printed, "");
}

TEST(ProfileFromAlias, ChainsOfAliasFilesAreFollowed) {
    const TemporaryFolder folder;
    folder.Write("monitor.icc", MonitorBytes());
    std::filesystem::create_symlink("monitor.icc", folder / "first");
    std::filesystem::create_symlink("first", folder / "second");
    // The record is of a plain file, whose place a link takes later.
    const std::string path = folder.Write("chosen.icc", MonitorBytes());
    const Alias alias(path);
    std::filesystem::remove(path);
    std::filesystem::create_symlink("second", path);
    FSRef target;
    ASSERT_EQ(GetAliasTarget(alias.Get(), &target), 0);
    const Owned<CFURLRef> url(CFURLCreateFromFSRef(nullptr, &target));
    const Owned<CFStringRef> name(CFURLCopyLastPathComponent(url.Get()));
    EXPECT_EQ(Text(name), "monitor.icc");
}

TEST(ProfileFromAlias, TargetThatIsGoneIsReportedOnStandardError) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("monitor.icc", MonitorBytes());
    const Alias alias(path);
    std::filesystem::remove(path);
    const OpenedAlias opened = OpenAlias(alias.Get());
    EXPECT_FALSE(opened.profile);
    EXPECT_EQ(opened.error, -43);
    EXPECT_EQ(opened.printed, "CreateProfileFromAlias, GetAliasTarget failed (-43)\n");
}

TEST(ProfileFromAlias, NoRecordIsAnErrorToo) {
    const OpenedAlias opened = OpenAlias(nullptr);
    EXPECT_FALSE(opened.profile);
    EXPECT_NE(opened.error, 0);
    EXPECT_EQ(opened.printed, "CreateProfileFromAlias, GetAliasTarget failed (" + std::to_string(opened.error) + ")\n");
}

TEST(AliasTarget, IsUpdatedInPlace) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("monitor.icc", MonitorBytes());
    const Alias alias(path);
    FSRef target;
    ASSERT_EQ(GetAliasTarget(alias.Get(), &target), 0);
    const Owned<CFURLRef> url(CFURLCreateFromFSRef(nullptr, &target));
    const Owned<CFStringRef> found(CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle));
    EXPECT_EQ(Text(found), std::filesystem::canonical(path).string());
}

// ---- paths ----

TEST(ProfilePath, IsTheTargetsPath) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("with blank \xC3\xA9.icc", MonitorBytes());
    const Alias alias(path);
    const Owned<CFStringRef> found(LocateProfilePath(alias.Get()));
    EXPECT_EQ(Text(found), std::filesystem::canonical(path).string());
    std::filesystem::remove(path);
    EXPECT_EQ(LocateProfilePath(alias.Get()), nullptr);
    EXPECT_EQ(LocateProfilePath(nullptr), nullptr);
}

TEST(ResourceProfilePath, IsTheInstalledFile) {
    const Owned<CFStringRef> path(LocateResourceProfilePath(CFSTR("MatrixCalRGB")));
    ASSERT_TRUE(path);
    EXPECT_TRUE(std::filesystem::path(Text(path)).is_absolute());
    EXPECT_EQ(std::filesystem::path(Text(path)).filename(), "MatrixCalRGB.icc");
    EXPECT_TRUE(std::filesystem::exists(Text(path)));
    EXPECT_EQ(LocateResourceProfilePath(CFSTR("NoSuchProfile")), nullptr);
}

// ---- from a resource ----

TEST(ProfileFromResource, IsRead) {
    OSErr error = 12345;
    const Owned<ColorSyncProfileRef> profile(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &error));
    ASSERT_TRUE(profile);
    EXPECT_EQ(error, 0);
    EXPECT_TRUE(IsMatrixModel(profile.Get()));
}

TEST(ProfileFromResource, MissingResourceIsNotFound) {
    OSErr error = 12345;
    EXPECT_EQ(CreateProfileFromNamedResource(CFSTR("NoSuchProfile"), &error), nullptr);
    EXPECT_EQ(error, -43);
}

}  // namespace
