#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <bit>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/CoreFoundation.h"
#include "platform/Owned.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/Preferences/PreferenceFile.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/CommaLocale.h"
#include "tests/fixtures/TracedChild.h"

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

void ExpectRealsToReturn() {
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

TEST_F(PreferencesTest, RealsReturnBitForBit) {
    ExpectRealsToReturn();
}

TEST_F(PreferencesTest, RealsReturnBitForBitWhereNumbersHaveAComma) {
    const CommaLocale locale;
    if (!locale.IsThere()) GTEST_SKIP() << "no locale with a decimal comma could be made (localedef gave " << locale.ToolStatus() << ")";
    ExpectRealsToReturn();
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

// Whatever call a writer is in when it dies, the old file or the new one stands there, and the next writer goes on.
TEST_F(PreferencesTest, AWriterKilledAtAnyOfItsSystemCallsLeavesAWholeFile) {
    SetInteger("before", 1);
    SetInteger("changing", 0);
    ASSERT_TRUE(Synchronise());
    int64_t stored = 0;
    int calls = 1;
    for (bool killed = true; killed; ++calls) {
        const TracedEnd end = RunAndKillAtSystemCall(
            calls,
            [calls] {
                SetInteger("changing", calls);
                return Synchronise() ? 0 : 1;
            },
            &killed);
        if (!end.traced) GTEST_SKIP() << "tracing is not allowed here";
        ASSERT_EQ(end.status, killed ? -1 : 0);
        ASSERT_TRUE(
            Succeeded(Start([calls, stored] { return Synchronise() && (GetInteger("changing") == stored || GetInteger("changing") == calls); })));
        ASSERT_TRUE(Synchronise());
        ASSERT_EQ(GetInteger("before"), 1);
        stored = GetInteger("changing");
        if (!killed) {
            ASSERT_EQ(stored, calls);
        }
    }
    EXPECT_GT(calls, 10);
    EXPECT_FALSE(std::filesystem::exists(File() + ".damaged-1"));
    // The file, its lock and at most one unfinished file.
    const auto files = std::filesystem::directory_iterator(std::filesystem::path(File()).parent_path());
    EXPECT_LE(std::distance(begin(files), end(files)), 3);
}

// Another thread may be anywhere in the store's code when a process forks.
TEST_F(PreferencesTest, AChildOfABusyProcessReadsAndWrites) {
    std::atomic<bool> isOver = false;
    std::thread writer([&isOver] {
        for (int64_t value = 0; !isOver; ++value) {
            SetInteger("parent", value);
            Synchronise();
        }
    });
    for (int64_t child = 1; child <= 100; ++child) {
        EXPECT_TRUE(Succeeded(Start([child] {
            alarm(30);
            SetInteger("child", child);
            return Synchronise() && GetInteger("child") == child;
        }))) << child;
        EXPECT_TRUE(Synchronise());
        EXPECT_EQ(GetInteger("child"), child);
    }
    isOver = true;
    writer.join();
}

TEST_F(PreferencesTest, NumbersOfEveryKindReturn) {
    const int64_t integers[] = {0,     1,     -1,         127,        128,        255,        256,       32767,
                                65535, 65536, 2147483647, 2147483648, 4294967295, 4294967296, INT64_MAX, INT64_MIN};
    for (const int64_t integer : integers) SetInteger(std::to_string(integer), integer);
    const double reals[] = {-0.0, 5e-324, std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(), 0.1, 1e308};
    for (size_t i = 0; i < std::size(reals); ++i) {
        Set("r" + std::to_string(i), Owned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &reals[i])).Get());
    }
    const double notANumber = std::bit_cast<double>(0x7FF8000000001234);
    Set("nan", Owned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &notANumber)).Get());
    ASSERT_TRUE(Synchronise());
    ASSERT_TRUE(Synchronise()) << "the second one reads the file";
    for (const int64_t integer : integers) EXPECT_EQ(GetInteger(std::to_string(integer)), integer);
    const auto bits = [](const std::string& key) {
        double real = 0.0;
        CFNumberGetValue(static_cast<CFNumberRef>(Get(key).Get()), kCFNumberFloat64Type, &real);
        return std::bit_cast<uint64_t>(real);
    };
    for (size_t i = 0; i < std::size(reals); ++i) EXPECT_EQ(bits("r" + std::to_string(i)), std::bit_cast<uint64_t>(reals[i]));
    EXPECT_EQ(bits("nan"), 0x7FF8000000001234u);
}

