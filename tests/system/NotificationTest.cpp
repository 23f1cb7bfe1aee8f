// Notifications between processes over a private session bus. NotificationRecoveryTest has those without a bus, and what happens to buses.
//
// With arguments this program is another process, which does what they name.

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "session/ControlInterface.h"
#include "session/MatchingSession.h"
#include "settings/PreferenceStore.h"
#include "tests/fixtures/Notifications.h"
#include "tests/fixtures/PrivateBus.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

std::string sProgram;

/// Runs this program as another process and waits for its end.
int RunOther(Words words) {
    words.insert(words.begin(), sProgram);
    return RunProgram(words);
}

TEST(Notifications, ReachObserversOfTheirNameAndObjectOnTheMainThread) {
    Observer both("com.example.one", "First"), name("com.example.one", nullptr), object(nullptr, "First"), all(nullptr, nullptr);
    Post("com.example.one", "First");
    Post("com.example.one", "Second");
    Post("com.example.two", "First");
    Post("com.example.two", "Second");
    ASSERT_TRUE(all.WaitFor(4));
    EXPECT_EQ(both.heard, Words{"com.example.one/First"});
    EXPECT_EQ(name.heard, (Words{"com.example.one/First", "com.example.one/Second"}));
    EXPECT_EQ(object.heard, (Words{"com.example.one/First", "com.example.two/First"}));
    EXPECT_EQ(all.heard, (Words{"com.example.one/First", "com.example.one/Second", "com.example.two/First", "com.example.two/Second"}));
    EXPECT_EQ(all.threads, std::vector<std::thread::id>(4, std::this_thread::get_id()));
}

TEST(Notifications, ArriveWhateverTheirNames) {
    Observer all(nullptr, nullptr);
    const std::string names[] = {"plain", "with blanks and.dots", "gr\xC3\xBCn", "", "a.very.long.name." + std::string(100, 'n')};
    for (const std::string& name : names) Post(name, name + "!");
    ASSERT_TRUE(all.WaitFor(std::size(names)));
    for (size_t i = 0; i < std::size(names); ++i) EXPECT_EQ(all.heard[i], names[i] + "/" + names[i] + "!");
}

// Longer than any name that the bus allows.
TEST(Notifications, ArriveHoweverLongTheirNames) {
    const std::string name = "com.example." + std::string(300, 'n'), object(70000, 'o');
    Observer observer(name.c_str(), nullptr);
    Post(name, object);
    Post(name, "Short");
    ASSERT_TRUE(observer.WaitFor(2));
    EXPECT_EQ(observer.heard[1], name + "/Short");
}

TEST(Notifications, HaveAnEmptyDictionaryAsUserInformation) {
    Observer observer("com.example.information", nullptr);
    Post("com.example.information", "Posted");
    ASSERT_TRUE(observer.WaitFor(1));
    EXPECT_EQ(observer.entries[0], 0);
}

TEST(Notifications, ManyArriveInTheOrderOfPosting) {
    Observer observer("com.example.order", nullptr);
    Words expected;
    for (int i = 0; i < 300; ++i) {
        Post("com.example.order", "n" + std::to_string(i));
        expected.push_back("com.example.order/n" + std::to_string(i));
    }
    ASSERT_TRUE(observer.WaitFor(300));
    EXPECT_EQ(observer.heard, expected);
}

TEST(Notifications, AreNotDeliveredBeforeTheLoopTurns) {
    Observer observer("com.example.later", nullptr);
    Post("com.example.later", "Now");
    g_usleep(200000);
    EXPECT_TRUE(observer.heard.empty());
    EXPECT_TRUE(observer.WaitFor(1));
}

TEST(Notifications, AnObserverMayRemoveItselfAndOthersWhileItIsTold) {
    Observer first("com.example.remove", nullptr), second("com.example.remove", nullptr), witness("com.example.remove", nullptr);
    first.onHearing = [&second] { second.Remove(); };
    second.onHearing = [&first] { first.Remove(); };
    Post("com.example.remove", "One");
    Post("com.example.remove", "Two");
    ASSERT_TRUE(witness.WaitFor(2));
    EXPECT_EQ(first.heard.size(), 2u);
    EXPECT_EQ(second.heard.size(), 0u);
    first.onHearing = [&first] { first.Remove(); };
    Post("com.example.remove", "Three");
    Post("com.example.remove", "Four");
    ASSERT_TRUE(witness.WaitFor(4));
    EXPECT_EQ(first.heard.size(), 3u);
}

// As a host does that shows a dialogue from its callback.
TEST(Notifications, AnObserverMayTurnTheLoopWhileOthersGoOnHearing) {
    Observer outer("com.example.outer", nullptr), inner("com.example.inner", nullptr);
    bool isHeardWithin = false;
    outer.onHearing = [&] {
        Post("com.example.inner", "Posted");
        isHeardWithin = inner.WaitFor(1);
    };
    Post("com.example.outer", "Posted");
    ASSERT_TRUE(outer.WaitFor(1));
    EXPECT_TRUE(isHeardWithin);
}

