#pragma once

/// From linked pipelines to the steps that the kernels run.

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/linux/ColorSync/LittleCms.h"
#include "platform/linux/ColourChains/FusedProgram.h"

namespace platform {

/// Steps and the tables that they point to. Immutable once made.
struct FusedProgram {
    std::vector<FusedStep> steps;
    std::vector<std::unique_ptr<const std::uint16_t[]>> words;
    std::vector<std::unique_ptr<const float[]>> floats;
};

/// Takes pipelines of three or four channels that consist of matrices, curves, 16-bit grids and the two conversions between XYZ and Lab.
///
/// Tables are evaluated and rounded as Little CMS does it, to the same whole numbers; the arithmetic between them is in single precision with
/// neighbouring matrices multiplied together.
class FusedCompiler {
public:
    FusedCompiler() : program_(std::make_unique<FusedProgram>()) {}

    /// False when there is something in the pipeline that no step does, or not to within a unit of 65535; the compiler is of no use after that.
    bool Append(const cmsPipeline* pipeline);
    void Keep();
    /// roundsResult   the caller rounds to whole numbers
    std::unique_ptr<const FusedProgram> Finish(bool roundsResult);

private:
    /// Three rows of factors and an offset.
    using Matrix = std::array<std::array<double, 4>, 3>;

    bool AppendStage(const cmsStage* stage);
    bool AppendCurves(const cmsStage* stage);
    bool AppendMatrix(const cmsStage* stage);
    bool AppendGrid(const cmsStage* stage);
    void Multiply(const Matrix& matrix);
    void Flush(bool isRoundedNext);
    bool ScaleRoot();
    FusedStep& Emit(FusedStep::Kind kind, std::size_t channels);

    void AppendTables(const std::vector<const cmsToneCurve*>& curves);
    void AppendDense(const std::vector<const cmsToneCurve*>& curves);
    bool AppendFunctions(const std::vector<const cmsToneCurve*>& curves);

    std::unique_ptr<FusedProgram> program_;
    Matrix pending_ = {};
    bool isPending_ = false;
    struct PlainMatrix {
        Matrix matrix;
        bool hasOffset;
    };
    std::vector<PlainMatrix> plain_;  // the pipeline's own matrices that pending_ is made of, on the scale where 1 is full
    bool isPlain_ = false;            // there is nothing but them in it, and whole numbers before them
    bool isWhole_ = true;             // the samples are whole numbers 0..65535
};

}  // namespace platform
