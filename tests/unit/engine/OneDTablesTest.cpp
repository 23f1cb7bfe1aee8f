#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include "engine/OneDTables.h"
#include "tests/reference/Allocations.h"
#include "tests/reference/Curves.h"
#include "tests/reference/GuardedArray.h"
#include "tests/reference/OneDReference.h"

namespace {

using reference::Found;
using reference::GuardedArray;
using reference::NamedCurve;
using reference::Random;
using Table = std::vector<uint16_t>;

uint32_t CountOf(const GuardedArray<uint16_t>& table) {
    return static_cast<uint32_t>(table.Size());
}

TEST(GuardedArrayDeathTest, AReadPastTheEndStopsTheProgram) {
    const GuardedArray<uint16_t> table(Table{1, 2, 3});
    volatile const uint16_t* past = table.Data() + 3;
    EXPECT_DEATH({ [[maybe_unused]] const uint16_t read = *past; }, "");
}

// ---- ICC_OneDLookup ----

TEST(OneDLookup, InterpolatesAndTruncates) {
    const struct {
        uint16_t x;
        Table table;
        uint16_t expected;
        const char* what;
    } rows[] = {
        {0, {7, 9}, 7, "the first entry"},
        {65535, {7, 9}, 9, "the last entry"},
        {65534, {0, 1}, 0, "truncated, not rounded"},
        {1, {65535, 0}, 65534, "one step down"},
        {32767, {0, 100, 50}, 99, "just below the middle entry"},
        {32768, {0, 100, 50}, 99, "just above it"},
        {65535, {0, 100, 50}, 50, "the last of three"},
        {21845, {0, 300, 600, 900}, 300, "exactly on an entry"},
        {21844, {0, 300, 600, 900}, 299, "one below it"},
        {16384, {1000, 2000}, 1250, "a quarter"},
    };
    for (const auto& row : rows) {
        const GuardedArray<uint16_t> table(row.table);
        EXPECT_EQ(ICC_OneDLookup(row.x, table.Data(), CountOf(table)), row.expected) << row.what;
    }
}

TEST(OneDLookup, EqualsTheSlowVersionForEveryInput) {
    for (const NamedCurve& curve : reference::ManyCurves()) {
        const GuardedArray<uint16_t> table(curve.table);
        for (uint32_t x = 0; x <= 65535; x += curve.table.size() > 1024 ? 7 : 1) {
            const auto input = static_cast<uint16_t>(x);
            ASSERT_EQ(ICC_OneDLookup(input, table.Data(), CountOf(table)), reference::OneDLookup(input, curve.table)) << curve.name << " at " << x;
        }
    }
}

TEST(OneDLookup, EqualsTheSlowVersionForRandomTables) {
    Random random(1);
    for (int trial = 0; trial < 20000; ++trial) {
        const Table values = random.Words(2 + random.Below(40));
        const GuardedArray<uint16_t> table(values);
        for (int i = 0; i < 60; ++i) {
            const uint16_t x = random.EdgeWord();
            ASSERT_EQ(ICC_OneDLookup(x, table.Data(), CountOf(table)), reference::OneDLookup(x, values)) << "at " << x;
        }
    }
}

TEST(OneDLookup, HoldsBothEndsForEveryLengthAndReadsNothingPastThem) {
    Random random(2);
    for (const size_t count : {2u, 3u, 4u, 5u, 255u, 256u, 257u, 1024u, 4096u, 65535u, 65536u, 65537u, 100000u}) {
        const GuardedArray<uint16_t> table(random.Words(count));
        EXPECT_EQ(ICC_OneDLookup(0, table.Data(), CountOf(table)), table[0]) << count;
        EXPECT_EQ(ICC_OneDLookup(65535, table.Data(), CountOf(table)), table[count - 1]) << count;
    }
}

// ---- ICC_OneDLookup32768 ----

TEST(OneDLookup32768, InterpolatesTwoEntriesUpTo32768) {
    const struct {
        uint16_t x;
        Table table;
        uint16_t expected;
        const char* what;
    } rows[] = {
        {0, {1000, 2000}, 1000, "the first entry"},      {16384, {1000, 2000}, 1500, "half way"}, {32768, {1000, 2000}, 2000, "the second"},
        {32768, {0, 65535}, 65535, "full scale"},        {16384, {0, 65535}, 32767, "truncated"}, {1, {0, 65535}, 1, "one step: 65535 / 32768"},
        {32767, {65535, 0}, 1, "one step from the end"},
    };
    for (const auto& row : rows) {
        const GuardedArray<uint16_t> table(row.table);
        EXPECT_EQ(ICC_OneDLookup32768(row.x, table.Data(), CountOf(table)), row.expected) << row.what;
    }
}

// Kept on purpose: the index is formed on the 65535 scale and the weight on the other.
TEST(OneDLookup32768, WrapsOutsideItsOneUse) {
    const struct {
        uint16_t x;
        Table table;
        uint16_t expected;
        const char* what;
    } rows[] = {
        {40000, {1000, 2000}, 2220, "past full scale it goes on"},
        {40000, {65535, 0}, 51072, "and wraps below 0"},
        {65535, {1000, 2000}, 2000, "the top, with the last entry for the one past it"},
        {32768, {0, 100, 50}, 50, "three entries: the last already half way"},
        {49152, {0, 1000, 2000, 3000}, 4500, "four entries: beyond every one of them"},
    };
    for (const auto& row : rows) {
        const GuardedArray<uint16_t> table(row.table);
        EXPECT_EQ(ICC_OneDLookup32768(row.x, table.Data(), CountOf(table)), row.expected) << row.what;
    }
}

TEST(OneDLookup32768, EqualsTheSlowVersion) {
    Random random(3);
    for (int trial = 0; trial < 20000; ++trial) {
        const Table values = random.Words(trial % 2 == 0 ? 2 : 2 + random.Below(20));
        const GuardedArray<uint16_t> table(values);
        for (int i = 0; i < 60; ++i) {
            const uint16_t x = random.EdgeWord();
            ASSERT_EQ(ICC_OneDLookup32768(x, table.Data(), CountOf(table)), reference::OneDLookup32768(x, values)) << "at " << x;
        }
    }
}

TEST(OneDLookup32768, FindsItsPlaceIn64BitsInLongTables) {
    Random random(4);
    const Table values = random.Words(100000);
    const GuardedArray<uint16_t> table(values);
    for (uint16_t x : {uint16_t{60000}, uint16_t{65534}, uint16_t{65535}}) {
        EXPECT_EQ(ICC_OneDLookup32768(x, table.Data(), CountOf(table)), reference::OneDLookup32768(x, values)) << "at " << x;
    }
}

// ---- ICC_OneDLookupWithExtrapolation ----

TEST(OneDLookupWithExtrapolation, InterpolatesUpToOneAndThenFollowsTheRawSlope) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const struct {
        Table table;
        double x;
        uint16_t expected;
        const char* what;
    } rows[] = {
        {{0, 1000}, 0.0, 0, "the first entry"},
        {{0, 1000}, 0.5, 500, "half way"},
        {{0, 1000}, 1.0, 1000, "1.0 interpolates"},
        {{0, 65535}, 0.5 / 65535, 1, "the input is rounded, halves up"},
        {{0, 65535}, -0.4 / 65535, 0, "rounded to nothing"},
        {{0, 65535}, -0.6 / 65535, 65535, "the first negative step wraps to the top"},
        {{0, 1000}, -1.0 / 65535, 1000, "-1 wraps to 65535"},
        {{0, 65535}, -2.0 / 65535, 65534, "-2 to 65534"},
        {{0, 65535}, -1.0, 1, "-65535 to 1"},
        {{0, 65535}, -65536.0 / 65535, 0, "-65536 to 0"},
        {{40, 65535}, -1e9, 51720, "-65535e9 is 51712 modulo 65536"},
        {{0, 1000}, 1.0001, 6553, "not offset by the last entry"},
        {{0, 1000}, 1.0005, 32767, "half of the saturating slope"},
        {{0, 1000}, 1.01, 65535, "a rising step saturates"},
        {{0, 10, 30}, 1.01, 26214, "the slope of the last step, times the number of steps"},
        {{0, 10, 30}, 1.001, 2621, "a tenth of that"},
        {{0, 1}, 1.00001, 1, "0.65535 is rounded"},
        {{0, 1}, 1.000007, 0, "0.458745 too"},
        {{1000, 0}, 1.5, 0, "a falling step gives 0"},
        {{5, 5}, 9.0, 0, "a flat step gives 0"},
        {{0, 1000}, kInfinity, 65535, "infinity, rising"},
        {{1000, 0}, kInfinity, 0, "infinity, falling"},
        {{5, 5}, kInfinity, 0, "infinity, flat"},
        {{0, 1000}, 1e300, 65535, "huge"},
        {{7, 1000}, -1e300, 7, "hugely negative: a multiple of 65536"},
        {{7, 1000}, -kInfinity, 7, "minus infinity reads as 0"},
        {{7, 1000}, std::numeric_limits<double>::quiet_NaN(), 7, "so does no number at all"},
    };
    for (const auto& row : rows) {
        const GuardedArray<uint16_t> table(row.table);
        EXPECT_EQ(ICC_OneDLookupWithExtrapolation(table.Data(), CountOf(table), row.x), row.expected) << row.what;
    }
}

