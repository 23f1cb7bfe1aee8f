#pragma once

/// The file behind a preferences domain: one binary property list for each application, user and machine.

#include <string>

#include "platform/linux/Preferences/PropertyList.h"

namespace platform {

/// $XDG_CONFIG_HOME, or else ~/.config; empty when neither is an absolute path.
std::string ConfigurationFolder();

/// Where an application's settings stand: $XDG_CONFIG_HOME/<application>/preferences.<machine>.plist. An application's name is one path
/// component; another one gives empty strings.
struct PreferencePlace {
    std::string folder;
    std::string fileName;

    bool IsValid() const { return !folder.empty(); }
    std::string File() const { return folder + "/" + fileName; }
};

PreferencePlace FindPreferencePlace(const std::string& application);
/// Makes the folder, private to the user, with the folders above it.
bool MakePreferenceFolder(const PreferencePlace& place);

/// Damaged: what stands there is no property list of settings. Failed: it could not be read this time, or by this user; it may be whole.
enum class PreferenceFileState { kAbsent, kRead, kDamaged, kFailed };

/// Reads the file without a lock: a writer replaces it in one step. `*root` is a dictionary in every case; `*damage`, unless null, says what is
/// wrong with a damaged file.
PreferenceFileState ReadPreferenceFile(const PreferencePlace& place, PlistNode* root, std::string* damage = nullptr);

/// Held while a file is read, changed and replaced, so that writers in other processes come one after the other.
class PreferenceLock {
public:
    explicit PreferenceLock(const PreferencePlace& place);
    PreferenceLock(const PreferenceLock&) = delete;
    PreferenceLock& operator=(const PreferenceLock&) = delete;
    ~PreferenceLock();
    explicit operator bool() const { return descriptor_ >= 0; }

private:
    int descriptor_;
};

/// Under this name a file is written, in the same folder, before it is moved into its place.
std::string UnfinishedPreferenceFile(const std::string& file);
/// Replaces the file in one step, on disk when it returns; only under the lock. False, with the old file in place, when that failed, or when the
/// settings are more than would be read again.
bool WritePreferenceFile(const PreferencePlace& place, plist_t root);
/// Gives a damaged file another name, so that nothing overwrites it, and says so on standard error; only under the lock.
bool SetPreferenceFileAside(const PreferencePlace& place, const std::string& damage);

}  // namespace platform
