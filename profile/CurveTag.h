#pragma once

/// The bytes of a tone-curve tag as a table of 16-bit values. Pure; reads only `length` bytes.

#include <cstddef>
#include <cstdint>

/// Formula curves are sampled at this many points, x = i / 771.
inline constexpr std::uint32_t kFormulaCurveEntries = 772;

/// Builds the table of a 'curv' or 'para' tag.
///
/// tag, length   the tag's bytes, big-endian
/// table         out: count + 1 entries from calloc, 0..65535 = full scale; the last repeats the one before it, as a guard. The caller frees it.
///               Null on failure.
/// count         out: entries without the guard, 2 or more
/// returns       0; -170 for another type, a function type above 4 or a tag shorter than it says; -108 without memory
int SampleCurveTag(const std::uint8_t* tag, std::size_t length, std::uint16_t** table, std::uint32_t* count);
