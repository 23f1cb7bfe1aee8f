// Relocatable and fixed memory blocks.

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/Carbon.h"
#include "platform/linux/Carbon/CarbonStatus.h"

namespace {

// What a Handle points at: the master pointer comes first, so the block's address is one step away for every reader.
struct MasterPointer {
    Ptr address;
    Size size;
};

// Stands before a fixed block; its size keeps the block aligned for every type.
struct alignas(std::max_align_t) PtrHeader {
    Size size;
};

thread_local OSErr sMemError = 0;

MasterPointer* MasterOf(Handle handle) {
    return reinterpret_cast<MasterPointer*>(handle);
}
PtrHeader* HeaderOf(Ptr block) {
    return reinterpret_cast<PtrHeader*>(block) - 1;
}

// Room for `size` bytes and at least one, so that an empty block has an address too.
Ptr Allocate(Size size) {
    if (size < 0) return nullptr;
    return static_cast<Ptr>(std::malloc(size == 0 ? 1 : static_cast<std::size_t>(size)));
}

}  // namespace

Handle NewHandle(Size size) {
    sMemError = kStatusNoMemory;
    Ptr address = Allocate(size);
    if (!address) return nullptr;
    auto* master = new (std::nothrow) MasterPointer{address, size};
    if (!master) {
        std::free(address);
        return nullptr;
    }
    sMemError = 0;
    return &master->address;
}

void DisposeHandle(Handle handle) {
    sMemError = 0;
    if (!handle) return;
    std::free(*handle);
    delete MasterOf(handle);
}

Size GetHandleSize(Handle handle) {
    sMemError = handle ? OSErr{0} : kNilHandle;
    return handle ? MasterOf(handle)->size : kNilHandle;
}

// Blocks never move here, so there is nothing to hold in place.
void HLock(Handle handle) {
    sMemError = handle ? OSErr{0} : kNilHandle;
}
void HUnlock(Handle handle) {
    sMemError = handle ? OSErr{0} : kNilHandle;
}

OSErr HandToHand(Handle* handle) {
    if (!handle || !*handle) return sMemError = kNilHandle;
    const Size size = MasterOf(*handle)->size;
    Handle copy = NewHandle(size);
    if (!copy) return sMemError;
    std::memcpy(*copy, **handle, static_cast<std::size_t>(size));
    *handle = copy;
    return 0;
}

Ptr NewPtr(Size size) {
    sMemError = kStatusNoMemory;
    Size whole = 0;
    if (size < 0 || __builtin_add_overflow(size, static_cast<Size>(sizeof(PtrHeader)), &whole)) return nullptr;
    auto* header = reinterpret_cast<PtrHeader*>(Allocate(whole));
    if (!header) return nullptr;
    header->size = size;
    sMemError = 0;
    return reinterpret_cast<Ptr>(header + 1);
}

void DisposePtr(Ptr block) {
    sMemError = 0;
    if (block) std::free(HeaderOf(block));
}

Size GetPtrSize(Ptr block) {
    sMemError = block ? OSErr{0} : kNilHandle;
    return block ? HeaderOf(block)->size : kNilHandle;
}

OSErr MemError(void) {
    return sMemError;
}
