#include "orlo/DisplayKeeper.h"

#include <glib-unix.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "images/Complaint.h"
#include "orlo/CalibrationDocument.h"
#include "orlo/DisplayChoice.h"
#include "orlo/DisplayState.h"
#include "orlo/Ramps.h"

namespace {

/// What is allowed: what others do not stop changing is left to them.
struct Allowed {
    bool ramp = true, profile = true;
};

/// What was done for a display.
struct Kept {
    KnownDisplay display;
    WantedRamp wanted = {};
    bool isLoaded = false;     // the ramp was another one
    bool isInstalled = false;  // the profile was not where it should be
    DisplayProfile profile = {};
};

/// Throws Complaint where the display's ramp can neither be read nor loaded.
Kept PutInPlace(const KnownDisplay& display, const DocumentRamps& documents, Allowed allowed = {}) {
    Kept kept{.display = display};
    kept.isInstalled = allowed.profile && MC_InstallProfileForDisplay(display.number) == 1;
    kept.profile = ProfileOfDisplay(display);
    const RampEntries loaded = ReadRamp(display);
    kept.wanted = RampWantedFor(display, kept.profile, documents, loaded[0].size());
    kept.isLoaded = allowed.ramp && Compare(loaded, kept.wanted.ramp).largest > 0;
    if (kept.isLoaded) LoadRamp(display, kept.wanted.ramp);
    return kept;
}

std::string RampLine(const Kept& kept) {
    return kept.display.Name() + ": its ramp is " + kept.wanted.words + (kept.isLoaded ? " again" : "");
}

std::string ProfileLine(const Kept& kept) {
    if (kept.profile.name.empty()) return kept.display.Name() + ": applications find no other display's profile for it";
    return kept.display.Name() + ": applications find its profile " + OneLine(kept.profile.name) + " again";
}

/// The displays, and what the user's document says of them.
struct Surroundings {
    std::vector<KnownDisplay> displays;
    UsersDocument document;

    /// Without a display there are none; without ramps it throws Complaint.
    static Surroundings Look() {
        Surroundings found;
        if (StateOfDisplayServer() != ServerState::Answers || MC_NumDisplays() > 0) found.displays = ActiveDisplays();
        found.document = ReadUsersDocument(found.displays);
        return found;
    }
};

class Keeper {
public:
    explicit Keeper(bool json) : json_(json), loop_(g_main_loop_new(nullptr, FALSE)) {}
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;
    ~Keeper() {
        CGDisplayRemoveReconfigurationCallback(DisplaysChanged, this);
        CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), this);
        for (const guint source : {rest_, round_}) {
            if (source != 0) g_source_remove(source);
        }
        g_main_loop_unref(loop_);
    }

    void Run() {
        // From now on an interrupt ends the loop, also one that comes before it runs.
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) g_unix_signal_add(number, Stop, loop_);
        // It goes on when nobody reads its lines any more.
        signal(SIGPIPE, SIG_IGN);
        // Where there can be no ramps it ends here. A server that is only held up, as at a login, is waited for.
        if (StateOfDisplayServer() != ServerState::Silent) Surroundings::Look();
        CGDisplayRegisterReconfigurationCallback(DisplaysChanged, this);
        for (const char* const name : {"CMDeviceStateNotification", "CMDeviceProfilesNotification"}) {
            const Owned<CFStringRef> text(CFStringCreateWithCString(kCFAllocatorDefault, name, kCFStringEncodingUTF8));
            CFNotificationCenterAddObserver(
                CFNotificationCenterGetDistributedCenter(), this,
                [](CFNotificationCenterRef, void* keeper, CFStringRef, const void*, CFDictionaryRef) { static_cast<Keeper*>(keeper)->LookSoon(); },
                text.Get(), nullptr, CFNotificationSuspensionBehaviorDeliverImmediately);
        }
        Print({{"display", nullptr}, {"event", "keeping"}}, "keeping");
        LookAtAll();
        // The server says nothing when another program loads a ramp, nor does anybody of the document.
        round_ = g_timeout_add(kRound, GoRound, this);
        g_main_loop_run(loop_);
    }