TEST(OneDLookupWithExtrapolation, EqualsTheLookupForEveryInputUpToOne) {
    for (const NamedCurve& curve : reference::ManyCurves()) {
        const GuardedArray<uint16_t> table(curve.table);
        for (uint32_t x = 0; x <= 65535; x += 3) {
            ASSERT_EQ(ICC_OneDLookupWithExtrapolation(table.Data(), CountOf(table), x / 65535.0),
                      ICC_OneDLookup(static_cast<uint16_t>(x), table.Data(), CountOf(table)))
                << curve.name << " at " << x;
        }
    }
}

// ---- ICC_InverseOneDLookup ----

TEST(InverseOneDLookup, FindsTheInputOfARisingTable) {
    const struct {
        uint16_t y;
        Table table;
        uint16_t expected;
        uint8_t flag;
        const char* what;
    } rows[] = {
        {50, {100, 200, 300}, 0, 255, "below the first"},
        {100, {100, 200, 300}, 0, 0, "the first"},
        {150, {100, 200, 300}, 16383, 0, "a quarter, truncated"},
        {200, {100, 200, 300}, 32767, 0, "on an entry"},
        {250, {100, 200, 300}, 49151, 0, "each end of the step truncated on its own"},
        {299, {100, 200, 300}, 65207, 0, "just below the last"},
        {300, {100, 200, 300}, 65535, 0, "the last"},
        {301, {100, 200, 300}, 65535, 255, "above the last"},
        {9, {9, 9, 9}, 65535, 0, "flat: the top end is tested first"},
        {10, {9, 9, 9}, 65535, 255, "above a flat table"},
        {8, {9, 9, 9}, 0, 255, "below a flat table"},
        {100, {0, 100, 100, 100, 300}, 49151, 0, "a flat piece: its far end"},
        {200, {0, 100, 100, 100, 300}, 57343, 0, "past it"},
        {1, {0, 3}, 21845, 0, "two entries, no search"},
        {2, {0, 3}, 43690, 0, "two entries"},
        {60, {0, 7, 50, 60, 70}, 49151, 0, "five entries, on one"},
        {65, {0, 7, 50, 60, 70}, 57343, 0, "five entries, between"},
        {60, {200, 100, 50}, 65535, 255, "falling: above the last comes first"},
        {50, {200, 100, 50}, 0, 255, "falling: then below the first"},
        {200, {200, 100, 50}, 65535, 255, "falling: above the last, though the first holds it"},
    };
    for (const auto& row : rows) {
        const GuardedArray<uint16_t> table(row.table);
        uint8_t flag = 0;
        EXPECT_EQ(ICC_InverseOneDLookup(row.y, table.Data(), CountOf(table), &flag), row.expected) << row.what;
        EXPECT_EQ(flag, row.flag) << row.what;
    }
}

