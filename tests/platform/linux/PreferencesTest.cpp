#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <bit>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "platform/CoreFoundation.h"
#include "platform/Owned.h"
#include "platform/linux/CoreFoundationString.h"
#include "platform/linux/PreferenceFile.h"

namespace {

constexpr char kApplication[] = "com.brenwick.orlocms.test";

Owned<CFStringRef> Text(const std::string& text) {
    return Owned<CFStringRef>(platform::CreateStringFromUTF8(text));
}

void Set(const std::string& key, CFPropertyListRef value) {
    CFPreferencesSetValue(Text(key).Get(), value, Text(kApplication).Get(), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
}

void SetInteger(const std::string& key, int64_t value) {
    Set(key, Owned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value)).Get());
}

Owned<CFTypeRef> Get(const std::string& key) {
    return Owned<CFTypeRef>(CFPreferencesCopyValue(Text(key).Get(), Text(kApplication).Get(), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost));
}

int64_t GetInteger(const std::string& key) {
    const Owned<CFTypeRef> value = Get(key);
    int64_t integer = -999;
    if (value.Get() && CFGetTypeID(value.Get()) == CFNumberGetTypeID()) {
        CFNumberGetValue(static_cast<CFNumberRef>(value.Get()), kCFNumberSInt64Type, &integer);
    }
    return integer;
}

bool Synchronise() {
    return CFPreferencesSynchronize(Text(kApplication).Get(), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
}

/// What `body` returns, in another process.
template <typename Body>
pid_t Start(Body body) {
    const pid_t child = fork();
    if (child == 0) _exit(body() ? 0 : 1);
    return child;
}

bool Succeeded(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class PreferencesTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "preferences-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        setenv("XDG_CONFIG_HOME", folder_.c_str(), 1);
        ASSERT_TRUE(Synchronise());
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }
    static std::string File() { return platform::FindPreferencePlace(kApplication).File(); }

    std::string folder_;
};

TEST_F(PreferencesTest, APendingValueIsSeenBeforeItIsWritten) {
    SetInteger("pending", 41);
    EXPECT_EQ(GetInteger("pending"), 41);
    EXPECT_FALSE(std::filesystem::exists(File()));
    EXPECT_TRUE(Synchronise());
    EXPECT_TRUE(std::filesystem::exists(File()));
}

TEST_F(PreferencesTest, RealsReturnBitForBit) {
    std::mt19937_64 random(7);
    std::vector<double> reals;
    while (reals.size() < 500) {
        const double real = std::bit_cast<double>(random());
        if (real == real) reals.push_back(real);
    }
    for (size_t i = 0; i < reals.size(); ++i) {
        Set("r" + std::to_string(i), Owned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &reals[i])).Get());
    }
    ASSERT_TRUE(Synchronise());
    ASSERT_TRUE(Synchronise()) << "the second one reads the file";
    for (size_t i = 0; i < reals.size(); ++i) {
        const Owned<CFTypeRef> value = Get("r" + std::to_string(i));
        ASSERT_TRUE(value.Get());
        double real = 0.0;
        CFNumberGetValue(static_cast<CFNumberRef>(value.Get()), kCFNumberFloat64Type, &real);
        EXPECT_EQ(std::bit_cast<uint64_t>(real), std::bit_cast<uint64_t>(reals[i]));
    }
}

TEST_F(PreferencesTest, PythonReadsTheFile) {
    SetInteger("minus", -5);
    SetInteger("plus", 5);
    Set("flag", kCFBooleanTrue);
    Set("text", Text("gr\xC3\xBCn").Get());
    ASSERT_TRUE(Synchronise());
    const std::string command =
        "python3 -c 'import plistlib,sys\nd=plistlib.load(open(sys.argv[1],\"rb\"))\nprint(d)\n"
        "sys.exit(d!={\"minus\":-5,\"plus\":5,\"flag\":True,\"text\":\"gr\\u00fcn\"})' '" +
        File() + "'";
    EXPECT_EQ(system(command.c_str()), 0);
}

TEST_F(PreferencesTest, AnotherProcessIsHeardAfterSynchronise) {
    ASSERT_TRUE(Succeeded(Start([] {
        SetInteger("other", 8);
        return Synchronise();
    })));
    EXPECT_EQ(GetInteger("other"), -999);
    ASSERT_TRUE(Synchronise());
    EXPECT_EQ(GetInteger("other"), 8);
}

TEST_F(PreferencesTest, WritersAtTheSameTimeLoseNothing) {
    std::vector<pid_t> children;
    for (int child = 0; child < 8; ++child) {
        children.push_back(Start([child] {
            bool isWritten = true;
            for (int i = 0; i < 100; ++i) {
                SetInteger(std::to_string(child) + "." + std::to_string(i), child * 100 + i);
                if (i % 10 == 9) isWritten = Synchronise() && isWritten;
            }
            return isWritten;
        }));
    }
    for (const pid_t child : children) EXPECT_TRUE(Succeeded(child));
    ASSERT_TRUE(Synchronise());
    for (int i = 0; i < 800; ++i) EXPECT_EQ(GetInteger(std::to_string(i / 100) + "." + std::to_string(i % 100)), i);
}

TEST_F(PreferencesTest, ADamagedFileIsKeptUnderAnotherName) {
    std::filesystem::create_directories(std::filesystem::path(File()).parent_path());
    for (const std::string number : {"1", "2"}) {
        std::ofstream(File()) << "damaged " << number;
        SetInteger("after", 3);
        ASSERT_TRUE(Synchronise());
        std::ifstream aside(File() + ".damaged-" + number);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(aside), {}), "damaged " + number);
    }
    EXPECT_EQ(GetInteger("after"), 3);
}

TEST_F(PreferencesTest, ValuesThatCannotBeWrittenStayPending) {
    const std::string blocked = folder_ + "/blocked";
    std::ofstream(blocked) << "a file where the folder should be";
    setenv("XDG_CONFIG_HOME", blocked.c_str(), 1);
    SetInteger("kept", 6);
    EXPECT_FALSE(Synchronise());
    EXPECT_EQ(GetInteger("kept"), 6);
    // The folder is looked up at each call.
    setenv("XDG_CONFIG_HOME", folder_.c_str(), 1);
    EXPECT_TRUE(Synchronise());
    ASSERT_TRUE(Synchronise());
    EXPECT_EQ(GetInteger("kept"), 6);
}

TEST_F(PreferencesTest, AKilledWriterLeavesAWholeFile) {
    SetInteger("before", 1);
    ASSERT_TRUE(Synchronise());
    for (int round = 0; round < 100; ++round) {
        const pid_t child = Start([] {
            for (int i = 0;; ++i) {
                SetInteger("changing", i);
                Synchronise();
            }
            return true;
        });
        usleep(static_cast<useconds_t>(500 + 37 * round));
        kill(child, SIGKILL);
        EXPECT_FALSE(Succeeded(child));
        ASSERT_TRUE(Synchronise());
        ASSERT_EQ(GetInteger("before"), 1);
    }
    EXPECT_GE(GetInteger("changing"), 0);
    EXPECT_FALSE(std::filesystem::exists(File() + ".damaged-1"));
}

}  // namespace
