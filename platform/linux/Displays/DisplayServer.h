#pragma once

/// The X server's outputs, for the files behind platform/Displays.h. Main thread only.

#include <xcb/randr.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// Keeps a server that went away from ending the process: writing to it raises SIGPIPE.
class QuietPipe {
public:
    QuietPipe();
    QuietPipe(const QuietPipe&) = delete;
    QuietPipe& operator=(const QuietPipe&) = delete;
    ~QuietPipe();

private:
    sigset_t before_;
    bool wasPending_;
};

struct ServerOutput {
    xcb_randr_output_t id;
    xcb_randr_crtc_t controller;
    std::string name;
    int16_t x, y;
    uint16_t width, height;
};

using Bytes = std::vector<uint8_t>;

/// The connection to the server named by DISPLAY, made anew when that changes or the server went away; null without one, and while it does not
/// answer. A server has two seconds for that.
xcb_connection_t* DisplayConnection();

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};
template <typename T>
using Reply = std::unique_ptr<T, FreeReply>;

void* AnswerTo(unsigned request);
/// The answer to a request on the connection above; null when the server refuses it, or gives none in five seconds: then the connection is gone.
template <typename T, typename Cookie>
Reply<T> Answer(Cookie request) {
    return Reply<T>(static_cast<T*>(AnswerTo(request.sequence)));
}
/// Whether a checked request was carried out, within the same time.
bool IsDone(xcb_void_cookie_t request);

const xcb_screen_t* DisplayScreen();
/// The outputs that show a picture, the primary one first; of outputs that show the same one, only the first.
std::vector<ServerOutput> ActiveOutputs();
std::optional<ServerOutput> FindOutput(uint32_t display);
/// The display's identification data; empty where it gives none.
Bytes IdentificationOf(const ServerOutput& output);

/// The property of the root window under which other applications find the profile of the display at this position of the list.
std::string ProfilePropertyName(size_t position);
Bytes ReadProfileProperty(size_t position);
bool WriteProfileProperty(size_t position, const Bytes& profile);

}  // namespace platform
