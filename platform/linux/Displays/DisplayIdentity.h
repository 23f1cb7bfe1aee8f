#pragma once

/// What a display's identification data (EDID) says, and the identifier that comes of it. Pure, but for the number and the name of the computer.

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace platform {

using Bytes = std::vector<std::uint8_t>;
using Identifier = std::array<std::uint8_t, 16>;

/// UTF-8; empty where the display gives none.
struct Identification {
    std::string make;    // three letters of its maker, "DEL"
    std::string model;   // its name, else its product code in hexadecimal
    std::string serial;  // the serial number as text where there is one, else the number
};
Identification ReadIdentification(const Bytes& data);

/// The same for the same bytes.
Identifier Digest(const Bytes& bytes);

/// The number that stands for a display towards callers. Its top bit is set, which the X server's own numbers never have.
std::uint32_t DisplayOfIdentifier(const Identifier& identifier);
/// Whether a display is numbered thus, and not by an X server.
inline bool IsDerived(std::uint32_t display) {
    return display >> 31 != 0;
}

/// What an identifier is derived from.
struct IdentifiedOutput {
    std::string name;
    Bytes data;  // empty: none
};
/// The identifier of data with a serial number by themselves.
Identifier IdentifierOfData(const Bytes& data);
/// One for each output, in their order, all different. Data with a serial number identify by themselves; without one the output's name and the
/// computer count too, and without any data they are all.
///
/// before   what outputs, by their names, were identified by when somebody last looked. Of outputs with the same data, of which only one can have the
///          identifier of the data, each keeps what it had; of others the first by name takes it if it is free, and those left take their names
std::vector<Identifier> IdentifiersOf(const std::vector<IdentifiedOutput>& outputs, const std::map<std::string, Identifier>& before = {});
/// By what older documents and memories know an output that now has that identifier: in place of the computer its name counted.
Identifier EarlierIdentifier(const IdentifiedOutput& output, const Identifier& identifier);

}  // namespace platform
