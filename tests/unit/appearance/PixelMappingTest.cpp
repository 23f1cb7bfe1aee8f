#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "appearance/PixelMapping.h"
#include "engine/ThreeDTables.h"
#include "tests/reference/Allocations.h"
#include "tests/reference/Curves.h"
#include "tests/reference/GridReference.h"
#include "tests/reference/GuardedArray.h"

namespace {

using reference::GuardedArray;
using reference::Random;
using reference::Triple;
using reference::Wide;
using Bytes = std::vector<uint8_t>;
using Words = std::vector<uint16_t>;

constexpr size_t kCounts[] = {0, 1, 2, 7, 63, 64, 65, 257};

/// The geometry written out from the number of bits; the nodes are the caller's.
PixelTable TableOf(uint32_t bits, void* nodes) {
    PixelTable table{};
    table.table = nodes;
    UnscaledTable(&table.scale);
    table.indexBits = bits + 1;
    table.indexMask = (1u << (bits + 1)) - 1;
    table.shift = 15 - bits;
    table.cellSize = 1u << (15 - bits);
    table.fractionMask = table.cellSize - 1;
    table.gridSize = (1u << bits) + 1;
    return table;
}

size_t NodeCount(uint32_t bits) {
    const size_t perAxis = (size_t{1} << bits) + 2;
    return perAxis * perAxis * perAxis;
}

/// A grid over random nodes, the spare ones too, that end at an inaccessible page.
struct WordGrid {
    WordGrid(Random& random, uint32_t gridBits)
        : bits(gridBits), nodes(random.Words(NodeCount(gridBits) * 4)), table(TableOf(gridBits, nodes.Data())) {}
    uint16_t Slow(const Triple& scaled, size_t channel) const {
        return static_cast<uint16_t>(reference::GridLookup(scaled, bits, [&](Wide i, Wide j, Wide k) {
            const Wide g = table.gridSize;
            return Wide{nodes[static_cast<size_t>(i * g * g + j * g + k) * 4 + channel]};
        }));
    }
    uint32_t bits;
    GuardedArray<uint16_t> nodes;
    PixelTable table;
};

struct ByteGrid {
    ByteGrid(Random& random, uint32_t gridBits) : bits(gridBits), nodes(NodeCount(gridBits)), table(TableOf(gridBits, nodes.Data())) {
        for (size_t i = 0; i < nodes.Size(); ++i) nodes[i] = static_cast<uint8_t>(random.Below(2) ? random.Below(256) : 255 * random.Below(2));
    }
    uint8_t Slow(const Triple& scaled) const {
        return static_cast<uint8_t>(reference::GridLookup(scaled, bits, [&](Wide i, Wide j, Wide k) {
            const Wide g = table.gridSize;
            return Wide{nodes[static_cast<size_t>(i * g * g + j * g + k)]};
        }));
    }
    uint32_t bits;
    GuardedArray<uint8_t> nodes;
    PixelTable table;
};

/// A grid whose outputs are the scaled inputs themselves, exactly.
struct InputGrid {
    explicit InputGrid(uint32_t bits) : nodes(NodeCount(bits) * 4), table(TableOf(bits, nodes.data())) {
        const size_t g = table.gridSize;
        for (size_t node = 0; node < g * g * g; ++node) {
            nodes[4 * node] = static_cast<uint16_t>(node / (g * g) * table.cellSize);
            nodes[4 * node + 1] = static_cast<uint16_t>(node / g % g * table.cellSize);
            nodes[4 * node + 2] = static_cast<uint16_t>(node % g * table.cellSize);
        }
    }
    Words nodes;
    PixelTable table;
};

Wide Clamped(Wide value) {
    return value < 0 ? 0 : value > 32768 ? 32768 : value;
}

/// (c - min) * 32768 / range, truncated toward zero, without clamping.
Wide Scaled(const PixelScale& scale, size_t axis, uint16_t component) {
    return (Wide{component} - scale.min[axis]) * 32768 / scale.range[axis];
}

/// Scales as the record sets them and as hosts may.
std::vector<PixelScale> ManyScales() {
    return {
        {{32768, 32768, 32768}, {0, 0, 0}},          {{65535, 65535, 65535}, {0, 0, 0}}, {{65532, 64000, 61000}, {3, 0, 700}},
        {{30000, 38000, 50000}, {2000, 100, 15535}}, {{1, 2, 7}, {0, 65535, 30000}},     {{255, 300, 1000}, {65000, 32768, 1}},
    };
}

// ---- what each run gives, from the slow version; `before` is the destination as it was ----

Triple ScaledDevice8(const Bytes& source, size_t pixel) {
    Triple scaled{};
    for (size_t c = 0; c < 3; ++c) scaled[c] = Wide{source[4 * pixel + 1 + c]} * 32768 / 255;
    return scaled;
}

Triple ScaledDevice16(const Words& source, size_t pixel) {
    Triple scaled{};
    for (size_t c = 0; c < 3; ++c) scaled[c] = Wide{source[4 * pixel + c]} * 32768 / 65535;
    return scaled;
}

Triple ScaledPixel16(const PixelScale& scale, const Words& source, size_t pixel) {
    Triple scaled{};
    for (size_t c = 0; c < 3; ++c) scaled[c] = Clamped(Scaled(scale, c, source[4 * pixel + c]));
    return scaled;
}

Words SlowDevice8ToPixel16(const WordGrid& grid, const Bytes& source, Words before) {
    for (size_t p = 0; p < source.size() / 4; ++p) {
        for (size_t c = 0; c < 3; ++c) before[4 * p + c] = grid.Slow(ScaledDevice8(source, p), c);
        before[4 * p + 3] = 0;
    }
    return before;
}

Words SlowDevice16ToPixel16(const WordGrid& grid, const Words& source, Words before) {
    for (size_t p = 0; p < source.size() / 4; ++p) {
        for (size_t c = 0; c < 3; ++c) before[4 * p + c] = grid.Slow(ScaledDevice16(source, p), c);
    }
    return before;
}

Words SlowPixel16ToDevice16(const WordGrid& grid, const Words& source, Words before) {
    for (size_t p = 0; p < source.size() / 4; ++p) {
        for (size_t c = 0; c < 3; ++c) before[4 * p + c] = grid.Slow(ScaledPixel16(grid.table.scale, source, p), c);
        before[4 * p + 3] = 0;
    }
    return before;
}

Bytes SlowPixel16ToPixel8(const WordGrid& grid, const Words& source, Bytes before) {
    for (size_t p = 0; p < source.size() / 4; ++p) {
        for (size_t c = 0; c < 3; ++c) before[4 * p + 1 + c] = static_cast<uint8_t>(grid.Slow(ScaledPixel16(grid.table.scale, source, p), c) / 256);
    }
    return before;
}

Bytes SlowPixel16ToUInt8(const ByteGrid& grid, const Words& source) {
    Bytes out(source.size() / 4);
    for (size_t p = 0; p < out.size(); ++p) {
        bool outside = false;
        Triple scaled{};
        for (size_t c = 0; c < 3; ++c) {
            const uint16_t component = source[4 * p + c];
            scaled[c] = Scaled(grid.table.scale, c, component);
            if (component < grid.table.scale.min[c] || scaled[c] > 32768) outside = true;
        }
        out[p] = outside ? 255 : grid.Slow(scaled);
    }
    return out;
}

Bytes RandomBytes(Random& random, size_t count) {
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random.Below(4) == 0 ? 255 * random.Below(2) : random.Below(256));
    return bytes;
}

