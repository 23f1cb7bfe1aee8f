// Every set of kernels against the plain one, byte for byte, and what a set may not touch.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "appearance/kernels/PixelKernels.h"
#include "tests/reference/GuardedArray.h"

namespace {

using reference::GuardedArray;
using Words = std::vector<uint16_t>;
using Bytes = std::vector<uint8_t>;
using platform::InstructionSet;

std::vector<const PixelKernels*> Sets() {
    std::vector<const PixelKernels*> sets;
    for (const PixelKernels* set : AllPixelKernels()) {
        if (platform::ProcessorRuns(set->set)) sets.push_back(set);
    }
    return sets;
}

/// A table whose nodes, the spare ones too, are random and end at an inaccessible page.
template <typename Node, size_t Channels>
struct Grid {
    Grid(std::mt19937_64& random, uint32_t bits, const PixelScale& scale) : nodes(RandomNodes(random, bits)) {
        table = {nodes.Data(), scale, bits + 1, (2u << bits) - 1, 15 - bits, 1u << (15 - bits), (1u << (15 - bits)) - 1, (1u << bits) + 1};
    }
    static std::vector<Node> RandomNodes(std::mt19937_64& random, uint32_t bits) {
        const size_t axis = (size_t{1} << bits) + 2;
        std::vector<Node> values(axis * axis * axis * Channels);
        for (Node& value : values) value = static_cast<Node>(random());
        // The extremes are frequent.
        for (size_t i = 0; i < values.size(); i += 7) values[i] = i % 2 ? static_cast<Node>(0) : static_cast<Node>(~Node{0});
        return values;
    }
    GuardedArray<Node> nodes;
    PixelTable table;
};
using WordGrid = Grid<uint16_t, 4>;
using ByteGrid = Grid<uint8_t, 1>;

/// Random components with the edges of the domain among them.
Words Pixels(std::mt19937_64& random, const PixelScale& scale, size_t count) {
    Words words(4 * count);
    for (size_t i = 0; i < words.size(); ++i) {
        const size_t c = i % 4 % 3;
        const uint32_t min = scale.min[c], range = scale.range[c];
        const uint32_t edges[] = {0,       1,       32767,       32768,           32769,           65534,           65535,          min,
                                  min - 1, min + 1, min + range, min + range - 1, min + range + 1, min + range + 2, min + 2 * range};
        const uint64_t draw = random();
        words[i] = draw % 4 == 0   ? static_cast<uint16_t>(edges[(draw >> 8) % std::size(edges)])
                   : draw % 4 == 1 ? static_cast<uint16_t>(min + (draw >> 8) % (range + 1))
                                   : static_cast<uint16_t>(draw >> 8);
        // Grey pixels have equal fractions.
        if (c > 0 && draw % 5 == 0) words[i] = words[i - 1];
    }
    return words;
}

std::vector<PixelScale> Scales(std::mt19937_64& random) {
    std::vector<PixelScale> scales = {{{32768, 32768, 32768}, {0, 0, 0}}, {{65535, 65535, 65535}, {0, 0, 0}}, {{1, 1, 1}, {65535, 0, 32768}}};
    for (uint16_t range = 1; range <= 8; ++range) scales.push_back({{range, range, range}, {100, 200, 300}});
    for (const int range : {30000, 32767, 32769, 38000, 65532, 65533, 65534}) {
        const auto r = static_cast<uint16_t>(range);
        scales.push_back({{r, r, r}, {0, 1, 5000}});
    }
    for (int i = 0; i < 12; ++i) {
        PixelScale scale;
        for (int c = 0; c < 3; ++c) {
            scale.range[c] = static_cast<uint16_t>(1 + random() % 65535);
            scale.min[c] = static_cast<uint16_t>(random());
        }
        scales.push_back(scale);
    }
    return scales;
}

TEST(PixelKernels, TheConvertersUseTheBestSetThatIsAllowed) {
    EXPECT_EQ(Sets().front()->set, InstructionSet::kPlain);
    const PixelKernels* expected = nullptr;
    for (const PixelKernels* set : Sets()) {
        if (set->set <= platform::WidestAllowed()) expected = set;
    }
    EXPECT_EQ(&PixelKernelsInUse(), expected);
}

/// The environment is read here on its own: what forces a set for the other tests must have forced it.
TEST(PixelKernels, TheSwitchNamesTheWidestSetThatIsAllowed) {
    const char* const wanted = std::getenv("CM_KERNELS");
    const bool known = wanted && std::any_of(std::begin(platform::kInstructionSets), std::end(platform::kInstructionSets),
                                             [&](InstructionSet set) { return std::string(wanted) == NameOf(set); });
    EXPECT_STREQ(NameOf(platform::WidestAllowed()), known ? wanted : NameOf(platform::kWidestSet));
}

TEST(PixelKernels, GiveTheBytesOfThePlainOnes) {
    std::mt19937_64 random(20);
    constexpr size_t kMost = 4100;
    for (const PixelScale& scale : Scales(random)) {
        for (const uint32_t bits : {0u, 1u, 2u, 4u, 5u, 6u}) {
            const WordGrid words(random, bits, scale);
            const ByteGrid bytes(random, bits, scale);
            const Words source = Pixels(random, scale, kMost + 1);
            Bytes bytesIn(4 * kMost + 4);
            for (uint8_t& byte : bytesIn) byte = static_cast<uint8_t>(random());
            for (const size_t count : {size_t{8}, size_t{kMost - random() % 9}}) {
                for (const PixelKernels* set : Sets()) {
                    SCOPED_TRACE(std::string(NameOf(set->set)) + ", " + std::to_string(bits) + " bits, range " + std::to_string(scale.range[0]));
                    const Words fill(4 * kMost + 4, 0xA5C3);
                    const Bytes fillBytes(4 * kMost + 4, 0x5A);
                    const auto compareWords = [&](auto run, const auto* in) {
                        Words expected = fill, actual = fill;
                        run(kPlainPixelKernels, &words.table, in, expected.data(), count);
                        run(*set, &words.table, in, actual.data(), count);
                        ASSERT_TRUE(actual == expected);
                    };
                    // From addresses of every kind.
                    compareWords([](const PixelKernels& k, auto... a) { k.pixel16ToDevice16(a...); }, source.data() + count % 4);
                    compareWords([](const PixelKernels& k, auto... a) { k.device16ToPixel16(a...); }, source.data() + count % 3);
                    compareWords([](const PixelKernels& k, auto... a) { k.device8ToPixel16(a...); }, bytesIn.data() + count % 4);
                    Bytes expected = fillBytes, actual = fillBytes;
                    kPlainPixelKernels.pixel16ToPixel8(&words.table, source.data(), expected.data() + 1, count);
                    set->pixel16ToPixel8(&words.table, source.data(), actual.data() + 1, count);
                    ASSERT_TRUE(actual == expected);
                    expected = actual = fillBytes;
                    kPlainPixelKernels.pixel16ToUInt8(&bytes.table, source.data(), expected.data() + 3, count);
                    set->pixel16ToUInt8(&bytes.table, source.data(), actual.data() + 3, count);
                    ASSERT_TRUE(actual == expected);
                }
            }
        }
    }
}

TEST(PixelKernels, DivideByEveryRangeAsThePlainOnesDo) {
    std::mt19937_64 random(21);
    // A grid whose first output is the first input on its scale of 32768.
    const PixelScale unscaled = {{32768, 32768, 32768}, {0, 0, 0}};
    WordGrid grid(random, 6, unscaled);
    ByteGrid bytes(random, 6, unscaled);
    Words source(4 * 512), expected(4 * 512), actual(4 * 512);
    Bytes expectedBytes(512), actualBytes(512);
    for (uint32_t range = 1; range <= 65535; range += range < 300 || range > 65000 ? 1 : 97) {
        for (int c = 0; c < 3; ++c) grid.table.scale.range[c] = bytes.table.scale.range[c] = static_cast<uint16_t>(range);
        // Around the places where the quotient steps.
        for (size_t i = 0; i < source.size(); ++i) {
            const uint64_t step = random() % 32769;
            source[i] = static_cast<uint16_t>(std::min<uint64_t>(65535, (step * range + 32767) / 32768 + random() % 3));
        }
        for (const PixelKernels* set : Sets()) {
            kPlainPixelKernels.pixel16ToDevice16(&grid.table, source.data(), expected.data(), 512);
            set->pixel16ToDevice16(&grid.table, source.data(), actual.data(), 512);
            ASSERT_TRUE(actual == expected) << NameOf(set->set) << " " << range;
            kPlainPixelKernels.pixel16ToUInt8(&bytes.table, source.data(), expectedBytes.data(), 512);
            set->pixel16ToUInt8(&bytes.table, source.data(), actualBytes.data(), 512);
            ASSERT_TRUE(actualBytes == expectedBytes) << NameOf(set->set) << " " << range;
        }
    }
}

TEST(PixelKernels, EveryByteAndWordEntersAsWithThePlainOnes) {
    std::mt19937_64 random(22);
    const PixelScale unscaled = {{32768, 32768, 32768}, {0, 0, 0}};
    const WordGrid grid(random, 6, unscaled);
    Bytes bytes(4 * 256);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i / 4 + 85 * (i % 4));
    Words words(4 * 65536);
    for (size_t i = 0; i < words.size(); ++i) words[i] = static_cast<uint16_t>(i / 4 * (i % 4 == 0 ? 1 : i % 4 == 1 ? 40503 : 25717));
    for (const PixelKernels* set : Sets()) {
        Words expected(words.size(), 7), actual(words.size(), 7);
        kPlainPixelKernels.device8ToPixel16(&grid.table, bytes.data(), expected.data(), 256);
        set->device8ToPixel16(&grid.table, bytes.data(), actual.data(), 256);
        ASSERT_TRUE(actual == expected) << NameOf(set->set);
        kPlainPixelKernels.device16ToPixel16(&grid.table, words.data(), expected.data(), 65536);
        set->device16ToPixel16(&grid.table, words.data(), actual.data(), 65536);
        ASSERT_TRUE(actual == expected) << NameOf(set->set);
    }
}