TEST(InverseOneDLookup, NeverClearsTheFlag) {
    const Table table = {100, 200, 300};
    for (const uint16_t y : Table{100, 150, 300}) {
        uint8_t flag = 9;
        ICC_InverseOneDLookup(y, table.data(), 3, &flag);
        EXPECT_EQ(flag, 9) << y;
    }
    uint8_t flag = 9;
    ICC_InverseOneDLookup(301, table.data(), 3, &flag);
    EXPECT_EQ(flag, 255);
}

TEST(InverseOneDLookup, EqualsTheSlowVersionForEveryTarget) {
    Random random(4);
    std::vector<Table> tables = {reference::GammaCurve(256, 2.2), reference::GammaCurve(1000, 0.45), reference::StraightCurve(300, 500, 65000)};
    for (const size_t count : {2u, 3u, 4u, 17u, 500u}) {
        Table table = random.Words(count);
        std::sort(table.begin(), table.end());
        tables.push_back(table);
    }
    for (const Table& values : tables) {
        const GuardedArray<uint16_t> table(values);
        for (uint32_t y = 0; y <= 65535; ++y) {
            Found found{0, 0};
            found.value = ICC_InverseOneDLookup(static_cast<uint16_t>(y), table.Data(), CountOf(table), &found.flag);
            ASSERT_EQ(found, reference::InverseOneDLookup(static_cast<uint16_t>(y), values)) << values.size() << " entries at " << y;
        }
    }
}