/// Words of which many lie at and beside the ends of the scale.
Words WordsFor(Random& random, const PixelScale& scale, size_t pixels) {
    Words words = random.Words(4 * pixels);
    for (size_t i = 0; i < words.size(); ++i) {
        if (i % 4 == 3 || random.Below(3) == 0) continue;
        const uint32_t inside =
            scale.min[i % 4] + (random.Below(3) == 0 ? scale.range[i % 4] * random.Below(2) : random.Below(scale.range[i % 4] + 1u));
        words[i] = static_cast<uint16_t>(inside + random.Below(3) - 1);
    }
    return words;
}

// ---- the converters ----

TEST(PixelMapping, RunsEqualTheSlowVersionForAnyLengthAndTouchNothingElse) {
    for (const uint32_t bits : {0u, 1u, 4u, 6u}) {
        Random random(70 + bits);
        WordGrid words(random, bits);
        ByteGrid bytes(random, bits);
        for (const PixelScale& scale : ManyScales()) {
            words.table.scale = bytes.table.scale = scale;
            for (const size_t count : kCounts) {
                const std::string what =
                    std::to_string(bits) + " bits, range " + std::to_string(scale.range[0]) + ", " + std::to_string(count) + " pixels";
                const GuardedArray<uint16_t> wide(WordsFor(random, scale, count));
                const GuardedArray<uint8_t> narrow(RandomBytes(random, 4 * count));
                const Words beforeWords = random.Words(4 * count);
                const Bytes beforeBytes = RandomBytes(random, 4 * count);

                GuardedArray<uint16_t> fromDevice8(beforeWords);
                MapDevice8ToPixel16(&words.table, narrow.Data(), fromDevice8.Data(), count);
                EXPECT_EQ(fromDevice8.Values(), SlowDevice8ToPixel16(words, narrow.Values(), beforeWords)) << what;

                GuardedArray<uint16_t> fromDevice16(beforeWords);
                MapDevice16ToPixel16(&words.table, wide.Data(), fromDevice16.Data(), count);
                EXPECT_EQ(fromDevice16.Values(), SlowDevice16ToPixel16(words, wide.Values(), beforeWords)) << what;

                GuardedArray<uint16_t> toDevice16(beforeWords);
                MapPixel16ToDevice16(&words.table, wide.Data(), toDevice16.Data(), count);
                EXPECT_EQ(toDevice16.Values(), SlowPixel16ToDevice16(words, wide.Values(), beforeWords)) << what;

                GuardedArray<uint8_t> toPixel8(beforeBytes);
                MapPixel16ToPixel8(&words.table, wide.Data(), toPixel8.Data(), count);
                EXPECT_EQ(toPixel8.Values(), SlowPixel16ToPixel8(words, wide.Values(), beforeBytes)) << what;

                GuardedArray<uint8_t> toUInt8(count, 7);
                MapPixel16ToUInt8(&bytes.table, wide.Data(), toUInt8.Data(), count);
                EXPECT_EQ(toUInt8.Values(), SlowPixel16ToUInt8(bytes, wide.Values())) << what;
            }
        }
    }
}

