#include "orlo/WatchCommand.h"

#include <glib-unix.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"
#include "orlo/StoredSettings.h"

namespace {

/// What the watch knows of the settings and of the session's data; its callbacks come on the main thread.
class Watch {
public:
    explicit Watch(bool json) : json_(json), loop_(g_main_loop_new(nullptr, FALSE)), settings_(ReadSettings()) {}
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch() {
        CMSSetChangeNotificationProc(nullptr, nullptr);
        CloseMatching();
        Keep(nullptr);
        g_main_loop_unref(loop_);
    }

    void Run() {
        // From now on an interrupt ends the loop, also one that comes before it runs.
        for (const int number : {SIGINT, SIGTERM}) g_unix_signal_add(number, Stop, loop_);
        CMSSetChangeNotificationProc([](void* watch) { static_cast<Watch*>(watch)->TellChanges(); }, this);
        const OSErr status = OpenMatching(
            [](OSType, void* watch) {
                static_cast<Watch*>(watch)->TellRebuild();
                return 0L;
            },
            this);
        if (status != 0) {
            throw Complaint{"watch", "changes cannot be heard of without a session bus and without a configuration folder",
                            "set XDG_CONFIG_HOME or HOME to a folder that can be written", Exit::NotThere};
        }
        Keep(GetMatchingData());
        Print({{"event", "watching"}, {"matching", data_ != nullptr}},
              data_ ? "watching" : "watching; no matching data, as profiles are missing or unfit");
        g_main_loop_run(loop_);
    }

private:
    static gboolean Stop(gpointer loop) {
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
        return G_SOURCE_REMOVE;
    }

    /// Holding on to the data, as another record could come to lie at the same address.
    void Keep(MatchingData* data) {
        if (data_) ReleaseMatchingData(data_);
        data_ = data;
    }

    void TellChanges() {
        const std::vector<Setting> now = ReadSettings();
        for (std::size_t i = 0; i < now.size(); ++i) {
            const SettingValue &from = settings_[i].value, &to = now[i].value;
            if (from == to) continue;
            Print({{"event", "change"}, {"setting", now[i].name}, {"from", from.ToJson()}, {"to", to.ToJson()}},
                  "change   " + std::string(now[i].name) + ": " + from.Line() + " -> " + to.Line());
        }
        settings_ = now;
    }

    void TellRebuild() {
        MatchingData* const data = GetMatchingData();
        const bool isNew = data != data_;
        Keep(data);
        Print({{"event", "rebuild"}, {"new", isNew}}, isNew ? "rebuild" : "rebuild  nothing new, as no printer profile is chosen");
    }

    void Print(const Json& event, const std::string& line) {
        GDateTime* const now = g_date_time_new_now_utc();
        char* const time = g_date_time_format(now, "%Y-%m-%dT%H:%M:%S.%fZ");
        Json object = {{"time", time}};
        object.update(event);
        std::printf("%s\n", json_ ? LineOf(object).c_str() : (time + ("  " + line)).c_str());
        g_free(time);
        g_date_time_unref(now);
        // Whoever reads a pipe sees each line at once; when nobody reads any more, there is nobody to watch for.
        if (std::fflush(stdout) != 0) g_main_loop_quit(loop_);
    }

    bool json_;
    GMainLoop* loop_;
    std::vector<Setting> settings_;
    MatchingData* data_ = nullptr;
};

}  // namespace

std::vector<Command> WatchCommands() {
    return {{.name = "watch",
             .about = "tells each change of the settings and each rebuild of an open session as it happens",
             .details = "It ends by an interrupt.",
             .json = "each line {\"time\": TIME, \"event\": EVENT, ...}, where EVENT is\n"
                     "\"watching\", with \"matching\": whether there is matching data\n"
                     "\"change\", with \"setting\", \"from\", \"to\"\n"
                     "\"rebuild\", with \"new\": false when the old data stays",
             .run = [](const Showing& showing) {
                 CMSControlInit();
                 Watch(showing.json).Run();
             }}};
}
