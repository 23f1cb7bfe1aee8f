// What profile access does when the platform refuses, and what it asks for: the program is linked so that those calls pass through here.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "profile/CurveSampling.h"
#include "profile/ProfileHeader.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileModel.h"
#include "tests/fixtures/FixedValues.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

/// The status that each file call answers with, instead of being made.
struct Refusals {
    OSErr forkName = 0, open = 0, size = 0, read = 0, record = 0, aliasFile = 0;
};
Refusals sRefused;
std::vector<std::string> sCalls;  // of the file manager, in order
std::optional<FSIORefNum> sRead;  // the fork that was read last

bool sNoHeader = false;
bool sNoProfileFromURL = false;
std::vector<std::string> sAskedTags;
/// What was handed out or in, with a reference of the test's own.
std::vector<Owned<CFDataRef>> sData;
std::vector<Owned<CFURLRef>> sURLs;

CFDataRef Noted(CFDataRef data) {
    if (data) sData.push_back(Owned<CFDataRef>::Retain(data));
    return data;
}

OSErr Called(const char* name, OSErr refusal) {
    sCalls.emplace_back(name);
    return refusal;
}

}  // namespace

extern "C" {

OSErr __real_FSGetDataForkName(HFSUniStr255* name);
OSErr __wrap_FSGetDataForkName(HFSUniStr255* name);
OSErr __real_FSOpenFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName, SInt8 permissions, FSIORefNum* fork);
OSErr __wrap_FSOpenFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName, SInt8 permissions, FSIORefNum* fork);
OSErr __real_FSGetForkSize(FSIORefNum fork, SInt64* size);
OSErr __wrap_FSGetForkSize(FSIORefNum fork, SInt64* size);
OSErr __real_FSReadFork(FSIORefNum fork, UInt16 positionMode, SInt64 positionOffset, unsigned long requested, void* buffer, unsigned long* actual);
OSErr __wrap_FSReadFork(FSIORefNum fork, UInt16 positionMode, SInt64 positionOffset, unsigned long requested, void* buffer, unsigned long* actual);
OSErr __real_FSCloseFork(FSIORefNum fork);
OSErr __wrap_FSCloseFork(FSIORefNum fork);
OSErr __real_FSResolveAliasWithMountFlags(const FSRef* fromFile, AliasHandle alias, FSRef* target, Boolean* wasChanged, unsigned long mountFlags);
OSErr __wrap_FSResolveAliasWithMountFlags(const FSRef* fromFile, AliasHandle alias, FSRef* target, Boolean* wasChanged, unsigned long mountFlags);
OSErr __real_FSResolveAliasFileWithMountFlags(FSRef* ref, Boolean resolveAliasChains, Boolean* targetIsFolder, Boolean* wasAliased,
                                              unsigned long mountFlags);
OSErr __wrap_FSResolveAliasFileWithMountFlags(FSRef* ref, Boolean resolveAliasChains, Boolean* targetIsFolder, Boolean* wasAliased,
                                              unsigned long mountFlags);
ColorSyncProfileRef __real_ColorSyncProfileCreate(CFDataRef data, CFErrorRef* error);
ColorSyncProfileRef __wrap_ColorSyncProfileCreate(CFDataRef data, CFErrorRef* error);
ColorSyncProfileRef __real_ColorSyncProfileCreateWithURL(CFURLRef url, CFErrorRef* error);
ColorSyncProfileRef __wrap_ColorSyncProfileCreateWithURL(CFURLRef url, CFErrorRef* error);
CFDataRef __real_ColorSyncProfileCopyHeader(ColorSyncProfileRef profile);
CFDataRef __wrap_ColorSyncProfileCopyHeader(ColorSyncProfileRef profile);
void __real_ColorSyncProfileSetHeader(ColorSyncMutableProfileRef profile, CFDataRef header);
void __wrap_ColorSyncProfileSetHeader(ColorSyncMutableProfileRef profile, CFDataRef header);
bool __real_ColorSyncProfileContainsTag(ColorSyncProfileRef profile, CFStringRef signature);
bool __wrap_ColorSyncProfileContainsTag(ColorSyncProfileRef profile, CFStringRef signature);
CFDataRef __real_ColorSyncProfileCopyTag(ColorSyncProfileRef profile, CFStringRef signature);
CFDataRef __wrap_ColorSyncProfileCopyTag(ColorSyncProfileRef profile, CFStringRef signature);
void __real_ColorSyncProfileSetTag(ColorSyncMutableProfileRef profile, CFStringRef signature, CFDataRef data);
void __wrap_ColorSyncProfileSetTag(ColorSyncMutableProfileRef profile, CFStringRef signature, CFDataRef data);