TEST(PixelMapping, RunsEqualTheSlowVersionOverManyPixels) {
    constexpr size_t kPixels = 40000;
    for (const uint32_t bits : {5u, 6u, 7u}) {
        Random random(80 + bits);
        WordGrid words(random, bits);
        ByteGrid bytes(random, bits);
        for (const PixelScale& scale : ManyScales()) {
            words.table.scale = bytes.table.scale = scale;
            const Words wide = WordsFor(random, scale, kPixels);
            const Bytes narrow = RandomBytes(random, 4 * kPixels);
            const Words zeroWords(4 * kPixels);
            const Bytes zeroBytes(4 * kPixels);
            Words out(4 * kPixels);
            MapDevice8ToPixel16(&words.table, narrow.data(), out.data(), kPixels);
            EXPECT_TRUE(out == SlowDevice8ToPixel16(words, narrow, zeroWords));
            MapDevice16ToPixel16(&words.table, wide.data(), out.data(), kPixels);
            EXPECT_TRUE(out == SlowDevice16ToPixel16(words, wide, zeroWords));
            MapPixel16ToDevice16(&words.table, wide.data(), out.data(), kPixels);
            EXPECT_TRUE(out == SlowPixel16ToDevice16(words, wide, zeroWords));
            Bytes pixel8(4 * kPixels);
            MapPixel16ToPixel8(&words.table, wide.data(), pixel8.data(), kPixels);
            EXPECT_TRUE(pixel8 == SlowPixel16ToPixel8(words, wide, zeroBytes));
            Bytes single(kPixels);
            MapPixel16ToUInt8(&bytes.table, wide.data(), single.data(), kPixels);
            EXPECT_TRUE(single == SlowPixel16ToUInt8(bytes, wide)) << bits << " bits, range " << scale.range[0];
        }
    }
}

