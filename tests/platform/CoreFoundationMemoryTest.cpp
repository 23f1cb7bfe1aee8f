// Nothing may be raised through a C entry point: every call is made again and again, each time with one allocation fewer than it needs.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <limits>
#include <new>

#include "platform/Dispatch.h"
#include "tests/fixtures/StringText.h"

// The sanitizers stop the program at an absurd size, where the system's own functions fail.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options();
const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options();
const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

/// Allocations of this thread that still succeed; negative: all of them.
thread_local int allocationsLeft = -1;

void* Allocate(std::size_t size) {
    if (allocationsLeft == 0) return nullptr;
    if (allocationsLeft > 0) --allocationsLeft;
    return std::malloc(size > 0 ? size : 1);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    if (void* block = Allocate(size)) return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace {

constexpr CFIndex kAbsurd = CFIndex{1} << 62;

struct CreateRow {
    const char* what;
    std::function<CFTypeRef()> create;
    /// The fewest allocations that the call makes by operator new.
    int least;
};

/// Calls it with 0, 1, 2 ... allocations until it succeeds, and returns with how many that was.
int AllocationsNeeded(const std::function<CFTypeRef()>& create) {
    for (int allowed = 0; allowed < 1000; ++allowed) {
        allocationsLeft = allowed;
        const CFTypeRef object = create();
        allocationsLeft = -1;
        if (object) {
            CFRelease(object);
            return allowed;
        }
    }
    return -1;
}

TEST(CoreFoundationMemory, ACreateCallWithoutMemoryGivesNull) {
    const Owned<CFStringRef> path = NewString("/some folder/with a name that is longer than a short text");
    const Owned<CFURLRef> url(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path.Get(), kCFURLPOSIXPathStyle, true));
    const void* keys[] = {CFSTR("a"), CFSTR("b"), kCFErrorLocalizedFailureReasonKey};
    const void* values[] = {path.Get(), path.Get(), path.Get()};
    const Owned<CFDictionaryRef> dictionary(
        CFDictionaryCreate(kCFAllocatorDefault, keys, values, 3, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    const Owned<CFErrorRef> error(CFErrorCreate(kCFAllocatorDefault, CFSTR("domain"), 1, dictionary.Get()));
    const SInt32 integer = 5;
    const CreateRow rows[] = {
        {"string", [] { return CFStringCreateWithCString(kCFAllocatorDefault, "a text that is not short", kCFStringEncodingUTF8); }, 2},
        {"part of a string",
         [&] {
             return CFStringCreateWithSubstring(kCFAllocatorDefault, path.Get(), {0, 5});
         },
         1},
        {"pieces of a string", [&] { return CFStringCreateArrayBySeparatingStrings(kCFAllocatorDefault, path.Get(), CFSTR(" ")); }, 6},
        {"number", [&] { return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &integer); }, 1},
        {"data", [] { return CFDataCreate(kCFAllocatorDefault, nullptr, 0); }, 1},
        {"changeable data", [] { return CFDataCreateMutable(kCFAllocatorDefault, 0); }, 1},
        {"array", [&] { return CFArrayCreate(kCFAllocatorDefault, values, 3, &kCFTypeArrayCallBacks); }, 2},
        {"dictionary",
         [&] { return CFDictionaryCreate(kCFAllocatorDefault, keys, values, 3, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks); },
         4},
        {"URL from a path", [&] { return CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path.Get(), kCFURLPOSIXPathStyle, false); }, 3},
        {"URL from text", [&] { return CFURLCreateWithString(kCFAllocatorDefault, CFURLGetString(url.Get()), nullptr); }, 3},
        {"longer URL", [&] { return CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, url.Get(), CFSTR("a"), false); }, 3},
        {"error", [&] { return CFErrorCreate(kCFAllocatorDefault, CFSTR("domain"), 1, dictionary.Get()); }, 5},
        {"description of an error", [&] { return CFErrorCopyDescription(error.Get()); }, 2},
    };
    for (const CreateRow& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_GE(AllocationsNeeded(row.create), row.least);
    }
}

