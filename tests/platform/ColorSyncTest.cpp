#include <gtest/gtest.h>
#include <lcms2.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "platform/ColorSync.h"
#include "profile/ProfileHeader.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

Bytes ContentsOf(const Owned<CFDataRef>& data) {
    if (!data) return {};
    const UInt8* bytes = CFDataGetBytePtr(data.Get());
    return Bytes(bytes, bytes + CFDataGetLength(data.Get()));
}

Bytes DataOf(ColorSyncProfileRef profile) {
    return ContentsOf(Owned<CFDataRef>(ColorSyncProfileCopyData(profile, nullptr)));
}
Bytes TagOf(ColorSyncProfileRef profile, const char* name) {
    return ContentsOf(Owned<CFDataRef>(ColorSyncProfileCopyTag(profile, NewString(name).Get())));
}
void SetTag(ColorSyncMutableProfileRef profile, const char* name, const Bytes& bytes) {
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())));
    ColorSyncProfileSetTag(profile, NewString(name).Get(), data.Get());
}
bool HasTag(ColorSyncProfileRef profile, const char* name) {
    return ColorSyncProfileContainsTag(profile, NewString(name).Get());
}

std::uint32_t Word(const Bytes& bytes, std::size_t offset) {
    return std::uint32_t{bytes.at(offset)} << 24 | std::uint32_t{bytes.at(offset + 1)} << 16 | std::uint32_t{bytes.at(offset + 2)} << 8 |
           bytes.at(offset + 3);
}

struct TableRow {
    std::uint32_t signature, offset, size;
};
std::vector<TableRow> TableOf(const Bytes& profile) {
    std::vector<TableRow> rows;
    for (std::size_t i = 0; i < Word(profile, 128); ++i) {
        rows.push_back({Word(profile, 132 + 12 * i), Word(profile, 136 + 12 * i), Word(profile, 140 + 12 * i)});
    }
    return rows;
}

const Bytes kSampleProfile = MatrixMonitor(CurvTag({512})).Make();

// ---- bytes in, bytes out ----

TEST(ColorSyncProfileTest, AnUnchangedProfileHasTheBytesItWasMadeFrom) {
    EXPECT_EQ(DataOf(ProfileFrom(kSampleProfile).Get()), kSampleProfile);
}

TEST(ColorSyncProfileTest, BytesAfterTheStatedSizeDoNotBelongToIt) {
    Bytes longer = kSampleProfile;
    longer.insert(longer.end(), 1000, 0xEE);
    EXPECT_EQ(DataOf(ProfileFrom(longer).Get()), kSampleProfile);
}

TEST(ColorSyncProfileTest, KeepsItsOwnCopyOfTheBytes) {
    Bytes bytes = kSampleProfile;
    const Owned<CFMutableDataRef> data(CFDataCreateMutable(kCFAllocatorDefault, 0));
    CFDataSetLength(data.Get(), static_cast<CFIndex>(bytes.size()));
    std::memcpy(CFDataGetMutableBytePtr(data.Get()), bytes.data(), bytes.size());
    const Owned<ColorSyncProfileRef> profile(ColorSyncProfileCreate(data.Get(), nullptr));
    std::memset(CFDataGetMutableBytePtr(data.Get()), 0, bytes.size());
    EXPECT_EQ(DataOf(profile.Get()), kSampleProfile);
}

TEST(ColorSyncProfileTest, IsOfItsOwnType) {
    EXPECT_EQ(CFGetTypeID(ProfileFrom(kSampleProfile).Get()), ColorSyncProfileGetTypeID());
}

// ---- header ----

Bytes BytesWithEveryHeaderFieldDifferent() {
    Bytes bytes = kSampleProfile;
    for (const std::size_t offset : {4, 44, 48, 52, 56, 60, 64, 80}) Put32(bytes, offset, 0x01020300u + static_cast<std::uint32_t>(offset));
    for (std::size_t i = 24; i < 36; ++i) bytes[i] = static_cast<std::uint8_t>(i);
    for (std::size_t i = 84; i < 128; ++i) bytes[i] = static_cast<std::uint8_t>(i);
    Put32(bytes, 40, Code("UNIX"));
    return bytes;
}

