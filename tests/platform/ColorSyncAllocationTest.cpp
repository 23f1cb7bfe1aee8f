#include <gtest/gtest.h>

#include <atomic>

#include "tests/fixtures/Transforms.h"

/// The whole program's malloc counts, for the libraries under the transforms as well. Not for sanitised builds, which have their own.

namespace {

std::atomic<std::size_t> gTaken = 0;

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
    ++gTaken;
    return __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
    ++gTaken;
    return __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) {
    ++gTaken;
    return __libc_realloc(block, size);
}
__attribute__((visibility("default"))) void* aligned_alloc(std::size_t alignment, std::size_t size) {
    ++gTaken;
    return __libc_memalign(alignment, size);
}

}  // extern "C"

namespace {

template <typename Work>
std::size_t AllocationsDuring(Work work) {
    const std::size_t before = gTaken;
    work();
    return gTaken - before;
}

constexpr std::size_t kCount = 1000;

struct Conversion {
    const char* what;
    ColorSyncDataDepth toDepth, fromDepth;
    ColorSyncDataLayout toLayout, fromLayout;
};

void Convert(ColorSyncTransformRef transform, const Conversion& conversion) {
    static uint16_t source[4 * kCount], destination[4 * kCount];
    const bool toGamut = conversion.toDepth == kColorSync1BitGamut;
    ASSERT_TRUE(ColorSyncTransformConvert(transform, kCount, 1, destination, conversion.toDepth, conversion.toLayout,
                                          toGamut ? kCount / 8 : 8 * kCount, source, conversion.fromDepth, conversion.fromLayout, 8 * kCount,
                                          nullptr));
}

constexpr auto k16 = kColorSync16BitInteger, k8 = kColorSync8BitInteger;
constexpr auto kNone = kCGImageAlphaNone, kLast = kCGImageAlphaLast, kFirst = kCGImageAlphaFirst, kSkipLast = kCGImageAlphaNoneSkipLast;

TEST(ColorSyncAllocationTest, CountsWhatTheEngineTakes) {
    const Owned<ColorSyncProfileRef> reference = OpenProfile(kReferenceProfile);
    EXPECT_GT(AllocationsDuring([&] { AbsoluteTransform({reference.Get(), reference.Get()}); }), 100u);
}

TEST(ColorSyncAllocationTest, TheSystemsOwnConversionsTakeNothingNotEvenTheFirst) {
    const Owned<ColorSyncProfileRef> reference = OpenProfile(kReferenceProfile);
    const Owned<ColorSyncProfileRef> cmyk = OpenProfile(PrinterNamed("fogra39l").path);
    const Owned<ColorSyncProfileRef> rgb = OpenProfile(PrinterNamed("rgb_printer").path);
    const struct {
        Owned<ColorSyncTransformRef> transform;
        std::vector<Conversion> conversions;
    } rows[] = {
        {AbsoluteTransform({reference.Get(), cmyk.Get()}),
         {{"CMYK match 16", k16, k16, kNone, kSkipLast},
          {"CMYK match 8", k8, k16, kNone, kSkipLast},
          {"CMYK gamut", kColorSync1BitGamut, k16, kNone, kSkipLast}}},
        {AbsoluteTransform({cmyk.Get(), reference.Get()}),
         {{"CMYK predict 16", k16, k16, kSkipLast, kNone}, {"CMYK predict 8", k16, k8, kSkipLast, kNone}}},
        {AbsoluteTransform({reference.Get(), cmyk.Get(), rgb.Get()}),
         {{"RGB match 16", k16, k16, kLast, kSkipLast},
          {"RGB match 8", k8, k16, kFirst, kSkipLast},
          {"RGB gamut", kColorSync1BitGamut, k16, kNone, kSkipLast}}},
        {AbsoluteTransform({rgb.Get(), reference.Get()}),
         {{"RGB predict 16", k16, k16, kSkipLast, kLast}, {"RGB predict 8", k16, k8, kSkipLast, kFirst}}},
        {AbsoluteTransform({reference.Get(), cmyk.Get(), reference.Get()}), {{"proof", k16, k16, kSkipLast, kSkipLast}}},
    };
    for (const auto& row : rows) {
        for (const Conversion& conversion : row.conversions) {
            EXPECT_EQ(AllocationsDuring([&] { Convert(row.transform.Get(), conversion); }), 0u) << conversion.what;
        }
    }
}

TEST(ColorSyncAllocationTest, OtherConversionsTakeNothingAfterTheFirst) {
    const Owned<ColorSyncProfileRef> reference = OpenProfile(kReferenceProfile);
    const Owned<ColorSyncProfileRef> rgb = OpenProfile(PrinterNamed("rgb_printer").path);
    const Owned<ColorSyncTransformRef> transform = AbsoluteTransform({reference.Get(), rgb.Get()});
    for (const Conversion& conversion : {Conversion{"8 to 8", k8, k8, kNone, kFirst},
                                         {"8 to gamut", kColorSync1BitGamut, k8, kNone, kNone},
                                         {"16 first", k16, k16, kFirst, kFirst},
                                         {"plain 16 to 8", k8, k16, kNone, kNone}}) {
        EXPECT_GT(AllocationsDuring([&] { Convert(transform.Get(), conversion); }), 0u) << conversion.what;
        EXPECT_EQ(AllocationsDuring([&] { Convert(transform.Get(), conversion); }), 0u) << conversion.what;
    }
}

}  // namespace
