#include <gtest/gtest.h>

#include <cstring>

#include "platform/FourCharCode.h"
#include "settings/PreferenceStore.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

const PrivateStore sStore;

CFStringRef Key() {
    return CFSTR("A Key");
}

void Store(CFTypeRef value) {
    StoreRaw(Key(), value);
}

Owned<CFNumberRef> Real(double value) {
    return Owned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value));
}

std::string Characters(CFStringRef text) {
    char buffer[256] = {};
    EXPECT_TRUE(CFStringGetCString(text, buffer, sizeof buffer, kCFStringEncodingUTF8));
    return buffer;
}

std::string BytesOf(AliasHandle alias) {
    const Handle handle = reinterpret_cast<Handle>(alias);
    return alias ? std::string(*handle, static_cast<size_t>(GetHandleSize(handle))) : std::string();
}

void Dispose(AliasHandle alias) {
    if (alias) DisposeHandle(reinterpret_cast<Handle>(alias));
}

TEST(PreferenceStore, AnswersTheDefaultForAnAbsentKey) {
    Store(nullptr);
    EXPECT_EQ(GetRealPreference(Key(), 2.5), 2.5);
    EXPECT_EQ(GetIntPreference(Key(), -7), -7);
    EXPECT_TRUE(GetBooleanPreference(Key(), true));
    EXPECT_EQ(GetOSTypePreference(Key(), FourChar("Qua2")), FourChar("Qua2"));
    const Owned<CFStringRef> text(CopyStringPreference(Key(), CFSTR("default")));
    EXPECT_EQ(Characters(text.Get()), "default");
    const Owned<CFDictionaryRef> dictionary(CopyDictionaryPreference(Key()));
    ASSERT_TRUE(dictionary);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 0);
    EXPECT_EQ(GetFileLocationPreference(Key()), nullptr);
}

TEST(PreferenceStore, KeepsEachKindThroughAWriteAndARead) {
    SetRealPreference(CFSTR("Real"), -0.03);
    SetIntPreference(CFSTR("Integer"), -2147483647 - 1);
    SetBooleanPreference(CFSTR("Boolean"), 2);
    SetOSTypePreference(CFSTR("Code"), 0x51E96130);
    SetStringPreference(CFSTR("Text"), CFSTR("xyz:95.05,100,108.9"));
    SynchronisePreferences(false);
    SynchronisePreferences(false);
    EXPECT_EQ(GetRealPreference(CFSTR("Real"), 0), -0.03);
    EXPECT_EQ(GetIntPreference(CFSTR("Integer"), 0), -2147483647 - 1);
    EXPECT_TRUE(GetBooleanPreference(CFSTR("Boolean"), false));
    EXPECT_EQ(GetOSTypePreference(CFSTR("Code"), 0), 0x51E96130u) << "a byte above 127 is one character";
    const Owned<CFStringRef> text(CopyStringPreference(CFSTR("Text"), CFSTR("")));
    EXPECT_EQ(Characters(text.Get()), "xyz:95.05,100,108.9");
}

TEST(PreferenceStore, ReadsTheFirstFourCharactersOfACode) {
    const struct {
        CFStringRef stored;
        OSType expected;
        const char* what;
    } rows[] = {{CFSTR("Qua"), FourChar("Qua2"), "three characters: the default"},
                {CFSTR("Qua1xyz"), FourChar("Qua1"), "seven characters"},
                {CFSTR("Qua0"), FourChar("Qua0"), "four characters"}};
    for (const auto& row : rows) {
        Store(row.stored);
        EXPECT_EQ(GetOSTypePreference(Key(), FourChar("Qua2")), row.expected) << row.what;
    }
}

TEST(PreferenceStore, TakesOnlyExactConversionsOfTheRightType) {
    Store(CFSTR("3"));
    EXPECT_EQ(GetRealPreference(Key(), 9.0), 9.0) << "a string under a real key";
    Store(Real(3.0).Get());
    EXPECT_EQ(GetIntPreference(Key(), 9), 3);
    Store(Real(3.5).Get());
    EXPECT_EQ(GetIntPreference(Key(), 9), 9) << "3.5 is no integer";
    EXPECT_EQ(GetRealPreference(Key(), 9.0), 3.5);
}

TEST(PreferenceStore, ReadsAnyStoredValueAsABooleanButNotInADictionary) {
    Store(CFSTR("true"));
    EXPECT_FALSE(GetBooleanPreference(Key(), true)) << "the stored value's reading, not the default";
    const Owned<CFMutableDictionaryRef> dictionary(CreatePreferencesDictionary());
    CFDictionarySetValue(dictionary.Get(), CFSTR("Text"), CFSTR("true"));
    AddBooleanToDictionary(dictionary.Get(), CFSTR("True"), true);
    AddRealToDictionary(dictionary.Get(), CFSTR("Real"), 1.25);
    EXPECT_TRUE(GetBooleanFromDictionary(dictionary.Get(), CFSTR("Text"), true)) << "the default";
    EXPECT_TRUE(GetBooleanFromDictionary(dictionary.Get(), CFSTR("True"), false));
    EXPECT_EQ(GetRealFromDictionary(dictionary.Get(), CFSTR("Real"), 0), 1.25);
    EXPECT_EQ(GetRealFromDictionary(dictionary.Get(), CFSTR("Text"), 7), 7);
    EXPECT_EQ(GetRealFromDictionary(dictionary.Get(), CFSTR("None"), 7), 7);
}

TEST(PreferenceStore, RemovesAKeyForANullStringOrLocation) {
    Store(CFSTR("something"));
    SetStringPreference(Key(), nullptr);
    EXPECT_FALSE(CopyRaw(Key()));
    for (const Boolean usePaths : {false, true}) {
        Store(CFSTR("something"));
        SetFileLocationPreference(nullptr, Key(), usePaths);
        EXPECT_FALSE(CopyRaw(Key()));
        EXPECT_EQ(GetFileLocationPreference(Key()), nullptr);
    }
}

TEST(PreferenceStore, BringsALocationBackByteForByte) {
    const Alias alias("/usr/share/color/icc/sRGB.icc");
    SetFileLocationPreference(alias.Get(), Key(), false);
    const AliasHandle back = GetFileLocationPreference(Key());
    EXPECT_EQ(BytesOf(back), BytesOf(alias.Get()));
    Dispose(back);
}

TEST(PreferenceStore, WritesAURLTextThatItsReaderTakesForAPath) {
    const Alias alias("/usr/share/color/icc/sRGB.icc");
    SetFileLocationPreference(alias.Get(), Key(), true);
    const Owned<CFTypeRef> stored = CopyRaw(Key());
    ASSERT_TRUE(stored);
    EXPECT_EQ(Characters(static_cast<CFStringRef>(stored.Get())), "file:///usr/share/color/icc/sRGB.icc");
    EXPECT_EQ(GetFileLocationPreference(Key()), nullptr) << "deliberately not found again";
    Store(CFSTR("/usr/share/color/icc/sRGB.icc"));
    const AliasHandle found = GetFileLocationPreference(Key());
    EXPECT_NE(found, nullptr) << "a path is";
    Dispose(found);
}

}  // namespace
