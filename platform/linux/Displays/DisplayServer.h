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

#include "platform/linux/Displays/DisplayIdentity.h"

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
    Bytes identification;   // the display's own data; empty where it gives none
    Identifier identifier;  // the same wherever and whenever this display is found
    Identifier earlier;     // by which older documents and memories know it
    uint32_t display;       // the number that callers know it by, from the identifier
    unsigned screen;        // its place among the outputs that show a picture, in the server's order, which no choice of a primary one changes
};

/// The connection to the server named by DISPLAY, made anew when that changes or the server went away; null without one, and while it does not
/// answer. A server has two seconds for that.
xcb_connection_t* DisplayConnection();

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};
template <typename T>
using Reply = std::unique_ptr<T, FreeReply>;

void* AnswerTo(unsigned request);
/// The answer to a request on the connection above; null when the server refuses it, or gives none in five seconds: then the connection is gone, and
/// a new one is not waited for.
template <typename T, typename Cookie>
Reply<T> Answer(Cookie request) {
    return Reply<T>(static_cast<T*>(AnswerTo(request.sequence)));
}
/// Whether a checked request was carried out, within the same time.
bool IsDone(xcb_void_cookie_t request);

/// Of the connection above, as DisplayConnection last answered it; null without one.
const xcb_screen_t* DisplayScreen();
/// After DisplayConnection answered null: somebody took the call and says nothing.
bool IsDisplayServerSilent();

/// Whether the server is to say when displays, their modes or their profiles change, on this connection and on later ones.
void FollowDisplayChanges(bool isWanted);
/// Whether something changed, or the server went away, since this was last asked. The second also reads what has come.
bool HasDisplayChange();
bool TakeDisplayChanges();
/// Where events arrive. Each connection has another number, from 1; without one both say so.
struct DisplayLine {
    int descriptor;   // -1: none
    unsigned number;  // 0: none
};
DisplayLine CurrentDisplayLine();
/// The outputs that show a picture, the primary one first; of outputs that show the same one, only the first.
std::vector<ServerOutput> ActiveOutputs();
std::optional<ServerOutput> FindOutput(uint32_t display);
/// Whether the server has an output of this number, plugged in or not.
bool HasOutput(xcb_randr_output_t id);

// Where other applications look for a display's profile: a property of its output, and one of the root window that has the screen's number. Writing
// no bytes removes the property. One that was written here for another display, which was at that output or had that number before, is not read.

/// Whether the server takes a property of that size.
bool FitsDisplayServer(const Bytes& profile);
Bytes ReadOutputProfile(const ServerOutput& output);
bool WriteOutputProfile(const ServerOutput& output, const Bytes& profile);
Bytes ReadWindowProfile(const ServerOutput& output);
bool WriteWindowProfile(const ServerOutput& output, const Bytes& profile);
/// Whether such a one of another display stands there, where applications would take it for this display's.
bool HasStrayOutputProfile(const ServerOutput& output);
bool HasStrayWindowProfile(const ServerOutput& output);

}  // namespace platform
