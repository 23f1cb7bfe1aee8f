// Which transforms are made again: the program is linked so that every request to the colour engine for one passes through here.

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "platform/linux/ColourChains/ChainEvaluators.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/Transforms.h"

namespace {

std::atomic<int> sLinked = 0;  // transforms that the engine made
std::atomic<int> sParsed = 0;  // profiles that it read

}  // namespace

extern "C" {

using Handles = cmsHPROFILE[];
cmsHTRANSFORM __real_cmsCreateExtendedTransform(cmsContext context, cmsUInt32Number count, Handles profiles, cmsBool compensations[],
                                                cmsUInt32Number intents[], cmsFloat64Number states[], cmsHPROFILE gamut, cmsUInt32Number gamutPlace,
                                                cmsUInt32Number from, cmsUInt32Number to, cmsUInt32Number flags);
cmsHTRANSFORM __wrap_cmsCreateExtendedTransform(cmsContext context, cmsUInt32Number count, Handles profiles, cmsBool compensations[],
                                                cmsUInt32Number intents[], cmsFloat64Number states[], cmsHPROFILE gamut, cmsUInt32Number gamutPlace,
                                                cmsUInt32Number from, cmsUInt32Number to, cmsUInt32Number flags);
cmsHPROFILE __real_cmsOpenProfileFromMemTHR(cmsContext context, const void* bytes, cmsUInt32Number size);
cmsHPROFILE __wrap_cmsOpenProfileFromMemTHR(cmsContext context, const void* bytes, cmsUInt32Number size);

cmsHTRANSFORM __wrap_cmsCreateExtendedTransform(cmsContext context, cmsUInt32Number count, Handles profiles, cmsBool compensations[],
                                                cmsUInt32Number intents[], cmsFloat64Number states[], cmsHPROFILE gamut, cmsUInt32Number gamutPlace,
                                                cmsUInt32Number from, cmsUInt32Number to, cmsUInt32Number flags) {
    ++sLinked;
    return __real_cmsCreateExtendedTransform(context, count, profiles, compensations, intents, states, gamut, gamutPlace, from, to, flags);
}

cmsHPROFILE __wrap_cmsOpenProfileFromMemTHR(cmsContext context, const void* bytes, cmsUInt32Number size) {
    ++sParsed;
    return __real_cmsOpenProfileFromMemTHR(context, bytes, size);
}

}  // extern "C"

namespace {

using Pixels = std::vector<uint16_t>;
using Transform = Owned<ColorSyncTransformRef>;

/// Profiles that no other test has used: what is kept is found by content, so each test has a content of its own.
class ChainEvaluatorsTest : public testing::Test {
protected:
    static Bytes NextProfile() {
        ProfileMaker maker = MatrixMonitor(CurvTag({static_cast<uint16_t>(400 + ++sNext)}));
        maker.profileClass = Code("prtr");
        return maker.Make();
    }
    static Owned<ColorSyncProfileRef> NextDevice() { return ProfileFrom(NextProfile()); }

    /// How many transforms and profiles the engine was asked for since the last time.
    struct Work {
        int linked, parsed;
        bool operator==(const Work&) const = default;
    };
    static Work Done() { return {sLinked.exchange(0), sParsed.exchange(0)}; }
    void SetUp() override { Done(); }