TEST(CoreFoundationMemory, AConstantStringCanBeMadeLater) {
    int allowed = 0;
    for (CFStringRef string = nullptr; !string; ++allowed) {
        ASSERT_LT(allowed, 1000);
        allocationsLeft = allowed;
        string = CFSTR("a constant that is made under hard conditions");
        allocationsLeft = -1;
    }
    EXPECT_GT(allowed, 3);
    EXPECT_EQ(Text(CFSTR("a constant that is made under hard conditions")), "a constant that is made under hard conditions");
}

TEST(CoreFoundationMemory, AChangeWithoutMemoryDoesNotTakePlace) {
    const Owned<CFStringRef> key = NewString("key");
    const Owned<CFStringRef> value = NewString("value");
    const Owned<CFMutableArrayRef> array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    const Owned<CFMutableDictionaryRef> dictionary(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    allocationsLeft = 0;
    CFArrayAppendValue(array.Get(), value.Get());
    CFDictionarySetValue(dictionary.Get(), key.Get(), value.Get());
    allocationsLeft = -1;
    EXPECT_EQ(CFArrayGetCount(array.Get()), 0);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 0);
    EXPECT_EQ(CFGetRetainCount(key.Get()), 1);
    EXPECT_EQ(CFGetRetainCount(value.Get()), 1);
}

TEST(CoreFoundationMemory, AReadingWithoutMemoryFails) {
    const Owned<CFStringRef> number = NewString("   1.2345678901234567890123456789");
    char buffer[64];
    allocationsLeft = 0;
    const bool written = CFStringGetCString(number.Get(), buffer, sizeof buffer, kCFStringEncodingUTF8);
    const double value = CFStringGetDoubleValue(number.Get());
    allocationsLeft = -1;
    EXPECT_FALSE(written);
    EXPECT_EQ(value, 0.0);
}

TEST(CoreFoundationMemory, AQueueWithoutMemoryIsNull) {
    allocationsLeft = 0;
    const dispatch_queue_t queue = dispatch_queue_create("queue", DISPATCH_QUEUE_SERIAL);
    allocationsLeft = -1;
    EXPECT_EQ(queue, nullptr);
}

TEST(CoreFoundationMemory, AbsurdSizesAreRefused) {
    const UInt8 bytes[1] = {};
    const UniChar units[1] = {};
    const void* values[1] = {};
    for (const CFIndex size : {kAbsurd, std::numeric_limits<CFIndex>::max(), CFIndex{-1}, std::numeric_limits<CFIndex>::min()}) {
        EXPECT_EQ(CFDataCreate(kCFAllocatorDefault, bytes, size), nullptr) << size;
        EXPECT_EQ(CFDataCreateMutable(kCFAllocatorDefault, size), nullptr) << size;
        EXPECT_EQ(CFStringCreateWithBytes(kCFAllocatorDefault, bytes, size, kCFStringEncodingUTF8, false), nullptr) << size;
        EXPECT_EQ(CFStringCreateWithCharacters(kCFAllocatorDefault, units, size), nullptr) << size;
        EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, values, size, nullptr), nullptr) << size;
        EXPECT_EQ(CFDictionaryCreate(kCFAllocatorDefault, values, values, size, nullptr, nullptr), nullptr) << size;
    }
}

TEST(CoreFoundationMemory, DataThatCannotGrowStaysAsItIs) {
    const Owned<CFMutableDataRef> data(CFDataCreateMutable(kCFAllocatorDefault, 0));
    CFDataSetLength(data.Get(), 3);
    CFDataGetMutableBytePtr(data.Get())[2] = 7;
    for (const CFIndex size : {kAbsurd, std::numeric_limits<CFIndex>::max(), CFIndex{-1}}) {
        CFDataSetLength(data.Get(), size);
        EXPECT_EQ(CFDataGetLength(data.Get()), 3);
        EXPECT_EQ(CFDataGetBytePtr(data.Get())[2], 7);
    }
}

}  // namespace
