// Notifications where there is no bus, where buses die, come back or never answer, and in children of fork.
//
// Each test has a process of its own, as a process has one notification centre. With arguments this program is another process, which does what they
// name.

#include <fcntl.h>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "session/ControlInterface.h"
#include "session/MatchingSession.h"
#include "settings/PreferenceStore.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/FakeBus.h"
#include "tests/fixtures/Notifications.h"
#include "tests/fixtures/OwnProcess.h"
#include "tests/fixtures/PrivateBus.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kSettings = "com.brenwick.orlocms";
const Words kHeardOnce = {"com.brenwick.orlocms/Change"};
// Longer than anybody should wait here, and far below the 25 seconds after which a call on a bus is given up by other clients.
constexpr gint64 kFreeze = gint64{5} * G_USEC_PER_SEC;

std::string sProgram;
std::optional<PrivateStore> sStore;

// ---- other processes ----

int RunOther(Words words) {
    words.insert(words.begin(), sProgram);
    return RunProgram(words);
}

/// A new value each time, so that there is always something to write.
int Set() {
    return CMSSetIllObs(std::to_string(g_get_monotonic_time()).c_str(), nullptr);
}

/// The same in another process.
void OtherSets() {
    EXPECT_EQ(RunOther({"set"}), 0);
}

/// Another process that listens; what it hears comes as lines.
class Listener {
public:
    explicit Listener(const std::string& name) {
        char* words[] = {sProgram.data(), const_cast<char*>("listen"), const_cast<char*>(name.c_str()), nullptr};
        g_spawn_async_with_pipes(nullptr, words, nullptr, G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr, &process_, nullptr, &lines_, nullptr, nullptr);
        EXPECT_TRUE(Says("listening"));
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        close(lines_);
    }

    /// Waits for such a line.
    bool Says(const std::string& line) {
        for (;;) {
            for (size_t end; (end = text_.find('\n')) != std::string::npos;) {
                const bool isIt = text_.compare(0, end, line) == 0;
                text_.erase(0, end + 1);
                if (isIt) return true;
            }
            char piece[256];
            pollfd descriptor = {lines_, POLLIN, 0};
            if (poll(&descriptor, 1, static_cast<int>(kPatience / 1000)) != 1) return false;
            const ssize_t count = read(lines_, piece, sizeof piece);
            if (count <= 0) return false;
            text_.append(piece, static_cast<size_t>(count));
        }
    }
    bool Hears(const std::string& what) { return Says(what); }

private:
    GPid process_ = 0;
    int lines_ = -1;
    std::string text_;
};

int BeOther(const Words& words) {
    if (words[0] == "set") return CMSControlInit() != 0 || Set() != 0;
    if (words[0] == "store") {
        StoreRaw(CFSTR("Observer"), Text(std::to_string(g_get_monotonic_time())).Get());
        SynchronisePreferences(false);
        return 0;
    }
    if (words[0] == "post") {
        Post(words[1], words[2]);
        return 0;
    }
    if (words[0] == "signal" || words[0] == "flood") {
        GDBusConnection* const bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        if (!bus) return 1;
        do {
            g_dbus_connection_emit_signal(bus, nullptr, "/org/freedesktop/ColorManager", "org.freedesktop.ColorManager", "DeviceChanged", nullptr,
                                          nullptr);
            g_dbus_connection_flush_sync(bus, nullptr, nullptr);
        } while (words[0] == "flood");
        return 0;
    }
    if (words[0] == "listen") {
        Observer observer(words[1].c_str(), nullptr);
        std::puts("listening");
        for (;;) {
            std::fflush(stdout);
            observer.heard.clear();
            TurnRunLoop(0.01);
            for (const std::string& heard : observer.heard) std::puts(heard.c_str());
        }
    }
    return 2;
}

// ---- without a bus ----

std::string ConfigFolder() {
    return sStore->Folder() / "config";
}

std::string SettingsFolder() {
    return ConfigFolder() + "/" + kSettings;
}

std::string SettingsFile() {
    for (const auto& entry : fs::directory_iterator(SettingsFolder())) {
        if (entry.path().extension() == ".plist") return entry.path().string();
    }
    return "(no file)";
}

void ExpectToHearOnce(Observer* observer) {
    EXPECT_TRUE(observer->WaitFor(1));
    TurnRunLoop(0.1);
    EXPECT_EQ(observer->heard, kHeardOnce);
}

/// Hears what this process and another one announce, each once.
void ExpectToHear(Observer* observer) {
    TurnRunLoop(0.05);
    for (const bool isOwn : {false, true}) {
        observer->heard.clear();
        if (isOwn) {
            EXPECT_EQ(Set(), 0);
        } else {
            OtherSets();
        }
        EXPECT_TRUE(observer->WaitFor(1)) << (isOwn ? "its own" : "another process's");
        TurnRunLoop(0.05);
        EXPECT_EQ(observer->heard, kHeardOnce);
    }
    observer->heard.clear();
}

