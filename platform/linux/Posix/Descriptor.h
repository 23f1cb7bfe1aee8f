#pragma once

#include <unistd.h>

#include <utility>

namespace platform {

/// Closes a file descriptor at the end of the scope; a negative one is none.
class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    int Get() const { return descriptor_; }
    /// The caller closes it.
    int Detach() { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

}  // namespace platform