TEST_F(PreferencesTest, BlocksListsAndDictionariesReturn) {
    std::vector<UInt8> bytes(5000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<UInt8>(i * 7);
    const Owned<CFDataRef> block(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())));
    const Owned<CFDataRef> empty(CFDataCreate(kCFAllocatorDefault, nullptr, 0));
    const Owned<CFMutableDictionaryRef> inner(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFCopyStringDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFDictionarySetValue(inner.Get(), Text("block").Get(), block.Get());
    const Owned<CFMutableDictionaryRef> outer(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFCopyStringDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFDictionarySetValue(outer.Get(), Text("inner").Get(), inner.Get());
    CFDictionarySetValue(outer.Get(), Text("").Get(), kCFBooleanFalse);
    const CFTypeRef members[3] = {kCFBooleanTrue, block.Get(), inner.Get()};
    const Owned<CFArrayRef> list(CFArrayCreate(kCFAllocatorDefault, const_cast<const void**>(members), 3, &kCFTypeArrayCallBacks));
    CFDictionarySetValue(outer.Get(), Text("list").Get(), list.Get());
    Set("list", list.Get());
    Set("outer", outer.Get());
    Set("empty", empty.Get());
    ASSERT_TRUE(Synchronise());
    ASSERT_TRUE(Synchronise());
    EXPECT_TRUE(CFEqual(Get("outer").Get(), outer.Get()));
    EXPECT_TRUE(CFEqual(Get("list").Get(), list.Get()));
    EXPECT_TRUE(CFEqual(Get("empty").Get(), empty.Get()));
}

TEST_F(PreferencesTest, TextsOfAllScriptsReturnAsValuesAndAsKeys) {
    const std::vector<std::string> texts = {
        "", " ", "gr\xC3\xBCn", "\xE2\x82\xAC", "\xF0\x9F\x8E\xA8", "line\nbreak\ttab", "\"quoted\" <&>", std::string(70000, 'x')};
    for (const std::string& text : texts) Set("k" + text, Text(text).Get());
    ASSERT_TRUE(Synchronise());
    ASSERT_TRUE(Synchronise());
    for (const std::string& text : texts) {
        const Owned<CFTypeRef> value = Get("k" + text);
        ASSERT_TRUE(value.Get()) << text.substr(0, 20);
        EXPECT_TRUE(CFEqual(value.Get(), Text(text).Get())) << text.substr(0, 20);
    }
}

TEST_F(PreferencesTest, APropertyListToolReadsTheFile) {
    SetInteger("plus", 5);
    Set("text", Text("gr\xC3\xBCn").Get());
    ASSERT_TRUE(Synchronise());
    const std::string xml = folder_ + "/out.xml";
    ASSERT_EQ(system(("plistutil -i '" + File() + "' -o '" + xml + "'").c_str()), 0);
    std::ifstream file(xml);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    EXPECT_NE(text.find("<key>plus</key>"), std::string::npos) << text;
    EXPECT_NE(text.find("<integer>5</integer>"), std::string::npos) << text;
    EXPECT_NE(text.find("<string>gr\xC3\xBCn</string>"), std::string::npos) << text;
}

TEST_F(PreferencesTest, AFileThatPythonWroteIsRead) {
    std::filesystem::create_directories(std::filesystem::path(File()).parent_path());
    for (const std::string format : {"FMT_BINARY", "FMT_XML"}) {
        ASSERT_EQ(
            system(("python3 -c 'import plistlib,sys\nplistlib.dump({\"plus\":7,\"real\":0.1,\"flag\":False},open(sys.argv[1],\"wb\"),fmt=plistlib." +
                    format + ")' '" + File() + "'")
                       .c_str()),
            0);
        ASSERT_TRUE(Synchronise());
        EXPECT_EQ(GetInteger("plus"), 7) << format;
        EXPECT_TRUE(CFEqual(Get("flag").Get(), kCFBooleanFalse)) << format;
        double real = 0.0;
        CFNumberGetValue(static_cast<CFNumberRef>(Get("real").Get()), kCFNumberFloat64Type, &real);
        EXPECT_EQ(real, 0.1) << format;
        std::filesystem::remove(File());
        ASSERT_TRUE(Synchronise());
    }
}

TEST_F(PreferencesTest, AFileBehindALinkIsReplacedThereAndADamagedOneIsKept) {
    const std::string real = folder_ + "/real.plist";
    SetInteger("first", 1);
    ASSERT_TRUE(Synchronise());
    std::filesystem::rename(File(), real);
    std::filesystem::create_symlink(real, File());
    SetInteger("linked", 4);
    ASSERT_TRUE(Synchronise());
    EXPECT_TRUE(std::filesystem::is_symlink(File()));
    EXPECT_TRUE(std::filesystem::is_regular_file(real));
    std::ofstream(real) << "damaged";
    SetInteger("after", 5);
    ASSERT_TRUE(Synchronise());
    std::ifstream kept(real);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "damaged");
    EXPECT_TRUE(std::filesystem::is_symlink(File() + ".damaged-1"));
    EXPECT_EQ(GetInteger("after"), 5);
}

