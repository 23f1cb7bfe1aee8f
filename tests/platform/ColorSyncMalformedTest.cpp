#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <random>

#include "tests/fixtures/GuardedBytes.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/Transforms.h"

/// Bytes that are no profile, or one that lies. They are read from in front of an inaccessible page.

namespace {

const Bytes kDisplay = MatrixMonitor(CurvTag({0, 20000, 65535})).Make();

struct Answer {
    Owned<ColorSyncProfileRef> profile;
    std::string reason;
};

Answer Open(const Bytes& bytes) {
    const GuardedBytes guarded(bytes);
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, guarded.Data(), static_cast<CFIndex>(guarded.Length())));
    CFErrorRef error = nullptr;
    Answer answer = {Owned<ColorSyncProfileRef>(ColorSyncProfileCreate(data.Get(), &error)), {}};
    const Owned<CFErrorRef> owned(error);
    EXPECT_NE(static_cast<bool>(answer.profile), static_cast<bool>(owned)) << "either a profile or an error";
    if (owned) {
        EXPECT_EQ(CFErrorGetCode(error), EINVAL);
        answer.reason = Text(Owned<CFStringRef>(CFErrorCopyDescription(error)));
    }
    return answer;
}

/// Uses a profile in every way there is. Whatever it answers, nothing is read or written outside.
int UseInEveryWay(const Bytes& bytes) {
    const Answer answer = Open(bytes);
    if (!answer.profile) return 0;
    const Owned<ColorSyncProfileRef> display = ProfileFrom(kDisplay);
    const Owned<CFStringRef> description(ColorSyncProfileCopyDescriptionString(answer.profile.Get()));
    const Owned<ColorSyncMutableProfileRef> copy(ColorSyncProfileCreateMutableCopy(answer.profile.Get()));
    ColorSyncProfileRemoveTag(copy.Get(), CFSTR("desc"));
    const Owned<CFDataRef> rewritten(ColorSyncProfileCopyData(copy.Get(), nullptr));
    int transforms = 0;
    for (const auto& chain : {std::vector{answer.profile.Get(), display.Get()}, std::vector{display.Get(), answer.profile.Get()},
                              std::vector{display.Get(), answer.profile.Get(), display.Get()}}) {
        const Owned<ColorSyncTransformRef> transform =
            chain.size() == 2 ? AbsoluteTransform({chain[0], chain[1]}) : AbsoluteTransform({chain[0], chain[1], chain[2]});
        if (!transform) continue;
        ++transforms;
        // More samples than any device has; only those of its pixels are used.
        const std::vector<uint16_t> source(16 * 16, 40000);
        std::vector<uint16_t> destination(16 * 16);
        EXPECT_TRUE(ColorSyncTransformConvert(transform.Get(), 16, 1, destination.data(), kColorSync16BitInteger, kCGImageAlphaNone, 32 * 16,
                                              source.data(), kColorSync16BitInteger, kCGImageAlphaNone, 32 * 16, nullptr));
        ColorSyncTransformConvert(transform.Get(), 16, 1, destination.data(), kColorSync1BitGamut, kCGImageAlphaNone, 2, source.data(),
                                  kColorSync16BitInteger, kCGImageAlphaNone, 32 * 16, nullptr);
    }
    return transforms;
}

Bytes Changed(const Bytes& bytes, std::size_t offset, std::uint32_t value) {
    Bytes changed = bytes;
    Put32(changed, offset, value);
    return changed;
}

constexpr std::size_t kCount = 128, kFirstOffset = 136, kFirstSize = 140;

TEST(MalformedProfileTest, IsRefusedWithTheReason) {
    const auto size = static_cast<std::uint32_t>(kDisplay.size());
    Bytes overlapping = kDisplay;
    for (std::uint32_t i = 0; i < 7; ++i) {
        Put32(overlapping, kFirstOffset + 12 * i, 216 + i);
        Put32(overlapping, kFirstSize + 12 * i, size - 216 - i);
    }
    Bytes manyTags(132 + 12 * 101, 0);
    std::copy_n(kDisplay.begin(), 128, manyTags.begin());
    Put32(manyTags, 0, static_cast<std::uint32_t>(manyTags.size()));
    Put32(manyTags, kCount, 101);
    struct {
        Bytes bytes;
        const char* reason;
    } const rows[] = {
        {{}, "0 bytes long"},
        {Bytes(131, 0), "131 bytes long"},
        {Changed(kDisplay, 36, Code("ACSP")), "signature"},
        {Bytes(200, 0), "signature"},
        {Changed(kDisplay, 0, size + 1), "there are"},
        {Changed(kDisplay, 0, 0xFFFFFFFF), "there are"},
        {Changed(kDisplay, 0, 0), "there are"},
        {Changed(kDisplay, 0, 131), "there are"},
        {Changed(kDisplay, 0, 132), "A table of 7 tags"},
        {Changed(kDisplay, kCount, 0xFFFFFFFF), "A table of 4294967295 tags"},
        {Changed(kDisplay, kCount, 0x15555556), "A table of"},  // times 12 is 8 in 32 bits
        {manyTags, "A table of 101 tags"},
        {Changed(kDisplay, kFirstOffset, size - 19), "Tag 0, 'wtpt', lies outside"},
        {Changed(kDisplay, kFirstOffset, size), "Tag 0, 'wtpt', lies outside"},
        {Changed(kDisplay, kFirstOffset, 0xFFFFFFF0), "Tag 0, 'wtpt', lies outside"},  // and its end wraps round
        {Changed(kDisplay, kFirstOffset, 0), "Tag 0, 'wtpt', lies outside"},
        {Changed(kDisplay, kFirstOffset, 132), "Tag 0, 'wtpt', lies outside"},  // in the table
        {Changed(kDisplay, kFirstSize + 24, 0xFFFFFFFF), "Tag 2, 'gXYZ', lies outside"},
        {Changed(kDisplay, kFirstSize + 24, size), "Tag 2, 'gXYZ', lies outside"},
        {overlapping, "', overlaps with others"},
        {Changed(kDisplay, 12, Code("none")), "cannot be used"},  // no class that the engine knows
        {Changed(kDisplay, 8, 0x05100000), "cannot be used"},     // version 5
    };
    for (const auto& row : rows) {
        const Answer answer = Open(row.bytes);
        EXPECT_FALSE(answer.profile) << row.reason;
        EXPECT_NE(answer.reason.find(row.reason), std::string::npos) << row.reason << ": " << answer.reason;
    }
}