TEST(Notifications, MayBePostedOnAnyThread) {
    Observer observer("com.example.threads", nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 25; ++i) Post("com.example.threads", "Posted");
        });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_TRUE(observer.WaitFor(100));
    EXPECT_EQ(observer.threads, std::vector<std::thread::id>(100, std::this_thread::get_id()));
}

TEST(Notifications, OfAnotherProcessArrive) {
    Observer observer("com.example.others", nullptr);
    EXPECT_EQ(RunOther({"post", "com.example.others", "From outside"}), 0);
    ASSERT_TRUE(observer.WaitFor(1));
    EXPECT_EQ(observer.heard[0], "com.example.others/From outside");
}

/// Another client of the bus, which knows nothing of this library.
GDBusConnection* ConnectAnother() {
    return g_dbus_connection_new_for_address_sync(
        getenv("DBUS_SESSION_BUS_ADDRESS"),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION), nullptr,
        nullptr, nullptr);
}

TEST(Notifications, OtherMessagesOnTheBusAreNoneAndDoNoHarm) {
    Observer all(nullptr, nullptr);
    GDBusConnection* const bus = ConnectAnother();
    ASSERT_NE(bus, nullptr);
    const std::string text(3 << 20, 'x');
    GVariant* const bodies[] = {nullptr, g_variant_new("()"), g_variant_new("(s)", "one text"), g_variant_new("(sss)", "three", "of", "them"),
                                g_variant_new("(ssa{sv})", text.c_str(), "too long to be one", nullptr)};
    for (GVariant* const body : bodies) {
        ASSERT_TRUE(g_dbus_connection_emit_signal(bus, nullptr, "/com/brenwick/Notifications", "com.example.Other", "Sent", body, nullptr));
    }
    g_dbus_connection_emit_signal(bus, nullptr, "/com/brenwick/Notifications", "com.example.Other", "Sent",
                                  g_variant_new("(ssa{sv})", "com.example.other", "Sent", nullptr), nullptr);
    g_dbus_connection_flush_sync(bus, nullptr, nullptr);
    ASSERT_TRUE(all.WaitFor(1));
    EXPECT_EQ(all.heard, Words{"com.example.other/Sent"});
    g_object_unref(bus);
}

TEST(Notifications, WhoCallsAMethodOfTheirConnectionIsAnswered) {
    Observer observer("com.example.called", nullptr);
    GDBusConnection* const bus = ConnectAnother();
    ASSERT_NE(bus, nullptr);
    std::string sender;
    const guint subscription = g_dbus_connection_signal_subscribe(
        bus, nullptr, "com.example.called", "Sent", nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const char* from, const char*, const char*, const char*, GVariant*, gpointer text) {
            *static_cast<std::string*>(text) = from;
        },
        &sender, nullptr);
    EXPECT_TRUE(TurnUntil([&sender] {
        Post("com.example.called", "Sent");
        return !sender.empty();
    }));
    std::string answer;
    g_dbus_connection_call(
        bus, sender.c_str(), "/", "org.freedesktop.DBus.Introspectable", "Introspect", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr,
        [](GObject* connection, GAsyncResult* result, gpointer text) {
            GError* error = nullptr;
            g_dbus_connection_call_finish(reinterpret_cast<GDBusConnection*>(connection), result, &error);
            char* const name = error ? g_dbus_error_get_remote_error(error) : nullptr;
            *static_cast<std::string*>(text) = name ? name : "(none)";
            g_free(name);
            g_clear_error(&error);
        },
        &answer);
    EXPECT_TRUE(TurnUntil([&answer] { return !answer.empty(); }));
    EXPECT_EQ(answer, "org.freedesktop.DBus.Error.UnknownMethod");
    g_dbus_connection_signal_unsubscribe(bus, subscription);
    g_object_unref(bus);
}

TEST(Notifications, AChangeOfSettingsIsASignalOfTheirNameOnTheBus) {
    GDBusConnection* const bus = ConnectAnother();
    ASSERT_NE(bus, nullptr);
    int signals = 0;
    const guint subscription = g_dbus_connection_signal_subscribe(
        bus, nullptr, "com.brenwick.orlocms", "Change", nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*, gpointer count) { ++*static_cast<int*>(count); },
        &signals, nullptr);
    // Known to the bus before the change is made.
    GVariant* const answer = g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId", nullptr, nullptr,
                                                         G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    g_variant_unref(answer);
    SynchronisePreferences(false);
    SynchronisePreferences(true);
    TurnUntil([&signals] { return signals > 0; });
    TurnRunLoop(0.1);
    EXPECT_EQ(signals, 1);
    g_dbus_connection_signal_unsubscribe(bus, subscription);
    g_object_unref(bus);
}

