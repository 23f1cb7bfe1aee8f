#include "platform/linux/Displays/DisplayServer.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <xcb/xcbext.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <future>
#include <map>
#include <memory>
#include <thread>
#include <utility>

#include "platform/linux/Displays/DisplayMemory.h"
#include "platform/linux/Posix/Descriptor.h"

namespace platform {

namespace {

/// What a server is given for its first answers and for later ones; without them it counts as away. A window manager may have it to itself for a
/// while.
constexpr std::chrono::seconds kOpeningPatience(2), kPatience(5);

bool HasGammaRamps(xcb_connection_t* connection) {
    const xcb_query_extension_reply_t* const extension = xcb_get_extension_data(connection, &xcb_randr_id);
    if (!extension || !extension->present) return false;
    const Reply<xcb_randr_query_version_reply_t> version(
        xcb_randr_query_version_reply(connection, xcb_randr_query_version(connection, 1, 5), nullptr));
    return version && (version->major_version > 1 || version->minor_version >= 3);
}

/// Ends the connection of a process. The end of one that a child has inherited would be the parent's too: the child ends another file in its place.
void Disconnect(xcb_connection_t* connection, pid_t process) {
    if (!connection) return;
    if (process != getpid()) {
        const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
        if (nothing.Get() < 0 || dup3(nothing.Get(), xcb_get_file_descriptor(connection), O_CLOEXEC) < 0) return;
    }
    xcb_disconnect(connection);
}

/// A connection that is being made, on a thread of its own, as a server that accepts and says nothing keeps it for ever. What nobody waits for any
/// more ends with that thread.
class Opening {
public:
    static std::shared_ptr<Opening> Begin(const std::string& name) {
        auto opening = std::make_shared<Opening>();
        opening->name_ = name;
        // No signal is for this thread, nor the one of a server that has gone.
        sigset_t all, before;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before);
        try {
            std::thread([opening] { opening->Connect(); }).detach();
        } catch (const std::exception&) {
            opening->hasEnded_.set_value();
        }
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return opening;
    }
    Opening() = default;
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;
    ~Opening() { Disconnect(connection_, process_); }

    bool IsTo(const std::string& name) const { return name_ == name && process_ == getpid(); }
    bool HasEndedWithin(std::chrono::seconds time) const { return end_.wait_for(time) == std::future_status::ready; }
    /// After the end. Null when there is no such server, or one without gamma ramps.
    xcb_connection_t* Take(int* screen) {
        *screen = screen_;
        return std::exchange(connection_, nullptr);
    }

private:
    void Connect() {
        xcb_connection_t* const connection = xcb_connect(name_.c_str(), &screen_);
        if (!xcb_connection_has_error(connection) && HasGammaRamps(connection)) {
            connection_ = connection;
        } else {
            xcb_disconnect(connection);
        }
        hasEnded_.set_value();
    }

    const pid_t process_ = getpid();
    std::string name_;
    int screen_ = 0;
    xcb_connection_t* connection_ = nullptr;
    std::promise<void> hasEnded_;
    std::future<void> end_ = hasEnded_.get_future();
};

struct Server {
    xcb_connection_t* connection = nullptr;
    pid_t process = 0;  // whose connection it is
    const xcb_screen_t* screen = nullptr;
    std::string name;
    std::string silent;  // the name of one that has been waited for already
    std::shared_ptr<Opening> opening;
    unsigned number = 0;  // of connections so far
    bool isFollowed = false;
    bool hasChanged = false;
    std::vector<xcb_atom_t> profileAtoms;  // while it is followed

