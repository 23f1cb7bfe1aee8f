#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <vector>

#include "platform/CoreFoundation.h"
#include "tests/fixtures/StringText.h"

namespace {

Owned<CFNumberRef> Integer(SInt64 value) {
    return Owned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

const void* Plain(std::uintptr_t value) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): collections without callbacks hold integers too.
    return reinterpret_cast<const void*>(value);
}

Owned<CFArrayRef> Array(std::vector<const void*> values) {
    return Owned<CFArrayRef>(CFArrayCreate(kCFAllocatorDefault, values.data(), static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
}

Owned<CFMutableDictionaryRef> EmptyDictionary() {
    return Owned<CFMutableDictionaryRef>(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

Owned<CFDictionaryRef> Dictionary(std::vector<const void*> keys, std::vector<const void*> values) {
    return Owned<CFDictionaryRef>(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), static_cast<CFIndex>(keys.size()),
                                                     &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// ---- arrays ----

TEST(CoreFoundationArray, HoldsItsElementsInOrder) {
    const Owned<CFArrayRef> array = Array({CFSTR("a"), kCFBooleanTrue, CFSTR("a")});
    ASSERT_EQ(CFArrayGetCount(array.Get()), 3);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.Get(), 0), CFSTR("a"));
    EXPECT_EQ(CFArrayGetValueAtIndex(array.Get(), 1), kCFBooleanTrue);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.Get(), 2), CFSTR("a"));
    // NOLINTNEXTLINE(clang-analyzer-osx.coreFoundation.containers.OutOfBounds): deliberate.
    for (const CFIndex outside : {CFIndex{3}, CFIndex{-1}}) EXPECT_EQ(CFArrayGetValueAtIndex(array.Get(), outside), nullptr);
    EXPECT_EQ(CFGetTypeID(array.Get()), CFArrayGetTypeID());
}

TEST(CoreFoundationArray, KeepsObjectsAlive) {
    const Owned<CFNumberRef> number = Integer(1);
    {
        const Owned<CFArrayRef> array = Array({number.Get(), number.Get()});
        const Owned<CFMutableArrayRef> growing(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
        CFArrayAppendValue(growing.Get(), number.Get());
        EXPECT_EQ(CFArrayGetCount(growing.Get()), 1);
        EXPECT_EQ(CFGetRetainCount(number.Get()), 4);
    }
    EXPECT_EQ(CFGetRetainCount(number.Get()), 1);
}

TEST(CoreFoundationArray, HoldsPlainValuesWithoutCallbacks) {
    const void* values[] = {Plain(0), Plain(1), Plain(7)};
    const Owned<CFArrayRef> array(CFArrayCreate(kCFAllocatorDefault, values, 3, nullptr));
    const Owned<CFArrayRef> same(CFArrayCreate(kCFAllocatorDefault, values, 3, nullptr));
    EXPECT_EQ(CFArrayGetValueAtIndex(array.Get(), 2), Plain(7));
    EXPECT_TRUE(CFEqual(array.Get(), same.Get()));
    EXPECT_EQ(CFHash(array.Get()), CFHash(same.Get()));
}

TEST(CoreFoundationArray, TakesNoNullObject) {
    const void* values[] = {CFSTR("a"), nullptr};
    EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, values, 2, &kCFTypeArrayCallBacks), nullptr);
    const Owned<CFMutableArrayRef> array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    CFArrayAppendValue(array.Get(), nullptr);
    EXPECT_EQ(CFArrayGetCount(array.Get()), 0);
}

TEST(CoreFoundationArray, CannotBeChangedWhenItWasMadeWhole) {
    const Owned<CFArrayRef> array = Array({CFSTR("a")});
    CFArrayAppendValue(const_cast<CFMutableArrayRef>(array.Get()), CFSTR("b"));
    EXPECT_EQ(CFArrayGetCount(array.Get()), 1);
}

TEST(CoreFoundationArray, IsEqualByItsElements) {
    const Owned<CFArrayRef> inner = Array({NewString("deep").Get(), Integer(3).Get()});
    const Owned<CFArrayRef> sameInner = Array({NewString("deep").Get(), Integer(3).Get()});
    const Owned<CFArrayRef> array = Array({inner.Get(), CFSTR("x")});
    const Owned<CFArrayRef> same = Array({sameInner.Get(), CFSTR("x")});
    EXPECT_TRUE(CFEqual(array.Get(), same.Get()));
    EXPECT_EQ(CFHash(array.Get()), CFHash(same.Get()));
    EXPECT_FALSE(CFEqual(array.Get(), Array({CFSTR("x"), inner.Get()}).Get())) << "another order";
    EXPECT_FALSE(CFEqual(array.Get(), Array({inner.Get()}).Get())) << "fewer";
    EXPECT_TRUE(CFEqual(Array({}).Get(), Array({}).Get()));
}

// ---- dictionaries ----

