#pragma once

/// Whether a resource fork is sane, said as plainly as possible: every rule on its own, every read checked by the container.

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace reference {

class ResourceFork {
public:
    explicit ResourceFork(const std::vector<std::uint8_t>& bytes) : bytes_(bytes) {}

    bool IsSane() const {
        if (bytes_.size() < 16) return false;
        try {
            return HeaderIsSane() && MapIsSane();
        } catch (const std::out_of_range&) {
            return false;
        }
    }

private:
    std::uint64_t Number(std::uint64_t offset, int width) const {
        std::uint64_t value = 0;
        for (int i = 0; i < width; ++i) value = value * 256 + bytes_.at(offset + static_cast<std::uint64_t>(i));
        return value;
    }
    /// A number in the map, which ends where its length says.
    std::uint64_t InMap(std::uint64_t offset, int width) const {
        if (offset + static_cast<std::uint64_t>(width) > Number(12, 4)) throw std::out_of_range("map");
        return Number(Number(4, 4) + offset, width);
    }

    bool HeaderIsSane() const {
        const std::uint64_t data = Number(0, 4), map = Number(4, 4), dataLength = Number(8, 4), mapLength = Number(12, 4);
        if (data > 0xFFFFFF) return false;
        if (map > 0xFFFFFF) return false;
        if (mapLength < 29) return false;
        if (bytes_.size() < data + dataLength) return false;
        if (bytes_.size() < map + mapLength) return false;
        const bool dataReachesIntoMap = data + dataLength > map, mapReachesIntoData = map + mapLength > data;
        return !(dataReachesIntoMap && mapReachesIntoData);
    }

    bool MapIsSane() const {
        const std::uint64_t mapLength = Number(12, 4), names = InMap(26, 2), types = (InMap(28, 2) + 1) % 65536;
        if (InMap(24, 2) != 28) return false;
        if (names % 2 == 1 || names < 28 || names > mapLength) return false;
        if (28 + 2 + 8 * types > mapLength) return false;
        for (std::uint64_t t = 0; t < types; ++t) {
            const std::uint64_t entry = 30 + 8 * t, references = (InMap(entry + 4, 2) + 1) % 65536, list = InMap(entry + 6, 2);
            if (list % 2 == 1 || list < 2 + 8 * types || 28 + list >= names) return false;
            for (std::uint64_t r = 0; r < references; ++r) {
                const std::uint64_t reference = 28 + list + 12 * r, name = InMap(reference + 2, 2);
                InMap(reference, 8);
                InMap(reference + 8, 4);
                if (name != 65535 && names + name + 1 + InMap(names + name, 1) > mapLength) return false;
                if (InMap(reference + 5, 3) >= Number(8, 4)) return false;
            }
        }
        return true;
    }

    const std::vector<std::uint8_t>& bytes_;
};

}  // namespace reference
