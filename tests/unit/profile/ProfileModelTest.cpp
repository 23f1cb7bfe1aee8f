#include <gtest/gtest.h>

#include <array>

#include "profile/ProfileModel.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/ProfileBytes.h"

namespace {

std::array<std::int32_t, 3> Values(FixedXYZ xyz) {
    return {xyz.X, xyz.Y, xyz.Z};
}
using Triple = std::array<std::int32_t, 3>;

const Bytes kGamma = CurvTag({563});

TEST(MediaColourant, IsReadBigEndianFromBytes8To19) {
    ProfileMaker maker = MatrixMonitor(kGamma);
    maker.Set("wtpt", RawXYZTag(0x00010203, -2, 0x7FFFFFFF));
    EXPECT_EQ(Values(GetMediaColourant(ProfileFrom(maker.Make()).Get(), Code("wtpt"))), (Triple{0x00010203, -2, 0x7FFFFFFF}));
}

TEST(MediaColourant, TypeIsNotChecked) {
    Bytes tag = RawXYZTag(1, 2, 3);
    Put32(tag, 0, Code("what"));
    Append32(tag, 99);  // longer than needed, too
    ProfileMaker maker = MatrixMonitor(kGamma);
    maker.Set("bkpt", tag);
    EXPECT_EQ(Values(GetMediaColourant(ProfileFrom(maker.Make()).Get(), Code("bkpt"))), (Triple{1, 2, 3}));
}

TEST(MediaColourant, AbsentOrShortTagsAreZero) {
    ProfileMaker maker = MatrixMonitor(kGamma);
    EXPECT_EQ(Values(GetMediaColourant(ProfileFrom(maker.Make()).Get(), Code("bkpt"))), (Triple{0, 0, 0}));
    for (const std::size_t length : {1u, 8u, 12u, 19u}) {
        Bytes tag = RawXYZTag(1, 2, 3);
        tag.resize(length);
        maker.Set("bkpt", tag);
        EXPECT_EQ(Values(GetMediaColourant(ProfileFrom(maker.Make()).Get(), Code("bkpt"))), (Triple{0, 0, 0})) << length;
    }
}

TEST(MediaColourant, SignaturesOutsideASCIINameNoTag) {
    const auto profile = MutableProfileFrom(MatrixMonitor(kGamma).Make());
    SetMediaColourant(profile.Get(), 0xFFFFFFFF, {1, 2, 3});
    EXPECT_EQ(Values(GetMediaColourant(profile.Get(), 0xFFFFFFFF)), (Triple{0, 0, 0}));
}

TEST(MediaWhitePoint, IsTheTag) {
    ProfileMaker maker = MatrixMonitor(kGamma);
    maker.Set("wtpt", RawXYZTag(60000, 65000, 50000));
    EXPECT_EQ(Values(GetMediaWhitePoint(ProfileFrom(maker.Make()).Get())), (Triple{60000, 65000, 50000}));
}

TEST(MediaWhitePoint, IsTheIlluminantWithoutATag) {
    ProfileMaker maker = MatrixMonitor(kGamma);
    maker.Remove("wtpt");
    maker.illuminant[0] = 62273;
    maker.illuminant[2] = -71335;
    const auto profile = ProfileFrom(maker.Make());
    EXPECT_EQ(Values(GetMediaWhitePoint(profile.Get())), (Triple{62273, 65536, -71335}));
    EXPECT_EQ(Values(GetMediaWhitePoint(profile.Get())), Values(GetProfileIlluminant(profile.Get())));
}

TEST(MediaWhitePoint, SetIsReadBack) {
    const auto profile = MutableProfileFrom(MatrixMonitor(kGamma).Make());
    for (const Triple& white : {Triple{1, 2, 3}, Triple{-1, 0x7FFFFFFF, -0x7FFFFFFF - 1}, Triple{63190, 65536, 54061}}) {
        SetMediaWhitePoint(profile.Get(), {white[0], white[1], white[2]});
        EXPECT_EQ(Values(GetMediaWhitePoint(profile.Get())), white);
    }
}

TEST(MediaWhitePoint, SetAddsATagThatWasAbsent) {
    ProfileMaker maker = MatrixMonitor(kGamma);
    maker.Remove("wtpt");
    const auto profile = MutableProfileFrom(maker.Make());
    SetMediaWhitePoint(profile.Get(), {7, 8, 9});
    EXPECT_EQ(Values(GetMediaWhitePoint(profile.Get())), (Triple{7, 8, 9}));
}

TEST(MediaWhitePoint, IsStoredAsA20ByteXYZTag) {
    const auto profile = MutableProfileFrom(MatrixMonitor(kGamma).Make());
    SetMediaWhitePoint(profile.Get(), {0x01020304, -1, 0x0A0B0C0D});
    const Owned<CFDataRef> tag(ColorSyncProfileCopyTag(profile.Get(), CFSTR("wtpt")));
    ASSERT_TRUE(tag);
    const UInt8* bytes = CFDataGetBytePtr(tag.Get());
    EXPECT_EQ(Bytes(bytes, bytes + CFDataGetLength(tag.Get())),
              (Bytes{'X', 'Y', 'Z', ' ', 0, 0, 0, 0, 1, 2, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF, 0x0A, 0x0B, 0x0C, 0x0D}));
}

TEST(ProfileIlluminant, IsZeroWithoutAHeader) {
    EXPECT_EQ(Values(GetProfileIlluminant(nullptr)), (Triple{0, 0, 0}));
}

TEST(MatrixModel, NeedsAllSixTags) {
    EXPECT_TRUE(IsMatrixModel(ProfileFrom(MatrixMonitor(kGamma).Make()).Get()));
    for (const char* missing : {"rXYZ", "gXYZ", "bXYZ", "rTRC", "gTRC", "bTRC"}) {
        ProfileMaker maker = MatrixMonitor(kGamma);
        maker.Remove(missing);
        const auto profile = ProfileFrom(maker.Make());
        EXPECT_FALSE(IsMatrixModel(profile.Get())) << missing;
        FixedMatrix matrix;
        std::fill(std::begin(matrix.element), std::end(matrix.element), 77);
        EXPECT_EQ(GetMonitorMatrix(profile.Get(), &matrix), -170) << missing;
        for (const std::int32_t element : matrix.element) EXPECT_EQ(element, 77) << missing;
    }
}

TEST(MatrixModel, ClassAndVersionDoNotMatter) {
    for (const char* profileClass : {"scnr", "mntr", "prtr", "spac"}) {
        for (const std::uint32_t version : {0x02000000u, 0x04400000u}) {
            ProfileMaker maker = MatrixMonitor(kGamma);
            maker.profileClass = Code(profileClass);
            maker.version = version;
            EXPECT_TRUE(IsMatrixModel(ProfileFrom(maker.Make()).Get())) << profileClass << version;
        }
    }
}

TEST(MonitorMatrix, ColumnsAreTheColourantsOnTheScaleOf32768) {
    ProfileMaker maker = MatrixMonitor(kGamma);
    maker.Set("rXYZ", RawXYZTag(65536, 32768, 0));
    maker.Set("gXYZ", RawXYZTag(1, 2, 65535));
    maker.Set("bXYZ", RawXYZTag(-1, -32768, 0x7FFFFFFF));
    FixedMatrix matrix;
    ASSERT_EQ(GetMonitorMatrix(ProfileFrom(maker.Make()).Get(), &matrix), 0);
    // 65536 * 32768 / 65535 = 32768.5; 32768 * 32768 / 65535 = 16384.25; -16384.25 is cut toward 0; 2147483647 * 32768 / 65535 = 1073758207.7
    const std::int32_t expected[9] = {32768, 0, 0, 16384, 1, -16384, 0, 32768, 1073758207};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(matrix.element[i], expected[i]) << i;
}

TEST(MonitorLuminance, IsTheYOfTheTag) {
    ProfileMaker maker = MatrixMonitor(kGamma);
    EXPECT_EQ(GetMonitorLuminance(ProfileFrom(maker.Make()).Get()), 0);
    maker.Set("lumi", XYZTag(0, 80, 0));
    EXPECT_EQ(GetMonitorLuminance(ProfileFrom(maker.Make()).Get()), 80 * 65536);
}

}  // namespace
