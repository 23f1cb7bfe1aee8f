#include "platform/linux/Posix/Environment.h"

#include <errno.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <vector>

namespace platform {

const char* EnvironmentVariable(const char* name) {
    return secure_getenv(name);
}

std::string HomeFolder() {
    // In a child of fork the locks of what reads the list may be closed for ever: it is asked only without the variable.
    const char* const variable = EnvironmentVariable("HOME");
    const std::string home = variable ? variable : HomeInPasswordDatabase();
    return home.starts_with('/') ? home : std::string();
}

std::string HomeInPasswordDatabase() {
    std::vector<char> texts(1024);
    passwd entry;
    passwd* found = nullptr;
    while (getpwuid_r(geteuid(), &entry, texts.data(), texts.size(), &found) == ERANGE) texts.resize(2 * texts.size());
    return found && found->pw_dir ? found->pw_dir : std::string();
}

}  // namespace platform
