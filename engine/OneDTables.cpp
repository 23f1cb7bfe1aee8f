#include "engine/OneDTables.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <memory>

#include "engine/ReverseSegments.h"
#include "platform/Codes.h"
#include "platform/FullScale.h"

namespace {

constexpr uint32_t kFull32768 = 32768;

// Segment indices and bucket counters are 16 bits wide.
constexpr int kMostReverseEntries = 65536;
// Ordinary curves need some hundred kilobytes; one that swings from end to end at every step would ask for gigabytes.
constexpr uint64_t kMostReverseStorage = uint64_t{256} << 20;

struct Freer {
    void operator()(void* block) const { std::free(block); }
};
struct ReverseDisposer {
    void operator()(ICC_ReverseTable* table) const { ICC_DisposeReverseTable(table); }
};

// bucketCount is at most 32769, so the product stays below 2^31.
uint32_t BucketOf(uint16_t value, uint32_t bucketCount) {
    return (bucketCount - 1) * value / kFull65535;
}

size_t BucketSize(uint32_t capacity) {
    return sizeof(ICC_ReverseBucket) + (size_t{capacity} + 1) * sizeof(ICC_ReverseSegment);
}
static_assert(sizeof(ICC_ReverseBucket) + sizeof(ICC_ReverseSegment) == 12 && sizeof(ICC_ReverseSegment) == 8);

}  // namespace

uint16_t ICC_OneDLookup(uint16_t x, const uint16_t* table, uint32_t entryCount) {
    const uint64_t position = uint64_t{x} * (entryCount - 1);
    const uint64_t index = position / kFull65535;
    const uint64_t fraction = position % kFull65535;
    // At the top of the range the next entry would lie past the table, with weight 0.
    const uint64_t next = index + (fraction != 0);
    return static_cast<uint16_t>((table[next] * fraction + (kFull65535 - fraction) * table[index]) / kFull65535);
}

uint16_t ICC_OneDLookup32768(uint16_t x, const uint16_t* table, uint32_t entryCount) {
    const uint64_t position = uint64_t{x} * (entryCount - 1);
    const uint64_t index = position / kFull65535;
    // The index steps at 65535 and the weight at 32768: deliberate, as is the wrapping outside the one use that fits.
    const uint32_t fraction = static_cast<uint32_t>(position) - kFull32768 * static_cast<uint32_t>(index);
    const uint64_t next = std::min<uint64_t>(index + 1, entryCount - 1);
    return static_cast<uint16_t>((table[index] * (kFull32768 - fraction) + table[next] * fraction) >> 15);
}

uint16_t ICC_OneDLookupWithExtrapolation(const uint16_t* table, uint32_t entryCount, double x) {
    if (x > 1.0) {
        const int step = table[entryCount - 1] - table[entryCount - 2];
        const double value = (x - 1.0) * step / (1.0 / (entryCount - 1));
        // Not offset by the last entry: deliberate. The order of the tests takes the NaN of an infinite x on a flat step to 0.
        const double clamped = value > 0.0 ? std::min(value, 1.0) : 0.0;
        return static_cast<uint16_t>(std::lround(clamped * kFull65535));
    }
    // The remainder is what 16 bits keep of any whole number, and it fits an integer whatever x was.
    const double remainder = std::fmod(std::round(x * kFull65535), 65536.0);
    const int wrapped = std::isnan(remainder) ? 0 : static_cast<int>(remainder);
    return ICC_OneDLookup(static_cast<uint16_t>(wrapped), table, entryCount);
}

uint16_t ICC_InverseOneDLookup(uint16_t y, const uint16_t* table, uint32_t entryCount, uint8_t* outOfGamut) {
    const uint32_t last = entryCount - 1;
    if (y > table[last]) {
        *outOfGamut = 255;
        return kFull65535;
    }
    if (y < table[0]) {
        *outOfGamut = 255;
        return 0;
    }
    if (y == table[last]) return kFull65535;
    if (y == table[0]) return 0;

    // From here on t[low] <= y < t[high], whatever the table holds between: the step below is never flat.
    uint32_t low = 0;
    uint32_t high = last;
    while (high - low > 1) {
        const uint32_t middle = low + (high - low) / 2;
        (table[middle] > y ? high : low) = middle;
    }
    const uint64_t base = uint64_t{low} * kFull65535 / last;
    const uint64_t top = uint64_t{high} * kFull65535 / last;
    const uint32_t above = static_cast<uint32_t>(y - table[low]);
    const uint32_t step = static_cast<uint32_t>(table[high] - table[low]);
    return static_cast<uint16_t>((top - base) * above / step + base);
}

int ICC_BuildReverseTable(const uint16_t* table, int entryCount, ICC_ReverseTable** out) {
    uint64_t room = kMostReverseStorage;
    return BuildReverseTableWithin(table, entryCount, &room, out);
}