TEST(MalformedProfileTest, WithoutAPlaceForTheErrorIsJustNull) {
    const Bytes bytes(1000, 7);
    EXPECT_FALSE(ProfileFrom(bytes));
}

std::vector<std::pair<const char*, Bytes>> Victims() {
    return {{"display", kDisplay},
            {"formula display", ReadFile("/usr/share/color/icc/colord/sRGB.icc")},
            {"RGB printer, Lab", ReadFile(PrinterNamed("rgb_printer").path)},
            {"RGB printer, XYZ", ReadFile(PrinterNamed("rgb_printer_xyz").path)},
            {"CMYK printer, version 4", ReadFile(PrinterNamed("ps_cmyk").path)}};
}

TEST(MalformedProfileTest, ACutOneIsRefusedAtEveryLength) {
    for (const auto& [name, whole] : Victims()) {
        const std::size_t step = whole.size() < 4000 ? 1 : whole.size() / 1000;
        for (std::size_t length = 0; length < whole.size(); length += length < 600 ? 1 : step) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            ASSERT_FALSE(Open(cut).profile) << name << " of " << length;
        }
    }
}

TEST(MalformedProfileTest, ACutOneThatOwnsUpToItsLengthDoesNoHarm) {
    for (const auto& [name, whole] : Victims()) {
        for (std::size_t length = 128; length < std::min<std::size_t>(700, whole.size()); ++length) {
            Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            Put32(cut, 0, static_cast<std::uint32_t>(length));
            UseInEveryWay(cut);
        }
    }
}

/// Every tag in turn, cut to several lengths (the table says so, the bytes stay). Tags that follow one another share the lengths between them.
TEST(MalformedProfileTest, CutTagsDoNoHarm) {
    const bool tryAll = std::getenv("CM_DEEP");  // set by ./test --deep
    std::size_t lengths = 0;
    for (const auto& [name, whole] : Victims()) {
        const std::size_t count = std::size_t{whole[130]} << 8 | whole[131];
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = kFirstSize + 12 * i;
            const std::uint32_t size = static_cast<std::uint32_t>(whole[at] << 24 | whole[at + 1] << 16 | whole[at + 2] << 8 | whole[at + 3]);
            for (const std::uint32_t kept :
                 {0u, 1u, 4u, 7u, 8u, 11u, 12u, 13u, 19u, 20u, 31u, 32u, 47u, 48u, 51u, 52u, 60u, size / 2, size - 2, size - 1}) {
                if (kept < size && (lengths++ % 2 == i % 2 || tryAll)) UseInEveryWay(Changed(whole, at, kept));
            }
        }
    }
}

TEST(MalformedProfileTest, ClassesAndSpacesThatDoNotFitTheTagsDoNoHarm) {
    for (const auto& [name, whole] : Victims()) {
        for (const char* profileClass : {"scnr", "mntr", "prtr", "link", "spac", "abst", "nmcl"}) {
            for (const char* space : {"RGB ", "CMYK", "GRAY", "Lab ", "XYZ ", "6CLR", "FCLR", "HSV ", "none"}) {
                for (const char* connection : {"XYZ ", "Lab ", "RGB ", "none"}) {
                    Bytes bytes = Changed(whole, 12, Code(profileClass));
                    Put32(bytes, 16, Code(space));
                    Put32(bytes, 20, Code(connection));
                    UseInEveryWay(bytes);
                }
            }
        }
    }
}

TEST(MalformedProfileTest, ASpaceThatIsNoTextIsOfNoDevice) {
    const Bytes bytes = Changed(kDisplay, 16, Code("RGB ") | 0x80000000);
    EXPECT_TRUE(Open(bytes).profile);
    EXPECT_EQ(UseInEveryWay(bytes), 0);
}

TEST(MalformedProfileTest, RandomDamageDoesNoHarm) {
    const int rounds = std::getenv("CM_DEEP") ? 400 : 60;  // set by ./test --deep
    std::mt19937 generator(99);
    int usable = 0;
    for (const auto& [name, whole] : Victims()) {
        for (int i = 0; i < rounds; ++i) {
            Bytes bytes = whole;
            // Half of the damage near the front, where the structure is.
            const std::size_t range = i % 2 == 0 ? std::min<std::size_t>(bytes.size(), 700) : bytes.size();
            for (int k = 0; k < 1 + i % 6; ++k)
                bytes[128 + generator() % (range - 128)] = static_cast<std::uint8_t>(generator() % 3 ? generator() : 0xFF);
            usable += UseInEveryWay(bytes);
        }
    }
    EXPECT_GT(usable, 0);
}

TEST(MalformedProfileTest, TheVictimsThemselvesAreUsable) {
    for (const auto& [name, whole] : Victims()) EXPECT_EQ(UseInEveryWay(whole), 3) << name;
}

}  // namespace
