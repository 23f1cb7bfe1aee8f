#include "platform/CoreFoundation.h"

#include <cassert>

#include "platform/linux/CoreFoundation/CoreFoundationObject.h"

using platform::Object;

const CFAllocatorRef kCFAllocatorDefault = nullptr;

// A null object stops the macOS system; here a debug build stops and a release build ignores it.

CFTypeRef CFRetain(CFTypeRef object) {
    assert(object);
    if (!object) return nullptr;
    std::atomic<CFIndex>& references = static_cast<const Object*>(object)->references;
    if (references.load(std::memory_order_relaxed) >= 0) references.fetch_add(1, std::memory_order_relaxed);
    return object;
}

void CFRelease(CFTypeRef object) {
    assert(object);
    if (!object) return;
    const Object* base = static_cast<const Object*>(object);
    if (base->references.load(std::memory_order_relaxed) < 0) return;
    // What other threads did with the object must have happened before it is freed.
    if (base->references.fetch_sub(1, std::memory_order_acq_rel) == 1) base->objectClass->destroy(base);
}

CFIndex CFGetRetainCount(CFTypeRef object) {
    const CFIndex references = static_cast<const Object*>(object)->references.load(std::memory_order_relaxed);
    return references < 0 ? std::numeric_limits<CFIndex>::max() : references;
}

CFTypeID CFGetTypeID(CFTypeRef object) {
    return platform::TypeID(*static_cast<const Object*>(object)->objectClass);
}

Boolean CFEqual(CFTypeRef a, CFTypeRef b) {
    if (a == b) return true;
    if (!a || !b) return false;
    const Object* first = static_cast<const Object*>(a);
    const Object* second = static_cast<const Object*>(b);
    return first->objectClass == second->objectClass && first->objectClass->equal && first->objectClass->equal(first, second);
}

CFHashCode CFHash(CFTypeRef object) {
    const Object* base = static_cast<const Object*>(object);
    return base->objectClass->hash ? base->objectClass->hash(base) : reinterpret_cast<CFHashCode>(object);
}