OSErr __wrap_FSGetDataForkName(HFSUniStr255* name) {
    const OSErr refusal = Called("name", sRefused.forkName);
    return refusal != 0 ? refusal : __real_FSGetDataForkName(name);
}

OSErr __wrap_FSOpenFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName, SInt8 permissions, FSIORefNum* fork) {
    EXPECT_EQ(permissions, fsRdPerm);
    const OSErr refusal = Called("open", sRefused.open);
    return refusal != 0 ? refusal : __real_FSOpenFork(ref, forkNameLength, forkName, permissions, fork);
}

OSErr __wrap_FSGetForkSize(FSIORefNum fork, SInt64* size) {
    const OSErr refusal = Called("size", sRefused.size);
    return refusal != 0 ? refusal : __real_FSGetForkSize(fork, size);
}

OSErr __wrap_FSReadFork(FSIORefNum fork, UInt16 positionMode, SInt64 positionOffset, unsigned long requested, void* buffer, unsigned long* actual) {
    EXPECT_EQ(positionMode, fsFromStart);
    EXPECT_EQ(positionOffset, 0);
    sRead = fork;
    const OSErr refusal = Called("read", sRefused.read);
    const OSErr status = __real_FSReadFork(fork, positionMode, positionOffset, requested, buffer, actual);
    return refusal != 0 ? refusal : status;
}

OSErr __wrap_FSCloseFork(FSIORefNum fork) {
    if (sRead) {
        EXPECT_EQ(fork, *sRead);
    }
    Called("close", 0);
    return __real_FSCloseFork(fork);
}

OSErr __wrap_FSResolveAliasWithMountFlags(const FSRef* fromFile, AliasHandle alias, FSRef* target, Boolean* wasChanged, unsigned long mountFlags) {
    EXPECT_EQ(fromFile, nullptr);
    EXPECT_EQ(mountFlags, static_cast<unsigned long>(kResolveAliasFileNoUI));
    const OSErr refusal = Called("record", sRefused.record);
    return refusal != 0 ? refusal : __real_FSResolveAliasWithMountFlags(fromFile, alias, target, wasChanged, mountFlags);
}

OSErr __wrap_FSResolveAliasFileWithMountFlags(FSRef* ref, Boolean resolveAliasChains, Boolean* targetIsFolder, Boolean* wasAliased,
                                              unsigned long mountFlags) {
    EXPECT_TRUE(resolveAliasChains);
    EXPECT_EQ(mountFlags, static_cast<unsigned long>(kResolveAliasFileNoUI));
    const OSErr refusal = Called("alias file", sRefused.aliasFile);
    return refusal != 0 ? refusal : __real_FSResolveAliasFileWithMountFlags(ref, resolveAliasChains, targetIsFolder, wasAliased, mountFlags);
}

ColorSyncProfileRef __wrap_ColorSyncProfileCreate(CFDataRef data, CFErrorRef* error) {
    if (error) return __real_ColorSyncProfileCreate(data, error);  // asked for the words of a refusal
    Called("profile", 0);
    return __real_ColorSyncProfileCreate(Noted(data), error);
}

ColorSyncProfileRef __wrap_ColorSyncProfileCreateWithURL(CFURLRef url, CFErrorRef* error) {
    EXPECT_EQ(error, nullptr);
    sURLs.push_back(Owned<CFURLRef>::Retain(url));
    return sNoProfileFromURL ? nullptr : __real_ColorSyncProfileCreateWithURL(url, error);
}

