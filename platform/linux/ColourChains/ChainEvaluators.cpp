#include "platform/linux/ColourChains/ChainEvaluators.h"

#include "platform/MadeOnce.h"
#include "platform/linux/ColourChains/FusedEvaluator.h"
#include "platform/linux/ColourChains/GamutMap.h"
#include "platform/linux/ColourChains/LittleCmsEvaluator.h"

namespace platform {

ChainEvaluators::~ChainEvaluators() {
    const ForkSection section;  // what ends here are the engine's objects
    for (auto& row : evaluators_) {
        for (auto& evaluator : row) delete evaluator.load();
    }
    chain_.reset();
}

const PixelEvaluator* ChainEvaluators::Evaluator(PixelFormat source, std::optional<PixelFormat> destination) {
    std::atomic<const PixelEvaluator*>& slot = evaluators_[source.Index()][destination ? destination->Index() : kGamutColumn];
    if (const PixelEvaluator* made = slot.load(std::memory_order_acquire)) return made;
    const std::lock_guard lock(making_);
    if (const PixelEvaluator* made = slot.load(std::memory_order_relaxed)) return made;
    std::unique_ptr<PixelEvaluator> evaluator = MakeFusedEvaluator(*chain_, source, destination);
    if (!evaluator) evaluator = destination ? MakeLittleCmsEvaluator(*chain_, source, *destination) : MakeGamutMap(*chain_, source);
    slot.store(evaluator.get(), std::memory_order_release);
    return evaluator.release();
}

RecentlyUsedCache<std::vector<ChainStep>, std::shared_ptr<ChainEvaluators>>& ChainCache() {
    using Chains = RecentlyUsedCache<std::vector<ChainStep>, std::shared_ptr<ChainEvaluators>>;
    static constinit MadeOnce<Chains> chains;
    return *chains.Get([] { return new Chains(12, std::size_t{256} << 20); });
}

std::size_t EstimatedBytes(const std::vector<ChainStep>& steps) {
    constexpr std::size_t kEach = std::size_t{64} << 10;
    std::size_t bytes = 0;
    for (const ChainStep& step : steps) bytes += kEach + 4 * step.profile->size();
    return bytes;
}

}  // namespace platform
