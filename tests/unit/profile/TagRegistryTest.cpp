#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "profile/TagRegistry.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/StringText.h"

namespace {

TEST(TagRegistry, KeysAreTheFourCharacters) {
    EXPECT_EQ(Text(TagKey(0x77747074)), "wtpt");
    EXPECT_EQ(Text(TagKey(0x58595A20)), "XYZ ");
    EXPECT_EQ(Text(TagKey(Code("\x01\x02\x03\x7F"))), "\x01\x02\x03\x7F");
}

TEST(TagRegistry, AKeyIsMadeOnce) {
    CFStringRef key = TagKey(Code("once"));
    const CFIndex count = CFGetRetainCount(key);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(TagKey(Code("once")), key);
    EXPECT_EQ(CFGetRetainCount(key), count);
}

TEST(TagRegistry, SignaturesOutsideASCIIHaveNoKey) {
    EXPECT_EQ(TagKey(0x80000000), nullptr);
    EXPECT_EQ(TagKey(0x776474FF), nullptr);
}

TEST(TagRegistry, ThreadsAgreeOnTheKeys) {
    constexpr std::uint32_t kSignatures = 200;
    constexpr std::size_t kThreads = 8;
    std::vector<std::vector<CFStringRef>> seen(kThreads, std::vector<CFStringRef>(kSignatures));
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&seen, t] {
            for (std::uint32_t i = 0; i < kSignatures; ++i) {
                const std::uint32_t index = t % 2 ? i : kSignatures - 1 - i;
                seen[t][index] = TagKey(0x41414141 + (index / 20 << 8) + index % 20);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (std::uint32_t i = 0; i < kSignatures; ++i) {
        ASSERT_NE(seen[0][i], nullptr);
        for (std::size_t t = 1; t < kThreads; ++t) ASSERT_EQ(seen[t][i], seen[0][i]) << i;
        for (std::uint32_t j = 0; j < i; ++j) ASSERT_NE(seen[0][i], seen[0][j]);
    }
}

}  // namespace