CFDataRef __wrap_ColorSyncProfileCopyHeader(ColorSyncProfileRef profile) {
    return sNoHeader ? nullptr : Noted(__real_ColorSyncProfileCopyHeader(profile));
}

void __wrap_ColorSyncProfileSetHeader(ColorSyncMutableProfileRef profile, CFDataRef header) {
    __real_ColorSyncProfileSetHeader(profile, Noted(header));
}

bool __wrap_ColorSyncProfileContainsTag(ColorSyncProfileRef profile, CFStringRef signature) {
    sAskedTags.push_back(Text(signature));
    return __real_ColorSyncProfileContainsTag(profile, signature);
}

CFDataRef __wrap_ColorSyncProfileCopyTag(ColorSyncProfileRef profile, CFStringRef signature) {
    return Noted(__real_ColorSyncProfileCopyTag(profile, signature));
}

void __wrap_ColorSyncProfileSetTag(ColorSyncMutableProfileRef profile, CFStringRef signature, CFDataRef data) {
    __real_ColorSyncProfileSetTag(profile, signature, Noted(data));
}

}  // extern "C"

namespace {

using Names = std::vector<std::string>;

class ProfileCalls : public testing::Test {
protected:
    void TearDown() override {
        sRefused = {};
        sCalls.clear();
        sRead.reset();
        sNoHeader = sNoProfileFromURL = false;
        sAskedTags.clear();
        sData.clear();
        sURLs.clear();
    }

    /// Nobody but the test holds what was handed out. Tells how much that was.
    static size_t ReleasedData() {
        for (const auto& data : sData) EXPECT_EQ(CFGetRetainCount(data.Get()), 1);
        const size_t count = sData.size();
        sData.clear();
        return count;
    }