TEST(CoreFoundationDictionary, FindsAValueByAnEqualKey) {
    const Owned<CFDictionaryRef> dictionary = Dictionary({NewString("one").Get(), NewString("two").Get()}, {Integer(1).Get(), Integer(2).Get()});
    ASSERT_EQ(CFDictionaryGetCount(dictionary.Get()), 2);
    EXPECT_EQ(CFGetTypeID(dictionary.Get()), CFDictionaryGetTypeID());
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(dictionary.Get(), CFSTR("two")), Integer(2).Get()));
    EXPECT_TRUE(CFDictionaryContainsKey(dictionary.Get(), CFSTR("one")));
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary.Get(), CFSTR("three")));
    EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), CFSTR("three")), nullptr);
    const void* value = &dictionary;
    EXPECT_FALSE(CFDictionaryGetValueIfPresent(dictionary.Get(), CFSTR("three"), &value));
    EXPECT_EQ(value, &dictionary);
    EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary.Get(), CFSTR("one"), &value));
    EXPECT_TRUE(CFEqual(value, Integer(1).Get()));
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary.Get(), nullptr));
}

TEST(CoreFoundationDictionary, ReplacesAndRemoves) {
    const Owned<CFMutableDictionaryRef> dictionary = EmptyDictionary();
    const Owned<CFNumberRef> first = Integer(1);
    const Owned<CFNumberRef> second = Integer(2);
    const Owned<CFStringRef> key = NewString("key");
    CFDictionarySetValue(dictionary.Get(), key.Get(), first.Get());
    EXPECT_EQ(CFGetRetainCount(key.Get()), 2);
    EXPECT_EQ(CFGetRetainCount(first.Get()), 2);
    CFDictionarySetValue(dictionary.Get(), NewString("key").Get(), second.Get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), key.Get()), second.Get());
    EXPECT_EQ(CFGetRetainCount(first.Get()), 1);
    CFDictionarySetValue(dictionary.Get(), key.Get(), second.Get());
    EXPECT_EQ(CFGetRetainCount(second.Get()), 2);
    CFDictionaryRemoveValue(dictionary.Get(), CFSTR("other"));
    EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 1);
    CFDictionaryRemoveValue(dictionary.Get(), NewString("key").Get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 0);
    EXPECT_EQ(CFGetRetainCount(key.Get()), 1);
    EXPECT_EQ(CFGetRetainCount(second.Get()), 1);
}

TEST(CoreFoundationDictionary, ReleasesWhatItHolds) {
    const Owned<CFStringRef> key = NewString("key");
    const Owned<CFNumberRef> value = Integer(1);
    {
        const Owned<CFDictionaryRef> dictionary = Dictionary({key.Get()}, {value.Get()});
        EXPECT_EQ(CFGetRetainCount(key.Get()), 2);
        EXPECT_EQ(CFGetRetainCount(value.Get()), 2);
    }
    EXPECT_EQ(CFGetRetainCount(key.Get()), 1);
    EXPECT_EQ(CFGetRetainCount(value.Get()), 1);
}

TEST(CoreFoundationDictionary, HoldsPlainKeysAndValuesWithoutCallbacks) {
    const Owned<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, nullptr));
    for (std::uintptr_t i = 0; i < 1000; ++i) CFDictionarySetValue(dictionary.Get(), Plain(i), Plain(i * i));
    ASSERT_EQ(CFDictionaryGetCount(dictionary.Get()), 1000);
    for (std::uintptr_t i = 0; i < 1000; ++i) EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), Plain(i)), Plain(i * i));
    CFDictionaryRemoveValue(dictionary.Get(), Plain(0));
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary.Get(), Plain(0)));
    EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 999);
}

TEST(CoreFoundationDictionary, MayHoldObjectsUnderPlainKeys) {
    const Owned<CFNumberRef> value = Integer(1);
    {
        const Owned<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, &kCFTypeDictionaryValueCallBacks));
        CFDictionarySetValue(dictionary.Get(), Plain(5), value.Get());
        EXPECT_EQ(CFGetRetainCount(value.Get()), 2);
    }
    EXPECT_EQ(CFGetRetainCount(value.Get()), 1);
}

TEST(CoreFoundationDictionary, KeepsStringKeysOfTheCopyingKind) {
    const Owned<CFStringRef> key = NewString("copied");
    const Owned<CFMutableDictionaryRef> dictionary(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFCopyStringDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFDictionarySetValue(dictionary.Get(), key.Get(), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), CFSTR("copied")), kCFBooleanTrue);
}

TEST(CoreFoundationDictionary, TheFirstOfEqualKeysCounts) {
    const Owned<CFDictionaryRef> dictionary = Dictionary({NewString("k").Get(), NewString("k").Get()}, {CFSTR("first"), CFSTR("second")});
    EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), CFSTR("k")), CFSTR("first"));
}

