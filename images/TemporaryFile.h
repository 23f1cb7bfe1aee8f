#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

/// A new file under a name of its own, open for reading and writing. It goes when this does, and when a signal ends the process. A few at a time in a
/// process.
class TemporaryFile {
public:
    /// suffix   of its name, with the dot
    /// mode     its permissions, before the mask
    ///
    /// Where it cannot be made, Descriptor() is -1 and errno says why.
    TemporaryFile(const std::filesystem::path& folder, const std::string& suffix, mode_t mode);
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile();

    int Descriptor() const { return descriptor_; }
    const std::string& Path() const { return path_; }
    /// False when what was written is not all there.
    bool Close();
    /// Lets it stay: it has another name now.
    void Release();

private:
    std::string path_;
    int descriptor_;
    bool isOurs_;
};
