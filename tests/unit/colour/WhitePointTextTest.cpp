#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

#include "colour/ChromaticAdaptation.h"
#include "colour/MatrixArithmetic.h"
#include "colour/WhitePointText.h"
#include "tests/fixtures/FixedValues.h"
#include "tests/fixtures/StringText.h"

namespace {

/// From D65 to the connection space; found with whole-number fractions, apart from this system.
constexpr FixedMatrix kD65ToPCS = {{68681, 1508, -3288, 1946, 64904, -1119, -604, 988, 49288}};

FixedXYZ Adapted(int32_t X, int32_t Y, int32_t Z) {
    const FixedXYZ accepted = {X, Y, Z};
    FixedXYZ adapted;
    ICC_FixedMatrixMultiply(&kD65ToPCS, &accepted, &adapted);
    return adapted;
}

bool Extract(const std::string& text, FixedXYZ* result) {
    const Owned<CFStringRef> string = NewString(text);
    return ExtractPCSXYZ(string.Get(), result);
}

struct AcceptedRow {
    const char* text;
    int32_t X, Y, Z;  // before the adaptation
    const char* what;
};

constexpr AcceptedRow kAccepted[] = {
    {"name\txyz:95.05,100,108.9\tother", 62292, 65536, 71369, "a field among others"},
    {"xyz:95.05,100,108.9", 62292, 65536, 71369, "the field alone"},
    {"\t\txyz:1,2,3\t", 655, 1311, 1966, "empty fields around it"},
    {"xyz:1,2\txyz:4,5,6\txyz:7,8,9", 2621, 3277, 3932, "the first with three parts wins"},
    {"xyz:1,2,3,4\txyz:4,5,6", 2621, 3277, 3932, "four parts are passed over"},
    {"xyz:\txyz:4,5,6", 2621, 3277, 3932, "no part is passed over"},
    {"XYZ:1,2,3\txyz:4,5,6", 2621, 3277, 3932, "the prefix has small letters"},
    {" xyz:1,2,3\txyz:4,5,6", 2621, 3277, 3932, "nothing stands before the prefix"},
    {"xyz 1,2,3\txyz:4,5,6", 2621, 3277, 3932, "the colon belongs to it"},
    {"xyz: 95.05,\n100, 108.9 ", 62292, 65536, 71369, "white space before the numbers"},
    {"xyz:95.05%,100 per cent,108.9x", 62292, 65536, 71369, "text after the numbers"},
    {"xyz:red,green,100", 0, 0, 65536, "no number reads as 0"},
    {"xyz:,,", 0, 0, 0, "three empty parts are three parts"},
    {"xyz:1e2,1E+2,.5e1", 65536, 65536, 3277, "exponents"},
    {"xyz:-10,+20,-30", -6554, 13107, -19661, "signs"},
    {"xyz:0.000762939453125,0,0", 1, 0, 0, "one half goes up"},
    {"xyz:0,-0.000762939453125,0", 0, -1, 0, "minus one half goes down, away from zero"},
    {"xyz:0.00228881835937500,0,-0.00228881835937500", 2, 0, -2, "one and a half, to even or not"},
    {"xyz:0.0038146972656250,0,-0.0038146972656250", 3, 0, -3, "two and a half is not rounded to even"},
    {"xyz:0.00076,0.00076,0.00076", 0, 0, 0, "just under one half"},
    {"xyz:1e9,0,0", 2147483647, 0, 0, "past the range"},
    {"xyz:1e300,1e300,1e300", 2147483647, 2147483647, 2147483647, "far past the range"},
    {"xyz:-1e300,1e400,-1e400", -2147483647 - 1, 2147483647, -2147483647 - 1, "infinities"},
    {"\xE7\x99\xBD\txyz:4,5,6\t\xC3\xA9", 2621, 3277, 3932, "letters of other scripts in other fields"},
};

TEST(ExtractPCSXYZ, AdaptsTheFirstFieldOfThreeParts) {
    for (const AcceptedRow& row : kAccepted) {
        FixedXYZ result = {-1, -2, -3};
        EXPECT_TRUE(Extract(row.text, &result)) << row.what;
        EXPECT_EQ(result, Adapted(row.X, row.Y, row.Z)) << row.what;
    }
}

TEST(ExtractPCSXYZ, GivesKnownTriples) {
    FixedXYZ result;
    ASSERT_TRUE(Extract("name\txyz:95.05,100,108.9\tother", &result));
    EXPECT_EQ(result, (FixedXYZ{63209, 65535, 54089}));
    ASSERT_TRUE(Extract("xyz:50,50,50", &result));
    EXPECT_EQ(result, (FixedXYZ{33451, 32866, 24836}));
    ASSERT_TRUE(Extract("xyz:95.05,0,0", &result));
    EXPECT_EQ(result, (FixedXYZ{65281, 1850, -574}));
}

TEST(ExtractPCSXYZ, OfD65IsCloseToTheConnectionSpaceWhite) {
    FixedXYZ result;
    ASSERT_TRUE(Extract("xyz:95.05,100,108.9", &result));
    EXPECT_NEAR(result.X, PCSWhite.X, 40);
    EXPECT_NEAR(result.Y, PCSWhite.Y, 40);
    EXPECT_NEAR(result.Z, PCSWhite.Z, 40);
}

TEST(ExtractPCSXYZ, RefusesTextWithoutSuchAField) {
    const char* texts[] = {"",           "xyz:1,2",    "xyz:",       "xyz:1;2;3", "xyz:1,2,3,4", "95.05,100,108.9", "name\tother",
                           "lab:50,0,0", "xyz:1,2\t3", "xyz:1\t,2,3"};
    for (const char* text : texts) {
        FixedXYZ result;
        EXPECT_FALSE(Extract(text, &result)) << text;
    }
    FixedXYZ result;
    EXPECT_FALSE(ExtractPCSXYZ(nullptr, &result)) << "no string at all";
}

TEST(ExtractPCSXYZ, GivesTheSameOnEveryCall) {
    FixedXYZ first, second;
    ASSERT_TRUE(Extract("xyz:40,50,60", &first));
    FixedXYZ other;
    EXPECT_FALSE(Extract("xyz:1", &other));
    ASSERT_TRUE(Extract("xyz:40,50,60", &second));
    EXPECT_EQ(first, second);
}

TEST(ExtractPCSXYZ, LeavesTheTextToItsOwner) {
    const Owned<CFStringRef> text = NewString("name\txyz:95.05,100,108.9\tother");
    const CFIndex before = CFGetRetainCount(text.Get());
    FixedXYZ result;
    ASSERT_TRUE(ExtractPCSXYZ(text.Get(), &result));
    EXPECT_EQ(CFGetRetainCount(text.Get()), before);
    EXPECT_EQ(Text(text), "name\txyz:95.05,100,108.9\tother");
}

}  // namespace
