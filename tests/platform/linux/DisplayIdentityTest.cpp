#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

#include "platform/linux/Displays/DisplayIdentity.h"
#include "tests/fixtures/ChildProcess.h"

namespace {

using platform::Bytes;
using platform::Identifier;
using platform::IdentifiersOf;

/// A base block: maker DEL, product code A0C1; descriptors as given, one after the other.
Bytes Data(std::uint32_t serial, const std::vector<std::pair<std::uint8_t, std::string>>& descriptors = {}) {
    Bytes data(128, 0);
    const std::uint8_t head[] = {0, 255, 255, 255, 255, 255, 255, 0, 0x10, 0xAC, 0xC1, 0xA0};
    std::copy(std::begin(head), std::end(head), data.begin());
    for (std::size_t i = 0; i < 4; ++i) data[12 + i] = static_cast<std::uint8_t>(serial >> (8 * i));
    std::size_t at = 54;
    for (const auto& [kind, text] : descriptors) {
        data[at + 3] = kind;
        std::fill_n(data.begin() + static_cast<std::ptrdiff_t>(at) + 5, 13, std::uint8_t{' '});
        std::copy_n(text.begin(), std::min<std::size_t>(text.size(), 13), data.begin() + static_cast<std::ptrdiff_t>(at) + 5);
        at += 18;
    }
    return data;
}

TEST(DisplayIdentity, IsWhatTheDataSay) {
    const struct {
        const char* what;
        Bytes data;
        const char *make, *model, *serial;
    } rows[] = {
        {"no data", {}, "", "", ""},
        {"too little", Bytes(127, 0x20), "", "", ""},
        {"numbers alone", Data(4711), "DEL", "A0C1", "4711"},
        {"texts before numbers", Data(4711, {{0xFC, "DELL U2412M\n"}, {0xFF, "YMYH14\n"}}), "DEL", "DELL U2412M", "YMYH14"},
        {"texts of full length", Data(0, {{0xFF, "1234567890123"}, {0xFC, "abcdefghijklm"}}), "DEL", "abcdefghijklm", "1234567890123"},
        {"texts of blanks", Data(0, {{0xFF, " \n"}, {0xFC, "   "}}), "DEL", "A0C1", ""},
        {"unprintable letters", Data(0, {{0xFC, "a\x01\xFFz\n"}}), "DEL", "az", ""},
        {"fillings for a serial number", Data(0, {{0xFF, "000000\n"}}), "DEL", "A0C1", ""},
        {"ones", Data(0xFFFFFFFF), "DEL", "A0C1", ""},
        {"01", Data(0x01010101), "DEL", "A0C1", ""},
        {"the largest number", Data(0xFFFFFFFE), "DEL", "A0C1", "4294967294"},
    };
    for (const auto& row : rows) {
        const platform::Identification found = platform::ReadIdentification(row.data);
        EXPECT_EQ(found.make, row.make) << row.what;
        EXPECT_EQ(found.model, row.model) << row.what;
        EXPECT_EQ(found.serial, row.serial) << row.what;
    }
}

TEST(DisplayIdentity, WithASerialNumberIsTheSameAtEveryOutputAndWithEveryCompany) {
    const Identifier alone = IdentifiersOf({{"DP-1", Data(7)}})[0];
    EXPECT_EQ(IdentifiersOf({{"HDMI-2", Data(7)}})[0], alone);
    EXPECT_EQ(IdentifiersOf({{"DP-2", Data(8)}, {"DP-1", Data(7)}, {"DP-3", Data(0)}, {"DP-4", {}}})[1], alone);
}

TEST(DisplayIdentity, WithoutASerialNumberIsOfTheOutputAlways) {
    for (const Bytes& data : {Data(0), Data(0x01010101), Bytes()}) {
        const Identifier alone = IdentifiersOf({{"DP-1", data}})[0];
        EXPECT_NE(IdentifiersOf({{"DP-2", data}})[0], alone);
        const auto withTwin = IdentifiersOf({{"DP-0", data}, {"DP-1", data}, {"DP-2", data}});
        EXPECT_EQ(withTwin[1], alone);
        EXPECT_EQ(std::set<Identifier>(withTwin.begin(), withTwin.end()).size(), 3u);
    }
}

TEST(DisplayIdentity, OfEqualSerialsTheFirstByNameStaysAsItWas) {
    const Identifier alone = IdentifiersOf({{"DP-1", Data(7)}})[0];
    const Identifier other = IdentifiersOf({{"DP-3", Data(9)}})[0];
    for (const bool isTurned : {false, true}) {
        std::vector<platform::IdentifiedOutput> outputs = {{"DP-1", Data(7)}, {"DP-2", Data(7)}, {"DP-3", Data(9)}};
        if (isTurned) std::reverse(outputs.begin(), outputs.end());
        auto found = IdentifiersOf(outputs);
        if (isTurned) std::reverse(found.begin(), found.end());
        EXPECT_EQ(found[0], alone);
        EXPECT_NE(found[1], alone);
        EXPECT_EQ(found[2], other) << "of another display";
    }
}

TEST(DisplayIdentity, OfEqualSerialsKeepWhatTheyHadWhereverATwinComes) {
    const platform::IdentifiedOutput first = {"DP-1", Data(7)}, second = {"DP-2", Data(7)}, third = {"DP-3", Data(7)};
    const Identifier alone = IdentifiersOf({second})[0];
    // The twin comes by a name that sorts before.
    std::map<std::string, Identifier> before = {{"DP-2", alone}};
    const auto both = IdentifiersOf({first, second}, before);
    EXPECT_EQ(both[1], alone);
    EXPECT_NE(both[0], alone);
    // And stays what it is when the other goes, comes back, or comes elsewhere.
    before = {{"DP-1", both[0]}, {"DP-2", alone}};
    EXPECT_EQ(IdentifiersOf({first}, before)[0], both[0]);
    EXPECT_EQ(IdentifiersOf({first, second}, before), both);
    EXPECT_EQ(IdentifiersOf({first, third}, before), (std::vector<Identifier>{both[0], alone}));
    // What was known of another display at that output does not count, nor does the same identifier twice.
    EXPECT_EQ(IdentifiersOf({first}, {{"DP-1", IdentifiersOf({{"DP-1", Data(8)}})[0]}})[0], alone);
    EXPECT_EQ(IdentifiersOf({first, second}, {{"DP-1", alone}, {"DP-2", alone}})[0], alone);
    EXPECT_NE(IdentifiersOf({first, second}, {{"DP-1", alone}, {"DP-2", alone}})[1], alone);
}

std::string Digits(const Identifier& identifier) {
    std::string digits;
    for (const std::uint8_t byte : identifier) {
        char text[3];
        std::snprintf(text, sizeof text, "%02x", byte);
        digits += text;
    }
    return digits;
}

TEST(DisplayIdentity, IsNotOfTheComputersName) {
    const auto find = [] { return Digits(IdentifiersOf({{"DP-1", Data(0)}})[0]); };
    const auto findEarlier = [] { return Digits(platform::EarlierIdentifier({"DP-1", Data(0)}, {})); };
    const auto renamed = [](const auto& work) {
        return InAChild([&]() -> std::string {
            const bool isRenamed = unshare(CLONE_NEWUTS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWUTS) == 0;
            if (!isRenamed || sethostname("renamed", 7) != 0) return "";
            return work();
        });
    };
    const std::string there = renamed(find), earlierThere = renamed(findEarlier);
    if (there.empty()) GTEST_SKIP() << "no computer can be renamed here";
    EXPECT_EQ(there, find());
    EXPECT_NE(earlierThere, findEarlier()) << "by which older documents know it";
}

TEST(DisplayIdentity, NumbersOfDisplaysAreNoneOfAServer) {
    for (const int first : {0x00, 0x7F, 0x80, 0xFF}) {
        Identifier identifier{};
        identifier[0] = static_cast<std::uint8_t>(first);
        EXPECT_TRUE(platform::IsDerived(platform::DisplayOfIdentifier(identifier)));
    }
    EXPECT_FALSE(platform::IsDerived(0x1FFFFFFF)) << "the largest that an X server gives";
}

}  // namespace
