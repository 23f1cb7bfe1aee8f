#include <gtest/gtest.h>

#include <cstring>

#include "profile/ProfileHeader.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/ProfileBytes.h"

namespace {

ProfileMaker Maker(std::uint32_t version, const char* profileClass, const char* space, const char* connection) {
    ProfileMaker maker = MatrixMonitor(CurvTag({563}));
    maker.version = version;
    maker.profileClass = Code(profileClass);
    maker.space = Code(space);
    maker.connection = Code(connection);
    return maker;
}

TEST(ProfileHeader, FieldsAreInHostByteOrder) {
    Bytes bytes = Maker(0x02100000, "prtr", "CMYK", "Lab ").Make();
    Put32(bytes, 4, Code("lcms"));
    Put32(bytes, 24, 2024u << 16 | 11);  // year, month
    Put32(bytes, 44, 3);
    Put32(bytes, 64, 1);
    Put32(bytes, 80, Code("crea"));
    const ICCProfileHeader header = GetProfileHeader(ProfileFrom(bytes).Get());
    EXPECT_EQ(header.size, bytes.size());
    EXPECT_EQ(header.cmmType, 0x6C636D73u);
    EXPECT_EQ(header.version, 0x02100000u);
    EXPECT_EQ(header.profileClass, 0x70727472u);
    EXPECT_EQ(header.dataColourSpace, 0x434D594Bu);
    EXPECT_EQ(header.connectionSpace, 0x4C616220u);
    EXPECT_EQ(header.dateTime[0], 2024);
    EXPECT_EQ(header.dateTime[1], 11);
    EXPECT_EQ(header.fileSignature, 0x61637370u);
    EXPECT_EQ(header.flags, 3u);
    EXPECT_EQ(header.renderingIntent, 1u);
    EXPECT_EQ(header.illuminantX, 63190);
    EXPECT_EQ(header.illuminantY, 65536);
    EXPECT_EQ(header.illuminantZ, 54061);
    EXPECT_EQ(header.creator, 0x63726561u);
}

TEST(ProfileHeader, NoHeaderIs128ZeroBytes) {
    const ICCProfileHeader header = GetProfileHeader(nullptr);
    const ICCProfileHeader zeros = {};
    EXPECT_EQ(std::memcmp(&header, &zeros, 128), 0);
    EXPECT_EQ(GetProfileClass(nullptr), 0u);
    EXPECT_EQ(GetProfileColourSpace(nullptr), 0u);
    EXPECT_FALSE(IsRGBOutputProfile(nullptr));
    EXPECT_FALSE(IsXYZToRGBLUTModelOutputProfile(nullptr));
}

TEST(ProfileHeader, SetHeaderIsReadBack) {
    const auto profile = MutableProfileFrom(Maker(0x02400000, "mntr", "RGB ", "XYZ ").Make());
    ICCProfileHeader header = GetProfileHeader(profile.Get());
    header.profileClass = Code("scnr");
    header.illuminantZ = -5;
    header.version = 0x04200000;
    header.rest[43] = 7;
    SetProfileHeader(profile.Get(), header);
    const ICCProfileHeader read = GetProfileHeader(profile.Get());
    EXPECT_EQ(read.profileClass, 0x73636E72u);
    EXPECT_EQ(read.illuminantZ, -5);
    EXPECT_EQ(read.version, 0x04200000u);
    EXPECT_EQ(read.rest[43], 7);
    EXPECT_EQ(GetProfileClass(profile.Get()), 0x73636E72u);
}

TEST(ProfileHeader, ClassAndModelTests) {
    struct Row {
        std::uint32_t version;
        const char* profileClass;
        const char* space;
        const char* connection;
        bool rgbOutput;
        bool xyzToRGB;
    };
    const Row rows[] = {
        {0x02100000, "prtr", "RGB ", "XYZ ", true, true},   {0x02400000, "prtr", "RGB ", "XYZ ", true, true},
        {0x02FFFFFF, "prtr", "RGB ", "XYZ ", true, true},   {0x04200000, "prtr", "RGB ", "XYZ ", true, false},
        {0x01000000, "prtr", "RGB ", "XYZ ", true, false},  {0x02400000, "prtr", "RGB ", "Lab ", true, false},
        {0x02400000, "prtr", "CMYK", "XYZ ", false, false}, {0x02400000, "mntr", "RGB ", "XYZ ", false, false},
    };
    for (const Row& row : rows) {
        const auto profile = ProfileFrom(Maker(row.version, row.profileClass, row.space, row.connection).Make());
        ASSERT_TRUE(profile) << row.version << row.profileClass << row.space << row.connection;
        EXPECT_EQ(IsRGBOutputProfile(profile.Get()), row.rgbOutput) << row.version << row.profileClass << row.space << row.connection;
        EXPECT_EQ(IsXYZToRGBLUTModelOutputProfile(profile.Get()), row.xyzToRGB) << row.version << row.profileClass << row.space << row.connection;
        EXPECT_EQ(GetProfileClass(profile.Get()), Code(row.profileClass));
        EXPECT_EQ(GetProfileColourSpace(profile.Get()), Code(row.space));
    }
}

}  // namespace