int BuildReverseTableWithin(const uint16_t* table, int entryCount, uint64_t* room, ICC_ReverseTable** out) {
    *out = nullptr;
    if (entryCount < 2) return 0;
    if (entryCount > kMostReverseEntries) return kStatusNoMemory;
    const uint32_t segmentCount = static_cast<uint32_t>(entryCount) - 1;
    const uint32_t bucketCount = (static_cast<uint32_t>(entryCount) + 2) / 2;

    std::unique_ptr<ICC_ReverseTable, ReverseDisposer> reverse(static_cast<ICC_ReverseTable*>(std::calloc(1, sizeof(ICC_ReverseTable))));
    if (!reverse) return kStatusNoMemory;
    reverse->bucketCount = bucketCount;
    reverse->entryCount = static_cast<uint32_t>(entryCount);
    const auto [smallest, largest] = std::minmax_element(table, table + entryCount);
    reverse->minValue = *smallest;
    reverse->maxValue = *largest;

    reverse->buckets = static_cast<ICC_ReverseBucket**>(std::calloc(bucketCount, sizeof(ICC_ReverseBucket*)));
    const std::unique_ptr<int32_t[], Freer> changes(static_cast<int32_t*>(std::calloc(bucketCount + 1, sizeof(int32_t))));
    if (!reverse->buckets || !changes) return kStatusNoMemory;

    // Each segment adds one to every bucket between those of its two ends: noted as a rise and a fall, and summed afterwards.
    for (uint32_t i = 0; i < segmentCount; ++i) {
        const auto [low, high] = std::minmax(table[i], table[i + 1]);
        ++changes[BucketOf(low, bucketCount)];
        --changes[BucketOf(high, bucketCount) + 1];
    }
    uint64_t storageSize = 0;
    int32_t registered = 0;
    for (uint32_t k = 0; k < bucketCount; ++k) {
        registered += changes[k];
        storageSize += BucketSize(static_cast<uint32_t>(registered));
    }
    if (storageSize > *room) {
        *room = 0;
        return kStatusNoMemory;
    }
    reverse->storage = std::calloc(1, storageSize);
    if (!reverse->storage) return kStatusNoMemory;
    *room -= storageSize;

    auto* place = static_cast<std::byte*>(reverse->storage);
    registered = 0;
    for (uint32_t k = 0; k < bucketCount; ++k) {
        registered += changes[k];
        reverse->buckets[k] = reinterpret_cast<ICC_ReverseBucket*>(place);
        reverse->buckets[k]->capacity = static_cast<uint16_t>(registered);
        place += BucketSize(static_cast<uint32_t>(registered));
    }

    for (uint32_t i = segmentCount; i-- > 0;) {
        const auto [low, high] = std::minmax(table[i], table[i + 1]);
        // The larger end stands first whatever the direction: deliberate, it is what mirrors the segments of a rising curve.
        const ICC_ReverseSegment segment = {high, low, static_cast<uint16_t>(i), static_cast<uint16_t>(i * 65536 / segmentCount)};
        for (uint32_t k = BucketOf(low, bucketCount); k <= BucketOf(high, bucketCount); ++k) {
            ICC_ReverseBucket* bucket = reverse->buckets[k];
            SegmentsOf(bucket)[bucket->used++] = segment;
        }
    }
    *out = reverse.release();
    return 0;
}

void ICC_DisposeReverseTable(ICC_ReverseTable* table) {
    if (!table) return;
    std::free(table->buckets);
    std::free(table->storage);
    std::free(table);
}

uint16_t ICC_ReverseOneDLookup(uint16_t y, const ICC_ReverseTable* table, uint8_t* outOfGamut) {
    if (y < table->minValue || y > table->maxValue) {
        *outOfGamut = 255;
        y = std::clamp(y, table->minValue, table->maxValue);
    }
    const ICC_ReverseBucket* bucket = table->buckets[BucketOf(y, table->bucketCount)];
    const ICC_ReverseSegment* segments = SegmentsOf(bucket);
    const uint32_t lastEntry = table->entryCount - 1;
    for (uint32_t i = 0; i < bucket->used; ++i) {
        const ICC_ReverseSegment segment = segments[i];
        // Unsigned 32-bit: 65534 * 65535 + 65535 still fits, and the difference of the first two terms may pass below 0 on the way.
        const uint32_t start = uint32_t{segment.index} * kFull65535;
        if (segment.high == y) return static_cast<uint16_t>(start / lastEntry);
        if (segment.high > y && segment.low <= y) {
            const uint32_t above = static_cast<uint32_t>(y - segment.low);
            const uint32_t height = static_cast<uint32_t>(segment.high - segment.low);
            return static_cast<uint16_t>((start - above * kFull65535 / height + kFull65535) / lastEntry);
        }
    }
    return 0;
}
