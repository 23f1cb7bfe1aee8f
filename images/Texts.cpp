#include "images/Texts.h"

#include <algorithm>
#include <climits>
#include <vector>

std::string TextOf(CFStringRef string) {
    if (!string) return {};
    std::vector<char> text(static_cast<std::size_t>(CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8)) + 1);
    if (!CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8)) return {};
    return text.data();
}

std::string PathOf(CFURLRef url) {
    UInt8 path[PATH_MAX];
    return url && CFURLGetFileSystemRepresentation(url, true, path, sizeof path) ? reinterpret_cast<const char*>(path) : "";
}

std::string SmallLetters(std::string text) {
    std::ranges::transform(text, text.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

std::string CapitalLetters(std::string text) {
    std::ranges::transform(text, text.begin(), [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return text;
}