TEST(ColorSyncProfileHeaderTest, HasEveryFieldInHostByteOrder) {
    const Bytes bytes = BytesWithEveryHeaderFieldDifferent();
    const Bytes copied = ContentsOf(Owned<CFDataRef>(ColorSyncProfileCopyHeader(ProfileFrom(bytes).Get())));
    ASSERT_EQ(copied.size(), 128u);
    ICCProfileHeader header;
    std::memcpy(&header, copied.data(), sizeof header);
    EXPECT_EQ(header.size, bytes.size());
    EXPECT_EQ(header.cmmType, 0x01020304u);
    EXPECT_EQ(header.version, 0x02400000u);
    EXPECT_EQ(header.profileClass, 0x6D6E7472u);
    EXPECT_EQ(header.dataColourSpace, 0x52474220u);
    EXPECT_EQ(header.connectionSpace, 0x58595A20u);
    for (unsigned i = 0; i < 6; ++i) EXPECT_EQ(header.dateTime[i], (24 + 2 * i) << 8 | (25 + 2 * i));
    EXPECT_EQ(header.fileSignature, 0x61637370u);
    EXPECT_EQ(header.platform, Code("UNIX"));
    EXPECT_EQ(header.flags, 0x0102032Cu);
    EXPECT_EQ(header.deviceManufacturer, 0x01020330u);
    EXPECT_EQ(header.deviceModel, 0x01020334u);
    EXPECT_EQ(header.deviceAttributes[0], 0x01020338u);
    EXPECT_EQ(header.deviceAttributes[1], 0x0102033Cu);
    EXPECT_EQ(header.renderingIntent, 0x01020340u);
    EXPECT_EQ(header.illuminantX, 63190);
    EXPECT_EQ(header.illuminantY, 65536);
    EXPECT_EQ(header.illuminantZ, 54061);
    EXPECT_EQ(header.creator, 0x01020350u);
    for (unsigned i = 0; i < 44; ++i) EXPECT_EQ(header.rest[i], 84 + i);
}

TEST(ColorSyncProfileHeaderTest, CanBeSetAndIsStoredInTheOrderOfProfiles) {
    const Bytes bytes = BytesWithEveryHeaderFieldDifferent();
    const Owned<CFDataRef> header(ColorSyncProfileCopyHeader(ProfileFrom(bytes).Get()));
    const Owned<ColorSyncMutableProfileRef> profile = MutableProfileFrom(kSampleProfile);
    ColorSyncProfileSetHeader(profile.Get(), header.Get());
    EXPECT_EQ(ContentsOf(Owned<CFDataRef>(ColorSyncProfileCopyHeader(profile.Get()))), ContentsOf(header));
    const Bytes stored = DataOf(profile.Get());
    // All but the profile ID, which would no longer be true.
    EXPECT_EQ(Bytes(stored.begin(), stored.begin() + 84), Bytes(bytes.begin(), bytes.begin() + 84));
    EXPECT_EQ(Bytes(stored.begin() + 84, stored.begin() + 100), Bytes(16, 0));
    EXPECT_EQ(Bytes(stored.begin() + 100, stored.begin() + 128), Bytes(bytes.begin() + 100, bytes.begin() + 128));
}

TEST(ColorSyncProfileHeaderTest, IsNotSetFromDataOfAnotherLength) {
    const Owned<ColorSyncMutableProfileRef> profile = MutableProfileFrom(kSampleProfile);
    for (const std::size_t length : {0u, 127u, 129u}) {
        const Bytes bytes(length, 0x11);
        const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(length)));
        ColorSyncProfileSetHeader(profile.Get(), data.Get());
        EXPECT_EQ(DataOf(profile.Get()), kSampleProfile) << length;
    }
}

TEST(ColorSyncProfileHeaderTest, TheStatedSizeIsPutRightWhenTheProfileIsWritten) {
    const Owned<ColorSyncMutableProfileRef> profile = MutableProfileFrom(kSampleProfile);
    Bytes header = ContentsOf(Owned<CFDataRef>(ColorSyncProfileCopyHeader(profile.Get())));
    std::memset(header.data(), 0xFF, 4);
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, header.data(), 128));
    ColorSyncProfileSetHeader(profile.Get(), data.Get());
    const Bytes stored = DataOf(profile.Get());
    EXPECT_EQ(Word(stored, 0), stored.size());
}

// ---- tags ----

