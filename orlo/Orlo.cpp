/// The orlo command: the library's operations on image files, its settings, displays and their ramps.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"
#include "orlo/CommandLine.h"
#include "orlo/CommandText.h"

namespace {

/// Colours are for a terminal whose user has not asked for none.
bool ColoursComplaints() {
    const char *none = std::getenv("NO_COLOR"), *terminal = std::getenv("TERM");
    return isatty(STDERR_FILENO) == 1 && (!none || !*none) && terminal && std::string_view(terminal) != "dumb";
}

int Complain(const Complaint& complaint) {
    std::string line = ComplaintLine(complaint);
    if (ColoursComplaints()) line = "\033[1;31morlo:\033[0m" + line.substr(line.find(':') + 1);
    std::fprintf(stderr, "%s\n", line.c_str());
    return static_cast<int>(complaint.exit);
}

/// What is opened first would get the number of a standard stream that is closed, and a connection to a server would be given the command's lines.
/// Writing to the stand-in fails, as it does on a full disk.
bool HoldStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // NOLINTNEXTLINE(android-cloexec-open): children have standard streams too
        if (fcntl(stream, F_GETFD) < 0 && errno == EBADF && open("/dev/null", O_RDONLY) != stream) return false;
    }
    return true;
}

void Run(std::span<char* const> arguments) {
    const Wish wish = ReadCommandLine(CommandTable(), arguments);
    if (wish.version) {
        wish.showing.Show({{"version", ORLO_VERSION}}, "orlo " ORLO_VERSION "\n");
    } else if (wish.help) {
        const std::string text = HelpText(*wish.command, wish.words);
        wish.showing.Show({{"help", text}}, text);
    } else {
        wish.command->run(wish.showing);
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (!HoldStandardStreams()) return static_cast<int>(Exit::Failed);
    try {
        Run({arguments + 1, static_cast<std::size_t>(std::max(argumentCount, 1) - 1)});
    } catch (const Complaint& complaint) {
        return Complain(complaint);
    } catch (const std::exception& error) {
        return Complain({"orlo", std::string("it cannot go on (") + error.what() + ")", "more memory may help", Exit::Failed});
    }
    return 0;
}
