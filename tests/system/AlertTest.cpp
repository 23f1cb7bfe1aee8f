// Notices of the real library, shown by the real helper on a real X server.

#include <glib.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ColourMatch/ColourMatch.h"
#include "tests/fixtures/XServer.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* kHelper = CM_BINARY_DIR "/lib/colourmatch-2/show-alert";

// Only against a test that would never end.
constexpr gint64 kPatience = gint64{60} * G_USEC_PER_SEC;

// Runs a program and gives back the words that it wrote, with its exit status in *status.
Words RunProgram(Words arguments, int* status = nullptr) {
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    char* text = nullptr;
    int waitStatus = -1;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDERR_TO_DEV_NULL);
    if (!g_spawn_sync(nullptr, pointers.data(), nullptr, flags, nullptr, nullptr, &text, nullptr, &waitStatus, nullptr)) {
        ADD_FAILURE() << arguments.front() << " cannot be run";
        return {};
    }
    if (status) *status = WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
    std::istringstream stream(text);
    g_free(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

Words AlertWindows() {
    return RunProgram({"xdotool", "search", "--onlyvisible", "--name", "^Orlo ColourMatch$"});
}

void TurnMainLoop() {
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

bool WaitUntil(const std::function<bool()>& condition) {
    for (const gint64 end = g_get_monotonic_time() + kPatience; g_get_monotonic_time() < end; g_usleep(20000)) {
        TurnMainLoop();
        if (condition()) return true;
    }
    return false;
}

// What the program that shows the window was told to show: message, informative text, button.
Words ShownBy(const std::string& window) {
    const Words process = RunProgram({"xdotool", "getwindowpid", window});
    if (process.size() != 1) return {};
    std::ifstream file("/proc/" + process.front() + "/cmdline", std::ios::binary);
    Words words;
    for (std::string word; std::getline(file, word, '\0');) words.push_back(word);
    if (!words.empty()) words.erase(words.begin());
    return words;
}

struct Box {
    int x = 0, y = 0, width = 0, height = 0;
};

Box BoxOf(const std::string& window) {
    Box box;
    for (const std::string& word : RunProgram({"xdotool", "getwindowgeometry", "--shell", window})) {
        const auto value = [&word](const char* name) {
            const std::string start = std::string(name) + "=";
            return word.starts_with(start) ? std::stoi(word.substr(start.size())) : 0;
        };
        box.x += value("X");
        box.y += value("Y");
        box.width += value("WIDTH");
        box.height += value("HEIGHT");
    }
    return box;
}

void Click(int x, int y) {
    RunProgram({"xdotool", "mousemove", std::to_string(x), std::to_string(y), "click", "1"});
}

// The one button fills the bottom of the window from side to side.
void ClickTheButton(const std::string& window, double across) {
    const Box box = BoxOf(window);
    Click(box.x + static_cast<int>(across * box.width), box.y + box.height - 15);
}

struct Alert : testing::Test {
    void SetUp() override {
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "GTK_MODULES", "GDK_BACKEND"}) unsetenv(name);
        setenv("NO_AT_BRIDGE", "1", 1);  // no accessibility bus to look for
        // For the helper, should it be built with a sanitizer: the toolkit is not, frees little at its end and has threads of its own.
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        setenv("TSAN_OPTIONS", "report_bugs=0", 1);
    }
};

}  // namespace

using AlertOnAScreen = Alert;
using AlertWithoutAScreen = Alert;

TEST_F(AlertOnAScreen, ComesAfterTheOneBeforeWasAnswered) {
    const XServer server;
    ASSERT_TRUE(server.Running());
    testing::internal::CaptureStderr();
    NotifyUser(CFSTR("Can't use colour matching"), CFSTR("The first reason."));
    NotifyUser(CFSTR("--second"), CFSTR("100 % <b>plain</b> text"));
    TurnMainLoop();

    ASSERT_TRUE(WaitUntil([] { return !AlertWindows().empty(); }));
    const std::string first = AlertWindows().front();
    EXPECT_EQ(ShownBy(first), (Words{"Can't use colour matching", "The first reason.", "OK"}));
    const Box box = BoxOf(first);
    Click(box.x + box.width / 2, box.y + 20);
    g_usleep(300000);  // a chance to go wrong
    TurnMainLoop();
    EXPECT_EQ(AlertWindows(), Words{first}) << "only the button answers";
    ClickTheButton(first, 0.5);

    ASSERT_TRUE(WaitUntil([&] {
        const Words windows = AlertWindows();
        return windows.size() == 1 && ShownBy(windows.front()) == Words{"--second", "100 % <b>plain</b> text", "OK"};
    }));
    ClickTheButton(AlertWindows().front(), 0.5);
    ASSERT_TRUE(WaitUntil([] { return AlertWindows().empty(); }));
    TurnMainLoop();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "what was shown is not written as well";
}

// No second button, for help or anything else, on either side.
TEST_F(AlertOnAScreen, HasOneButtonFromSideToSide) {
    const XServer server;
    ASSERT_TRUE(server.Running());
    for (const double across : {0.03, 0.97}) {
        NotifyUser(CFSTR("A message"), CFSTR("and more."));
        ASSERT_TRUE(WaitUntil([] { return AlertWindows().size() == 1; }));
        ClickTheButton(AlertWindows().front(), across);
        ASSERT_TRUE(WaitUntil([] { return AlertWindows().empty(); })) << across;
    }
}