TEST_F(PreferencesTest, ALinkToNothingYetIsFilledWhereItPoints) {
    std::filesystem::create_directories(std::filesystem::path(File()).parent_path());
    for (const std::string& target : {folder_ + "/absolute.plist", std::string("relative.plist")}) {
        std::filesystem::create_symlink(target, File());
        SetInteger("linked", 4);
        ASSERT_TRUE(Synchronise());
        EXPECT_TRUE(std::filesystem::is_symlink(File())) << target;
        ASSERT_TRUE(Synchronise());
        EXPECT_EQ(GetInteger("linked"), 4) << target;
        std::filesystem::remove(File());
    }
    // Where it cannot be filled, the values stay pending and the link stays.
    std::filesystem::create_symlink(folder_ + "/missing/file.plist", File());
    SetInteger("linked", 5);
    EXPECT_FALSE(Synchronise());
    EXPECT_TRUE(std::filesystem::is_symlink(File()));
    EXPECT_EQ(GetInteger("linked"), 5);
    std::filesystem::remove(File());
    EXPECT_TRUE(Synchronise());
}

TEST_F(PreferencesTest, LinksThatLeadOnStayLinksAndTheirEndIsFilled) {
    std::filesystem::create_directories(std::filesystem::path(File()).parent_path());
    std::filesystem::create_directory(folder_ + "/kept");
    std::filesystem::create_symlink(folder_ + "/kept/first", File());
    std::filesystem::create_symlink("second", folder_ + "/kept/first");
    SetInteger("one", 1);
    EXPECT_TRUE(Synchronise());
    EXPECT_TRUE(std::filesystem::is_symlink(File()));
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ + "/kept/first"));
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(folder_ + "/kept/second")));
}

TEST_F(PreferencesTest, APipeInTheUnfinishedFilesPlaceIsNotWaitedFor) {
    std::filesystem::create_directories(std::filesystem::path(File()).parent_path());
    ASSERT_EQ(mkfifo((File() + ".new").c_str(), 0600), 0);
    SetInteger("one", 1);
    EXPECT_TRUE(Synchronise());
    EXPECT_TRUE(std::filesystem::is_regular_file(File()));
}

