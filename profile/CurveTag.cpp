#include "profile/CurveTag.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "platform/BigEndian.h"
#include "platform/Codes.h"
#include "platform/FourCharCode.h"
#include "platform/FullScale.h"

namespace {

constexpr std::size_t kCurveHeaderSize = 12;

/// Room for `count` entries and the guard; calloc checks the product itself.
std::uint16_t* AllocateTable(std::uint32_t count) {
    return static_cast<std::uint16_t*>(std::calloc(std::size_t{count} + 1, sizeof(std::uint16_t)));
}

void SetGuard(std::uint16_t* table, std::uint32_t count) {
    table[count] = table[count - 1];
}

// ---- 'para' ----

/// The parameters by their ICC letters; those that a function type does not have are 0.
struct Formula {
    unsigned type;
    double g, a, b, c, d, e, f;
};

struct Sample {
    double value;
    bool clampedBelow;
};

Sample Evaluate(const Formula& p, double x) {
    const auto power = [&] { return std::pow(p.a * x + p.b, p.g); };
    switch (p.type) {
        case 0:
            return {std::pow(x, p.g), true};
        case 1:
            return {p.a * x < -p.b ? 0.0 : power(), true};
        case 2:
            // Deliberate: a negative constant is not raised to 0 here.
            if (p.a * x < -p.b) return {p.c, false};
            return {power() + p.c, true};
        case 3:
            return {x < p.d ? p.c * x : power(), true};
        default:
            return {x < p.d ? p.c * x + p.f : power() + p.e, true};
    }
}

/// To the nearest, halves away from zero. A power that is not a number counts as 0; a value that may be negative is -32768.0 or more, so
/// the rounded integer fits 32 bits, of which the low 16 are stored.
std::uint16_t Quantise(Sample sample) {
    double value = sample.value;
    if (sample.clampedBelow && !(value > 0.0)) value = 0.0;
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(std::round(std::min(value, 1.0) * kFull65535)));
}

int SampleFormulaCurve(const std::uint8_t* tag, std::size_t length, std::uint16_t** table, std::uint32_t* count) {
    constexpr std::size_t kParameterCounts[] = {1, 3, 4, 5, 7};
    const unsigned type = ReadBigEndian16(tag + 8);
    if (type > 4) return kStatusProfileUnsuitable;
    const std::size_t parameters = kParameterCounts[type];
    if (length < kCurveHeaderSize + 4 * parameters) return kStatusProfileUnsuitable;

    double values[7] = {};
    for (std::size_t i = 0; i < parameters; ++i) {
        values[i] = static_cast<std::int32_t>(ReadBigEndian32(tag + kCurveHeaderSize + 4 * i)) / 65536.0;
    }
    const Formula formula = {type, values[0], values[1], values[2], values[3], values[4], values[5], values[6]};

    std::uint16_t* entries = AllocateTable(kFormulaCurveEntries);
    if (!entries) return kStatusNoMemory;
    for (std::uint32_t i = 0; i < kFormulaCurveEntries; ++i) entries[i] = Quantise(Evaluate(formula, i / (kFormulaCurveEntries - 1.0)));
    SetGuard(entries, kFormulaCurveEntries);
    *table = entries;
    *count = kFormulaCurveEntries;
    return 0;
}

// ---- 'curv' ----

int SampleGammaCurve(double gamma, std::uint32_t count, std::uint16_t** table, std::uint32_t* countOut) {
    std::uint16_t* entries = AllocateTable(count);
    if (!entries) return kStatusNoMemory;
    for (std::uint32_t i = 0; i < count; ++i) {
        const double value = std::pow(i / (count - 1.0), gamma) * kFull65535 + 0.5;
        entries[i] = static_cast<std::uint16_t>(value);
    }
    SetGuard(entries, count);
    *table = entries;
    *countOut = count;
    return 0;
}

int CopySampledCurve(const std::uint8_t* values, std::uint32_t count, std::uint16_t** table, std::uint32_t* countOut) {
    std::uint16_t* entries = AllocateTable(count);
    if (!entries) return kStatusNoMemory;
    for (std::uint32_t i = 0; i < count; ++i) entries[i] = ReadBigEndian16(values + std::size_t{2} * i);
    SetGuard(entries, count);
    *table = entries;
    *countOut = count;
    return 0;
}

int SampleCurve(const std::uint8_t* tag, std::size_t length, std::uint16_t** table, std::uint32_t* count) {
    const std::uint32_t stored = ReadBigEndian32(tag + 8);
    if ((length - kCurveHeaderSize) / 2 < stored) return kStatusProfileUnsuitable;
    const std::uint8_t* values = tag + kCurveHeaderSize;
    if (stored == 0) return SampleGammaCurve(1.0, 2, table, count);
    if (stored == 1) return SampleGammaCurve(ReadBigEndian16(values) / 256.0, kFormulaCurveEntries, table, count);
    return CopySampledCurve(values, stored, table, count);
}

}  // namespace

int SampleCurveTag(const std::uint8_t* tag, std::size_t length, std::uint16_t** table, std::uint32_t* count) {
    *table = nullptr;
    if (length < kCurveHeaderSize) return kStatusProfileUnsuitable;
    switch (ReadBigEndian32(tag)) {
        case FourChar("para"):
            return SampleFormulaCurve(tag, length, table, count);
        case FourChar("curv"):
            return SampleCurve(tag, length, table, count);
        default:
            return kStatusProfileUnsuitable;
    }
}