    ~Server() { Leave(); }
    void Leave() {
        if (connection) hasChanged = isFollowed;
        Disconnect(connection, process);
        connection = nullptr;
        screen = nullptr;
    }
};
Server sServer;

void SelectEvents();

/// Whether the connection of that number is still the one that stands: what belonged to another is freed.
bool IsSameConnection(unsigned number) {
    return sServer.connection && sServer.number == number;
}

void Join(const std::string& name) {
    // One that said nothing so far is not waited for again; it is taken up when it has answered.
    const bool isNew = !sServer.opening || !sServer.opening->IsTo(name);
    if (isNew) sServer.opening = Opening::Begin(name);
    if (!sServer.opening->HasEndedWithin(isNew && sServer.silent != name ? kOpeningPatience : std::chrono::seconds(0))) return;
    sServer.silent.clear();
    int number = 0;
    sServer.connection = std::exchange(sServer.opening, nullptr)->Take(&number);
    if (!sServer.connection) return;
    sServer.name = name;
    ++sServer.number;
    sServer.process = getpid();
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(sServer.connection));
    for (; number > 0 && screens.rem > 1; --number) xcb_screen_next(&screens);
    sServer.screen = screens.data;
    if (sServer.isFollowed) SelectEvents();
}

/// Reads what the server sent. Its events matter only as a sign that something changed.
void ReadFromServer(xcb_connection_t* connection) {
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection)}) {
        if (!sServer.isFollowed) continue;
        const uint8_t type = event->response_type & 0x7F;
        const uint8_t randr = xcb_get_extension_data(connection, &xcb_randr_id)->first_event;
        if (type == XCB_PROPERTY_NOTIFY) {
            const xcb_atom_t atom = reinterpret_cast<const xcb_property_notify_event_t*>(event.get())->atom;
            const auto& known = sServer.profileAtoms;
            if (std::find(known.begin(), known.end(), atom) != known.end()) sServer.hasChanged = true;
        } else if (type == randr + XCB_RANDR_SCREEN_CHANGE_NOTIFY || type == randr + XCB_RANDR_NOTIFY) {
            sServer.hasChanged = true;
        }
    }
}

