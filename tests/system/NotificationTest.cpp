// Notifications between processes: over a private session bus, over the watched settings file, and from a bus to the file when the bus dies.
//
// With arguments this program is another process, which does what they name.

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/CoreFoundation.h"
#include "platform/Owned.h"
#include "session/ControlInterface.h"
#include "session/MatchingSession.h"
#include "settings/PreferenceStore.h"
#include "tests/fixtures/ChangeCounter.h"
#include "tests/fixtures/PrivateBus.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

using Words = std::vector<std::string>;

// Only against a test that would never end.
constexpr gint64 kPatience = gint64{60} * G_USEC_PER_SEC;

std::string sProgram;
PrivateBus* sBus = nullptr;

Owned<CFStringRef> Text(const std::string& text) {
    return Owned<CFStringRef>(CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
}

std::string TextOf(CFStringRef string) {
    char text[200] = "(none)";
    if (string) CFStringGetCString(string, text, sizeof text, kCFStringEncodingUTF8);
    return text;
}

void Post(const std::string& name, const std::string& object) {
    CFNotificationCenterPostNotification(CFNotificationCenterGetDistributedCenter(), Text(name).Get(), Text(object).Get(), nullptr, true);
}

/// What one observer heard, as "NAME/OBJECT" words.
class Observer {
public:
    Observer() = default;
    Observer(const char* name, const char* object) {
        const Owned<CFStringRef> wantedName = name ? Text(name) : Owned<CFStringRef>(), wantedObject = object ? Text(object) : Owned<CFStringRef>();
        CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), this, Heard, wantedName.Get(), wantedObject.Get(),
                                        CFNotificationSuspensionBehaviorDeliverImmediately);
    }
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;
    ~Observer() { Remove(); }

    void Remove() { CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), this); }
    /// Turns the loop until that many were heard.
    bool WaitFor(size_t count) {
        for (const gint64 end = g_get_monotonic_time() + kPatience; heard.size() < count && g_get_monotonic_time() < end;) TurnRunLoop(0.01);
        return heard.size() >= count;
    }

    Words heard;
    std::vector<std::thread::id> threads;
    Observer* removes = nullptr;

private:
    static void Heard(CFNotificationCenterRef centre, void* self, CFStringRef name, const void* object, CFDictionaryRef) {
        auto* const observer = static_cast<Observer*>(self);
        EXPECT_EQ(centre, CFNotificationCenterGetDistributedCenter());
        observer->heard.push_back(TextOf(name) + "/" + TextOf(static_cast<CFStringRef>(object)));
        observer->threads.push_back(std::this_thread::get_id());
        if (observer->removes) observer->removes->Remove();
    }
};

/// Runs this program as another process, or another program, and waits for its end.
int RunProgram(const Words& words) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    int status = -1;
    if (!g_spawn_sync(nullptr, arguments.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, nullptr, nullptr, &status, nullptr)) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

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
    first.removes = &second;
    second.removes = &first;
    Post("com.example.remove", "One");
    Post("com.example.remove", "Two");
    ASSERT_TRUE(witness.WaitFor(2));
    EXPECT_EQ(first.heard.size(), 2u);
    EXPECT_EQ(second.heard.size(), 0u);
    first.removes = &first;
    Post("com.example.remove", "Three");
    Post("com.example.remove", "Four");
    ASSERT_TRUE(witness.WaitFor(4));
    EXPECT_EQ(first.heard.size(), 3u);
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

TEST(Notifications, AChangeOfSettingsIsASignalOfTheirNameOnTheBus) {
    // Another client of the bus, which knows nothing of this library.
    GDBusConnection* const bus = g_dbus_connection_new_for_address_sync(
        getenv("DBUS_SESSION_BUS_ADDRESS"),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION), nullptr,
        nullptr, nullptr);
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
    for (const gint64 end = g_get_monotonic_time() + kPatience; signals == 0 && g_get_monotonic_time() < end;) TurnRunLoop(0.01);
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
        for (const gint64 end = g_get_monotonic_time() + kPatience; sessionCalls < told && g_get_monotonic_time() < end;) TurnRunLoop(0.01);
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

// Last, as it ends the bus.
TEST(Notifications, WhenTheBusDiesTheSettingsFileIsWatched) {
    Observer change("com.brenwick.orlocms", "Change");
    EXPECT_EQ(RunOther({"set"}), 0);
    ASSERT_TRUE(change.WaitFor(1));
    sBus->End();
    change.heard.clear();
    // The other process finds no bus either. This one may learn of the bus's end only after the first change.
    for (const gint64 end = g_get_monotonic_time() + kPatience; change.heard.empty() && g_get_monotonic_time() < end;) {
        EXPECT_EQ(RunOther({"set"}), 0);
        TurnRunLoop(0.2);
    }
    ASSERT_FALSE(change.heard.empty());
    EXPECT_EQ(change.heard[0], "com.brenwick.orlocms/Change");
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
    // Without a bus: the distributed centre and a session as they are here.
    if (words[0] == "nowhere") return CFNotificationCenterGetDistributedCenter() == nullptr && OpenMatching(nullptr, nullptr) == -1 ? 0 : 1;
    return 2;
}

TEST(NoCarrier, ASessionCannotBeOpened) {
    const TemporaryFolder folder;
    std::ofstream(folder / "file") << "a file where the folder should be";
    // Neither a bus nor a folder; no screen for the notice either.
    EXPECT_EQ(RunProgram({"env", "-u", "DBUS_SESSION_BUS_ADDRESS", "-u", "XDG_CONFIG_HOME", "-u", "DISPLAY", "HOME=relative", sProgram, "nowhere"}),
              0);
    EXPECT_EQ(RunProgram({"env", "-u", "DBUS_SESSION_BUS_ADDRESS", "-u", "DISPLAY", "XDG_CONFIG_HOME=" + (folder / "good"), sProgram, "nowhere"}), 1);
}

}  // namespace

int main(int count, char** arguments) {
    testing::InitGoogleTest(&count, arguments);
    if (count > 1) return BeOther({arguments + 1, arguments + count});
    sProgram = std::filesystem::absolute(arguments[0]).string();
    const PrivateStore store;
    PrivateBus bus(store.Folder());
    bus.MakeSessionBus();
    sBus = &bus;
    const PrivateBus systemBus(store.Folder(), "system-bus");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", systemBus.Address().c_str(), 1);
    return RUN_ALL_TESTS();
}