TEST(InverseOneDLookup, TakesTablesWhosePositionsPass32Bits) {
    Table values(100000);
    for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<uint16_t>(i / 5 * 3);
    const GuardedArray<uint16_t> table(values);
    for (uint32_t y = 1; y < 60000; y += 1301) {
        uint8_t flag = 0;
        EXPECT_EQ(ICC_InverseOneDLookup(static_cast<uint16_t>(y), table.Data(), CountOf(table), &flag),
                  reference::InverseOneDLookup(static_cast<uint16_t>(y), values).value)
            << y;
        EXPECT_EQ(flag, 0);
    }
}

// ---- the reverse table ----

class Reverse {
public:
    explicit Reverse(const Table& curve) {
        status_ = ICC_BuildReverseTable(GuardedArray<uint16_t>(curve).Data(), static_cast<int>(curve.size()), &table_);
    }
    Reverse(const Reverse&) = delete;
    Reverse& operator=(const Reverse&) = delete;
    ~Reverse() { ICC_DisposeReverseTable(table_); }

    int Status() const { return status_; }
    const ICC_ReverseTable* Get() const { return table_; }
    Found Look(uint16_t y) const {
        Found found{0, 0};
        found.value = ICC_ReverseOneDLookup(y, table_, &found.flag);
        return found;
    }

private:
    ICC_ReverseTable* table_ = nullptr;
    int status_ = 1;
};

TEST(ReverseOneDLookup, ReadsEverySegmentAsFalling) {
    const struct {
        uint16_t y;
        Table curve;
        uint16_t expected;
        uint8_t flag;
        const char* what;
    } rows[] = {
        {200, {200, 100, 0}, 0, 0, "falling: exact at the first sample"},
        {100, {200, 100, 0}, 32767, 0, "falling: exact at the second"},
        {0, {200, 100, 0}, 65535, 0, "falling: exact at the last"},
        {150, {200, 100, 0}, 16384, 0, "falling: between"},
        {65535, {65535, 0}, 0, 0, "falling, full scale"},
        {16384, {65535, 0}, 49151, 0, "falling, a quarter up"},
        {0, {0, 65535}, 65535, 0, "rising: mirrored, 0 gives the far end"},
        {65535, {0, 65535}, 0, 0, "rising: the high end gives the segment's first entry"},
        {1, {0, 65535}, 65534, 0, "rising: one step"},
        {16384, {0, 65535}, 49151, 0, "rising: a quarter up gives three quarters"},
        {50, {0, 100, 200}, 16384, 0, "rising: the middle of a segment stays"},
        {100, {0, 100, 200}, 65535, 0, "a shared value belongs to the higher segment, where it is the low end"},
        {200, {0, 100, 200}, 32767, 0, "rising: the high end of the last segment"},
        {0, {0, 100, 200}, 32767, 0, "rising: the low end of the first"},
        {201, {0, 100, 200}, 32767, 255, "above: flagged, taken as the largest"},
        {9, {10, 20, 10}, 65535, 255, "below: flagged, taken as the smallest"},
        {15, {10, 20, 10}, 49151, 0, "held by both sides of a peak: the later"},
        {20, {10, 20, 10}, 32767, 0, "the peak"},
        {21, {10, 20, 10}, 32767, 255, "above the peak"},
        {7, {7, 7, 7}, 32767, 0, "flat: the last segment's first entry"},
        {5, {7, 7, 7}, 32767, 255, "below a flat curve"},
        {9, {7, 7, 7}, 32767, 255, "above a flat curve"},
        {500, {0, 500, 500, 500, 1000}, 65535, 0, "a flat piece that another segment touches"},
        {0, {0, 0, 0, 1000}, 65535, 0, "flat at the dark end"},
        {1000, {0, 1000, 1000}, 32767, 0, "flat at the bright end"},
    };
    for (const auto& row : rows) {
        const Reverse reverse(row.curve);
        EXPECT_EQ(reverse.Look(row.y).value, row.expected) << row.what;
        EXPECT_EQ(reverse.Look(row.y).flag, row.flag) << row.what;
    }
}