/// The connection stands where there is one: of a server that has ended since, it only answers nothing.
xcb_atom_t Atom(const std::string& name) {
    xcb_connection_t* const connection = DisplayConnection();
    if (!connection) return XCB_ATOM_NONE;
    const auto atom = Answer<xcb_intern_atom_reply_t>(xcb_intern_atom(connection, 0, static_cast<uint16_t>(name.size()), name.data()));
    return atom ? atom->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

constexpr const char* kProfileProperty = "_ICC_PROFILE";
constexpr uint32_t kMostWords = 1 << 22;
/// Beside a profile, for which display it was written: its identifier and the digest of the profile. An output and a number of the root window keep
/// what they have when another display comes into their place.
constexpr const char* kMarkPrefix = "_ORLO";

std::string WindowPropertyName(unsigned screen) {
    return screen == 0 ? kProfileProperty : kProfileProperty + ("_" + std::to_string(screen));
}

void SelectEvents() {
    const QuietPipe quiet;
    xcb_connection_t* const connection = sServer.connection;
    const xcb_window_t root = sServer.screen->root;
    const bool isWanted = sServer.isFollowed;
    xcb_randr_select_input(connection, root,
                           isWanted ? XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE | XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE |
                                          XCB_RANDR_NOTIFY_MASK_OUTPUT_PROPERTY
                                    : 0);
    const uint32_t events = isWanted ? XCB_EVENT_MASK_PROPERTY_CHANGE : XCB_EVENT_MASK_NO_EVENT;
    xcb_change_window_attributes(connection, root, XCB_CW_EVENT_MASK, &events);
    sServer.profileAtoms.clear();
    constexpr unsigned kMostScreens = 32;
    const unsigned number = sServer.number;
    for (unsigned screen = 0; isWanted && screen < kMostScreens && IsSameConnection(number); ++screen) {
        sServer.profileAtoms.push_back(Atom(WindowPropertyName(screen)));
    }
    if (IsSameConnection(number)) xcb_flush(connection);
}

/// The request itself takes a few words of the largest one that the server reads.
bool FitsRequest(xcb_connection_t* connection, const Bytes& profile) {
    return profile.size() / 4 + 16 <= xcb_get_maximum_request_length(connection);
}

Bytes ReadOutputProperty(xcb_randr_output_t output, const std::string& name) {
    const QuietPipe quiet;
    const xcb_atom_t atom = Atom(name);
    if (atom == XCB_ATOM_NONE) return {};
    const auto property = Answer<xcb_randr_get_output_property_reply_t>(
        xcb_randr_get_output_property(sServer.connection, output, atom, XCB_ATOM_ANY, 0, kMostWords, 0, 0));
    if (!property || property->format != 8) return {};
    const uint8_t* const bytes = xcb_randr_get_output_property_data(property.get());
    return Bytes(bytes, bytes + property->num_items);
}

Bytes ReadRootProperty(const std::string& name) {
    const QuietPipe quiet;
    const xcb_atom_t atom = Atom(name);
    if (atom == XCB_ATOM_NONE) return {};
    const auto property =
        Answer<xcb_get_property_reply_t>(xcb_get_property(sServer.connection, 0, sServer.screen->root, atom, XCB_ATOM_ANY, 0, kMostWords));
    if (!property || property->format != 8) return {};
    const auto* const bytes = static_cast<const uint8_t*>(xcb_get_property_value(property.get()));
    return Bytes(bytes, bytes + xcb_get_property_value_length(property.get()));
}

bool WriteRootProperty(const std::string& name, const Bytes& value) {
    const QuietPipe quiet;
    const xcb_atom_t atom = Atom(name);
    if (atom == XCB_ATOM_NONE) return false;
    xcb_connection_t* const connection = sServer.connection;
    if (value.empty()) return IsDone(xcb_delete_property_checked(connection, sServer.screen->root, atom));
    return FitsRequest(connection, value) &&
           IsDone(xcb_change_property_checked(connection, XCB_PROP_MODE_REPLACE, sServer.screen->root, atom, XCB_ATOM_CARDINAL, 8,
                                              static_cast<uint32_t>(value.size()), value.data()));
}

bool WriteOutputProperty(xcb_randr_output_t output, const std::string& name, const Bytes& value) {
    const QuietPipe quiet;
    const xcb_atom_t atom = Atom(name);
    if (atom == XCB_ATOM_NONE) return false;
    // The server refuses to remove what is not there.
    if (value.empty()) {
        if (ReadOutputProperty(output, name).empty()) return sServer.connection != nullptr;
        return IsDone(xcb_randr_delete_output_property_checked(sServer.connection, output, atom));
    }
    return FitsRequest(sServer.connection, value) &&
           IsDone(xcb_randr_change_output_property_checked(sServer.connection, output, atom, XCB_ATOM_CARDINAL, 8, XCB_PROP_MODE_REPLACE,
                                                           static_cast<uint32_t>(value.size()), value.data()));
}

/// Says of a profile for which display it was written; nothing of none.
Bytes MarkOf(const ServerOutput& output, const Bytes& profile) {
    if (profile.empty()) return {};
    Bytes mark(output.identifier.begin(), output.identifier.end());
    const Identifier digest = Digest(profile);
    mark.insert(mark.end(), digest.begin(), digest.end());
    return mark;
}

/// Whether the profile was written for a display that had this place before. What others wrote has no mark, or that of an earlier profile.
bool IsOfAnother(const ServerOutput& output, const Bytes& profile, const Bytes& mark) {
    const bool isMarked = mark.size() == 2 * sizeof(Identifier) && std::equal(mark.begin() + sizeof(Identifier), mark.end(), Digest(profile).begin());
    const auto isOf = [&](const Identifier& identifier) { return std::equal(identifier.begin(), identifier.end(), mark.begin()); };
    return isMarked && !isOf(output.identifier) && !isOf(output.earlier);
}

/// At the root window, what outputs are identified by whose data have a serial number, so that a twin that is plugged in takes nobody's identifier:
/// for each 16 bytes of it, the length of the output's name, and the name.
constexpr const char* kDisplaysProperty = "_ORLO_DISPLAYS";
using Identified = std::map<std::string, Identifier>;

Identified ReadIdentified() {
    Identified identified;
    const Bytes bytes = ReadRootProperty(kDisplaysProperty);
    constexpr std::size_t kHead = sizeof(Identifier) + 1;
    for (std::size_t at = 0; bytes.size() - at > kHead && bytes.size() - at >= kHead + bytes[at + kHead - 1];) {
        const auto entry = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        const std::size_t length = entry[kHead - 1];
        const auto name = entry + static_cast<std::ptrdiff_t>(kHead);
        std::copy_n(entry, sizeof(Identifier), identified[std::string(name, name + static_cast<std::ptrdiff_t>(length))].begin());
        at += kHead + length;
    }
    return identified;
}

void WriteIdentified(const Identified& identified) {
    Bytes bytes;
    for (const auto& [name, identifier] : identified) {
        if (name.size() > 255) continue;
        bytes.insert(bytes.end(), identifier.begin(), identifier.end());
        bytes.push_back(static_cast<uint8_t>(name.size()));
        bytes.insert(bytes.end(), name.begin(), name.end());
    }
    WriteRootProperty(kDisplaysProperty, bytes);
}

/// An output that shows nothing at the moment keeps its entry until another has the identifier, as when a dock is left and come back to.
void Update(Identified* identified, const std::string& name, const Identifier& identifier) {
    std::erase_if(*identified, [&](const auto& entry) { return entry.second == identifier; });
    (*identified)[name] = identifier;
}

/// Whether another one gives the same data.
bool HasTwin(const std::vector<IdentifiedOutput>& outputs, const IdentifiedOutput& output) {
    return std::count_if(outputs.begin(), outputs.end(), [&](const IdentifiedOutput& other) { return other.data == output.data; }) > 1;
}

/// Those of the outputs, which stay as they were when somebody last looked, on this server or with twins in an earlier session.
std::vector<Identifier> IdentifiersNow(const std::vector<IdentifiedOutput>& outputs) {
    const auto hasSerial = [](const IdentifiedOutput& output) { return !ReadIdentification(output.data).serial.empty(); };
    if (std::none_of(outputs.begin(), outputs.end(), hasSerial)) return IdentifiersOf(outputs);
    const Identified before = ReadIdentified();
    Identified known = before;
    for (const IdentifiedOutput& output : outputs) {
        if (known.contains(output.name) || !hasSerial(output) || !HasTwin(outputs, output)) continue;
        const Identifier ofData = IdentifierOfData(output.data);
        if (Recall(ofData, Memory::kOutput) == output.name) known[output.name] = ofData;
    }
    std::vector<Identifier> identifiers = IdentifiersOf(outputs, known);
    Identified now = before;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        if (hasSerial(outputs[i])) Update(&now, outputs[i].name, identifiers[i]);
    }
    if (now == before) return identifiers;
    WriteIdentified(now);
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        if (!hasSerial(outputs[i]) || !HasTwin(outputs, outputs[i]) || identifiers[i] != IdentifierOfData(outputs[i].data)) continue;
        if (Recall(identifiers[i], Memory::kOutput) != outputs[i].name) Remember(identifiers[i], Memory::kOutput, outputs[i].name);
    }
    return identifiers;
}

