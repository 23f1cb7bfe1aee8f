#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <thread>

#include "platform/Carbon.h"
#include "tests/fixtures/TracedChild.h"

// A sanitizer's allocator ends the process where the system's answers null, unless told.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

TEST(Handle, HasTheAskedSizeAndRoomForIt) {
    for (const Size size : {Size{0}, Size{1}, Size{13}, Size{65536}}) {
        Handle handle = NewHandle(size);
        ASSERT_NE(handle, nullptr) << size;
        EXPECT_EQ(MemError(), 0);
        ASSERT_NE(*handle, nullptr) << "an empty block has an address too";
        std::memset(*handle, 0x5A, static_cast<std::size_t>(size));
        EXPECT_EQ(GetHandleSize(handle), size);
        EXPECT_EQ(MemError(), 0);
        DisposeHandle(handle);
        EXPECT_EQ(MemError(), 0);
    }
}

TEST(Handle, IsNullForSizesThatCannotBe) {
    for (const Size size : {Size{-1}, LONG_MIN, LONG_MAX}) {
        EXPECT_EQ(NewHandle(size), nullptr) << size;
        EXPECT_EQ(MemError(), -108) << size;
    }
}

TEST(Handle, NullHasANegativeSizeAndCanBeDisposedOf) {
    EXPECT_EQ(GetHandleSize(nullptr), -109);
    EXPECT_EQ(MemError(), -109);
    DisposeHandle(nullptr);
    EXPECT_EQ(MemError(), 0);
    HLock(nullptr);
    EXPECT_EQ(MemError(), -109);
    DisposeHandle(nullptr);
    HUnlock(nullptr);
    EXPECT_EQ(MemError(), -109);
}

TEST(Handle, StaysAtItsAddressWhileLocked) {
    Handle handle = NewHandle(100);
    ASSERT_NE(handle, nullptr);
    HLock(handle);
    EXPECT_EQ(MemError(), 0);
    const Ptr locked = *handle;
    Handle other = NewHandle(100000);
    EXPECT_EQ(*handle, locked);
    HUnlock(handle);
    EXPECT_EQ(MemError(), 0);
    DisposeHandle(other);
    DisposeHandle(handle);
}

TEST(HandToHand, ReplacesTheHandleByACopyOfItsOwn) {
    for (const Size size : {Size{0}, Size{5}}) {
        Handle original = NewHandle(size);
        ASSERT_NE(original, nullptr);
        std::memcpy(*original, "alias", static_cast<std::size_t>(size));
        Handle handle = original;
        EXPECT_EQ(HandToHand(&handle), 0);
        EXPECT_EQ(MemError(), 0);
        ASSERT_NE(handle, original);
        EXPECT_NE(*handle, *original);
        EXPECT_EQ(GetHandleSize(handle), size);
        std::memset(*original, 0, static_cast<std::size_t>(size));
        EXPECT_EQ(std::memcmp(*handle, "alias", static_cast<std::size_t>(size)), 0);
        DisposeHandle(original);
        DisposeHandle(handle);
    }
}

TEST(HandToHand, RefusesNull) {
    EXPECT_EQ(HandToHand(nullptr), -109);
    Handle none = nullptr;
    EXPECT_EQ(HandToHand(&none), -109);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(MemError(), -109);
}

TEST(HandToHand, LeavesTheHandleWhenThereIsNoMemory) {
    if (dlsym(RTLD_DEFAULT, "__asan_init") || dlsym(RTLD_DEFAULT, "__tsan_init"))
        GTEST_SKIP() << "a sanitizer's allocator ends the process when the system gives no more memory";
    // In a child: the limit on its address space cannot disturb the rest of the run.
    const TracedEnd end = RunTraced(
        [] {
            constexpr Size kSize = 256L << 20;
            Handle original = NewHandle(kSize);
            if (!original) return 1;
            long pages = 0;
            std::ifstream("/proc/self/statm") >> pages;
            const rlim_t used = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
            const rlimit limit = {used + (64UL << 20), used + (64UL << 20)};
            if (setrlimit(RLIMIT_AS, &limit) != 0) return 2;
            Handle handle = original;
            if (HandToHand(&handle) != -108) return 3;
            if (MemError() != -108) return 4;
            if (handle != original) return 5;
            return GetHandleSize(handle) == kSize ? 0 : 6;
        },
        false);
    EXPECT_EQ(end.status, 0);
}

TEST(MemError, BelongsToTheThread) {
    EXPECT_EQ(GetHandleSize(nullptr), -109);
    OSErr fresh = 1, own = 1;
    std::thread([&] {
        fresh = MemError();
        static_cast<void>(NewHandle(-1));
        own = MemError();
    }).join();
    EXPECT_EQ(fresh, 0);
    EXPECT_EQ(own, -108);
    EXPECT_EQ(MemError(), -109);
}

TEST(FixedBlock, HasTheAskedSizeAndFitsEveryType) {
    for (const Size size : {Size{0}, Size{1}, Size{4097}}) {
        Ptr block = NewPtr(size);
        ASSERT_NE(block, nullptr) << size;
        EXPECT_EQ(MemError(), 0);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0u);
        std::memset(block, 0x5A, static_cast<std::size_t>(size));
        EXPECT_EQ(GetPtrSize(block), size);
        DisposePtr(block);
        EXPECT_EQ(MemError(), 0);
    }
}

TEST(FixedBlock, IsNullForSizesThatCannotBe) {
    for (const Size size : {Size{-1}, LONG_MIN, LONG_MAX, LONG_MAX - 8}) {
        EXPECT_EQ(NewPtr(size), nullptr) << size;
        EXPECT_EQ(MemError(), -108) << size;
    }
    EXPECT_EQ(GetPtrSize(nullptr), -109);
    EXPECT_EQ(MemError(), -109);
    DisposePtr(nullptr);
    EXPECT_EQ(MemError(), 0);
}

TEST(Debugger, StopsInAnAttachedDebugger) {
    const TracedEnd end = RunTraced([] {
        Debugger();
        Debugger();
        return 7;
    });
    if (!end.traced) GTEST_SKIP() << "this system does not let a process be traced";
    EXPECT_EQ(end.stops, 2);
    EXPECT_EQ(end.status, 7);
}

TEST(Debugger, DoesNothingWhenNoneIsAttached) {
    const TracedEnd end = RunTraced(
        [] {
            Debugger();
            return 7;
        },
        false);
    EXPECT_EQ(end.stops, 0);
    EXPECT_EQ(end.status, 7);
}

// A trap there would end the process: the debugger does not see it.
TEST(Debugger, DoesNothingInAThreadThatTheDebuggerDoesNotTrace) {
    const TracedEnd end = RunTraced([] {
        std::thread(Debugger).join();
        return 7;
    });
    if (!end.traced) GTEST_SKIP() << "this system does not let a process be traced";
    EXPECT_EQ(end.stops, 0);
    EXPECT_EQ(end.status, 7);
}
