#include <gtest/gtest.h>

#include "platform/linux/Carbon/CarbonResourceFork.h"
#include "tests/fixtures/GuardedBytes.h"
#include "tests/fixtures/ResourceForkBytes.h"

namespace {

using F = SmallForkFields;

/// Parses a fork whose map ends at an inaccessible page.
std::optional<std::vector<platform::ForkResource>> Parse(const ForkBytes& fork) {
    if (fork.size() < platform::kForkHeaderSize) return std::nullopt;
    const auto header = platform::ParseForkHeader(fork.data(), fork.size());
    if (!header) return std::nullopt;
    const GuardedBytes map({fork.data() + header->mapOffset, header->mapLength});
    return platform::ParseForkMap(map.Data(), map.Length(), header->dataLength);
}

TEST(ResourceForkParser, ReadsEveryReference) {
    const auto resources = Parse(SmallFork());
    ASSERT_TRUE(resources);
    ASSERT_EQ(resources->size(), 3U);
    EXPECT_EQ((*resources)[0].type, 0x41424344U);
    EXPECT_EQ((*resources)[0].name, "one");
    EXPECT_EQ((*resources)[1].id, 129);
    EXPECT_EQ((*resources)[2].id, -1);
    EXPECT_EQ((*resources)[2].offset, 13U);
}

TEST(ResourceForkParser, NeverLooksOutsideADamagedMap) {
    int whole = 0, damaged = 0;
    ForEachDamage(SmallFork(), [&](const ForkBytes& fork) { ++(Parse(fork) ? whole : damaged); });
    EXPECT_GT(whole, 1000);
    EXPECT_GT(damaged, 1000);
}

TEST(ResourceForkParser, RefusesListsThatLieOverEachOther) {
    // 3000 types that all name one list of 3000 references: far more resources than the map has bytes.
    ForkBytes map(28);
    PutNumber(map, 24, 28, 2);
    AppendNumber(map, 2999, 2);
    for (int i = 0; i < 3000; ++i) {
        AppendText(map, "ABCD");
        AppendNumber(map, 2999, 2);
        AppendNumber(map, 2 + 8 * 3000, 2);
    }
    PutNumber(map, 26, static_cast<std::uint32_t>(map.size()), 2);
    for (int i = 0; i < 3000; ++i) {
        AppendNumber(map, 0x0080FFFF, 4);
        AppendNumber(map, 0, 4);
        AppendNumber(map, 0, 4);
    }
    EXPECT_FALSE(platform::ParseForkMap(map.data(), map.size(), 100));
}

TEST(ResourceForkParser, ReadsWhatTheBuilderWrote) {
    std::vector<platform::ForkResource> resources;
    for (std::int16_t i = 0; i < 100; ++i) {
        platform::ForkResource resource;
        resource.type = 1000U + static_cast<std::uint32_t>(i % 7);
        resource.id = i;
        resource.attributes = static_cast<std::uint8_t>(i);
        resource.name = std::string(static_cast<std::size_t>(i % 3), 'n');
        resource.data = std::string(static_cast<std::size_t>(i), 'd');
        resources.push_back(resource);
    }
    const auto fork = platform::BuildFork(resources);
    ASSERT_TRUE(fork);
    const ForkBytes bytes(fork->begin(), fork->end());
    const auto read = Parse(bytes);
    ASSERT_TRUE(read);
    ASSERT_EQ(read->size(), resources.size());
    for (const platform::ForkResource& resource : *read) {
        const platform::ForkResource& original = resources[static_cast<std::size_t>(resource.id)];
        EXPECT_EQ(resource.type, original.type);
        EXPECT_EQ(resource.attributes, original.attributes);
        EXPECT_EQ(resource.name, original.name);
        const std::size_t start = 256 + resource.offset;
        EXPECT_EQ(fork->substr(start, 4 + original.data.size()), std::string("\0\0\0", 3) + static_cast<char>(original.data.size()) + original.data);
    }
}

TEST(ResourceForkParser, RefusesMoreThanTheOffsetsCanTell) {
    platform::ForkResource resource;
    std::vector<platform::ForkResource> resources(5457, resource);
    EXPECT_TRUE(platform::BuildFork(resources)) << "28 + 10 + 5457 * 12 = 65522";
    resources.resize(5459);
    EXPECT_FALSE(platform::BuildFork(resources)) << "names past 65535";
    resource.data = std::string((1 << 24) - 256 - 4 - 1, 'x');
    EXPECT_TRUE(platform::BuildFork({resource})) << "a map at 0xFFFFFF";
    resource.data += 'x';
    EXPECT_FALSE(platform::BuildFork({resource})) << "a map at 0x1000000";
    resource.data.clear();
    resource.name = std::string(256, 'n');
    EXPECT_FALSE(platform::BuildFork({resource})) << "a name of 256 bytes";
}

}  // namespace
