#include "platform/linux/Displays/DisplayServer.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace platform {

namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using Reply = std::unique_ptr<T, Free>;

struct Server {
    xcb_connection_t* connection = nullptr;
    const xcb_screen_t* screen = nullptr;
    std::string name;

    ~Server() { Leave(); }
    void Leave() {
        if (connection) xcb_disconnect(connection);
        connection = nullptr;
        screen = nullptr;
    }
};
Server sServer;

bool HasGammaRamps(xcb_connection_t* connection) {
    const xcb_query_extension_reply_t* const extension = xcb_get_extension_data(connection, &xcb_randr_id);
    if (!extension || !extension->present) return false;
    const Reply<xcb_randr_query_version_reply_t> version(
        xcb_randr_query_version_reply(connection, xcb_randr_query_version(connection, 1, 3), nullptr));
    return version && (version->major_version > 1 || version->minor_version >= 3);
}

void Join(const char* name) {
    const QuietPipe quiet;
    int number = 0;
    sServer.name = name;
    sServer.connection = xcb_connect(name, &number);
    if (xcb_connection_has_error(sServer.connection) || !HasGammaRamps(sServer.connection)) return sServer.Leave();
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(sServer.connection));
    for (; number > 0 && screens.rem > 1; --number) xcb_screen_next(&screens);
    sServer.screen = screens.data;
}

xcb_atom_t Atom(const std::string& name) {
    xcb_connection_t* const connection = DisplayConnection();
    if (!connection) return XCB_ATOM_NONE;
    const Reply<xcb_intern_atom_reply_t> atom(
        xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, static_cast<uint16_t>(name.size()), name.data()), nullptr));
    return atom ? atom->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
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
    // Reading what the server sent, which is of no use here, also tells whether it is still there.
    while (sServer.connection) {
        const Reply<xcb_generic_event_t> event(xcb_poll_for_event(sServer.connection));
        if (!event) break;
    }
    if (sServer.connection && (!name || sServer.name != name || xcb_connection_has_error(sServer.connection))) sServer.Leave();
    if (!sServer.connection && name && *name) Join(name);
    return sServer.connection;
}

const xcb_screen_t* DisplayScreen() {
    return DisplayConnection() ? sServer.screen : nullptr;
}

std::vector<ServerOutput> ActiveOutputs() {
    const QuietPipe quiet;
    std::vector<ServerOutput> found;
    const xcb_screen_t* const screen = DisplayScreen();
    if (!screen) return found;
    xcb_connection_t* const connection = DisplayConnection();
    const auto currentRequest = xcb_randr_get_screen_resources_current(connection, screen->root);
    const auto primaryRequest = xcb_randr_get_output_primary(connection, screen->root);
    const Reply<xcb_randr_get_screen_resources_current_reply_t> current(
        xcb_randr_get_screen_resources_current_reply(connection, currentRequest, nullptr));
    const Reply<xcb_randr_get_output_primary_reply_t> primary(xcb_randr_get_output_primary_reply(connection, primaryRequest, nullptr));
    if (!current) return found;
    const xcb_randr_output_t* const outputs = xcb_randr_get_screen_resources_current_outputs(current.get());
    const int count = xcb_randr_get_screen_resources_current_outputs_length(current.get());
    for (int i = 0; i < count; ++i) {
        const Reply<xcb_randr_get_output_info_reply_t> output(
            xcb_randr_get_output_info_reply(connection, xcb_randr_get_output_info(connection, outputs[i], current->config_timestamp), nullptr));
        if (!output || output->crtc == XCB_NONE) continue;
        const Reply<xcb_randr_get_crtc_info_reply_t> crtc(
            xcb_randr_get_crtc_info_reply(connection, xcb_randr_get_crtc_info(connection, output->crtc, current->config_timestamp), nullptr));
        if (!crtc || crtc->mode == XCB_NONE) continue;
        const std::string name(reinterpret_cast<const char*>(xcb_randr_get_output_info_name(output.get())), output->name_len);
        found.push_back({outputs[i], output->crtc, name, crtc->x, crtc->y, crtc->width, crtc->height});
    }
    std::stable_partition(found.begin(), found.end(), [&](const ServerOutput& output) { return primary && output.id == primary->output; });
    std::vector<ServerOutput> alone;
    for (const ServerOutput& output : found) {
        const bool mirrored = std::any_of(alone.begin(), alone.end(), [&](const ServerOutput& o) { return o.controller == output.controller; });
        if (!mirrored) alone.push_back(output);
    }
    return alone;
}

std::optional<ServerOutput> FindOutput(uint32_t display) {
    for (const ServerOutput& output : ActiveOutputs()) {
        if (output.id == display) return output;
    }
    return std::nullopt;
}

Bytes IdentificationOf(const ServerOutput& output) {
    const QuietPipe quiet;
    const xcb_atom_t atom = Atom("EDID");
    if (atom == XCB_ATOM_NONE) return {};
    xcb_connection_t* const connection = DisplayConnection();
    // 256 words hold the base block and seven extensions.
    const Reply<xcb_randr_get_output_property_reply_t> property(xcb_randr_get_output_property_reply(
        connection, xcb_randr_get_output_property(connection, output.id, atom, XCB_ATOM_ANY, 0, 256, 0, 0), nullptr));
    if (!property || property->format != 8) return {};
    const uint8_t* const bytes = xcb_randr_get_output_property_data(property.get());
    return Bytes(bytes, bytes + property->num_items);
}

std::string ProfilePropertyName(size_t position) {
    return position == 0 ? "_ICC_PROFILE" : "_ICC_PROFILE_" + std::to_string(position);
}

Bytes ReadProfileProperty(size_t position) {
    const QuietPipe quiet;
    const xcb_atom_t atom = Atom(ProfilePropertyName(position));
    if (atom == XCB_ATOM_NONE) return {};
    xcb_connection_t* const connection = DisplayConnection();
    constexpr uint32_t kMostWords = 1 << 22;
    const Reply<xcb_get_property_reply_t> property(
        xcb_get_property_reply(connection, xcb_get_property(connection, 0, sServer.screen->root, atom, XCB_ATOM_ANY, 0, kMostWords), nullptr));
    if (!property || property->format != 8) return {};
    const auto* const bytes = static_cast<const uint8_t*>(xcb_get_property_value(property.get()));
    return Bytes(bytes, bytes + xcb_get_property_value_length(property.get()));
}

bool WriteProfileProperty(size_t position, const Bytes& profile) {
    const QuietPipe quiet;
    const xcb_atom_t atom = Atom(ProfilePropertyName(position));
    if (atom == XCB_ATOM_NONE) return false;
    xcb_connection_t* const connection = DisplayConnection();
    // The request itself takes a few words of the largest one that the server reads.
    if (profile.size() / 4 + 16 > xcb_get_maximum_request_length(connection)) return false;
    const Reply<xcb_generic_error_t> error(
        xcb_request_check(connection, xcb_change_property_checked(connection, XCB_PROP_MODE_REPLACE, sServer.screen->root, atom, XCB_ATOM_CARDINAL, 8,
                                                                  static_cast<uint32_t>(profile.size()), profile.data())));
    return !error && !xcb_connection_has_error(connection);
}

}  // namespace platform
