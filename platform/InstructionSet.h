#pragma once

/// Which of the processor's instructions the vector kernels may use. What is compiled for one set only may name the sets here, but not call the
/// functions: they are shared by all.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__x86_64__)
#define CM_CPU_HAS(feature) __builtin_cpu_supports(feature)
#else
#define CM_CPU_HAS(feature) false
#endif
#if defined(__aarch64__)
#define CM_CPU_IS_ARM64 true
#else
#define CM_CPU_IS_ARM64 false
#endif

/// Every set in rising order, a line each: what it is called here and in the switch CM_KERNELS, and whether this processor runs it. CMake reads the
/// lines too, and has the kernels of a set compiled for the features that it names.
// clang-format off
#define CM_INSTRUCTION_SETS(SET) \
    SET(Plain, "plain", true)             /* the formulae written straight */ \
    SET(Portable, "portable", true)       /* the vectors of every processor of a kind: SSE2, NEON */ \
    SET(Neon, "neon", CM_CPU_IS_ARM64)    /* the portable kernels again, by the name of what they use there */ \
    CM_X86_SETS(SET)
#define CM_X86_SETS(SET) \
    SET(Avx2, "avx2", CM_CPU_HAS("avx2")) \
    SET(Avx512, "avx512", CM_CPU_HAS("avx512f") && CM_CPU_HAS("avx512bw") && CM_CPU_HAS("avx512dq") && CM_CPU_HAS("avx512vl"))
// clang-format on

// Those of them that the build compiles kernels for.
#ifdef CM_AVX_KERNELS
#define CM_BUILT_X86_SETS(SET) CM_X86_SETS(SET)
#else
#define CM_BUILT_X86_SETS(SET)
#endif

namespace platform {

enum class InstructionSet : int {
#define CM_SET(name, text, runs) k##name,
    CM_INSTRUCTION_SETS(CM_SET)
#undef CM_SET
};

/// A family of kernels uses its last set up to the one that is allowed.
constexpr InstructionSet kInstructionSets[] = {
#define CM_SET(name, text, runs) InstructionSet::k##name,
    CM_INSTRUCTION_SETS(CM_SET)
#undef CM_SET
};
constexpr InstructionSet kWidestSet = kInstructionSets[sizeof kInstructionSets / sizeof kInstructionSets[0] - 1];

#define CM_SET(name, text, runs) ", " text
constexpr const char* kSetNames = &(CM_INSTRUCTION_SETS(CM_SET))[2];
#undef CM_SET

/// As the switch CM_KERNELS has them.
constexpr const char* NameOf(InstructionSet set) {
    switch (set) {
#define CM_SET(name, text, runs)  \
    case InstructionSet::k##name: \
        return text;
        CM_INSTRUCTION_SETS(CM_SET)
#undef CM_SET
    }
    return "";
}

/// Whether this processor runs the set.
inline bool ProcessorRuns(InstructionSet set) {
#define CM_SET(name, text, runs) || (set == InstructionSet::k##name && (runs))
    return false CM_INSTRUCTION_SETS(CM_SET);
#undef CM_SET
}

/// The widest set that kernels may use: what the environment variable CM_KERNELS names, else anything. Read once; any thread.
inline InstructionSet WidestAllowed() {
    static const InstructionSet allowed = [] {
        const char* const wanted = std::getenv("CM_KERNELS");
        if (!wanted || !*wanted) return kWidestSet;
        for (const InstructionSet set : kInstructionSets) {
            if (std::strcmp(wanted, NameOf(set)) == 0) return set;
        }
        // A switch for those who test or measure: they must not believe that they forced something.
        std::fprintf(stderr, "CM_KERNELS is \"%s\", which is none of %s; it is ignored\n", wanted, kSetNames);
        return kWidestSet;
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