/// As the server counts its monitors, the primary one first: so do Xinerama and the programs that read and write profiles at the root window. A
/// server that does not tell counts as the list does.
void NumberScreens(std::vector<ServerOutput>* outputs) {
    for (std::size_t i = 0; i < outputs->size(); ++i) (*outputs)[i].screen = static_cast<unsigned>(i);
    if (!sServer.connection) return;
    const auto monitors = Answer<xcb_randr_get_monitors_reply_t>(xcb_randr_get_monitors(sServer.connection, sServer.screen->root, 1));
    if (!monitors) return;
    unsigned screen = 0;
    for (auto monitor = xcb_randr_get_monitors_monitors_iterator(monitors.get()); monitor.rem; xcb_randr_monitor_info_next(&monitor), ++screen) {
        const xcb_randr_output_t* const shown = xcb_randr_monitor_info_outputs(monitor.data);
        const xcb_randr_output_t* const end = shown + xcb_randr_monitor_info_outputs_length(monitor.data);
        for (ServerOutput& output : *outputs) {
            if (std::find(shown, end, output.id) != end) output.screen = screen;
        }
    }
}

void Identify(std::vector<ServerOutput>* outputs) {
    std::vector<IdentifiedOutput> named;
    for (const ServerOutput& output : *outputs) named.push_back({output.name, output.identification});
    const std::vector<Identifier> identifiers = IdentifiersNow(named);
    for (size_t i = 0; i < outputs->size(); ++i) {
        (*outputs)[i].identifier = identifiers[i];
        (*outputs)[i].earlier = EarlierIdentifier(named[i], identifiers[i]);
        (*outputs)[i].display = DisplayOfIdentifier(identifiers[i]);
    }
}

}  // namespace

