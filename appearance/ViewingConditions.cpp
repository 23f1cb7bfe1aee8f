#include "appearance/ViewingConditions.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "colour/ChromaticAdaptation.h"
#include "colour/GuardedArithmetic.h"
#include "colour/MatrixArithmetic.h"
#include "colour/ReferenceRGB.h"
#include "engine/MonitorTables.h"
#include "engine/ShaperBuilding.h"
#include "platform/Codes.h"

namespace {

int64_t LuminanceRowSum(const FixedMatrix& matrix) {
    return int64_t{matrix.element[3]} + matrix.element[4] + matrix.element[5];
}

/// Nearest, halves away from zero; out of range goes to the nearer end.
int32_t RoundToFixed(double value) {
    if (std::isnan(value)) return 0;
    return static_cast<int32_t>(std::clamp(std::round(value), -2147483648.0, 2147483647.0));
}

void SetMatrices(const MatchingData& data, const FixedMatrix& monitorToXYZ, ICC_ShaperMatrix* shaper) {
    ICC_MatrixConcat(&data.referenceInverse, &monitorToXYZ, &shaper->matrix);
    ICC_MatrixInverse(&shaper->matrix, &shaper->inverseMatrix);
    ICC_ImproveMatrixInverse(&shaper->matrix, &shaper->inverseMatrix);
}

/// The white that the monitor is adapted to.
FixedXYZ AdaptedWhite(const MatchingData& data, const ViewingConditions& conditions) {
    if (data.useMonitorWhite) return data.monitorWhite;
    if (conditions.usePrinter) {
        const FixedXYZ& paper = data.printerWhite;
        return {QuotientOrZero(int64_t{paper.X} * kFixedOne, paper.Y), kFixedOne, QuotientOrZero(int64_t{paper.Z} * kFixedOne, paper.Y)};
    }
    // A white of L* 100 moved by a* and b*.
    const FixedXYZ& white = data.referenceIlluminant;
    return {RoundToFixed(white.X * std::pow(1.0 + conditions.aOffset / 500.0, 3.0)), white.Y,
            RoundToFixed(white.Z * std::pow(1.0 + conditions.bOffset / -200.0, 3.0))};
}

/// Contrast and flare on one normalised colour, component by component.
void Bend(const double normalised[3], double exponent, double flare, double bent[3]) {
    double raised[3];
    for (int c = 0; c < 3; ++c) raised[c] = std::pow(normalised[c], exponent);
    double limit = std::min({100.0, raised[0], raised[1], raised[2]});
    if (limit < 1.0) limit = limit / (1.0 - limit);
    const double veil = std::min(limit, flare);
    for (int c = 0; c < 3; ++c) bent[c] = std::max(0.0, raised[c] * (1.0 + veil) - veil);
}

uint16_t To16Bits(double value) {
    const double rounded = std::round(value);
    if (!(rounded > 0.0)) return 0;
    return rounded >= 65535.0 ? uint16_t{65535} : static_cast<uint16_t>(rounded);
}

void BendCurves(const ICC_ShaperMatrix& base, const ViewingConditions& conditions, ICC_ShaperMatrix* working) {
    FixedMatrix toXYZ;
    FixedMatrix fromXYZ;
    ICC_MatrixConcat(&calRGBToXYZ, &working->matrix, &toXYZ);
    ICC_MatrixInverse(&toXYZ, &fromXYZ);

    uint8_t ignoredFlag = 0;
    const uint16_t full[3] = {65535, 65535, 65535};
    uint16_t white[3];
    ICC_MatrixMultiply(&toXYZ, full, white, &ignoredFlag);

    const double exponent = 1.0 / conditions.contrast;
    // Deliberate: the first curve's length serves for all three. A shorter curve stands still at its last entry.
    for (uint32_t i = 0; i < base.counts[0]; ++i) {
        uint16_t linear[3];
        for (int c = 0; c < 3; ++c) linear[c] = base.curves[c][std::min(i, base.counts[c] - 1)];
        uint16_t colour[3];
        ICC_MatrixMultiply(&toXYZ, linear, colour, &ignoredFlag);
        double normalised[3];
        for (int c = 0; c < 3; ++c) normalised[c] = static_cast<double>(colour[c]) / white[c];
        double bent[3];
        Bend(normalised, exponent, conditions.flare, bent);
        for (int c = 0; c < 3; ++c) colour[c] = To16Bits(bent[c] * white[c]);
        ICC_MatrixMultiply(&fromXYZ, colour, linear, &ignoredFlag);
        for (int c = 0; c < 3; ++c) {
            if (i < working->counts[c]) working->curves[c][i] = linear[c];
        }
    }
}

/// The monitor as it is, on the scale of its absolute luminance (100 cd/m2 = 1.0).
void UseUnadjustedMonitor(const MatchingData& data, ICC_ShaperMatrix* working) {
    FixedMatrix monitorToXYZ = data.monitorMatrix;
    const int64_t luminance = int64_t{data.monitorLuminance} * 32768 / 6553500;
    ICC_MatrixScale(&monitorToXYZ, static_cast<int32_t>(luminance), static_cast<int32_t>(LuminanceRowSum(monitorToXYZ)));
    SetMatrices(data, monitorToXYZ, working);
    for (int c = 0; c < 3; ++c) {
        const uint32_t count = std::min(data.baseShaper.counts[c], working->counts[c]);
        std::copy_n(data.baseShaper.curves[c], count, working->curves[c]);
    }
}

void UseAdjustedMonitor(const MatchingData& data, const ViewingConditions& conditions, ICC_ShaperMatrix* working) {
    FixedMatrix monitorToXYZ = data.monitorMatrix;
    const int32_t full = static_cast<int32_t>(LuminanceRowSum(monitorToXYZ) * 65535 / 32768);
    const int32_t luminance = data.useMonitorWhite ? kFixedOne : data.printerWhite.Y;
    const int32_t numerators[3] = {luminance, luminance, luminance};
    const int32_t denominators[3] = {full, full, full};
    ICC_MatrixScaleRows(&monitorToXYZ, numerators, denominators);

    const FixedXYZ adaptedWhite = AdaptedWhite(data, conditions);
    FixedMatrix adaptation;
    BradfordTransform(&data.referenceIlluminant, &adaptedWhite, &adaptation);
    FixedMatrix adapted;
    ICC_MatrixConcat(&adaptation, &monitorToXYZ, &adapted);
    SetMatrices(data, adapted, working);
    BendCurves(data.baseShaper, conditions, working);
}

}  // namespace

OSErr BendMonitor(MatchingData* data, uint32_t renderingIntent, const ViewingConditions& conditions) {
    ICC_ShaperMatrix working = {};
    int status = CopyCurves(data->monitorShaper, &working);
    if (status == 0) {
        if (renderingIntent == kRenderingIntent3) {
            UseUnadjustedMonitor(*data, &working);
        } else {
            UseAdjustedMonitor(*data, conditions, &working);
        }
        status = BuildReverseTables(&working);
    }
    if (status == 0) {
        std::swap(data->monitorShaper, working);
        // They hold the model as it was.
        DisposeMonitorTables(data->monitorTables);
        data->monitorTables = nullptr;
    }
    DeleteShaperMatrix(&working);
    return static_cast<OSErr>(status);
}

void DirectICCSetViewingConditions(MatchingData* data, uint32_t renderingIntent, const ViewingConditions* conditions) {
    BendMonitor(data, renderingIntent, *conditions);
}
