#include "orlo/OutputFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "images/Complaint.h"

namespace {

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
    // What is to replace a file is nobody else's before it has that file's permissions.
    file_.emplace(std::filesystem::path(target_).parent_path(), std::filesystem::path(target_).extension().string(), isThere ? 0600 : 0666);
    if (file_->Descriptor() < 0) {
        throw Complaint{path, std::string("nothing can be written in its folder (") + std::strerror(errno) + ")", "name a file in a writable folder",
                        Exit::Failed};
    }
}

void OutputFile::ComplainOfWriting() const {
    throw Complaint{path_, "the image cannot be written there", "room for the whole image is needed", Exit::Failed};
}

void OutputFile::WriteWhole(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t count = write(Descriptor(), text.data() + at, text.size() - at);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) throw Complaint{path_, "it cannot be written there", "room for the whole file is needed", Exit::Failed};
        at += static_cast<std::size_t>(count);
    }
    Commit();
}

void OutputFile::Commit() {
    struct stat status {};
    if (stat(target_.c_str(), &status) == 0 && fchmod(Descriptor(), status.st_mode & 07777) != 0) ComplainOfWriting();
    const bool stored = fsync(Descriptor()) == 0;
    const bool closed = file_->Close();
    if (!stored || !closed || std::rename(TemporaryPath().c_str(), target_.c_str()) != 0) ComplainOfWriting();
    file_->Release();
}
