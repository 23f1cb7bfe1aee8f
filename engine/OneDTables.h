#pragma once

/// One-dimensional tables of unsigned 16-bit values: n entries (2 or more), entry i the value at input i * 65535 / (n - 1), inputs and
/// outputs 0..65535 = full scale. All divisions truncate. Lookups allocate nothing, never fail, read nothing past entry n - 1, and may be
/// called on any thread. Flags are only ever set to 255, never cleared: zero one first, then several lookups may share it.

#include <stdint.h>

#include "platform/Export.h"
#include "platform/FullScale.h"

CM_C_BEGIN

/// Looks up one value by linear interpolation.
///
/// returns   (t[i+1] * f + t[i] * (65535 - f)) / 65535, where p = x * (n - 1), i = p / 65535, f = p mod 65535; all unsigned 64-bit
CM_EXPORT uint16_t ICC_OneDLookup(uint16_t x, const uint16_t* table, uint32_t entryCount);

/// Linear interpolation with 15-bit weights; meaningful for n = 2 and x up to 32768 (= full scale) only.
///
/// returns   (t[i] * (32768 - f) + t[i+1] * f) >> 15, low 16 bits, where i = x * (n - 1) / 65535, f = x * (n - 1) - 32768 * i; i is formed
///           in 64 bits, f and the sum in unsigned 32 bits, where they wrap; t[n-1] stands for t[n]
CM_EXPORT uint16_t ICC_OneDLookup32768(uint16_t x, const uint16_t* table, uint32_t entryCount);

/// Linear interpolation that goes on past the end of the table.
///
/// x         1.0 = full scale. A negative x wraps round modulo 65536 / 65535; infinities below and NaN read as 0.
/// returns   up to 1.0, ICC_OneDLookup of round(x * 65535); above, (x - 1) * (t[n-1] - t[n-2]) * (n - 1), clamped to 0..1 and scaled to
///           65535. The raw slope alone decides there: any rising last step soon saturates, others give 0.
CM_EXPORT uint16_t ICC_OneDLookupWithExtrapolation(const uint16_t* table, uint32_t entryCount, double x);

/// Finds the input that gives `y` in a rising table, by binary search.
///
/// outOfGamut   set to 255 when y lies outside t[0]..t[n-1]
/// returns      65535 from t[n-1] up (tested first), 0 from t[0] down; else, for the step t[i] <= y < t[i+1],
///              (top - base) * (y - t[i]) / (t[i+1] - t[i]) + base, where base and top are i and i + 1, each * 65535 / (n - 1)
CM_EXPORT uint16_t ICC_InverseOneDLookup(uint16_t y, const uint16_t* table, uint32_t entryCount, uint8_t* outOfGamut);

/// One piece of a curve between entries index and index + 1, as a bucket lists it.
typedef struct ICC_ReverseSegment {
    uint16_t high;  // the larger of the two end values
    uint16_t low;   // the smaller
    uint16_t index;
    uint16_t position;  // (index * 65536) / (n - 1), 16 bits; stored, never read by the lookup
} ICC_ReverseSegment;

/// The head of a list of segments that touch one range of values. The segments follow it directly, highest index first, and after them
/// stands room for one more: a bucket takes 12 + 8 * capacity bytes.
typedef struct ICC_ReverseBucket {
    uint16_t capacity;
    uint16_t used;
} ICC_ReverseBucket;

/// A curve's inverse: value v falls in bucket ((bucketCount - 1) * v) / 65535.
typedef struct ICC_ReverseTable {
    uint16_t minValue;
    uint16_t maxValue;
    uint32_t bucketCount;         // (n + 2) / 2
    uint32_t entryCount;          // n
    ICC_ReverseBucket** buckets;  // each points into storage
    void* storage;                // every bucket, one after another
} ICC_ReverseTable;

/// Builds the reverse index of a table. The table itself is not kept.
///
/// out       the new table (ICC_DisposeReverseTable); null (with 0) for fewer than two entries, null (with -108) without memory
/// returns   0 or -108; -108 also for a curve that this layout cannot hold (more than 65536 entries, or one that swings so often that its
///           segments would fill more than 256 MiB)
CM_EXPORT int ICC_BuildReverseTable(const uint16_t* table, int entryCount, ICC_ReverseTable** out);

/// Frees the table and all it holds; null is allowed.
CM_EXPORT void ICC_DisposeReverseTable(ICC_ReverseTable* table);

/// Finds the input that gives `y`: the segment of highest index that holds the value decides. Segments are read as falling whatever the
/// curve's direction, so a rising curve is inverted with each segment mirrored.
///
/// outOfGamut   set to 255 when y lies outside minValue..maxValue; the nearer of the two then takes its place
/// returns      index * 65535 / (n - 1) where high = y, else (index * 65535 - ((y - low) * 65535) / (high - low) + 65535) / (n - 1), all
///              unsigned 32-bit; 0 when no segment holds the value
CM_EXPORT uint16_t ICC_ReverseOneDLookup(uint16_t y, const ICC_ReverseTable* table, uint8_t* outOfGamut);

CM_C_END
