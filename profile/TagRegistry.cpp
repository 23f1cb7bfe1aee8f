#include "profile/TagRegistry.h"

#include "platform/BigEndian.h"
#include "platform/Codes.h"
#include "platform/Dispatch.h"
#include "platform/Owned.h"

namespace {

dispatch_once_t sRegistryOnce;
dispatch_queue_t sRegistryQueue;
CFMutableDictionaryRef sTagKeys;

void CreateRegistry(void*) {
    sRegistryQueue = dispatch_queue_create("ICC Profile Tag Registry", DISPATCH_QUEUE_SERIAL);
    // No key callbacks: the signature itself is the key, in a pointer's place.
    sTagKeys = CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, &kCFTypeDictionaryValueCallBacks);
}

bool IsASCII(uint32_t signature) {
    return (signature & 0x80808080) == 0;
}

struct Lookup {
    uint32_t signature;
    CFStringRef key;
};

void FindOrAddKey(void* context) {
    auto* lookup = static_cast<Lookup*>(context);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): never followed as a pointer.
    const auto* signature = reinterpret_cast<const void*>(uintptr_t{lookup->signature});
    if (!CFDictionaryContainsKey(sTagKeys, signature)) {
        UInt8 characters[4];
        WriteBigEndian32(lookup->signature, characters);
        const Owned<CFStringRef> key(CFStringCreateWithBytes(kCFAllocatorDefault, characters, 4, kCFStringEncodingASCII, FALSE));
        if (key) CFDictionarySetValue(sTagKeys, signature, key.Get());
    }
    lookup->key = static_cast<CFStringRef>(CFDictionaryGetValue(sTagKeys, signature));
}

}  // namespace

CFStringRef TagKey(uint32_t signature) {
    dispatch_once_f(&sRegistryOnce, nullptr, CreateRegistry);
    if (!sRegistryQueue || !sTagKeys) return nullptr;
    Lookup lookup = {signature, nullptr};
    dispatch_sync_f(sRegistryQueue, &lookup, FindOrAddKey);
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
