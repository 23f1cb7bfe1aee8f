// Runs a command with one set of kernels forced; answers 77, as a test that is left out does, where the processor does not run the set.
//
//     WithKernels SET COMMAND [ARGUMENT...]

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/InstructionSet.h"

int main(int count, char** arguments) {
    for (const platform::InstructionSet set : platform::kInstructionSets) {
        if (count < 3 || std::strcmp(arguments[1], NameOf(set)) != 0) continue;
        if (!platform::ProcessorRuns(set)) {
            std::printf("this processor does not run %s\n", NameOf(set));
            return 77;
        }
        setenv("CM_KERNELS", NameOf(set), 1);
        execvp(arguments[2], arguments + 2);
        std::perror(arguments[2]);
        return EXIT_FAILURE;
    }
    std::fprintf(stderr, "usage: WithKernels SET COMMAND [ARGUMENT...], SET one of %s\n", platform::kSetNames);
    return EXIT_FAILURE;
}