TEST_F(PreferencesTest, AKeyWithANULIsNoKey) {
    const UniChar characters[3] = {'a', 0, 'b'};
    const Owned<CFStringRef> odd(CFStringCreateWithCharacters(kCFAllocatorDefault, characters, 3));
    SetInteger("a", 1);
    CFPreferencesSetValue(odd.Get(), kCFBooleanTrue, Text(kApplication).Get(), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
    ASSERT_TRUE(Synchronise());
    ASSERT_TRUE(Synchronise());
    EXPECT_EQ(GetInteger("a"), 1);
    EXPECT_EQ(CFPreferencesCopyValue(odd.Get(), Text(kApplication).Get(), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost), nullptr);
}

TEST_F(PreferencesTest, WhatCannotBeReadIsKeptUnderAnotherName) {
    struct Row {
        const char* what;
        void (*make)(const std::string& file);
    };
    const Row rows[] = {
        {"a folder", [](const std::string& file) { std::filesystem::create_directory(file); }},
        {"a pipe that nobody writes to", [](const std::string& file) { ASSERT_EQ(mkfifo(file.c_str(), 0600), 0); }},
        {"a link to a device that never ends", [](const std::string& file) { std::filesystem::create_symlink("/dev/zero", file); }},
        {"no bytes", [](const std::string& file) { std::ofstream(file).close(); }},
        {"a list instead of a dictionary", [](const std::string& file) { std::ofstream(file) << "<plist version=\"1.0\"><array/></plist>"; }},
        {"a link to itself", [](const std::string& file) { std::filesystem::create_symlink(file, file); }},
    };
    std::filesystem::create_directories(std::filesystem::path(File()).parent_path());
    int number = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        std::filesystem::remove_all(File());
        row.make(File());
        SetInteger("after", ++number);
        EXPECT_TRUE(Synchronise());
        EXPECT_TRUE(std::filesystem::is_regular_file(File()));
        EXPECT_NE(std::filesystem::symlink_status(File() + ".damaged-" + std::to_string(number)).type(), std::filesystem::file_type::not_found);
        ASSERT_TRUE(Synchronise());
        EXPECT_EQ(GetInteger("after"), number);
    }
}

// ---- files that would take much more than they are long ----

/// A binary property list of lists, by number, of which the first is the top one; with the values that follow them.
std::string BinaryList(const std::vector<std::vector<std::uint16_t>>& lists, const std::string& values = "", size_t valueCount = 0) {
    std::string bytes = "bplist00";
    std::vector<size_t> offsets;
    const auto number = [&bytes](std::uint64_t value, int size) {
        for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
    };
    for (const std::vector<std::uint16_t>& list : lists) {
        offsets.push_back(bytes.size());
        bytes += static_cast<char>(0xAF);
        bytes += 0x11;
        number(list.size(), 2);
        for (const std::uint16_t item : list) number(item, 2);
    }
    for (size_t value = 0; value < valueCount; ++value) {
        offsets.push_back(bytes.size());
        bytes += values;
    }
    const size_t table = bytes.size();
    for (const size_t offset : offsets) number(offset, 4);
    number(0, 6);
    number(4, 1);
    number(2, 1);
    number(offsets.size(), 8);
    number(0, 8);
    number(table, 8);
    return bytes;
}

std::string ListsOfTheNext(std::uint16_t levels, size_t copies) {
    std::vector<std::vector<std::uint16_t>> lists;
    for (std::uint16_t level = 0; level + 1 < levels; ++level) lists.emplace_back(copies, level + 1);
    lists.emplace_back();
    return BinaryList(lists);
}

std::string Repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

TEST_F(PreferencesTest, WhatTakesMuchMoreThanItIsLongIsKeptUnderAnotherName) {
    const struct {
        const char* what;
        std::string bytes;
        const char* damage;
    } rows[] = {
        {"lists of eight of the next one", ListsOfTheNext(11, 8), "it expands to more than 32 MiB"},
        {"a text named often",
         BinaryList({std::vector<std::uint16_t>(3000, 1)}, std::string("\x5F\x12\x00\x02\x00\x00", 6) + std::string(0x20000, 'a'), 1),
         "it expands to more than 32 MiB"},
        {"a list of itself", BinaryList({{0}}), "its lists lie more than 64 levels deep, or in themselves"},
        {"two lists of each other, many times", BinaryList({std::vector<std::uint16_t>(1000, 1), std::vector<std::uint16_t>(1000, 0)}),
         "its lists lie more than 64 levels deep, or in themselves"},
        {"lists in lists, ten thousand deep", ListsOfTheNext(10000, 1), "its lists lie more than 64 levels deep, or in themselves"},
        {"a reference to nothing", BinaryList({{7}}), "its binary structure is broken"},
        {"a trailer alone", "bplist00" + std::string(32, '\xFF'), "its binary structure is broken"},
        {"lists in lists as text", "<plist version=\"1.0\">" + Repeated("<array>", 100000) + Repeated("</array>", 100000) + "</plist>",
         "it holds more than 1,000 lists"},
        {"lists that comments seem to close", "<plist version=\"1.0\">" + Repeated("<array><!-- </array> -->", 50000) + "</plist>",
         "it holds more than 1,000 lists"},
        {"a long file", std::string(5 << 20, ' '), "it is longer than 4 MiB"},
    };
    std::filesystem::create_directories(std::filesystem::path(File()).parent_path());
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::ofstream(File(), std::ios::binary) << row.bytes;
        const std::string aside = File() + ".damaged-" + std::to_string(++number);
        EXPECT_EQ(InAChild([]() -> std::string {
                      alarm(30);
                      rusage before, after;
                      getrusage(RUSAGE_SELF, &before);
                      SetInteger("after", 1);
                      testing::internal::CaptureStderr();
                      const bool isWritten = Synchronise();
                      const std::string said = testing::internal::GetCapturedStderr();
                      getrusage(RUSAGE_SELF, &after);
                      if (!isWritten || GetInteger("after") != 1) return "not written";
                      return after.ru_maxrss - before.ru_maxrss < 100000 ? said : "took much memory";
                  }),
                  "The settings in " + File() + " cannot be read: " + row.damage + ". The file is kept as " + aside + ".\n");
        EXPECT_EQ(std::filesystem::file_size(aside), row.bytes.size());
    }
}

