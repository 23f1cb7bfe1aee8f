#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "platform/linux/CoreFoundation/CoreFoundationObject.h"

using platform::NullIfRaised;
using platform::Object;

namespace {

extern const platform::ObjectClass kArrayClass;
extern const platform::ObjectClass kDictionaryClass;

/// Keys, values and elements that are objects are compared by content, plain ones as pointers.
struct Equal {
    bool areObjects;
    bool operator()(const void* a, const void* b) const { return areObjects ? CFEqual(a, b) : a == b; }
};

struct Hash {
    bool areObjects;
    size_t operator()(const void* item) const { return areObjects ? CFHash(item) : std::hash<const void*>()(item); }
};

}  // namespace

struct __CFArray : Object {
    __CFArray(bool keepsObjects, bool canChange) : Object(kArrayClass), retains(keepsObjects), isMutable(canChange) {}
    ~__CFArray() {
        if (!retains) return;
        for (const void* value : values) CFRelease(value);
    }

    /// Null is no object. May raise std::bad_alloc, with nothing changed.
    bool Append(const void* value) {
        if (retains && !value) return false;
        values.push_back(value);
        if (retains) CFRetain(value);
        return true;
    }

    std::vector<const void*> values;
    bool retains;
    bool isMutable;
};

struct __CFDictionary : Object {
    __CFDictionary(const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks, bool canChange)
        : Object(kDictionaryClass),
          retainsKeys(keyCallBacks && keyCallBacks->retains),
          retainsValues(valueCallBacks && valueCallBacks->retains),
          isMutable(canChange),
          entries(0, Hash{retainsKeys}, Equal{retainsKeys}) {}
    ~__CFDictionary() {
        for (const auto& [key, value] : entries) {
            if (retainsKeys) CFRelease(key);
            if (retainsValues) CFRelease(value);
        }
    }

    /// Adds a new key, or gives a key that is there another value when `replaces`. Null is no object. May raise std::bad_alloc, with
    /// nothing changed.
    bool Set(const void* key, const void* value, bool replaces) {
        if ((retainsKeys && !key) || (retainsValues && !value)) return false;
        const auto [entry, isNew] = entries.try_emplace(key, value);
        if (!isNew && !replaces) return true;
        if (retainsValues) CFRetain(value);
        if (isNew) {
            // Strings cannot change, so their copy is one more reference.
            if (retainsKeys) CFRetain(key);
        } else if (const void* old = std::exchange(entry->second, value); retainsValues) {
            CFRelease(old);
        }
        return true;
    }

    bool retainsKeys;
    bool retainsValues;
    bool isMutable;
    std::unordered_map<const void*, const void*, Hash, Equal> entries;
};

namespace {

const __CFArray* AsArray(const Object* object) {
    return static_cast<const __CFArray*>(object);
}
const __CFDictionary* AsDictionary(const Object* object) {
    return static_cast<const __CFDictionary*>(object);
}

bool ArraysEqual(const Object* a, const Object* b) {
    const std::vector<const void*>& left = AsArray(a)->values;
    const std::vector<const void*>& right = AsArray(b)->values;
    const bool retains = AsArray(a)->retains;
    if (retains != AsArray(b)->retains || left.size() != right.size()) return false;
    const Equal equal{retains};
    for (size_t i = 0; i < left.size(); ++i) {
        if (!equal(left[i], right[i])) return false;
    }
    return true;
}

CFHashCode ArrayHash(const Object* object) {
    CFHashCode hash = AsArray(object)->values.size();
    for (const void* value : AsArray(object)->values) hash = hash * 31 + Hash{AsArray(object)->retains}(value);
    return hash;
}

bool DictionariesEqual(const Object* a, const Object* b) {
    const __CFDictionary* left = AsDictionary(a);
    const __CFDictionary* right = AsDictionary(b);
    if (left->retainsKeys != right->retainsKeys || left->retainsValues != right->retainsValues) return false;
    if (left->entries.size() != right->entries.size()) return false;
    const Equal equal{left->retainsValues};
    for (const auto& [key, value] : left->entries) {
        const auto found = right->entries.find(key);
        if (found == right->entries.end() || !equal(value, found->second)) return false;
    }
    return true;
}

CFHashCode DictionaryHash(const Object* object) {
    // A sum, since equal dictionaries may hold their keys in different orders.
    const __CFDictionary* dictionary = AsDictionary(object);
    CFHashCode hash = dictionary->entries.size();
    for (const auto& [key, value] : dictionary->entries) hash += Hash{dictionary->retainsKeys}(key)*31 + Hash{dictionary->retainsValues}(value);
    return hash;
}

constinit const platform::ObjectClass kArrayClass{"CFArray", platform::Delete<__CFArray>, ArraysEqual, ArrayHash};
constinit const platform::ObjectClass kDictionaryClass{"CFDictionary", platform::Delete<__CFDictionary>, DictionariesEqual, DictionaryHash};

}  // namespace

