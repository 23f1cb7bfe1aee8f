#include "python/native/ColourRuns.h"

#include <cstddef>

namespace {

constexpr std::size_t kValues = 3;

LabColour LabAt(const float* values) {
    return {values[0], values[1], values[2]};
}
XYZColour XYZAt(const float* values) {
    return {values[0], values[1], values[2]};
}
YxyColour YxyAt(const float* values) {
    return {values[0], values[1], values[2]};
}

void Store(const LabColour& colour, float* values) {
    values[0] = colour.L;
    values[1] = colour.a;
    values[2] = colour.b;
}
void Store(const XYZColour& colour, float* values) {
    values[0] = colour.X;
    values[1] = colour.Y;
    values[2] = colour.Z;
}
void Store(const YxyColour& colour, float* values) {
    values[0] = colour.Y;
    values[1] = colour.x;
    values[2] = colour.y;
}

template <typename Convert>
void ForEach(const float* source, float* destination, std::size_t count, Convert convert) {
    for (std::size_t i = 0; i < count; ++i) Store(convert(source + i * kValues), destination + i * kValues);
}

template <typename Differ>
void ForEachPair(const float* first, const float* second, std::size_t secondStep, float* destination, std::size_t count, Differ differ) {
    for (std::size_t i = 0; i < count; ++i) destination[i] = differ(LabAt(first + i * kValues), LabAt(second + i * secondStep));
}

}  // namespace

void RunConversion(enum ColourConversion conversion, const float* source, const float* white, float* destination, size_t count) {
    switch (conversion) {
        case kRunXYZToLab: {
            const XYZColour reference = XYZAt(white);
            return ForEach(source, destination, count, [&reference](const float* values) { return XYZToCIELab(XYZAt(values), reference); });
        }
        case kRunLabToXYZ: {
            const XYZColour reference = XYZAt(white);
            return ForEach(source, destination, count, [&reference](const float* values) { return CIELabToXYZ(LabAt(values), reference); });
        }
        case kRunXYZToYxy:
            return ForEach(source, destination, count, [](const float* values) { return XYZToYxy(XYZAt(values)); });
        case kRunYxyToXYZ:
            return ForEach(source, destination, count, [](const float* values) { return YxyToXYZ(YxyAt(values)); });
    }
}

void RunDifference(enum ColourDifference difference, const float* first, const float* second, size_t secondStep, float l, float c, float* destination,
                   size_t count) {
    switch (difference) {
        case kRunCIE76:
            return ForEachPair(first, second, secondStep, destination, count, deltaE);
        case kRunCIE94:
            return ForEachPair(first, second, secondStep, destination, count, CIE94deltaE);
        case kRunCMC:
            return ForEachPair(first, second, secondStep, destination, count,
                               [l, c](const LabColour& one, const LabColour& other) { return CMCdeltaE(one, other, l, c); });
        case kRunCIEDE2000:
            return ForEachPair(first, second, secondStep, destination, count, CIE2000deltaE);
    }
}
