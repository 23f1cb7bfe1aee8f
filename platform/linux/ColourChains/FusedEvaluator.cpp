#include "platform/linux/ColourChains/FusedEvaluator.h"

#include <algorithm>
#include <string>

#include "platform/MadeOnce.h"
#include "platform/linux/ColourChains/FusedCompiler.h"
#include "platform/linux/ColourChains/GamutMap.h"

namespace platform {

namespace {

bool IsServed(PixelFormat format, std::size_t channels) {
    return format.depth != PixelFormat::kFloat && (channels == 3 || channels == 4);
}

FusedLayout LayoutOf(PixelFormat format, std::size_t channels) {
    return {static_cast<std::uint8_t>(format.SampleBytes()), static_cast<std::uint8_t>(format.PixelBytes(channels) / format.SampleBytes()),
            static_cast<std::uint8_t>(format.skipped == PixelFormat::kFirst ? 1 : 0), static_cast<std::uint8_t>(channels)};
}

/// What works on a run of `count` pixels: half of the widest vectors would be empty for a few.
const FusedKernels& KernelsFor([[maybe_unused]] std::size_t count, const FusedKernels& kernels) {
#ifdef CM_AVX_KERNELS
    if (kernels.set > InstructionSet::kAvx2 && count <= 8) return kAvx2FusedKernels;
#endif
    return kernels;
}

/// Unpacks a row block by block, runs the program on each, and hands it on: `finish(kernels, block, kept, done, run)`.
template <typename Finish>
void RunInBlocks(const FusedProgram& program, const FusedKernels& widest, const FusedLayout& source, const void* pixels, std::size_t count,
                 Finish finish) {
    const auto* from = static_cast<const unsigned char*>(pixels);
    FusedBlock block, kept;
    for (std::size_t done = 0; done < count; done += kFusedBlock) {
        const std::size_t run = std::min(count - done, kFusedBlock);
        const FusedKernels& kernels = KernelsFor(run, widest);
        kernels.unpack(source, from + done * source.stride * source.sampleBytes, block, run);
        kernels.run(program.steps.data(), program.steps.size(), block, kept, run);
        finish(kernels, block, kept, done, run);
    }
}

class FusedEvaluator final : public PixelEvaluator {
public:
    FusedEvaluator(std::shared_ptr<const FusedProgram> program, const FusedKernels& kernels, FusedLayout source, FusedLayout destination)
        : program_(std::move(program)),
          kernels_(kernels),
          source_(source),
          destination_(destination),
          name_(std::string("fused, ") + NameOf(kernels.set)) {}

    void ConvertRow(const void* source, void* destination, std::size_t count) const override {
        auto* to = static_cast<unsigned char*>(destination);
        const auto finish = [&](const FusedKernels& kernels, const FusedBlock& block, const FusedBlock&, std::size_t done, std::size_t run) {
            kernels.pack(destination_, block, to + done * destination_.stride * destination_.sampleBytes, run);
        };
        RunInBlocks(*program_, kernels_, source_, source, count, finish);
    }

    const char* Name() const override { return name_.c_str(); }

private:
    std::shared_ptr<const FusedProgram> program_;
    const FusedKernels& kernels_;
    FusedLayout source_, destination_;
    std::string name_;
};

class FusedGamutMap final : public PixelEvaluator {
public:
    FusedGamutMap(std::shared_ptr<const FusedProgram> program, const FusedKernels& kernels, FusedLayout source)
        : program_(std::move(program)), kernels_(kernels), source_(source), name_(std::string("fused round trip, ") + NameOf(kernels.set)) {}

    void ConvertRow(const void* source, void* destination, std::size_t count) const override {
        constexpr auto kSquaredLimit = static_cast<float>(kGamutThreshold * kGamutThreshold);
        auto* to = static_cast<unsigned char*>(destination);
        const auto finish = [&](const FusedKernels& kernels, const FusedBlock& block, const FusedBlock& asked, std::size_t done, std::size_t run) {
            kernels.compareLab(asked, block, kSquaredLimit, to + done / 8, run);
        };
        RunInBlocks(*program_, kernels_, source_, source, count, finish);
    }

    const char* Name() const override { return name_.c_str(); }

private:
    std::shared_ptr<const FusedProgram> program_;
    const FusedKernels& kernels_;
    FusedLayout source_;
    std::string name_;
};

std::shared_ptr<const FusedProgram> CompileConversion(const ProfileChain& chain) {
    const LcmsPipeline pipeline = chain.MakePipeline();
    FusedCompiler compiler;
    if (!pipeline || !compiler.Append(pipeline.get())) return nullptr;
    return compiler.Finish(true);
}

/// The round trip; the colour that was asked for is kept on the way.
std::shared_ptr<const FusedProgram> CompileGamutMap(const ProfileChain& chain) {
    const LcmsPipeline toLab = chain.MakePipelineToLab(), roundTrip = chain.MakePipelineLastDeviceRoundTrip();
    FusedCompiler compiler;
    if (!toLab || !roundTrip || !compiler.Append(toLab.get())) return nullptr;
    compiler.Keep();
    if (!compiler.Append(roundTrip.get())) return nullptr;
    return compiler.Finish(false);
}

}  // namespace

std::vector<const FusedKernels*> RunnableFusedKernels() {
    std::vector<const FusedKernels*> kernels;
#define CM_SET(name, text, runs) &k##name##FusedKernels,
    for (const FusedKernels* each : {&kPortableFusedKernels, CM_BUILT_X86_SETS(CM_SET)}) {
        if (ProcessorRuns(each->set)) kernels.push_back(each);
    }
#undef CM_SET
    return kernels;
}

const FusedKernels& BestFusedKernels() {
    static constinit MadeOnce<const FusedKernels> best;
    return *best.Get([] {
        const FusedKernels* const allowed = BestAllowed(RunnableFusedKernels());
        return allowed ? allowed : &kPortableFusedKernels;
    });
}

std::unique_ptr<PixelEvaluator> MakeFusedEvaluator(const ProfileChain& chain, PixelFormat source, std::optional<PixelFormat> destination,
                                                   const FusedKernels& kernels) {
    const std::size_t from = chain.SourceChannels(), to = chain.DestinationChannels();
    if (!IsServed(source, from) || (destination && !IsServed(*destination, to))) return nullptr;
    std::optional<std::shared_ptr<const FusedProgram>>& kept = destination ? chain.Programs().conversion : chain.Programs().gamutMap;
    if (!kept) kept = destination ? CompileConversion(chain) : CompileGamutMap(chain);
    std::shared_ptr<const FusedProgram> program = *kept;
    if (!program) return nullptr;
    if (!destination) return std::make_unique<FusedGamutMap>(std::move(program), kernels, LayoutOf(source, from));
    return std::make_unique<FusedEvaluator>(std::move(program), kernels, LayoutOf(source, from), LayoutOf(*destination, to));
}

}  // namespace platform
