#include "calibration/ResourceForkCheck.h"

#include "platform/BigEndian.h"

namespace {

constexpr std::uint32_t kFixedMapSize = 28;  // up to the number of types
constexpr std::uint32_t kSmallestMap = 29;
constexpr std::uint32_t kTypeEntrySize = 8;
constexpr std::uint32_t kReferenceSize = 12;
constexpr std::uint16_t kNoName = 0xFFFF;

/// A count that is stored less one: 0xFFFF stands for none.
std::uint32_t ReadCount(const std::uint8_t* bytes) {
    return (ReadBigEndian16(bytes) + 1u) & 0xFFFF;
}

/// The map with every read checked against its length.
class Map {
public:
    Map(const ResourceForkHeader& header, const std::uint8_t* bytes) : header_(header), bytes_(bytes), length_(header.mapLength) {}

    bool IsSane() const {
        // The number of types takes two bytes, of which the smallest map has only one.
        if (!Holds(kFixedMapSize, 2) || ReadBigEndian16(bytes_ + 24) != kFixedMapSize) return false;
        const std::uint32_t names = ReadBigEndian16(bytes_ + 26);
        if (names % 2 != 0 || names < kFixedMapSize || names > length_) return false;
        const std::uint32_t typeCount = ReadCount(bytes_ + kFixedMapSize);
        const std::uint32_t typeListSize = 2 + kTypeEntrySize * typeCount;
        if (!Holds(kFixedMapSize, typeListSize)) return false;
        for (std::uint32_t i = 0; i < typeCount; ++i) {
            if (!IsSaneType(bytes_ + kFixedMapSize + 2 + std::size_t{kTypeEntrySize} * i, typeListSize, names)) return false;
        }
        return true;
    }

private:
    bool Holds(std::uint64_t offset, std::uint64_t size) const { return offset + size <= length_; }

    bool IsSaneType(const std::uint8_t* type, std::uint32_t typeListSize, std::uint32_t names) const {
        const std::uint32_t referenceCount = ReadCount(type + 4);
        const std::uint32_t listOffset = ReadBigEndian16(type + 6);
        const std::uint32_t list = kFixedMapSize + listOffset;
        if (listOffset % 2 != 0 || listOffset < typeListSize || list >= names) return false;
        for (std::uint32_t i = 0; i < referenceCount; ++i) {
            const std::uint32_t reference = list + kReferenceSize * i;
            if (!Holds(reference, kReferenceSize) || !IsSaneReference(bytes_ + reference, names)) return false;
        }
        return true;
    }

    bool IsSaneReference(const std::uint8_t* reference, std::uint32_t names) const {
        const std::uint32_t nameOffset = ReadBigEndian16(reference + 2);
        if (nameOffset != kNoName) {
            const std::uint32_t name = names + nameOffset;
            if (!Holds(name, 1) || !Holds(std::uint64_t{name} + 1, bytes_[name])) return false;
        }
        return (ReadBigEndian32(reference + 4) & 0xFFFFFF) < header_.dataLength;
    }

    const ResourceForkHeader& header_;
    const std::uint8_t* bytes_;
    std::uint32_t length_;
};

}  // namespace

ResourceForkHeader ReadResourceForkHeader(const std::uint8_t bytes[kResourceForkHeaderSize]) {
    return {ReadBigEndian32(bytes), ReadBigEndian32(bytes + 4), ReadBigEndian32(bytes + 8), ReadBigEndian32(bytes + 12)};
}

bool IsSaneResourceForkHeader(const ResourceForkHeader& header, std::uint64_t forkSize) {
    if ((header.dataOffset >> 24) != 0 || (header.mapOffset >> 24) != 0 || header.mapLength < kSmallestMap) return false;
    const std::uint64_t dataEnd = std::uint64_t{header.dataOffset} + header.dataLength;
    const std::uint64_t mapEnd = std::uint64_t{header.mapOffset} + header.mapLength;
    if (forkSize < dataEnd || forkSize < mapEnd) return false;
    return !(dataEnd > header.mapOffset && mapEnd > header.dataOffset);
}

bool IsSaneResourceMap(const ResourceForkHeader& header, const std::uint8_t* map) {
    return Map(header, map).IsSane();
}
