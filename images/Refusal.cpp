#include "images/Refusal.h"

#include <climits>
#include <string>
#include <vector>

namespace {

std::string LastRefusal() {
    const Owned<CFStringRef> sentence(ICC_CopyLastRefusal());
    if (!sentence) return {};
    std::vector<char> text(static_cast<std::size_t>(CFStringGetMaximumSizeForEncoding(CFStringGetLength(sentence.Get()), kCFStringEncodingUTF8)) + 1);
    const bool isWhole = CFStringGetCString(sentence.Get(), text.data(), static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8);
    return isWhole ? text.data() : "";
}

}  // namespace

std::optional<Complaint> RefusalOf(const std::string& path, const FSRef& file) {
    const Owned<CFURLRef> url(CFURLCreateFromFSRef(kCFAllocatorDefault, &file));
    UInt8 named[PATH_MAX];
    if (!url || !CFURLGetFileSystemRepresentation(url.Get(), TRUE, named, sizeof named)) return std::nullopt;
    const std::string start = OneLine(reinterpret_cast<char*>(named)) + ": ";
    const std::string sentence = LastRefusal();
    const std::size_t end = sentence.rfind("; ");
    if (!sentence.starts_with(start) || end == std::string::npos || end < start.size()) return std::nullopt;
    return Complaint{path, sentence.substr(start.size(), end - start.size()), sentence.substr(end + 2)};
}

std::optional<Complaint> RefusalOf(const ChosenProfile& profile) {
    FSRef file;
    if (GetAliasTarget(profile.alias.get(), &file) != 0) return std::nullopt;
    return RefusalOf(profile.path, file);
}