// ---- arrays ----

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, true};

CFTypeID CFArrayGetTypeID() {
    return platform::TypeID(kArrayClass);
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex count, const CFArrayCallBacks* callBacks) {
    if (count < 0) return nullptr;
    return NullIfRaised([&]() -> CFArrayRef {
        auto array = std::make_unique<__CFArray>(callBacks && callBacks->retains, false);
        array->values.reserve(static_cast<size_t>(count));
        for (CFIndex i = 0; i < count; ++i) {
            if (!array->Append(values[i])) return nullptr;
        }
        return array.release();
    });
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks* callBacks) {
    return platform::NewObject<__CFArray>(callBacks && callBacks->retains, true);
}

CFIndex CFArrayGetCount(CFArrayRef array) {
    return static_cast<CFIndex>(array->values.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
    return index >= 0 && index < CFArrayGetCount(array) ? array->values[static_cast<size_t>(index)] : nullptr;
}

void CFArrayAppendValue(CFMutableArrayRef array, const void* value) {
    if (array->isMutable) NullIfRaised([&] { return array->Append(value); });
}

// ---- dictionaries ----

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {0, true, false};
const CFDictionaryKeyCallBacks kCFCopyStringDictionaryKeyCallBacks = {0, true, true};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0, true};

CFTypeID CFDictionaryGetTypeID() {
    return platform::TypeID(kDictionaryClass);
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex count,
                                   const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks) {
    if (count < 0) return nullptr;
    return NullIfRaised([&]() -> CFDictionaryRef {
        auto dictionary = std::make_unique<__CFDictionary>(keyCallBacks, valueCallBacks, false);
        dictionary->entries.reserve(static_cast<size_t>(count));
        for (CFIndex i = 0; i < count; ++i) {
            // The first value of a repeated key stays.
            if (!dictionary->Set(keys[i], values[i], false)) return nullptr;
        }
        return dictionary.release();
    });
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex, const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
    return platform::NewObject<__CFDictionary>(keyCallBacks, valueCallBacks, true);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
    return static_cast<CFIndex>(dictionary->entries.size());
}

Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key) {
    return CFDictionaryGetValueIfPresent(dictionary, key, nullptr);
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
    const void* value = nullptr;
    CFDictionaryGetValueIfPresent(dictionary, key, &value);
    return value;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key, const void** value) {
    if (dictionary->retainsKeys && !key) return false;
    const auto found = dictionary->entries.find(key);
    if (found == dictionary->entries.end()) return false;
    if (value) *value = found->second;
    return true;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values) {
    for (const auto& [key, value] : dictionary->entries) {
        if (keys) *keys++ = key;
        if (values) *values++ = value;
    }
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
    if (dictionary->isMutable) NullIfRaised([&] { return dictionary->Set(key, value, true); });
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key) {
    if (!dictionary->isMutable || (dictionary->retainsKeys && !key)) return;
    const auto found = dictionary->entries.find(key);
    if (found == dictionary->entries.end()) return;
    const auto [oldKey, oldValue] = *found;
    dictionary->entries.erase(found);
    if (dictionary->retainsKeys) CFRelease(oldKey);
    if (dictionary->retainsValues) CFRelease(oldValue);
}
