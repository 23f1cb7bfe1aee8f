#include "orlo/DoctorCommand.h"

#include <gio/gio.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "images/Complaint.h"
#include "images/CurrentMatching.h"
#include "images/FineCurves.h"
#include "orlo/CalibrationDocument.h"
#include "orlo/DisplayChoice.h"
#include "orlo/DisplayState.h"
#include "orlo/ProfileFacts.h"
#include "orlo/Ramps.h"
#include "orlo/StoredSettings.h"

namespace {

/// A note is nothing to mend: it is said as it may be a surprise.
enum class State { Good, Note, Wrong };

struct Finding {
    std::string about;
    State state;
    std::string found;
    std::string right = {};  // what to do
};
using Findings = std::vector<Finding>;

const char* KeyOf(State state) {
    return state == State::Good ? "good" : state == State::Note ? "note" : "wrong";
}

Finding Wrong(const std::string& about, const Complaint& complaint) {
    return {about, State::Wrong, complaint.wrong, complaint.right};
}

/// The judge, for those who need the library's resources; null where they are not there.
std::unique_ptr<FitnessJudge> LookAtLibrary(Findings& findings) {
    const auto version = static_cast<uint32_t>(CMSGetVersion());
    const std::string text = std::to_string(version >> 16) + "." + std::to_string(version >> 8 & 255) + "." + std::to_string(version & 255);
    if (text == ORLO_VERSION) {
        findings.push_back({"library", State::Good, "version " + text});
    } else {
        findings.push_back({"library", State::Wrong, "it has version " + text + ", and orlo " ORLO_VERSION, "install both from one package"});
    }
    try {
        auto judge = std::make_unique<FitnessJudge>();
        findings.push_back({"resources", State::Good, "the reference profile is there"});
        return judge;
    } catch (const Complaint& complaint) {
        findings.push_back(Wrong("resources", {"", complaint.about + ": " + complaint.wrong, complaint.right}));
        return nullptr;
    }
}

void LookAtRamp(const KnownDisplay& display, const DisplayProfile& profile, const DocumentRamps& documents, Findings& findings) {
    const std::string about = "ramp of " + display.Name();
    try {
        const RampEntries loaded = ReadRamp(display);
        const WantedRamp found = RampFound(display, profile, documents, loaded);
        const WantedRamp wanted = RampWantedFor(display, profile, documents, loaded[0].size());
        if (found.key == wanted.key) {
            findings.push_back({about, State::Good, found.words});
        } else {
            findings.push_back(
                {about, State::Wrong, "it is " + found.words + " and should be " + wanted.words, "orlo displays keep --once puts it right"});
        }
    } catch (const Complaint& complaint) {
        findings.push_back({about, State::Note, complaint.wrong});
    }
}

void LookAtDisplays(Findings& findings) {
    std::vector<KnownDisplay> displays;
    try {
        displays = ActiveDisplays();
    } catch (const Complaint& complaint) {
        const char* const server = std::getenv("DISPLAY");
        const bool isLost = server && *server && StateOfDisplayServer() != ServerState::Answers;
        findings.push_back({"display server", isLost ? State::Wrong : State::Note, complaint.wrong, isLost ? complaint.right : ""});
        return;
    }
    findings.push_back({"display server", State::Good, std::to_string(displays.size()) + (displays.size() == 1 ? " display" : " displays")});
    const UsersDocument document = ReadUsersDocument(displays);
    if (!document.wrong.empty()) {
        findings.push_back({"calibration document", State::Wrong, document.wrong, "orlo calibration save writes a new one"});
    }
    for (const KnownDisplay& display : displays) {
        const DisplayProfile profile = ProfileOfDisplay(display);
        const std::string about = "profile of " + display.Name();
        const Owned<ColorSyncProfileRef> opened(profile.bytes ? ColorSyncProfileCreate(profile.bytes.Get(), nullptr) : nullptr);
        if (opened) {
            findings.push_back({about, State::Good, profile.name + ", by " + SourceInWords(profile.source)});
        } else {
            findings.push_back({about, State::Wrong,
                                profile.bytes             ? "it is damaged"
                                : profile.missing.empty() ? "it has none"
                                                          : profile.MissingWords(),
                                "orlo displays assign PROFILE --display " + display.Name() + " gives it one"});
        }
        LookAtRamp(display, profile, document.ramps, findings);
    }
}

struct Unreference {
    void operator()(gpointer object) const { g_object_unref(object); }
};
using Bus = std::unique_ptr<GDBusConnection, Unreference>;

constexpr int kPatience = 2000;  // milliseconds, for a bus or a service that does not answer

/// The bus at the address, if it answers in time.
Bus Connect(const std::string& address) {
    struct Attempt {
        GMainLoop* loop;
        GDBusConnection* bus = nullptr;
    } attempt{g_main_loop_new(nullptr, FALSE)};
    GCancellable* const cancel = g_cancellable_new();
    const guint timer = g_timeout_add(
        kPatience,
        [](gpointer cancellable) -> gboolean {
            g_cancellable_cancel(static_cast<GCancellable*>(cancellable));
            return G_SOURCE_CONTINUE;
        },
        cancel);
    g_dbus_connection_new_for_address(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION), nullptr,
        cancel,
        [](GObject*, GAsyncResult* result, gpointer data) {
            auto* const done = static_cast<Attempt*>(data);
            done->bus = g_dbus_connection_new_for_address_finish(result, nullptr);
            g_main_loop_quit(done->loop);
        },
        &attempt);
    g_main_loop_run(attempt.loop);
    g_source_remove(timer);
    g_object_unref(cancel);
    g_main_loop_unref(attempt.loop);
    return Bus(attempt.bus);
}

