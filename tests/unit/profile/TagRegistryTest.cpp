// The program is linked so that the making and the use of serial queues pass through here.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/Dispatch.h"
#include "profile/TagRegistry.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/StringText.h"

namespace {

std::atomic<int> sQueues = 0;
std::atomic<int> sLookups = 0;
std::string sQueueName;
dispatch_queue_t sQueue;

}  // namespace

extern "C" {

dispatch_queue_t __real_dispatch_queue_create(const char* label, dispatch_queue_attr_t attribute);
dispatch_queue_t __wrap_dispatch_queue_create(const char* label, dispatch_queue_attr_t attribute);
void __real_dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
void __wrap_dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work);

dispatch_queue_t __wrap_dispatch_queue_create(const char* label, dispatch_queue_attr_t attribute) {
    ++sQueues;
    EXPECT_EQ(attribute, DISPATCH_QUEUE_SERIAL);
    sQueueName = label;
    sQueue = __real_dispatch_queue_create(label, attribute);
    return sQueue;
}

void __wrap_dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
    ++sLookups;
    EXPECT_EQ(queue, sQueue);
    __real_dispatch_sync_f(queue, context, work);
}

}  // extern "C"

namespace {

TEST(TagRegistry, EveryLookupPassesThroughOneSerialQueue) {
    for (const char* signature : {"wtpt", "wtpt", "rXYZ", "wtpt"}) {
        const int before = sLookups;
        TagKey(Code(signature));
        EXPECT_EQ(sLookups, before + 1);
    }
    EXPECT_EQ(sQueues, 1);
    EXPECT_EQ(sQueueName, "ICC Profile Tag Registry");
}

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
    EXPECT_EQ(sQueues, 1);
}

}  // namespace
