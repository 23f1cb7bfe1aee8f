#pragma once

/// What the system offers only as messages to objects, as plain functions named after the messages.
///
/// C++ only, used inside the library.

#include "platform/CoreFoundation.h"

namespace platform {

/// Puts `work(context)` on the main run loop and returns at once, on any thread, never running it in place.
///
/// release   called with the context after the work ran, or when the run loop drops it unrun; may be null
void RunLoopPerform(void (*work)(void*), void* context, void (*release)(void*));

/// Shows a modal warning alert with the two texts and one button; main thread only. On Linux alerts come one after the other, shown by
/// a helper program of their own beside the library; where nothing can be shown, the texts go to standard error.
void RunWarningAlert(CFStringRef message, CFStringRef informative, CFStringRef button);

// ---- files; null URLs and those of no file fail, *error (where `error` is not null) is the caller's to release ----

// A target that is a link stands for what the link leads to, also where nothing stands there yet; links in a circle fail.

/// Makes a private folder on the target's volume, from which a file can be moved over the target in one step.
CFURLRef CreateItemReplacementFolder(CFURLRef target, CFErrorRef* error);
/// Removes such a folder with all it holds. File references into it end.
void RemoveItemReplacementFolder(CFURLRef folder);
/// Moves an item over the target in one step, on disk when it returns; one that was there is gone then, and its permissions, owner and extended
/// attributes are the new one's. A file never replaces a folder, nor a folder a file. On failure the target is as it was.
bool ReplaceItem(CFURLRef target, CFURLRef replacement, CFErrorRef* error);
/// Removes a file, a link itself, or a folder with all it holds. False when nothing was there, or not all could be removed; on Linux also, with all
/// left as it is, for what nobody can mean: the root, a mount point, a home folder, the current folder, and a folder that holds one of them.
bool RemoveItem(CFURLRef item);
/// Writes a whole file or nothing, on disk when it returns.
bool WriteDataAtomically(CFDataRef data, CFURLRef file);
CFDataRef CreateDataWithContents(CFURLRef file);

/// Of a link itself, not of what it leads to.
bool IsRegularFile(CFURLRef item);
bool IsDirectory(CFURLRef item);
/// 0 for what is no plain file.
int64_t FileSize(CFURLRef item);
/// Whether an existing item lies inside one of the user's trash folders; the trash folder itself does not.
bool TrashContains(CFURLRef item);

}  // namespace platform
