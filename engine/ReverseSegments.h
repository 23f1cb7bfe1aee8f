#pragma once

#include "engine/OneDTables.h"

/// The segments that follow the head of a bucket.
inline ICC_ReverseSegment* SegmentsOf(ICC_ReverseBucket* bucket) {
    return reinterpret_cast<ICC_ReverseSegment*>(bucket + 1);
}
inline const ICC_ReverseSegment* SegmentsOf(const ICC_ReverseBucket* bucket) {
    return reinterpret_cast<const ICC_ReverseSegment*>(bucket + 1);
}