TEST(PixelMapping, ARunGivesTheSameHoweverItIsSplit) {
    constexpr size_t kPixels = 257;
    Random random(90);
    WordGrid words(random, 6);
    ByteGrid bytes(random, 6);
    words.table.scale = bytes.table.scale = ManyScales()[3];
    const Words wide = WordsFor(random, words.table.scale, kPixels);
    const Bytes narrow = RandomBytes(random, 4 * kPixels);
    const auto all = [&](const std::vector<size_t>& lengths) {
        Words a(4 * kPixels), b(4 * kPixels), c(4 * kPixels);
        Bytes d(4 * kPixels), e(kPixels);
        size_t at = 0;
        for (const size_t length : lengths) {
            MapDevice8ToPixel16(&words.table, narrow.data() + 4 * at, a.data() + 4 * at, length);
            MapDevice16ToPixel16(&words.table, wide.data() + 4 * at, b.data() + 4 * at, length);
            MapPixel16ToDevice16(&words.table, wide.data() + 4 * at, c.data() + 4 * at, length);
            MapPixel16ToPixel8(&words.table, wide.data() + 4 * at, d.data() + 4 * at, length);
            MapPixel16ToUInt8(&bytes.table, wide.data() + 4 * at, e.data() + at, length);
            at += length;
        }
        EXPECT_EQ(at, kPixels);
        return std::make_tuple(a, b, c, d, e);
    };
    const auto whole = all({kPixels});
    EXPECT_EQ(all({256, 1}), whole);
    EXPECT_EQ(all({3, 64, 0, 65, 125}), whole);
    EXPECT_EQ(all(std::vector<size_t>(kPixels, 1)), whole);
}

/// As the Create functions leave it, without a scale.
TEST(PixelMapping, ACountOf0AsksNothingOfTheTable) {
    PixelTable words{}, bytes{};
    ASSERT_EQ(CreateTablePixel16(6, &words), 0);
    ASSERT_EQ(CreateTableUInt8(6, &bytes), 0);
    for (const bool none : {false, true}) {
        const PixelTable* const table = none ? nullptr : &words;
        MapDevice8ToPixel16(table, nullptr, nullptr, 0);
        MapDevice16ToPixel16(table, nullptr, nullptr, 0);
        MapPixel16ToDevice16(table, nullptr, nullptr, 0);
        MapPixel16ToPixel8(table, nullptr, nullptr, 0);
        MapPixel16ToUInt8(none ? nullptr : &bytes, nullptr, nullptr, 0);
    }
    DisposeTablePixel16(&words);
    DisposeTableUInt8(&bytes);
}

TEST(PixelMapping, WorksInPlaceWhereBothSidesAreWords) {
    Random random(91);
    WordGrid grid(random, 6);
    const Words in = random.Words(size_t{4} * 65);
    for (auto* map : {MapDevice16ToPixel16, MapPixel16ToDevice16}) {
        Words apart = in;
        map(&grid.table, in.data(), apart.data(), 65);
        Words shared = in;
        map(&grid.table, shared.data(), shared.data(), 65);
        EXPECT_EQ(shared, apart);
    }
}

// ---- input scaling: a grid whose outputs are its inputs shows it ----

TEST(MapDevice8ToPixel16, ScalesEveryByte) {
    for (const uint32_t bits : {0u, 3u, 6u}) {
        const InputGrid grid(bits);
        for (uint32_t v = 0; v < 256; ++v) {
            const uint8_t in[4] = {77, static_cast<uint8_t>(v), static_cast<uint8_t>(255 - v), static_cast<uint8_t>(v / 2)};
            uint16_t out[4] = {1, 1, 1, 1};
            MapDevice8ToPixel16(&grid.table, in, out, 1);
            EXPECT_EQ(out[0], v * 32768 / 255) << v;
            EXPECT_EQ(out[1], (255 - v) * 32768 / 255) << v;
            EXPECT_EQ(out[2], v / 2 * 32768 / 255) << v;
            EXPECT_EQ(out[3], 0) << "the fourth word is written";
        }
    }
}