void ReplaceByACopy(const std::string& folder) {
    fs::rename(folder, folder + ".old");
    fs::copy(folder + ".old", folder, fs::copy_options::recursive);
    fs::remove_all(folder + ".old");
}

struct Replacement {
    const char* what;
    void (*replace)();
};
const Replacement kReplacements[] = {
    {"the settings folder, by a copy", [] { ReplaceByACopy(SettingsFolder()); }},
    {"the folder above, by a copy", [] { ReplaceByACopy(ConfigFolder()); }},
    {"the settings folder, removed", [] { fs::remove_all(SettingsFolder()); }},
    {"the folder above, removed", [] { fs::remove_all(ConfigFolder()); }},
    {"the settings folder, by a link to where it is now",
     [] {
         fs::rename(SettingsFolder(), sStore->Folder() / "moved");
         fs::create_directory_symlink(sStore->Folder() / "moved", SettingsFolder());
     }},
    {"that link's target, by a copy", [] { ReplaceByACopy(sStore->Folder() / "moved"); }},
    {"the link, by one that leads elsewhere",
     [] {
         fs::copy(sStore->Folder() / "moved", sStore->Folder() / "elsewhere", fs::copy_options::recursive);
         fs::create_directory_symlink("../elsewhere", SettingsFolder() + ".new");
         fs::rename(SettingsFolder() + ".new", SettingsFolder());
     }},
};

TEST(WithoutABus, AReplacedFolderIsWatched) {
    Observer observer(kSettings, "Change");
    ExpectToHear(&observer);
    for (const Replacement& replacement : kReplacements) {
        SCOPED_TRACE(replacement.what);
        replacement.replace();
        ExpectToHear(&observer);
    }
}

TEST(WithoutABus, AFolderThatSomebodyHoldsOpenIsWatchedAfterItsReplacement) {
    Observer observer(kSettings, "Change");
    ExpectToHear(&observer);
    const int folder = open(SettingsFolder().c_str(), O_DIRECTORY | O_CLOEXEC);
    fs::remove_all(SettingsFolder());
    ExpectToHear(&observer);
    close(folder);
}

TEST(WithoutABus, ChangesFromAReplacementToTheNextTurnOfTheLoopAreHeard) {
    Observer observer(kSettings, "Change");
    ExpectToHear(&observer);
    ReplaceByACopy(SettingsFolder());
    OtherSets();
    EXPECT_TRUE(observer.WaitFor(1));
}

TEST(WithoutABus, AFileBehindALinkIsWatched) {
    Observer observer(kSettings, "Change");
    ExpectToHear(&observer);
    const std::string file = SettingsFile(), kept = sStore->Folder() / "kept", other = sStore->Folder() / "other";
    for (const std::string& folder : {kept, other}) fs::create_directory(folder);
    {
        SCOPED_TRACE("in another folder");
        fs::rename(file, kept + "/settings.plist");
        fs::create_symlink(kept + "/settings.plist", file);
        ExpectToHear(&observer);
    }
    {
        SCOPED_TRACE("that folder replaced");
        ReplaceByACopy(kept);
        ExpectToHear(&observer);
    }
    {
        SCOPED_TRACE("a link to a link");
        fs::rename(kept + "/settings.plist", other + "/end.plist");
        fs::create_symlink("../other/end.plist", kept + "/settings.plist");
        ExpectToHear(&observer);
    }
    {
        SCOPED_TRACE("a link to nothing yet");
        fs::remove(other + "/end.plist");
        ExpectToHear(&observer);
    }
}

TEST(WithoutABus, AFileBehindALinkIsWatchedFromTheStart) {
    OtherSets();
    const std::string file = SettingsFile(), kept = sStore->Folder() / "kept";
    fs::create_directory(kept);
    fs::rename(file, kept + "/settings.plist");
    fs::create_symlink(kept + "/settings.plist", file);
    Observer observer(kSettings, "Change");
    ExpectToHear(&observer);
}

void CountCall(void* count) {
    ++*static_cast<int*>(count);
}

TEST(WithoutABus, APublishedChangeCallsTheProcedureOnce) {
    int calls = 0;
    ASSERT_EQ(CMSSetChangeNotificationProc(CountCall, &calls), 0);
    for (int change = 1; change <= 5; ++change) {
        // One of its own, and one of another process.
        if (change % 2) {
            Set();
        } else {
            OtherSets();
        }
        TurnUntil([&] { return calls >= change; });
        TurnRunLoop(0.05);
        EXPECT_EQ(calls, change);
    }
}

