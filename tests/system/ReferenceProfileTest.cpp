#include <gtest/gtest.h>
#include <lcms2.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "colour/ChromaticAdaptation.h"
#include "colour/ReferenceRGB.h"
#include "tests/fixtures/TemporaryFolder.h"

/// The installed profile MatrixCalRGB, and the tool that makes it at build time.

namespace {

using Bytes = std::vector<std::uint8_t>;

const std::string kInstalled = CM_BINARY_DIR "/lib/colourmatch-2/MatrixCalRGB.icc";
const std::string kTool = CM_BINARY_DIR "/tools/make_reference_profile";

/// Runs the tool; its exit status, and what it said.
struct Outcome {
    int status;
    std::string said;
};
Outcome RunTool(const std::string& arguments) {
    const TemporaryFolder folder;
    const int status = std::system(("'" + kTool + "' " + arguments + " >'" + (folder / "said") + "' 2>&1").c_str());
    const Bytes said = ReadFile(folder / "said");
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::string(said.begin(), said.end())};
}
std::string Quoted(const std::string& path) {
    return "'" + path + "'";
}

std::uint32_t Word(const Bytes& bytes, std::size_t offset) {
    return std::uint32_t{bytes.at(offset)} << 24 | std::uint32_t{bytes.at(offset + 1)} << 16 | std::uint32_t{bytes.at(offset + 2)} << 8 |
           bytes.at(offset + 3);
}

std::string Characters(const Bytes& bytes, std::size_t offset) {
    return std::string(bytes.begin() + static_cast<std::ptrdiff_t>(offset), bytes.begin() + static_cast<std::ptrdiff_t>(offset) + 4);
}

struct Tag {
    std::size_t offset, size;
};
Tag FindTag(const Bytes& bytes, const std::string& name) {
    for (std::size_t i = 0; i < Word(bytes, 128); ++i) {
        if (Characters(bytes, 132 + 12 * i) == name) return {Word(bytes, 136 + 12 * i), Word(bytes, 140 + 12 * i)};
    }
    ADD_FAILURE() << "no tag " << name;
    return {0, 0};
}

FixedXYZ XYZ(const Bytes& bytes, std::size_t offset) {
    return {static_cast<int32_t>(Word(bytes, offset)), static_cast<int32_t>(Word(bytes, offset + 4)), static_cast<int32_t>(Word(bytes, offset + 8))};
}

void ExpectPCSWhite(const FixedXYZ& xyz) {
    EXPECT_EQ(xyz.X, 63190);
    EXPECT_EQ(xyz.Y, 65536);
    EXPECT_EQ(xyz.Z, 54061);
}

TEST(ReferenceProfileTest, IsADisplayProfileOfVersion2) {
    const Bytes bytes = ReadFile(kInstalled);
    EXPECT_EQ(Word(bytes, 0), bytes.size());
    EXPECT_EQ(bytes.size() % 4, 0u);
    EXPECT_EQ(bytes[8], 2);
    EXPECT_EQ(Characters(bytes, 12), "mntr");
    EXPECT_EQ(Characters(bytes, 16), "RGB ");
    EXPECT_EQ(Characters(bytes, 20), "XYZ ");
    EXPECT_EQ(Characters(bytes, 36), "acsp");
    EXPECT_EQ(Bytes(bytes.begin() + 84, bytes.begin() + 128), Bytes(44, 0)) << "no profile ID, nothing reserved";
    EXPECT_EQ(Word(bytes, 128), 9u);
    for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(Word(bytes, 136 + 12 * i) % 4, 0u);
}

TEST(ReferenceProfileTest, HasTheConnectionWhiteForIlluminantMediaWhiteAndSumOfItsColourants) {
    const Bytes bytes = ReadFile(kInstalled);
    ExpectPCSWhite(XYZ(bytes, 68));
    ExpectPCSWhite(XYZ(bytes, FindTag(bytes, "wtpt").offset + 8));
    FixedXYZ sum = {0, 0, 0};
    for (const char* name : {"rXYZ", "gXYZ", "bXYZ"}) {
        const Tag tag = FindTag(bytes, name);
        EXPECT_EQ(tag.size, 20u);
        EXPECT_EQ(Characters(bytes, tag.offset), "XYZ ");
        const FixedXYZ colourant = XYZ(bytes, tag.offset + 8);
        sum = {sum.X + colourant.X, sum.Y + colourant.Y, sum.Z + colourant.Z};
    }
    ExpectPCSWhite(sum);
}

TEST(ReferenceProfileTest, HasLinearCurvesThatShareTheirBytes) {
    const Bytes bytes = ReadFile(kInstalled);
    const Tag red = FindTag(bytes, "rTRC");
    EXPECT_EQ(red.size, 12u);
    EXPECT_EQ(Characters(bytes, red.offset), "curv");
    EXPECT_EQ(Word(bytes, red.offset + 8), 0u);
    EXPECT_EQ(FindTag(bytes, "gTRC").offset, red.offset);
    EXPECT_EQ(FindTag(bytes, "bTRC").offset, red.offset);
}