void LookAtSessionBus(Findings& findings) {
    // The library looks nowhere else.
    const char* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address || !*address) {
        findings.push_back({"session bus", State::Note, "there is none; open sessions follow the settings' file instead"});
    } else if (Connect(address)) {
        findings.push_back({"session bus", State::Good, "it answers"});
    } else {
        findings.push_back({"session bus", State::Wrong, std::string("it does not answer at ") + address,
                            "log in again, or unset DBUS_SESSION_BUS_ADDRESS where it names no bus"});
    }
}

/// Whether somebody has the name on the bus, or would be started for it.
bool IsServed(GDBusConnection* bus, const std::string& name) {
    for (const char* list : {"ListNames", "ListActivatableNames"}) {
        GVariant* const answer = g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", list,
                                                             nullptr, G_VARIANT_TYPE("(as)"), G_DBUS_CALL_FLAGS_NONE, kPatience, nullptr, nullptr);
        if (!answer) continue;
        GVariantIter* names = nullptr;
        const char* each = nullptr;
        bool isThere = false;
        g_variant_get(answer, "(as)", &names);
        while (g_variant_iter_next(names, "&s", &each)) isThere |= name == each;
        g_variant_iter_free(names);
        g_variant_unref(answer);
        if (isThere) return true;
    }
    return false;
}

void LookAtColourManager(Findings& findings) {
    char* const address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    const Bus bus = address ? Connect(address) : nullptr;
    g_free(address);
    if (bus && IsServed(bus.get(), "org.freedesktop.ColorManager")) {
        findings.push_back({"colour manager", State::Good, "colord is there"});
    } else {
        findings.push_back(
            {"colour manager", State::Note,
             std::string(bus ? "colord is not installed" : "there is no system bus") + "; profiles of displays are kept by properties"});
    }
}

void LookAtStore(Findings& findings) {
    const std::filesystem::path folder = std::filesystem::path(g_get_user_config_dir()) / "com.brenwick.orlocms";
    std::error_code error;
    // What is not there yet is made below the nearest folder that is.
    std::filesystem::path nearest = folder;
    while (!std::filesystem::exists(nearest, error) && nearest.has_relative_path()) nearest = nearest.parent_path();
    if (std::filesystem::is_directory(nearest, error) && access(nearest.c_str(), W_OK | X_OK) == 0) {
        findings.push_back({"settings", State::Good, folder.string() + " can be written"});
    } else {
        findings.push_back({"settings", State::Wrong, nearest.string() + " cannot be written", "make it a folder of yours that can be written"});
    }
    std::string stores;
    std::vector<std::filesystem::path> damaged;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        const std::filesystem::path& file = entry->path();
        if (file.filename().string().find(".damaged-") != std::string::npos) damaged.push_back(file);
        if (file.extension() == ".plist") stores += (stores.empty() ? "" : " or ") + file.string();
    }
    std::ranges::sort(damaged);
    for (const std::filesystem::path& file : damaged)
        findings.push_back({"settings", State::Wrong, "a damaged file was set aside as " + file.string(), "set again what it held, and remove it"});
    if (!stores.empty() && !CFPreferencesSynchronize(CFSTR("com.brenwick.orlocms"), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost)) {
        findings.push_back({"settings", State::Wrong, stores + " cannot be read or is damaged, so that nothing counts as stored",
                            "restore it from a copy, or set again what it held: the next change sets it aside"});
    }
}

