#include "platform/linux/Displays/DisplayIdentity.h"

#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <set>

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

/// Tells computers apart, and is the same after one was given another name. Nobody learns the computer's own number from it; empty where it has none.
const std::string& ComputerKey() {
    static const std::string key = [] {
        std::string number;
        for (const char* const file : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
            std::ifstream stream(file);
            // 32 digits; something else while the system is being made.
            if (stream >> number && number.size() == 32) break;
            number.clear();
        }
        if (number.empty()) return number;
        constexpr const char* kPurpose = "com.brenwick.orlocms.displays";
        gchar* const sum = g_compute_hmac_for_string(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(number.data()), number.size(), kPurpose, -1);
        std::string derived = sum;
        g_free(sum);
        return derived;
    }();
    return key;
}

Identifier IdentifierOfPlace(const IdentifiedOutput& output, const std::string& computer) {
    Bytes name = output.data;
    const std::string place = computer + "/" + output.name;
    name.insert(name.end(), place.begin(), place.end());
    return IdentifierOfData(name);
}

bool HasSerial(const IdentifiedOutput& output) {
    return !ReadIdentification(output.data).serial.empty();
}

}  // namespace

Identifier IdentifierOfData(const Bytes& data) {
    Identifier identifier = Digest(data);
    // Marked as made from a name.
    identifier[6] = static_cast<std::uint8_t>((identifier[6] & 0x0f) | 0x30);
    identifier[8] = static_cast<std::uint8_t>((identifier[8] & 0x3f) | 0x80);
    return identifier;
}

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

std::vector<Identifier> IdentifiersOf(const std::vector<IdentifiedOutput>& outputs, const std::map<std::string, Identifier>& before) {
    std::vector<Identifier> identifiers(outputs.size());
    std::set<Identifier> taken;
    std::vector<std::size_t> strangers;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const Identifier ofPlace = IdentifierOfPlace(outputs[i], ComputerKey()), ofData = IdentifierOfData(outputs[i].data);
        const auto known = before.find(outputs[i].name);
        if (!HasSerial(outputs[i]) || (known != before.end() && known->second == ofPlace)) {
            identifiers[i] = ofPlace;
        } else if (known != before.end() && known->second == ofData && taken.insert(ofData).second) {
            identifiers[i] = ofData;
        } else {
            strangers.push_back(i);
        }
    }
    std::sort(strangers.begin(), strangers.end(), [&](std::size_t a, std::size_t b) { return outputs[a].name < outputs[b].name; });
    for (const std::size_t i : strangers) {
        const Identifier ofData = IdentifierOfData(outputs[i].data);
        identifiers[i] = taken.insert(ofData).second ? ofData : IdentifierOfPlace(outputs[i], ComputerKey());
    }
    return identifiers;
}

Identifier EarlierIdentifier(const IdentifiedOutput& output, const Identifier& identifier) {
    const bool isOfData = HasSerial(output) && identifier == IdentifierOfData(output.data);
    return isOfData ? identifier : IdentifierOfPlace(output, g_get_host_name());
}

}  // namespace platform