TEST(MapDevice8ToPixel16, MeetsTheLastNodeAt255And128At1) {
    InputGrid grid(6);
    const uint8_t in[4] = {0, 255, 1, 0};
    uint16_t out[4];
    MapDevice8ToPixel16(&grid.table, in, out, 1);
    EXPECT_EQ(out[0], 32768);
    EXPECT_EQ(out[1], 128);
    // Only the last node, so no fraction of a cell can be left.
    const uint8_t white[4] = {0, 255, 255, 255};
    grid.nodes.assign(grid.nodes.size(), 1000);
    grid.nodes[4 * (size_t{65} * 65 * 65 - 1)] = 65535;
    MapDevice8ToPixel16(&grid.table, white, out, 1);
    EXPECT_EQ(out[0], 65535);
    EXPECT_EQ(out[1], 1000);
}

TEST(MapDevice16ToPixel16, ScalesEveryWordAndLeavesTheFourth) {
    const InputGrid grid(6);
    for (uint32_t v = 0; v <= 65535; ++v) {
        const uint16_t in[4] = {static_cast<uint16_t>(v), static_cast<uint16_t>(65535 - v), 65535, 5};
        uint16_t out[4] = {1, 1, 1, 4321};
        MapDevice16ToPixel16(&grid.table, in, out, 1);
        ASSERT_EQ(out[0], uint64_t{v} * 32768 / 65535) << v;
        ASSERT_EQ(out[1], uint64_t{65535 - v} * 32768 / 65535) << v;
        ASSERT_EQ(out[2], 32768);
        ASSERT_EQ(out[3], 4321);
    }
    const uint16_t one[4] = {1, 0, 0, 0};
    uint16_t out[4] = {9, 9, 9, 9};
    MapDevice16ToPixel16(&grid.table, one, out, 1);
    EXPECT_EQ(out[0], 0) << "1 scales to 0";
}

TEST(MapPixel16ToDevice16, ScalesAndClampsEveryComponent) {
    InputGrid grid(6);
    for (const PixelScale& scale : ManyScales()) {
        grid.table.scale = scale;
        for (uint32_t v = 0; v <= 65535; ++v) {
            const auto word = static_cast<uint16_t>(v);
            const uint16_t in[4] = {word, word, word, 5};
            uint16_t out[4] = {1, 1, 1, 4321};
            MapPixel16ToDevice16(&grid.table, in, out, 1);
            for (size_t c = 0; c < 3; ++c) ASSERT_EQ(Wide{out[c]}, Clamped(Scaled(scale, c, word))) << v;
            ASSERT_EQ(out[3], 0) << "the fourth word is written";
            uint8_t high[4] = {55, 1, 1, 1};
            MapPixel16ToPixel8(&grid.table, in, high, 1);
            for (size_t c = 0; c < 3; ++c) ASSERT_EQ(high[c + 1], out[c] / 256) << v;
            ASSERT_EQ(high[0], 55) << "byte 0 stays";
        }
    }
}

// Outside the scale the signed variants clamp, and the single byte says so. Kept on purpose.
TEST(MapPixel16, TreatsComponentsOutsideTheScale) {
    InputGrid grid(6);
    GuardedArray<uint8_t> nothing(NodeCount(6));  // a grid that answers 0
    PixelTable gamut = TableOf(6, nothing.Data());
    const struct {
        PixelScale scale;
        uint16_t component;
        uint16_t clamped;
        uint8_t gamut;
        const char* what;
    } rows[] = {
        {{{32768, 32768, 32768}, {0, 0, 0}}, 32768, 32768, 0, "unscaled, full scale"},
        {{{32768, 32768, 32768}, {0, 0, 0}}, 32769, 32768, 255, "unscaled, one beyond"},
        {{{32768, 32768, 32768}, {0, 0, 0}}, 40000, 32768, 255, "unscaled, 40000"},
        {{{60000, 60000, 60000}, {100, 100, 100}}, 99, 0, 255, "one below min"},
        {{{60000, 60000, 60000}, {100, 100, 100}}, 100, 0, 0, "at min"},
        {{{65535, 65535, 65535}, {1, 1, 1}}, 0, 0, 255, "one below min with the largest range"},
        {{{65535, 65535, 65535}, {65535, 65535, 65535}}, 0, 0, 255, "as far below as can be"},
        {{{1, 1, 1}, {9, 9, 9}}, 10, 32768, 0, "the smallest range, its top"},
        {{{1, 1, 1}, {9, 9, 9}}, 11, 32768, 255, "the smallest range, one beyond"},
        {{{40000, 40000, 40000}, {0, 0, 0}}, 40001, 32768, 0, "a little past a wide range still scales to 32768"},
        {{{40000, 40000, 40000}, {0, 0, 0}}, 40002, 32768, 255, "and then no longer"},
    };
    for (const auto& row : rows) {
        for (size_t axis = 0; axis < 3; ++axis) {
            grid.table.scale = gamut.scale = row.scale;
            uint16_t in[4] = {row.scale.min[0], row.scale.min[1], row.scale.min[2], 0};
            in[axis] = row.component;
            uint16_t out[4];
            MapPixel16ToDevice16(&grid.table, in, out, 1);
            EXPECT_EQ(out[axis], row.clamped) << row.what << ", axis " << axis;
            uint8_t flag = 9;
            MapPixel16ToUInt8(&gamut, in, &flag, 1);
            EXPECT_EQ(flag, row.gamut) << row.what << ", axis " << axis;
        }
    }
}

