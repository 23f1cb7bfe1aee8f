// On its own, as it takes memory away from the whole program.

#include <gtest/gtest.h>

#include "colour/WhitePointText.h"
#include "tests/fixtures/FixedValues.h"
#include "tests/fixtures/StringText.h"
#include "tests/reference/Allocations.h"

namespace {

TEST(ExtractPCSXYZ, IsFalseWhenTheTextCannotBeSplit) {
    const Owned<CFStringRef> text = NewString("name\txyz:95.05,100,108.9\tother");
    FixedXYZ expected;
    ASSERT_TRUE(ExtractPCSXYZ(text.Get(), &expected));

    // A leak checker sees what a failed call leaves behind.
    size_t failures = 0;
    bool extracted = false;
    while (!extracted && failures < 1000) {
        FixedXYZ result;
        reference::FailAllocation(failures + 1);
        extracted = ExtractPCSXYZ(text.Get(), &result);
        reference::FailAllocation(0);
        if (extracted) {
            EXPECT_EQ(result, expected);
        } else {
            ++failures;
        }
    }
    // At least the two arrays and their six pieces.
    EXPECT_GE(failures, 8u);
    EXPECT_TRUE(extracted);
}

}  // namespace
