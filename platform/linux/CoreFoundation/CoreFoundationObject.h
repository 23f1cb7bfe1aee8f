#pragma once

/// What every retained object starts with, for the files that define objects.

#include <atomic>
#include <exception>
#include <limits>
#include <new>
#include <utility>

#include "platform/CoreFoundation.h"

namespace platform {

struct Object;

/// One for each kind of object, with static storage. Its address is the kind's CFTypeID.
struct ObjectClass {
    const char* name;
    /// Frees the object; called once, when the last reference goes.
    void (*destroy)(const Object* object);
    /// Compares two objects of this class; null: an object equals only itself.
    bool (*equal)(const Object* a, const Object* b) = nullptr;
    /// Equal objects have equal hashes; null: the address.
    CFHashCode (*hash)(const Object* object) = nullptr;
};

/// Derive from it once, without virtual functions, so that the object's address is the address of this part.
struct Object {
    /// A negative count: a constant, never freed.
    static constexpr CFIndex kConstant = -1;

    explicit constexpr Object(const ObjectClass& ownClass, CFIndex count = 1) : objectClass(&ownClass), references(count) {}
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    const ObjectClass* objectClass;
    mutable std::atomic<CFIndex> references;
};

inline CFTypeID TypeID(const ObjectClass& objectClass) {
    return reinterpret_cast<CFTypeID>(&objectClass);
}

inline bool IsA(CFTypeRef object, const ObjectClass& objectClass) {
    return object && static_cast<const Object*>(object)->objectClass == &objectClass;
}

/// The usual `destroy`.
template <typename T>
void Delete(const Object* object) {
    delete static_cast<const T*>(object);
}

/// Runs `work` and turns anything raised (in practice: no memory) into a null or false result.
template <typename Work>
auto NullIfRaised(Work work) noexcept -> decltype(work()) {
    using Result = decltype(work());
    try {
        return work();
    } catch (const std::exception&) {
        return Result();
    }
}

/// A new object with one reference, or null without memory.
template <typename T, typename... Arguments>
T* NewObject(Arguments&&... arguments) noexcept {
    try {
        return new T(std::forward<Arguments>(arguments)...);
    } catch (const std::exception&) {
        return nullptr;
    }
}

}  // namespace platform