TEST(ReverseOneDLookup, InvertsAFallingCurveExactlyAtItsSamples) {
    const Table curve = reference::StraightCurve(1000, 65535, 0);
    const Reverse reverse(curve);
    for (size_t i = 0; i < curve.size(); ++i) EXPECT_EQ(reverse.Look(curve[i]).value, i * 65535 / 999) << i;
}

// Kept on purpose: entries are not oriented by the curve's direction.
TEST(ReverseOneDLookup, MirrorsARisingCurveWithinEachSegment) {
    const Table curve = reference::StraightCurve(256, 0, 65535);  // 257 apart
    const Reverse reverse(curve);
    for (uint32_t i = 0; i < 255; ++i) {
        for (uint32_t past = 1; past < 257; ++past) {
            const uint16_t mirrored = reverse.Look(static_cast<uint16_t>(257 * i + past)).value;
            EXPECT_NEAR(mirrored, 257 * i + (257 - past), 1) << i << " + " << past;
        }
    }
    EXPECT_EQ(reverse.Look(65535).value, 254 * 257) << "exact only where the segment's high end is met";
}

TEST(ReverseOneDLookup, GivesASharedValueToTheHigherSegment) {
    const Table falling = {60000, 40000, 20000, 0};
    const Table peaks = {0, 30000, 0, 30000, 0};
    EXPECT_EQ(Reverse(falling).Look(40000).value, 1 * 65535 / 3) << "segment 1 begins here, segment 0 ends here";
    EXPECT_EQ(Reverse(peaks).Look(30000).value, 3 * 65535 / 4) << "segments 0 to 3 reach it";
    EXPECT_EQ(Reverse(peaks).Look(0).value, 65535) << "and 0";
}

TEST(ReverseOneDLookup, NeverClearsTheFlag) {
    const Reverse reverse(Table{100, 200, 300});
    uint8_t flag = 9;
    ICC_ReverseOneDLookup(150, reverse.Get(), &flag);
    EXPECT_EQ(flag, 9);
    ICC_ReverseOneDLookup(99, reverse.Get(), &flag);
    EXPECT_EQ(flag, 255);
}

TEST(ReverseOneDLookup, EqualsTheSlowVersionForEveryTarget) {
    for (const NamedCurve& curve : reference::ManyCurves()) {
        const Reverse reverse(curve.table);
        ASSERT_EQ(reverse.Status(), 0);
        for (uint32_t y = 0; y <= 65535; y += curve.table.size() > 1024 ? 7 : 1) {
            ASSERT_EQ(reverse.Look(static_cast<uint16_t>(y)), reference::ReverseOneDLookup(static_cast<uint16_t>(y), curve.table))
                << curve.name << " at " << y;
        }
    }
}

TEST(ReverseOneDLookup, EqualsTheSlowVersionForRandomCurves) {
    Random random(5);
    for (int trial = 0; trial < 20000; ++trial) {
        const Table curve = random.Words(2 + random.Below(30));
        const Reverse reverse(curve);
        for (int i = 0; i < 60; ++i) {
            // Half of the targets are values of the curve itself, where two segments meet.
            const uint16_t y = i % 2 == 0 ? curve[random.Below(static_cast<uint32_t>(curve.size()))] : random.EdgeWord();
            ASSERT_EQ(reverse.Look(y), reference::ReverseOneDLookup(y, curve)) << "at " << y;
        }
    }
}

