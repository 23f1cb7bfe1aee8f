#pragma once

/// The X server's outputs, for the files behind platform/Displays.h. Main thread only.

#include <xcb/randr.h>

#include <csignal>
#include <cstdint>
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

/// The connection to the server named by DISPLAY, made anew when that changes or the server went away; null without one.
xcb_connection_t* DisplayConnection();
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
