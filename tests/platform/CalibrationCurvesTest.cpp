#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "platform/CalibrationCurves.h"
#include "tests/fixtures/GuardedBytes.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using platform::CalibrationCurves;

void Put(Bytes* bytes, std::uint32_t value, int width) {
    for (int i = width - 1; i >= 0; --i) bytes->push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

Bytes Tag(std::uint32_t kind) {
    Bytes tag;
    for (const std::uint32_t word : {0x76636774U, 0U, kind}) Put(&tag, word, 4);
    return tag;
}

Bytes Table(std::uint32_t channels, std::uint32_t entries, std::uint32_t width, const std::vector<std::uint32_t>& values) {
    Bytes tag = Tag(0);
    for (const std::uint32_t field : {channels, entries, width}) Put(&tag, field, 2);
    for (const std::uint32_t value : values) Put(&tag, value, static_cast<int>(width));
    return tag;
}

Bytes Formulae(const std::vector<double>& numbers) {
    Bytes tag = Tag(1);
    for (const double number : numbers) Put(&tag, static_cast<std::uint32_t>(static_cast<std::int32_t>(std::lround(number * 65536))), 4);
    return tag;
}

std::optional<CalibrationCurves> Read(const Bytes& tag) {
    return CalibrationCurves::Read(tag.data(), tag.size());
}

TEST(CalibrationCurves, AreStraightBetweenTheEntriesOfTables) {
    const auto curves = Read(Table(3, 3, 2, {0, 0x8000, 0xFFFF, 100, 200, 300, 0xFFFF, 0, 0}));
    ASSERT_TRUE(curves);
    const struct {
        int channel;
        double place, value;
    } rows[] = {{0, 0, 0}, {0, 0.25, 0x4000}, {0, 0.5, 0x8000}, {0, 1, 0xFFFF}, {1, 0.75, 250}, {2, 0, 0xFFFF}, {2, 0.25, 32767.5}, {2, 1, 0}};
    for (const auto& row : rows) EXPECT_NEAR(curves->ValueAt(row.channel, row.place) * 65535, row.value, 1e-6) << row.channel << " " << row.place;
}

TEST(CalibrationCurves, OfOneChannelServeAllThree) {
    for (const int width : {1, 2}) {
        const double full = width == 1 ? 255 : 65535;
        const auto curves = Read(Table(1, 3, static_cast<std::uint32_t>(width), {10, 50, 200}));
        ASSERT_TRUE(curves);
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(curves->ValueAt(c, 0.0), 10 / full, 1e-9) << c;
            EXPECT_NEAR(curves->ValueAt(c, 0.5), 50 / full, 1e-9) << c;
            EXPECT_NEAR(curves->ValueAt(c, 1.0), 200 / full, 1e-9) << c;
        }
    }
}

TEST(CalibrationCurves, OfFormulaeArePowersBetweenTheirEnds) {
    const auto curves = Read(Formulae({2.0, 0.25, 0.75, 1.0, 0.0, 1.0, 1.0, 1.0, 0.0}));
    ASSERT_TRUE(curves);
    EXPECT_NEAR(curves->ValueAt(0, 0.0), 0.25, 1e-9);
    EXPECT_NEAR(curves->ValueAt(0, 0.5), 0.25 + 0.5 * 0.25, 1e-9);
    EXPECT_NEAR(curves->ValueAt(0, 1.0), 0.75, 1e-9);
    EXPECT_NEAR(curves->ValueAt(1, 0.3), 0.3, 1e-9);
    EXPECT_EQ(curves->ValueAt(2, 0.0), 1.0) << "falling";
    EXPECT_EQ(curves->ValueAt(2, 1.0), 0.0) << "falling";
}

TEST(CalibrationCurves, OfWordsThatAreCalledBytesAreRead) {
    std::vector<std::uint32_t> words;
    for (std::uint32_t i = 0; i < 768; ++i) words.push_back(i * 80);
    Bytes tag = Table(3, 256, 2, words);
    tag[17] = 1;
    tag.resize(1584);
    const auto curves = Read(tag);
    ASSERT_TRUE(curves);
    EXPECT_NEAR(curves->ValueAt(2, 1.0) * 65535, 767 * 80, 1e-6);
}

TEST(CalibrationCurves, AreNoneInWhatIsNotWhole) {
    const Bytes table = Table(3, 2, 2, {1, 2, 3, 4, 5, 6}), formulae = Formulae({1, 0, 1, 1, 0, 1, 1, 0, 1});
    for (const Bytes& whole : {table, formulae}) {
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const GuardedBytes bytes(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
            EXPECT_FALSE(CalibrationCurves::Read(bytes.Data(), size)) << size;
        }
        EXPECT_TRUE(Read(whole));
    }
    const struct {
        const char* what;
        Bytes tag;
    } rows[] = {
        {"no channel", Table(0, 2, 2, {1, 2})},
        {"two channels", Table(2, 2, 2, {1, 2, 3, 4})},
        {"four channels", Table(4, 2, 2, {1, 2, 3, 4, 5, 6, 7, 8})},
        {"one entry", Table(3, 1, 2, {1, 2, 3})},
        {"no entry", Table(3, 0, 2, {})},
        {"entries of no byte", Table(3, 2, 0, {})},
        {"entries of four bytes", Table(3, 2, 4, {1, 2, 3, 4, 5, 6})},
        {"the most of everything", Table(65535, 65535, 65535, {})},
        {"a gamma of 0", Formulae({1, 0, 1, 0, 0, 1, 1, 0, 1})},
        {"a negative gamma", Formulae({1, 0, 1, 1, 0, 1, -1, 0, 1})},
        {"an end below 0", Formulae({1, 0, 1, 1, -0.5, 1, 1, 0, 1})},
        {"an end above 1", Formulae({1, 0, 1.5, 1, 0, 1, 1, 0, 1})},
        {"a beginning above 1", Formulae({1, 1.5, 1, 1, 0, 1, 1, 0, 1})},
        {"another kind", Tag(2)},
        {"another tag", Bytes(64, 'x')},
    };
    for (const auto& row : rows) EXPECT_FALSE(Read(row.tag)) << row.what;
}

}  // namespace