TEST_F(PreferencesTest, NoMoreIsWrittenThanIsReadAgain) {
    SetInteger("stored", 1);
    ASSERT_TRUE(Synchronise());
    const std::vector<UInt8> bytes(5 << 20);
    Set("long", Owned<CFDataRef>(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size()))).Get());
    EXPECT_FALSE(Synchronise());
    Set("long", nullptr);
    EXPECT_TRUE(Synchronise());
    EXPECT_EQ(GetInteger("stored"), 1);
}

TEST_F(PreferencesTest, AFileThatMayNotBeReadStaysWhereItIs) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    SetInteger("stored", 1);
    ASSERT_TRUE(Synchronise());
    const std::filesystem::path folder = std::filesystem::path(File()).parent_path();
    for (const std::filesystem::path& path : {std::filesystem::path(folder_), folder}) {
        std::filesystem::permissions(path, std::filesystem::perms(0777));
    }
    std::filesystem::permissions(File() + ".lock", std::filesystem::perms(0666));
    std::filesystem::permissions(File(), std::filesystem::perms(0600));
    EXPECT_EQ(AsNobody([] {
                  SetInteger("stored", 3);
                  return std::string(Synchronise() ? "written" : "pending ") + std::to_string(GetInteger("stored"));
              }),
              "pending 3");
    EXPECT_FALSE(std::filesystem::exists(File() + ".damaged-1"));
    ASSERT_TRUE(Synchronise());
    EXPECT_EQ(GetInteger("stored"), 1);
}

TEST_F(PreferencesTest, WithoutPermissionValuesStayPendingAndTheFileStays) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    SetInteger("stored", 1);
    ASSERT_TRUE(Synchronise());
    std::filesystem::permissions(folder_, std::filesystem::perms(0755));
    std::filesystem::permissions(std::filesystem::path(File()).parent_path(), std::filesystem::perms(0755));
    std::filesystem::permissions(File(), std::filesystem::perms(0644));
    // A folder that may be read and not written.
    EXPECT_EQ(AsNobody([] {
                  const bool read = Synchronise() && GetInteger("stored") == 1;
                  SetInteger("stored", 2);
                  const bool written = Synchronise();
                  return std::string(read ? "read " : "- ") + (written ? "written" : "pending ") + std::to_string(GetInteger("stored"));
              }),
              "read pending 2");
    // A file that may not be read, in such a folder: it cannot be set aside either.
    std::filesystem::permissions(File(), std::filesystem::perms(0600));
    EXPECT_EQ(AsNobody([] {
                  SetInteger("stored", 3);
                  return std::string(Synchronise() ? "written" : "pending");
              }),
              "pending");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(std::filesystem::path(File()).parent_path()), std::filesystem::directory_iterator()),
              2);
    ASSERT_TRUE(Synchronise());
    EXPECT_EQ(GetInteger("stored"), 1);
}

}  // namespace
