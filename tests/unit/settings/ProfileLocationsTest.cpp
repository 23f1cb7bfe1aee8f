#include <gtest/gtest.h>

#include "settings/ProfileLocations.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

const PrivateStore sStore;

constexpr const char* kFile = "/usr/share/color/icc/sRGB.icc";

ICCProfileLocation Current() {
    ICCProfileLocation location;
    GetICCProfileLocation(&location);
    return location;
}

/// Sets each to the file, or to nothing. The handle that is given is gone when this returns.
void Set(bool monitor, bool printer, bool proofer) {
    const Alias alias(kFile);
    const ICCProfileLocation given = {monitor ? alias.Get() : nullptr, printer ? alias.Get() : nullptr, proofer ? alias.Get() : nullptr};
    EXPECT_EQ(SetICCProfileLocation(&given), 0);
}

void SetNone() {
    Set(false, false, false);
}

TEST(ProfileLocations, AreNullWhenAnEmptyStoreIsRecalled) {
    RecallICCProfileLocation();
    EXPECT_EQ(Current().monitor, nullptr);
    EXPECT_EQ(Current().printer, nullptr);
    EXPECT_EQ(Current().proofer, nullptr);
}

TEST(ProfileLocations, AreCopiedAndStored) {
    Set(true, false, true);
    EXPECT_NE(Current().monitor, nullptr);
    EXPECT_EQ(Current().printer, nullptr);
    EXPECT_NE(Current().proofer, Current().monitor) << "each field has a copy of its own";
    EXPECT_TRUE(CopyRaw(CFSTR("Monitor Profile")));
    EXPECT_FALSE(CopyRaw(CFSTR("Printer Profile")));
    EXPECT_TRUE(CopyRaw(CFSTR("Proofer Profile")));
    SetNone();
}

TEST(ProfileLocations, TakeTheirOwnHandleBack) {
    Set(true, false, false);
    const ICCProfileLocation again = Current();
    EXPECT_EQ(SetICCProfileLocation(&again), 0);
    FSRef file;
    Boolean wasChanged = false;
    EXPECT_EQ(FSResolveAlias(nullptr, Current().monitor, &file, &wasChanged), 0);
    SetNone();
}

TEST(ProfileLocations, LeaveNothingWhenSetToNone) {
    Set(true, true, true);
    SetNone();
    EXPECT_EQ(Current().monitor, nullptr);
    for (const CFStringRef key : {CFSTR("Monitor Profile"), CFSTR("Printer Profile"), CFSTR("Proofer Profile")}) EXPECT_FALSE(CopyRaw(key));
}

TEST(ProfileLocations, AreStoredAsURLTextsWherePathsAreAskedFor) {
    StoreRaw(CFSTR("Use Paths"), kCFBooleanTrue);
    Set(true, false, false);
    const Owned<CFTypeRef> stored = CopyRaw(CFSTR("Monitor Profile"));
    EXPECT_TRUE(CFEqual(stored.Get(), CFSTR("file:///usr/share/color/icc/sRGB.icc")));
    StoreRaw(CFSTR("Use Paths"), nullptr);
    SetNone();
}

}  // namespace
