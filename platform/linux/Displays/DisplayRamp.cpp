#include "platform/linux/Displays/DisplayRamp.h"

#include <algorithm>
#include <cmath>

#include "platform/FullScale.h"

namespace platform {

size_t RampKnot(size_t i, size_t n, size_t size) {
    return n < 2 ? 0 : (2 * i * (size - 1) + (n - 1)) / (2 * (n - 1));
}

uint16_t RampEntry(double value) {
    // Not a number becomes 0, as the first comparison fails for it.
    return value > 0 ? static_cast<uint16_t>(std::lround(std::min(value, 1.0) * kFull65535)) : uint16_t{0};
}

std::vector<uint16_t> StretchedRamp(const float* samples, size_t n, size_t size) {
    std::vector<uint16_t> entries(size);
    if (n > size) {
        for (size_t j = 0; j < size; ++j) {
            const double position = size < 2 ? 0.0 : static_cast<double>(j * (n - 1)) / static_cast<double>(size - 1);
            const size_t i = std::min(static_cast<size_t>(position), n - 2);
            const double part = position - static_cast<double>(i);
            entries[j] = RampEntry(static_cast<double>(samples[i]) * (1 - part) + static_cast<double>(samples[i + 1]) * part);
        }
        return entries;
    }
    for (size_t i = 0; i + 1 < n; ++i) {
        const size_t from = RampKnot(i, n, size);
        const size_t to = RampKnot(i + 1, n, size);
        for (size_t j = from; j <= to; ++j) {
            const double part = static_cast<double>(j - from) / static_cast<double>(to - from);
            entries[j] = RampEntry(static_cast<double>(samples[i]) * (1 - part) + static_cast<double>(samples[i + 1]) * part);
        }
    }
    return entries;
}

}  // namespace platform
