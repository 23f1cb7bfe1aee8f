#include "engine/MonitorTables.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "engine/ReverseSegments.h"
#include "platform/FullScale.h"

namespace {

constexpr int kLowBits = 14;
constexpr int32_t kLargestElement = 1024 * 65536;

__extension__ typedef unsigned __int128 Wide;

/// Division of any 32-bit number by the same 1..65535, truncated: the reciprocal is too large by at most 2^-48, which any
/// number makes less than 2^-16 and so less than one part of a divisor.
class Divisor {
public:
    explicit Divisor(uint32_t divisor) : reciprocal_((uint64_t{1} << 48) / divisor + 1) {}
    uint32_t Quotient(uint32_t number) const { return static_cast<uint32_t>(Wide{number} * reciprocal_ >> 48); }

private:
    uint64_t reciprocal_;
};

/// ICC_OneDLookup of every value.
void TabulateCurve(const uint16_t* curve, uint32_t entryCount, uint16_t values[65536]) {
    const size_t indexStep = (entryCount - 1) / kFull65535;
    const uint32_t fractionStep = (entryCount - 1) % kFull65535;
    size_t index = 0;
    uint32_t fraction = 0;
    for (uint32_t x = 0; x <= kFull65535; ++x) {
        const uint32_t here = curve[index];
        const uint32_t next = curve[index + (fraction != 0)];
        // At most 65535 * 65535, where (s + s / 65536 + 1) / 65536 is s / 65535.
        const uint32_t sum = next * fraction + here * (kFull65535 - fraction);
        values[x] = static_cast<uint16_t>((sum + (sum >> 16) + 1) >> 16);
        fraction += fractionStep;
        const bool carry = fraction >= kFull65535;
        index += indexStep + carry;
        fraction -= carry ? kFull65535 : 0;
    }
}

/// ICC_ReverseOneDLookup of every value.
///
/// The segments of a bucket stand from the highest index down, and the first that holds a value decides. As the curve goes on from segment to
/// segment, what has been decided in a bucket is always one stretch without gaps, and each value is computed once.
void TabulateReverse(const ICC_ReverseTable& reverse, uint16_t values[65536]) {
    const Divisor lastEntry(reverse.entryCount - 1);
    const uint32_t lastBucket = reverse.bucketCount - 1;
    uint32_t bucketStart = 0;
    for (uint32_t k = 0; k <= lastBucket; ++k) {
        const uint32_t nextStart = k == lastBucket ? kFull65535 + 1 : ((k + 1) * kFull65535 + lastBucket - 1) / lastBucket;
        const int32_t first = static_cast<int32_t>(std::max<uint32_t>(bucketStart, reverse.minValue));
        const int32_t last = static_cast<int32_t>(std::min<uint32_t>(nextStart - 1, reverse.maxValue));
        bucketStart = nextStart;
        int32_t decidedFrom = last + 1;
        int32_t decidedTo = last;
        const ICC_ReverseBucket* const bucket = reverse.buckets[k];
        for (uint32_t i = 0; i < bucket->used && decidedTo - decidedFrom < last - first; ++i) {
            const ICC_ReverseSegment segment = SegmentsOf(bucket)[i];
            const int32_t from = std::max<int32_t>(segment.low, first);
            const int32_t to = std::min<int32_t>(segment.high, last);
            const uint32_t start = uint32_t{segment.index} * kFull65535;
            const Divisor height(std::max(1, segment.high - segment.low));
            const auto decide = [&](int32_t y, int32_t end) {
                for (; y <= end; ++y) {
                    const uint32_t above = height.Quotient(static_cast<uint32_t>(y - segment.low) * kFull65535);
                    values[y] = static_cast<uint16_t>(lastEntry.Quotient(y == segment.high ? start : start - above + kFull65535));
                }
            };
            if (decidedFrom > decidedTo) {
                decide(from, to);
                decidedFrom = from;
                decidedTo = to;
            } else {
                decide(from, std::min(to, decidedFrom - 1));
                decide(std::max(from, decidedTo + 1), to);
                decidedFrom = std::min(decidedFrom, from);
                decidedTo = std::max(decidedTo, to);
            }
        }
    }
    std::fill_n(values, reverse.minValue, values[reverse.minValue]);
    std::fill(values + reverse.maxValue + 1, values + 65536, values[reverse.maxValue]);
}

bool Split(const FixedMatrix& matrix, SplitMatrix* split) {
    *split = {};
    for (int row = 0; row < 3; ++row) {
        int32_t highSum = 0, lowSum = 0;
        for (int column = 0; column < 3; ++column) {
            const int32_t element = matrix.element[3 * row + column];
            if (element >= kLargestElement || element <= -kLargestElement) return false;
            const int32_t high = element >> kLowBits;
            const int32_t low = element - (high << kLowBits);
            split->high[row][column] = static_cast<int16_t>(high);
            split->low[row][column] = static_cast<int16_t>(low);
            highSum += high;
            lowSum += low;
        }
        split->offset[row] = 32768 * highSum + 2 * lowSum;
    }
    return true;
}

}  // namespace

MonitorTables* MakeMonitorTables(const ICC_ShaperMatrix& shaper) {
    for (int c = 0; c < 3; ++c) {
        if (!shaper.curves[c] || shaper.counts[c] == 0 || !shaper.reverse[c]) return nullptr;
    }
    auto* const tables = static_cast<MonitorTables*>(std::calloc(1, sizeof(MonitorTables)));
    if (!tables) return nullptr;
    tables->matrix = shaper.matrix;
    tables->inverseMatrix = shaper.inverseMatrix;
    const bool matrixSplit = Split(shaper.matrix, &tables->splitMatrix);
    tables->canSplit = Split(shaper.inverseMatrix, &tables->splitInverse) && matrixSplit;
    for (int c = 0; c < 3; ++c) {
        tables->lowest[c] = shaper.reverse[c]->minValue;
        tables->highest[c] = shaper.reverse[c]->maxValue;
        TabulateCurve(shaper.curves[c], shaper.counts[c], tables->toLinear[c]);
        TabulateReverse(*shaper.reverse[c], tables->toDevice[c]);
    }
    return tables;
}

void DisposeMonitorTables(MonitorTables* tables) {
    std::free(tables);
}
