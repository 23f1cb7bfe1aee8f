#include "images/Refusal.h"

#include <string>

#include "images/Texts.h"

std::optional<Complaint> RefusalOf(const std::string& path, const FSRef& file) {
    const Owned<CFURLRef> url(CFURLCreateFromFSRef(kCFAllocatorDefault, &file));
    const Owned<CFStringRef> last(ICC_CopyLastRefusal());
    const std::string named = PathOf(url.Get()), start = OneLine(named) + ": ", sentence = TextOf(last.Get());
    const std::size_t end = sentence.rfind("; ");
    if (named.empty() || !sentence.starts_with(start) || end == std::string::npos || end < start.size()) return std::nullopt;
    return Complaint{path, sentence.substr(start.size(), end - start.size()), sentence.substr(end + 2)};
}

std::optional<Complaint> RefusalOf(const ChosenProfile& profile) {
    FSRef file;
    if (GetAliasTarget(profile.alias.get(), &file) != 0) return std::nullopt;
    return RefusalOf(profile.path, file);
}