TEST(BuildReverseTable, LaysTheBucketsOutOneAfterAnother) {
    for (const NamedCurve& curve : reference::ManyCurves()) {
        const Table& t = curve.table;
        const auto n = static_cast<uint32_t>(t.size());
        const Reverse reverse(t);
        const ICC_ReverseTable& table = *reverse.Get();
        ASSERT_EQ(table.entryCount, n) << curve.name;
        ASSERT_EQ(table.bucketCount, (n + 2) / 2) << curve.name;
        EXPECT_EQ(table.minValue, *std::min_element(t.begin(), t.end())) << curve.name;
        EXPECT_EQ(table.maxValue, *std::max_element(t.begin(), t.end())) << curve.name;

        const auto bucketOf = [&](uint16_t value) { return static_cast<int64_t>(table.bucketCount - 1) * value / 65535; };
        auto place = reinterpret_cast<uintptr_t>(table.storage);
        for (int64_t k = 0; k < table.bucketCount; ++k) {
            const ICC_ReverseBucket* bucket = table.buckets[k];
            ASSERT_EQ(reinterpret_cast<uintptr_t>(bucket), place) << curve.name << " bucket " << k;
            const auto* fields = reinterpret_cast<const uint16_t*>(bucket);
            size_t listed = 0;
            for (uint32_t i = n - 1; i-- > 0;) {
                const uint16_t high = std::max(t[i], t[i + 1]);
                const uint16_t low = std::min(t[i], t[i + 1]);
                if (k < bucketOf(low) || k > bucketOf(high)) continue;
                const uint16_t* entry = fields + 2 + 4 * listed++;
                ASSERT_LE(listed, fields[0]) << curve.name << " bucket " << k;
                const uint16_t expected[] = {high, low, static_cast<uint16_t>(i), static_cast<uint16_t>(uint64_t{i} * 65536 / (n - 1))};
                for (int field = 0; field < 4; ++field) ASSERT_EQ(entry[field], expected[field]) << curve.name << " bucket " << k << " segment " << i;
            }
            ASSERT_EQ(fields[0], listed) << "capacity of bucket " << k << ", " << curve.name;
            ASSERT_EQ(fields[1], listed) << "used entries of bucket " << k << ", " << curve.name;
            for (int spare = 0; spare < 4; ++spare) ASSERT_EQ(fields[2 + 4 * listed + spare], 0) << "the room for one more, " << curve.name;
            place += 12 + 8 * listed;
        }
    }
}

TEST(BuildReverseTable, KeepsTheOrderOfItsFields) {
    EXPECT_EQ(offsetof(ICC_ReverseTable, minValue), 0u);
    EXPECT_EQ(offsetof(ICC_ReverseTable, maxValue), 2u);
    EXPECT_EQ(offsetof(ICC_ReverseTable, bucketCount), 4u);
    EXPECT_EQ(offsetof(ICC_ReverseTable, entryCount), 8u);
    EXPECT_EQ(offsetof(ICC_ReverseTable, buckets), 16u);
    EXPECT_EQ(offsetof(ICC_ReverseTable, storage), 24u);
}

TEST(BuildReverseTable, GivesNoTableForFewerThanTwoEntries) {
    const Table curve = {5};
    for (const int count : {1, 0, -1, std::numeric_limits<int>::min()}) {
        ICC_ReverseTable marker{};
        ICC_ReverseTable* table = &marker;
        EXPECT_EQ(ICC_BuildReverseTable(curve.data(), count, &table), 0) << count;
        EXPECT_EQ(table, nullptr) << count;
    }
}

TEST(BuildReverseTable, HoldsAsManySegmentsAsItsCountersCan) {
    const Table rising = reference::StraightCurve(65536, 0, 65535);
    const Reverse ramp(rising);
    ASSERT_EQ(ramp.Status(), 0);
    for (const uint32_t y : {0u, 1u, 2u, 1000u, 32767u, 32768u, 65534u, 65535u}) {
        EXPECT_EQ(ramp.Look(static_cast<uint16_t>(y)), reference::ReverseOneDLookup(static_cast<uint16_t>(y), rising)) << y;
    }
    const Reverse flat(Table(65536, 1234));
    ASSERT_EQ(flat.Status(), 0);
    EXPECT_EQ(flat.Look(1234), (Found{65534, 0})) << "all 65535 segments in one bucket";
}

