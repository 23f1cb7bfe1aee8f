#pragma once

/// Which of the processor's instructions the vector kernels may use. What is compiled for one set only may name the sets here, but not call the
/// functions: they are shared by all.

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace platform {

/// In rising order: a family of kernels uses its last set up to the one that is allowed.
enum class InstructionSet : int {
    kPlain,     // the formulae written straight
    kPortable,  // the same without divisions and branches, any processor
    kNeon,      // 64-bit Arm
    kAvx2,
    kAvx512,  // foundation, byte and word, doubleword and quadword, vector length
};
constexpr InstructionSet kInstructionSets[] = {InstructionSet::kPlain, InstructionSet::kPortable, InstructionSet::kNeon, InstructionSet::kAvx2,
                                               InstructionSet::kAvx512};

/// As the switch CM_KERNELS has them.
constexpr const char* NameOf(InstructionSet set) {
    switch (set) {
        case InstructionSet::kPlain:
            return "plain";
        case InstructionSet::kPortable:
            return "portable";
        case InstructionSet::kNeon:
            return "neon";
        case InstructionSet::kAvx2:
            return "avx2";
        case InstructionSet::kAvx512:
            return "avx512";
    }
    return "";
}

/// Whether this processor runs the set.
inline bool ProcessorRuns(InstructionSet set) {
    switch (set) {
        case InstructionSet::kPlain:
        case InstructionSet::kPortable:
            return true;
#if defined(__aarch64__)
        case InstructionSet::kNeon:
            return true;
#elif defined(__x86_64__)
        case InstructionSet::kAvx2:
            return __builtin_cpu_supports("avx2");
        case InstructionSet::kAvx512:
            return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
                   __builtin_cpu_supports("avx512vl");
#endif
        default:
            return false;
    }
}

/// The widest set that kernels may use: what the environment variable CM_KERNELS names, else anything. Read once; any thread.
inline InstructionSet WidestAllowed() {
    static const InstructionSet allowed = [] {
        const char* const wanted = std::getenv("CM_KERNELS");
        if (!wanted || !*wanted) return InstructionSet::kAvx512;
        for (const InstructionSet set : kInstructionSets) {
            if (std::strcmp(wanted, NameOf(set)) == 0) return set;
        }
        // A switch for those who test or measure: they must not believe that they forced something.
        std::fprintf(stderr, "CM_KERNELS is \"%s\", which is none of plain, portable, neon, avx2 and avx512; it is ignored\n", wanted);
        return InstructionSet::kAvx512;
    }();
    return allowed;
}

/// Of kernels in rising order, each with a member `set`: the last ones that this processor runs and that are allowed, or null.
template <typename Kernels>
auto BestAllowed(const Kernels& kernels) {
    typename Kernels::value_type best = nullptr;
    for (const auto each : kernels) {
        if (each->set <= WidestAllowed() && ProcessorRuns(each->set)) best = each;
    }
    return best;
}

}  // namespace platform
