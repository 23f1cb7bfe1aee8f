#include "images/TemporaryFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <random>

namespace {

// What a signal removes; null where there is nothing.
std::array<std::atomic<const char*>, 8> sTemporary;
static_assert(std::atomic<const char*>::is_always_lock_free, "a signal handler reads them");

extern "C" void RemoveTemporary(int signalNumber) {
    for (const auto& name : sTemporary) {
        if (const char* path = name.load()) unlink(path);
    }
    raise(signalNumber);
}

void CatchSignals() {
    struct sigaction action {};
    action.sa_handler = RemoveTemporary;
    // After the first one the default action is back, so that raising it again ends the process.
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGQUIT, SIGTERM}) {
        struct sigaction present {};
        if (sigaction(number, nullptr, &present) == 0 && present.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
    // A write past the allowed file size then fails instead of ending the process.
    signal(SIGXFSZ, SIG_IGN);
}

/// False when there are too many already.
bool Remember(const char* path) {
    return std::any_of(sTemporary.begin(), sTemporary.end(), [path](std::atomic<const char*>& name) {
        const char* none = nullptr;
        return name.compare_exchange_strong(none, path);
    });
}

void Forget(const char* path) {
    for (auto& name : sTemporary) {
        const char* expected = path;
        name.compare_exchange_strong(expected, nullptr);
    }
}

std::string RandomName(const std::filesystem::path& folder, const std::string& suffix) {
    std::random_device random;
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), "%08x%08x", static_cast<unsigned>(random()), static_cast<unsigned>(random()));
    return (folder / (".orlo-" + std::string(number.data()) + suffix)).string();
}

}  // namespace

TemporaryFile::TemporaryFile(const std::filesystem::path& folder, const std::string& suffix, mode_t mode)
    : path_(RandomName(folder, suffix)), descriptor_(-1), isOurs_(false) {
    CatchSignals();
    // Known to the signal handler before it exists, so that no moment is left in which it could stay behind.
    if (!Remember(path_.c_str())) {
        errno = EMFILE;
        return;
    }
    descriptor_ = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    isOurs_ = descriptor_ >= 0;
    if (!isOurs_) Forget(path_.c_str());
}

TemporaryFile::~TemporaryFile() {
    Close();
    if (isOurs_) unlink(path_.c_str());
    Forget(path_.c_str());
}

bool TemporaryFile::Close() {
    const bool isWhole = descriptor_ < 0 || close(descriptor_) == 0;
    descriptor_ = -1;
    return isWhole;
}

void TemporaryFile::Release() {
    isOurs_ = false;
    Forget(path_.c_str());
}
