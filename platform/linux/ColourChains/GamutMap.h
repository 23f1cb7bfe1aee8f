#pragma once

#include <memory>

#include "platform/linux/ColourChains/PixelEvaluator.h"
#include "platform/linux/ColourChains/ProfileChain.h"

namespace platform {

/// A colour is out of the last device's gamut when the device, asked for it absolutely, shows one that is further away than this: CIE 1976
/// colour difference, compared with "greater than".
///
/// The gamut tags that profile makers compute lie between differences of 2 and 5; what a printer's tables lose on colours inside lies below.
inline constexpr double kGamutThreshold = 3.0;

/// Writes one bit a pixel, the most significant bit of a byte first, 1 = out of gamut; the bits after a row's last pixel are 0.
///
/// The colour tested is the one that the chain hands to its last device: with a device between, what that device made of it. One rule for all
/// profiles, with or without a gamut tag. Null when the last device cannot be asked both ways.
std::unique_ptr<PixelEvaluator> MakeGamutMap(const ProfileChain& chain, PixelFormat source);

}  // namespace platform