TEST(Notifications, DBusMonitorShowsAChangeOfSettings) {
    const std::string script = R"(
dbus-monitor --address "$DBUS_SESSION_BUS_ADDRESS" "interface='com.brenwick.orlocms'" > "$0" 2>/dev/null < /dev/null &
monitor=$!
for i in $(seq 600); do
    "$1" set
    sleep 0.1
    if grep -q "interface=com.brenwick.orlocms; member=Change" "$0"; then kill $monitor; wait $monitor; exit 0; fi
done
kill $monitor
exit 1)";
    const TemporaryFolder folder;
    EXPECT_EQ(RunProgram({"sh", "-c", script, folder / "monitor.txt", sProgram}), 0);
}

TEST(Notifications, OfTheColourManagerBecomeDeviceNotifications) {
    Observer state("CMDeviceStateNotification", nullptr), profiles("CMDeviceProfilesNotification", nullptr);
    int sessionCalls = 0;
    ASSERT_EQ(OpenMatching(
                  [](OSType, void* count) {
                      ++*static_cast<int*>(count);
                      return 0L;
                  },
                  &sessionCalls),
              0);
    size_t states = 0, changes = 0;
    for (const char* member : {"DeviceAdded", "DeviceRemoved", "DeviceChanged", "ProfileAdded", "ProfileRemoved", "ProfileChanged", "Unrelated"}) {
        SCOPED_TRACE(member);
        ASSERT_EQ(RunOther({"signal", "org.freedesktop.ColorManager", member}), 0);
        ASSERT_EQ(RunOther({"signal", "com.example.Other", member}), 0);
        const std::string name = member;
        if (name == "DeviceAdded" || name == "DeviceRemoved") {
            ++states;
        } else if (name != "Unrelated") {
            ++changes;
        }
        EXPECT_TRUE(state.WaitFor(states));
        EXPECT_TRUE(profiles.WaitFor(changes));
        const auto told = static_cast<int>(states + changes);
        TurnUntil([&] { return sessionCalls >= told; });
        TurnRunLoop(0.05);
        EXPECT_EQ(state.heard.size(), states);
        EXPECT_EQ(profiles.heard.size(), changes);
    }
    // The session has no printer: a rebuild answers 0 and its host is told, once for each.
    EXPECT_EQ(sessionCalls, 6);
    CloseMatching();
}

TEST(Notifications, OfARealColourManagerArrive) {
    // With an empty memory of its own; it keeps devices of earlier runs otherwise.
    const ServerProcess colord({"unshare", "-m", "sh", "-c", "mount -t tmpfs tmpfs /var/lib/colord && exec /usr/libexec/colord"});
    Observer state("CMDeviceStateNotification", nullptr);
    bool isThere = false;
    for (int tries = 0; tries < 100 && !isThere; ++tries) {
        isThere = RunProgram({"colormgr", "get-devices"}) == 0;
        if (!isThere) g_usleep(100000);
    }
    if (!isThere) GTEST_SKIP() << "the colour manager cannot be run here (it needs root and a name space of its own)";
    state.heard.clear();
    // A device that goes away with the program that made it.
    EXPECT_EQ(RunProgram({"colormgr", "create-device", "orlo-test", "temp", "display"}), 0);
    ASSERT_TRUE(state.WaitFor(1));
    EXPECT_EQ(state.heard[0], "CMDeviceStateNotification/");
}

/// The part of the other process.
int BeOther(const Words& words) {
    if (words[0] == "post") {
        Post(words[1], words[2]);
        return 0;
    }
    if (words[0] == "set") return CMSControlInit() != 0 || CMSSetQuality(static_cast<int32_t>(g_random_int_range(0, 3))) != 0;
    if (words[0] == "signal") {
        GDBusConnection* const bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        if (!bus) return 1;
        g_dbus_connection_emit_signal(bus, nullptr, "/org/freedesktop/ColorManager", words[1].c_str(), words[2].c_str(),
                                      g_variant_new("(o)", "/some/device"), nullptr);
        g_dbus_connection_flush_sync(bus, nullptr, nullptr);
        return 0;
    }
    return 2;
}

}  // namespace

int main(int count, char** arguments) {
    testing::InitGoogleTest(&count, arguments);
    if (count > 1) return BeOther({arguments + 1, arguments + count});
    sProgram = std::filesystem::absolute(arguments[0]).string();
    const PrivateStore store;
    const PrivateBus bus(store.Folder());
    bus.MakeSessionBus();
    const PrivateBus systemBus(store.Folder(), "system-bus");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", systemBus.Address().c_str(), 1);
    return RUN_ALL_TESTS();
}
