#pragma once

/// What tells one state of a file from another without reading it.

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <optional>

/// Nanoseconds since the start of 1970, by the clock of the file system.
struct FileState {
    dev_t device;
    ino_t inode;
    off_t size;
    std::int64_t modified;
    std::int64_t changed;  // moves with every write, rename and change of rights, and cannot be set back

    bool operator==(const FileState&) const = default;
};

namespace file_state {

inline std::int64_t Nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace file_state

/// Of a plain file, links followed. Nothing when none stands there or it cannot be asked.
inline std::optional<FileState> FileStateOf(const char* path) {
    struct stat about;
    if (stat(path, &about) != 0 || !S_ISREG(about.st_mode)) return std::nullopt;
#if defined(__APPLE__)
    const timespec &modified = about.st_mtimespec, &changed = about.st_ctimespec;
#elif defined(__linux__)
    const timespec &modified = about.st_mtim, &changed = about.st_ctim;
#else
#error "no backing for this system: macOS and Linux have one"
#endif
    return FileState{about.st_dev, about.st_ino, about.st_size, file_state::Nanoseconds(modified), file_state::Nanoseconds(changed)};
}

/// Whether every later write gives the file another state. File systems note times in steps, of two seconds at most, so that a write soon after
/// another may leave no trace; and a file of the future is on another clock than ours.
inline bool IsSettled(const FileState& state) {
    constexpr std::int64_t kLongestStep = 2'000'000'000;
    timespec now;
    return clock_gettime(CLOCK_REALTIME, &now) == 0 && state.changed < file_state::Nanoseconds(now) - kLongestStep;
}
