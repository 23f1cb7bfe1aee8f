#include "platform/linux/Carbon/CarbonResourceFork.h"

#include <algorithm>

namespace platform {

namespace {

constexpr std::size_t kTypeListOffset = 28;
constexpr std::size_t kTypeSize = 8;
constexpr std::size_t kReferenceSize = 12;
constexpr std::size_t kDataStart = 256;  // the space before it was once the system's and the application's
constexpr std::size_t kLargestOffset = 0xFFFF;
constexpr std::size_t kLargestDataOffset = 0xFFFFFF;
constexpr std::uint32_t kNoName = 0xFFFF;

std::uint32_t Number(const std::uint8_t* bytes, int count) {
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 8 | bytes[i];
    return value;
}

void Append(std::string& bytes, std::size_t value, int count) {
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFF);
}

/// Reads that stay within the map; a read outside makes the whole map damaged.
class MapReader {
public:
    MapReader(const std::uint8_t* bytes, std::size_t length) : bytes_(bytes), length_(length) {}

    bool Holds(std::size_t offset, std::size_t size) const { return offset <= length_ && size <= length_ - offset; }
    std::uint32_t At(std::size_t offset, int count) {
        if (Holds(offset, static_cast<std::size_t>(count))) return Number(bytes_ + offset, count);
        damaged_ = true;
        return 0;
    }
    std::string Text(std::size_t offset) {
        const std::size_t size = At(offset, 1);
        if (damaged_ || !Holds(offset + 1, size)) {
            damaged_ = true;
            return {};
        }
        return {reinterpret_cast<const char*>(bytes_ + offset + 1), size};
    }
    bool IsDamaged() const { return damaged_; }

private:
    const std::uint8_t* bytes_;
    std::size_t length_;
    bool damaged_ = false;
};

/// One less than the number is stored; 0xFFFF stands for none.
std::size_t CountAt(MapReader& map, std::size_t offset) {
    return (map.At(offset, 2) + 1) & 0xFFFF;
}

}  // namespace

std::optional<ForkHeader> ParseForkHeader(const std::uint8_t bytes[kForkHeaderSize], std::uint64_t forkSize) {
    const ForkHeader header = {Number(bytes, 4), Number(bytes + 4, 4), Number(bytes + 8, 4), Number(bytes + 12, 4)};
    const auto fits = [forkSize](std::uint64_t offset, std::uint64_t length) { return offset + length <= forkSize; };
    if (!fits(header.dataOffset, header.dataLength) || !fits(header.mapOffset, header.mapLength)) return std::nullopt;
    return header;
}

std::optional<std::vector<ForkResource>> ParseForkMap(const std::uint8_t* bytes, std::size_t length, std::uint32_t dataLength) {
    MapReader map(bytes, length);
    std::vector<ForkResource> resources;
    const std::size_t types = map.At(24, 2);
    const std::size_t names = map.At(26, 2);
    const std::size_t typeCount = CountAt(map, types);
    for (std::size_t i = 0; i < typeCount && !map.IsDamaged(); ++i) {
        const std::size_t type = types + 2 + i * kTypeSize;
        const std::size_t count = CountAt(map, type + 4);
        const std::size_t list = types + map.At(type + 6, 2);
        // Lists apart from each other can hold no more than this, so that a small map never grows large here.
        if (resources.size() + count > length / kReferenceSize) return std::nullopt;
        for (std::size_t k = 0; k < count && !map.IsDamaged(); ++k) {
            const std::size_t reference = list + k * kReferenceSize;
            ForkResource resource;
            resource.type = map.At(type, 4);
            resource.id = static_cast<std::int16_t>(map.At(reference, 2));
            const std::uint32_t name = map.At(reference + 2, 2);
            if (name != kNoName) resource.name = map.Text(names + name);
            resource.attributes = static_cast<std::uint8_t>(map.At(reference + 4, 1));
            resource.offset = map.At(reference + 5, 3);
            if (resource.offset >= dataLength) return std::nullopt;
            resources.push_back(std::move(resource));
        }
    }
    if (map.IsDamaged()) return std::nullopt;
    return resources;
}

std::optional<std::string> BuildFork(const std::vector<ForkResource>& resources) {
    std::vector<std::uint32_t> types;
    for (const ForkResource& resource : resources) {
        if (std::find(types.begin(), types.end(), resource.type) == types.end()) types.push_back(resource.type);
    }
    const std::size_t typeListSize = 2 + types.size() * kTypeSize;
    std::string data, typeList, references, names;
    Append(typeList, types.size() - 1, 2);
    for (const std::uint32_t type : types) {
        const auto count =
            static_cast<std::size_t>(std::count_if(resources.begin(), resources.end(), [type](const auto& r) { return r.type == type; }));
        Append(typeList, type, 4);
        Append(typeList, count - 1, 2);
        Append(typeList, typeListSize + references.size(), 2);
        if (typeListSize + references.size() > kLargestOffset) return std::nullopt;
        for (const ForkResource& resource : resources) {
            if (resource.type != type) continue;
            if (data.size() > kLargestDataOffset || names.size() >= kNoName || resource.name.size() > 255) return std::nullopt;
            Append(references, static_cast<std::uint16_t>(resource.id), 2);
            Append(references, resource.name.empty() ? kNoName : names.size(), 2);
            Append(references, resource.attributes, 1);
            Append(references, data.size(), 3);
            Append(references, 0, 4);
            Append(data, resource.data.size(), 4);
            data += resource.data;
            if (resource.name.empty()) continue;
            Append(names, resource.name.size(), 1);
            names += resource.name;
        }
    }
    const std::size_t nameListOffset = kTypeListOffset + typeListSize + references.size();
    const std::size_t mapLength = nameListOffset + names.size();
    if (nameListOffset > kLargestOffset || kDataStart + data.size() > kLargestDataOffset) return std::nullopt;

    std::string header;
    Append(header, kDataStart, 4);
    Append(header, kDataStart + data.size(), 4);
    Append(header, data.size(), 4);
    Append(header, mapLength, 4);
    std::string fork = header;
    fork.resize(kDataStart);
    fork += data;
    fork += header;
    Append(fork, 0, 4);
    Append(fork, 0, 4);
    Append(fork, kTypeListOffset, 2);
    Append(fork, nameListOffset, 2);
    return fork + typeList + references + names;
}

}  // namespace platform
