#pragma once

/// Messages of the D-Bus protocol as bytes: as much of it as notifications and calls of the colour manager need.
///
/// Not a library's, since a child of fork has to send some too. It has none of its parent's threads, and every lock that another thread of the
/// parent held stays locked in it for ever. Nothing here starts a thread or takes a lock.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

enum class BusMessageType : std::uint8_t { kCall = 1, kReturn = 2, kError = 3, kSignal = 4 };

struct BusMessage {
    BusMessageType type = BusMessageType::kSignal;
    bool wantsReply = true;
    std::uint32_t serial = 0;
    std::uint32_t replySerial = 0;  // 0: no answer
    /// Empty: not there.
    std::string path, interface, member, errorName, destination, sender, signature;
    /// The texts that the body begins with, one after the other: strings, object paths, and those in variants that hold one or a list of them.
    std::vector<std::string> texts;
    /// Of a message to write: the dictionary "a{ss}" that ends its body.
    std::vector<std::pair<std::string, std::string>> entries;
};

/// What stands before the body's length and the header's is always read first.
constexpr std::size_t kBusMessageStart = 16;

/// The length of the message that begins with these kBusMessageStart bytes or more; nothing when none can.
std::optional<std::size_t> BusMessageLength(std::string_view bytes);

/// A whole message, in either byte order. Nothing when it breaks the rules as far as they are looked at here.
std::optional<BusMessage> ReadBusMessage(std::string_view bytes);

/// The message's bytes, in the machine's own order. The body holds a text for each "s" and "o" that the signature begins with, then for "a{ss}" the
/// entries and for "a{sv}" an empty dictionary; the signature holds nothing else. Texts are UTF-8 without a zero.
std::string WriteBusMessage(const BusMessage& message);

}  // namespace platform