TEST(MapPixel16ToUInt8, MarksExactlyWhatScalesOutsideForEveryRange) {
    GuardedArray<uint8_t> nothing(NodeCount(0));
    PixelTable table = TableOf(0, nothing.Data());
    Words in;
    for (uint32_t v = 0; v <= 65535; v += 5) {
        const auto word = static_cast<uint16_t>(v);
        in.insert(in.end(), {word, word, word, 0});
    }
    Bytes out(in.size() / 4);
    for (uint32_t range = 1; range <= 65535; range += range < 40 ? 1 : 1301) {
        for (const uint32_t min : {0u, 1u, 30000u, 65535u - range}) {
            for (size_t c = 0; c < 3; ++c) {
                table.scale.range[c] = static_cast<uint16_t>(range);
                table.scale.min[c] = static_cast<uint16_t>(min);
            }
            MapPixel16ToUInt8(&table, in.data(), out.data(), out.size());
            for (size_t p = 0; p < out.size(); ++p) {
                const bool outside = in[4 * p] < min || int64_t{in[4 * p]} * 32768 - int64_t{min} * 32768 >= int64_t{range} * 32769;
                ASSERT_EQ(out[p], outside ? 255 : 0) << "range " << range << ", min " << min << ", " << in[4 * p];
            }
        }
    }
}

// ---- interpolation ----

// A grid of one cell that is 0 but for one node shows that node's weight.
TEST(PixelMapping, WeighsTheNodesOfEachOrdering) {
    const struct {
        uint16_t in[4];
        uint16_t weight[8];  // of nodes 000, 001, 010, 011, 100, 101, 110, 111
        const char* what;
    } rows[] = {
        {{100, 300, 600, 0}, {32768 - 600, 300, 0, 200, 0, 0, 0, 100}, "code 0: third, second, first"},
        {{100, 600, 300, 0}, {32768 - 600, 0, 300, 200, 0, 0, 0, 100}, "code 1: second, third, first"},
        {{300, 600, 100, 0}, {32768 - 600, 0, 300, 0, 0, 0, 200, 100}, "code 3: second, first, third"},
        {{300, 100, 600, 0}, {32768 - 600, 300, 0, 0, 0, 200, 0, 100}, "code 4: third, first, second"},
        {{600, 100, 300, 0}, {32768 - 600, 0, 0, 0, 300, 200, 0, 100}, "code 6: first, third, second"},
        {{600, 300, 100, 0}, {32768 - 600, 0, 0, 0, 300, 0, 200, 100}, "code 7: first, second, third"},
        {{700, 700, 700, 0}, {32768 - 700, 0, 0, 0, 0, 0, 0, 700}, "equal fractions: the base node and the far corner"},
        {{32768, 0, 0, 0}, {0, 0, 0, 0, 32768, 0, 0, 0}, "the top of the first axis"},
        {{32768, 32768, 32768, 0}, {0, 0, 0, 0, 0, 0, 0, 32768}, "the last node"},
    };
    for (const auto& row : rows) {
        for (size_t node = 0; node < 8; ++node) {
            GuardedArray<uint16_t> nodes(NodeCount(0) * 4);
            nodes[4 * node + 1] = 32768;
            const PixelTable table = TableOf(0, nodes.Data());
            uint16_t out[4];
            MapPixel16ToDevice16(&table, row.in, out, 1);
            EXPECT_EQ(out[1], row.weight[node]) << row.what << ", node " << node;
            EXPECT_EQ(out[0], 0);
            EXPECT_EQ(out[2], 0);

            GuardedArray<uint8_t> single(NodeCount(0));
            single[node] = 255;
            const PixelTable bytes = TableOf(0, single.Data());
            uint8_t flag = 9;
            MapPixel16ToUInt8(&bytes, row.in, &flag, 1);
            EXPECT_EQ(flag, row.weight[node] * 255 / 32768) << row.what << ", node " << node;
        }
    }
}

