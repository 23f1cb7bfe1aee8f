#include "platform/linux/Preferences/PropertyListBounds.h"

#include <cstdint>
#include <vector>

namespace platform {

namespace {

// Settings are three levels deep.
constexpr std::uint64_t kMostExpandedBytes = 32 << 20;
constexpr int kMostLevels = 64;
constexpr std::uint64_t kMostLists = 1000;

/// About what the parsed form of a value takes beside its text or data.
constexpr std::uint64_t kNodeBytes = 200;

constexpr const char* kBroken = "its binary structure is broken";

/// What each object of a binary property list takes once it is expanded, where every reference to it is another copy.
class BinaryList {
public:
    explicit BinaryList(std::string_view bytes) : bytes_(bytes) {}

    std::optional<std::string> Excess() {
        if (!ReadTrailer()) return kBroken;
        expanded_.resize(offsets_.size());
        if (const std::uint64_t size = Expanded(top_, 0); !fault_ && size > kMostExpandedBytes) fault_ = "it expands to more than 32 MiB";
        return fault_ ? std::optional<std::string>(fault_) : std::nullopt;
    }

private:
    static constexpr std::size_t kTrailerSize = 32;

    /// Big-endian; false when it does not lie within the list.
    bool Read(std::uint64_t offset, std::uint64_t size, std::uint64_t* number) const {
        if (size > 8 || offset > bytes_.size() || size > bytes_.size() - offset) return false;
        *number = 0;
        for (std::uint64_t i = 0; i < size; ++i) *number = *number << 8 | static_cast<unsigned char>(bytes_[offset + i]);
        return true;
    }

    bool ReadTrailer() {
        if (bytes_.size() < kTrailerSize + 8) return false;
        const std::uint64_t trailer = bytes_.size() - kTrailerSize;
        std::uint64_t offsetSize, count, table;
        if (!Read(trailer + 6, 1, &offsetSize) || !Read(trailer + 7, 1, &referenceSize_) || !Read(trailer + 8, 8, &count) ||
            !Read(trailer + 16, 8, &top_) || !Read(trailer + 24, 8, &table)) {
            return false;
        }
        if (offsetSize == 0 || referenceSize_ == 0 || count > bytes_.size() || top_ >= count) return false;
        offsets_.resize(count);
        for (std::uint64_t i = 0; i < count; ++i) {
            if (!Read(table + i * offsetSize, offsetSize, &offsets_[i])) return false;
        }
        return true;
    }

    std::uint64_t Fail(const char* fault) {
        fault_ = fault;
        return 0;
    }

    /// 0 once a fault was found.
    std::uint64_t Expanded(std::uint64_t object, int level) {
        if (object >= offsets_.size()) return Fail(kBroken);
        if (level > kMostLevels) return Fail("its lists lie more than 64 levels deep, or in themselves");
        if (expanded_[object] > 0) return expanded_[object];
        std::uint64_t marker, count, at = offsets_[object];
        if (!Read(at++, 1, &marker)) return Fail(kBroken);
        count = marker & 0xF;
        const std::uint64_t kind = marker >> 4;
        if (kind >= 4 && kind != 8 && count == 0xF) {
            std::uint64_t size;
            if (!Read(at, 1, &size) || size >> 4 != 1 || !Read(at + 1, std::uint64_t{1} << (size & 0xF), &count)) return Fail(kBroken);
            at += 1 + (std::uint64_t{1} << (size & 0xF));
        }
        std::uint64_t total = kNodeBytes;
        if (kind >= 0xA) {
            const std::uint64_t references = kind == 0xD ? 2 * count : count;
            if (count > bytes_.size()) return Fail(kBroken);
            for (std::uint64_t i = 0; i < references && total <= kMostExpandedBytes; ++i) {
                std::uint64_t item;
                if (!Read(at + i * referenceSize_, referenceSize_, &item)) return Fail(kBroken);
                total += Expanded(item, level + 1);
                if (fault_) return 0;
            }
        } else if (kind >= 4 && kind <= 7) {
            // A text of two-byte characters takes up to three bytes for each.
            if (count > bytes_.size()) return Fail(kBroken);
            total += 3 * count;
        }
        return expanded_[object] = total;
    }

    std::string_view bytes_;
    std::uint64_t referenceSize_ = 0;
    std::uint64_t top_ = 0;
    std::vector<std::uint64_t> offsets_;
    std::vector<std::uint64_t> expanded_;  // 0: not known yet
    const char* fault_ = nullptr;
};

std::uint64_t CountOf(std::string_view text, std::string_view part) {
    std::uint64_t count = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) ++count;
    return count;
}

}  // namespace

std::optional<std::string> ExcessOfPropertyList(std::string_view bytes) {
    if (bytes.size() > kMostPropertyListBytes) return "it is longer than 4 MiB";
    if (bytes.starts_with("bplist")) return BinaryList(bytes).Excess();
    // Closing tags are not counted: comments can hold any number of them.
    if (CountOf(bytes, "<array") + CountOf(bytes, "<dict") > kMostLists) return "it holds more than 1,000 lists";
    return std::nullopt;
}

}  // namespace platform
