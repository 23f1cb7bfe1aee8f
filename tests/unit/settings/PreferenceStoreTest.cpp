#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <string_view>

#include "platform/FourCharCode.h"
#include "settings/PreferenceStore.h"
#include "tests/fixtures/ChildProcess.h"
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

Owned<CFStringRef> StringOf(const std::string& text) {
    return Owned<CFStringRef>(CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
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

Owned<CFStringRef> Units(std::u16string_view units) {
    return Owned<CFStringRef>(
        CFStringCreateWithCharacters(kCFAllocatorDefault, reinterpret_cast<const UniChar*>(units.data()), static_cast<CFIndex>(units.size())));
}

std::string Numbers(CFStringRef text) {
    std::string numbers;
    for (CFIndex i = 0; i < CFStringGetLength(text); ++i) numbers += std::to_string(CFStringGetCharacterAtIndex(text, i)) + " ";
    return numbers;
}

/// Texts that a property-list file has no form of its own for, and those beside them.
const std::u16string_view kUnusualTexts[] = {
    {u"\0", 1},
    {u"\0\0\0\0", 4},
    {u"a\0b", 3},
    {u"ends with one\0", 14},
    {u"\0\u00E9\0\u4E2D", 4},
    {u"\xD800", 1},  // halves of a pair
    {u"\xDC00\xD800", 2},
    {u"a\xDFFFz", 3},
    {u"\xD83C\xDFA8\0", 3},  // a whole pair before a zero
    {u"\uFDD0", 1},          // what marks the others in the file
    {u"\uFDD0"
     u"0000",
     5},
    {u"\uFDD0"
     u"0041",
     5},
    {u"\uFDD0\uFDD0\0", 3},
    {u"0000", 4},
};

TEST(PreferenceStore, EveryTextComesBackInAnotherProcess) {
    const auto key = [](size_t i) { return StringOf("Text " + std::to_string(i)); };
    for (size_t i = 0; i < std::size(kUnusualTexts); ++i) {
        SetStringPreference(key(i).Get(), CFSTR("old"));
        SetStringPreference(key(i).Get(), Units(kUnusualTexts[i]).Get());
    }
    const Owned<CFMutableDictionaryRef> dictionary(CreatePreferencesDictionary());
    for (const std::u16string_view text : kUnusualTexts) CFDictionarySetValue(dictionary.Get(), Units(text).Get(), Units(text).Get());
    SetDictionaryPreference(CFSTR("Texts"), dictionary.Get());
    // Written, read back and written again with the rest of the file.
    SynchronisePreferences(false);
    SetIntPreference(Key(), 1);
    SynchronisePreferences(false);
    const std::string wrong = InAChild([&] {
        SynchronisePreferences(false);
        std::string differences;
        const Owned<CFDictionaryRef> read(CopyDictionaryPreference(CFSTR("Texts")));
        if (!CFEqual(read.Get(), dictionary.Get())) differences += "dictionary;";
        for (size_t i = 0; i < std::size(kUnusualTexts); ++i) {
            const Owned<CFStringRef> text(CopyStringPreference(key(i).Get(), CFSTR("default")));
            if (!CFEqual(text.Get(), Units(kUnusualTexts[i]).Get()))
                differences += Numbers(Units(kUnusualTexts[i]).Get()) + "came back as " + Numbers(text.Get()) + ";";
        }
        return differences;
    });
    EXPECT_EQ(wrong, "");
}

TEST(PreferenceStore, EveryCodeComesBackInAnotherProcess) {
    for (const OSType code : {0u, 0x51756100u, 0x00756130u, 0x51000030u, 0x41u, 0xFFFFFFFFu}) {
        SetOSTypePreference(Key(), FourChar("Qua2"));
        SetOSTypePreference(Key(), code);
        SynchronisePreferences(false);
        EXPECT_EQ(InAChild([] {
                      SynchronisePreferences(false);
                      return std::to_string(GetOSTypePreference(Key(), 7));
                  }),
                  std::to_string(code));
    }
}

}  // namespace