TEST(WithoutABus, AChangeThatIsStoredOnlyCallsNobody) {
    int calls = 0;
    ASSERT_EQ(CMSSetChangeNotificationProc(CountCall, &calls), 0);
    // The first one makes the file.
    for (int change = 0; change < 3; ++change) {
        StoreRaw(CFSTR("Illuminant"), Text(std::to_string(change)).Get());
        SynchronisePreferences(false);
        EXPECT_EQ(RunOther({"store"}), 0);
        TurnRunLoop(0.1);
        EXPECT_EQ(calls, 0) << change;
    }
}

TEST(WithoutABus, AChangeByAnotherProgramIsHeard) {
    OtherSets();
    const std::string file = SettingsFile();
    const std::vector<std::uint8_t> bytes = ReadFile(file);
    const auto write = [&bytes](const std::string& path) {
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    };
    Observer observer(kSettings, "Change");
    struct Row {
        const char* what;
        std::function<void()> change;
    };
    const Row rows[] = {
        {"written in its place", [&] { write(file); }},
        {"put in its place",
         [&] {
             write(file + ".edited");
             fs::rename(file + ".edited", file);
         }},
        {"moved there from another folder",
         [&] {
             write(ConfigFolder() + "/edited");
             fs::rename(ConfigFolder() + "/edited", file);
         }},
        {"touched", [&] { utimensat(AT_FDCWD, file.c_str(), nullptr, 0); }},
        {"replaced by a link",
         [&] {
             write(ConfigFolder() + "/linked");
             fs::create_symlink(ConfigFolder() + "/linked", file + ".link");
             fs::rename(file + ".link", file);
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        TurnRunLoop(0.05);
        observer.heard.clear();
        row.change();
        EXPECT_TRUE(observer.WaitFor(1));
        TurnRunLoop(0.05);
        EXPECT_EQ(observer.heard, kHeardOnce);
    }
}

// More than the system keeps for a process that does not read.
TEST(WithoutABus, AChangeAmongMoreEventsThanAreKeptIsHeard) {
    Observer observer(kSettings, "Change");
    ExpectToHear(&observer);
    int most = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
    ASSERT_GT(most, 0);
    for (int i = 0; i < most; ++i) {
        const std::string file = SettingsFolder() + "/other." + std::to_string(i % 2);
        close(open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        unlink(file.c_str());
    }
    OtherSets();
    EXPECT_TRUE(observer.WaitFor(1));
    ExpectToHear(&observer);
}

TEST(WithoutABus, UserInformationIsAnEmptyDictionary) {
    Observer observer(kSettings, "Change");
    Set();
    ASSERT_TRUE(observer.WaitFor(1));
    EXPECT_EQ(observer.entries[0], 0);
}

TEST(WithoutABus, ASessionMakesNoFolderButThatOfTheSettings) {
    ASSERT_EQ(OpenMatching(nullptr, nullptr), 0);
    CloseMatching();
    Words names;
    for (const auto& entry : fs::directory_iterator(ConfigFolder())) names.push_back(entry.path().filename());
    EXPECT_EQ(names, Words{kSettings});
}

/// Opens a session where nothing can be had, and answers its status and the notice, as it comes where there is no screen.
std::string OpenInVain() {
    unsetenv("DISPLAY");
    const std::string notice = sStore->Folder() / ("notice." + std::to_string(getpid()));
    const int file = open(notice.c_str(), O_RDWR | O_CREAT | O_APPEND, 0600);
    dup2(file, STDERR_FILENO);
    const int status = OpenMatching(nullptr, nullptr);
    char text[500] = {};
    TurnUntil([&] { return status == 0 || (pread(file, text, sizeof text - 1, 0) > 0 && std::count(text, text + sizeof text, '\n') == 2); });
    return std::to_string(status) + "\n" + text;
}
constexpr const char* kInVain =
    "-1\nCan't use colour matching\n"
    "CFNotificationCenterGetDistributedCenter: failed\n";

TEST(WithoutABus, ASessionCannotBeOpenedWithoutAFolder) {
    const TemporaryFolder folder;
    std::ofstream(folder / "file") << "a file where the folder should be";
    struct Row {
        const char* what;
        std::string home;
        std::string config;
    };
    const Row rows[] = {
        {"a home below a file", folder / "file/home", ""},
        {"a home that is a file", folder / "file", ""},
        {"a home that is no absolute path", "home", ""},
        {"no home", "", ""},
        {"a configuration folder below a file", folder / "home", folder / "file/config"},
        {"a home where nothing can be made", "/proc", ""},
    };
    for (const Row& row : rows) {
        setenv("HOME", row.home.c_str(), 1);
        setenv("XDG_CONFIG_HOME", row.config.c_str(), 1);
        EXPECT_EQ(InAChild(OpenInVain), kInVain) << row.what;
    }
    setenv("XDG_CONFIG_HOME", (folder / "good").c_str(), 1);
    EXPECT_EQ(InAChild(OpenInVain), "0\n");
}

TEST(WithoutABus, ASessionCannotBeOpenedWhereTheUserMayNotWrite) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    const TemporaryFolder folder;
    fs::permissions(folder / "", fs::perms(0755));
    fs::permissions(sStore->Folder() / "", fs::perms(0777));
    setenv("XDG_CONFIG_HOME", (folder / "").c_str(), 1);
    EXPECT_EQ(AsNobody(OpenInVain), kInVain);
    // A folder that stands there and may be read can be watched.
    fs::create_directory(folder / kSettings);
    EXPECT_EQ(AsNobody(OpenInVain), "0\n");
    fs::permissions(folder / kSettings, fs::perms(0700));
    EXPECT_EQ(AsNobody(OpenInVain), kInVain);
}

TEST(WithoutABus, ASessionCanBeOpenedOnAReadOnlyVolumeOnlyWhereTheFolderStands) {
    if (unshare(CLONE_NEWNS) != 0) GTEST_SKIP() << "no name space of its own can be had here";
    const TemporaryFolder folder;
    ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(mount("tmpfs", (folder / "").c_str(), "tmpfs", 0, nullptr), 0);
    const auto remount = [&folder](unsigned long flags) {
        EXPECT_EQ(mount("tmpfs", (folder / "").c_str(), "tmpfs", MS_REMOUNT | flags, nullptr), 0);
    };
    setenv("XDG_CONFIG_HOME", (folder / "").c_str(), 1);
    remount(MS_RDONLY);
    EXPECT_EQ(InAChild(OpenInVain), kInVain);
    remount(0);
    fs::create_directory(folder / kSettings);
    remount(MS_RDONLY);
    EXPECT_EQ(InAChild(OpenInVain), "0\n");
    umount((folder / "").c_str());
}

// ---- buses that die and come back ----

/// The session bus of this process and of those that it starts.
std::optional<PrivateBus> sBus;

void StartBus() {
    sBus.emplace(sStore->Folder());
    sBus->MakeSessionBus();
}

void EndBus() {
    sBus->End();
}

/// Whether the bus carries: only it carries such a name.
bool IsOnTheBus() {
    const std::string object = "asked." + std::to_string(g_get_monotonic_time());
    Observer observer("com.example.bus", object.c_str());
    EXPECT_EQ(RunOther({"post", "com.example.bus", object}), 0);
    TurnRunLoop(0.05);
    return !observer.heard.empty();
}

/// An observer that has heard a change on a bus that is new; nothing is left of it.
std::unique_ptr<Observer> ObserveOnABus() {
    StartBus();
    auto observer = std::make_unique<Observer>(kSettings, "Change");
    OtherSets();
    EXPECT_TRUE(observer->WaitFor(1));
    observer->heard.clear();
    return observer;
}

TEST(ABusThatDies, TheSettingsFileIsWatchedInstead) {
    const std::unique_ptr<Observer> observer = ObserveOnABus();
    EndBus();
    ExpectToHear(observer.get());
}

TEST(ABusThatDies, AChangeBeforeTheLoopTurnsIsHeardOnce) {
    const std::unique_ptr<Observer> observer = ObserveOnABus();
    EndBus();
    OtherSets();
    ExpectToHearOnce(observer.get());
}

TEST(ABusThatDies, AChangeBeforeTheLoopTurnsIsHeardWhenTheBusIsBack) {
    const std::unique_ptr<Observer> observer = ObserveOnABus();
    EndBus();
    OtherSets();
    StartBus();
    ExpectToHearOnce(observer.get());
}

TEST(ABusThatDies, AChangeThatTheWatchHasYetToTellIsHeardThoughAPostFindsTheBusAgain) {
    const std::unique_ptr<Observer> observer = ObserveOnABus();
    EndBus();
    TurnRunLoop(0.05);
    observer->heard.clear();
    OtherSets();
    StartBus();
    Post("com.example.posted", "Posted");
    ExpectToHearOnce(observer.get());
}

TEST(ABusThatDies, AChangeThatFindsTheBusAgainIsHeardOnce) {
    const std::unique_ptr<Observer> observer = ObserveOnABus();
    EndBus();
    TurnRunLoop(0.05);
    StartBus();
    observer->heard.clear();
    EXPECT_EQ(Set(), 0);
    ExpectToHearOnce(observer.get());
    EXPECT_TRUE(IsOnTheBus());
}

TEST(ABusThatDies, AChangeThatFindsItDeadAndTheNextOneThereIsHeardOnce) {
    const std::unique_ptr<Observer> observer = ObserveOnABus();
    // The file's time goes in steps that are longer than most posts.
    for (int round = 0; round < 5; ++round) {
        EndBus();
        StartBus();
        EXPECT_EQ(Set(), 0);
        ExpectToHearOnce(observer.get());
        EXPECT_TRUE(IsOnTheBus());
        observer->heard.clear();
    }
}

TEST(ABusThatDies, AChangeThatFindsItDeadIsHeardOnce) {
    const std::unique_ptr<Observer> observer = ObserveOnABus();
    EndBus();
    EXPECT_EQ(Set(), 0);
    ExpectToHearOnce(observer.get());
    ExpectToHear(observer.get());
}

TEST(ABusThatDies, ItsEndAloneTellsNothing) {
    const std::unique_ptr<Observer> observer = ObserveOnABus();
    for (int round = 0; round < 3; ++round) {
        EndBus();
        TurnRunLoop(0.1);
        StartBus();
        TurnRunLoop(0.1);
    }
    EXPECT_EQ(observer->heard, Words{});
}

TEST(ABusThatDies, IsTakenUpAgainWhenItIsBack) {
    StartBus();
    Observer observer(kSettings, "Change");
    ASSERT_TRUE(IsOnTheBus());
    for (int round = 0; round < 3; ++round) {
        EndBus();
        TurnRunLoop(0.2);
        EXPECT_FALSE(IsOnTheBus());
        StartBus();
        EXPECT_TRUE(TurnUntil(IsOnTheBus));
        ExpectToHear(&observer);
    }
}

TEST(ABusThatDies, AProcessOnTheNextBusHearsWhoHasNotTurnedItsLoopSince) {
    StartBus();
    Observer observer(kSettings, "Change");
    EndBus();
    StartBus();
    Listener listener(kSettings);
    EXPECT_EQ(Set(), 0);
    EXPECT_TRUE(listener.Hears(kHeardOnce[0]));
}

TEST(ABusThatDies, AProcessOnTheNextBusHearsWhoOnlyPosts) {
    StartBus();
    EXPECT_EQ(Set(), 0);
    EndBus();
    EXPECT_EQ(Set(), 0);
    StartBus();
    Listener listener(kSettings);
    EXPECT_EQ(Set(), 0);
    EXPECT_TRUE(listener.Hears(kHeardOnce[0]));
}

TEST(WithoutABus, ThoseOnABusAreHeard) {
    const PrivateBus bus(sStore->Folder());
    Observer observer(kSettings, "Change");
    EXPECT_EQ(RunProgram({"env", "DBUS_SESSION_BUS_ADDRESS=" + bus.Address(), sProgram, "set"}), 0);
    ExpectToHearOnce(&observer);
}

/// The sockets and watches that are open, by their numbers.
std::map<int, std::string> OpenConnections() {
    std::map<int, std::string> connections;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code isGone;
        const std::string what = fs::read_symlink(entry.path(), isGone).string();
        if (what.starts_with("socket:") || what.ends_with("inotify")) connections[std::stoi(entry.path().filename())] = what;
    }
    return connections;
}

// Such as a program has that was started without a word to this library.
TEST(ABusThatDies, ACopyOfItsConnectionElsewhereDoesNotKeepTheLoopBusy) {
    StartBus();
    Observer observer(kSettings, "Change");
    for (const auto& [number, what] : OpenConnections()) ASSERT_GE(dup(number), 0);
    EndBus();
    // Ends when nothing is left to do.
    TurnRunLoop(0.1);
    ExpectToHear(&observer);
}

/// The longest time between two turns of the main loop.
class LongestPause {
public:
    LongestPause() : source_(g_timeout_add(5, Tick, this)) {}
    LongestPause(const LongestPause&) = delete;
    LongestPause& operator=(const LongestPause&) = delete;
    ~LongestPause() { g_source_remove(source_); }
    gint64 Get() const { return std::max(longest_, g_get_monotonic_time() - last_); }

private:
    static gboolean Tick(gpointer self) {
        auto* const pause = static_cast<LongestPause*>(self);
        const gint64 now = g_get_monotonic_time();
        pause->longest_ = std::max(pause->longest_, now - pause->last_);
        pause->last_ = now;
        return G_SOURCE_CONTINUE;
    }

    gint64 last_ = g_get_monotonic_time();
    gint64 longest_ = 0;
    guint source_;
};

TEST(ABusThatDies, UnderAFloodOfDeviceSignalsTheLoopGoesOn) {
    StartBus();
    const PrivateBus systemBus(sStore->Folder(), "system-bus");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", systemBus.Address().c_str(), 1);
    Observer settings(kSettings, "Change"), devices("CMDeviceProfilesNotification", nullptr);
    const ServerProcess flood({sProgram, "flood"});
    ASSERT_TRUE(devices.WaitFor(100));
    const LongestPause pause;
    for (int round = 0; round < 5; ++round) {
        EndBus();
        StartBus();
        TurnRunLoop(0.1);
        const size_t before = devices.heard.size();
        EXPECT_TRUE(devices.WaitFor(before + 100));
    }
    EXPECT_TRUE(TurnUntil(IsOnTheBus));
    EXPECT_LT(pause.Get(), kFreeze);
}

TEST(ABusThatDies, WhileThreadsPostEveryPostReturnsAndTheNextAreHeard) {
    StartBus();
    Observer observer(kSettings, "Change");
    std::atomic<bool> isOver = false;
    std::atomic<gint64> longest = 0;
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            while (!isOver) {
                const gint64 start = g_get_monotonic_time();
                Post(kSettings, "Change");
                Post("com.example.load", "Posted");
                const gint64 time = g_get_monotonic_time() - start;
                for (gint64 known = longest; time > known && !longest.compare_exchange_weak(known, time);) {
                }
                g_usleep(500);
            }
        });
    }
    const LongestPause pause;
    for (int round = 0; round < 5; ++round) {
        TurnRunLoop(0.05);
        EndBus();
        TurnRunLoop(0.05);
        StartBus();
    }
    isOver = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_LT(longest, kFreeze);
    EXPECT_LT(pause.Get(), kFreeze);
    // On the bus, and what they posted is over.
    EXPECT_TRUE(TurnUntil(IsOnTheBus));
    ExpectToHear(&observer);
}

