#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "platform/linux/Displays/DisplayRamp.h"

namespace {

using Entries = std::vector<std::uint16_t>;

TEST(DisplayRamp, SamplesStandAtTheNearestEntry) {
    for (const size_t size : {32U, 64U, 255U, 256U, 257U, 1024U, 4096U}) {
        const size_t n = std::min<size_t>(size, 256);
        EXPECT_EQ(platform::RampKnot(0, n, size), 0U);
        EXPECT_EQ(platform::RampKnot(n - 1, n, size), size - 1);
        for (size_t i = 0; i < n; ++i) {
            const double exact = static_cast<double>(i) * static_cast<double>(size - 1) / static_cast<double>(n - 1);
            EXPECT_LE(std::abs(static_cast<double>(platform::RampKnot(i, n, size)) - exact), 0.5) << i << " of " << size;
        }
    }
}

TEST(DisplayRamp, IsReadAgainAsItWasLoaded) {
    for (const size_t size : {2U, 32U, 64U, 256U, 1024U, 4096U}) {
        const size_t n = std::min<size_t>(size, 256);
        std::vector<float> samples;
        for (size_t i = 0; i < n; ++i) samples.push_back(static_cast<float>(i * 7919 % 65536) / 65535.0F);
        const Entries entries = platform::StretchedRamp(samples.data(), n, size);
        ASSERT_EQ(entries.size(), size);
        for (size_t i = 0; i < n; ++i) EXPECT_EQ(entries[platform::RampKnot(i, n, size)], i * 7919 % 65536) << i << " of " << size;
    }
}

TEST(DisplayRamp, IsLinearBetweenItsSamples) {
    const float ends[2] = {0.0F, 1.0F};
    const Entries stretched = platform::StretchedRamp(ends, 2, 4096);
    for (size_t i = 0; i < stretched.size(); ++i) EXPECT_NEAR(stretched[i], static_cast<double>(i) * 65535 / 4095, 0.5);
    // More samples than entries, as of a document from another display.
    float fine[256];
    for (int i = 0; i < 256; ++i) fine[i] = static_cast<float>(i) / 255.0F;
    const Entries coarse = platform::StretchedRamp(fine, 256, 64);
    for (size_t i = 0; i < coarse.size(); ++i) EXPECT_NEAR(coarse[i], static_cast<double>(i) * 65535 / 63, 0.51);
}

TEST(DisplayRamp, ValuesOutsideAreCut) {
    const struct {
        double value;
        int entry;
    } rows[] = {{-0.1, 0}, {0, 0}, {0.5, 32768}, {1, 65535}, {1.5, 65535}, {1e300, 65535}, {std::nan(""), 0}};
    for (const auto& row : rows) EXPECT_EQ(platform::RampEntry(row.value), row.entry) << row.value;
}

}  // namespace
