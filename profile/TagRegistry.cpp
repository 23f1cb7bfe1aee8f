#include "profile/TagRegistry.h"

#include <new>

#include "platform/BigEndian.h"
#include "platform/Codes.h"
#include "platform/Dispatch.h"
#include "platform/MadeOnce.h"
#include "platform/Owned.h"

namespace {

struct Registry {
    dispatch_queue_t queue;
    CFMutableDictionaryRef keys;  // used on the queue
};

/// Null without memory; the next call tries again.
Registry* TheRegistry() {
    static constinit platform::MadeOnce<Registry> registry;
    static dispatch_queue_t queue = nullptr;  // one that was made stays, as queues are never freed; guarded by the making
    try {
        return registry.Get([] {
            if (!queue) queue = dispatch_queue_create("ICC Profile Tag Registry", DISPATCH_QUEUE_SERIAL);
            // No key callbacks: the signature itself is the key, in a pointer's place.
            Owned<CFMutableDictionaryRef> keys(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, &kCFTypeDictionaryValueCallBacks));
            if (!queue || !keys) throw std::bad_alloc();
            auto* const made = new Registry{queue, nullptr};
            made->keys = keys.Detach();
            return made;
        });
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool IsASCII(uint32_t signature) {
    return (signature & 0x80808080) == 0;
}

struct Lookup {
    CFMutableDictionaryRef keys;
    uint32_t signature;
    CFStringRef key;
};

void FindOrAddKey(void* context) {
    auto* lookup = static_cast<Lookup*>(context);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): never followed as a pointer.
    const auto* signature = reinterpret_cast<const void*>(uintptr_t{lookup->signature});
    if (!CFDictionaryContainsKey(lookup->keys, signature)) {
        UInt8 characters[4];
        WriteBigEndian32(lookup->signature, characters);
        const Owned<CFStringRef> key(CFStringCreateWithBytes(kCFAllocatorDefault, characters, 4, kCFStringEncodingASCII, FALSE));
        if (key) CFDictionarySetValue(lookup->keys, signature, key.Get());
    }
    lookup->key = static_cast<CFStringRef>(CFDictionaryGetValue(lookup->keys, signature));
}

}  // namespace

CFStringRef TagKey(uint32_t signature) {
    const Registry* const registry = TheRegistry();
    if (!registry) return nullptr;
    Lookup lookup = {registry->keys, signature, nullptr};
    dispatch_sync_f(registry->queue, &lookup, FindOrAddKey);
    return lookup.key;
}

OSErr FindTag(ColorSyncProfileRef profile, uint32_t signature, bool* found) {
    CFStringRef key = TagKey(signature);
    *found = key && ColorSyncProfileContainsTag(profile, key);
    return key || !IsASCII(signature) ? kStatusDone : kStatusNoMemory;
}

OSErr CopyTag(ColorSyncProfileRef profile, uint32_t signature, Owned<CFDataRef>* tag) {
    CFStringRef key = TagKey(signature);
    tag->Reset(key ? ColorSyncProfileCopyTag(profile, key) : nullptr);
    if (*tag) return 0;
    // A tag that is there all the same was not copied for lack of memory.
    bool isThere = false;
    const OSErr status = FindTag(profile, signature, &isThere);
    return isThere ? kStatusNoMemory : status;
}

void SetTag(ColorSyncMutableProfileRef profile, uint32_t signature, CFDataRef data) {
    CFStringRef key = TagKey(signature);
    if (key) ColorSyncProfileSetTag(profile, key, data);
}
