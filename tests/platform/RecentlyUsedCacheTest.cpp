#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/RecentlyUsedCache.h"

namespace {

using Cache = RecentlyUsedCache<int, std::string>;

/// The keys of `asked` that are found, in the order asked; asking counts as use.
std::vector<int> Found(Cache* cache, const std::vector<int>& asked) {
    std::vector<int> found;
    for (const int key : asked) {
        if (cache->Find(key)) found.push_back(key);
    }
    return found;
}

using Keys = std::vector<int>;

TEST(RecentlyUsedCache, AnswersWithWhatWasAdded) {
    Cache cache(4, 100);
    EXPECT_FALSE(cache.Find(1));
    cache.Add(1, "one", 10);
    cache.Add(2, "two", 10);
    EXPECT_EQ(cache.Find(1), "one");
    EXPECT_EQ(cache.Find(2), "two");
    EXPECT_FALSE(cache.Find(3));
}

TEST(RecentlyUsedCache, ANewValueStandsInPlaceOfTheOldOneAndOfItsCost) {
    Cache cache(4, 100);
    cache.Add(1, "one", 60);
    cache.Add(1, "uno", 60);
    cache.Add(2, "two", 40);
    EXPECT_EQ(cache.Find(1), "uno");
    EXPECT_EQ(cache.Find(2), "two");
}

TEST(RecentlyUsedCache, WhatWasUsedLongestAgoMakesRoomForNumbers) {
    Cache cache(3, 100);
    for (const int key : {1, 2, 3}) cache.Add(key, "", 1);
    cache.Find(1);
    cache.Add(4, "", 1);
    EXPECT_EQ(Found(&cache, {1, 2, 3, 4}), (Keys{1, 3, 4}));
    cache.Add(5, "", 1);
    EXPECT_EQ(Found(&cache, {1, 3, 4, 5}), (Keys{3, 4, 5}));
}

TEST(RecentlyUsedCache, WhatWasUsedLongestAgoMakesRoomForCosts) {
    Cache cache(10, 100);
    cache.Add(1, "", 40);
    cache.Add(2, "", 40);
    cache.Add(3, "", 20);
    EXPECT_EQ(Found(&cache, {1, 2, 3}), (Keys{1, 2, 3}));
    cache.Add(4, "", 41);
    EXPECT_EQ(Found(&cache, {1, 2, 3, 4}), (Keys{3, 4}));
    cache.Add(5, "", 100);
    EXPECT_EQ(Found(&cache, {3, 4, 5}), (Keys{5}));
}

TEST(RecentlyUsedCache, AValueThatCostsTooMuchIsNotTakenAndNothingGoesForIt) {
    Cache cache(10, 100);
    cache.Add(1, "one", 100);
    cache.Add(2, "two", 101);
    EXPECT_EQ(Found(&cache, {1, 2}), (Keys{1}));
    cache.Add(1, "uno", 101);
    EXPECT_EQ(cache.Find(1), "one");
    Cache none(0, 100);
    none.Add(1, "one", 1);
    EXPECT_FALSE(none.Find(1));
}

TEST(RecentlyUsedCache, AValueInUseOutlivesItsPlace) {
    RecentlyUsedCache<int, std::shared_ptr<int>> cache(1, 10);
    cache.Add(1, std::make_shared<int>(7), 1);
    const std::shared_ptr<int> used = *cache.Find(1);
    EXPECT_EQ(used.use_count(), 2);
    cache.Add(2, std::make_shared<int>(8), 1);
    EXPECT_EQ(used.use_count(), 1);
    EXPECT_EQ(*used, 7);
}

TEST(RecentlyUsedCache, ManyThreadsGetTheValueOfTheirKeyOrNone) {
    RecentlyUsedCache<int, std::shared_ptr<const int>> cache(5, 50);
    std::vector<std::thread> threads;
    std::vector<int> wrong(4), found(4);
    for (std::size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 5000; ++i) {
                const int key = i / 2 * (static_cast<int>(t) + 3) % 9;  // each twice in a row
                if (const auto value = cache.Find(key)) {
                    ++found[t];
                    if (**value != key) ++wrong[t];
                } else {
                    cache.Add(key, std::make_shared<const int>(key), static_cast<std::size_t>(1 + key));
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (std::size_t t = 0; t < 4; ++t) {
        EXPECT_EQ(wrong[t], 0);
        EXPECT_GT(found[t], 0);
    }
}

}  // namespace
