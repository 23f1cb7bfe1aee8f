#pragma once

#include <memory>

#include "platform/linux/ColourChains/PixelEvaluator.h"
#include "platform/linux/ColourChains/ProfileChain.h"

namespace platform {

/// Converts through Little CMS; serves every chain and is what faster evaluators are measured against. Null when the chain cannot be linked.
std::unique_ptr<PixelEvaluator> MakeLittleCmsEvaluator(const ProfileChain& chain, PixelFormat source, PixelFormat destination);

}  // namespace platform
