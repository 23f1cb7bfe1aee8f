#include "platform/linux/CoreFoundation/CoreFoundationURL.h"

#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

#include "platform/linux/CoreFoundation/CoreFoundationString.h"

using platform::NullIfRaised;
using platform::Object;

namespace {

extern const platform::ObjectClass kURLClass;

}  // namespace

/// Always absolute: what was relative is resolved when the URL is made.
struct __CFURL : Object {
    __CFURL(std::string ownText, std::string ownPath, bool isFileURL, bool isDirectoryURL, CFStringRef ownString)
        : Object(kURLClass), text(std::move(ownText)), path(std::move(ownPath)), isFile(isFileURL), isDirectory(isDirectoryURL), string(ownString) {}
    ~__CFURL() { CFRelease(string); }

    /// Percent-encoded.
    std::string text;
    /// Decoded, without a trailing slash unless it is "/".
    std::string path;
    bool isFile;
    bool isDirectory;
    /// `text` once more, for those who borrow it.
    CFStringRef string;
};

namespace {

const __CFURL* AsURL(const Object* object) {
    return static_cast<const __CFURL*>(object);
}

constinit const platform::ObjectClass kURLClass{
    "CFURL",
    platform::Delete<__CFURL>,
    [](const Object* a, const Object* b) { return AsURL(a)->text == AsURL(b)->text; },
    [](const Object* object) -> CFHashCode { return std::hash<std::string>()(AsURL(object)->text); },
};

bool IsOneOf(char byte, const char* set) {
    return byte != 0 && std::strchr(set, byte);
}

/// Characters that a URL may hold without encoding, beside letters and digits.
constexpr char kPathMarks[] = "!$&'()*+,-./:=@_~";
constexpr char kOtherMarks[] = ";?#[]";

std::string Encoded(std::string_view path) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const char byte : path) {
        if (g_ascii_isalnum(byte) || IsOneOf(byte, kPathMarks)) {
            text += byte;
        } else {
            text += {'%', kDigits[static_cast<unsigned char>(byte) >> 4], kDigits[static_cast<unsigned char>(byte) & 15]};
        }
    }
    return text;
}

/// Whether every character may stand in a URL, and every % begins an encoded byte.
bool IsWellFormed(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            if (text.size() - i < 3 || !g_ascii_isxdigit(text[i + 1]) || !g_ascii_isxdigit(text[i + 2])) return false;
            i += 2;
        } else if (!g_ascii_isalnum(text[i]) && !IsOneOf(text[i], kPathMarks) && !IsOneOf(text[i], kOtherMarks)) {
            return false;
        }
    }
    return true;
}

/// For well-formed text.
std::string Decoded(std::string_view text) {
    std::string path;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            path += static_cast<char>(g_ascii_xdigit_value(text[i + 1]) << 4 | g_ascii_xdigit_value(text[i + 2]));
            i += 2;
        } else {
            path += text[i];
        }
    }
    return path;
}

void DropTrailingSlashes(std::string& path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
}

CFURLRef NewURL(std::string text, std::string path, bool isFile, bool isDirectory) {
    const CFStringRef string = platform::CreateStringFromUTF8(text);
    if (!string) return nullptr;
    __CFURL* url = platform::NewObject<__CFURL>(std::move(text), std::move(path), isFile, isDirectory, string);
    if (!url) CFRelease(string);
    return url;
}

/// From an absolute native path.
CFURLRef NewFileURL(std::string path, bool isDirectory) {
    if (path.find('\0') != std::string::npos) return nullptr;
    DropTrailingSlashes(path);
    isDirectory = isDirectory || path == "/";
    std::string text = "file://" + Encoded(path);
    if (isDirectory && path != "/") text += '/';
    return NewURL(std::move(text), std::move(path), true, isDirectory);
}

std::string CurrentFolder() {
    const std::unique_ptr<char, decltype(&std::free)> folder(get_current_dir_name(), &std::free);
    return folder ? folder.get() : "";
}

/// The folder that relative paths start from; empty when there is none.
std::string Folder(CFURLRef base) {
    if (!base) return CurrentFolder();
    if (!base->isFile) return {};
    return base->isDirectory ? base->path : base->path.substr(0, base->path.rfind('/') + 1);
}

std::string Joined(std::string folder, std::string_view name) {
    if (folder.empty() || folder.back() != '/') folder += '/';
    return folder.append(name);
}

CFURLRef NewFileURLRelativeTo(std::string_view path, bool isDirectory, CFURLRef base) {
    if (path.empty()) return nullptr;
    if (path.front() == '/') return NewFileURL(std::string(path), isDirectory);
    std::string folder = Folder(base);
    return folder.empty() ? nullptr : NewFileURL(Joined(std::move(folder), path), isDirectory);
}