TEST(BuildReverseTable, RefusesWhatItCannotHold) {
    const auto swinging = [](size_t count) {
        Table curve(count);
        for (size_t i = 0; i < count; ++i) curve[i] = i % 2 == 0 ? 0 : 65535;
        return curve;
    };
    const struct {
        Table curve;
        int status;
        const char* what;
    } rows[] = {
        {reference::StraightCurve(65536, 0, 65535), 0, "65536 entries"},
        {reference::StraightCurve(65537, 0, 65535), -108, "65537 entries: an index would not fit"},
        {Table(200000, 7), -108, "many more"},
        {swinging(8191), 0, "the longest swinging curve: 268,419,072 bytes"},
        {swinging(8192), -108, "one entry more: above 256 MiB"},
        {swinging(65536), -108, "gigabytes"},
    };
    for (const auto& row : rows) {
        const reference::Allocations before = reference::CountedAllocations();
        ICC_ReverseTable* table = nullptr;
        EXPECT_EQ(ICC_BuildReverseTable(row.curve.data(), static_cast<int>(row.curve.size()), &table), row.status) << row.what;
        EXPECT_EQ(table == nullptr, row.status != 0) << row.what;
        ICC_DisposeReverseTable(table);
        const reference::Allocations after = reference::CountedAllocations();
        EXPECT_EQ(after.taken - before.taken, after.freed - before.freed) << row.what;
    }
}

TEST(BuildReverseTable, FreesEverythingWhenMemoryRunsOut) {
    const Table curve = reference::GammaCurve(1024, 2.2);
    const auto takenBefore = reference::CountedAllocations().taken;
    ICC_ReverseTable* table = nullptr;
    ASSERT_EQ(ICC_BuildReverseTable(curve.data(), 1024, &table), 0);
    const size_t requests = reference::CountedAllocations().taken - takenBefore;
    ICC_DisposeReverseTable(table);
    ASSERT_GE(requests, 3u);

    for (size_t failing = 1; failing <= requests; ++failing) {
        const reference::Allocations before = reference::CountedAllocations();
        ICC_ReverseTable marker{};
        ICC_ReverseTable* result = &marker;
        reference::FailAllocation(failing);
        const int status = ICC_BuildReverseTable(curve.data(), 1024, &result);
        reference::FailAllocation(0);
        EXPECT_EQ(status, -108) << "request " << failing;
        EXPECT_EQ(result, nullptr) << "request " << failing;
        const reference::Allocations after = reference::CountedAllocations();
        EXPECT_EQ(after.taken - before.taken, after.freed - before.freed) << "request " << failing;
    }
}

TEST(DisposeReverseTable, FreesPartsThatArePresent) {
    ICC_DisposeReverseTable(nullptr);
    const reference::Allocations before = reference::CountedAllocations();
    ICC_DisposeReverseTable(static_cast<ICC_ReverseTable*>(std::calloc(1, sizeof(ICC_ReverseTable))));
    const reference::Allocations after = reference::CountedAllocations();
    EXPECT_EQ(after.taken - before.taken, 1u);
    EXPECT_EQ(after.freed - before.freed, 1u);
}

TEST(OneDTables, LookupsAllocateNothing) {
    const Table curve = reference::GammaCurve(1024, 2.2);
    const Reverse reverse(curve);
    uint32_t sum = 0;
    const size_t taken = reference::AllocationsDuring([&] {
        uint8_t flag = 0;
        for (uint32_t v = 0; v <= 65535; v += 5) {
            const auto x = static_cast<uint16_t>(v);
            sum += ICC_OneDLookup(x, curve.data(), 1024);
            sum += ICC_OneDLookup32768(x, curve.data(), 1024);
            sum += ICC_OneDLookupWithExtrapolation(curve.data(), 1024, v / 60000.0);
            sum += ICC_InverseOneDLookup(x, curve.data(), 1024, &flag);
            sum += ICC_ReverseOneDLookup(x, reverse.Get(), &flag);
        }
    });
    EXPECT_EQ(taken, 0u);
    EXPECT_NE(sum, 0u);
}

}  // namespace
