#include "platform/linux/Displays/DisplayIdentity.h"

#include <glib.h>

#include <algorithm>
#include <cstdio>

#include "platform/BigEndian.h"

namespace platform {

namespace {

constexpr std::size_t kBlockSize = 128;
constexpr std::uint8_t kSerialText = 0xFF, kModelName = 0xFC;

std::uint32_t LittleEndian(const Bytes& data, std::size_t at, std::size_t count) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < count; ++i) value |= static_cast<std::uint32_t>(data[at + i]) << (8 * i);
    return value;
}

/// The text of the base block's descriptor of that kind: it ends at a line feed and is filled up with blanks. What is not printable is left out.
std::string DescriptorText(const Bytes& data, std::uint8_t kind) {
    for (const std::size_t at : {54U, 72U, 90U, 108U}) {
        if (data[at] != 0 || data[at + 1] != 0 || data[at + 2] != 0 || data[at + 3] != kind) continue;
        std::string text;
        for (std::size_t i = at + 5; i < at + 18 && data[i] != '\n'; ++i) {
            if (data[i] >= ' ' && data[i] < 0x7F) text += static_cast<char>(data[i]);
        }
        const std::size_t first = text.find_first_not_of(' ');
        return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
    }
    return {};
}

std::string Printed(const char* format, std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

Identifier IdentifierOf(const Bytes& name) {
    Identifier identifier = Digest(name);
    // Marked as made from a name.
    identifier[6] = static_cast<std::uint8_t>((identifier[6] & 0x0f) | 0x30);
    identifier[8] = static_cast<std::uint8_t>((identifier[8] & 0x3f) | 0x80);
    return identifier;
}

}  // namespace

Identification ReadIdentification(const Bytes& data) {
    Identification found;
    if (data.size() < kBlockSize) return found;
    // Three letters of five bits, 1 = A.
    const unsigned maker = ReadBigEndian16(data.data() + 8);
    for (const unsigned shift : {10U, 5U, 0U}) {
        const unsigned letter = maker >> shift & 31U;
        if (letter >= 1 && letter <= 26) found.make += static_cast<char>('A' + letter - 1);
    }
    found.model = DescriptorText(data, kModelName);
    if (found.model.empty()) found.model = Printed("%04X", LittleEndian(data, 10, 2));
    found.serial = DescriptorText(data, kSerialText);
    // Makers without serial numbers fill the places for them with zeros, ones or 01.
    if (found.serial.find_first_not_of('0') == std::string::npos) found.serial.clear();
    const std::uint32_t number = LittleEndian(data, 12, 4);
    if (found.serial.empty() && number != 0 && number != 0xFFFFFFFF && number != 0x01010101) found.serial = Printed("%u", number);
    return found;
}

Identifier Digest(const Bytes& bytes) {
    Identifier digest;
    gsize size = digest.size();
    GChecksum* const sum = g_checksum_new(G_CHECKSUM_MD5);
    g_checksum_update(sum, bytes.data(), static_cast<gssize>(bytes.size()));
    g_checksum_get_digest(sum, digest.data(), &size);
    g_checksum_free(sum);
    return digest;
}

std::uint32_t DisplayOfIdentifier(const Identifier& identifier) {
    return ReadBigEndian32(identifier.data()) | 0x80000000U;
}

std::vector<Identifier> IdentifiersOf(const std::vector<IdentifiedOutput>& outputs) {
    std::vector<Identifier> identifiers;
    for (const IdentifiedOutput& output : outputs) {
        const auto isEarlierTwin = [&](const IdentifiedOutput& other) { return other.data == output.data && other.name < output.name; };
        const bool isByItself = !ReadIdentification(output.data).serial.empty() && std::none_of(outputs.begin(), outputs.end(), isEarlierTwin);
        Bytes name = output.data;
        const std::string place = g_get_host_name() + ("/" + output.name);
        if (!isByItself) name.insert(name.end(), place.begin(), place.end());
        identifiers.push_back(IdentifierOf(name));
    }
    return identifiers;
}

}  // namespace platform
