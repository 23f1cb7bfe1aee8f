#include "platform/linux/Notifications/NotificationMessage.h"

#include <bit>
#include <cstring>

namespace platform {

namespace {

constexpr std::uint8_t kNoReplyExpected = 1;
constexpr std::uint8_t kProtocol = 1;
constexpr char kOwnOrder = std::endian::native == std::endian::little ? 'l' : 'B';
constexpr std::uint64_t kLongestHeader = std::uint64_t{1} << 26;
constexpr std::uint64_t kLongestMessage = std::uint64_t{1} << 27;

enum Field : std::uint8_t { kPath = 1, kInterface = 2, kMember = 3, kErrorName = 4, kReplySerial = 5, kDestination = 6, kSender = 7, kSignature = 8 };

constexpr std::size_t RoundedUp(std::size_t size, std::size_t step) {
    return (size + step - 1) / step * step;
}

/// Reads values one after the other. Once it has met its end it gives zeros and empty texts.
class Reader {
public:
    Reader(std::string_view bytes, bool isSwapped) : bytes_(bytes), isSwapped_(isSwapped) {}

    bool IsGood() const { return isGood_; }
    std::size_t At() const { return at_; }

    void Align(std::size_t step) { Take(RoundedUp(at_, step) - at_); }
    std::uint8_t Byte() {
        const std::string_view taken = Take(1);
        return taken.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(taken[0]);
    }
    std::uint32_t Word() {
        Align(4);
        const std::string_view taken = Take(4);
        std::uint32_t word = 0;
        if (taken.empty()) return word;
        std::memcpy(&word, taken.data(), sizeof word);
        return isSwapped_ ? __builtin_bswap32(word) : word;
    }
    std::string Text() { return Ended(Word()); }
    std::string Signature() { return Ended(Byte()); }

private:
    std::string Ended(std::size_t length) {
        const std::string_view taken = Take(length);
        if (Byte() != 0 || taken.find('\0') != std::string_view::npos) isGood_ = false;
        return std::string(taken);
    }
    std::string_view Take(std::size_t count) {
        if (!isGood_ || count > bytes_.size() - at_) {
            isGood_ = false;
            return {};
        }
        at_ += count;
        return bytes_.substr(at_ - count, count);
    }

