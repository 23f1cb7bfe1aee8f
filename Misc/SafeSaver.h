#pragma once

#include "platform/CoreFoundation.h"

/// Saves a document so that a failed save never leaves a half-written or missing one: the new file is written into a private folder on the
/// target's volume and swapped into place in one step.
///
/// A target that is a symbolic link keeps being one: what it leads to is replaced, or made where nothing stands there yet. A file never replaces a
/// folder, nor a folder a file.
///
/// Destroying it at any moment removes what was written into the private folder; the target is only ever touched by a successful CompleteSave.
/// C++ hosts; one thread. Nothing throws.
class CM_EXPORT SafeSaver {
public:
    /// Retains the target's URL; null is allowed.
    explicit SafeSaver(CFURLRef target);
    SafeSaver(const SafeSaver&) = delete;
    SafeSaver& operator=(const SafeSaver&) = delete;
    ~SafeSaver();

    /// Makes the private folder. On failure *error (where `error` is not null) is the caller's to release.
    bool PrepareToSave(CFErrorRef* error);
    /// Where to write the new file; null before PrepareToSave. Borrowed.
    CFURLRef SafeSaveURL() const;
    /// Swaps the written file over the target.
    bool CompleteSave(CFErrorRef* error);
    /// Removes the private folder now.
    void Cleanup();

private:
    CFURLRef temporaryFolder;
    CFURLRef targetURL;
    CFURLRef saveURL;
};
