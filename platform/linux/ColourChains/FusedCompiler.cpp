#include "platform/linux/ColourChains/FusedCompiler.h"

#include <lcms2_plugin.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/FullScale.h"

namespace platform {

namespace {

constexpr double kFull = kFull65535;
constexpr double kLargestXYZ = 1.0 + 32767.0 / 32768.0;  // what full scale stands for
constexpr double kD50[3] = {0.9642, 1.0, 0.8249};

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

/// The place of a function table's entry, or of a place between two, on the scale where 1 is full.
double FunctionPlace(double entry) {
    const double octave = std::floor(entry / kFunctionSteps);
    return std::ldexp(1.0 + (entry - octave * kFunctionSteps) / kFunctionSteps, static_cast<int>(octave) + kFunctionLowest) / kFull;
}

struct FunctionTable {
    std::unique_ptr<float[]> values;
    float zero = 0.0f, slope = 0.0f;
};

/// No values when the curve is not smooth enough for the table, or not straight below 0.
FunctionTable TabulateFunction(const cmsToneCurve* curve) {
    constexpr double kLargest = 1e8;    // beyond it a function has left what the scale can hold
    constexpr double kTolerance = 0.5;  // of 65535; beyond full scale in proportion
    FunctionTable table;
    const double slope = (ValueAt(curve, -0.25) - ValueAt(curve, -0.5)) / 0.25;
    const double zero = ValueAt(curve, -0.25) + 0.25 * slope;
    for (const double place : {-4.0, -1.0, -0.75, -0.125, -0.01, -0.0001}) {
        if (!(std::abs(ValueAt(curve, place) - (zero + slope * place)) < 1e-5)) return table;
    }
    auto values = std::make_unique<float[]>(kFunctionEntries);
    for (int i = 0; i < kFunctionEntries; ++i) {
        values[i] = static_cast<float>(kFull * ValueAt(curve, FunctionPlace(i)));
        if (!(std::abs(values[i]) < kLargest)) return table;
    }
    for (int i = 20 * kFunctionSteps; i < (16 - kFunctionLowest) * kFunctionSteps; ++i) {
        const double straight = (double{values[i]} + values[i + 1]) / 2.0;
        const double allowed = kTolerance * std::max(1.0, std::abs(straight) / kFull);
        if (!(std::abs(straight - kFull * ValueAt(curve, FunctionPlace(i + 0.5))) < allowed)) return table;
    }
    table.values = std::move(values);
    table.zero = static_cast<float>(kFull * zero);
    table.slope = static_cast<float>(slope);
    return table;
}

/// `first` and then `second`.
template <typename Matrix>
Matrix Product(const Matrix& second, const Matrix& first) {
    Matrix product = {};
    for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = 0; c < 4; ++c) {
            for (std::size_t k = 0; k < 3; ++k) product[r][c] += second[r][k] * first[k][c];
        }
        product[r][3] += second[r][3];
    }
    return product;
}

bool RoundsItsInput(FusedStep::Kind kind) {
    switch (kind) {
        case FusedStep::kRound:
        case FusedStep::kTables:
        case FusedStep::kTrilinear:
        case FusedStep::kTetrahedral:
        case FusedStep::kTwoTetrahedral:
            return true;
        default:
            return false;
    }
}

}  // namespace

bool FusedCompiler::Append(const cmsPipeline* pipeline) {
    for (const cmsStage* stage = cmsPipelineGetPtrToFirstStage(pipeline); stage; stage = cmsStageNext(stage)) {
        if (!AppendStage(stage)) return false;
    }
    return true;
}

