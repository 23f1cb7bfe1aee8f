#pragma once

/// An array between two pages that nothing may touch: its last element ends where the second begins. A read or write one element past
/// the end stops the test.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <type_traits>
#include <vector>

namespace reference {

template <typename T>
class GuardedArray {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    explicit GuardedArray(std::size_t count, T fill = T{}) : size_(count) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t inner = (count * sizeof(T) + page - 1) / page * page;
        mapped_ = inner + 2 * page;
        void* block = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED) throw std::bad_alloc();
        block_ = static_cast<std::byte*>(block);
        if (inner != 0 && mprotect(block_ + page, inner, PROT_READ | PROT_WRITE) != 0) {
            munmap(block_, mapped_);
            throw std::bad_alloc();
        }
        data_ = reinterpret_cast<T*>(block_ + page + inner) - count;
        std::fill_n(data_, count, fill);
    }
    explicit GuardedArray(const std::vector<T>& values) : GuardedArray(values.size()) { std::copy(values.begin(), values.end(), data_); }
    GuardedArray(const GuardedArray&) = delete;
    GuardedArray& operator=(const GuardedArray&) = delete;
    ~GuardedArray() { munmap(block_, mapped_); }

    T* Data() { return data_; }
    const T* Data() const { return data_; }
    std::size_t Size() const { return size_; }
    T& operator[](std::size_t index) { return data_[index]; }
    const T& operator[](std::size_t index) const { return data_[index]; }
    std::vector<T> Values() const { return std::vector<T>(data_, data_ + size_); }

private:
    std::size_t size_;
    std::size_t mapped_ = 0;
    std::byte* block_ = nullptr;
    T* data_ = nullptr;
};

}  // namespace reference