    static int sNext;
};
int ChainEvaluatorsTest::sNext = 0;

Pixels Sample() {
    std::mt19937 generator(5);
    Pixels pixels(4 * 300);
    for (uint16_t& sample : pixels) sample = static_cast<uint16_t>(generator());
    return pixels;
}

TEST_F(ChainEvaluatorsTest, TheSameChainIsLinkedOnce) {
    const auto first = NextDevice(), last = NextDevice();
    const Transform once = AbsoluteTransform({first.Get(), last.Get()});
    ASSERT_TRUE(once);
    EXPECT_GT(Done().linked, 0);
    const Transform again = AbsoluteTransform({first.Get(), last.Get()});
    ASSERT_TRUE(again);
    EXPECT_EQ(Done(), (Work{0, 0}));
    EXPECT_NE(again.Get(), once.Get()) << "an object of its own";
    EXPECT_EQ(CFGetRetainCount(again.Get()), 1);
    EXPECT_EQ(Convert16(again.Get(), Sample(), 3, 3), Convert16(once.Get(), Sample(), 3, 3));
    EXPECT_EQ(Done(), (Work{0, 0}));
}

TEST_F(ChainEvaluatorsTest, ItIsFoundByContentWhateverObjectHoldsIt) {
    const Bytes bytes = NextProfile();
    const auto last = NextDevice();
    AbsoluteTransform({ProfileFrom(bytes).Get(), last.Get()});
    const auto same = ProfileFrom(bytes);
    const Owned<ColorSyncMutableProfileRef> copy(ColorSyncProfileCreateMutableCopy(same.Get()));
    Done();
    EXPECT_TRUE(AbsoluteTransform({same.Get(), last.Get()}));
    EXPECT_TRUE(AbsoluteTransform({copy.Get(), last.Get()}));
    EXPECT_EQ(Done(), (Work{0, 0}));

    // A tag given to it makes another content; the same tag given to another copy makes the same again.
    const Bytes white = XYZTag(0.5, 0.6, 0.7);
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, white.data(), static_cast<CFIndex>(white.size())));
    ColorSyncProfileSetTag(copy.Get(), CFSTR("wtpt"), data.Get());
    const Transform tinted = AbsoluteTransform({copy.Get(), last.Get()});
    EXPECT_GT(Done().linked, 0);
    const Owned<ColorSyncMutableProfileRef> other(ColorSyncProfileCreateMutableCopy(same.Get()));
    ColorSyncProfileSetTag(other.Get(), CFSTR("wtpt"), data.Get());
    EXPECT_TRUE(AbsoluteTransform({other.Get(), last.Get()}));
    EXPECT_EQ(Done(), (Work{0, 0}));
    EXPECT_NE(Convert16(tinted.Get(), Sample(), 3, 3), Convert16(AbsoluteTransform({same.Get(), last.Get()}).Get(), Sample(), 3, 3));
}

TEST_F(ChainEvaluatorsTest, WhateverDiffersIsLinkedAnew) {
    const auto a = NextDevice(), b = NextDevice(), c = NextDevice();
    const CFStringRef first = kColorSyncTransformDeviceToPCS, between = kColorSyncTransformPCSToPCS, last = kColorSyncTransformPCSToDevice;
    const CFStringRef absolute = kColorSyncRenderingIntentAbsolute, relative = kColorSyncRenderingIntentRelative;
    struct Place {
        ColorSyncProfileRef profile;
        CFStringRef tag;
        CFStringRef intent;
        CFBooleanRef compensation = kCFBooleanFalse;
    };
    const struct {
        const char* what;
        std::vector<Place> places;
    } rows[] = {
        {"first of all", {{a.Get(), first, absolute}, {b.Get(), last, absolute}}},
        {"the other way", {{b.Get(), first, absolute}, {a.Get(), last, absolute}}},
        {"another last device", {{a.Get(), first, absolute}, {c.Get(), last, absolute}}},
        {"another first device", {{c.Get(), first, absolute}, {b.Get(), last, absolute}}},
        {"a device between", {{a.Get(), first, absolute}, {c.Get(), between, absolute}, {b.Get(), last, absolute}}},
        {"another intent at the start", {{a.Get(), first, relative}, {b.Get(), last, absolute}}},
        {"another intent at the end", {{a.Get(), first, absolute}, {b.Get(), last, relative}}},
        {"compensation", {{a.Get(), first, relative}, {b.Get(), last, relative, kCFBooleanTrue}}},
        {"no compensation", {{a.Get(), first, relative}, {b.Get(), last, relative}}},
    };
    for (const bool known : {false, true}) {
        for (const auto& row : rows) {
            std::vector<Owned<CFDictionaryRef>> steps;
            for (const Place& place : row.places) steps.push_back(Step(place.profile, place.tag, place.intent, place.compensation));
            EXPECT_TRUE(TransformOf(steps)) << row.what;
            EXPECT_EQ(Done().linked == 0, known) << row.what;
        }
    }
}