bool FusedCompiler::AppendStage(const cmsStage* stage) {
    const cmsUInt32Number in = cmsStageInputChannels(stage), out = cmsStageOutputChannels(stage);
    if (in < 3 || in > 4 || out < 3 || out > 4) return false;
    if (cmsStageType(stage) == kLcmsDeviceRangeStage) {
        if (isPending_ || !isWhole_) Emit(FusedStep::kClamp, in);
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
        case cmsSigXYZ2LabElemType: {
            Matrix relative = {};
            for (std::size_t i = 0; i < 3; ++i) relative[i][i] = kLargestXYZ / kFull / kD50[i];
            Multiply(relative);
            if (!ScaleRoot()) Emit(FusedStep::kCubeRoot, 3);
            constexpr double kL = kFull / 100.0, kAB = kFull / 255.0;
            Multiply(
                {{{0.0, 116.0 * kL, 0.0, -16.0 * kL}, {500.0 * kAB, -500.0 * kAB, 0.0, 128.0 * kAB}, {0.0, 200.0 * kAB, -200.0 * kAB, 128.0 * kAB}}});
            return true;
        }
        case cmsSigLab2XYZElemType: {
            constexpr double kY = 100.0 / kFull / 116.0, kX = 255.0 / kFull / 500.0, kZ = 255.0 / kFull / 200.0;
            Multiply({{{kY, kX, 0.0, 16.0 / 116.0 - 128.0 / 500.0}, {kY, 0.0, 0.0, 16.0 / 116.0}, {kY, 0.0, -kZ, 16.0 / 116.0 + 128.0 / 200.0}}});
            Emit(FusedStep::kCube, 3);
            Matrix absolute = {};
            for (std::size_t i = 0; i < 3; ++i) absolute[i][i] = kD50[i] * kFull / kLargestXYZ;
            Multiply(absolute);
            return true;
        }
        default:
            return false;
    }
}

void FusedCompiler::Multiply(const Matrix& matrix) {
    isPlain_ = false;
    pending_ = isPending_ ? Product(matrix, pending_) : matrix;
    isPending_ = true;
}

/// Emits the matrix that was gathered so far.
void FusedCompiler::Flush(bool isRoundedNext) {
    if (!isPending_) return;
    isPending_ = false;
    if (isPlain_ && isRoundedNext && plain_.size() <= std::size(FusedStep().matrix)) {
        FusedStep& step = Emit(FusedStep::kMatrices, 3);
        step.matrixCount = static_cast<int>(plain_.size());
        for (std::size_t k = 0; k < plain_.size(); ++k) {
            for (std::size_t r = 0; r < 3; ++r) std::copy(plain_[k].matrix[r].begin(), plain_[k].matrix[r].end(), step.matrix[k][r]);
        }
        isWhole_ = true;
        return;
    }
    FusedStep& affine = Emit(FusedStep::kAffine, 3);
    for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = 0; c < 4; ++c) affine.affine[r][c] = static_cast<float>(pending_[r][c]);
    }
}

FusedStep& FusedCompiler::Emit(FusedStep::Kind kind, std::size_t channels) {
    Flush(RoundsItsInput(kind));
    FusedStep step = {};
    step.kind = kind;
    step.channels = static_cast<std::uint8_t>(channels);
    program_->steps.push_back(step);
    isWhole_ = false;
    return program_->steps.back();
}

/// From one Lab to another by a factor for each of X, Y and Z: makes one step of it. False when that is not what was gathered.
bool FusedCompiler::ScaleRoot() {
    if (program_->steps.empty() || program_->steps.back().kind != FusedStep::kCube || !isPending_) return false;
    for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = 0; c < 4; ++c) {
            if (r == c ? !(pending_[r][c] > 0.0) : pending_[r][c] != 0.0) return false;
        }
    }
    isPending_ = false;
    FusedStep& step = program_->steps.back();
    step.kind = FusedStep::kScaledRoot;
    for (std::size_t r = 0; r < 3; ++r) {
        step.affine[r][0] = static_cast<float>(pending_[r][r]);
        step.affine[r][1] = static_cast<float>(std::cbrt(pending_[r][r]));
    }
    return true;
}

bool FusedCompiler::AppendMatrix(const cmsStage* stage) {
    if (cmsStageInputChannels(stage) != 3 || cmsStageOutputChannels(stage) != 3) return false;
    const auto* data = static_cast<const _cmsStageMatrixData*>(cmsStageData(stage));
    Matrix matrix = {};
    for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = 0; c < 3; ++c) matrix[r][c] = data->Double[3 * r + c];
        matrix[r][3] = data->Offset ? data->Offset[r] : 0.0;
        for (const double value : matrix[r]) {
            if (!(std::abs(value) < 1e4)) return false;
        }
    }
    const bool isPlain = isPending_ ? isPlain_ : isWhole_;
    if (!isPending_) plain_.clear();
    const bool hasOffset = data->Offset != nullptr;
    if (!plain_.empty() && !plain_.back().hasOffset && !hasOffset) {
        plain_.back().matrix = Product(matrix, plain_.back().matrix);  // as Little CMS does it even when it is not to optimise
    } else {
        plain_.push_back({matrix, hasOffset});
    }
    for (std::array<double, 4>& row : matrix) row[3] *= kFull;
    Multiply(matrix);
    isPlain_ = isPlain;
    return true;
}

