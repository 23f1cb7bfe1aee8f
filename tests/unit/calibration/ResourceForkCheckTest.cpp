#include <gtest/gtest.h>

#include "calibration/ResourceForkCheck.h"
#include "tests/fixtures/GuardedBytes.h"
#include "tests/fixtures/ResourceForkBytes.h"
#include "tests/reference/ResourceForkReference.h"

namespace {

using F = SmallForkFields;

/// The check of a whole fork; the map that it looks at ends at an inaccessible page.
bool IsSane(const ForkBytes& fork) {
    if (fork.size() < kResourceForkHeaderSize) return false;
    const ResourceForkHeader header = ReadResourceForkHeader(fork.data());
    if (!IsSaneResourceForkHeader(header, fork.size())) return false;
    const GuardedBytes map({fork.data() + header.mapOffset, header.mapLength});
    return IsSaneResourceMap(header, map.Data());
}

struct Change {
    std::size_t offset;
    std::uint32_t value;
    int width;
    bool sane;
    const char* what;
};

TEST(ResourceForkCheck, AcceptsAWholeFork) {
    EXPECT_TRUE(IsSane(SmallFork()));
}

TEST(ResourceForkCheck, HoldsEveryNumberToItsBounds) {
    const std::uint32_t mapLength = F::kEnd - F::kMap;
    const Change rows[] = {
        {0, 0x01000010, 4, false, "data that begins past 24 bits"},
        {4, 0x01000000 + F::kMap, 4, false, "a map that begins past 24 bits"},
        {0, 15, 4, true, "data that begins within the header"},
        {0, 17, 4, false, "data that reaches one byte into the map"},
        {8, F::kDataLength + 1, 4, false, "data one byte too long"},
        {8, F::kDataLength - 1, 4, true, "data one byte shorter"},
        {8, 13, 4, false, "the last resource begins where the data ends"},
        {8, 14, 4, true, "the last resource begins within the data"},
        {8, 0xFFFFFFFF, 4, false, "data longer than the fork"},
        {12, mapLength + 1, 4, false, "a map longer than the fork"},
        {12, mapLength - 1, 4, false, "a map that ends within the last name"},
        {12, 28, 4, false, "a map without room for its counts"},
        {12, 29, 4, false, "a map with room for half a count"},
        {4, 0, 4, false, "a map over the data"},
        {F::kTypeListOffset, 30, 2, false, "a type list at 30"},
        {F::kTypeListOffset, 26, 2, false, "a type list at 26"},
        {F::kNameListOffset, F::kNames - F::kMap + 1, 2, false, "a name list at an odd offset"},
        {F::kNameListOffset, 26, 2, false, "a name list before the type list"},
        {F::kNameListOffset, mapLength + 2, 2, false, "a name list past the map"},
        {F::kNameListOffset, 28, 2, false, "reference lists past the name list"},
        {F::kTypeCount, 0xFFFF, 2, true, "no type"},
        {F::kTypeCount, 0, 2, true, "one type"},
        {F::kTypeCount, 2, 2, false, "three types, whose list reaches over the first references"},
        {F::kTypeCount, 0x7FFF, 2, false, "a type list that ends past the map"},
        {F::kTypes + 4, 0xFFFF, 2, true, "a type without references"},
        {F::kTypes + 4, 2, 2, true, "a list that goes on through the other type's"},
        {F::kTypes + 4, 3, 2, false, "references past the map"},
        {F::kTypes + 6, 17, 2, false, "a reference list at an odd offset"},
        {F::kTypes + 6, 16, 2, false, "a reference list within the type list"},
        {F::kTypes + 14, F::kNames - F::kMap - 28, 2, false, "a reference list where the names begin"},
        {F::kReferences + 2, 1, 2, false, "a name that ends past the map"},
        {F::kReferences + 2, 4, 2, false, "a name that begins at the map's end"},
        {F::kReferences + 2, 0xFFFE, 2, false, "a name far outside"},
        {F::kNames, 4, 1, false, "a name one character too long"},
        {F::kNames, 2, 1, true, "a shorter name"},
        {F::kReferences + 5, F::kDataLength, 3, false, "a resource at the end of the data"},
        {F::kReferences + 5, F::kDataLength - 1, 3, true, "a resource at the last byte of the data"},
        {F::kReferences + 4, 0xFF000000, 4, true, "attributes are no part of the offset"},
    };
    for (const Change& row : rows) {
        ForkBytes fork = SmallFork();
        PutNumber(fork, row.offset, row.value, row.width);
        EXPECT_EQ(IsSane(fork), row.sane) << row.what;
        EXPECT_EQ(reference::ResourceFork(fork).IsSane(), row.sane) << row.what;
    }
}

TEST(ResourceForkCheck, AcceptsTheMapBeforeTheData) {
    ForkBytes fork = SmallFork();
    const ForkBytes map(fork.begin() + F::kMap, fork.end());
    const ForkBytes data(fork.begin() + F::kData, fork.begin() + F::kMap);
    fork.resize(F::kData);
    fork.insert(fork.end(), map.begin(), map.end());
    fork.insert(fork.end(), data.begin(), data.end());
    PutNumber(fork, 0, static_cast<std::uint32_t>(F::kData + map.size()), 4);
    PutNumber(fork, 4, F::kData, 4);
    EXPECT_TRUE(IsSane(fork));
    PutNumber(fork, 0, static_cast<std::uint32_t>(F::kData + map.size() - 1), 4);
    EXPECT_FALSE(IsSane(fork)) << "the map reaches one byte into the data";
}

TEST(ResourceForkCheck, AcceptsTheShortestForkWithoutTypes) {
    ForkBytes fork;
    for (const std::uint32_t number : {16U, 16U, 0U, 30U, 0U, 0U, 0U, 0U, 0U, 0U}) AppendNumber(fork, number, 4);
    AppendNumber(fork, 28, 2);
    AppendNumber(fork, 30, 2);
    AppendNumber(fork, 0xFFFF, 2);
    EXPECT_TRUE(IsSane(fork));
    fork.pop_back();
    EXPECT_FALSE(IsSane(fork));
}

TEST(ResourceForkCheck, NeverLooksOutsideADamagedMapAndJudgesAsThePlainRulesDo) {
    int saneOnes = 0, others = 0;
    ForEachDamage(SmallFork(), [&](const ForkBytes& fork) {
        const bool sane = IsSane(fork);
        ASSERT_EQ(sane, reference::ResourceFork(fork).IsSane());
        ++(sane ? saneOnes : others);
    });
    EXPECT_GT(saneOnes, 1000);
    EXPECT_GT(others, 1000);
}

}  // namespace
