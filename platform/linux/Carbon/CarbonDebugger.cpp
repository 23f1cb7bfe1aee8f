// The stop in an attached debugger.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "platform/Carbon.h"
#include "platform/linux/Posix/Descriptor.h"

namespace {

// Asked of the calling thread: a trap in a thread that nobody traces would end the process, even when other threads are traced.
bool ThreadIsTraced() {
    const platform::Descriptor file(open("/proc/thread-self/status", O_RDONLY | O_CLOEXEC));
    if (file.Get() < 0) return false;
    char text[4096];  // the line stands among the first ten
    std::size_t length = 0;
    while (length < sizeof text - 1) {
        const ssize_t count = read(file.Get(), text + length, sizeof text - 1 - length);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        length += static_cast<std::size_t>(count);
    }
    text[length] = 0;
    const char* line = std::strstr(text, "\nTracerPid:");
    return line && std::atol(line + std::strlen("\nTracerPid:")) != 0;
}

}  // namespace

void Debugger(void) {
    if (ThreadIsTraced()) std::raise(SIGTRAP);
}
