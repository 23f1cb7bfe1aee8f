#include "Misc/SafeSaver.h"

#include <cerrno>

#include "platform/Foundation.h"
#include "platform/Owned.h"

SafeSaver::SafeSaver(CFURLRef target) : temporaryFolder(nullptr), targetURL(Owned<CFURLRef>::Retain(target).Detach()), saveURL(nullptr) {}

SafeSaver::~SafeSaver() {
    Cleanup();
    const Owned<CFURLRef> ownedFolder(temporaryFolder);
    const Owned<CFURLRef> ownedTarget(targetURL);
    const Owned<CFURLRef> ownedSave(saveURL);
}

bool SafeSaver::PrepareToSave(CFErrorRef* error) {
    Owned<CFURLRef> folder(platform::CreateItemReplacementFolder(targetURL, error));
    if (!folder) return false;
    const Owned<CFStringRef> name(CFURLCopyLastPathComponent(targetURL));
    Owned<CFURLRef> save(name ? CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, folder.Get(), name.Get(), false) : nullptr);
    if (!save) {
        platform::RemoveItemReplacementFolder(folder.Get());
        if (error) *error = CFErrorCreate(kCFAllocatorDefault, kCFErrorDomainPOSIX, EILSEQ, nullptr);
        return false;
    }
    // Prepared once more: what the earlier folder holds is not wanted any longer.
    Cleanup();
    const Owned<CFURLRef> earlierFolder(temporaryFolder);
    const Owned<CFURLRef> earlierSave(saveURL);
    temporaryFolder = folder.Detach();
    saveURL = save.Detach();
    return true;
}

CFURLRef SafeSaver::SafeSaveURL() const {
    return saveURL;
}

bool SafeSaver::CompleteSave(CFErrorRef* error) {
    return platform::ReplaceItem(targetURL, saveURL, error);
}

void SafeSaver::Cleanup() {
    if (temporaryFolder) platform::RemoveItemReplacementFolder(temporaryFolder);
}
