#pragma once

#include <utility>

#include "platform/CoreFoundation.h"

/// Holds a Create or Copy result and releases it at the end of the scope. C++ only, used inside the library and its tests.
template <typename Ref>
class Owned {
public:
    Owned() = default;
    explicit Owned(Ref object) : object_(object) {}
    Owned(Owned&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Owned& operator=(Owned&& other) noexcept {
        if (this != &other) Reset(std::exchange(other.object_, nullptr));
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { Reset(nullptr); }

    /// Another reference to a borrowed object.
    static Owned Retain(Ref object) {
        if (object) CFRetain(object);
        return Owned(object);
    }

    Ref Get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    /// Hands the reference to the caller.
    [[nodiscard]] Ref Detach() { return std::exchange(object_, nullptr); }
    void Reset(Ref object) {
        if (object_) CFRelease(object_);
        object_ = object;
    }

private:
    Ref object_ = nullptr;
};
