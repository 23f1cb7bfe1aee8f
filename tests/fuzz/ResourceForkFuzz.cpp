// Any bytes as a resource fork: the check, the parser behind resource files, and the ramps of a document.

#include <cstdlib>
#include <vector>

#include "calibration/GammaTableLayout.h"
#include "calibration/ResourceForkCheck.h"
#include "platform/linux/Carbon/CarbonResourceFork.h"

namespace {

void Expect(bool condition) {
    if (!condition) std::abort();
}

void ReadRamp(const std::vector<std::uint8_t>& bytes) {
    if (!IsWholeGammaTable(bytes.data(), bytes.size())) return;
    const GammaTableHeader header = ReadGammaTableHeader(bytes.data());
    const int channels = header.channelCount < 4 ? header.channelCount : 4;
    for (int c = 0; c < channels; ++c) {
        for (int i = 0; i < header.entryCount; ++i) ReadGammaEntry(bytes.data(), c, i);
    }
}

/// A copy of just the map, so that every read past its end is seen.
std::vector<std::uint8_t> Part(const std::uint8_t* data, std::uint64_t offset, std::uint64_t length) {
    return {data + offset, data + offset + length};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ReadRamp({data, data + size});
    if (size < kResourceForkHeaderSize) return 0;
    const ResourceForkHeader checked = ReadResourceForkHeader(data);
    bool sane = IsSaneResourceForkHeader(checked, size);
    if (sane) sane = IsSaneResourceMap(checked, Part(data, checked.mapOffset, checked.mapLength).data());
    const auto header = platform::ParseForkHeader(data, size);
    Expect(header || !sane);
    if (!header) return 0;
    const std::vector<std::uint8_t> map = Part(data, header->mapOffset, header->mapLength);
    const auto resources = platform::ParseForkMap(map.data(), map.size(), header->dataLength);
    if (!resources) return 0;
    // What was read can be written, and is sane then, unless the old lists used room that the new ones do not have.
    const auto fork = platform::BuildFork(*resources);
    if (!fork) return 0;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(fork->data());
    const ResourceForkHeader built = ReadResourceForkHeader(bytes);
    Expect(IsSaneResourceForkHeader(built, fork->size()));
    Expect(IsSaneResourceMap(built, Part(bytes, built.mapOffset, built.mapLength).data()));
    return 0;
}