TEST(ColorSyncProfileTagTest, IsFoundByItsFourCharacters) {
    const Owned<ColorSyncProfileRef> profile = ProfileFrom(kSampleProfile);
    EXPECT_TRUE(HasTag(profile.Get(), "rXYZ"));
    EXPECT_EQ(TagOf(profile.Get(), "rXYZ"), XYZTag(0.43607, 0.22249, 0.01392));
    for (const char* name : {"rxyz", "lumi", "", "rXY", "rXYZ ", "rXY\u20AC"}) {
        EXPECT_FALSE(HasTag(profile.Get(), name)) << name;
        EXPECT_EQ(ColorSyncProfileCopyTag(profile.Get(), NewString(name).Get()), nullptr) << name;
    }
}

TEST(ColorSyncProfileTagTest, IsReplacedInItsPlaceOrAddedAtTheEnd) {
    const Owned<ColorSyncMutableProfileRef> profile = MutableProfileFrom(kSampleProfile);
    SetTag(profile.Get(), "wtpt", XYZTag(0.9, 1.0, 0.7));
    SetTag(profile.Get(), "lumi", XYZTag(0.0, 80.0, 0.0));
    EXPECT_EQ(TagOf(profile.Get(), "wtpt"), XYZTag(0.9, 1.0, 0.7));
    EXPECT_EQ(TagOf(profile.Get(), "lumi"), XYZTag(0.0, 80.0, 0.0));
    const std::vector<TableRow> table = TableOf(DataOf(profile.Get()));
    ASSERT_EQ(table.size(), 8u);
    EXPECT_EQ(table.front().signature, Code("wtpt"));
    EXPECT_EQ(table.back().signature, Code("lumi"));
}

TEST(ColorSyncProfileTagTest, IsGoneWhenRemoved) {
    const Owned<ColorSyncMutableProfileRef> profile = MutableProfileFrom(kSampleProfile);
    ColorSyncProfileRemoveTag(profile.Get(), CFSTR("gTRC"));
    ColorSyncProfileRemoveTag(profile.Get(), CFSTR("none"));
    EXPECT_FALSE(HasTag(profile.Get(), "gTRC"));
    EXPECT_EQ(TableOf(DataOf(profile.Get())).size(), 6u);
    EXPECT_FALSE(HasTag(ProfileFrom(DataOf(profile.Get())).Get(), "gTRC"));
}

TEST(ColorSyncProfileTagTest, ChangesOfACopyDoNotReachTheOriginal) {
    const Owned<ColorSyncProfileRef> original = ProfileFrom(kSampleProfile);
    const Owned<ColorSyncMutableProfileRef> copy(ColorSyncProfileCreateMutableCopy(original.Get()));
    const Owned<ColorSyncMutableProfileRef> copyOfCopy(ColorSyncProfileCreateMutableCopy(copy.Get()));
    SetTag(copy.Get(), "wtpt", XYZTag(0.9, 1.0, 0.7));
    ColorSyncProfileRemoveTag(copy.Get(), CFSTR("rXYZ"));
    EXPECT_EQ(DataOf(original.Get()), kSampleProfile);
    EXPECT_EQ(DataOf(copyOfCopy.Get()), kSampleProfile);
}

TEST(ColorSyncProfileTagTest, AChangedProfileIsWrittenAlignedWithItsSizesRight) {
    const Owned<ColorSyncMutableProfileRef> profile = MutableProfileFrom(kSampleProfile);
    const Bytes odd = {'t', 'e', 'x', 't', 0, 0, 0, 0, 'a', 'b', 0};
    SetTag(profile.Get(), "cprt", odd);
    SetTag(profile.Get(), "lumi", XYZTag(0.0, 80.0, 0.0));
    const Bytes stored = DataOf(profile.Get());
    EXPECT_EQ(Word(stored, 0), stored.size());
    EXPECT_EQ(stored.size() % 4, 0u);
    std::size_t end = 132 + 12 * TableOf(stored).size();
    for (const TableRow& row : TableOf(stored)) {
        EXPECT_EQ(row.offset, end);
        end = (row.offset + row.size + 3) / 4 * 4;
    }
    EXPECT_EQ(end, stored.size());
    const Owned<ColorSyncProfileRef> again = ProfileFrom(stored);
    EXPECT_EQ(TagOf(again.Get(), "cprt"), odd);
    EXPECT_EQ(TagOf(again.Get(), "lumi"), XYZTag(0.0, 80.0, 0.0));
    for (const char* name : {"wtpt", "rXYZ", "gXYZ", "bXYZ", "rTRC", "gTRC", "bTRC"}) {
        EXPECT_EQ(TagOf(again.Get(), name), TagOf(ProfileFrom(kSampleProfile).Get(), name)) << name;
    }
}