TEST_F(ChainEvaluatorsTest, AFormatAskedForOnceIsThereForAllOfTheSameChain) {
    const auto first = NextDevice(), last = NextDevice();
    const Transform once = AbsoluteTransform({first.Get(), last.Get()});
    const Transform again = AbsoluteTransform({first.Get(), last.Get()});
    const std::vector<float> in = {0.2f, 0.4f, 0.6f};
    Done();
    for (const Transform* transform : {&once, &again}) {
        std::vector<float> out(3);
        EXPECT_TRUE(ColorSyncTransformConvert(transform->Get(), 1, 1, out.data(), kColorSync32BitFloat, kCGImageAlphaNone, 12, in.data(),
                                              kColorSync32BitFloat, kCGImageAlphaNone, 12, nullptr));
        EXPECT_EQ(Done().linked, transform == &once ? 1 : 0);
    }
}

TEST_F(ChainEvaluatorsTest, OneOutlivesTheOtherAndItsProfiles) {
    auto first = NextDevice(), last = NextDevice();
    Transform once = AbsoluteTransform({first.Get(), last.Get()});
    const Pixels expected = Convert16(once.Get(), Sample(), 3, 3);
    const Transform again = AbsoluteTransform({first.Get(), last.Get()});
    once.Reset(nullptr);
    first.Reset(nullptr);
    last.Reset(nullptr);
    EXPECT_EQ(Convert16(again.Get(), Sample(), 3, 3), expected);
}

TEST_F(ChainEvaluatorsTest, WhatCannotBeLinkedIsTriedEachTime) {
    const auto first = NextDevice();
    const auto names = OpenProfile("/usr/share/color/icc/colord/x11-colors.icc");
    for (int i = 0; i < 2; ++i) {
        Done();
        EXPECT_FALSE(AbsoluteTransform({first.Get(), names.Get()}));
        EXPECT_EQ(Done().parsed, 2) << i;
    }
}

TEST_F(ChainEvaluatorsTest, TwelveAreKeptAndOneInUseOutlivesItsPlace) {
    std::vector<Owned<ColorSyncProfileRef>> devices;
    for (int i = 0; i < 14; ++i) devices.push_back(NextDevice());
    const auto linkedFor = [&](size_t i) {
        Done();
        EXPECT_TRUE(AbsoluteTransform({devices[0].Get(), devices[i].Get()}));
        return Done().linked;
    };
    const Transform inUse = AbsoluteTransform({devices[0].Get(), devices[1].Get()});
    const Pixels expected = Convert16(inUse.Get(), Sample(), 3, 3);
    for (size_t i = 2; i <= 12; ++i) EXPECT_GT(linkedFor(i), 0);
    for (size_t i = 1; i <= 12; ++i) EXPECT_EQ(linkedFor(i), 0);
    EXPECT_GT(linkedFor(13), 0);
    EXPECT_EQ(Convert16(inUse.Get(), Sample(), 3, 3), expected);
    EXPECT_GT(linkedFor(1), 0) << "used longest ago";
    EXPECT_EQ(linkedFor(13), 0);
}

TEST_F(ChainEvaluatorsTest, ThreadsMakeAndUseTheSameOnesAtOnce) {
    const auto reference = OpenProfile(kReferenceProfile);
    const auto printer = OpenProfile(PrinterNamed("rgb_printer").path);
    const auto device = NextDevice();
    const Pixels source = Sample();
    const Pixels toPrinter = Convert16(AbsoluteTransform({reference.Get(), printer.Get()}).Get(), source, 3, 3);
    const Pixels toDevice = Convert16(AbsoluteTransform({reference.Get(), device.Get()}).Get(), source, 3, 3);
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i) {
                if (Convert16(AbsoluteTransform({reference.Get(), printer.Get()}).Get(), source, 3, 3) != toPrinter) ++wrong;
                if (Convert16(AbsoluteTransform({reference.Get(), device.Get()}).Get(), source, 3, 3) != toDevice) ++wrong;
                // And one that nobody has linked yet.
                const auto own = ProfileFrom(MatrixMonitor(CurvTag({static_cast<uint16_t>(600 + i)})).Make());
                const Transform there = AbsoluteTransform({reference.Get(), own.Get()});
                if (Convert16(there.Get(), source, 3, 3) != Convert16(AbsoluteTransform({reference.Get(), own.Get()}).Get(), source, 3, 3)) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