    TemporaryFolder folder;
};

// ---- files ----

TEST_F(ProfileCalls, AFileIsOpenedMeasuredReadMadeAProfileAndClosed) {
    const FSRef file = FileRef(folder.Write("monitor.icc", MatrixMonitor(CurvTag({563})).Make()));
    OSErr error = 12345;
    const Owned<ColorSyncProfileRef> profile(CreateProfileFromFSRef(&file, &error));
    EXPECT_TRUE(profile);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(sCalls.front(), "name");
    std::sort(sCalls.begin() + 4, sCalls.end());  // the fork may be closed before the bytes are looked at
    EXPECT_EQ(sCalls, (Names{"name", "open", "size", "read", "close", "profile"}));
    EXPECT_EQ(ReleasedData(), 1u);
}

TEST_F(ProfileCalls, TheCodeOfTheFailingFileCallIsPassedOnAndWhatWasOpenedIsClosed) {
    const FSRef file = FileRef(folder.Write("monitor.icc", MatrixMonitor(CurvTag({563})).Make()));
    const struct {
        const char* what;
        Refusals refused;
        Names calls;
    } rows[] = {
        {"fork name", {.forkName = -1409}, {"name"}},
        {"open", {.open = -54}, {"name", "open"}},
        {"size", {.size = -51}, {"name", "open", "size", "close"}},
        {"read", {.read = -36}, {"name", "open", "size", "read", "close"}},  // no profile, though the bytes are there
        {"end of file", {.read = -39}, {"name", "open", "size", "read", "close"}},
    };
    for (const auto& row : rows) {
        sRefused = row.refused;
        sCalls.clear();
        OSErr error = 12345;
        EXPECT_EQ(CreateProfileFromFSRef(&file, &error), nullptr) << row.what;
        EXPECT_EQ(error, row.refused.forkName + row.refused.open + row.refused.size + row.refused.read) << row.what;
        EXPECT_EQ(sCalls, row.calls) << row.what;
    }
}

TEST_F(ProfileCalls, AFileThatIsTooLargeIsNeitherReadNorLeftOpen) {
    const FSRef file = FileRef(folder.Write("large.icc", Bytes(20971521)));
    OSErr error = 0;
    EXPECT_EQ(CreateProfileFromFSRef(&file, &error), nullptr);
    EXPECT_EQ(error, -50);
    EXPECT_EQ(sCalls, (Names{"name", "open", "size", "close"}));
}

TEST_F(ProfileCalls, ANonProfilesBytesAreReleased) {
    const FSRef file = FileRef(folder.Write("text.icc", Bytes(500, 'x')));
    OSErr error = 12345;
    EXPECT_EQ(CreateProfileFromFSRef(&file, &error), nullptr);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(ReleasedData(), 1u);
}

TEST_F(ProfileCalls, AnAliasThatResolvesPassesTheFilesCodeOnWithoutALine) {
    const Alias alias(folder.Write("monitor.icc", MatrixMonitor(CurvTag({563})).Make()));
    sRefused.read = -36;
    OSErr error = 12345;
    testing::internal::CaptureStderr();
    EXPECT_EQ(CreateProfileFromAlias(alias.Get(), &error), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(error, -36);
}

TEST_F(ProfileCalls, AnAliasIsResolvedAsARecordAndThenAsAFileWithoutTheUser) {
    const Alias alias(folder.Write("monitor.icc", MatrixMonitor(CurvTag({563})).Make()));
    const struct {
        Refusals refused;
        OSErr status;
        Names calls;
    } rows[] = {
        {{}, 0, {"record", "alias file"}},
        {{.record = -35}, -35, {"record"}},
        {{.aliasFile = -36}, -36, {"record", "alias file"}},
    };
    for (const auto& row : rows) {
        sRefused = row.refused;
        sCalls.clear();
        FSRef target;
        EXPECT_EQ(GetAliasTarget(alias.Get(), &target), row.status);
        EXPECT_EQ(sCalls, row.calls);
        const Owned<CFStringRef> path(LocateProfilePath(alias.Get()));
        EXPECT_EQ(static_cast<bool>(path), row.status == 0);

        if (row.status == 0) continue;
        sCalls.clear();
        OSErr error = 12345;
        testing::internal::CaptureStderr();
        EXPECT_EQ(CreateProfileFromAlias(alias.Get(), &error), nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "CreateProfileFromAlias, GetAliasTarget failed (" + std::to_string(row.status) + ")\n");
        EXPECT_EQ(error, row.status);
        EXPECT_EQ(sCalls, row.calls) << "no file is opened";
    }
}

TEST_F(ProfileCalls, AResourceThatIsNoProfileIsNotFound) {
    OSErr error = 12345;
    sNoProfileFromURL = true;
    EXPECT_EQ(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &error), nullptr);
    EXPECT_EQ(error, -43);
    sNoProfileFromURL = false;
    const Owned<ColorSyncProfileRef> profile(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &error));
    EXPECT_TRUE(profile);
    EXPECT_EQ(error, 0);
    ASSERT_EQ(sURLs.size(), 2u);
    for (const auto& url : sURLs) EXPECT_EQ(CFGetRetainCount(url.Get()), 1);
}

// ---- headers ----

TEST_F(ProfileCalls, AProfileWithoutAHeaderHasZerosForOne) {
    const auto profile = ProfileFrom(MatrixMonitor(CurvTag({563})).Make());
    ProfileMaker bare = MatrixMonitor(CurvTag({563}));
    bare.Remove("wtpt");
    const auto whiteless = ProfileFrom(bare.Make());
    sNoHeader = true;
    const ICCProfileHeader header = GetProfileHeader(profile.Get());
    const ICCProfileHeader zeros = {};
    EXPECT_EQ(std::memcmp(&header, &zeros, 128), 0);
    EXPECT_EQ(GetProfileClass(profile.Get()), 0u);
    EXPECT_EQ(GetProfileColourSpace(profile.Get()), 0u);
    EXPECT_FALSE(IsRGBOutputProfile(profile.Get()));
    EXPECT_FALSE(IsXYZToRGBLUTModelOutputProfile(profile.Get()));
    EXPECT_EQ(GetProfileIlluminant(profile.Get()), (FixedXYZ{0, 0, 0}));
    EXPECT_EQ(GetMediaWhitePoint(profile.Get()), (FixedXYZ{63190, 65536, 54061})) << "the tag is there all the same";
    EXPECT_EQ(GetMediaWhitePoint(whiteless.Get()), (FixedXYZ{0, 0, 0}));
}