/// Three curve tags that share their bytes.
Bytes WithSharedCurves() {
    Bytes bytes = kSampleProfile;
    const std::vector<TableRow> table = TableOf(bytes);
    for (std::size_t i = 5; i < 7; ++i) Put32(bytes, 136 + 12 * i, table[4].offset);
    return bytes;
}

TEST(ColorSyncProfileTagTest, SharedBytesAreStillSharedInAChangedProfile) {
    const Owned<ColorSyncMutableProfileRef> profile = MutableProfileFrom(WithSharedCurves());
    SetTag(profile.Get(), "lumi", XYZTag(0.0, 80.0, 0.0));
    const std::vector<TableRow> table = TableOf(DataOf(profile.Get()));
    ASSERT_EQ(table[4].signature, Code("rTRC"));
    EXPECT_EQ(table[5].offset, table[4].offset);
    EXPECT_EQ(table[6].offset, table[4].offset);
    EXPECT_NE(table[3].offset, table[4].offset);
}

TEST(ColorSyncProfileTagTest, ReplacingOneOfThoseThatShareLeavesTheOthers) {
    const Owned<ColorSyncMutableProfileRef> profile = MutableProfileFrom(WithSharedCurves());
    SetTag(profile.Get(), "gTRC", CurvTag({0, 65535}));
    const Owned<ColorSyncProfileRef> again = ProfileFrom(DataOf(profile.Get()));
    EXPECT_EQ(TagOf(again.Get(), "rTRC"), CurvTag({512}));
    EXPECT_EQ(TagOf(again.Get(), "gTRC"), CurvTag({0, 65535}));
    EXPECT_EQ(TagOf(again.Get(), "bTRC"), CurvTag({512}));
}

TEST(ColorSyncProfileTagTest, OfTwoWithOneSignatureTheFirstCounts) {
    Bytes bytes = kSampleProfile;
    Put32(bytes, 132 + 12 * 3, Code("rXYZ"));  // where bXYZ stood
    const Owned<ColorSyncProfileRef> profile = ProfileFrom(bytes);
    ASSERT_TRUE(profile);
    EXPECT_EQ(TagOf(profile.Get(), "rXYZ"), XYZTag(0.43607, 0.22249, 0.01392));
    EXPECT_EQ(TableOf(DataOf(profile.Get())).size(), 6u);
}

TEST(ColorSyncProfileTagTest, OneWithoutBytesIsAbsent) {
    Bytes bytes = kSampleProfile;
    Put32(bytes, 140 + 12 * 3, 0);
    const Owned<ColorSyncProfileRef> profile = ProfileFrom(bytes);
    ASSERT_TRUE(profile);
    EXPECT_FALSE(HasTag(profile.Get(), "bXYZ"));
}

TEST(ColorSyncProfileTest, NothingComesOfNothing) {
    const Owned<ColorSyncMutableProfileRef> profile = MutableProfileFrom(kSampleProfile);
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, kSampleProfile.data(), 128));
    EXPECT_EQ(ColorSyncProfileCreate(nullptr, nullptr), nullptr);
    EXPECT_EQ(ColorSyncProfileCreateWithURL(nullptr, nullptr), nullptr);
    EXPECT_EQ(ColorSyncProfileCreateMutableCopy(nullptr), nullptr);
    EXPECT_EQ(ColorSyncProfileCopyData(nullptr, nullptr), nullptr);
    EXPECT_EQ(ColorSyncProfileCopyDescriptionString(nullptr), nullptr);
    EXPECT_EQ(ColorSyncProfileCopyHeader(nullptr), nullptr);
    EXPECT_FALSE(ColorSyncProfileContainsTag(nullptr, CFSTR("rXYZ")));
    EXPECT_FALSE(ColorSyncProfileContainsTag(profile.Get(), nullptr));
    EXPECT_EQ(ColorSyncProfileCopyTag(nullptr, CFSTR("rXYZ")), nullptr);
    EXPECT_EQ(ColorSyncProfileCopyTag(profile.Get(), nullptr), nullptr);
    ColorSyncProfileSetTag(nullptr, CFSTR("rXYZ"), data.Get());
    ColorSyncProfileSetTag(profile.Get(), nullptr, data.Get());
    ColorSyncProfileSetTag(profile.Get(), CFSTR("rXYZ"), nullptr);
    ColorSyncProfileRemoveTag(nullptr, CFSTR("rXYZ"));
    ColorSyncProfileRemoveTag(profile.Get(), nullptr);
    ColorSyncProfileSetHeader(nullptr, data.Get());
    ColorSyncProfileSetHeader(profile.Get(), nullptr);
    EXPECT_EQ(DataOf(profile.Get()), kSampleProfile);
}

