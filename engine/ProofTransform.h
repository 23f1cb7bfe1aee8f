#pragma once

#include "engine/MatchingData.h"

/// Reference RGB as the printer would render it: `count` 16-bit pixels of four words, the fourth skipped, through the record's proof
/// transform. `out` must not overlap `in`; it is left as it was when the conversion fails.
void ConvertThroughProof(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);