TEST_F(ProfileCalls, EveryCopyOfAHeaderIsReleased) {
    const auto profile = MutableProfileFrom(MatrixMonitor(CurvTag({563})).Make());
    sData.clear();
    const ICCProfileHeader header = GetProfileHeader(profile.Get());
    EXPECT_EQ(ReleasedData(), 1u);
    GetProfileClass(profile.Get());
    EXPECT_EQ(ReleasedData(), 1u);
    GetProfileColourSpace(profile.Get());
    EXPECT_EQ(ReleasedData(), 1u);
    IsRGBOutputProfile(profile.Get());
    EXPECT_GE(ReleasedData(), 1u);
    IsXYZToRGBLUTModelOutputProfile(profile.Get());
    EXPECT_GE(ReleasedData(), 1u);
    GetProfileIlluminant(profile.Get());
    EXPECT_EQ(ReleasedData(), 1u);
    SetProfileHeader(profile.Get(), header);
    ASSERT_EQ(sData.size(), 1u);
    EXPECT_EQ(CFDataGetLength(sData[0].Get()), 128);
    EXPECT_EQ(ReleasedData(), 1u);
}

// ---- tags ----

TEST_F(ProfileCalls, TheModelsTagsAreAskedForChannelByChannelUpToTheFirstThatIsMissing) {
    const Names all = {"rXYZ", "rTRC", "gXYZ", "gTRC", "bXYZ", "bTRC"};
    EXPECT_TRUE(IsMatrixModel(ProfileFrom(MatrixMonitor(CurvTag({563})).Make()).Get()));
    EXPECT_EQ(sAskedTags, all);
    for (size_t i = 0; i < all.size(); ++i) {
        ProfileMaker maker = MatrixMonitor(CurvTag({563}));
        maker.Remove(all[i]);
        sAskedTags.clear();
        EXPECT_FALSE(IsMatrixModel(ProfileFrom(maker.Make()).Get()));
        EXPECT_EQ(sAskedTags, Names(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(i) + 1));
    }
}

TEST_F(ProfileCalls, EveryCopyOfATagIsReleased) {
    ProfileMaker maker = MatrixMonitor(CurvTag({563}));
    maker.Set("gTRC", CurvTag({1, 2, 3}));
    maker.Set("bTRC", ParaTag(0, {2.2}));
    maker.Set("kTRC", ParaTag(5, {2.2}));
    maker.Set("lumi", XYZTag(0, 80, 0));
    Bytes table = TagOfType("mft2");
    table.insert(table.end(), {3, 3, 2, 0});
    table.resize(48);
    Append16(table, 2);
    Append16(table, 2);
    maker.Set("A2B0", table);
    const auto profile = MutableProfileFrom(maker.Make());
    sData.clear();

    FixedMatrix matrix;
    EXPECT_EQ(GetMonitorMatrix(profile.Get(), &matrix), 0);
    EXPECT_EQ(ReleasedData(), 3u);
    EXPECT_EQ(GetMonitorLuminance(profile.Get()), 80 * 65536);
    EXPECT_EQ(ReleasedData(), 1u);
    GetMediaWhitePoint(profile.Get());
    EXPECT_EQ(ReleasedData(), 1u);
    SetMediaWhitePoint(profile.Get(), {1, 2, 3});
    EXPECT_EQ(ReleasedData(), 1u);
    for (const char* signature : {"rTRC", "gTRC", "bTRC", "kTRC", "wtpt"}) {
        uint16_t* curve = nullptr;
        uint32_t count = 0;
        GetColourantLUT(profile.Get(), Code(signature), &curve, &count);
        std::free(curve);
        EXPECT_EQ(ReleasedData(), 1u) << signature;
    }
    for (const char* signature : {"A2B0", "rTRC"}) {
        int32_t elements[9];
        uint32_t gridPoints = 0;
        uint16_t* nodes = nullptr;
        EXPECT_EQ(Get3DTable(profile.Get(), Code(signature), elements, &gridPoints, &nodes), -170);
        EXPECT_EQ(ReleasedData(), 1u) << signature;
    }
}

}  // namespace
