#include "orlo/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>

#include "images/Complaint.h"

namespace {

// What a signal removes; null when there is nothing.
std::atomic<const char*> sTemporary = nullptr;
static_assert(std::atomic<const char*>::is_always_lock_free, "a signal handler reads it");

extern "C" void RemoveTemporary(int signalNumber) {
    if (const char* path = sTemporary.load()) unlink(path);
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

std::string TemporaryName(const std::filesystem::path& target) {
    std::random_device random;
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), "%08x%08x", static_cast<unsigned>(random()), static_cast<unsigned>(random()));
    return (target.parent_path() / (".orlo-" + std::string(number.data()) + target.extension().string())).string();
}

/// Where writing to a path goes: to the end of the links that start there, also where nothing stands at that end yet.
std::filesystem::path EndOfLinks(std::filesystem::path path) {
    constexpr int kMostLinks = 40;  // as many as the system follows
    std::error_code error;
    for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(path, error); ++i) {
        path = path.parent_path() / std::filesystem::read_symlink(path, error);
    }
    return path;
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path), target_(EndOfLinks(path).string()) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::path(target_).parent_path();
    if (!folder.empty() && !std::filesystem::is_directory(folder, error)) {
        throw Complaint{path, "its folder does not exist", "name a file in a folder that does", Exit::NotThere};
    }
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 && errno != ENOENT)
        throw Complaint{path, std::string("it cannot be reached (") + std::strerror(errno) + ")", "name another file", Exit::Failed};
    const bool isThere = stat(target_.c_str(), &status) == 0;
    if (isThere) {
        if (!S_ISREG(status.st_mode)) throw Complaint{path, "this is not a file of its own", "name a file to write"};
        if (access(target_.c_str(), W_OK) != 0) throw Complaint{path, "the file is there and cannot be written", "name another file", Exit::Failed};
    }
    CatchSignals();
    temporary_ = TemporaryName(target_);
    // Known to the signal handler before it exists, so that no moment is left in which it could stay behind.
    sTemporary = temporary_.c_str();
    // What is to replace a file is nobody else's before it has that file's permissions.
    descriptor_ = open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, isThere ? 0600 : 0666);
    if (descriptor_ < 0) {
        sTemporary = nullptr;
        throw Complaint{path, std::string("nothing can be written in its folder (") + std::strerror(errno) + ")", "name a file in a writable folder",
                        Exit::Failed};
    }
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0) close(descriptor_);
    if (!temporary_.empty()) unlink(temporary_.c_str());
    sTemporary = nullptr;
}

void OutputFile::ComplainOfWriting() const {
    throw Complaint{path_, "the image cannot be written there", "room for the whole image is needed", Exit::Failed};
}

void OutputFile::WriteWhole(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t count = write(descriptor_, text.data() + at, text.size() - at);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) throw Complaint{path_, "it cannot be written there", "room for the whole file is needed", Exit::Failed};
        at += static_cast<std::size_t>(count);
    }
    Commit();
}

void OutputFile::Commit() {
    struct stat status {};
    if (stat(target_.c_str(), &status) == 0 && fchmod(descriptor_, status.st_mode & 07777) != 0) ComplainOfWriting();
    const bool stored = fsync(descriptor_) == 0;
    const bool closed = close(descriptor_) == 0;
    descriptor_ = -1;
    if (!stored || !closed || std::rename(temporary_.c_str(), target_.c_str()) != 0) ComplainOfWriting();
    sTemporary = nullptr;
    temporary_.clear();
}