TEST(CoreFoundationDictionary, ListsKeysAndValuesInTheSameOrder) {
    const Owned<CFMutableDictionaryRef> dictionary = EmptyDictionary();
    std::map<std::string, SInt64> expected;
    for (SInt64 i = 0; i < 100; ++i) {
        expected["key " + std::to_string(i)] = i;
        CFDictionarySetValue(dictionary.Get(), NewString("key " + std::to_string(i)).Get(), Integer(i).Get());
    }
    std::vector<const void*> keys(100);
    std::vector<const void*> values(100);
    CFDictionaryGetKeysAndValues(dictionary.Get(), keys.data(), values.data());
    std::map<std::string, SInt64> found;
    for (size_t i = 0; i < keys.size(); ++i) {
        SInt64 value = -1;
        CFNumberGetValue(static_cast<CFNumberRef>(values[i]), kCFNumberSInt64Type, &value);
        found[Text(static_cast<CFStringRef>(keys[i]))] = value;
    }
    EXPECT_EQ(found, expected);

    std::vector<const void*> keysAlone(100);
    std::vector<const void*> valuesAlone(100);
    CFDictionaryGetKeysAndValues(dictionary.Get(), keysAlone.data(), nullptr);
    CFDictionaryGetKeysAndValues(dictionary.Get(), nullptr, valuesAlone.data());
    EXPECT_EQ(keysAlone, keys);
    EXPECT_EQ(valuesAlone, values);
}

TEST(CoreFoundationDictionary, TakesNoNullObject) {
    const void* one[] = {CFSTR("a")};
    const void* null[] = {nullptr};
    EXPECT_FALSE(Dictionary({nullptr}, {one[0]}));
    EXPECT_FALSE(Dictionary({one[0]}, {null[0]}));
    const Owned<CFMutableDictionaryRef> dictionary = EmptyDictionary();
    CFDictionarySetValue(dictionary.Get(), nullptr, CFSTR("a"));
    CFDictionarySetValue(dictionary.Get(), CFSTR("a"), nullptr);
    CFDictionaryRemoveValue(dictionary.Get(), nullptr);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 0);
}

TEST(CoreFoundationDictionary, CannotBeChangedWhenItWasMadeWhole) {
    const Owned<CFDictionaryRef> dictionary = Dictionary({CFSTR("a")}, {CFSTR("1")});
    const auto pretended = const_cast<CFMutableDictionaryRef>(dictionary.Get());
    CFDictionarySetValue(pretended, CFSTR("b"), CFSTR("2"));
    CFDictionarySetValue(pretended, CFSTR("a"), CFSTR("2"));
    CFDictionaryRemoveValue(pretended, CFSTR("a"));
    EXPECT_TRUE(CFEqual(dictionary.Get(), Dictionary({CFSTR("a")}, {CFSTR("1")}).Get()));
}

TEST(CoreFoundationDictionary, IsEqualByItsContentInAnyOrder) {
    const Owned<CFArrayRef> array = Array({Integer(3).Get()});
    const Owned<CFArrayRef> sameArray = Array({Integer(3).Get()});
    const Owned<CFDictionaryRef> dictionary = Dictionary({CFSTR("a"), CFSTR("b")}, {array.Get(), CFSTR("x")});
    const Owned<CFDictionaryRef> same = Dictionary({NewString("b").Get(), NewString("a").Get()}, {CFSTR("x"), sameArray.Get()});
    EXPECT_TRUE(CFEqual(dictionary.Get(), same.Get()));
    EXPECT_EQ(CFHash(dictionary.Get()), CFHash(same.Get()));

    const Owned<CFMutableDictionaryRef> grown = EmptyDictionary();
    CFDictionarySetValue(grown.Get(), CFSTR("a"), array.Get());
    EXPECT_FALSE(CFEqual(dictionary.Get(), grown.Get())) << "a key less";
    CFDictionarySetValue(grown.Get(), CFSTR("c"), CFSTR("x"));
    EXPECT_FALSE(CFEqual(dictionary.Get(), grown.Get())) << "another key";
    CFDictionaryRemoveValue(grown.Get(), CFSTR("c"));
    CFDictionarySetValue(grown.Get(), CFSTR("b"), CFSTR("y"));
    EXPECT_FALSE(CFEqual(dictionary.Get(), grown.Get())) << "another value";
    CFDictionarySetValue(grown.Get(), CFSTR("b"), CFSTR("x"));
    EXPECT_TRUE(CFEqual(dictionary.Get(), grown.Get()));
}

TEST(CoreFoundationDictionary, NumbersOfBothTypesAreTheSameKey) {
    const double real = 3.0;
    const Owned<CFNumberRef> whole(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &real));
    const Owned<CFDictionaryRef> dictionary = Dictionary({Integer(3).Get()}, {CFSTR("three")});
    EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), whole.Get()), CFSTR("three"));
}

}  // namespace
