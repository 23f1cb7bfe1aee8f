#include <gtest/gtest.h>

#include <memory>

#include "engine/MonitorTables.h"
#include "tests/reference/GuardedArray.h"
#include "tests/reference/ShaperModel.h"

namespace {

using reference::Model;
using reference::OwnedShaper;
using reference::Random;
using Words = std::vector<uint16_t>;

const Words kTwoEntries = {0, 65535};
constexpr FixedMatrix kIdentity = {{65536, 0, 0, 0, 65536, 0, 0, 0, 65536}};

struct Disposer {
    void operator()(MonitorTables* tables) const { DisposeMonitorTables(tables); }
};
using OwnedTables = std::unique_ptr<MonitorTables, Disposer>;

OwnedTables TablesOf(const ICC_ShaperMatrix& shaper) {
    return OwnedTables(MakeMonitorTables(shaper));
}

/// Curves of many shapes and lengths: random ones, stairs, walks, ones that swing from end to end, the longest that can be inverted.
std::vector<reference::NamedCurve> OddCurves() {
    std::vector<reference::NamedCurve> curves = reference::ManyCurves();
    Random random(80);
    for (int i = 0; i < 300; ++i) {
        Words curve(2 + random.Below(i % 10 == 0 ? 5000 : 400));
        int value = static_cast<int>(random.Word());
        const uint32_t reach = 1 + random.Below(20000);
        for (uint16_t& entry : curve) {
            switch (i % 5) {
                case 0:
                    entry = random.EdgeWord();
                    break;
                case 1:  // a walk
                    value = std::clamp(value + static_cast<int>(random.Below(2 * reach + 1)) - static_cast<int>(reach), 0, 65535);
                    entry = static_cast<uint16_t>(value);
                    break;
                case 2:  // stairs
                    if (random.Below(10) == 0) value = static_cast<int>(random.Word());
                    entry = static_cast<uint16_t>(value);
                    break;
                case 3:  // rising
                    value = std::min(65535, value + static_cast<int>(random.Below(1 + reach / 50)));
                    entry = static_cast<uint16_t>(value);
                    break;
                default:  // falling
                    value = std::max(0, value - static_cast<int>(random.Below(1 + reach / 50)));
                    entry = static_cast<uint16_t>(value);
                    break;
            }
        }
        curves.push_back({"odd curve " + std::to_string(i), curve});
    }
    curves.push_back({"65535 entries", reference::GammaCurve(65535, 2.2)});
    curves.push_back({"65536 entries", reference::StraightCurve(65536, 0, 65535)});
    return curves;
}

TEST(MonitorTables, HoldWhatTheLookupsAnswerForEveryValue) {
    const std::vector<reference::NamedCurve> curves = OddCurves();
    for (size_t i = 0; i + 2 < curves.size(); i += 3) {
        const OwnedShaper shaper(Model{{curves[i].table, curves[i + 1].table, curves[i + 2].table}, kIdentity, kIdentity});
        const OwnedTables tables = TablesOf(*shaper.Get());
        ASSERT_TRUE(tables);
        for (size_t c = 0; c < 3; ++c) {
            const std::string& name = curves[i + c].name;
            const ICC_ReverseTable* const reverse = shaper.Get()->reverse[c];
            for (uint32_t value = 0; value < 65536; ++value) {
                const auto word = static_cast<uint16_t>(value);
                ASSERT_EQ(tables->toLinear[c][value], ICC_OneDLookup(word, shaper.Get()->curves[c], shaper.Get()->counts[c])) << name << " " << value;
                uint8_t flag = 0;
                ASSERT_EQ(tables->toDevice[c][value], ICC_ReverseOneDLookup(word, reverse, &flag)) << name << " " << value;
                ASSERT_EQ(value < tables->lowest[c] || value > tables->highest[c], flag != 0) << name << " " << value;
            }
        }
    }
}

TEST(MonitorTables, TakeCurvesLongerThanCanBeInverted) {
    // Built by hand, as no reverse table comes from such a curve.
    const OwnedShaper straight(Model{{kTwoEntries, kTwoEntries, kTwoEntries}, kIdentity, kIdentity});
    ICC_ShaperMatrix shaper = *straight.Get();
    Random random(81);
    Words curve = random.Words(200001);
    shaper.curves[0] = curve.data();
    shaper.counts[0] = 200000;
    const OwnedTables tables = TablesOf(shaper);
    ASSERT_TRUE(tables);
    for (uint32_t value = 0; value < 65536; ++value) {
        ASSERT_EQ(tables->toLinear[0][value], ICC_OneDLookup(static_cast<uint16_t>(value), curve.data(), 200000)) << value;
    }
}

/// Curves without the guard entry that loaded ones carry.
TEST(MonitorTables, ReadNothingBehindACurve) {
    const OwnedShaper straight(Model{{kTwoEntries, kTwoEntries, kTwoEntries}, kIdentity, kIdentity});
    for (const size_t count : {2u, 3u, 256u, 4096u, 65535u, 65536u, 65537u, 131071u}) {
        reference::GuardedArray<uint16_t> curve(reference::GammaCurve(count, 2.2));
        ICC_ShaperMatrix shaper = *straight.Get();
        shaper.curves[1] = curve.Data();
        shaper.counts[1] = static_cast<uint32_t>(count);
        const OwnedTables tables = TablesOf(shaper);
        ASSERT_TRUE(tables);
        EXPECT_EQ(tables->toLinear[1][0], curve[0]) << count;
        EXPECT_EQ(tables->toLinear[1][65535], curve[count - 1]) << count;
    }
}

TEST(MonitorTables, AreNotMadeOfAModelThatLacksACurve) {
    const OwnedShaper whole(Model{{kTwoEntries, kTwoEntries, kTwoEntries}, kIdentity, kIdentity});
    ICC_ShaperMatrix noCurve = *whole.Get(), noEntries = noCurve, noReverse = noCurve;
    noCurve.curves[1] = nullptr;
    noEntries.counts[0] = 0;
    noReverse.reverse[2] = nullptr;
    EXPECT_EQ(MakeMonitorTables(noCurve), nullptr);
    EXPECT_EQ(MakeMonitorTables(noEntries), nullptr);
    EXPECT_EQ(MakeMonitorTables(noReverse), nullptr);
    EXPECT_EQ(MakeMonitorTables(ICC_ShaperMatrix{}), nullptr);
}

TEST(MonitorTables, SplitMatricesGiveTheQuartersOfTheirRowsSums) {
    Random random(82);
    const OwnedShaper curves(Model{{kTwoEntries, kTwoEntries, kTwoEntries}, kIdentity, kIdentity});
    for (int trial = 0; trial < 1000; ++trial) {
        ICC_ShaperMatrix shaper = *curves.Get();
        const uint32_t reach = trial % 4 == 0 ? (1u << 27) - 1 : trial % 4 == 1 ? 300000 : 1000;
        for (int32_t& element : shaper.inverseMatrix.element) element = static_cast<int32_t>(random.Below(reach)) - static_cast<int32_t>(reach / 2);
        const OwnedTables tables = TablesOf(shaper);
        ASSERT_TRUE(tables->canSplit);
        const uint16_t in[3] = {random.EdgeWord(), random.EdgeWord(), random.EdgeWord()};
        for (int row = 0; row < 3; ++row) {
            int64_t sum = 0;
            int32_t high = 0, low = 0;  // as the kernels have them: none may pass 32 bits
            for (int column = 0; column < 3; ++column) {
                sum += int64_t{shaper.inverseMatrix.element[3 * row + column]} * in[column];
                ASSERT_FALSE(__builtin_add_overflow(high, tables->splitInverse.high[row][column] * (in[column] - 32768), &high));
                ASSERT_FALSE(__builtin_add_overflow(low, tables->splitInverse.low[row][column] * (in[column] - 32768), &low));
            }
            ASSERT_EQ(high + (low >> 14) + tables->splitInverse.offset[row], sum >> 14) << trial << " " << row;
            ASSERT_EQ(tables->splitInverse.high[row][3] | tables->splitInverse.low[row][3], 0);
        }
    }
}

TEST(MonitorTables, RefuseToSplitElementsOf1024AndMore) {
    const OwnedShaper curves(Model{{kTwoEntries, kTwoEntries, kTwoEntries}, kIdentity, kIdentity});
    const struct {
        int32_t element;
        bool canSplit;
    } rows[] = {{1024 * 65536 - 1, true}, {1 - 1024 * 65536, true}, {1024 * 65536, false},
                {-1024 * 65536, false},   {INT32_MAX, false},       {INT32_MIN, false}};
    for (const auto& row : rows) {
        for (int i = 0; i < 18; ++i) {
            ICC_ShaperMatrix shaper = *curves.Get();
            (i < 9 ? shaper.matrix : shaper.inverseMatrix).element[i % 9] = row.element;
            EXPECT_EQ(TablesOf(shaper)->canSplit, row.canSplit) << row.element << " at " << i;
        }
    }
}

}  // namespace