TEST(PixelMapping, GivesEveryNodeBackExactly) {
    Random random(92);
    const WordGrid grid(random, 4);
    for (size_t node = 0; node < size_t{17} * 17 * 17; ++node) {
        const uint16_t in[4] = {static_cast<uint16_t>(node / 289 * 2048), static_cast<uint16_t>(node / 17 % 17 * 2048),
                                static_cast<uint16_t>(node % 17 * 2048), 0};
        uint16_t out[4];
        MapPixel16ToDevice16(&grid.table, in, out, 1);
        for (size_t c = 0; c < 3; ++c) ASSERT_EQ(out[c], grid.nodes[4 * node + c]) << node;
    }
}

// The same interpolation stands in the engine with its weights on another scale; on a grid of 2^b + 1 points the two meet.
TEST(PixelMapping, AgreesWithTheEnginesLookupOnTheSameGrid) {
    for (const uint32_t bits : {0u, 1u, 5u, 6u, 7u}) {
        Random random(93 + bits);
        const WordGrid grid(random, bits);
        for (int i = 0; i < 200000; ++i) {
            const uint16_t in[4] = {static_cast<uint16_t>(random.Below(32769)), static_cast<uint16_t>(random.Below(32769)),
                                    static_cast<uint16_t>(random.Below(32769)), 0};
            uint16_t out[4];
            MapPixel16ToDevice16(&grid.table, in, out, 1);
            uint16_t other[3];
            ICC_ThreeDLookup32768(in, grid.nodes.Data(), grid.table.gridSize, other, 4, 3);
            for (int c = 0; c < 3; ++c) ASSERT_EQ(out[c], other[c]) << bits << " bits at " << in[0] << ' ' << in[1] << ' ' << in[2];
        }
    }
}

// ---- tables ----

TEST(UnscaledTable, SetsTheIdentity) {
    PixelScale scale = {{1, 2, 3}, {4, 5, 6}};
    UnscaledTable(&scale);
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(scale.range[c], 32768);
        EXPECT_EQ(scale.min[c], 0);
    }
}

TEST(PixelTable, KeepsTheOrderOfItsFields) {
    EXPECT_EQ(offsetof(PixelTable, table), 0u);
    EXPECT_EQ(offsetof(PixelTable, scale), 8u);
    EXPECT_EQ(offsetof(PixelScale, range), 0u);
    EXPECT_EQ(offsetof(PixelScale, min), 6u);
    EXPECT_EQ(offsetof(PixelTable, indexBits), 20u);
    EXPECT_EQ(offsetof(PixelTable, indexMask), 24u);
    EXPECT_EQ(offsetof(PixelTable, shift), 28u);
    EXPECT_EQ(offsetof(PixelTable, cellSize), 32u);
    EXPECT_EQ(offsetof(PixelTable, fractionMask), 36u);
    EXPECT_EQ(offsetof(PixelTable, gridSize), 40u);
}

struct Kind {
    int (*create)(uint32_t, PixelTable*);
    void (*dispose)(PixelTable*);
    size_t nodeSize;
};
const Kind kKinds[] = {{CreateTablePixel16, DisposeTablePixel16, 8}, {CreateTableUInt8, DisposeTableUInt8, 1}};