TEST(ABusThatIsHeldUp, TakesNoLongerThanPatienceLasts) {
    const std::unique_ptr<Observer> observer = ObserveOnABus();
    sBus->HoldUp();
    // More than its socket holds.
    const std::string object(50000, 'o');
    gint64 longest = 0;
    for (int post = 0; post < 50; ++post) {
        const gint64 start = g_get_monotonic_time();
        Post("com.example.held", object);
        longest = std::max(longest, g_get_monotonic_time() - start);
    }
    EXPECT_LT(longest, kFreeze);
    // The settings file carries meanwhile.
    observer->heard.clear();
    EXPECT_EQ(Set(), 0);
    EXPECT_TRUE(observer->WaitFor(1));
    sBus->GoOn();
    EXPECT_TRUE(TurnUntil(IsOnTheBus));
}

TEST(ASystemBusThatDies, IsFollowedAgainWhenItIsBack) {
    std::optional<PrivateBus> systemBus;
    systemBus.emplace(sStore->Folder(), "system-bus");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", systemBus->Address().c_str(), 1);
    Observer states("CMDeviceStateNotification", nullptr), profiles("CMDeviceProfilesNotification", nullptr);
    ASSERT_EQ(RunOther({"signal"}), 0);
    ASSERT_TRUE(profiles.WaitFor(1));
    EXPECT_EQ(states.heard, Words{});
    for (int round = 0; round < 2; ++round) {
        systemBus->End();
        TurnRunLoop(0.2);
        profiles.heard.clear();
        states.heard.clear();
        systemBus.emplace(sStore->Folder(), "system-bus");
        // What happened meanwhile nobody can tell: anything may have changed.
        ASSERT_TRUE(states.WaitFor(1));
        ASSERT_TRUE(profiles.WaitFor(1));
        ASSERT_EQ(RunOther({"signal"}), 0);
        ASSERT_TRUE(profiles.WaitFor(2));
        EXPECT_EQ(states.heard, Words{"CMDeviceStateNotification/"});
        EXPECT_EQ(profiles.heard, (Words{"CMDeviceProfilesNotification/", "CMDeviceProfilesNotification/"}));
    }
}

