#pragma once

/// From linked pipelines to the steps that the kernels run.

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
    std::vector<std::unique_ptr<const double[]>> doubles;
};

/// Takes pipelines of three or four channels that consist of matrices, curves, 16-bit grids and the two conversions between XYZ and Lab.
///
/// Every stage becomes its own step, evaluated and rounded as Little CMS does it: in front of a table the last bit can decide which whole number is
/// looked up, and a step of one there is many in the result.
class FusedCompiler {
public:
    FusedCompiler() : program_(std::make_unique<FusedProgram>()) {}

    /// False when there is something in the pipeline that no step does; the compiler is of no use after that.
    bool Append(const cmsPipeline* pipeline);
    void Keep();
    /// isWhole   the program gives whole numbers
    std::unique_ptr<const FusedProgram> Finish(bool isWhole);

private:
    bool AppendStage(const cmsStage* stage);
    bool AppendCurves(const cmsStage* stage);
    bool AppendMatrix(const cmsStage* stage);
    bool AppendGrid(const cmsStage* stage);
    /// Has the samples as whole numbers, or on the scale where 1 is full, for the next step.
    void NeedWhole();
    void NeedUnits();
    FusedStep& Emit(FusedStep::Kind kind);

    void AppendTables(const std::vector<const cmsToneCurve*>& curves);
    void AppendDense(const std::vector<const cmsToneCurve*>& curves);
    bool AppendFunctions(const std::vector<const cmsToneCurve*>& curves);

    std::unique_ptr<FusedProgram> program_;
    std::size_t channels_ = 3;
    bool isWhole_ = true;  // the samples are whole numbers 0..65535
};

}  // namespace platform