TEST(CreateTable, FillsTheGeometryAndAllocatesZeroedNodes) {
    const struct {
        uint32_t bits, indexBits, indexMask, shift, cellSize, fractionMask, gridSize;
        size_t nodes;
    } rows[] = {
        {0, 1, 1, 15, 32768, 32767, 2, 27},   {1, 2, 3, 14, 16384, 16383, 3, 64},     {5, 6, 63, 10, 1024, 1023, 33, 39304},
        {6, 7, 127, 9, 512, 511, 65, 287496}, {7, 8, 255, 8, 256, 255, 129, 2197000},
    };
    for (const Kind& kind : kKinds) {
        for (const auto& row : rows) {
            PixelTable table{};
            table.scale = {{11, 12, 13}, {14, 15, 16}};
            ASSERT_EQ(kind.create(row.bits, &table), 0) << row.bits;
            ASSERT_NE(table.table, nullptr);
            EXPECT_EQ(table.indexBits, row.indexBits);
            EXPECT_EQ(table.indexMask, row.indexMask);
            EXPECT_EQ(table.shift, row.shift);
            EXPECT_EQ(table.cellSize, row.cellSize);
            EXPECT_EQ(table.fractionMask, row.fractionMask);
            EXPECT_EQ(table.gridSize, row.gridSize);
            EXPECT_EQ(table.scale.range[1], 12) << "the scale is left as it is";
            EXPECT_EQ(table.scale.min[2], 16);
            const auto* bytes = static_cast<const uint8_t*>(table.table);
            EXPECT_EQ(Bytes(bytes, bytes + row.nodes * kind.nodeSize), Bytes(row.nodes * kind.nodeSize)) << row.bits;
            kind.dispose(&table);
            EXPECT_EQ(table.table, nullptr);
        }
    }
}

TEST(CreateTable, RefusesGridsFinerThanTheInputScale) {
    for (const Kind& kind : kKinds) {
        for (const uint32_t bits : {16u, 17u, 31u, 32u, 33u, 64u, 0xFFFFFFFFu}) {
            PixelTable table{};
            table.table = &table;
            EXPECT_EQ(kind.create(bits, &table), -108) << bits;
            EXPECT_EQ(table.table, nullptr) << bits;
        }
    }
}

TEST(CreateTable, ReportsMissingMemory) {
    for (const Kind& kind : kKinds) {
        PixelTable table{};
        table.table = &table;
        reference::FailAllocation(1);
        const int status = kind.create(6, &table);
        reference::FailAllocation(0);
        EXPECT_EQ(status, -108);
        EXPECT_EQ(table.table, nullptr);
    }
}

TEST(DisposeTable, FreesOnceAndServesBothKinds) {
    for (const Kind& kind : kKinds) {
        for (const Kind& other : kKinds) {
            PixelTable table{};
            const reference::Allocations before = reference::CountedAllocations();
            ASSERT_EQ(kind.create(3, &table), 0);
            other.dispose(&table);
            other.dispose(&table);
            const reference::Allocations after = reference::CountedAllocations();
            EXPECT_EQ(after.taken - before.taken, 1u);
            EXPECT_EQ(after.freed - before.freed, 1u);
        }
    }
}

TEST(PixelMapping, RunsAllocateNothing) {
    constexpr size_t kPixels = 1000;
    Random random(94);
    const WordGrid words(random, 6);
    const ByteGrid bytes(random, 6);
    const Words wide = random.Words(4 * kPixels);
    const Bytes narrow = RandomBytes(random, 4 * kPixels);
    Words out(4 * kPixels);
    Bytes outBytes(4 * kPixels);
    EXPECT_EQ(reference::AllocationsDuring([&] {
                  MapDevice8ToPixel16(&words.table, narrow.data(), out.data(), kPixels);
                  MapDevice16ToPixel16(&words.table, wide.data(), out.data(), kPixels);
                  MapPixel16ToDevice16(&words.table, wide.data(), out.data(), kPixels);
                  MapPixel16ToPixel8(&words.table, wide.data(), outBytes.data(), kPixels);
                  MapPixel16ToUInt8(&bytes.table, wide.data(), outBytes.data(), kPixels);
              }),
              0u);
}

// The count itself is looked at: a run that did allocate would be seen.
TEST(Allocations, AreCountedInTheCodeUnderTest) {
    PixelTable table{};
    EXPECT_EQ(reference::AllocationsDuring([&] { CreateTableUInt8(2, &table); }), 1u);
    EXPECT_EQ(reference::AllocationsDuring([&] { ::operator delete(::operator new(100)); }), 1u);
    DisposeTableUInt8(&table);
}

}  // namespace