// The textbook way: the cone responses of each primary are scaled by those of the whites. Then the cones are solved for by Cramer's rule.
TEST(ReferenceProfileTest, HasTheWorkingSpacesPrimariesAdaptedByBradford) {
    using Row = std::array<double, 3>;
    using Matrix = std::array<Row, 3>;
    const Matrix cones = {Row{0.8951, 0.2664, -0.1614}, Row{-0.7502, 1.7135, 0.0367}, Row{0.0389, -0.0686, 1.0296}};
    const auto response = [&](const Row& xyz, std::size_t cone) {
        return cones[cone][0] * xyz[0] + cones[cone][1] * xyz[1] + cones[cone][2] * xyz[2];
    };
    const auto determinant = [](const Matrix& m) {
        return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
               m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    };
    const int32_t* own = calRGBToXYZ.element;
    const Row pcsWhite = {63190.0, 65536.0, 54061.0};
    Row ownWhite;
    for (std::size_t i = 0; i < 3; ++i) ownWhite[i] = own[3 * i] + own[3 * i + 1] + own[3 * i + 2];

    const Bytes bytes = ReadFile(kInstalled);
    const char* names[3] = {"rXYZ", "gXYZ", "bXYZ"};
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const Row primary = {double(own[channel]), double(own[3 + channel]), double(own[6 + channel])};
        const FixedXYZ stored = XYZ(bytes, FindTag(bytes, names[channel]).offset + 8);
        const Row actual = {double(stored.X), double(stored.Y), double(stored.Z)};
        for (std::size_t i = 0; i < 3; ++i) {
            Matrix replaced = cones;
            for (std::size_t cone = 0; cone < 3; ++cone) {
                replaced[cone][i] = response(primary, cone) * response(pcsWhite, cone) / response(ownWhite, cone);
            }
            EXPECT_NEAR(actual[i], determinant(replaced) / determinant(cones), 1.5) << names[channel] << " " << i;
        }
    }
}

TEST(ReferenceProfileTest, IsTakenByLittleCmsAsAMatrixProfileOfThatName) {
    cmsHPROFILE profile = cmsOpenProfileFromFile(kInstalled.c_str(), "r");
    ASSERT_TRUE(profile);
    EXPECT_TRUE(cmsIsMatrixShaper(profile));
    char text[64] = "";
    cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", text, sizeof text);
    EXPECT_STREQ(text, "MatrixCalRGB");
    EXPECT_GT(cmsGetProfileInfoASCII(profile, cmsInfoCopyright, "en", "US", text, sizeof text), 1u);
    EXPECT_NEAR(cmsDetectRGBProfileGamma(profile, 0.01), 1.0, 0.001);
    // White is white to a unit of the connection space.
    cmsHPROFILE lab = cmsCreateLab4Profile(nullptr);
    cmsHTRANSFORM toLab = cmsCreateTransform(profile, TYPE_RGB_DBL, lab, TYPE_Lab_DBL, INTENT_ABSOLUTE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE);
    const double white[3] = {1.0, 1.0, 1.0};
    cmsCIELab result;
    cmsDoTransform(toLab, white, &result, 1);
    EXPECT_NEAR(result.L, 100.0, 0.01);
    EXPECT_NEAR(result.a, 0.0, 0.01);
    EXPECT_NEAR(result.b, 0.0, 0.01);
    cmsDeleteTransform(toLab);
    cmsCloseProfile(lab);
    cmsCloseProfile(profile);
}

TEST(ReferenceProfileTest, IsTakenByASecondReader) {
    const TemporaryFolder folder;
    ASSERT_EQ(std::system(("iccdump -v3 '" + kInstalled + "' >'" + (folder / "out") + "' 2>&1").c_str()), 0);
    const Bytes out = ReadFile(folder / "out");
    const std::string text(out.begin(), out.end());
    EXPECT_NE(text.find("Curve is linear"), std::string::npos);
    EXPECT_NE(text.find("0x0000: MatrixCalRGB"), std::string::npos);
    EXPECT_EQ(text.find("rror"), std::string::npos) << text;
    EXPECT_EQ(text.find("arning"), std::string::npos) << text;
    // The model it reads is the one that its own look-up gives: full drive is the connection white.
    ASSERT_EQ(std::system(("echo 1 1 1 | icclu -v0 -ff -ir -px '" + kInstalled + "' >'" + (folder / "white") + "' 2>&1").c_str()), 0);
    const Bytes white = ReadFile(folder / "white");
    EXPECT_EQ(std::string(white.begin(), white.end()).substr(0, 26), "0.964203 1.000000 0.824905");
}

TEST(ReferenceProfileToolTest, WritesTheSameBytesOnEachRun) {
    const TemporaryFolder folder;
    for (const char* name : {"a.icc", "b.icc"}) {
        const Outcome run = RunTool(Quoted(folder / name));
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.said, "");
    }
    EXPECT_EQ(ReadFile(folder / "a.icc"), ReadFile(kInstalled));
    EXPECT_EQ(ReadFile(folder / "b.icc"), ReadFile(kInstalled));
}

TEST(ReferenceProfileToolTest, ReplacesWhatWasThereAndLeavesNothingBeside) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("old.icc", Bytes(9000, 1));
    EXPECT_EQ(RunTool(Quoted(path)).status, 0);
    EXPECT_EQ(ReadFile(path), ReadFile(kInstalled));
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(parent), {}), 1);
}

TEST(ReferenceProfileToolTest, NamesTheFileThatItCannotWrite) {
    const TemporaryFolder folder;
    const std::string absent = folder / "absent/a.icc";
    ASSERT_EQ(mkdir((folder / "taken.icc").c_str(), 0700), 0);
    for (const std::string& path : {absent, folder / "taken.icc", std::string("/dev/full/a.icc")}) {
        const Outcome run = RunTool(Quoted(path));
        EXPECT_EQ(run.status, 2) << path;
        EXPECT_NE(run.said.find("cannot write \"" + path + "\": "), std::string::npos) << run.said;
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "taken.icc.part"));
}

TEST(ReferenceProfileToolTest, AsksForItsOneArgument) {
    for (const char* arguments : {"", "a.icc b.icc"}) {
        const Outcome run = RunTool(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_NE(run.said.find("usage: make_reference_profile FILE"), std::string::npos);
    }
}

}  // namespace