TEST(PixelKernels, ShortRunsEndWithTheirLastPixel) {
    std::mt19937_64 random(23);
    const PixelScale scale = {{40000, 30000, 65535}, {100, 0, 0}};
    const WordGrid words(random, 6, scale);
    const ByteGrid bytes(random, 6, scale);
    for (size_t count = 0; count <= 40; ++count) {
        const Words pixels = Pixels(random, scale, count);
        Bytes small(4 * count);
        for (uint8_t& byte : small) byte = static_cast<uint8_t>(random());
        const GuardedArray<uint16_t> source(pixels);
        const GuardedArray<uint8_t> sourceBytes(small);
        for (const PixelKernels* set : Sets()) {
            SCOPED_TRACE(std::string(NameOf(set->set)) + " " + std::to_string(count));
            GuardedArray<uint16_t> out(Words(4 * count, 9));
            GuardedArray<uint8_t> outBytes(Bytes(4 * count, 9));
            GuardedArray<uint8_t> flags(Bytes(count, 9));
            Words expected(4 * count, 9);
            const auto check = [&] {
                EXPECT_TRUE(std::equal(expected.begin(), expected.end(), out.Data()));
                std::fill(expected.begin(), expected.end(), 9);
                std::fill(out.Data(), out.Data() + 4 * count, 9);
            };
            set->pixel16ToDevice16(&words.table, source.Data(), out.Data(), count);
            kPlainPixelKernels.pixel16ToDevice16(&words.table, pixels.data(), expected.data(), count);
            check();
            set->device16ToPixel16(&words.table, source.Data(), out.Data(), count);
            kPlainPixelKernels.device16ToPixel16(&words.table, pixels.data(), expected.data(), count);
            check();
            set->device8ToPixel16(&words.table, sourceBytes.Data(), out.Data(), count);
            kPlainPixelKernels.device8ToPixel16(&words.table, small.data(), expected.data(), count);
            check();
            Bytes expectedBytes(4 * count, 9);
            set->pixel16ToPixel8(&words.table, source.Data(), outBytes.Data(), count);
            kPlainPixelKernels.pixel16ToPixel8(&words.table, pixels.data(), expectedBytes.data(), count);
            EXPECT_TRUE(std::equal(expectedBytes.begin(), expectedBytes.end(), outBytes.Data()));
            Bytes expectedFlags(count, 9);
            set->pixel16ToUInt8(&bytes.table, source.Data(), flags.Data(), count);
            kPlainPixelKernels.pixel16ToUInt8(&bytes.table, pixels.data(), expectedFlags.data(), count);
            EXPECT_TRUE(std::equal(expectedFlags.begin(), expectedFlags.end(), flags.Data()));
            // In place.
            GuardedArray<uint16_t> inPlace(pixels);
            Words expectedInPlace = pixels;
            set->pixel16ToDevice16(&words.table, inPlace.Data(), inPlace.Data(), count);
            kPlainPixelKernels.pixel16ToDevice16(&words.table, expectedInPlace.data(), expectedInPlace.data(), count);
            EXPECT_TRUE(std::equal(expectedInPlace.begin(), expectedInPlace.end(), inPlace.Data()));
        }
    }
}