TEST(ASystemBusThatDies, IsFollowedWhenItComesLater) {
    const std::string path = sStore->Folder() / "system-bus";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
    Observer profiles("CMDeviceProfilesNotification", nullptr);
    TurnRunLoop(0.1);
    EXPECT_EQ(profiles.heard, Words{});
    const PrivateBus systemBus(sStore->Folder(), "system-bus");
    EXPECT_TRUE(profiles.WaitFor(1));
    ASSERT_EQ(RunOther({"signal"}), 0);
    EXPECT_TRUE(profiles.WaitFor(2));
}

// ---- buses that do not do their part ----

struct Failing {
    const char* what;
    const char* bytes;
    int callers;
};
const Failing kFailing[] = {
    {"accepts and never answers", "", 1000},
    {"lets no more callers in", "", 0},
    {"takes the user up and never answers a call", "DATA\r\nOK 0123456789abcdef0123456789abcdef\r\n", 1000},
    {"refuses the user", "REJECTED ANONYMOUS\r\n", 1000},
    {"speaks of something else", "HTTP/1.1 400 Bad Request\r\n\r\n", 1000},
    {"sends what is no message", "DATA\r\nOK 0123456789abcdef0123456789abcdef\r\nwhat is this then", 1000},
};

/// Both buses of this process, while the other processes have none.
void ExpectToWorkWithout(const Failing& failing) {
    const TemporaryFolder folder;
    const FakeBus session(folder / "session", failing.bytes, failing.callers), system(folder / "system", failing.bytes, failing.callers);
    // Those that do not get in fill the room before the door.
    std::vector<int> waiting;
    if (failing.callers == 0) {
        for (const FakeBus* const bus : {&session, &system}) waiting.push_back(bus->Call());
    }
    setenv("DBUS_SESSION_BUS_ADDRESS", session.Address().c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", system.Address().c_str(), 1);
    const gint64 start = g_get_monotonic_time();
    EXPECT_EQ(OpenMatching(nullptr, nullptr), 0);
    EXPECT_LT(g_get_monotonic_time() - start, 2 * G_USEC_PER_SEC);
    const LongestPause pause;
    Observer observer(kSettings, "Change");
    TurnRunLoop(0.3);
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
    OtherSets();
    setenv("DBUS_SESSION_BUS_ADDRESS", session.Address().c_str(), 1);
    EXPECT_TRUE(observer.WaitFor(1));
    observer.heard.clear();
    EXPECT_EQ(Set(), 0);
    EXPECT_TRUE(observer.WaitFor(1));
    TurnRunLoop(0.05);
    EXPECT_EQ(observer.heard, kHeardOnce);
    EXPECT_LT(pause.Get(), kFreeze);
    for (const int caller : waiting) close(caller);
}

TEST(ABusThatDoesNotDoItsPart, IsDoneWithout) {
    for (const Failing& failing : kFailing) {
        EXPECT_EQ(InAChild([&failing] {
                      ExpectToWorkWithout(failing);
                      return std::string(testing::Test::HasFailure() ? "failed" : "worked");
                  }),
                  "worked")
            << "a bus that " << failing.what;
    }
}

TEST(ABusThatDoesNotDoItsPart, GivesWayToOneThatDoes) {
    std::optional<FakeBus> fake(std::in_place, sStore->Folder() / "bus", "");
    setenv("DBUS_SESSION_BUS_ADDRESS", fake->Address().c_str(), 1);
    Observer observer(kSettings, "Change");
    TurnRunLoop(0.1);
    fake.reset();
    StartBus();
    EXPECT_TRUE(TurnUntil(IsOnTheBus));
    ExpectToHear(&observer);
}

TEST(ABusThatDoesNotDoItsPart, LeavesPublishersThatHaveNoFolderFree) {
    const FakeBus fake(sStore->Folder() / "bus", "");
    setenv("DBUS_SESSION_BUS_ADDRESS", fake.Address().c_str(), 1);
    setenv("HOME", "", 1);
    setenv("XDG_CONFIG_HOME", "", 1);
    const gint64 start = g_get_monotonic_time();
    EXPECT_EQ(CFNotificationCenterGetDistributedCenter(), nullptr);
    EXPECT_LT(g_get_monotonic_time() - start, 2 * G_USEC_PER_SEC);
}

// ---- fork ----

/// What a child did, in words; "(no answer)" when it hung.
template <typename Work>
std::string InAForkedChild(Work work) {
    return InAChild([&work] {
        alarm(30);
        return work();
    });
}

std::string PublishAsAChild() {
    return Set() == 0 ? "published" : "failed";
}

void ExpectAPublishingChildToBeHeard() {
    Observer observer(kSettings, "Change");
    EXPECT_EQ(Set(), 0);
    ASSERT_TRUE(observer.WaitFor(1));
    Listener listener(kSettings);
    for (int child = 0; child < 3; ++child) {
        TurnRunLoop(0.05);
        observer.heard.clear();
        EXPECT_EQ(InAForkedChild(PublishAsAChild), "published");
        EXPECT_TRUE(listener.Hears(kHeardOnce[0]));
        EXPECT_TRUE(observer.WaitFor(1));
        TurnRunLoop(0.05);
        EXPECT_EQ(observer.heard, kHeardOnce);
    }
    ExpectToHear(&observer);
}

TEST(AfterFork, APublishingChildIsHeardOnTheBus) {
    StartBus();
    ExpectAPublishingChildToBeHeard();
    EXPECT_TRUE(IsOnTheBus());
}

TEST(AfterFork, APublishingChildIsHeardWithoutABus) {
    ExpectAPublishingChildToBeHeard();
}

TEST(AfterFork, AChildOfAProcessThatNeverUsedItIsHeard) {
    StartBus();
    Listener listener(kSettings);
    EXPECT_EQ(InAForkedChild(PublishAsAChild), "published");
    EXPECT_TRUE(listener.Hears(kHeardOnce[0]));
}

/// The observers that the parent registered, served by the child's own carrier.
void ExpectAChildToBeServed() {
    Observer observer(kSettings, "Change");
    OtherSets();
    ASSERT_TRUE(observer.WaitFor(1));
    EXPECT_EQ(InAForkedChild([&observer] {
                  CFNotificationCenterGetDistributedCenter();
                  observer.heard.clear();
                  Set();
                  const bool hearsItself = observer.WaitFor(1);
                  OtherSets();
                  return std::string(hearsItself && observer.WaitFor(2) ? "heard" : "deaf");
              }),
              "heard");
    // The parent heard them too, each once.
    observer.heard.clear();
    ASSERT_TRUE(observer.WaitFor(1));
    ExpectToHear(&observer);
}

TEST(AfterFork, AChildIsServedOnABusOfItsOwn) {
    StartBus();
    ExpectAChildToBeServed();
}

TEST(AfterFork, AChildIsServedByAWatchOfItsOwn) {
    ExpectAChildToBeServed();
}

void ExpectAChildToHoldNone() {
    const std::map<int, std::string> before = OpenConnections();
    Observer observer(kSettings, "Change"), devices("CMDeviceStateNotification", nullptr);
    ASSERT_GT(OpenConnections().size(), before.size());
    EXPECT_EQ(InAForkedChild([&before] { return std::string(OpenConnections() == before ? "none" : "some"); }), "none");
}

TEST(AfterFork, AChildHoldsNoneOfItsParentsBuses) {
    StartBus();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", sBus->Address().c_str(), 1);
    ExpectAChildToHoldNone();
}

TEST(AfterFork, AChildHoldsNoneOfItsParentsWatches) {
    ExpectAChildToHoldNone();
}

TEST(AfterFork, AChildThatTurnsTheLoopTakesNothingFromItsParent) {
    for (const bool hasBus : {false, true}) {
        SCOPED_TRACE(hasBus ? "with a bus" : "without a bus");
        if (hasBus) {
            StartBus();
            EXPECT_TRUE(TurnUntil(IsOnTheBus));
        }
        Observer observer(kSettings, "Change");
        TurnRunLoop(0.05);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            if (write(ends[1], "!", 1) != 1) _exit(1);
            for (;;) TurnRunLoop(0.05);
        }
        char started;
        EXPECT_EQ(read(ends[0], &started, 1), 1);
        for (int change = 0; change < 20; ++change) {
            observer.heard.clear();
            OtherSets();
            EXPECT_TRUE(observer.WaitFor(1));
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        for (const int end : ends) close(end);
    }
}

void ExpectChildrenOfABusyParentToPublish() {
    Observer observer(kSettings, "Change");
    std::atomic<bool> isOver = false;
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&isOver] {
            while (!isOver) {
                Post(kSettings, "Change");
                Post("com.example.busy", "Posted");
                CFNotificationCenterGetDistributedCenter();
                g_usleep(100);
            }
        });
    }
    for (int child = 0; child < 50; ++child) {
        TurnRunLoop(0);
        EXPECT_EQ(InAForkedChild(PublishAsAChild), "published") << child;
    }
    isOver = true;
    for (std::thread& thread : threads) thread.join();
    // What they posted is over.
    Observer last("com.example.last", nullptr);
    Post("com.example.last", "Posted");
    EXPECT_TRUE(last.WaitFor(1));
    ExpectToHear(&observer);
}

TEST(AfterFork, ChildrenOfABusyParentPublishOnTheBus) {
    StartBus();
    ExpectChildrenOfABusyParentToPublish();
}

TEST(AfterFork, ChildrenOfABusyParentPublishWithoutABus) {
    ExpectChildrenOfABusyParentToPublish();
}

}  // namespace

int main(int count, char** arguments) {
    testing::InitGoogleTest(&count, arguments);
    if (count > 1) return BeOther({arguments + 1, arguments + count});
    sProgram = fs::absolute(arguments[0]).string();
    sStore.emplace();
    const int failed = RunEachInItsOwnProcess(sProgram, 120);
    sStore.reset();
    return failed;
}
