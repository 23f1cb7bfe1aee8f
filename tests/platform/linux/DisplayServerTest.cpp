// Servers that answer late or not at all, and forks of a process that is connected to one.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "platform/linux/Displays/DisplayServer.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/ForksWithThreads.h"
#include "tests/fixtures/XServer.h"

namespace {

constexpr unsigned kPatience = 60;  // seconds; only against a call that never returns

/// Accepts connections in DISPLAY's place and passes everything on to the server behind it, but for the time that it holds its peace.
class Relay {
public:
    enum Mode { kSilent, kPassing };

    /// The server behind is the one that DISPLAY names now; without one nothing can be passed on.
    explicit Relay(Mode mode) : mode_(mode) {
        if (const char* const display = std::getenv("DISPLAY")) behind_ = std::string("/tmp/.X11-unix/X") + (display + 1);
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in place = {};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        // A display's number is its port's beyond 6000.
        socklen_t size = sizeof place;
        if (bind(listener_, reinterpret_cast<sockaddr*>(&place), size) != 0 || listen(listener_, 8) != 0) std::abort();
        getsockname(listener_, reinterpret_cast<sockaddr*>(&place), &size);
        setenv("DISPLAY", ("127.0.0.1:" + std::to_string(ntohs(place.sin_port) - 6000)).c_str(), 1);
        thread_ = std::thread([this] { Run(); });
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;
    ~Relay() {
        done_ = true;
        thread_.join();
        close(listener_);
        for (const Pair& pair : pairs_) {
            close(pair.client);
            if (pair.server >= 0) close(pair.server);
        }
    }

    void Become(Mode mode) { mode_ = mode; }
    int Accepted() const { return accepted_; }

private:
    struct Pair {
        int client, server;
    };

    void Run() {
        while (!done_) {
            pollfd waiting = {listener_, POLLIN, 0};
            if (poll(&waiting, 1, 1) == 1) {
                pairs_.push_back({accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), -1});
                ++accepted_;
            }
            if (mode_ == kSilent) continue;
            for (Pair& pair : pairs_) {
                if (pair.server < 0) pair.server = ConnectBehind();
                Pass(pair.client, pair.server);
                Pass(pair.server, pair.client);
            }
        }
    }
    int ConnectBehind() const {
        const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un place = {};
        place.sun_family = AF_UNIX;
        behind_.copy(place.sun_path, sizeof place.sun_path - 1);
        if (connect(server, reinterpret_cast<sockaddr*>(&place), sizeof place) != 0) std::abort();
        return server;
    }
    static void Pass(int from, int to) {
        char bytes[65536];
        const ssize_t count = recv(from, bytes, sizeof bytes, MSG_DONTWAIT);
        if (count > 0) send(to, bytes, static_cast<size_t>(count), MSG_NOSIGNAL);
    }

    std::string behind_;
    int listener_ = -1;
    std::vector<Pair> pairs_;
    std::atomic<Mode> mode_;
    std::atomic<int> accepted_ = 0;
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

class DisplayServer : public testing::Test {
protected:
    void SetUp() override { alarm(kPatience); }
    void TearDown() override {
        unsetenv("DISPLAY");
        EXPECT_EQ(platform::DisplayConnection(), nullptr);
        alarm(0);
    }
    static size_t Displays() { return platform::ActiveOutputs().size(); }
};

TEST_F(DisplayServer, ThatNeverAnswersIsAsGoodAsNone) {
    const Relay server(Relay::kSilent);
    EXPECT_EQ(platform::DisplayConnection(), nullptr);
    EXPECT_EQ(server.Accepted(), 1);
    // Nor is it asked, or waited for, again.
    for (int i = 0; i < 100; ++i) EXPECT_EQ(Displays(), 0u);
    EXPECT_EQ(server.Accepted(), 1);
    EXPECT_TRUE(platform::IsDisplayServerSilent());
}

TEST_F(DisplayServer, ThatIsGoneIsNotSilent) {
    setenv("DISPLAY", ":987", 1);
    EXPECT_EQ(platform::DisplayConnection(), nullptr);
    EXPECT_FALSE(platform::IsDisplayServerSilent());
    unsetenv("DISPLAY");
    EXPECT_EQ(platform::DisplayConnection(), nullptr);
    EXPECT_FALSE(platform::IsDisplayServerSilent());
}

TEST_F(DisplayServer, ThatAnswersLateIsTakenUpThen) {
    const XServer screen;
    ASSERT_TRUE(screen.Running());
    ASSERT_EQ(Displays(), 1u);
    Relay server(Relay::kSilent);
    EXPECT_EQ(Displays(), 0u);
    server.Become(Relay::kPassing);
    while (Displays() == 0) usleep(10000);
    EXPECT_EQ(server.Accepted(), 1);
}

TEST_F(DisplayServer, ThatFallsSilentIsLeftAndAskedAnew) {
    const XServer screen;
    ASSERT_TRUE(screen.Running());
    Relay server(Relay::kPassing);
    ASSERT_EQ(Displays(), 1u);
    const platform::ServerOutput output = platform::ActiveOutputs().front();
    ASSERT_TRUE(platform::WriteWindowProfile(output, {1, 2, 3}));
    EXPECT_EQ(platform::ReadWindowProfile(output), (platform::Bytes{1, 2, 3}));
    server.Become(Relay::kSilent);
    EXPECT_FALSE(platform::WriteWindowProfile(output, {4}));
    EXPECT_EQ(Displays(), 0u);
    EXPECT_TRUE(platform::IsDisplayServerSilent());
    server.Become(Relay::kPassing);
    while (Displays() == 0) usleep(10000);
    EXPECT_EQ(server.Accepted(), 2);
    EXPECT_FALSE(platform::IsDisplayServerSilent());
}

TEST_F(DisplayServer, KeepsItsConnectionWhenAChildEnds) {
    const XServer screen;
    ASSERT_TRUE(screen.Running());
    const Relay server(Relay::kPassing);
    ASSERT_EQ(Displays(), 1u);
    const pid_t child = fork();
    if (child == 0) std::exit(0);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(Displays(), 1u);
    EXPECT_EQ(server.Accepted(), 1);
}

TEST_F(DisplayServer, IsReachedByAChildOverAConnectionOfItsOwn) {
    if (!kCanStartThreadsInChildren) GTEST_SKIP() << "not under the thread sanitizer";
    const XServer screen;
    ASSERT_TRUE(screen.Running());
    const Relay server(Relay::kPassing);
    ASSERT_EQ(Displays(), 1u);
    EXPECT_EQ(InAChild([] {
                  alarm(kPatience);
                  return std::to_string(Displays());
              }),
              "1");
    EXPECT_EQ(server.Accepted(), 2);
    EXPECT_EQ(Displays(), 1u);
    EXPECT_EQ(server.Accepted(), 2);
}

}  // namespace
