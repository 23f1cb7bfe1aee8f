#include <gtest/gtest.h>

#include "colour/MatrixInversion.h"

namespace {

constexpr int32_t kOne = 65536;

struct Row {
    FixedMatrix matrix;
    bool hasInverse;
    const char* what;
};

const Row kRows[] = {
    {{{kOne, 0, 0, 0, kOne, 0, 0, 0, kOne}}, true, "the identity"},
    {{{0, 0, 0, 0, 0, 0, 0, 0, 0}}, false, "nothing"},
    {{{kOne, 2 * kOne, 3 * kOne, 2 * kOne, 4 * kOne, 6 * kOne, 0, 0, kOne}}, false, "two rows in proportion"},
    {{{0, kOne, 0, kOne, 0, 0, 0, 0, kOne}}, true, "two channels exchanged"},
    // 1/2^-16 is 65536, which s15.16 does not hold; 1/(3 * 2^-16) is 21845, which it does; 1/(2 * 2^-16) is 32768, one step too many.
    {{{1, 0, 0, 0, kOne, 0, 0, 0, kOne}}, false, "an inverse element of 65536"},
    {{{2, 0, 0, 0, kOne, 0, 0, 0, kOne}}, false, "an inverse element of 32768"},
    {{{3, 0, 0, 0, kOne, 0, 0, 0, kOne}}, true, "an inverse element of 21845"},
    {{{-3, 0, 0, 0, kOne, 0, 0, 0, kOne}}, true, "an inverse element of -21845"},
    {{{INT32_MIN, 0, 0, 0, INT32_MIN, 0, 0, 0, INT32_MIN}}, true, "the largest elements there are"},
    {{{INT32_MAX, INT32_MAX, INT32_MIN, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MIN, INT32_MAX, INT32_MAX}}, true, "a determinant of 96 bits"},
};

TEST(HasInverseTest, IsTrueWhereEveryElementOfTheInverseFitsTheFormat) {
    for (const Row& row : kRows) EXPECT_EQ(HasInverse(row.matrix), row.hasInverse) << row.what;
}

}  // namespace