bool FusedCompiler::AppendCurves(const cmsStage* stage) {
    const auto* data = static_cast<const _cmsStageToneCurvesData*>(cmsStageData(stage));
    if (data->nCurves != cmsStageInputChannels(stage)) return false;
    const std::vector<const cmsToneCurve*> curves(data->TheCurves, data->TheCurves + data->nCurves);
    if (std::all_of(curves.begin(), curves.end(), IsIdentityFunction)) return true;
    const bool isStart = program_->steps.empty() && !isPending_;
    if (std::all_of(curves.begin(), curves.end(), IsTable)) {
        AppendTables(curves);
        return true;
    }
    if (!std::all_of(curves.begin(), curves.end(), [](const cmsToneCurve* curve) { return IsFunction(curve) || IsTable(curve); })) return false;
    if (isStart) {
        AppendDense(curves);
        return true;
    }
    return std::all_of(curves.begin(), curves.end(), IsFunction) && AppendFunctions(curves);
}

void FusedCompiler::AppendTables(const std::vector<const cmsToneCurve*>& curves) {
    if (AreIdentityTables(curves)) {
        Flush(true);
        if (!isWhole_) Emit(FusedStep::kRound, curves.size());
        isWhole_ = true;
        return;
    }
    FusedStep& step = Emit(FusedStep::kTables, curves.size());
    for (std::size_t c = 0; c < curves.size(); ++c) {
        const cmsUInt32Number entries = cmsGetToneCurveEstimatedTableEntries(curves[c]);
        auto words = std::make_unique<std::uint16_t[]>(entries + 1);
        std::copy_n(cmsGetToneCurveEstimatedTable(curves[c]), entries, words.get());
        step.tables[c] = words.get();
        step.domain[c] = static_cast<int>(entries) - 1;
        program_->words.push_back(std::move(words));
    }
    isWhole_ = true;
}

void FusedCompiler::AppendDense(const std::vector<const cmsToneCurve*>& curves) {
    FusedStep& step = Emit(FusedStep::kDense, curves.size());
    for (std::size_t c = 0; c < curves.size(); ++c) {
        const std::size_t index = FirstAlike(curves, c);
        if (index < c) {
            step.values[c] = step.values[index];
            continue;
        }
        auto values = std::make_unique<float[]>(65536);
        for (std::size_t code = 0; code < 65536; ++code) {
            const float value = 65535.0f * ValueAt(curves[c], static_cast<double>(code) / kFull);
            values[code] = std::isfinite(value) ? value : 0.0f;
        }
        step.values[c] = values.get();
        program_->floats.push_back(std::move(values));
    }
}

bool FusedCompiler::AppendFunctions(const std::vector<const cmsToneCurve*>& curves) {
    FusedStep& step = Emit(FusedStep::kFunctions, curves.size());
    for (std::size_t c = 0; c < curves.size(); ++c) {
        const std::size_t index = FirstAlike(curves, c);
        if (index < c) {
            step.values[c] = step.values[index];
            step.zero[c] = step.zero[index];
            step.slope[c] = step.slope[index];
            continue;
        }
        FunctionTable table = TabulateFunction(curves[c]);
        if (!table.values) return false;
        step.values[c] = table.values.get();
        step.zero[c] = table.zero;
        step.slope[c] = table.slope;
        program_->floats.push_back(std::move(table.values));
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
    FusedStep& step = Emit(inputs == 4 ? FusedStep::kTwoTetrahedral : isTrilinear ? FusedStep::kTrilinear : FusedStep::kTetrahedral, inputs);
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
    isWhole_ = true;
    return true;
}

void FusedCompiler::Keep() {
    Emit(FusedStep::kKeep, 3);
}

std::unique_ptr<const FusedProgram> FusedCompiler::Finish(bool roundsResult) {
    Flush(roundsResult);
    // Steps that round their input need no rounding before them.
    std::vector<FusedStep>& steps = program_->steps;
    for (std::size_t i = steps.size(); i-- > 0;) {
        if (steps[i].kind != FusedStep::kRound) continue;
        const bool isLast = i + 1 == steps.size();
        if (isLast ? roundsResult : RoundsItsInput(steps[i + 1].kind)) steps.erase(steps.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return std::move(program_);
}

}  // namespace platform