private:
    /// Milliseconds between looks at the ramps, and from a change until what belongs to it has come too.
    static constexpr guint kRound = 10000, kRest = 300;
    /// So often a ramp that others change is put back before it is left alone.
    static constexpr int kMostTimes = 3;

    struct Watched {
        KnownDisplay display;
        RampEntries loaded;
        // How often others changed its ramp and its profile's place since the display last changed.
        int times = 0, profileTimes = 0;
        std::string missing = {};  // profile, of which was told
    };

    static gboolean Stop(gpointer loop) {
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
        return G_SOURCE_REMOVE;
    }
    static void DisplaysChanged(CGDirectDisplayID, CGDisplayChangeSummaryFlags, void* keeper) { static_cast<Keeper*>(keeper)->LookSoon(); }

    /// Plugging in brings many changes, one after the other.
    void LookSoon() {
        if (!IsServerThere() || rest_ != 0) return;
        rest_ = g_timeout_add(
            kRest,
            [](gpointer keeper) -> gboolean {
                static_cast<Keeper*>(keeper)->rest_ = 0;
                static_cast<Keeper*>(keeper)->LookAtAll();
                return G_SOURCE_REMOVE;
            },
            this);
    }

    /// Ends the loop when the server is gone. One that is only silent, as while it is held up, is told of, and asked again in every round.
    bool IsServerThere() {
        const ServerState state = StateOfDisplayServer();
        if (state == ServerState::Gone) g_main_loop_quit(loop_);
        if (state == ServerState::Silent && !isSilent_)
            Print({{"display", nullptr}, {"event", "silent"}}, "the X server does not answer; it is waited for");
        if (state == ServerState::Answers && isSilent_) Print({{"display", nullptr}, {"event", "answers"}}, "the X server answers again");
        isSilent_ = state == ServerState::Silent;
        return state == ServerState::Answers;
    }

    void LookAtAll() {
        try {
            document_ = StateOfDocument();
            const Surroundings found = Surroundings::Look();
            if (found.document.wrong != wrong_ && !found.document.wrong.empty()) {
                Print({{"display", nullptr}, {"event", "document"}, {"wrong", found.document.wrong}}, found.document.FaultWords());
            }
            wrong_ = found.document.wrong;
            std::map<CGDirectDisplayID, Watched> watched;
            for (const KnownDisplay& display : found.displays) watched[display.number] = LookAt(display, found.document.ramps);
            watched_ = std::move(watched);
        } catch (const Complaint& complaint) {
            if (IsServerThere()) TellFault(complaint);
        }
    }

    Watched LookAt(const KnownDisplay& display, const DocumentRamps& documents) {
        Watched now{.display = display, .loaded = {}};
        const auto before = watched_.find(display.number);
        const bool isSame =
            before != watched_.end() && before->second.display.Width() == display.Width() && before->second.display.Height() == display.Height();
        if (isSame) {
            now.times = before->second.times;
            now.profileTimes = before->second.profileTimes;
        }
        if (before != watched_.end()) now.missing = before->second.missing;
        try {
            const Kept kept = PutInPlace(display, documents, {now.times <= kMostTimes, now.profileTimes <= kMostTimes});
            if (kept.profile.missing != now.missing && !kept.profile.missing.empty()) {
                Print({{"display", display.Name()}, {"event", "missing"}, {"profile", kept.profile.missing}},
                      display.Name() + ": " + kept.profile.MissingWords());
            }
            now.missing = kept.profile.missing;
            if (kept.isInstalled && ++now.profileTimes > kMostTimes) {
                Print({{"display", display.Name()}, {"event", "left-alone"}, {"profile", kept.profile.name}},
                      display.Name() + ": another program goes on changing where its profile stands; it is left alone until the display changes");
            } else if (kept.isInstalled) {
                Print({{"display", display.Name()}, {"event", "profile"}, {"profile", kept.profile.name}}, ProfileLine(kept));
            }
            if (kept.isLoaded) Print({{"display", display.Name()}, {"event", "ramp"}, {"ramp", kept.wanted.key}}, RampLine(kept));
            now.loaded = kept.isLoaded ? ReadRamp(display) : kept.wanted.ramp;
        } catch (const Complaint& complaint) {
            TellFault(complaint);
        }
        return now;
    }

    static gboolean GoRound(gpointer keeper) {
        static_cast<Keeper*>(keeper)->LookForStrangers();
        return G_SOURCE_CONTINUE;
    }

    void LookForStrangers() {
        const bool wasSilent = isSilent_;
        if (!IsServerThere()) return;
        if (wasSilent || StateOfDocument() != document_) return LookAtAll();
        for (auto& [number, watched] : watched_) {
            if (watched.loaded[0].empty() || watched.times > kMostTimes) continue;
            try {
                if (ReadRamp(watched.display) == watched.loaded) continue;
                PutBack(&watched);
            } catch (const Complaint&) {
                // It is being unplugged, or the server ends: that is told on its own.
            }
        }
    }

    void PutBack(Watched* watched) {
        const std::string name = watched->display.Name();
        if (++watched->times > kMostTimes) {
            Print({{"display", name}, {"event", "left-alone"}},
                  name + ": another program goes on changing its ramp; it is left alone until the display changes");
            return;
        }
        LoadRamp(watched->display, watched->loaded);
        // Told once, and once more when it is enough.
        if (watched->times == 1) Print({{"display", name}, {"event", "changed"}}, name + ": another program changed its ramp; it is put back");
    }

    /// Another one when somebody saves the document.
    static std::string StateOfDocument() {
        const auto place = PlaceOfUsersDocument(false);
        struct stat state {};
        if (!place || stat(place->shown.c_str(), &state) != 0) return {};
        return std::to_string(state.st_ino) + " " + std::to_string(state.st_mtim.tv_sec) + " " + std::to_string(state.st_mtim.tv_nsec) + " " +
               std::to_string(state.st_size);
    }

    void TellFault(const Complaint& complaint) {
        Print({{"display", nullptr}, {"event", "fault"}, {"about", complaint.about}, {"wrong", complaint.wrong}},
              complaint.about + ": " + complaint.wrong);
    }

    void Print(const Json& event, const std::string& line) {
        GDateTime* const now = g_date_time_new_now_utc();
        char* const time = g_date_time_format(now, "%Y-%m-%dT%H:%M:%S.%fZ");
        Json object = {{"time", time}};
        object.update(event);
        std::printf("%s\n", json_ ? LineOf(object).c_str() : (time + ("  " + OneLine(line))).c_str());
        g_free(time);
        g_date_time_unref(now);
        // What it does matters more than who reads of it.
        std::fflush(stdout);
    }

    bool json_;
    bool isSilent_ = false;
    GMainLoop* loop_;
    guint rest_ = 0, round_ = 0;
    std::map<CGDirectDisplayID, Watched> watched_;
    std::string document_, wrong_;
};

}  // namespace

void KeepOnce(const Showing& showing) {
    const Surroundings found = Surroundings::Look();
    Json rows = Json::array();
    std::string lines;
    for (const KnownDisplay& display : found.displays) {
        const Kept kept = PutInPlace(display, found.document.ramps);
        rows.push_back({{"display", display.Name()},
                        {"ramp", kept.wanted.key},
                        {"loaded", kept.isLoaded},
                        {"installed", kept.isInstalled},
                        {"missingProfile", kept.profile.Missing()}});
        if (!kept.profile.missing.empty()) lines += display.Name() + ": " + kept.profile.MissingWords() + "\n";
        lines += (kept.isInstalled ? ProfileLine(kept) + "\n" : "") + RampLine(kept) + "\n";
    }
    showing.Tell({{"displays", rows}, {"documentFault", found.document.Fault()}}, lines + found.document.FaultLine());
}

void Keep(const Showing& showing) {
    Keeper(showing.json).Run();
}