void LookAtStoredProfile(Device device, const StoredProfile& stored, const FitnessJudge* judge, Findings& findings) {
    const std::string name = NameOf(device), about = "stored " + name, setting = name + "-profile";
    if (!stored.isStored) {
        if (device != Device::Proofer)
            findings.push_back({about, State::Note, "none is stored; orlo settings set " + setting + "=PROFILE stores one"});
        return;
    }
    const std::string another = "orlo settings set " + setting + "=PROFILE stores another one";
    if (stored.path.empty()) {
        findings.push_back({about, State::Wrong, "its file cannot be found", another});
        return;
    }
    if (!judge) return;
    if (const std::optional<Complaint> against = judge->Against(stored.path, device)) {
        findings.push_back({about, State::Wrong, stored.path + ": " + SentenceOf(*against), another});
        return;
    }
    findings.push_back({about, State::Good, stored.path});
    if (device != Device::Monitor) return;
    const ChosenProfile monitor = OpenProfile(stored.path, "a monitor profile is needed");
    const double error = ErrorOfPlainCurves(monitor.profile.Get());
    if (error >= kCoarseCurves) {
        findings.push_back({"tone curves", State::Wrong,
                            "they are coarse, and hosts are off by " + std::to_string(std::lround(error)) + " of 65535 on average",
                            "orlo settings set --refine monitor-profile=PROFILE stores a fine copy"});
    }
    if (!IsUnadjusted(ReadStoredConditions().intent)) return;
    try {
        RequireLuminance(monitor);
    } catch (const Complaint& complaint) {
        findings.push_back(Wrong("intent", complaint));
    }
}

void Examine(const Showing& showing) {
    Findings findings;
    const std::unique_ptr<FitnessJudge> judge = LookAtLibrary(findings);
    LookAtDisplays(findings);
    LookAtSessionBus(findings);
    LookAtColourManager(findings);
    LookAtStore(findings);
    const StoredProfiles stored = ReadStoredProfiles();
    LookAtStoredProfile(Device::Monitor, stored.monitor, judge.get(), findings);
    LookAtStoredProfile(Device::Printer, stored.printer, judge.get(), findings);
    LookAtStoredProfile(Device::Proofer, stored.proofer, judge.get(), findings);

    Json rows = Json::array();
    std::string lines;
    for (const Finding& finding : findings) {
        rows.push_back({{"about", finding.about},
                        {"state", KeyOf(finding.state)},
                        {"found", finding.found},
                        {"right", finding.right.empty() ? Json(nullptr) : Json(finding.right)}});
        std::string state = KeyOf(finding.state), about = finding.about;
        state.resize(7, ' ');
        about.resize(std::max<std::size_t>(about.size() + 2, 18), ' ');
        lines += state + about + OneLine(finding.found) + "\n";
        if (!finding.right.empty()) lines += std::string(7, ' ') + "what to do: " + OneLine(finding.right) + "\n";
    }
    const auto wrong = std::ranges::count(findings, State::Wrong, &Finding::state);
    showing.Show({{"findings", rows}, {"well", wrong == 0}}, lines);
    if (wrong == 0) return;
    throw Complaint{"doctor", wrong == 1 ? "one thing is wrong" : std::to_string(wrong) + " things are wrong", "what to do is said beside each",
                    Exit::Failed};
}

}  // namespace

std::vector<Command> DoctorCommands() {
    return {{.name = "doctor",
             .about = "looks at all that colours depend on here, and tells what is wrong and what to do",
             .details = "The library and its resources, the display server, the displays with their profiles and ramps, the session bus, the colour "
                        "manager, the settings' store, and the stored profiles. The exit status is 1 when something is wrong.",
             .json = "{\"findings\": [{\"about\", \"state\": \"good\"|\"note\"|\"wrong\", \"found\": TEXT, \"right\": TEXT|null}, ...], \"well\"}",
             .examples = {},
             .run = Examine}};
}
