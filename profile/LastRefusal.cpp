#include "profile/LastRefusal.h"

#include <climits>
#include <mutex>
#include <utility>

#include "platform/Codes.h"
#include "platform/ForkSection.h"
#include "platform/MadeOnce.h"
#include "platform/Owned.h"
#include "profile/Refusals.h"

namespace {

struct Refusal {
    platform::ForkSafeMutex lock;
    std::string file, sentence;  // guarded by the lock
    bool isFresh = false;        // since ForgetRefusal
};

Refusal& Latest() {
    static constinit platform::MadeOnce<Refusal> latest;
    return *latest.Get();
}

/// Without memory for its words a refusal has none.
template <typename Work>
void WithLatest(Work work) noexcept try {
    Refusal& latest = Latest();
    const std::lock_guard guard(latest.lock);
    work(latest);
} catch (...) {
}

}  // namespace

CFStringRef ICC_CopyLastRefusal(void) {
    CFStringRef copy = nullptr;
    WithLatest([&copy](const Refusal& latest) {
        if (latest.sentence.empty()) return;
        const std::string whole = latest.file.empty() ? latest.sentence : latest.file + ": " + latest.sentence;
        // A file's name may be in any encoding: what is no UTF-8 is left out.
        for (const std::string& text : {whole, latest.sentence}) {
            if (!copy) {
                copy = CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()), static_cast<CFIndex>(text.size()),
                                               kCFStringEncodingUTF8, FALSE);
            }
        }
    });
    return copy;
}

void ForgetRefusal() noexcept {
    WithLatest([](Refusal& latest) { latest.isFresh = false; });
}

void Refuse(std::initializer_list<std::string_view> what, std::string_view right) noexcept {
    WithLatest([&](Refusal& latest) {
        latest.file.clear();
        latest.sentence.clear();
        latest.isFresh = true;
        std::string sentence;
        for (const std::string_view piece : what) sentence += piece;
        sentence += "; ";
        sentence += right;
        latest.sentence = std::move(sentence);
    });
}

void NameRefusedFile(const std::string& path) noexcept {
    WithLatest([&](Refusal& latest) {
        if (!latest.isFresh || !latest.file.empty()) return;
        latest.file = path;
        for (char& character : latest.file) {
            if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F) character = '?';  // one line, whatever the name
        }
    });
}

void NameRefusedFile(const FSRef* file) noexcept try {
    const Owned<CFURLRef> url(CFURLCreateFromFSRef(kCFAllocatorDefault, file));
    UInt8 path[PATH_MAX];
    if (url && CFURLGetFileSystemRepresentation(url.Get(), TRUE, path, sizeof path)) NameRefusedFile(std::string(reinterpret_cast<char*>(path)));
} catch (...) {
}

void NameRefusedFile(AliasHandle alias) noexcept {
    FSRef file;
    Boolean wasChanged = FALSE;
    if (alias && FSResolveAliasWithMountFlags(nullptr, alias, &file, &wasChanged, kResolveAliasFileNoUI) == 0) NameRefusedFile(&file);
}

void RefuseForStatus(OSErr status) noexcept {
    bool isFresh = false;
    WithLatest([&](const Refusal& latest) { isFresh = latest.isFresh; });
    if (isFresh || status == 0) return;
    switch (status) {
        case kStatusNoMemory:
            return Refuse({"there is no memory for it"}, "more memory is needed");
        case kStatusFileNotFound:
            return Refuse({"the file is not there"}, "the file of a profile is needed");
        case kStatusNotAFile:
            return Refuse({"this is a folder or no plain file"}, "the file of a profile is needed");
        default:
            return Refuse({"the file cannot be read (status ", std::to_string(status), ")"}, "a file that may be read is needed");
    }
}

std::string CodeText(uint32_t code) {
    std::string text = "'";
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto character = static_cast<char>(code >> shift & 0xFF);
        text += character >= 0x20 && character < 0x7F ? character : '?';
    }
    return text + "'";
}
