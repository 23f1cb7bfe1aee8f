#include "tests/reference/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

reference::Allocations gCounted;
std::size_t gFailing = 0;

bool Fails() {
    return gFailing != 0 && --gFailing == 0;
}

void* Counted(void* block) {
    if (block) ++gCounted.taken;
    return block;
}

}  // namespace

namespace reference {

Allocations CountedAllocations() {
    return gCounted;
}

void FailAllocation(std::size_t n) {
    gFailing = n;
}

}  // namespace reference

// The linker leads every call of NAME in this program to __wrap_NAME, and __real_NAME to the C library.
extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __real_aligned_alloc(std::size_t alignment, std::size_t size);
int __real_posix_memalign(void** block, std::size_t alignment, std::size_t size);
void __real_free(void* block);
void* __real__Znwm(std::size_t size);
void* __real__Znam(std::size_t size);
void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);

void* __wrap_malloc(std::size_t size) {
    return Fails() ? nullptr : Counted(__real_malloc(size));
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return Fails() ? nullptr : Counted(__real_calloc(count, size));
}
void* __wrap_realloc(void* block, std::size_t size) {
    if (Fails()) return nullptr;
    if (block) ++gCounted.freed;
    return Counted(__real_realloc(block, size));
}
void* __wrap_aligned_alloc(std::size_t alignment, std::size_t size) {
    return Fails() ? nullptr : Counted(__real_aligned_alloc(alignment, size));
}
int __wrap_posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    if (Fails()) return 12;  // ENOMEM
    const int status = __real_posix_memalign(block, alignment, size);
    if (status == 0) ++gCounted.taken;
    return status;
}
void __wrap_free(void* block) {
    if (block) ++gCounted.freed;
    __real_free(block);
}
void* __wrap__Znwm(std::size_t size) {
    if (Fails()) throw std::bad_alloc();
    return Counted(__real__Znwm(size));
}
void* __wrap__Znam(std::size_t size) {
    if (Fails()) throw std::bad_alloc();
    return Counted(__real__Znam(size));
}
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
    return Fails() ? nullptr : Counted(__real__ZnwmRKSt9nothrow_t(size, tag));
}
void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
    return Fails() ? nullptr : Counted(__real__ZnamRKSt9nothrow_t(size, tag));
}

}  // extern "C"
