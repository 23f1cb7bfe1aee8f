#include "orlo/DisplayChoice.h"

#include <algorithm>
#include <cstdlib>

#include "images/Complaint.h"
#include "images/Texts.h"

namespace {

/// Why there are no displays here.
Complaint NoDisplays() {
    const char *display = std::getenv("DISPLAY"), *wayland = std::getenv("WAYLAND_DISPLAY");
    const bool isNamed = display && *display;
    if (!isNamed && wayland && *wayland) {
        return {"displays", "this is a Wayland session, where no program but the compositor can load ramps",
                "choose the profile in the desktop's settings, or log in to an X session", Exit::NotThere};
    }
    if (!isNamed) return {"displays", "ramps are loaded through an X server, and DISPLAY names none", "run it in an X session", Exit::NotThere};
    const std::string server = std::string("the X server '") + display + "' that DISPLAY names ";
    switch (StateOfDisplayServer()) {
        case ServerState::Silent:
            return {"displays", server + "is there and does not answer", "try again when it does", Exit::NotThere};
        case ServerState::Gone:
            return {"displays", server + "does not answer, or has no ramps", "run it in an X session", Exit::NotThere};
        case ServerState::Answers:
            break;
    }
    return {"displays", "no display is switched on", "connect one", Exit::NotThere};
}

std::vector<KnownDisplay> AllDisplays() {
    std::vector<KnownDisplay> displays;
    for (int index = 1; index <= MC_NumDisplays(); ++index) {
        KnownDisplay display{.number = MC_GetIndexedDisplay(index), .index = index};
        MC_GetDisplayIdentity(display.number, &display.identity);
        MC_GetDisplayInfo(display.number, &display.info);
        // One that goes while it is asked is all zeros.
        if (display.number != 0 && *display.identity.output && *display.identity.identifier && display.info.index > 0) displays.push_back(display);
    }
    RequireDisplayServer();
    return displays;
}

/// Whether the X server is one inside a Wayland compositor: what it keeps of ramps never reaches a display. Not all of them name their outputs so
/// that it shows.
bool IsInsideCompositor(const std::vector<KnownDisplay>& displays) {
    const char *session = std::getenv("XDG_SESSION_TYPE"), *wayland = std::getenv("WAYLAND_DISPLAY");
    if (session && std::string(session) == "wayland" && wayland && *wayland) return true;
    return std::ranges::all_of(displays, [](const KnownDisplay& display) { return display.Name().starts_with("XWAYLAND"); });
}

std::string NamesOf(const std::vector<KnownDisplay>& displays) {
    std::string names;
    for (const KnownDisplay& display : displays) names += (names.empty() ? "" : ", ") + display.Name();
    return names;
}

KnownDisplay Find(const std::string& name, const std::vector<KnownDisplay>& displays) {
    const std::string wanted = SmallLetters(name);
    using Answers = std::string (*)(const KnownDisplay&);
    constexpr Answers kAnswers[] = {
        [](const KnownDisplay& display) { return std::to_string(display.index); },
        [](const KnownDisplay& display) { return display.Name(); },
        [](const KnownDisplay& display) { return std::string(display.identity.identifier); },
        [](const KnownDisplay& display) { return std::string(display.identity.model); },
        [](const KnownDisplay& display) { return std::string(display.identity.make) + " " + display.identity.model; },
    };
    if (name.find_first_not_of(' ') == std::string::npos) {
        throw Complaint{"--display", "its value is blank", "use " + NamesOf(displays) + "; orlo displays tells more"};
    }
    for (const Answers answer : kAnswers) {
        std::vector<KnownDisplay> found;
        std::ranges::copy_if(displays, std::back_inserter(found),
                             [&](const KnownDisplay& display) { return SmallLetters(answer(display)) == wanted; });
        if (found.size() == 1) return found.front();
        if (found.size() > 1) throw Complaint{"--display", "several displays are '" + name + "'", "name one by its output: " + NamesOf(found)};
    }
    throw Complaint{"--display", "there is no display '" + name + "'", "use " + NamesOf(displays) + "; orlo displays tells more", Exit::NotThere};
}

}  // namespace

ServerState StateOfDisplayServer() {
    uint32_t count = 0;
    const CGError error = CGGetActiveDisplayList(0, nullptr, &count);
    if (error == kCGErrorSuccess) return ServerState::Answers;
    return error == kCGErrorCannotComplete ? ServerState::Silent : ServerState::Gone;
}

void RequireDisplayServer() {
    if (StateOfDisplayServer() != ServerState::Answers) throw NoDisplays();
}

std::vector<KnownDisplay> ActiveDisplays() {
    std::vector<KnownDisplay> displays = AllDisplays();
    if (displays.empty()) throw NoDisplays();
    if (IsInsideCompositor(displays)) {
        throw Complaint{"displays", "this X server is a Wayland compositor's, where no other program can load ramps",
                        "choose the profile in the desktop's settings, or log in to an X session", Exit::NotThere};
    }
    return displays;
}

std::vector<KnownDisplay> ChooseDisplays(const std::vector<std::string>& names) {
    const std::vector<KnownDisplay> displays = ActiveDisplays();
    if (names.empty()) return {displays.front()};
    std::vector<KnownDisplay> chosen;
    chosen.reserve(names.size());
    for (const std::string& name : names) chosen.push_back(Find(name, displays));
    std::ranges::sort(chosen, {}, &KnownDisplay::index);
    const auto isSame = [](const KnownDisplay& a, const KnownDisplay& b) { return a.index == b.index; };
    chosen.erase(std::unique(chosen.begin(), chosen.end(), isSame), chosen.end());
    return chosen;
}

KnownDisplay ChooseDisplay(const std::vector<std::string>& names) {
    const std::vector<KnownDisplay> chosen = ChooseDisplays(names);
    if (chosen.size() > 1) throw Complaint{"--display", "several displays are named: " + NamesOf(chosen), "name one"};
    return chosen.front();
}
