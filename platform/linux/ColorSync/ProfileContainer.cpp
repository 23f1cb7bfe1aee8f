#include "platform/linux/ColorSync/ProfileContainer.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <utility>

#include "platform/BigEndian.h"
#include "platform/FourCharCode.h"

namespace platform {

namespace {

constexpr std::size_t kTableEntrySize = 12;
constexpr std::size_t kMostTags = 100;  // as many as the engine behind the transforms takes
constexpr std::size_t kTagTableStart = ProfileContainer::kHeaderSize + 4;
constexpr std::size_t kSizeField = 0;
constexpr std::size_t kSignatureField = 36;
constexpr std::size_t kProfileID = 84;
constexpr std::size_t kProfileIDSize = 16;

struct Field {
    std::size_t offset, size;
};

// Every multi-byte field; the profile ID and the reserved bytes after it are plain bytes.
constexpr Field kFields[] = {{0, 4},  {4, 4},  {8, 4},  {12, 4}, {16, 4}, {20, 4}, {24, 2}, {26, 2}, {28, 2}, {30, 2}, {32, 2}, {34, 2},
                             {36, 4}, {40, 4}, {44, 4}, {48, 4}, {52, 4}, {56, 4}, {60, 4}, {64, 4}, {68, 4}, {72, 4}, {76, 4}, {80, 4}};

ProfileContainer::Header SwapToOrFromHost(ProfileContainer::Header header) {
    if constexpr (std::endian::native == std::endian::little) {
        for (const Field& field : kFields) std::reverse(header.begin() + field.offset, header.begin() + field.offset + field.size);
    }
    return header;
}

/// "Tag 3, 'gTRC',": by its place in the table too, as any signature may stand there.
std::string NameOf(std::uint32_t signature, std::size_t place) {
    std::string name = "Tag " + std::to_string(place) + ", '";
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto character = static_cast<char>(signature >> shift & 0xFF);
        name += character >= 0x20 && character < 0x7F ? character : '?';
    }
    return name + "',";
}

std::size_t Aligned(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

}  // namespace

std::optional<ProfileContainer> ProfileContainer::Parse(std::span<const std::uint8_t> bytes, std::string* reason) {
    if (bytes.size() < kTagTableStart) {
        *reason = "The data is " + std::to_string(bytes.size()) + " bytes long; a profile has at least " + std::to_string(kTagTableStart) + ".";
        return std::nullopt;
    }
    if (ReadBigEndian32(bytes.data() + kSignatureField) != FourChar("acsp")) {
        *reason = "The data does not have the signature of a profile.";
        return std::nullopt;
    }
    const std::size_t size = ReadBigEndian32(bytes.data() + kSizeField);
    if (size < kTagTableStart || size > bytes.size()) {
        *reason = "The profile says that it is " + std::to_string(size) + " bytes long, but there are " + std::to_string(bytes.size()) + ".";
        return std::nullopt;
    }
    ProfileContainer profile;
    profile.asRead_ = std::make_shared<const std::vector<std::uint8_t>>(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    std::copy_n(bytes.begin(), kHeaderSize, profile.header_.begin());
    if (!profile.ReadTags(reason)) return std::nullopt;
    return profile;
}

bool ProfileContainer::ReadTags(std::string* reason) {
    const Bytes file = asRead_;
    const std::size_t size = file->size();
    const std::size_t count = ReadBigEndian32(file->data() + kHeaderSize);
    if (count > std::min(kMostTags, (size - kTagTableStart) / kTableEntrySize)) {
        *reason = "A table of " + std::to_string(count) + " tags is too long for the profile.";
        return false;
    }
    const std::size_t dataStart = kTagTableStart + count * kTableEntrySize;
    std::size_t claimed = 0;
    tags_.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t* entry = file->data() + kTagTableStart + i * kTableEntrySize;
        const TagEntry tag = {ReadBigEndian32(entry), file, ReadBigEndian32(entry + 4), ReadBigEndian32(entry + 8)};
        if (tag.size == 0) continue;
        if (tag.offset < dataStart || tag.offset > size || tag.size > size - tag.offset) {
            *reason = NameOf(tag.signature, i) + " lies outside the profile.";
            return false;
        }
        if (Find(tag.signature)) {
            asRead_ = nullptr;  // what others read must not have two
            continue;
        }
        const bool shared =
            std::any_of(tags_.begin(), tags_.end(), [&](const TagEntry& other) { return other.offset == tag.offset && other.size == tag.size; });
        // Many long tags over the same bytes would take memory without end when they are written apart.
        if (!shared && (claimed += tag.size) > 2 * size) {
            *reason = NameOf(tag.signature, i) + " overlaps with others.";
            return false;
        }
        tags_.push_back(tag);
    }
    return true;
}

ProfileContainer::Header ProfileContainer::HostHeader() const {
    return SwapToOrFromHost(header_);
}

void ProfileContainer::SetHostHeader(const Header& header) {
    header_ = SwapToOrFromHost(header);
    asRead_ = nullptr;
}

const ProfileContainer::TagEntry* ProfileContainer::Find(std::uint32_t signature) const {
    const auto found = std::find_if(tags_.begin(), tags_.end(), [&](const TagEntry& tag) { return tag.signature == signature; });
    return found == tags_.end() ? nullptr : &*found;
}

bool ProfileContainer::ContainsTag(std::uint32_t signature) const {
    return Find(signature) != nullptr;
}

std::optional<std::span<const std::uint8_t>> ProfileContainer::Tag(std::uint32_t signature) const {
    const TagEntry* tag = Find(signature);
    if (!tag) return std::nullopt;
    return std::span(tag->owner->data() + tag->offset, tag->size);
}

void ProfileContainer::SetTag(std::uint32_t signature, std::span<const std::uint8_t> bytes) {
    TagEntry tag = {signature, std::make_shared<const std::vector<std::uint8_t>>(bytes.begin(), bytes.end()), 0, bytes.size()};
    const auto found = std::find_if(tags_.begin(), tags_.end(), [&](const TagEntry& other) { return other.signature == signature; });
    if (found == tags_.end()) {
        tags_.push_back(std::move(tag));
    } else {
        *found = std::move(tag);
    }
    asRead_ = nullptr;
}

void ProfileContainer::RemoveTag(std::uint32_t signature) {
    if (std::erase_if(tags_, [&](const TagEntry& tag) { return tag.signature == signature; }) > 0) asRead_ = nullptr;
}

std::shared_ptr<const std::vector<std::uint8_t>> ProfileContainer::ProfileBytes() const {
    if (asRead_) return asRead_;

    const std::size_t dataStart = kTagTableStart + tags_.size() * kTableEntrySize;
    std::size_t size = dataStart;
    std::vector<std::size_t> offsets;
    offsets.reserve(tags_.size());
    for (const TagEntry& tag : tags_) {
        const auto same = std::find_if(tags_.begin(), tags_.begin() + static_cast<std::ptrdiff_t>(offsets.size()), [&](const TagEntry& earlier) {
            return earlier.owner == tag.owner && earlier.offset == tag.offset && earlier.size == tag.size;
        });
        const auto index = static_cast<std::size_t>(same - tags_.begin());
        if (index < offsets.size()) {
            offsets.push_back(offsets[index]);
        } else {
            offsets.push_back(size);
            size = Aligned(size + tag.size);
        }
        if (size > std::numeric_limits<std::uint32_t>::max()) return nullptr;
    }

    auto file = std::make_shared<std::vector<std::uint8_t>>(size);
    std::copy(header_.begin(), header_.end(), file->begin());
    WriteBigEndian32(static_cast<std::uint32_t>(size), file->data() + kSizeField);
    std::fill_n(file->data() + kProfileID, kProfileIDSize, std::uint8_t{0});
    WriteBigEndian32(static_cast<std::uint32_t>(tags_.size()), file->data() + kHeaderSize);
    for (std::size_t i = 0; i < tags_.size(); ++i) {
        std::uint8_t* entry = file->data() + kTagTableStart + i * kTableEntrySize;
        WriteBigEndian32(static_cast<std::uint32_t>(tags_[i].signature), entry);
        WriteBigEndian32(static_cast<std::uint32_t>(offsets[i]), entry + 4);
        WriteBigEndian32(static_cast<std::uint32_t>(tags_[i].size), entry + 8);
        std::copy_n(tags_[i].owner->data() + tags_[i].offset, tags_[i].size, file->data() + offsets[i]);
    }
    return file;
}

}  // namespace platform