TEST(PixelKernels, ServeGridsThatNoCreateFunctionMakes) {
    std::mt19937_64 random(24);
    const PixelScale scale = {{40000, 30000, 65535}, {100, 0, 0}};
    const struct {
        const char* what;
        void (*change)(PixelTable*);
    } rows[] = {
        {"an index that wraps", [](PixelTable* table) { table->indexMask = 7; }},
        {"nodes closer together than the indices reach", [](PixelTable* table) { table->gridSize = 9; }},
        {"a cell wider than 16 bits", [](PixelTable* table) { table->cellSize += 65536; }},
        {"fractions larger than a cell", [](PixelTable* table) { table->fractionMask = 0xFFFF; }},
        {"cells that overlap",
         [](PixelTable* table) {
             table->cellSize *= 2;
             table->fractionMask = table->cellSize - 1;
         }},
    };
    constexpr size_t kCount = 500;
    const Words pixels = Pixels(random, scale, kCount);
    Bytes small(4 * kCount);
    for (uint8_t& byte : small) byte = static_cast<uint8_t>(random());
    for (const auto& row : rows) {
        WordGrid words(random, 4, scale);
        ByteGrid bytes(random, 4, scale);
        row.change(&words.table);
        row.change(&bytes.table);
        for (const PixelKernels* set : Sets()) {
            SCOPED_TRACE(std::string(NameOf(set->set)) + ", " + row.what);
            const auto run = [&](const PixelKernels& kernels) {
                Words out(3 * 4 * kCount);
                kernels.pixel16ToDevice16(&words.table, pixels.data(), out.data(), kCount);
                kernels.device16ToPixel16(&words.table, pixels.data(), out.data() + 4 * kCount, kCount);
                kernels.device8ToPixel16(&words.table, small.data(), out.data() + 8 * kCount, kCount);
                Bytes outBytes(5 * kCount);
                kernels.pixel16ToPixel8(&words.table, pixels.data(), outBytes.data(), kCount);
                kernels.pixel16ToUInt8(&bytes.table, pixels.data(), outBytes.data() + 4 * kCount, kCount);
                return std::pair(out, outBytes);
            };
            EXPECT_TRUE(run(*set) == run(kPlainPixelKernels));
        }
    }
}

}  // namespace
