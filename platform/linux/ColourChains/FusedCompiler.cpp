#include "platform/linux/ColourChains/FusedCompiler.h"

#include <lcms2_plugin.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

#include "platform/FullScale.h"

namespace platform {

namespace {

constexpr double kFull = kFull65535;
float ValueAt(const cmsToneCurve* curve, double place) {
    return cmsEvalToneCurveFloat(curve, static_cast<float>(place));
}

/// A table of 16-bit entries and nothing else: told from curves of several segments by what it answers.
bool IsTable(const cmsToneCurve* curve) {
    if (cmsGetToneCurveParametricType(curve) != 0) return false;
    const cmsUInt32Number entries = cmsGetToneCurveEstimatedTableEntries(curve);
    if (entries < 2 || entries > 32768) return false;
    for (int i = -64; i <= 1024 + 64; ++i) {
        const float place = static_cast<float>(i) / 1024.0f;
        const auto code = static_cast<cmsUInt16Number>(std::floor(std::clamp(place * kFull + 0.5, 0.0, kFull)));
        if (ValueAt(curve, place) != static_cast<float>(cmsEvalToneCurve16(curve, code)) / 65535.0f) return false;
    }
    return true;
}

bool IsFunction(const cmsToneCurve* curve) {
    return cmsGetToneCurveParametricType(curve) != 0;
}

bool IsIdentityFunction(const cmsToneCurve* curve) {
    if (!IsFunction(curve)) return false;
    for (int i = -256; i <= 512; ++i) {
        const float place = static_cast<float>(i) / 256.0f;
        if (ValueAt(curve, place) != place) return false;
    }
    return true;
}

bool AreAlike(const cmsToneCurve* a, const cmsToneCurve* b) {
    const cmsUInt32Number entries = cmsGetToneCurveEstimatedTableEntries(a);
    if (cmsGetToneCurveParametricType(a) != cmsGetToneCurveParametricType(b) || entries != cmsGetToneCurveEstimatedTableEntries(b)) return false;
    if (std::memcmp(cmsGetToneCurveEstimatedTable(a), cmsGetToneCurveEstimatedTable(b), entries * sizeof(cmsUInt16Number)) != 0) return false;
    for (int i = -256; i <= 512; ++i) {
        if (ValueAt(a, i / 256.0) != ValueAt(b, i / 256.0)) return false;
    }
    return true;
}

/// The first curve like the one at `place`, which may be itself.
std::size_t FirstAlike(const std::vector<const cmsToneCurve*>& curves, std::size_t place) {
    std::size_t first = 0;
    while (first < place && !AreAlike(curves[first], curves[place])) ++first;
    return first;
}

/// Whether each is a table that changes nothing. Curves of a stage are mostly alike.
bool AreIdentityTables(const std::vector<const cmsToneCurve*>& curves) {
    for (std::size_t c = 0; c < curves.size(); ++c) {
        if (!IsTable(curves[c])) return false;
        if (c > 0 && AreAlike(curves[c], curves[c - 1])) continue;
        for (unsigned code = 0; code < 65536; ++code) {
            if (cmsEvalToneCurve16(curves[c], static_cast<cmsUInt16Number>(code)) != code) return false;
        }
    }
    return true;
}

/// factor * pow(inFactor * x + inOffset, power) + offset from the limit up, a line below it.
struct Formula {
    double inFactor, inOffset, power, factor, offset, limit;
    FusedStep::Line line;

