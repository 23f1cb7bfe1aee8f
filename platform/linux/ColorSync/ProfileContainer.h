#pragma once

/// The bytes of an ICC profile: header, tag table, tag data. Knows nothing of what tags mean.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace platform {

/// Copies are cheap: the bytes read are shared. One thread at a time while it is being changed.
class ProfileContainer {
public:
    static constexpr std::size_t kHeaderSize = 128;
    using Header = std::array<std::uint8_t, kHeaderSize>;

    /// Checks the whole structure: signature, sizes, tag table, and that every tag lies inside.
    ///
    /// Bytes past the size that the header states are left out; a tag without bytes counts as absent; of two tags with one signature the
    /// first counts.
    /// reason    out: what is wrong, one sentence, when nothing is returned
    static std::optional<ProfileContainer> Parse(std::span<const std::uint8_t> bytes, std::string* reason);

    /// The header with every multi-byte field in host byte order; the 64-bit attributes are two 32-bit words.
    Header HostHeader() const;
    /// Takes such a header over. Its size field makes no difference to ProfileBytes.
    void SetHostHeader(const Header& header);

    bool ContainsTag(std::uint32_t signature) const;
    /// The tag's bytes as stored; nothing when absent. Valid until the tag is changed.
    std::optional<std::span<const std::uint8_t>> Tag(std::uint32_t signature) const;
    /// Replaces a tag in its place, or adds one at the end.
    void SetTag(std::uint32_t signature, std::span<const std::uint8_t> bytes);
    void RemoveTag(std::uint32_t signature);

    /// The profile as a file: the bytes as read, or, once changed, laid out again with 4-byte aligned tags (equal bytes of one origin stored
    /// once) and no profile ID.
    /// returns   null when it would not fit the 32-bit size field
    std::shared_ptr<const std::vector<std::uint8_t>> ProfileBytes() const;

private:
    using Bytes = std::shared_ptr<const std::vector<std::uint8_t>>;
    struct TagEntry {
        std::uint32_t signature;
        Bytes owner;
        std::size_t offset;
        std::size_t size;
    };

    const TagEntry* Find(std::uint32_t signature) const;
    bool ReadTags(std::string* reason);

    Header header_ = {};  // as stored
    std::vector<TagEntry> tags_;
    Bytes asRead_;  // null once changed
};

}  // namespace platform
