#include "calibration/GammaTable.h"

#include <cstring>

#include "calibration/GammaTableLayout.h"

namespace {

const std::uint8_t* Bytes(const MC_OpaqueGammaTable* table) {
    return reinterpret_cast<const std::uint8_t*>(table);
}

std::uint8_t* Bytes(MC_OpaqueGammaTable* table) {
    return reinterpret_cast<std::uint8_t*>(table);
}

std::size_t SizeOf(const MC_OpaqueGammaTable* table) {
    return GammaTableSize(ReadGammaTableHeader(Bytes(table)));
}

/// Blocks come from the memory manager, so that one disposal serves ramps made here and those read from handles.
MC_OpaqueGammaTable* NewBlock(std::size_t size) {
    return reinterpret_cast<MC_OpaqueGammaTable*>(NewPtr(static_cast<Size>(size)));
}

/// Up to 1.0 the integer part of value * 65535 + 0.5, past it the integer part of value * 65535; low 16 bits.
std::uint16_t ScaleTo16(double value) {
    // Deliberate: nothing is clamped, and past 1.0 nothing is rounded either, so 1.0001 (65541) wraps to 5.
    const double scaled = value * 65535.0 + (value > 1.0 ? 0.0 : 0.5);
    if (!(scaled > -2147483649.0 && scaled < 2147483648.0)) return 0;
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(scaled));
}

}  // namespace

MC_OpaqueGammaTable* MC_CreateGammaTable(int16_t channels, int16_t entries, int16_t width) {
    const GammaTableHeader header = {0, 0, 0, channels, entries, width};
    const std::size_t size = GammaTableSize(header);
    MC_OpaqueGammaTable* const table = size == 0 ? nullptr : NewBlock(size);
    if (!table) return nullptr;
    std::memset(Bytes(table), 0, size);
    WriteGammaTableHeader(header, Bytes(table));
    return table;
}

void MC_DisposeGammaTable(MC_OpaqueGammaTable* table) {
    if (table) DisposePtr(reinterpret_cast<Ptr>(table));
}

MC_OpaqueGammaTable* MC_CopyGammaTable(const MC_OpaqueGammaTable* table) {
    const std::size_t size = SizeOf(table);
    MC_OpaqueGammaTable* const copy = NewBlock(size);
    if (copy) std::memcpy(Bytes(copy), Bytes(table), size);
    return copy;
}

Handle MC_GammaTableToHandle(const MC_OpaqueGammaTable* table) {
    const std::size_t size = SizeOf(table);
    const Handle handle = NewHandle(static_cast<Size>(size));
    if (handle) std::memcpy(*handle, Bytes(table), size);
    return handle;
}

MC_OpaqueGammaTable* MC_HandleToGammaTable(Handle handle) {
    const Size size = handle ? GetHandleSize(handle) : 0;
    if (size <= 0 || !IsWholeGammaTable(reinterpret_cast<const std::uint8_t*>(*handle), static_cast<std::size_t>(size))) return nullptr;
    MC_OpaqueGammaTable* const table = NewBlock(static_cast<std::size_t>(size));
    if (table) std::memcpy(Bytes(table), *handle, static_cast<std::size_t>(size));
    return table;
}

void MC_GetGammaTableParams(const MC_OpaqueGammaTable* table, int16_t* channels, int16_t* entries, int16_t* width) {
    const GammaTableHeader header = ReadGammaTableHeader(Bytes(table));
    *channels = header.channelCount;
    *entries = header.entryCount;
    *width = header.entryWidth;
}

void MC_SetGammaVal(MC_OpaqueGammaTable* table, int16_t channel, int16_t index, double value) {
    const GammaTableHeader header = ReadGammaTableHeader(Bytes(table));
    if (channel < 0 || index < 0 || channel >= header.channelCount || index >= header.entryCount) return;
    WriteGammaEntry(Bytes(table), channel, index, ScaleTo16(value));
}

double MC_GetGammaVal(const MC_OpaqueGammaTable* table, int16_t channel, int16_t index) {
    const GammaTableHeader header = ReadGammaTableHeader(Bytes(table));
    if (header.channelCount < 1 || header.entryCount < 1) return 0.0;
    // Deliberate: a channel outside the ramp reads the first one, an index past its end the last entry.
    const int readChannel = channel < 0 || channel >= header.channelCount ? 0 : channel;
    const int readIndex = index < 0 ? 0 : index >= header.entryCount ? header.entryCount - 1 : index;
    return ReadGammaEntry(Bytes(table), readChannel, readIndex) / 65535.0;
}