// ---- files ----

struct FileAnswer {
    Owned<ColorSyncProfileRef> profile;
    CFIndex code = 0;
    std::string description = {};
};

FileAnswer OpenFile(CFURLRef url) {
    CFErrorRef error = nullptr;
    FileAnswer answer = {Owned<ColorSyncProfileRef>(ColorSyncProfileCreateWithURL(url, &error))};
    if (const Owned<CFErrorRef> owned(error); owned) {
        EXPECT_TRUE(CFEqual(CFErrorGetDomain(error), kCFErrorDomainPOSIX));
        answer.code = CFErrorGetCode(error);
        answer.description = Text(Owned<CFStringRef>(CFErrorCopyDescription(error)));
    }
    return answer;
}

TEST(ColorSyncProfileFileTest, IsReadWhole) {
    const TemporaryFolder folder;
    const FileAnswer answer = OpenFile(FileURL(folder.Write("display \u00E9.icc", kSampleProfile)).Get());
    ASSERT_TRUE(answer.profile);
    EXPECT_EQ(DataOf(answer.profile.Get()), kSampleProfile);
    EXPECT_EQ(answer.code, 0);
}

TEST(ColorSyncProfileFileTest, MayBeLongerThanItsProfile) {
    const TemporaryFolder folder;
    Bytes longer = kSampleProfile;
    longer.resize(longer.size() + 100000);
    EXPECT_EQ(DataOf(OpenFile(FileURL(folder.Write("long.icc", longer)).Get()).profile.Get()), kSampleProfile);
}

TEST(ColorSyncProfileFileTest, WhatCannotBeReadIsExplained) {
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    const Bytes cut(kSampleProfile.begin(), kSampleProfile.begin() + 300);
    struct {
        std::string path;
        CFIndex code;
        const char* description;
    } const rows[] = {
        {folder / "absent.icc", ENOENT, "No such file"},
        {folder / ".", EISDIR, "directory"},
        {folder / "pipe", EINVAL, "Invalid argument"},
        {folder.Write("empty", {}), EINVAL, "0 bytes long"},
        {folder.Write("short", Bytes(100, 0)), EINVAL, "100 bytes long"},
        {folder.Write("text", Bytes(1000, 'x')), EINVAL, "signature"},
        {folder.Write("cut", cut), EINVAL, "there are 300"},
    };
    for (const auto& row : rows) {
        const FileAnswer answer = OpenFile(FileURL(row.path).Get());
        EXPECT_FALSE(answer.profile) << row.path;
        EXPECT_EQ(answer.code, row.code) << row.path;
        EXPECT_NE(answer.description.find(row.description), std::string::npos) << row.path << ": " << answer.description;
    }
}

TEST(ColorSyncProfileFileTest, AURLOfAnotherSchemeIsExplained) {
    const Owned<CFURLRef> url(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://example.com/a.icc"), nullptr));
    const FileAnswer answer = OpenFile(url.Get());
    EXPECT_FALSE(answer.profile);
    EXPECT_EQ(answer.code, EINVAL);
    EXPECT_EQ(answer.description, "The URL does not name a file.");
}

TEST(ColorSyncProfileFileTest, TheFileMayGoAfterwards) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("gone.icc", kSampleProfile);
    const FileAnswer answer = OpenFile(FileURL(path).Get());
    std::filesystem::remove(path);
    EXPECT_EQ(DataOf(answer.profile.Get()), kSampleProfile);
}

// ---- description ----

Bytes TextDescriptionTag(const std::string& text) {
    Bytes tag = TagOfType("desc");
    Append32(tag, static_cast<std::uint32_t>(text.size()) + 1);
    AppendText(tag, text);
    tag.resize(tag.size() + 1 + 78);
    return tag;
}

