// Messages of the D-Bus protocol against GLib's reading and writing of them.

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/Notifications/NotificationMessage.h"

namespace {

using platform::BusMessage;
using platform::BusMessageType;

struct Unref {
    void operator()(GDBusMessage* message) const { g_object_unref(message); }
};
using TheirMessage = std::unique_ptr<GDBusMessage, Unref>;

TheirMessage Theirs(const std::string& bytes) {
    std::vector<guchar> copy(bytes.begin(), bytes.end());
    return TheirMessage(g_dbus_message_new_from_blob(copy.data(), copy.size(), G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
}

std::string BytesOf(GDBusMessage* message) {
    gsize length = 0;
    guchar* const blob = g_dbus_message_to_blob(message, &length, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
    std::string bytes(reinterpret_cast<const char*>(blob), length);
    g_free(blob);
    return bytes;
}

std::string TextOrNone(const char* text) {
    return text ? text : "(none)";
}

std::string BodyOf(GDBusMessage* message) {
    GVariant* const body = g_dbus_message_get_body(message);
    if (!body) return "(none)";
    char* const printed = g_variant_print(body, TRUE);
    std::string text = printed;
    g_free(printed);
    return text;
}

BusMessage Signal(const std::string& name, const std::string& object) {
    BusMessage signal;
    signal.wantsReply = false;
    signal.serial = 77;
    signal.path = "/com/example/Path";
    signal.interface = "com.example.Interface";
    signal.member = "Member";
    signal.signature = "ssa{sv}";
    signal.texts = {name, object};
    return signal;
}

TEST(BusMessages, ASignalIsReadByGLib) {
    const TheirMessage theirs = Theirs(WriteBusMessage(Signal("a name", "gr\xC3\xBCn")));
    ASSERT_TRUE(theirs);
    EXPECT_EQ(g_dbus_message_get_message_type(theirs.get()), G_DBUS_MESSAGE_TYPE_SIGNAL);
    EXPECT_EQ(g_dbus_message_get_flags(theirs.get()), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    EXPECT_EQ(g_dbus_message_get_serial(theirs.get()), 77u);
    EXPECT_EQ(TextOrNone(g_dbus_message_get_path(theirs.get())), "/com/example/Path");
    EXPECT_EQ(TextOrNone(g_dbus_message_get_interface(theirs.get())), "com.example.Interface");
    EXPECT_EQ(TextOrNone(g_dbus_message_get_member(theirs.get())), "Member");
    EXPECT_EQ(TextOrNone(g_dbus_message_get_destination(theirs.get())), "(none)");
    EXPECT_EQ(BodyOf(theirs.get()), "('a name', 'gr\xC3\xBCn', @a{sv} {})");
}

TEST(BusMessages, TextsOfEveryLengthAreReadByGLib) {
    for (std::size_t length = 0; length < 20; ++length) {
        const std::string text(length, 'x');
        const TheirMessage theirs = Theirs(WriteBusMessage(Signal(text, "y")));
        ASSERT_TRUE(theirs) << length;
        EXPECT_EQ(BodyOf(theirs.get()), "('" + text + "', 'y', @a{sv} {})");
    }
}

TEST(BusMessages, ACallWithAnArgumentIsReadByGLib) {
    BusMessage call;
    call.type = BusMessageType::kCall;
    call.serial = 2;
    call.destination = "org.example.Bus";
    call.path = "/";
    call.member = "AddMatch";
    call.signature = "s";
    call.texts = {"type='signal'"};
    const TheirMessage theirs = Theirs(WriteBusMessage(call));
    ASSERT_TRUE(theirs);
    EXPECT_EQ(g_dbus_message_get_message_type(theirs.get()), G_DBUS_MESSAGE_TYPE_METHOD_CALL);
    EXPECT_EQ(g_dbus_message_get_flags(theirs.get()), G_DBUS_MESSAGE_FLAGS_NONE);
    EXPECT_EQ(TextOrNone(g_dbus_message_get_destination(theirs.get())), "org.example.Bus");
    EXPECT_EQ(TextOrNone(g_dbus_message_get_interface(theirs.get())), "(none)");
    EXPECT_EQ(BodyOf(theirs.get()), "(\"type='signal'\",)");
}

TEST(BusMessages, CallsOfTheColourManagerAreReadByGLib) {
    BusMessage call;
    call.type = BusMessageType::kCall;
    call.serial = 2;
    call.destination = "org.example.Service";
    call.path = "/";
    call.member = "Method";
    call.signature = "so";
    call.texts = {"hard", "/an/object"};
    TheirMessage theirs = Theirs(WriteBusMessage(call));
    ASSERT_TRUE(theirs);
    EXPECT_EQ(BodyOf(theirs.get()), "('hard', objectpath '/an/object')");
    // Texts of every length before and in the dictionary: what is filled up differs.
    for (std::size_t length = 0; length < 9; ++length) {
        const std::string text(length, 'x');
        call.signature = "ssa{ss}";
        call.texts = {"device", text};
        call.entries = {{"Kind", "display"}, {text, "gr\xC3\xBCn"}, {"Mode", text}};
        theirs = Theirs(WriteBusMessage(call));
        ASSERT_TRUE(theirs) << length;
        EXPECT_EQ(BodyOf(theirs.get()), "('device', '" + text + "', {'Kind': 'display', '" + text + "': 'gr\xC3\xBCn', 'Mode': '" + text + "'})");
    }
    call.entries.clear();
    theirs = Theirs(WriteBusMessage(call));
    ASSERT_TRUE(theirs);
    EXPECT_EQ(BodyOf(theirs.get()), "('device', 'xxxxxxxx', @a{ss} {})");
}

TEST(BusMessages, AnErrorIsReadByGLib) {
    BusMessage error;
    error.type = BusMessageType::kError;
    error.serial = 3;
    error.replySerial = 0x01020304;
    error.destination = ":1.7";
    error.errorName = "org.example.Error";
    const TheirMessage theirs = Theirs(WriteBusMessage(error));
    ASSERT_TRUE(theirs);
    EXPECT_EQ(g_dbus_message_get_message_type(theirs.get()), G_DBUS_MESSAGE_TYPE_ERROR);
    EXPECT_EQ(g_dbus_message_get_reply_serial(theirs.get()), 0x01020304u);
    EXPECT_EQ(TextOrNone(g_dbus_message_get_error_name(theirs.get())), "org.example.Error");
    EXPECT_EQ(TextOrNone(g_dbus_message_get_destination(theirs.get())), ":1.7");
}

TheirMessage TheirSignal(GDBusMessageByteOrder order) {
    TheirMessage theirs(g_dbus_message_new_signal("/com/example/Path", "com.example.Interface", "Member"));
    g_dbus_message_set_byte_order(theirs.get(), order);
    g_dbus_message_set_serial(theirs.get(), 0x0A0B0C0D);
    g_dbus_message_set_sender(theirs.get(), ":1.42");
    GVariantBuilder entries;
    g_variant_builder_init(&entries, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&entries, "{sv}", "key", g_variant_new_uint64(5));
    g_dbus_message_set_body(theirs.get(), g_variant_new("(ssa{sv})", "a name", "an object", &entries));
    return theirs;
}

TEST(BusMessages, ASignalOfGLibIsReadInBothByteOrders) {
    for (const GDBusMessageByteOrder order : {G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN, G_DBUS_MESSAGE_BYTE_ORDER_BIG_ENDIAN}) {
        const std::string bytes = BytesOf(TheirSignal(order).get());
        EXPECT_EQ(platform::BusMessageLength(bytes.substr(0, platform::kBusMessageStart)), bytes.size());
        const std::optional<BusMessage> ours = platform::ReadBusMessage(bytes);
        ASSERT_TRUE(ours) << bytes[0];
        EXPECT_EQ(ours->type, BusMessageType::kSignal);
        EXPECT_EQ(ours->serial, 0x0A0B0C0Du);
        EXPECT_EQ(ours->path, "/com/example/Path");
        EXPECT_EQ(ours->interface, "com.example.Interface");
        EXPECT_EQ(ours->member, "Member");
        EXPECT_EQ(ours->sender, ":1.42");
        EXPECT_EQ(ours->signature, "ssa{sv}");
        EXPECT_EQ(ours->texts, (std::vector<std::string>{"a name", "an object"}));
    }
}

TEST(BusMessages, AnswersOfGLibAreRead) {
    const TheirMessage call(g_dbus_message_new_method_call("org.example.Bus", "/", "org.example.Interface", "Method"));
    g_dbus_message_set_serial(call.get(), 19);
    g_dbus_message_set_sender(call.get(), ":1.3");
    const std::optional<BusMessage> ourCall = platform::ReadBusMessage(BytesOf(call.get()));
    ASSERT_TRUE(ourCall);
    EXPECT_EQ(ourCall->type, BusMessageType::kCall);
    EXPECT_TRUE(ourCall->wantsReply);

    const TheirMessage answer(g_dbus_message_new_method_reply(call.get()));
    g_dbus_message_set_serial(answer.get(), 20);
    g_dbus_message_set_body(answer.get(), g_variant_new("(u)", 4u));
    const std::optional<BusMessage> ourAnswer = platform::ReadBusMessage(BytesOf(answer.get()));
    ASSERT_TRUE(ourAnswer);
    EXPECT_EQ(ourAnswer->type, BusMessageType::kReturn);
    EXPECT_EQ(ourAnswer->replySerial, 19u);
    EXPECT_TRUE(ourAnswer->texts.empty());

    const TheirMessage error(g_dbus_message_new_method_error_literal(call.get(), "org.example.Error", "what went wrong"));
    g_dbus_message_set_serial(error.get(), 21);
    const std::optional<BusMessage> ourError = platform::ReadBusMessage(BytesOf(error.get()));
    ASSERT_TRUE(ourError);
    EXPECT_EQ(ourError->type, BusMessageType::kError);
    EXPECT_EQ(ourError->errorName, "org.example.Error");
    EXPECT_EQ(ourError->texts, std::vector<std::string>{"what went wrong"});
}

TEST(BusMessages, TextsInVariantsAreRead) {
    const struct {
        const char* value;
        std::vector<std::string> texts;
    } rows[] = {
        {"(<'a text'>,)", {"a text"}},
        {"(<objectpath '/an/object'>,)", {"/an/object"}},
        {"(<['a', 'list', '']>,)", {"a", "list", ""}},
        {"(<[objectpath '/one', '/another']>,)", {"/one", "/another"}},
        {"(<@as []>,)", {}},
        {"('before', <'in'>, 'behind')", {"before", "in", "behind"}},
        {"(<uint32 7>, 'behind what is not read')", {}},
        {"(objectpath '/an/object',)", {"/an/object"}},
    };
    for (const auto& row : rows) {
        const TheirMessage call(g_dbus_message_new_method_call("org.example.Bus", "/", "org.example.Interface", "Method"));
        g_dbus_message_set_serial(call.get(), 19);
        const TheirMessage answer(g_dbus_message_new_method_reply(call.get()));
        g_dbus_message_set_serial(answer.get(), 20);
        g_dbus_message_set_body(answer.get(), g_variant_new_parsed(row.value));
        const std::optional<BusMessage> ours = platform::ReadBusMessage(BytesOf(answer.get()));
        ASSERT_TRUE(ours) << row.value;
        EXPECT_EQ(ours->texts, row.texts) << row.value;
    }
}

TEST(BusMessages, APieceOfOneIsNone) {
    const std::string bytes = BytesOf(TheirSignal(G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN).get());
    for (std::size_t length = 0; length < bytes.size(); ++length) EXPECT_FALSE(platform::ReadBusMessage(bytes.substr(0, length))) << length;
    EXPECT_FALSE(platform::ReadBusMessage(bytes + '\0'));
}

// For the address sanitizer: whatever a damaged message says, only its own bytes are read. The copy ends where the message does.
TEST(BusMessages, DamagedOnesAreReadWithinTheirBytes) {
    const std::string bytes = BytesOf(TheirSignal(G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN).get());
    std::size_t refused = 0;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (const int value : {0, 1, 0x7F, 0x80, 0xFF}) {
            const auto damaged = std::make_unique<char[]>(bytes.size());
            std::memcpy(damaged.get(), bytes.data(), bytes.size());
            damaged[at] = static_cast<char>(value);
            if (!platform::ReadBusMessage({damaged.get(), bytes.size()})) ++refused;
        }
    }
    EXPECT_GT(refused, bytes.size());
}

std::string Start(char order, char protocol, std::uint32_t body, std::uint32_t header) {
    std::string bytes = {order, 4, 0, protocol};
    for (const std::uint32_t word : {body, std::uint32_t{1}, header}) bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    return bytes;
}

TEST(BusMessages, TheLengthStandsInTheFirstBytes) {
    struct Row {
        const char* what;
        std::string bytes;
        std::optional<std::size_t> length;
    };
    const Row rows[] = {
        {"neither fields nor body", Start('l', 1, 0, 0), 16},
        {"fields are filled up to a step of 8", Start('l', 1, 0, 1), 24},
        {"both", Start('l', 1, 5, 9), 37},
        {"the longest fields", Start('l', 1, 0, 1u << 26), (1u << 26) + 16},
        {"longer ones", Start('l', 1, 0, (1u << 26) + 1), std::nullopt},
        {"the longest message", Start('l', 1, (1u << 27) - 16, 0), 1u << 27},
        {"a longer one", Start('l', 1, (1u << 27) - 15, 0), std::nullopt},
        {"lengths of all ones", Start('l', 1, 0xFFFFFFFF, 0xFFFFFFFF), std::nullopt},
        {"no byte order", Start('x', 1, 0, 0), std::nullopt},
        {"another protocol", Start('l', 2, 0, 0), std::nullopt},
        {"too short to say", Start('l', 1, 0, 0).substr(0, 15), std::nullopt},
        {"nothing", "", std::nullopt},
    };
    for (const Row& row : rows) EXPECT_EQ(platform::BusMessageLength(row.bytes), row.length) << row.what;
}

}  // namespace