    std::string_view bytes_;
    bool isSwapped_;
    bool isGood_ = true;
    std::size_t at_ = 0;
};

class Writer {
public:
    void Align(std::size_t step) { bytes_.resize(RoundedUp(bytes_.size(), step)); }
    void Byte(std::uint8_t byte) { bytes_.push_back(static_cast<char>(byte)); }
    void Word(std::uint32_t word) {
        Align(4);
        bytes_.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    void Text(const std::string& text) {
        Word(static_cast<std::uint32_t>(text.size()));
        bytes_.append(text.c_str(), text.size() + 1);
    }
    void Signature(const std::string& text) {
        Byte(static_cast<std::uint8_t>(text.size()));
        bytes_.append(text.c_str(), text.size() + 1);
    }
    /// A header field of the type that its code asks for; none for an empty text.
    void TextField(Field code, const char* type, const std::string& text) {
        if (text.empty()) return;
        Align(8);
        Byte(code);
        Signature(type);
        if (code == kSignature) {
            Signature(text);
        } else {
            Text(text);
        }
    }
    void Fill(std::size_t at, std::size_t word) {
        const auto value = static_cast<std::uint32_t>(word);
        std::memcpy(bytes_.data() + at, &value, sizeof value);
    }
    std::size_t Size() const { return bytes_.size(); }
    std::string Detach() { return std::move(bytes_); }

private:
    std::string bytes_;
};

/// False for a type that no field has: what follows it cannot be told apart.
bool ReadField(Reader* reader, BusMessage* message) {
    reader->Align(8);
    const std::uint8_t code = reader->Byte();
    const std::string type = reader->Signature();
    if (type == "u") {
        const std::uint32_t word = reader->Word();
        if (code == kReplySerial) message->replySerial = word;
        return true;
    }
    if (type != "s" && type != "o" && type != "g") return false;
    std::string text = type == "g" ? reader->Signature() : reader->Text();
    switch (code) {
        case kPath:
            message->path = std::move(text);
            break;
        case kInterface:
            message->interface = std::move(text);
            break;
        case kMember:
            message->member = std::move(text);
            break;
        case kErrorName:
            message->errorName = std::move(text);
            break;
        case kDestination:
            message->destination = std::move(text);
            break;
        case kSender:
            message->sender = std::move(text);
            break;
        case kSignature:
            message->signature = std::move(text);
            break;
        default:
            break;
    }
    return true;
}

bool IsText(char type) {
    return type == 's' || type == 'o';
}

/// The texts of a variant: one, or a list of them. False for another content, whose end is not looked for.
bool ReadVariant(Reader* reader, std::vector<std::string>* texts) {
    const std::string type = reader->Signature();
    if (type.size() == 1 && IsText(type[0])) {
        texts->push_back(reader->Text());
        return true;
    }
    if (type.size() != 2 || type[0] != 'a' || !IsText(type[1])) return false;
    const std::size_t length = reader->Word();
    const std::size_t end = reader->At() + length;
    while (reader->IsGood() && reader->At() < end) texts->push_back(reader->Text());
    return true;
}

}  // namespace

std::optional<std::size_t> BusMessageLength(std::string_view bytes) {
    Reader reader(bytes, bytes.empty() || bytes[0] != kOwnOrder);
    const std::uint8_t order = reader.Byte();
    reader.Byte();
    reader.Byte();
    const std::uint8_t protocol = reader.Byte();
    const std::uint64_t bodyLength = reader.Word();
    reader.Word();
    const std::uint64_t headerLength = reader.Word();
    if (!reader.IsGood() || (order != 'l' && order != 'B') || protocol != kProtocol || headerLength > kLongestHeader) return std::nullopt;
    const std::uint64_t length = RoundedUp(kBusMessageStart + headerLength, 8) + bodyLength;
    if (length > kLongestMessage) return std::nullopt;
    return length;
}

std::optional<BusMessage> ReadBusMessage(std::string_view bytes) {
    if (bytes.size() < kBusMessageStart || BusMessageLength(bytes) != bytes.size()) return std::nullopt;
    const bool isSwapped = bytes[0] != kOwnOrder;
    Reader header(bytes, isSwapped);
    BusMessage message;
    header.Byte();
    message.type = static_cast<BusMessageType>(header.Byte());
    message.wantsReply = (header.Byte() & kNoReplyExpected) == 0;
    header.Byte();
    const std::size_t bodyLength = header.Word();
    message.serial = header.Word();
    const std::size_t end = kBusMessageStart + header.Word();
    while (header.IsGood() && header.At() < end) {
        if (!ReadField(&header, &message)) return std::nullopt;
    }
    if (!header.IsGood() || header.At() != end) return std::nullopt;

    Reader body(bytes.substr(bytes.size() - bodyLength), isSwapped);
    for (const char type : message.signature) {
        if (IsText(type)) {
            message.texts.push_back(body.Text());
        } else if (type != 'v' || !ReadVariant(&body, &message.texts)) {
            break;
        }
    }
    if (!body.IsGood()) return std::nullopt;
    return message;
}

std::string WriteBusMessage(const BusMessage& message) {
    constexpr std::size_t kBodyLengthAt = 4, kHeaderLengthAt = 12;
    Writer writer;
    writer.Byte(static_cast<std::uint8_t>(kOwnOrder));
    writer.Byte(static_cast<std::uint8_t>(message.type));
    writer.Byte(message.wantsReply ? std::uint8_t{0} : kNoReplyExpected);
    writer.Byte(kProtocol);
    writer.Word(0);
    writer.Word(message.serial);
    writer.Word(0);
    writer.TextField(kPath, "o", message.path);
    writer.TextField(kInterface, "s", message.interface);
    writer.TextField(kMember, "s", message.member);
    writer.TextField(kErrorName, "s", message.errorName);
    writer.TextField(kDestination, "s", message.destination);
    writer.TextField(kSignature, "g", message.signature);
    if (message.replySerial != 0) {
        writer.Align(8);
        writer.Byte(kReplySerial);
        writer.Signature("u");
        writer.Word(message.replySerial);
    }
    writer.Fill(kHeaderLengthAt, writer.Size() - kBusMessageStart);
    writer.Align(8);
    const std::size_t bodyAt = writer.Size();
    for (const std::string& text : message.texts) writer.Text(text);
    if (message.signature.ends_with("a{sv}") || message.signature.ends_with("a{ss}")) {
        writer.Word(0);
        const std::size_t lengthAt = writer.Size() - sizeof(std::uint32_t);
        // The length counts from the first entry.
        writer.Align(8);
        const std::size_t entriesAt = writer.Size();
        for (const auto& [key, value] : message.entries) {
            writer.Align(8);
            writer.Text(key);
            writer.Text(value);
        }
        writer.Fill(lengthAt, writer.Size() - entriesAt);
    }
    writer.Fill(kBodyLengthAt, writer.Size() - bodyAt);
    return writer.Detach();
}

}  // namespace platform
