#include <gtest/gtest.h>

#include "profile/ProfileModel.h"
#include "profile/TagRegistry.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/reference/Allocations.h"

namespace {

TEST(TagRegistryAllocations, AreMadeOnceForASignature) {
    const auto profile = ProfileFrom(MatrixMonitor(CurvTag({563})).Make());
    EXPECT_GT(reference::AllocationsDuring([] { TagKey(Code("new1")); }), 0u);
    EXPECT_EQ(reference::AllocationsDuring([] { TagKey(Code("new1")); }), 0u);
    EXPECT_TRUE(IsMatrixModel(profile.Get()));
    EXPECT_EQ(reference::AllocationsDuring([&] {
                  for (int i = 0; i < 10; ++i) EXPECT_TRUE(IsMatrixModel(profile.Get()));
              }),
              0u);
}

}  // namespace
