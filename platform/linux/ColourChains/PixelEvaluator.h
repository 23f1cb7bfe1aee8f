#pragma once

#include <cstddef>

namespace platform {

/// Converts pixels from one format to another along one chain of profiles. Immutable: any number of threads may use one at once.
///
/// The result for a pixel depends on that pixel only, whatever the row that it stands in. Nothing allocates.
class PixelEvaluator {
public:
    PixelEvaluator() = default;
    PixelEvaluator(const PixelEvaluator&) = delete;
    PixelEvaluator& operator=(const PixelEvaluator&) = delete;
    virtual ~PixelEvaluator() = default;

    virtual void ConvertRow(const void* source, void* destination, std::size_t count) const = 0;
    /// What does the work, for tests and benchmarks.
    virtual const char* Name() const = 0;
};

}  // namespace platform
