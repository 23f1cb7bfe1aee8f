#pragma once

/// How processes without a bus hear of each other: an application's preference file is touched when a change is announced, and watched.

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace platform {

/// The object that such notifications have: the only one that a file can announce.
constexpr const char* kChangeObject = "Change";

/// Announces a change to those who watch. False when there is no file yet, or it may not be touched.
bool TouchPreferenceFile(const std::string& application);

/// What a file was when it was last looked at; another one, or one that was touched, differs.
struct PreferenceFileStamp {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    std::int64_t size = 0, written = 0, changed = 0;
    bool operator==(const PreferenceFileStamp&) const = default;
};
PreferenceFileStamp StampOfPreferenceFile(const std::string& application);

/// Sees announcements, and changes by other programs than this library, whose own writing says nothing until it is announced.
///
/// Goes on seeing them when the file, its folder or a folder above is replaced, moved or comes into being later, and where links lead elsewhere. It
/// never waits: whoever holds one asks for its descriptor and calls Read when there is something to read. One thread at a time.
class PreferenceWatch {
public:
    /// Null when the settings folder can neither be found nor made, or cannot be watched.
    static std::unique_ptr<PreferenceWatch> Make();
    PreferenceWatch(const PreferenceWatch&) = delete;
    PreferenceWatch& operator=(const PreferenceWatch&) = delete;
    ~PreferenceWatch() { Close(); }

    int Descriptor() const { return descriptor_; }
    void Follow(const std::string& application);
    bool Follows(const std::string& application) const;

    struct Seen {
        std::vector<std::string> changed;  // applications, each once
        bool isRenewed = false;            // another file may stand there now: compare the stamps
    };
    Seen Read();

    /// Gives up the descriptor. In the child of a fork the parent's watch goes on.
    void Close();

private:
    /// One name in a watched folder.
    struct Interest {
        std::string folder;
        std::string name;
        std::string application;
        bool isFile;  // else a folder, or a link, on the way to it
        bool operator==(const Interest&) const = default;
    };

    explicit PreferenceWatch(int descriptor) : descriptor_(descriptor) {}
    void Renew();
    void Survey(const std::string& application);
    void Watch(const Interest& interest);

    int descriptor_;
    std::vector<std::string> followed_;
    std::map<int, std::vector<Interest>> watched_;
    std::uint32_t quietMove_ = 0;  // the move that puts a file written by this library into its place
};

}  // namespace platform