/// Where the scheme ends, at its colon; npos for relative text.
size_t SchemeLength(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && (g_ascii_isalpha(text[i]) || (i > 0 && (g_ascii_isdigit(text[i]) || IsOneOf(text[i], "+-."))))) ++i;
    return i > 0 && i < text.size() && text[i] == ':' ? i : std::string_view::npos;
}

/// From well-formed text.
CFURLRef NewURLFromText(std::string text) {
    const size_t scheme = SchemeLength(text);
    std::string_view rest(text);
    if (scheme != std::string_view::npos) rest.remove_prefix(scheme + 1);
    rest = rest.substr(0, rest.find_first_of("?#"));
    std::string_view host;
    if (rest.starts_with("//")) {
        host = rest.substr(2, rest.find('/', 2) - 2);
        rest.remove_prefix(2 + host.size());
    }
    const bool isDirectory = rest.ends_with('/');
    std::string path = Decoded(rest);
    DropTrailingSlashes(path);
    // A file on another machine, or a name that no file can have, is no file here.
    const bool isFile = scheme == 4 && g_ascii_strncasecmp(text.c_str(), "file", 4) == 0 && path.starts_with('/') &&
                        (host.empty() || host == "localhost") && path.find('\0') == std::string::npos;
    return NewURL(std::move(text), std::move(path), isFile, isDirectory);
}

std::string_view LastComponent(std::string_view path) {
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

}  // namespace

std::string_view platform::NativePath(CFURLRef url) {
    return url && url->isFile ? std::string_view(url->path) : std::string_view();
}

CFTypeID CFURLGetTypeID() {
    return platform::TypeID(kURLClass);
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style, Boolean isDirectory) {
    return CFURLCreateWithFileSystemPathRelativeToBase(allocator, path, style, isDirectory, nullptr);
}

CFURLRef CFURLCreateWithFileSystemPathRelativeToBase(CFAllocatorRef, CFStringRef path, CFURLPathStyle style, Boolean isDirectory, CFURLRef base) {
    if (style != kCFURLPOSIXPathStyle) return nullptr;
    return NullIfRaised([&]() -> CFURLRef {
        const std::optional<std::string> bytes = platform::UTF8FromString(path);
        return bytes ? NewFileURLRelativeTo(*bytes, isDirectory, base) : nullptr;
    });
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* path, CFIndex length, Boolean isDirectory) {
    if (length <= 0) return nullptr;
    return NullIfRaised([&] {
        return NewFileURLRelativeTo({reinterpret_cast<const char*>(path), static_cast<size_t>(length)}, isDirectory, nullptr);
    });
}

CFURLRef CFURLCreateWithString(CFAllocatorRef, CFStringRef text, CFURLRef base) {
    return NullIfRaised([&]() -> CFURLRef {
        std::optional<std::string> bytes = platform::UTF8FromString(text);
        if (!bytes || bytes->empty() || !IsWellFormed(*bytes)) return nullptr;
        if (base && SchemeLength(*bytes) == std::string_view::npos) {
            const std::unique_ptr<char, decltype(&g_free)> resolved(
                g_uri_resolve_relative(base->text.c_str(), bytes->c_str(), G_URI_FLAGS_ENCODED, nullptr), &g_free);
            if (!resolved) return nullptr;
            bytes = resolved.get();
        }
        return NewURLFromText(std::move(*bytes));
    });
}

CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef, CFURLRef url, CFStringRef component, Boolean isDirectory) {
    return NullIfRaised([&]() -> CFURLRef {
        const std::optional<std::string> name = platform::UTF8FromString(component);
        if (!name) return nullptr;
        if (url->isFile) return NewFileURL(Joined(url->path, *name), isDirectory);
        const size_t end = std::min(url->text.find_first_of("?#"), url->text.size());
        std::string text = Joined(url->text.substr(0, end), Encoded(*name));
        if (isDirectory) text += '/';
        return NewURLFromText(text + url->text.substr(end));
    });
}

CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef, CFURLRef url) {
    if (!url->isFile) return nullptr;
    return NullIfRaised([&] { return NewFileURL(url->path.substr(0, std::max<size_t>(url->path.rfind('/'), 1)), true); });
}

CFStringRef CFURLGetString(CFURLRef url) {
    return url->string;
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style) {
    return url->isFile && style == kCFURLPOSIXPathStyle ? platform::CreateStringFromUTF8(url->path) : nullptr;
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url) {
    return platform::CreateStringFromUTF8(LastComponent(url->path));
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean, UInt8* buffer, CFIndex bufferSize) {
    if (!url->isFile || bufferSize <= 0 || url->path.size() >= static_cast<size_t>(bufferSize)) return false;
    std::memcpy(buffer, url->path.c_str(), url->path.size() + 1);
    return true;
}
