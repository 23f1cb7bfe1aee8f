#include <gtest/gtest.h>

#include "settings/ProfileLocations.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

const PrivateStore sStore;

constexpr const char* kFile = "/usr/share/color/icc/sRGB.icc";

AliasHandle NewAlias() {
    const std::string path = kFile;
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                                      static_cast<CFIndex>(path.size()), false));
    FSRef file;
    AliasHandle alias = nullptr;
    EXPECT_TRUE(CFURLGetFSRef(url.Get(), &file));
    EXPECT_EQ(FSNewAlias(nullptr, &file, &alias), 0);
    return alias;
}

ICCProfileLocation Current() {
    ICCProfileLocation location;
    GetICCProfileLocation(&location);
    return location;
}

void SetNone() {
    const ICCProfileLocation none = {nullptr, nullptr, nullptr};
    EXPECT_EQ(SetICCProfileLocation(&none), 0);
}

TEST(ProfileLocations, AreNullWhenAnEmptyStoreIsRecalled) {
    RecallICCProfileLocation();
    EXPECT_EQ(Current().monitor, nullptr);
    EXPECT_EQ(Current().printer, nullptr);
    EXPECT_EQ(Current().proofer, nullptr);
}

TEST(ProfileLocations, AreCopiedAndStored) {
    const AliasHandle alias = NewAlias();
    const ICCProfileLocation given = {alias, nullptr, alias};
    EXPECT_EQ(SetICCProfileLocation(&given), 0);
    DisposeHandle(reinterpret_cast<Handle>(alias));
    EXPECT_NE(Current().monitor, nullptr);
    EXPECT_EQ(Current().printer, nullptr);
    EXPECT_NE(Current().proofer, Current().monitor) << "each field has a copy of its own";
    EXPECT_TRUE(CopyRaw(CFSTR("Monitor Profile")));
    EXPECT_FALSE(CopyRaw(CFSTR("Printer Profile")));
    EXPECT_TRUE(CopyRaw(CFSTR("Proofer Profile")));
    SetNone();
}

TEST(ProfileLocations, TakeTheirOwnHandleBack) {
    const AliasHandle alias = NewAlias();
    const ICCProfileLocation given = {alias, nullptr, nullptr};
    EXPECT_EQ(SetICCProfileLocation(&given), 0);
    DisposeHandle(reinterpret_cast<Handle>(alias));
    const ICCProfileLocation again = Current();
    EXPECT_EQ(SetICCProfileLocation(&again), 0);
    FSRef file;
    Boolean wasChanged = false;
    EXPECT_EQ(FSResolveAlias(nullptr, Current().monitor, &file, &wasChanged), 0);
    SetNone();
}

TEST(ProfileLocations, LeaveNothingWhenSetToNone) {
    const AliasHandle alias = NewAlias();
    const ICCProfileLocation given = {alias, alias, alias};
    EXPECT_EQ(SetICCProfileLocation(&given), 0);
    DisposeHandle(reinterpret_cast<Handle>(alias));
    SetNone();
    EXPECT_EQ(Current().monitor, nullptr);
    for (const CFStringRef key : {CFSTR("Monitor Profile"), CFSTR("Printer Profile"), CFSTR("Proofer Profile")}) EXPECT_FALSE(CopyRaw(key));
}

TEST(ProfileLocations, AreStoredAsURLTextsWherePathsAreAskedFor) {
    StoreRaw(CFSTR("Use Paths"), kCFBooleanTrue);
    const AliasHandle alias = NewAlias();
    const ICCProfileLocation given = {alias, nullptr, nullptr};
    EXPECT_EQ(SetICCProfileLocation(&given), 0);
    DisposeHandle(reinterpret_cast<Handle>(alias));
    const Owned<CFTypeRef> stored = CopyRaw(CFSTR("Monitor Profile"));
    EXPECT_TRUE(CFEqual(stored.Get(), CFSTR("file:///usr/share/color/icc/sRGB.icc")));
    StoreRaw(CFSTR("Use Paths"), nullptr);
    SetNone();
}

}  // namespace