TEST_F(AlertOnAScreen, IsAnsweredByTheReturnKeyToo) {
    const XServer server;
    ASSERT_TRUE(server.Running());
    NotifyUser(CFSTR("A message"), CFSTR("and more."));
    ASSERT_TRUE(WaitUntil([] { return AlertWindows().size() == 1; }));
    const std::string window = AlertWindows().front();
    RunProgram({"xdotool", "windowfocus", window, "key", "Return"});
    EXPECT_TRUE(WaitUntil([] { return AlertWindows().empty(); }));
}

TEST_F(AlertOnAScreen, DoesNotShowBeforeTheMainLoopRuns) {
    const XServer server;
    ASSERT_TRUE(server.Running());
    std::thread([] { NotifyUser(CFSTR("From a thread"), CFSTR("before the loop.")); }).join();
    EXPECT_EQ(AlertWindows(), Words());
    ASSERT_TRUE(WaitUntil([] { return AlertWindows().size() == 1; }));
    ClickTheButton(AlertWindows().front(), 0.5);
    EXPECT_TRUE(WaitUntil([] { return AlertWindows().empty(); }));
}

// The host's own sources go on running: nothing waits for the answer.
TEST_F(AlertOnAScreen, LeavesTheMainLoopFree) {
    const XServer server;
    ASSERT_TRUE(server.Running());
    NotifyUser(CFSTR("A message"), CFSTR("and more."));
    int ticks = 0;
    const guint timer = g_timeout_add(
        1,
        [](gpointer count) -> gboolean {
            ++*static_cast<int*>(count);
            return G_SOURCE_CONTINUE;
        },
        &ticks);
    ASSERT_TRUE(WaitUntil([] { return AlertWindows().size() == 1; }));
    const int before = ticks;
    EXPECT_TRUE(WaitUntil([&] { return ticks > before + 3; }));
    EXPECT_EQ(g_main_depth(), 0);
    g_source_remove(timer);
    ClickTheButton(AlertWindows().front(), 0.5);
    EXPECT_TRUE(WaitUntil([] { return AlertWindows().empty(); }));
}

// What comes to standard error, which is being captured and still is afterwards, up to this ending; it is looked at through a fresh capture each
// time.
std::string WrittenUpTo(const std::string& ending) {
    std::string written;
    WaitUntil([&] {
        written += testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return written.ends_with(ending);
    });
    return written;
}

TEST_F(AlertWithoutAScreen, WritesTheTextsWhenTheDisplayNeverAnswers) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in place = {};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof place;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&place), size), 0);
    ASSERT_EQ(listen(listener, 8), 0);
    getsockname(listener, reinterpret_cast<sockaddr*>(&place), &size);
    setenv("DISPLAY", ("127.0.0.1:" + std::to_string(ntohs(place.sin_port) - 6000)).c_str(), 1);
    testing::internal::CaptureStderr();
    NotifyUser(CFSTR("unseen"), CFSTR("reason"));
    EXPECT_EQ(WrittenUpTo("reason\n"), "unseen\nreason\n");
    testing::internal::GetCapturedStderr();
    close(listener);
}

TEST_F(AlertWithoutAScreen, WritesTheTextsOnceEachInOrder) {
    testing::internal::CaptureStderr();
    NotifyUser(CFSTR("first"), CFSTR("reason 1"));
    NotifyUser(CFSTR("second"), CFSTR("reason 2"));
    NotifyUser(CFSTR("third"), CFSTR("reason 3"));
    std::string written = WrittenUpTo("reason 3\n");
    g_usleep(100000);  // a chance to come twice
    TurnMainLoop();
    written += testing::internal::GetCapturedStderr();
    EXPECT_EQ(written, "first\nreason 1\nsecond\nreason 2\nthird\nreason 3\n");
}

// The user may not have read what went away unanswered.
TEST_F(AlertOnAScreen, WritesTheTextsWhenTheHelperIsEnded) {
    const XServer server;
    ASSERT_TRUE(server.Running());
    testing::internal::CaptureStderr();
    NotifyUser(CFSTR("unanswered"), CFSTR("reason"));
    ASSERT_TRUE(WaitUntil([] { return AlertWindows().size() == 1; }));
    const Words process = RunProgram({"xdotool", "getwindowpid", AlertWindows().front()});
    ASSERT_EQ(process.size(), 1u);
    kill(std::stoi(process.front()), SIGTERM);
    ASSERT_TRUE(WaitUntil([&] { return kill(std::stoi(process.front()), 0) != 0; }));
    TurnMainLoop();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "unanswered\nreason\n");
}

TEST_F(AlertWithoutAScreen, EndsTheHelperWithStatusThree) {
    int status = -1;
    RunProgram({kHelper, "message", "informative", "OK"}, &status);
    EXPECT_EQ(status, 3);
    setenv("DISPLAY", ":7654321", 1);
    RunProgram({kHelper, "message", "informative", "OK"}, &status);
    EXPECT_EQ(status, 3) << "a display that is not there";
    RunProgram({kHelper, "message"}, &status);
    EXPECT_EQ(status, 2) << "called wrongly";
}