QuietPipe::QuietPipe() {
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &before_);
}

QuietPipe::~QuietPipe() {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    const timespec now{};
    if (!wasPending_) sigtimedwait(&pipe, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

xcb_connection_t* DisplayConnection() {
    const char* const name = std::getenv("DISPLAY");
    if (sServer.connection && (sServer.process != getpid() || !name || sServer.name != name)) sServer.Leave();
    if (sServer.connection) {
        // Reading tells whether the server is still there.
        ReadFromServer(sServer.connection);
        if (xcb_connection_has_error(sServer.connection)) sServer.Leave();
    }
    if (!sServer.connection && name && *name) Join(name);
    return sServer.connection;
}

void* AnswerTo(unsigned request) {
    xcb_connection_t* const connection = sServer.connection;
    if (!connection) return nullptr;
    xcb_flush(connection);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        ReadFromServer(connection);
        void* reply = nullptr;
        xcb_generic_error_t* error = nullptr;
        if (xcb_poll_for_reply(connection, request, &reply, &error)) {
            std::free(error);
            return reply;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd server = {xcb_get_file_descriptor(connection), POLLIN, 0};
        if (left.count() <= 0 || (poll(&server, 1, static_cast<int>(left.count())) < 0 && errno != EINTR)) {
            sServer.silent = sServer.name;
            sServer.Leave();
            return nullptr;
        }
    }
}

bool IsDone(xcb_void_cookie_t request) {
    // What is answered after it tells that it was dealt with.
    if (!sServer.connection || !Answer<xcb_get_input_focus_reply_t>(xcb_get_input_focus(sServer.connection))) return false;
    const Reply<xcb_generic_error_t> error(xcb_request_check(sServer.connection, request));
    return !error && !xcb_connection_has_error(sServer.connection);
}

void FollowDisplayChanges(bool isWanted) {
    sServer.isFollowed = isWanted;
    sServer.hasChanged = false;
    // One that is made only now selects them by itself.
    const unsigned number = sServer.number;
    if (DisplayConnection() && sServer.number == number) SelectEvents();
}

bool HasDisplayChange() {
    return sServer.hasChanged;
}

bool TakeDisplayChanges() {
    const QuietPipe quiet;
    DisplayConnection();
    return std::exchange(sServer.hasChanged, false);
}

DisplayLine CurrentDisplayLine() {
    if (!sServer.connection) return {-1, 0};
    return {xcb_get_file_descriptor(sServer.connection), sServer.number};
}

const xcb_screen_t* DisplayScreen() {
    return sServer.screen;
}

bool IsDisplayServerSilent() {
    const char* const name = std::getenv("DISPLAY");
    return !sServer.connection && name && sServer.opening && sServer.opening->IsTo(name) && !sServer.opening->HasEndedWithin(std::chrono::seconds(0));
}

std::vector<ServerOutput> ActiveOutputs() {
    const QuietPipe quiet;
    std::vector<ServerOutput> found;
    xcb_connection_t* const connection = DisplayConnection();
    if (!connection) return found;
    const xcb_screen_t* const screen = DisplayScreen();
    const unsigned number = sServer.number;
    const auto currentRequest = xcb_randr_get_screen_resources_current(connection, screen->root);
    const auto primaryRequest = xcb_randr_get_output_primary(connection, screen->root);
    const auto current = Answer<xcb_randr_get_screen_resources_current_reply_t>(currentRequest);
    const auto primary = Answer<xcb_randr_get_output_primary_reply_t>(primaryRequest);
    if (!current) return found;
    const xcb_randr_output_t* const outputs = xcb_randr_get_screen_resources_current_outputs(current.get());
    const int count = xcb_randr_get_screen_resources_current_outputs_length(current.get());
    for (int i = 0; i < count; ++i) {
        if (!IsSameConnection(number)) return {};
        const auto output = Answer<xcb_randr_get_output_info_reply_t>(xcb_randr_get_output_info(connection, outputs[i], current->config_timestamp));
        if (!output || output->crtc == XCB_NONE) continue;
        const auto crtc = Answer<xcb_randr_get_crtc_info_reply_t>(xcb_randr_get_crtc_info(connection, output->crtc, current->config_timestamp));
        if (!crtc || crtc->mode == XCB_NONE) continue;
        const std::string name(reinterpret_cast<const char*>(xcb_randr_get_output_info_name(output.get())), output->name_len);
        found.push_back(
            {outputs[i], output->crtc, name, crtc->x, crtc->y, crtc->width, crtc->height, ReadOutputProperty(outputs[i], "EDID"), {}, {}, 0, 0});
    }
    // What was not answered any more would pass for what is not there.
    if (!IsSameConnection(number)) return {};
    std::stable_partition(found.begin(), found.end(), [&](const ServerOutput& output) { return primary && output.id == primary->output; });
    std::vector<ServerOutput> alone;
    for (const ServerOutput& output : found) {
        const bool mirrored = std::any_of(alone.begin(), alone.end(), [&](const ServerOutput& o) { return o.controller == output.controller; });
        if (!mirrored) alone.push_back(output);
    }
    NumberScreens(&alone);
    Identify(&alone);
    if (!IsSameConnection(number)) return {};
    return alone;
}

std::optional<ServerOutput> FindOutput(uint32_t display) {
    for (const ServerOutput& output : ActiveOutputs()) {
        if (output.display == display) return output;
    }
    return std::nullopt;
}

bool HasOutput(xcb_randr_output_t id) {
    const QuietPipe quiet;
    xcb_connection_t* const connection = DisplayConnection();
    if (!connection) return false;
    const auto request = xcb_randr_get_screen_resources_current(connection, DisplayScreen()->root);
    const auto current = Answer<xcb_randr_get_screen_resources_current_reply_t>(request);
    if (!current) return false;
    const xcb_randr_output_t* const outputs = xcb_randr_get_screen_resources_current_outputs(current.get());
    const xcb_randr_output_t* const end = outputs + xcb_randr_get_screen_resources_current_outputs_length(current.get());
    return std::find(outputs, end, id) != end;
}

bool FitsDisplayServer(const Bytes& profile) {
    const QuietPipe quiet;
    xcb_connection_t* const connection = DisplayConnection();
    return connection && FitsRequest(connection, profile);
}

Bytes ReadOutputProfile(const ServerOutput& output) {
    Bytes profile = ReadOutputProperty(output.id, kProfileProperty);
    const bool isOfAnother =
        !profile.empty() && IsOfAnother(output, profile, ReadOutputProperty(output.id, kMarkPrefix + std::string(kProfileProperty)));
    return isOfAnother ? Bytes() : profile;
}

bool HasStrayOutputProfile(const ServerOutput& output) {
    return ReadOutputProfile(output).empty() && !ReadOutputProperty(output.id, kProfileProperty).empty();
}

bool WriteOutputProfile(const ServerOutput& output, const Bytes& profile) {
    return WriteOutputProperty(output.id, kProfileProperty, profile) &&
           WriteOutputProperty(output.id, kMarkPrefix + std::string(kProfileProperty), MarkOf(output, profile));
}

Bytes ReadWindowProfile(const ServerOutput& output) {
    const std::string name = WindowPropertyName(output.screen);
    Bytes profile = ReadRootProperty(name);
    return !profile.empty() && IsOfAnother(output, profile, ReadRootProperty(kMarkPrefix + name)) ? Bytes() : profile;
}

bool HasStrayWindowProfile(const ServerOutput& output) {
    return ReadWindowProfile(output).empty() && !ReadRootProperty(WindowPropertyName(output.screen)).empty();
}

bool WriteWindowProfile(const ServerOutput& output, const Bytes& profile) {
    const std::string name = WindowPropertyName(output.screen);
    return WriteRootProperty(name, profile) && WriteRootProperty(kMarkPrefix + name, MarkOf(output, profile));
}

}  // namespace platform