struct Translation {
    const char* language;
    std::u16string text;
};
Bytes LocalisedTag(const std::vector<Translation>& translations, std::uint32_t recordSize = 12) {
    Bytes tag = TagOfType("mluc");
    Append32(tag, static_cast<std::uint32_t>(translations.size()));
    Append32(tag, recordSize);
    std::size_t offset = 16 + recordSize * translations.size();
    Bytes texts;
    for (const Translation& translation : translations) {
        AppendText(tag, translation.language);
        Append32(tag, static_cast<std::uint32_t>(2 * translation.text.size()));
        Append32(tag, static_cast<std::uint32_t>(offset + texts.size()));
        tag.resize(tag.size() + recordSize - 12);
        for (const char16_t unit : translation.text) Append16(texts, unit);
    }
    tag.insert(tag.end(), texts.begin(), texts.end());
    return tag;
}

TEST(ColorSyncProfileDescriptionTest, IsReadFromEitherKindOfTag) {
    struct {
        Bytes tag;
        std::string expected;
        const char* what;
    } const rows[] = {
        {TextDescriptionTag("Plain display"), "Plain display", "7-bit text"},
        {TextDescriptionTag("\xC3\x89"
                            "cran"),
         "\u00C9cran", "UTF-8, as many makers write it"},
        {TextDescriptionTag("\xC9"
                            "cran"),
         "\u00C9cran", "Latin-1, as others do"},
        {TextDescriptionTag(""), "", "empty"},
        {LocalisedTag({{"deDE", u"Bildschirm"}, {"enUS", u"Display"}, {"enGB", u"Monitor"}}), "Display", "the first English"},
        {LocalisedTag({{"deDE", u"Bildschirm"}, {"frFR", u"\u00C9cran"}}), "Bildschirm", "no English: the first"},
        {LocalisedTag({{"enUS", u"\U0001F5A8 out"}}), "\U0001F5A8 out", "beyond the basic plane"},
        {LocalisedTag({{"enUS", std::u16string(u"Padded\0\0", 8)}}), "Padded", "with closing zeros"},
        {LocalisedTag({{"deDE", u"Lang"}, {"enUS", u"Wide"}}, 16), "Wide", "longer records"},
    };
    for (const auto& row : rows) {
        const Owned<ColorSyncProfileRef> profile = ProfileFrom(MatrixMonitor(CurvTag({})).Set("desc", row.tag).Make());
        EXPECT_EQ(Text(Owned<CFStringRef>(ColorSyncProfileCopyDescriptionString(profile.Get()))), row.expected) << row.what;
    }
}

TEST(ColorSyncProfileDescriptionTest, IsNullForATagThatHoldsNone) {
    Bytes outside = LocalisedTag({{"enUS", u"Display"}});
    Put32(outside, 24, 0xFFFFFFF0);
    Bytes smallRecords = LocalisedTag({{"enUS", u"Display"}});
    Put32(smallRecords, 12, 0);
    const Bytes rows[] = {XYZTag(1, 1, 1), TagOfType("desc"), TagOfType("mluc"), LocalisedTag({}), outside, smallRecords, Bytes{'d', 'e'}};
    for (const Bytes& tag : rows) {
        const Owned<ColorSyncProfileRef> profile = ProfileFrom(MatrixMonitor(CurvTag({})).Set("desc", tag).Make());
        ASSERT_TRUE(profile);
        EXPECT_EQ(ColorSyncProfileCopyDescriptionString(profile.Get()), nullptr) << tag.size();
    }
    EXPECT_EQ(ColorSyncProfileCopyDescriptionString(ProfileFrom(kSampleProfile).Get()), nullptr);
}

TEST(ColorSyncProfileDescriptionTest, ATextThatIsShorterThanItSaysIsReadToTheTagsEnd) {
    Bytes tag = TextDescriptionTag("Cut");
    Put32(tag, 8, 0xFFFFFFFF);
    tag.resize(12 + 2);
    const Owned<ColorSyncProfileRef> profile = ProfileFrom(MatrixMonitor(CurvTag({})).Set("desc", tag).Make());
    EXPECT_EQ(Text(Owned<CFStringRef>(ColorSyncProfileCopyDescriptionString(profile.Get()))), "Cu");
}

}  // namespace
