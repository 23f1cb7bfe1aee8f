#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "engine/ThreeDTables.h"
#include "tests/reference/Allocations.h"
#include "tests/reference/Curves.h"
#include "tests/reference/GridReference.h"
#include "tests/reference/GuardedArray.h"

namespace {

using reference::GuardedArray;
using reference::Random;
using Words = std::vector<uint16_t>;

struct Scale {
    const char* name;
    void (*lookup)(const uint16_t*, const uint16_t*, uint32_t, uint16_t*, uint32_t, uint32_t);
    uint16_t (*slow)(const uint16_t*, const uint16_t*, reference::Wide, reference::Wide, reference::Wide);
    uint16_t full;
};
const Scale kScales[] = {
    {"65535", ICC_ThreeDLookup, reference::ThreeDLookup, 65535},
    {"32768", ICC_ThreeDLookup32768, reference::ThreeDLookup32768, 32768},
};

size_t NodeCount(uint32_t g) {
    return size_t{g} * g * g;
}

/// An input on 0..full, one in three at or beside a grid point, 0 or full.
uint16_t InputFor(Random& random, const Scale& scale, uint32_t g) {
    if (random.Below(3) != 0) return static_cast<uint16_t>(random.Below(scale.full + 1u));
    const int nodeAt = static_cast<int>(random.Below(g) * scale.full / (g - 1));
    return static_cast<uint16_t>(std::clamp(nodeAt + static_cast<int>(random.Below(3)) - 1, 0, int{scale.full}));
}

TEST(ThreeDLookup, EqualsTheSlowVersionOnTablesWithNothingBehindThem) {
    Random random(30);
    for (const Scale& scale : kScales) {
        for (const uint32_t g : {2u, 3u, 4u, 5u, 9u, 16u, 17u, 32u, 33u, 64u, 65u}) {
            for (const uint32_t stride : {1u, 3u, 4u}) {
                const GuardedArray<uint16_t> table(random.Words(NodeCount(g) * stride));
                GuardedArray<uint16_t> room(stride);
                for (int trial = 0; trial < 12000; ++trial) {
                    uint16_t in[3] = {InputFor(random, scale, g), InputFor(random, scale, g), InputFor(random, scale, g)};
                    if (trial % 5 == 0) in[1] = in[0];
                    if (trial % 7 == 0) in[2] = in[trial % 2];
                    const uint32_t outputs = 1 + random.Below(stride);
                    uint16_t* out = room.Data() + (stride - outputs);  // ends where the room ends
                    scale.lookup(in, table.Data(), g, out, stride, outputs);
                    for (uint32_t o = 0; o < outputs; ++o) {
                        ASSERT_EQ(out[o], scale.slow(in, table.Data(), g, stride, o))
                            << "scale " << scale.name << ", " << g << " points, stride " << stride << ", output " << o << " at " << in[0] << ' '
                            << in[1] << ' ' << in[2];
                    }
                }
            }
        }
    }
}

/// Two nodes far apart along one axis, so that the sum runs through its whole range, with many sums at and beside multiples of 65535.
TEST(ThreeDLookup, DividesItsSumsAsADivisionDoes) {
    Random random(31);
    Words table(8);
    for (uint32_t weight = 0; weight <= 65535; ++weight) {
        // out = (low * (65535 - weight) + high * weight) / 65535
        const uint32_t low = random.EdgeWord();
        const uint32_t high = weight % 3 == 0 ? random.EdgeWord() : weight % 3 == 1 ? std::min(low + 1, 65535u) : low;
        std::fill(table.begin(), table.begin() + 4, static_cast<uint16_t>(low));
        std::fill(table.begin() + 4, table.end(), static_cast<uint16_t>(high));
        const uint16_t in[3] = {static_cast<uint16_t>(weight), 0, 0};
        uint16_t out = 1;
        ICC_ThreeDLookup(in, table.data(), 2, &out, 1, 1);
        ASSERT_EQ(out, (uint64_t{low} * (65535 - weight) + uint64_t{high} * weight) / 65535) << low << " " << high << " " << weight;
    }
}

/// The index and the fraction of every input, for grids of all kinds of sizes: node n holds n, so that an output is a place on the axis.
TEST(ThreeDLookup, FindsThePlaceOfEveryInputOnAnAxis) {
    for (const uint32_t g : {2u, 3u, 7u, 33u, 65u, 100u}) {
        Words table(NodeCount(g));
        for (size_t node = 0; node < table.size(); ++node) table[node] = static_cast<uint16_t>(600 * (node % g));
        for (uint32_t x = 0; x <= 65535; ++x) {
            const uint64_t place = uint64_t{x} * (g - 1);
            const uint16_t in[3] = {0, 0, static_cast<uint16_t>(x)};
            uint16_t out = 1;
            ICC_ThreeDLookup(in, table.data(), g, &out, 1, 1);
            ASSERT_EQ(out, (600 * (place / 65535) * 65535 + 600 * (place % 65535)) / 65535) << g << " points, " << x;
        }
    }
}

// Every ordering of three fractions with every kind of tie, in one cell.
TEST(ThreeDLookup, EqualsTheSlowVersionForEveryOrderOfFractions) {
    Random random(31);
    for (const Scale& scale : kScales) {
        const GuardedArray<uint16_t> table(random.Words(NodeCount(2)));
        for (uint32_t x = 0; x < 3; ++x) {
            for (uint32_t y = 0; y < 3; ++y) {
                for (uint32_t z = 0; z < 3; ++z) {
                    for (int i = 0; i < 500; ++i) {
                        uint16_t values[3] = {random.Word(), random.Word(), random.Word()};
                        for (uint16_t& value : values) value = static_cast<uint16_t>(value % (scale.full + 1u));
                        std::sort(values, values + 3);
                        const uint16_t in[3] = {values[x], values[y], values[z]};
                        uint16_t out = 0;
                        scale.lookup(in, table.Data(), 2, &out, 1, 1);
                        ASSERT_EQ(out, scale.slow(in, table.Data(), 2, 1, 0)) << "scale " << scale.name;
                    }
                }
            }
        }
    }
}

// A table that is 0 but for one node shows that node's weight.
TEST(ThreeDLookup, WeighsTheNodesOfEachOrdering) {
    const struct {
        uint16_t in[3];
        uint16_t weight[8];  // of nodes 000, 001, 010, 011, 100, 101, 110, 111
        const char* what;
    } rows[] = {
        {{100, 300, 600}, {65535 - 600, 300, 0, 200, 0, 0, 0, 100}, "z, y, x"},
        {{100, 600, 300}, {65535 - 600, 0, 300, 200, 0, 0, 0, 100}, "y, z, x"},
        {{300, 600, 100}, {65535 - 600, 0, 300, 0, 0, 0, 200, 100}, "y, x, z"},
        {{300, 100, 600}, {65535 - 600, 300, 0, 0, 0, 200, 0, 100}, "z, x, y"},
        {{600, 100, 300}, {65535 - 600, 0, 0, 0, 300, 200, 0, 100}, "x, z, y"},
        {{600, 300, 100}, {65535 - 600, 0, 0, 0, 300, 0, 200, 100}, "x, y, z"},
        {{700, 700, 700}, {65535 - 700, 0, 0, 0, 0, 0, 0, 700}, "grey: the two ends only"},
        {{0, 0, 0}, {65535, 0, 0, 0, 0, 0, 0, 0}, "the low corner"},
        {{65535, 0, 0}, {0, 0, 0, 0, 65535, 0, 0, 0}, "the top of the first axis"},
        {{0, 65535, 700}, {0, 0, 65535 - 700, 700, 0, 0, 0, 0}, "an edge at the top of the second"},
        {{65535, 65535, 65535}, {0, 0, 0, 0, 0, 0, 0, 65535}, "the high corner"},
    };
    for (const auto& row : rows) {
        for (size_t node = 0; node < 8; ++node) {
            GuardedArray<uint16_t> table(8);
            table[node] = 65535;
            uint16_t out = 0;
            ICC_ThreeDLookup(row.in, table.Data(), 2, &out, 1, 1);
            EXPECT_EQ(out, row.weight[node]) << row.what << ", node " << node;
        }
    }
}

TEST(ThreeDLookup32768, WeighsTheNodesOfEachOrdering) {
    const struct {
        uint16_t in[3];
        uint16_t weight[8];
        const char* what;
    } rows[] = {
        {{100, 300, 600}, {32768 - 600, 300, 0, 200, 0, 0, 0, 100}, "z, y, x"},
        {{100, 600, 300}, {32768 - 600, 0, 300, 200, 0, 0, 0, 100}, "y, z, x"},
        {{300, 600, 100}, {32768 - 600, 0, 300, 0, 0, 0, 200, 100}, "y, x, z"},
        {{300, 100, 600}, {32768 - 600, 300, 0, 0, 0, 200, 0, 100}, "z, x, y"},
        {{600, 100, 300}, {32768 - 600, 0, 0, 0, 300, 200, 0, 100}, "x, z, y"},
        {{600, 300, 100}, {32768 - 600, 0, 0, 0, 300, 0, 200, 100}, "x, y, z"},
        {{700, 700, 700}, {32768 - 700, 0, 0, 0, 0, 0, 0, 700}, "grey: the two ends only"},
        {{32768, 0, 0}, {0, 0, 0, 0, 32768, 0, 0, 0}, "the top of the first axis"},
        {{32768, 32768, 32768}, {0, 0, 0, 0, 0, 0, 0, 32768}, "the high corner"},
    };
    for (const auto& row : rows) {
        for (size_t node = 0; node < 8; ++node) {
            GuardedArray<uint16_t> table(8);
            table[node] = 32768;
            uint16_t out = 0;
            ICC_ThreeDLookup32768(row.in, table.Data(), 2, &out, 1, 1);
            EXPECT_EQ(out, row.weight[node]) << row.what << ", node " << node;
        }
    }
}

TEST(ThreeDLookup32768, TakesValuesAboveFullScaleAsFullScale) {
    Random random(39);
    const GuardedArray<uint16_t> table(random.Words(NodeCount(9)));
    for (const uint16_t above : Words{32769, 40000, 65535}) {
        const uint16_t beyond[3] = {above, 1000, above};
        const uint16_t full[3] = {32768, 1000, 32768};
        uint16_t out = 0;
        uint16_t expected = 1;
        ICC_ThreeDLookup32768(beyond, table.Data(), 9, &out, 1, 1);
        ICC_ThreeDLookup32768(full, table.Data(), 9, &expected, 1, 1);
        EXPECT_EQ(out, expected) << above;
    }
}

TEST(ThreeDLookup, GivesEveryNodeBackExactly) {
    Random random(32);
    for (const Scale& scale : kScales) {
        for (const uint32_t g : {2u, 4u, 6u, 16u, 18u}) {  // 65535 divides by g - 1
            if (scale.full % (g - 1) != 0) continue;
            const GuardedArray<uint16_t> table(random.Words(NodeCount(g) * 3));
            const uint32_t apart = scale.full / (g - 1);
            for (uint32_t i = 0; i < g; ++i) {
                for (uint32_t j = 0; j < g; ++j) {
                    for (uint32_t k = 0; k < g; ++k) {
                        const uint16_t in[3] = {static_cast<uint16_t>(i * apart), static_cast<uint16_t>(j * apart), static_cast<uint16_t>(k * apart)};
                        uint16_t out[3];
                        scale.lookup(in, table.Data(), g, out, 3, 3);
                        for (size_t o = 0; o < 3; ++o) ASSERT_EQ(out[o], table[((i * g + j) * g + k) * 3 + o]) << i << ' ' << j << ' ' << k;
                    }
                }
            }
        }
        // 65 points on the 32768 scale: every fourth node of each axis, to the very top.
        const GuardedArray<uint16_t> table(random.Words(NodeCount(65)));
        for (uint32_t node = 0; node < 65 * 65 * 65 && scale.full == 32768; node += 17) {
            const uint16_t in[3] = {static_cast<uint16_t>(node / (65 * 65) * 512), static_cast<uint16_t>(node / 65 % 65 * 512),
                                    static_cast<uint16_t>(node % 65 * 512)};
            uint16_t out = 0;
            scale.lookup(in, table.Data(), 65, &out, 1, 1);
            ASSERT_EQ(out, table[node]);
        }
    }
}

TEST(ThreeDLookup, MixesOnlyTheTwoEndsOfACellOnTheGreyAxis) {
    Random random(33);
    const uint32_t g = 9;
    const GuardedArray<uint16_t> table(random.Words(NodeCount(g)));
    for (uint32_t v = 0; v < 65535; v += 3) {
        const auto grey = static_cast<uint16_t>(v);
        const uint16_t in[3] = {grey, grey, grey};
        uint16_t out = 0;
        ICC_ThreeDLookup(in, table.Data(), g, &out, 1, 1);
        const uint64_t cell = v * (g - 1) / 65535;
        const uint64_t fraction = v * (g - 1) % 65535;
        const uint64_t step = g * g + g + 1;
        ASSERT_EQ(out, (table[cell * step] * (65535 - fraction) + table[(cell + 1) * step] * fraction) / 65535) << v;
    }
}

TEST(ThreeDLookup, WritesOnlyTheOutputsAskedFor) {
    Random random(34);
    const GuardedArray<uint16_t> table(random.Words(NodeCount(3) * 4));
    for (const Scale& scale : kScales) {
        for (uint32_t outputs = 0; outputs <= 4; ++outputs) {
            const uint16_t in[3] = {1234, 20000, 30001};
            uint16_t out[4] = {9, 9, 9, 9};
            scale.lookup(in, table.Data(), 3, out, 4, outputs);
            for (uint32_t o = 0; o < 4; ++o) EXPECT_EQ(out[o], o < outputs ? scale.slow(in, table.Data(), 3, 4, o) : 9) << outputs;
        }
    }
}

TEST(ThreeDLookup, MayWriteOverItsInput) {
    Random random(35);
    const GuardedArray<uint16_t> table(random.Words(NodeCount(5) * 3));
    for (const Scale& scale : kScales) {
        const uint16_t in[3] = {123, 30000, 16385};
        uint16_t apart[3];
        scale.lookup(in, table.Data(), 5, apart, 3, 3);
        uint16_t shared[3] = {123, 30000, 16385};
        scale.lookup(shared, table.Data(), 5, shared, 3, 3);
        EXPECT_EQ(std::memcmp(apart, shared, sizeof apart), 0) << scale.name;
    }
}

// ---- ICC_Transform3DLut ----

constexpr FixedMatrix kIdentity = {{65536, 0, 0, 0, 65536, 0, 0, 0, 65536}};

TEST(Transform3DLut, LeavesEveryNodeWithTheIdentity) {
    Random random(36);
    for (const uint32_t g : {2u, 3u, 17u}) {
        const Words before = random.Words(NodeCount(g) * 3);
        GuardedArray<uint16_t> table(before);
        EXPECT_EQ(ICC_Transform3DLut(&kIdentity, table.Data(), g), 0);
        EXPECT_EQ(table.Values(), before);
    }
}

TEST(Transform3DLut, DoesNothingToAnEmptyTable) {
    GuardedArray<uint16_t> table(0);
    EXPECT_EQ(ICC_Transform3DLut(&kIdentity, table.Data(), 0), 0);
}

TEST(Transform3DLut, ClampsAndRoundsEachSum) {
    const struct {
        FixedMatrix matrix;
        uint16_t in[3];
        uint16_t expected[3];
        const char* what;
    } rows[] = {
        {{{-65536, 0, 0, 0, 65536, -65536, 131072, 0, 0}}, {40000, 10, 11}, {0, 0, 65535}, "negative sums store 0, sums above 1.0 store 65535"},
        {{{32768, 0, 0, 0, 32768, 0, 0, 0, 32767}}, {1, 3, 1}, {1, 2, 0}, "halves go up, less than a half down"},
        {{{0, 65536, 0, 0, 0, 65536, 65536, 0, 0}}, {1, 2, 3}, {2, 3, 1}, "rows are outputs, columns inputs"},
        {{{65536, 1, 0, 65536, 65535, 0, 65536, 65536, 0}}, {65535, 1, 0}, {65535, 65535, 65535}, "at and above the largest sum"},
        {{{2147483647, 2147483647, 2147483647, -2147483647 - 1, -2147483647 - 1, -2147483647 - 1, 2147483647, -2147483647 - 1, 1}},
         {65535, 65535, 65535},
         {65535, 0, 0},
         "the largest elements stay inside 64 bits"},
    };
    for (const auto& row : rows) {
        GuardedArray<uint16_t> table(24);
        for (size_t node = 0; node < 8; ++node) std::copy(row.in, row.in + 3, table.Data() + 3 * node);
        EXPECT_EQ(ICC_Transform3DLut(&row.matrix, table.Data(), 2), 0);
        for (size_t i = 0; i < 24; ++i) EXPECT_EQ(table[i], row.expected[i % 3]) << row.what << ", value " << i;
    }
}

TEST(Transform3DLut, EqualsExactArithmeticForRandomMatrices) {
    Random random(37);
    for (int trial = 0; trial < 2000; ++trial) {
        FixedMatrix matrix;
        for (int32_t& element : matrix.element) element = static_cast<int32_t>(random.Bits()) >> random.Below(24);
        const Words before = random.Words(NodeCount(3) * 3);
        GuardedArray<uint16_t> table(before);
        ICC_Transform3DLut(&matrix, table.Data(), 3);
        for (size_t i = 0; i < before.size(); ++i) {
            reference::Wide sum = 0;
            for (size_t c = 0; c < 3; ++c) sum += reference::Wide{matrix.element[3 * (i % 3) + c]} * before[i / 3 * 3 + c];
            const reference::Wide inside = std::clamp<reference::Wide>(sum, 0, reference::Wide{65535} * 65536);
            ASSERT_EQ(table[i], static_cast<uint16_t>((inside + 32768) / 65536));
        }
    }
}

TEST(ThreeDTables, AllocateNothing) {
    Random random(38);
    GuardedArray<uint16_t> table(random.Words(NodeCount(17) * 3));
    uint16_t out[3];
    const size_t taken = reference::AllocationsDuring([&] {
        for (uint32_t v = 0; v <= 65535; v += 11) {
            const uint16_t in[3] = {static_cast<uint16_t>(v), static_cast<uint16_t>(65535 - v), static_cast<uint16_t>(v / 2)};
            ICC_ThreeDLookup(in, table.Data(), 17, out, 3, 3);
            const uint16_t half[3] = {static_cast<uint16_t>(v / 2), static_cast<uint16_t>(v / 3), static_cast<uint16_t>(v / 4)};
            ICC_ThreeDLookup32768(half, table.Data(), 17, out, 3, 3);
        }
        ICC_Transform3DLut(&kIdentity, table.Data(), 17);
    });
    EXPECT_EQ(taken, 0u);
}

}  // namespace
