#pragma once

/// What converts along one chain of profiles, in every pair of formats that was asked for; kept for the next who asks for the same chain.

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/ForkSection.h"
#include "platform/RecentlyUsedCache.h"
#include "platform/linux/ColourChains/PixelEvaluator.h"
#include "platform/linux/ColourChains/ProfileChain.h"

namespace platform {

/// Any number of threads may use one at once.
class ChainEvaluators {
public:
    explicit ChainEvaluators(std::unique_ptr<ProfileChain> chain) : chain_(std::move(chain)) {}
    ChainEvaluators(const ChainEvaluators&) = delete;
    ChainEvaluators& operator=(const ChainEvaluators&) = delete;
    ~ChainEvaluators();

    const ProfileChain& Chain() const { return *chain_; }
    /// The evaluator for a pair of formats (no destination: the gamut map), owned by this object; null when it cannot be made. Made under a lock
    /// when first asked for, then read without one.
    const PixelEvaluator* Evaluator(PixelFormat source, std::optional<PixelFormat> destination);

private:
    static constexpr std::size_t kGamutColumn = PixelFormat::kCount;

    std::unique_ptr<ProfileChain> chain_;
    ForkSafeMutex making_;
    std::array<std::array<std::atomic<const PixelEvaluator*>, PixelFormat::kCount + 1>, PixelFormat::kCount> evaluators_ = {};
};

/// The chains used last, found by content: intents, compensations and the profiles' bytes.
///
/// 12 at most, which is four choices of profiles, and 256 MiB by EstimatedBytes. A chain that is in use outlives its place here.
RecentlyUsedCache<std::vector<ChainStep>, std::shared_ptr<ChainEvaluators>>& ChainCache();

/// About what a chain with its usual evaluators takes: tables of 16 bits less, tables of 8 bits up to three times as much.
std::size_t EstimatedBytes(const std::vector<ChainStep>& steps);

}  // namespace platform