    double Curved(double x) const { return factor * std::pow(std::max(inFactor * x + inOffset, 0.0), power) + offset; }
    float operator()(double x) const { return static_cast<float>(x < limit ? (x * line.factor + line.offset) / line.divisor : Curved(x)); }
};

/// The formulas of ICC profiles and their inverses; nothing for another one, and for parameters of which Little CMS makes something else.
std::optional<Formula> FormulaOf(const cmsToneCurve* curve) {
    const double* p = cmsGetToneCurveParams(curve);
    if (!p) return std::nullopt;
    Formula formula = {};
    const double root = 1.0 / p[0];
    switch (cmsGetToneCurveParametricType(curve)) {
        case 1:
            formula = {1.0, 0.0, p[0], 1.0, 0.0, 0.0, {p[0] == 1.0 ? 1.0 : 0.0, 0.0, 1.0}};
            break;
        case -1:
            formula = {1.0, 0.0, root, 1.0, 0.0, 0.0, {p[0] == 1.0 ? 1.0 : 0.0, 0.0, 1.0}};
            break;
        case 2:
            formula = {p[1], p[2], p[0], 1.0, 0.0, -p[2] / p[1], {0.0, 0.0, 1.0}};
            break;
        case -2:
            formula = {1.0, 0.0, root, 1.0 / p[1], -p[2] / p[1], std::pow(std::max(p[2], 0.0), p[0]), {0.0, 0.0, 1.0}};
            break;
        case 3:
            formula = {p[1], p[2], p[0], 1.0, p[3], std::max(-p[2] / p[1], 0.0), {0.0, p[3], 1.0}};
            break;
        case -3:
            formula = {1.0, -p[3], root, 1.0 / p[1], -p[2] / p[1], p[3], {0.0, -p[2], p[1]}};
            break;
        case 4:
            formula = {p[1], p[2], p[0], 1.0, 0.0, p[4], {p[3], 0.0, 1.0}};
            break;
        case -4:
            formula = {1.0, 0.0, root, 1.0 / p[1], -p[2] / p[1], std::pow(std::max(p[1] * p[4] + p[2], 0.0), p[0]), {1.0, 0.0, p[3]}};
            break;
        case 5:
            formula = {p[1], p[2], p[0], 1.0, p[5], p[4], {p[3], p[6], 1.0}};
            break;
        case -5:
            formula = {1.0, -p[5], root, 1.0 / p[1], -p[2] / p[1], p[3] * p[4] + p[6], {1.0, -p[6], p[3]}};
            break;
        default:
            return std::nullopt;
    }
    if (!(formula.limit >= 0.0)) return std::nullopt;
    // Below the pieces there is nothing but the line.
    if (formula.Curved(0.0) == formula.line.offset / formula.line.divisor) formula.limit = std::max(formula.limit, std::ldexp(1.0, kFunctionLowest));
    for (int i = -1024; i <= 4096; ++i) {
        const float place = static_cast<float>(std::copysign(std::pow(std::abs(i) / 1024.0, 2.0), i)) / 4.0f;
        if (!(std::abs(formula(place) - ValueAt(curve, place)) <= 1e-7f * std::abs(formula(place)))) return std::nullopt;
    }
    return formula;
}

/// Null when the formula is not smooth enough for the pieces.
std::unique_ptr<double[]> PiecesOf(const Formula& formula) {
    constexpr double kLargest = 1e4;     // beyond it a function has left what the scale can hold
    constexpr double kTolerance = 1e-9;  // less than a ten-thousandth of a unit of 65535; mostly it is a thousand times less
    // Each passes through four places of its piece, those that keep the largest error smallest.
    double places[4];
    for (int k = 0; k < 4; ++k) places[k] = 0.5 - 0.5 * std::cos((2 * k + 1) * M_PI / 8.0);
    auto pieces = std::make_unique<double[]>(std::size_t{4} * kFunctionPieces);
    for (int i = 0; i < kFunctionPieces; ++i) {
        const double length = std::ldexp(1.0, i / kFunctionSteps + kFunctionLowest) / kFunctionSteps;
        const double start = length * (kFunctionSteps + i % kFunctionSteps);
        if (start + length <= formula.limit) continue;
        double d[4];  // divided differences
        for (int k = 0; k < 4; ++k) {
            d[k] = formula.Curved(start + places[k] * length);
            if (!(std::abs(d[k]) < kLargest)) return nullptr;
        }
        for (int order = 1; order < 4; ++order) {
            for (int k = 3; k >= order; --k) d[k] = (d[k] - d[k - 1]) / (places[k] - places[k - order]);
        }
        std::array<double, 4> c = {d[3], 0.0, 0.0, 0.0};
        for (int k = 2; k >= 0; --k) {
            for (int power = 3; power > 0; --power) c[power] = c[power - 1] - places[k] * c[power];
            c[0] = d[k] - places[k] * c[0];
        }
        // Many results of a straight one lie half-way between two floats.
        if (formula.power == 1.0) c = {formula.Curved(start), formula.factor * formula.inFactor * length, 0.0, 0.0};
        std::copy(c.begin(), c.end(), &pieces[c.size() * i]);
        for (const double place : {0.0, 0.5, 1.0}) {
            const double exact = formula.Curved(start + place * length), near = ((c[3] * place + c[2]) * place + c[1]) * place + c[0];
            if (start >= formula.limit && !(std::abs(near - exact) <= kTolerance * std::max(std::abs(exact), 1.0))) return nullptr;
        }
    }
    return pieces;
}

/// Labs of versions 2 and 4 differ by a factor, and scales of XYZ by three.
bool IsDiagonal(const _cmsStageMatrixData& data) {
    for (std::size_t i = 0; i < 9; ++i) {
        if (i % 4 != 0 && data.Double[i] != 0.0) return false;
    }
    return !data.Offset || std::all_of(data.Offset, data.Offset + 3, [](double offset) { return offset == 0.0; });
}

}  // namespace

bool FusedCompiler::Append(const cmsPipeline* pipeline) {
    for (const cmsStage* stage = cmsPipelineGetPtrToFirstStage(pipeline); stage; stage = cmsStageNext(stage)) {
        channels_ = cmsStageInputChannels(stage);
        if (!AppendStage(stage)) return false;
        channels_ = cmsStageOutputChannels(stage);
    }
    return true;
}

bool FusedCompiler::AppendStage(const cmsStage* stage) {
    const cmsUInt32Number in = cmsStageInputChannels(stage), out = cmsStageOutputChannels(stage);
    if (in < 3 || in > 4 || out < 3 || out > 4) return false;
    if (cmsStageType(stage) == kLcmsDeviceRangeStage) {
        if (!isWhole_) Emit(FusedStep::kClamp);
        return true;
    }
    switch (cmsStageType(stage)) {
        case cmsSigIdentityElemType:
            return true;
        case cmsSigCurveSetElemType:
            return AppendCurves(stage);
        case cmsSigMatrixElemType:
            return AppendMatrix(stage);
        case cmsSigCLutElemType:
            return AppendGrid(stage);
        case cmsSigXYZ2LabElemType:
            NeedUnits();
            Emit(FusedStep::kLab);
            return true;
        case cmsSigLab2XYZElemType:
            NeedUnits();
            Emit(FusedStep::kXYZ);
            return true;
        default:
            return false;
    }
}

FusedStep& FusedCompiler::Emit(FusedStep::Kind kind) {
    FusedStep step = {};
    step.kind = kind;
    step.channels = static_cast<std::uint8_t>(channels_);
    program_->steps.push_back(step);
    return program_->steps.back();
}

void FusedCompiler::NeedWhole() {
    if (!isWhole_) Emit(FusedStep::kRound);
    isWhole_ = true;
}

void FusedCompiler::NeedUnits() {
    if (isWhole_) Emit(FusedStep::kUnits);
    isWhole_ = false;
}

bool FusedCompiler::AppendMatrix(const cmsStage* stage) {
    if (cmsStageInputChannels(stage) != 3 || cmsStageOutputChannels(stage) != 3) return false;
    const auto* data = static_cast<const _cmsStageMatrixData*>(cmsStageData(stage));
    NeedUnits();
    FusedStep& step = Emit(IsDiagonal(*data) ? FusedStep::kScale : FusedStep::kMatrix);
    for (std::size_t r = 0; r < 3; ++r) {
        std::copy_n(data->Double + 3 * r, 3, step.matrix[r]);
        step.matrix[r][3] = data->Offset ? data->Offset[r] : 0.0;
        for (const double value : step.matrix[r]) {
            if (!(std::abs(value) < 1e4)) return false;
        }
    }
    return true;
}

bool FusedCompiler::AppendCurves(const cmsStage* stage) {
    const auto* data = static_cast<const _cmsStageToneCurvesData*>(cmsStageData(stage));
    if (data->nCurves != cmsStageInputChannels(stage)) return false;
    const std::vector<const cmsToneCurve*> curves(data->TheCurves, data->TheCurves + data->nCurves);
    if (std::all_of(curves.begin(), curves.end(), IsIdentityFunction)) return true;
    if (std::all_of(curves.begin(), curves.end(), IsTable)) {
        AppendTables(curves);
        return true;
    }
    if (!std::all_of(curves.begin(), curves.end(), [](const cmsToneCurve* curve) { return IsFunction(curve) || IsTable(curve); })) return false;
    if (isWhole_) {
        AppendDense(curves);
        return true;
    }
    return std::all_of(curves.begin(), curves.end(), IsFunction) && AppendFunctions(curves);
}

void FusedCompiler::AppendTables(const std::vector<const cmsToneCurve*>& curves) {
    NeedWhole();
    if (AreIdentityTables(curves)) return;
    FusedStep& step = Emit(FusedStep::kTables);
    for (std::size_t c = 0; c < curves.size(); ++c) {
        const cmsUInt32Number entries = cmsGetToneCurveEstimatedTableEntries(curves[c]);
        auto words = std::make_unique<std::uint16_t[]>(entries + 1);
        std::copy_n(cmsGetToneCurveEstimatedTable(curves[c]), entries, words.get());
        step.tables[c] = words.get();
        step.domain[c] = static_cast<int>(entries) - 1;
        program_->words.push_back(std::move(words));
    }
}

void FusedCompiler::AppendDense(const std::vector<const cmsToneCurve*>& curves) {
    FusedStep& step = Emit(FusedStep::kDense);
    isWhole_ = false;
    for (std::size_t c = 0; c < curves.size(); ++c) {
        const std::size_t index = FirstAlike(curves, c);
        if (index < c) {
            step.values[c] = step.values[index];
            continue;
        }
        auto values = std::make_unique<float[]>(65536);
        for (std::size_t code = 0; code < 65536; ++code) {
            const float value = ValueAt(curves[c], static_cast<double>(code) / kFull);
            values[code] = std::isfinite(value) ? value : 0.0f;
        }
        step.values[c] = values.get();
        program_->floats.push_back(std::move(values));
    }
}

bool FusedCompiler::AppendFunctions(const std::vector<const cmsToneCurve*>& curves) {
    NeedUnits();
    FusedStep& step = Emit(FusedStep::kFunctions);
    for (std::size_t c = 0; c < curves.size(); ++c) {
        const std::size_t index = FirstAlike(curves, c);
        if (index < c) {
            step.pieces[c] = step.pieces[index];
            step.lines[c] = step.lines[index];
            step.limits[c] = step.limits[index];
            continue;
        }
        const std::optional<Formula> formula = FormulaOf(curves[c]);
        std::unique_ptr<double[]> pieces = formula ? PiecesOf(*formula) : nullptr;
        if (!pieces) return false;
        step.pieces[c] = pieces.get();
        step.lines[c] = formula->line;
        // The first float from the limit up.
        const auto limit = static_cast<float>(formula->limit);
        step.limits[c] = limit < formula->limit ? std::nextafter(limit, std::numeric_limits<float>::infinity()) : limit;
        program_->doubles.push_back(std::move(pieces));
    }
    return true;
}

bool FusedCompiler::AppendGrid(const cmsStage* stage) {
    constexpr std::size_t kMostNodes = 1 << 23;  // distances in values stay far within 32 bits
    const auto* data = static_cast<const _cmsStageCLutData*>(cmsStageData(stage));
    if (data->HasFloatValues || !data->Tab.T) return false;
    const cmsInterpParams& params = *data->Params;
    const std::size_t inputs = params.nInputs, outputs = params.nOutputs;
    if (inputs != cmsStageInputChannels(stage) || outputs != cmsStageOutputChannels(stage)) return false;

    std::size_t nodes = 1;
    for (std::size_t c = 0; c < inputs; ++c) {
        if (params.nSamples[c] < 2 || params.nSamples[c] > 256) return false;
        nodes *= params.nSamples[c];
    }
    if (nodes > kMostNodes || data->nEntries != nodes * outputs) return false;

    const bool isTrilinear = (params.dwFlags & CMS_LERP_FLAGS_TRILINEAR) != 0;
    NeedWhole();
    FusedStep& step = Emit(inputs == 4 ? FusedStep::kTwoTetrahedral : isTrilinear ? FusedStep::kTrilinear : FusedStep::kTetrahedral);
    const std::size_t perNode = inputs == 4 ? 8 : 4;
    std::size_t stride = perNode, reach = 0;
    for (std::size_t c = inputs; c-- > 0;) {
        step.gridDomain[c] = static_cast<int>(params.nSamples[c]) - 1;
        step.stride[c] = static_cast<int>(stride);
        reach += stride;
        stride *= params.nSamples[c];
    }
    const std::size_t alongFirst = nodes / params.nSamples[0];
    auto values = std::make_unique<std::uint16_t[]>(perNode * nodes + reach + perNode);
    for (std::size_t node = 0; node < nodes; ++node) {
        std::copy_n(data->Tab.T + node * outputs, outputs, values.get() + perNode * node);
        if (inputs == 4 && node + alongFirst < nodes) {
            std::copy_n(data->Tab.T + (node + alongFirst) * outputs, outputs, values.get() + perNode * node + 4);
        }
    }
    step.nodes = values.get();
    program_->words.push_back(std::move(values));
    return true;
}

void FusedCompiler::Keep() {
    NeedUnits();
    Emit(FusedStep::kKeep);
}

std::unique_ptr<const FusedProgram> FusedCompiler::Finish(bool isWhole) {
    if (isWhole) {
        NeedWhole();
    } else {
        NeedUnits();
    }
    return std::move(program_);
}

}  // namespace platform
