#pragma once

#include "engine/OneDTables.h"

/// The segments that follow the head of a bucket.
inline ICC_ReverseSegment* SegmentsOf(ICC_ReverseBucket* bucket) {
    return reinterpret_cast<ICC_ReverseSegment*>(bucket + 1);
}
inline const ICC_ReverseSegment* SegmentsOf(const ICC_ReverseBucket* bucket) {
    return reinterpret_cast<const ICC_ReverseSegment*>(bucket + 1);
}

/// ICC_BuildReverseTable within bounds.
///
/// room      the bytes that storage may take; what the table takes is subtracted, and 0 is left when it would take more
/// returns   as ICC_BuildReverseTable; -108 also for a curve whose segments would take more than the room
int BuildReverseTableWithin(const uint16_t* table, int entryCount, uint64_t* room, ICC_ReverseTable** out);
