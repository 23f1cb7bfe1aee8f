#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/ColourChains/FusedProgram.h"
#include "platform/linux/ColourChains/PixelEvaluator.h"
#include "platform/linux/ColourChains/ProfileChain.h"

namespace platform {

/// Every set of kernels that this processor can run, the best one last.
std::vector<const FusedKernels*> RunnableFusedKernels();
/// Of those that are allowed; the portable ones where nothing but plain is, as these programs have no other form.
const FusedKernels& BestFusedKernels();

/// Converts through the profiles' own curves, matrices and tables, block by block. Without a destination it writes the gamut map of MakeGamutMap.
///
/// A result depends on nothing but the pixel: not on the processor, the run or the thread. It is that of Little CMS's own un-optimised evaluation
/// but for a rare neighbour. Null when the chain holds something else than matrices, curves, 16-bit tables and XYZ or Lab between devices of three
/// or four channels, and for float samples.
std::unique_ptr<PixelEvaluator> MakeFusedEvaluator(const ProfileChain& chain, PixelFormat source, std::optional<PixelFormat> destination,
                                                   const FusedKernels& kernels = BestFusedKernels());

}  // namespace platform
