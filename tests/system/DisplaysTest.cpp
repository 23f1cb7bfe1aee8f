// Displays of a real X server, checked by another client of it.

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <lcms2.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <random>

#include "calibration/Displays.h"
#include "calibration/MonitorCalibration.h"
#include "platform/Owned.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/FakeBus.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/ForksWithThreads.h"
#include "tests/fixtures/PrivateBus.h"
#include "tests/fixtures/ResourceForkScript.h"
#include "tests/fixtures/XorgServer.h"

namespace {

using Ramp = std::vector<std::vector<uint16_t>>;

struct Dispose {
    void operator()(MC_OpaqueGammaTable* table) const { MC_DisposeGammaTable(table); }
};
using Table = std::unique_ptr<MC_OpaqueGammaTable, Dispose>;

Table TableOf(CGDirectDisplayID display) {
    MC_OpaqueGammaTable* table = nullptr;
    EXPECT_EQ(MC_CopyGammaTableForDisplay(display, &table), 0);
    return Table(table);
}

int EntriesOf(const Table& table) {
    int16_t channels = 0, entries = 0, width = 0;
    MC_GetGammaTableParams(table.get(), &channels, &entries, &width);
    EXPECT_EQ(channels, 3);
    EXPECT_EQ(width, 16);
    return entries;
}

/// The stored 16 bits of an entry.
int Stored(const Table& table, int channel, int entry) {
    return static_cast<int>(std::lround(MC_GetGammaVal(table.get(), static_cast<int16_t>(channel), static_cast<int16_t>(entry)) * 65535.0));
}

Ramp RandomRamp(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    Ramp ramp(3, std::vector<uint16_t>(size));
    for (auto& channel : ramp) {
        for (uint16_t& entry : channel) entry = static_cast<uint16_t>(random());
    }
    return ramp;
}

std::string IdentifierOf(CGDirectDisplayID display) {
    const Owned<CFUUIDRef> uuid(CGDisplayCreateUUIDFromDisplayID(display));
    if (!uuid) return "none";
    const Owned<CFStringRef> string(CFUUIDCreateString(kCFAllocatorDefault, uuid.Get()));
    char text[64] = "";
    CFStringGetCString(string.Get(), text, sizeof text, kCFStringEncodingUTF8);
    return text;
}

int Shell(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str());
}

void PlugThree() {
    ASSERT_EQ(Shell("xrandr --addmode DUMMY1 1280x1024 && xrandr --output DUMMY1 --mode 1280x1024 --right-of DUMMY0"), 0);
    ASSERT_EQ(Shell("xrandr --addmode DUMMY2 1024x768 && xrandr --output DUMMY2 --mode 1024x768 --pos 0x1080"), 0);
}

std::vector<uint8_t> Identification(uint8_t serial) {
    std::vector<uint8_t> bytes(128, 0);
    const uint8_t start[] = {0, 255, 255, 255, 255, 255, 255, 0, 0x10, 0xAC, 1, 2};
    std::copy(std::begin(start), std::end(start), bytes.begin());
    bytes[12] = serial;
    return bytes;
}

#define ASSERT_RUNNING(server) ASSERT_TRUE((server).Running()) << "Xorg with the dummy driver did not start"

void ExpectNone() {
    EXPECT_EQ(MC_NumDisplays(), 0);
    EXPECT_EQ(MC_GetMainDisplay(), 0u);
    EXPECT_EQ(MC_GetIndexedDisplay(1), 0u);
    EXPECT_EQ(MC_GetDisplayIndex(66), -1);
    MC_DisplayInfo info;
    MC_GetDisplayInfo(66, &info);
    EXPECT_EQ(info.depth, 0);
    EXPECT_EQ(info.index, 0);
    EXPECT_FALSE(MC_DisplayIsSuitableForCalibration(66));
    MC_OpaqueGammaTable* table = reinterpret_cast<MC_OpaqueGammaTable*>(&info);
    EXPECT_NE(MC_CopyGammaTableForDisplay(66, &table), 0);
    EXPECT_EQ(table, nullptr);
    const Table linear(MC_CreateGammaTable(3, 256, 16));
    EXPECT_NE(MC_SetDisplayGammaTable(66, linear.get()), 0);
    CGDisplayRestoreColorSyncSettings();
    EXPECT_EQ(IdentifierOf(66), "none");
    EXPECT_EQ(MC_SetProfileForDisplay(66, nullptr), -50);
}

TEST(Displays, AreNoneWithoutAServer) {
    unsetenv("DISPLAY");
    ExpectNone();
    for (const char* name : {"", ":987", "nonsense", "/no/such/socket"}) {
        setenv("DISPLAY", name, 1);
        ExpectNone();
    }
    unsetenv("DISPLAY");
}

TEST(Displays, OfEveryDepthAreDescribedAndKeepTheirRamps) {
    const struct {
        int serverDepth, depth, bits, size, samples;
    } rows[] = {{15, 16, 5, 32, 32}, {16, 0, 0, 64, 64}, {24, 32, 8, 256, 256}, {30, 30, 10, 1024, 256}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.serverDepth);
        const XorgServer server(row.serverDepth);
        ASSERT_RUNNING(server);
        const CGDirectDisplayID display = MC_GetMainDisplay();
        MC_DisplayInfo info;
        MC_GetDisplayInfo(display, &info);
        EXPECT_EQ(info.depth, row.depth);
        EXPECT_EQ(info.bitsPerSample, row.bits);
        EXPECT_EQ(MC_DisplayIsSuitableForCalibration(display), row.depth > 15);

        XClient client;
        const auto size = static_cast<size_t>(row.size);
        const Ramp ramp = RandomRamp(size, 7);
        client.SetRamp("DUMMY0", ramp);
        ASSERT_EQ(client.Ramp("DUMMY0"), ramp);
        const Table table = TableOf(display);
        ASSERT_EQ(EntriesOf(table), row.samples);
        const auto knot = [&](int i) { return static_cast<size_t>(std::lround(static_cast<double>(i) * (row.size - 1) / (row.samples - 1))); };
        for (int c = 0; c < 3; ++c) {
            for (int i = 0; i < row.samples; ++i) ASSERT_EQ(Stored(table, c, i), ramp[static_cast<size_t>(c)][knot(i)]) << c << " " << i;
        }

        // Loaded again the knots stand as they were, with straight lines between; a second time nothing changes at all.
        ASSERT_EQ(MC_SetDisplayGammaTable(display, table.get()), 0);
        const Ramp loaded = client.Ramp("DUMMY0");
        for (size_t c = 0; c < 3; ++c) {
            for (int i = 0; i + 1 < row.samples; ++i) {
                const size_t from = knot(i), to = knot(i + 1);
                ASSERT_EQ(loaded[c][from], ramp[c][from]);
                for (size_t j = from; j <= to; ++j) {
                    const double straight =
                        ramp[c][from] + (ramp[c][to] - ramp[c][from]) * static_cast<double>(j - from) / static_cast<double>(to - from);
                    ASSERT_NEAR(loaded[c][j], straight, 0.51);
                }
            }
        }
        ASSERT_EQ(MC_SetDisplayGammaTable(display, TableOf(display).get()), 0);
        EXPECT_EQ(client.Ramp("DUMMY0"), loaded);
    }
}

TEST(Displays, ThreeOfThemStandWhereTheyAreAndHaveRampsOfTheirOwn) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    ASSERT_EQ(MC_NumDisplays(), 3);
    const int expected[3][4] = {{0, 0, 1080, 1920}, {0, 1920, 1024, 3200}, {1080, 0, 1848, 1024}};
    XClient client;
    for (int i = 0; i < 3; ++i) {
        const CGDirectDisplayID display = MC_GetIndexedDisplay(i + 1);
        EXPECT_EQ(MC_GetDisplayIndex(display), i + 1);
        MC_DisplayInfo info;
        MC_GetDisplayInfo(display, &info);
        EXPECT_EQ(info.index, i + 1);
        EXPECT_EQ(std::vector<int>({info.top, info.left, info.bottom, info.right}), std::vector<int>(expected[i], expected[i] + 4));
        client.SetRamp("DUMMY" + std::to_string(i), RandomRamp(256, static_cast<unsigned>(i)));
    }
    EXPECT_EQ(MC_GetMainDisplay(), MC_GetIndexedDisplay(1));
    const CGDirectDisplayID second = MC_GetIndexedDisplay(2);
    const Table third = TableOf(MC_GetIndexedDisplay(3));
    EXPECT_EQ(MC_SetDisplayGammaTable(second, third.get()), 0);
    EXPECT_EQ(client.Ramp("DUMMY0"), RandomRamp(256, 0));
    EXPECT_EQ(client.Ramp("DUMMY1"), RandomRamp(256, 2));
    EXPECT_EQ(client.Ramp("DUMMY2"), RandomRamp(256, 2));

    // The primary one comes first.
    ASSERT_EQ(Shell("xrandr --output DUMMY1 --primary"), 0);
    EXPECT_EQ(MC_GetMainDisplay(), second);
    // One that is unplugged is gone, and the others go on.
    ASSERT_EQ(Shell("xrandr --output DUMMY1 --off"), 0);
    EXPECT_EQ(MC_NumDisplays(), 2);
    EXPECT_EQ(MC_GetDisplayIndex(second), -1);
    EXPECT_NE(MC_SetDisplayGammaTable(second, third.get()), 0);
    EXPECT_EQ(client.Ramp("DUMMY0"), RandomRamp(256, 0));
}

TEST(Displays, RampsOfTheWrongShapeAreRefusedAndChangeNothing) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    XClient client;
    client.SetRamp("DUMMY0", RandomRamp(256, 5));
    const CGDirectDisplayID display = MC_GetMainDisplay();
    for (const auto& [channels, entries, width] : {std::tuple{1, 256, 8}, {2, 256, 16}, {4, 16, 16}, {3, 257, 16}, {3, 1000, 16}}) {
        const Table table(MC_CreateGammaTable(static_cast<int16_t>(channels), static_cast<int16_t>(entries), static_cast<int16_t>(width)));
        EXPECT_EQ(MC_SetDisplayGammaTable(display, table.get()), -50) << channels << " " << entries;
    }
    EXPECT_EQ(client.Ramp("DUMMY0"), RandomRamp(256, 5));
    // Fewer entries, or narrower ones, are stretched.
    MC_SetDisplayToLinearGammaTable(display, 3, 2, 16);
    for (size_t j = 0; j < 256; ++j) EXPECT_EQ(client.Ramp("DUMMY0")[1][j], 257 * j) << j;
    MC_SetDisplayToLinearGammaTable(display, 3, 256, 8);
    for (size_t j = 0; j < 256; ++j) EXPECT_EQ(client.Ramp("DUMMY0")[2][j], 257 * j) << j;
}

TEST(Displays, AreKnownByTheirIdentificationWhereverTheyArePlugged) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    const auto identifiers = [] {
        return std::vector<std::string>{IdentifierOf(MC_GetIndexedDisplay(1)), IdentifierOf(MC_GetIndexedDisplay(2)),
                                        IdentifierOf(MC_GetIndexedDisplay(3))};
    };
    const std::vector<std::string> bare = identifiers();
    EXPECT_NE(bare[0], bare[1]);
    EXPECT_NE(bare[1], bare[2]);
    EXPECT_EQ(identifiers(), bare);
    client.SetIdentification("DUMMY0", Identification(1));
    client.SetIdentification("DUMMY1", Identification(2));
    const std::vector<std::string> named = identifiers();
    EXPECT_NE(named[0], bare[0]);
    EXPECT_NE(named[0], named[1]);
    EXPECT_EQ(named[2], bare[2]);
    // Changed round, they are still the same displays.
    client.SetIdentification("DUMMY0", Identification(2));
    client.SetIdentification("DUMMY1", Identification(1));
    EXPECT_EQ(identifiers(), (std::vector<std::string>{named[1], named[0], named[2]}));
    // Twins are told apart by where they are plugged in; the others do not change by it.
    client.SetIdentification("DUMMY1", Identification(2));
    EXPECT_EQ(identifiers(), (std::vector<std::string>{named[1], identifiers()[1], named[2]}));
    EXPECT_NE(identifiers()[1], named[1]);
    // Without a serial number a twin makes no difference.
    client.SetIdentification("DUMMY1", Identification(0));
    const std::vector<std::string> alone = identifiers();
    client.SetIdentification("DUMMY2", Identification(0));
    EXPECT_EQ(identifiers()[1], alone[1]);
    EXPECT_NE(identifiers()[2], alone[1]);
    EXPECT_EQ(identifiers()[0], named[1]);
}

TEST(Displays, AreDescribedByTheirIdentification) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    XClient client;
    std::vector<uint8_t> data = Identification(42);
    const std::string model = "Studio 24\n   ";
    data[57] = 0xFC;
    std::copy(model.begin(), model.end(), data.begin() + 59);
    client.SetIdentification("DUMMY0", data);
    MC_DisplayIdentity identity;
    MC_GetDisplayIdentity(MC_GetMainDisplay(), &identity);
    EXPECT_STREQ(identity.output, "DUMMY0");
    EXPECT_STREQ(identity.make, "DEL");
    EXPECT_STREQ(identity.model, "Studio 24");
    EXPECT_STREQ(identity.serial, "42");
    EXPECT_EQ(identity.identifier, IdentifierOf(MC_GetMainDisplay()));
    MC_GetDisplayIdentity(77, &identity);
    EXPECT_STREQ(identity.output, "");
    EXPECT_STREQ(identity.identifier, "");
}

TEST(Displays, HaveTheSameNumbersOnEveryServer) {
    CGDirectDisplayID before = 0;
    xcb_randr_output_t numberBefore = 0;
    for (const int depth : {24, 30}) {
        const XorgServer server(depth);
        ASSERT_RUNNING(server);
        XClient client;
        client.SetIdentification("DUMMY0", Identification(5));
        if (before == 0) {
            before = MC_GetMainDisplay();
            numberBefore = client.Number("DUMMY0");
            continue;
        }
        EXPECT_NE(client.Number("DUMMY0"), numberBefore) << "servers whose own numbers differ are needed here";
        EXPECT_EQ(MC_GetMainDisplay(), before);
        EXPECT_EQ(MC_GetDisplayIndex(before), 1);
    }
}

TEST(Displays, OfDocumentsWithNumbersOfAServerAreFoundByThemAndElseByPosition) {
    const TemporaryFolder folder;
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    const auto display = [](int position) {
        char line[80];
        std::snprintf(line, sizeof line, "GDIN %d 0 - 0018000000000438078000%02d\n", 127 + position, position);
        return std::string(line) + "GAMA " + std::to_string(127 + position) + " 0 - 0000000000000003000200100000ffff0000ffff0000ffff\n";
    };
    const auto positions = [&](std::vector<uint32_t> numbers) {
        std::string ids;
        for (const uint32_t number : numbers) {
            char text[16];
            std::snprintf(text, sizeof text, "%08x", number);
            ids += text;
        }
        EXPECT_TRUE(WriteForkWithScript(folder / "doc", "CALS 128 0 - 00\n" + display(1) + display(2) + display(3) + "DPID 128 0 - " + ids + "\n"));
        const FSRef file = NewRef(folder / "doc");
        const MonitorCalibration document(&file);
        std::vector<int> found;
        for (int16_t i = 0; i < document.NumGammaTables(); ++i) found.push_back(document.DisplayIndex(i));
        return found;
    };
    using Positions = std::vector<int>;
    const uint32_t numbers[3] = {client.Number("DUMMY0"), client.Number("DUMMY1"), client.Number("DUMMY2")};
    EXPECT_EQ(positions({numbers[2], numbers[0], numbers[1]}), Positions({3, 1, 2})) << "of this server";
    EXPECT_EQ(positions({3, 4, 5}), Positions({1, 2, 3})) << "of another server";
    EXPECT_EQ(positions({MC_GetIndexedDisplay(2), MC_GetIndexedDisplay(3), 0x80000005}), Positions({2, 3, -1})) << "of displays";
    ASSERT_EQ(Shell("xrandr --output DUMMY1 --off"), 0);
    EXPECT_EQ(positions({numbers[0], numbers[1], numbers[2]}), Positions({1, -1, 2})) << "of this server, one unplugged";
}

/// Whether the main run loop tells of a change before the time is over.
bool IsTold(const std::function<void()>& change, double seconds = 20.0) {
    int told = 0;
    const auto callback = [](CGDirectDisplayID, CGDisplayChangeSummaryFlags, void* count) { ++*static_cast<int*>(count); };
    EXPECT_EQ(CGDisplayRegisterReconfigurationCallback(callback, &told), 0);
    // What the start of it brings is past.
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.3, false);
    told = 0;
    change();
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (told == 0 && std::chrono::steady_clock::now() < end) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.1, true);
    EXPECT_EQ(CGDisplayRemoveReconfigurationCallback(callback, &told), 0);
    EXPECT_NE(CGDisplayRemoveReconfigurationCallback(callback, &told), 0);
    return told > 0;
}

TEST(Displays, AreToldOfWhenTheyChange) {
    const TemporaryFolder folder;
    const PrivateBus bus(folder);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    EXPECT_TRUE(IsTold([] { Shell("xrandr --output DUMMY1 --off"); }));
    EXPECT_TRUE(IsTold([] { Shell("xrandr --output DUMMY1 --mode 1280x1024"); }));
    EXPECT_TRUE(IsTold([] { Shell("xrandr --output DUMMY1 --primary"); }));
    EXPECT_TRUE(IsTold([&] { client.SetIdentification("DUMMY1", Identification(5)); }));
    EXPECT_TRUE(IsTold([&] { client.SetProperty("_ICC_PROFILE_2", {1, 2, 3}); }));
    EXPECT_TRUE(IsTold([&] { client.SetOutputProperty("DUMMY0", "_ICC_PROFILE", {1, 2, 3}); }));
    EXPECT_TRUE(IsTold([&] {
        Shell("dbus-send --bus=" + bus.Address() +
              " --type=signal /org/freedesktop/login1 org.freedesktop.login1.Manager.PrepareForSleep boolean:false");
    }));
    EXPECT_FALSE(IsTold([&] { client.SetProperty("_NET_ACTIVE_WINDOW", {1, 2, 3}); }, 1.0));
    EXPECT_FALSE(IsTold([&] { client.SetRamp("DUMMY0", RandomRamp(256, 1)); }, 1.0)) << "the server says nothing of ramps";
    EXPECT_TRUE(IsTold([&] { server.End(); }));
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

std::vector<uint8_t> ProfileWithCalibration(double gamma) {
    const std::unique_ptr<void, decltype(&cmsCloseProfile)> profile(cmsCreate_sRGBProfile(), cmsCloseProfile);
    const std::unique_ptr<cmsToneCurve, decltype(&cmsFreeToneCurve)> curve(cmsBuildGamma(nullptr, gamma), cmsFreeToneCurve);
    const cmsToneCurve* curves[3] = {curve.get(), curve.get(), curve.get()};
    EXPECT_TRUE(cmsWriteTag(profile.get(), cmsSigVcgtTag, curves));
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile.get(), nullptr, &size);
    std::vector<uint8_t> bytes(size);
    cmsSaveProfileToMem(profile.get(), bytes.data(), &size);
    return bytes;
}

TEST(Displays, GoBackToTheRampsOfTheirProfilesOrToStraightLines) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    client.SetProperty("_ICC_PROFILE_1", ProfileWithCalibration(2.0));
    for (int i = 0; i < 3; ++i) client.SetRamp("DUMMY" + std::to_string(i), RandomRamp(256, 9));
    CGDisplayRestoreColorSyncSettings();
    for (size_t j = 0; j < 256; ++j) {
        EXPECT_EQ(client.Ramp("DUMMY0")[0][j], 257 * j);
        EXPECT_NEAR(client.Ramp("DUMMY1")[0][j], 65535.0 * std::pow(static_cast<double>(j) / 255.0, 2.0), 2.0) << j;
        EXPECT_EQ(client.Ramp("DUMMY2")[2][j], 257 * j);
    }
}

Owned<CFURLRef> URLOf(const std::string& path) {
    return Owned<CFURLRef>(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                                   static_cast<CFIndex>(path.size()), false));
}

std::pair<std::vector<uint8_t>, int> ProfileOf(CGDirectDisplayID display) {
    int32_t source = -1;
    const Owned<CFDataRef> profile(MC_CopyProfileForDisplay(display, &source));
    if (!profile) return {{}, source};
    return {{CFDataGetBytePtr(profile.Get()), CFDataGetBytePtr(profile.Get()) + CFDataGetLength(profile.Get())}, source};
}

/// 65535 times the power that the ramp's middle entry lies on.
double MiddleOf(double gamma) {
    return 65535.0 * std::pow(128.0 / 255.0, gamma);
}

/// Where no bus is, and the user's settings are a folder of the test's own.
class ProfilesOfDisplays : public testing::Test {
protected:
    void SetUp() override {
        setenv("XDG_CONFIG_HOME", (folder / "config").c_str(), 1);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + folder / "no-bus").c_str(), 1);
    }
    void TearDown() override {
        unsetenv("XDG_CONFIG_HOME");
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }
    TemporaryFolder folder;
};

/// A place for `serial` to be plugged in; 0 unplugs what is there.
void Plug(XClient& client, const std::string& output, uint8_t serial) {
    if (serial == 0) {
        ASSERT_EQ(Shell("xrandr --output " + output + " --off"), 0);
        client.SetOutputProperty(output, "EDID", {0});
        return;
    }
    client.SetIdentification(output, Identification(serial));
    ASSERT_EQ(Shell("xrandr --addmode " + output + " 1280x1024 ; xrandr --output " + output + " --mode 1280x1024"), 0);
}

std::string IdentifierAt(const std::string& output) {
    for (int position = 1; position <= MC_NumDisplays(); ++position) {
        MC_DisplayIdentity identity;
        MC_GetDisplayIdentity(MC_GetIndexedDisplay(position), &identity);
        if (identity.output == output) return identity.identifier;
    }
    return "none";
}

TEST_F(ProfilesOfDisplays, StayTheirsWhenATwinIsPluggedInAndOut) {
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(2.0));
    std::string own, twins;
    {
        const XorgServer server;
        ASSERT_RUNNING(server);
        XClient client;
        Plug(client, "DUMMY2", 7);
        own = IdentifierAt("DUMMY2");
        const CGDirectDisplayID display = MC_GetIndexedDisplay(2);
        ASSERT_EQ(MC_SetProfileForDisplay(display, URLOf(path).Get()), 0);
        Plug(client, "DUMMY1", 7);
        twins = IdentifierAt("DUMMY1");
        EXPECT_EQ(IdentifierAt("DUMMY2"), own);
        EXPECT_NE(twins, own);
        EXPECT_EQ(MC_GetDisplayIndex(display), 3);
        Plug(client, "DUMMY2", 0);
        EXPECT_EQ(IdentifierAt("DUMMY1"), twins) << "the other was unplugged";
        EXPECT_EQ(MC_GetDisplayIndex(display), -1);
        Plug(client, "DUMMY2", 7);
        EXPECT_EQ(IdentifierAt("DUMMY1"), twins);
        EXPECT_EQ(IdentifierAt("DUMMY2"), own);
        // Both go and come back, the twin first.
        Plug(client, "DUMMY1", 0);
        Plug(client, "DUMMY2", 0);
        EXPECT_EQ(IdentifierAt("DUMMY1"), "none");
        Plug(client, "DUMMY1", 7);
        EXPECT_EQ(IdentifierAt("DUMMY1"), twins);
        Plug(client, "DUMMY2", 7);
        EXPECT_EQ(IdentifierAt("DUMMY2"), own);
    }
    const XorgServer next;
    ASSERT_RUNNING(next);
    XClient client;
    PlugThree();
    client.SetIdentification("DUMMY1", Identification(7));
    client.SetIdentification("DUMMY2", Identification(7));
    EXPECT_EQ(IdentifierAt("DUMMY1"), twins) << "in a new session";
    EXPECT_EQ(IdentifierAt("DUMMY2"), own);
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(3)), std::pair(ReadFile(path), int{kMC_ProfileRemembered}));
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(2)).second, kMC_NoProfile);
}

/// The 16 bytes by which a display without a serial number was known while the computer's name counted, and the number that came of them.
std::vector<uint8_t> EarlierIdentifier(const std::string& output, std::vector<uint8_t> data) {
    const std::string place = g_get_host_name() + ("/" + output);
    data.insert(data.end(), place.begin(), place.end());
    gchar* const sum = g_compute_checksum_for_data(G_CHECKSUM_MD5, data.data(), data.size());
    std::vector<uint8_t> identifier;
    for (int i = 0; i < 16; ++i) identifier.push_back(static_cast<uint8_t>(std::stoi(std::string(sum + 2 * i, 2), nullptr, 16)));
    g_free(sum);
    identifier[6] = static_cast<uint8_t>((identifier[6] & 15) | 0x30);
    identifier[8] = static_cast<uint8_t>((identifier[8] & 63) | 0x80);
    return identifier;
}

TEST_F(ProfilesOfDisplays, AndDocumentsOfEarlierIdentifiersAreFound) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    client.SetIdentification("DUMMY2", Identification(0));
    const std::vector<uint8_t> identifier = EarlierIdentifier("DUMMY2", Identification(0));
    char number[16];
    std::snprintf(number, sizeof number, "%02x%02x%02x%02x", identifier[0] | 0x80, identifier[1], identifier[2], identifier[3]);
    ASSERT_TRUE(WriteForkWithScript(folder / "doc", std::string("CALS 128 0 - 00\nGDIN 128 0 - 001800000000043807800001\n"
                                                                "GAMA 128 0 - 0000000000000003000200100000ffff0000ffff0000ffff\nDPID 128 0 - ") +
                                                        number + "\n"));
    const FSRef file = NewRef(folder / "doc");
    EXPECT_EQ(MonitorCalibration(&file).DisplayIndex(0), 3);
    // A profile that was remembered under it, and is forgotten under every name.
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(2.0));
    CFUUIDBytes bytes;
    std::copy(identifier.begin(), identifier.end(), reinterpret_cast<uint8_t*>(&bytes));
    const Owned<CFUUIDRef> uuid(CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes));
    const Owned<CFStringRef> key(CFUUIDCreateString(kCFAllocatorDefault, uuid.Get()));
    const Owned<CFStringRef> value(CFStringCreateWithCString(kCFAllocatorDefault, path.c_str(), kCFStringEncodingUTF8));
    CFPreferencesSetValue(key.Get(), value.Get(), CFSTR("com.brenwick.orlocms.displays"), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
    ASSERT_TRUE(CFPreferencesSynchronize(CFSTR("com.brenwick.orlocms.displays"), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost));
    const CGDirectDisplayID display = MC_GetIndexedDisplay(3);
    EXPECT_EQ(ProfileOf(display), std::pair(ReadFile(path), int{kMC_ProfileRemembered}));
    EXPECT_EQ(MC_RemoveProfileForDisplay(display), 0);
    EXPECT_EQ(ProfileOf(display).second, kMC_NoProfile);
}

TEST_F(ProfilesOfDisplays, OfOneChannelServeAllThree) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    XClient client;
    const std::unique_ptr<void, decltype(&cmsCloseProfile)> profile(cmsCreate_sRGBProfile(), cmsCloseProfile);
    const uint8_t tag[] = {'v', 'c', 'g', 't', 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 3, 0, 1, 0, 51, 255};
    ASSERT_TRUE(cmsWriteRawTag(profile.get(), cmsSigVcgtTag, tag, sizeof tag));
    std::vector<uint8_t> bytes(100000);
    cmsUInt32Number size = static_cast<cmsUInt32Number>(bytes.size());
    ASSERT_TRUE(cmsSaveProfileToMem(profile.get(), bytes.data(), &size));
    bytes.resize(size);
    client.SetProperty("_ICC_PROFILE", bytes);
    CGDisplayRestoreColorSyncSettings();
    for (size_t c = 0; c < 3; ++c) {
        EXPECT_NEAR(client.Ramp("DUMMY0")[c][51], 51 * 257 * 0.4, 1.0) << c;
        EXPECT_EQ(client.Ramp("DUMMY0")[c][255], 65535) << c;
    }
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())));
    const Table table(MC_CreateGammaTableFromProfile(data.Get(), 256));
    ASSERT_TRUE(table);
    EXPECT_NEAR(Stored(table, 2, 51), 51 * 257 * 0.4, 1.0);
}

TEST_F(ProfilesOfDisplays, OfTheOutputComeBeforeThoseOfTheWindow) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    const auto bent = ProfileWithCalibration(2.0), other = ProfileWithCalibration(1.5);
    client.SetProperty("_ICC_PROFILE_1", other);
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(2)), std::pair(other, int{kMC_ProfileOfWindow}));
    client.SetOutputProperty("DUMMY1", "_ICC_PROFILE", bent);
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(2)), std::pair(bent, int{kMC_ProfileOfOutput}));
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(1)), std::pair(std::vector<uint8_t>(), int{kMC_NoProfile}));
    CGDisplayRestoreColorSyncSettings();
    EXPECT_NEAR(client.Ramp("DUMMY1")[0][128], MiddleOf(2.0), 2.0);
    EXPECT_EQ(client.Ramp("DUMMY0")[0][128], 128 * 257);
}

TEST_F(ProfilesOfDisplays, StayTheirsWhenAnotherBecomesThePrimaryOneOrIsUnplugged) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    client.SetProperty("_ICC_PROFILE_2", ProfileWithCalibration(3.0));  // by another program
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(2.0));
    ASSERT_EQ(MC_SetProfileForDisplay(MC_GetIndexedDisplay(2), URLOf(path).Get()), 0);
    const auto expectRamps = [&](bool isThirdNumbered2) {
        CGDisplayRestoreColorSyncSettings();
        EXPECT_EQ(client.Ramp("DUMMY0")[0][128], 128 * 257);
        EXPECT_NEAR(client.Ramp("DUMMY1")[0][128], MiddleOf(2.0), 2.0);
        EXPECT_NEAR(client.Ramp("DUMMY2")[0][128], isThirdNumbered2 ? MiddleOf(3.0) : 128.0 * 257, 2.0);
    };
    expectRamps(true);
    // The primary one is counted first: what another program wrote goes by the number, as all of them read it; ours stays with its display.
    for (const char* const primary : {"DUMMY1", "DUMMY2", "DUMMY0"}) {
        SCOPED_TRACE(primary);
        ASSERT_EQ(Shell(std::string("xrandr --output ") + primary + " --primary"), 0);
        expectRamps(std::string(primary) != "DUMMY2");
    }
    // The number of the second is now the first's, and the third's the second's, under which the second's profile still stands.
    ASSERT_EQ(Shell("xrandr --output DUMMY0 --off"), 0);
    CGDisplayRestoreColorSyncSettings();
    EXPECT_NEAR(client.Ramp("DUMMY1")[0][128], MiddleOf(2.0), 2.0);
    EXPECT_EQ(client.Ramp("DUMMY2")[0][128], 128 * 257);
    EXPECT_EQ(MC_InstallProfileForDisplay(MC_GetIndexedDisplay(1)), 1);
    EXPECT_EQ(client.Property("_ICC_PROFILE"), ReadFile(path));
    EXPECT_EQ(MC_InstallProfileForDisplay(MC_GetIndexedDisplay(1)), 0);
    EXPECT_EQ(MC_InstallProfileForDisplay(MC_GetIndexedDisplay(2)), 1);
    EXPECT_TRUE(client.Property("_ICC_PROFILE_1").empty());
    EXPECT_EQ(MC_InstallProfileForDisplay(MC_GetIndexedDisplay(2)), 0);
}

TEST_F(ProfilesOfDisplays, StandAtTheRootWindowUnderTheNumbersThatOtherProgramsCount) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    ASSERT_EQ(Shell("xrandr --output DUMMY2 --primary"), 0);
    // xrandr lists the monitors as Xinerama numbers them.
    ASSERT_EQ(Shell("xrandr --listmonitors | grep -q '^ 0: .*DUMMY2$'"), 0);
    client.SetProperty("_ICC_PROFILE", ProfileWithCalibration(2.0));  // by another program
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(1)), std::pair(ProfileWithCalibration(2.0), int{kMC_ProfileOfWindow}));
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(2)).second, kMC_NoProfile);
    CGDisplayRestoreColorSyncSettings();
    EXPECT_NEAR(client.Ramp("DUMMY2")[0][128], MiddleOf(2.0), 2.0);
    EXPECT_EQ(client.Ramp("DUMMY0")[0][128], 128 * 257);
}

TEST_F(ProfilesOfDisplays, StayTheirsWhenAnotherIsPluggedInAtTheSameOutput) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    client.SetIdentification("DUMMY1", Identification(3));
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(2.0));
    ASSERT_EQ(MC_SetProfileForDisplay(MC_GetIndexedDisplay(2), URLOf(path).Get()), 0);
    client.SetIdentification("DUMMY1", Identification(4));
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(2)).second, kMC_NoProfile);
    CGDisplayRestoreColorSyncSettings();
    EXPECT_EQ(client.Ramp("DUMMY1")[0][128], 128 * 257);
    EXPECT_EQ(MC_InstallProfileForDisplay(MC_GetIndexedDisplay(2)), 1);
    EXPECT_TRUE(client.OutputProperty("DUMMY1", "_ICC_PROFILE").empty()) << "other applications do not take it for the new one's either";
    EXPECT_TRUE(client.Property("_ICC_PROFILE_1").empty());
    EXPECT_EQ(MC_InstallProfileForDisplay(MC_GetIndexedDisplay(2)), 0);
    client.SetIdentification("DUMMY1", Identification(3));
    EXPECT_EQ(MC_InstallProfileForDisplay(MC_GetIndexedDisplay(2)), 1);
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(2)), std::pair(ReadFile(path), int{kMC_ProfileOfOutput}));
    // What another program gives the output is whichever display's is there.
    const auto other = ProfileWithCalibration(3.0);
    client.SetOutputProperty("DUMMY1", "_ICC_PROFILE", other);
    client.SetIdentification("DUMMY1", Identification(4));
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(2)), std::pair(other, int{kMC_ProfileOfOutput}));
}

TEST_F(ProfilesOfDisplays, AreFoundAgainInANewSession) {
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(2.0));
    {
        const XorgServer server;
        ASSERT_RUNNING(server);
        PlugThree();
        XClient client;
        client.SetIdentification("DUMMY1", Identification(3));
        ASSERT_EQ(MC_SetProfileForDisplay(MC_GetIndexedDisplay(2), URLOf(path).Get()), 0);
        EXPECT_EQ(client.OutputProperty("DUMMY1", "_ICC_PROFILE"), ReadFile(path));
        EXPECT_EQ(client.Property("_ICC_PROFILE_1"), ReadFile(path));
    }
    {
        const XorgServer server;
        ASSERT_RUNNING(server);
        PlugThree();
        XClient client;
        client.SetIdentification("DUMMY2", Identification(3));  // elsewhere now
        const CGDirectDisplayID display = MC_GetIndexedDisplay(3);
        EXPECT_EQ(ProfileOf(display), std::pair(ReadFile(path), int{kMC_ProfileRemembered}));
        EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(2)).second, kMC_NoProfile);
        CGDisplayRestoreColorSyncSettings();
        EXPECT_NEAR(client.Ramp("DUMMY2")[0][128], MiddleOf(2.0), 2.0);
        EXPECT_EQ(MC_InstallProfileForDisplay(display), 1);
        EXPECT_EQ(client.OutputProperty("DUMMY2", "_ICC_PROFILE"), ReadFile(path));
        EXPECT_EQ(client.Property("_ICC_PROFILE_2"), ReadFile(path));
        EXPECT_EQ(MC_InstallProfileForDisplay(display), 0);
        EXPECT_EQ(MC_RemoveProfileForDisplay(display), 0);
        EXPECT_EQ(ProfileOf(display).second, kMC_NoProfile);
        EXPECT_TRUE(client.OutputProperty("DUMMY2", "_ICC_PROFILE").empty());
        EXPECT_TRUE(client.Property("_ICC_PROFILE_2").empty());
    }
    const XorgServer server;
    ASSERT_RUNNING(server);
    XClient client;
    client.SetIdentification("DUMMY0", Identification(3));
    EXPECT_EQ(ProfileOf(MC_GetMainDisplay()).second, kMC_NoProfile) << "removed, it is not remembered either";
}

/// Gives all three displays the profile and puts their ramps back, in a child; what came of it, and whether the silence was waited for once.
std::string GiveToAll(const std::string& path) {
    return InAChild([&] {
        const auto start = std::chrono::steady_clock::now();
        int failures = 0;
        for (int i = 1; i <= 3; ++i) failures += MC_SetProfileForDisplay(MC_GetIndexedDisplay(i), URLOf(path).Get()) != 0;
        CGDisplayRestoreColorSyncSettings();
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return std::to_string(failures) + (seconds >= 1.9 && seconds < 5.9 ? " once" : " after " + std::to_string(seconds) + " s");
    });
}

TEST_F(ProfilesOfDisplays, AreGivenWhereTheBusNeverAnswers) {
    if (!kCanStartThreadsInChildren) GTEST_SKIP() << "not under the thread sanitizer";
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    const FakeBus bus(folder / "bus", "");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(2.0));
    EXPECT_EQ(GiveToAll(path), "0 once");
    XClient client;
    for (const char* const output : {"DUMMY0", "DUMMY1", "DUMMY2"}) {
        EXPECT_EQ(client.OutputProperty(output, "_ICC_PROFILE"), ReadFile(path));
        EXPECT_NEAR(client.Ramp(output)[0][128], MiddleOf(2.0), 2.0);
    }
}

TEST(Displays, AServerThatGoesAwayTakesOnlyItsDisplaysAlong) {
    {
        XorgServer server;
        ASSERT_RUNNING(server);
        EXPECT_EQ(MC_NumDisplays(), 1);
        server.End();
        ExpectNone();
    }
    const XorgServer next;
    ASSERT_RUNNING(next);
    EXPECT_EQ(MC_NumDisplays(), 1);
    EXPECT_EQ(EntriesOf(TableOf(MC_GetMainDisplay())), 256);
}

/// A bus with a colour manager that knows no devices yet; root and a name space of its own are needed.
class WithColourManager : public ProfilesOfDisplays {
protected:
    void SetUp() override {
        ProfilesOfDisplays::SetUp();
        bus.emplace(folder);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", bus->Address().c_str(), 1);
        Start();
        if (!IsThere()) GTEST_SKIP() << "the colour manager cannot be run here (it needs root and a name space of its own)";
    }
    void Start() {
        manager.emplace(std::vector<std::string>{"unshare", "-m", "sh", "-c", "mount -t tmpfs tmpfs /var/lib/colord && exec /usr/libexec/colord"});
    }
    static bool IsThere() {
        for (int tries = 0; tries < 100; ++tries) {
            if (Shell("colormgr get-devices") == 0) return true;
            g_usleep(100000);
        }
        return false;
    }
    std::optional<PrivateBus> bus;
    std::optional<ServerProcess> manager;
};

TEST_F(WithColourManager, AProfileIsGivenToItAndToTheWindow) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(1.5));
    XClient client;
    const Owned<CFURLRef> url = URLOf(path);
    GDBusConnection* const session = g_dbus_connection_new_for_address_sync(
        bus->Address().c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION), nullptr,
        nullptr, nullptr);
    ASSERT_NE(session, nullptr);
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&properties, "{ss}", "Kind", "display");
    g_variant_builder_add(&properties, "{ss}", "XRANDR_name", "DUMMY1");
    GVariant* const made = g_dbus_connection_call_sync(
        session, "org.freedesktop.ColorManager", "/org/freedesktop/ColorManager", "org.freedesktop.ColorManager", "CreateDevice",
        g_variant_new("(ssa{ss})", "orlando-display", "temp", &properties), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    ASSERT_NE(made, nullptr);
    g_variant_unref(made);

    const CGDirectDisplayID display = MC_GetIndexedDisplay(2);
    client.SetOutputProperty("DUMMY1", "_ICC_PROFILE", ProfileWithCalibration(4.0));
    EXPECT_EQ(MC_SetProfileForDisplay(display, url.Get()), 0);
    EXPECT_EQ(client.Property("_ICC_PROFILE_1"), ReadFile(path));
    EXPECT_TRUE(client.Property("_ICC_PROFILE").empty());
    EXPECT_EQ(Shell("colormgr device-get-default-profile orlando-display | grep -q " + path), 0);
    EXPECT_EQ(ProfileOf(display), std::pair(ReadFile(path), int{kMC_ProfileOfColourManager}));
    // Its ramp is what the display goes back to.
    CGDisplayRestoreColorSyncSettings();
    EXPECT_NEAR(client.Ramp("DUMMY1")[0][128], MiddleOf(1.5), 2.0);

    const std::string text = folder.Write("text.icc", std::vector<uint8_t>(200, 'x'));
    EXPECT_EQ(MC_SetProfileForDisplay(display, URLOf(text).Get()), -50);
    EXPECT_EQ(client.Property("_ICC_PROFILE_1"), ReadFile(path));
    // What it has by now it keeps for others too.
    EXPECT_EQ(MC_RemoveProfileForDisplay(display), 0);
    EXPECT_NE(Shell("colormgr device-get-default-profile orlando-display"), 0);
    EXPECT_EQ(ProfileOf(display).second, kMC_NoProfile);
    g_object_unref(session);
}

TEST_F(WithColourManager, ADisplayThatItDoesNotKnowIsRegistered) {
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    XClient client;
    client.SetIdentification("DUMMY2", Identification(9));
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(1.5));
    const std::string other = folder.Write("other.icc", ProfileWithCalibration(1.7));
    const CGDirectDisplayID display = MC_GetIndexedDisplay(3);
    for (const std::string& file : {other, path, path}) EXPECT_EQ(MC_SetProfileForDisplay(display, URLOf(file).Get()), 0);
    EXPECT_EQ(Shell("colormgr find-device-by-property XRANDR_name DUMMY2 | grep -q 'Serial.*9'"), 0);
    EXPECT_EQ(Shell("colormgr get-devices-by-kind display | grep -c 'Device ID' | grep -qx 1"), 0);
    EXPECT_EQ(ProfileOf(display), std::pair(ReadFile(path), int{kMC_ProfileOfColourManager}));
    // Another display at this output has none; and at another output this one is the same.
    client.SetIdentification("DUMMY2", Identification(10));
    client.SetIdentification("DUMMY1", Identification(9));
    EXPECT_NE(ProfileOf(MC_GetIndexedDisplay(3)).second, kMC_ProfileOfColourManager);
    EXPECT_EQ(ProfileOf(MC_GetIndexedDisplay(2)), std::pair(ReadFile(path), int{kMC_ProfileOfColourManager}));
}

TEST_F(WithColourManager, ThatNeverAnswersTheDisplaysAreGivenTheirProfilesAllTheSame) {
    if (!kCanStartThreadsInChildren) GTEST_SKIP() << "not under the thread sanitizer";
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(2.0));
    kill(manager->Id(), SIGSTOP);
    EXPECT_EQ(GiveToAll(path), "0 once");
    kill(manager->Id(), SIGCONT);
    XClient client;
    EXPECT_EQ(client.OutputProperty("DUMMY1", "_ICC_PROFILE"), ReadFile(path));
}

TEST_F(WithColourManager, ThatNeverAnswersIsNotTakenForOneWithoutAProfile) {
    if (!kCanStartThreadsInChildren) GTEST_SKIP() << "not under the thread sanitizer";
    const XorgServer server;
    ASSERT_RUNNING(server);
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(2.0));
    ASSERT_EQ(MC_AssignProfileForDisplay(MC_GetMainDisplay(), URLOf(path).Get()), kMC_Assigned);
    kill(manager->Id(), SIGSTOP);
    EXPECT_EQ(InAChild([] { return std::to_string(MC_AssignProfileForDisplay(MC_GetMainDisplay(), nullptr)); }),
              std::to_string(kMC_ColourManagerSilent));
    kill(manager->Id(), SIGCONT);
    XClient client;
    EXPECT_EQ(client.Property("_ICC_PROFILE"), ReadFile(path));
    EXPECT_EQ(ProfileOf(MC_GetMainDisplay()), std::pair(ReadFile(path), int{kMC_ProfileOfColourManager}));
    EXPECT_EQ(MC_AssignProfileForDisplay(MC_GetMainDisplay(), nullptr), kMC_Assigned);
    EXPECT_EQ(ProfileOf(MC_GetMainDisplay()).second, kMC_NoProfile);
}

TEST_F(WithColourManager, IsCalledByAChildOfFork) {
    if (!kCanStartThreadsInChildren) GTEST_SKIP() << "not under the thread sanitizer";
    const XorgServer server;
    ASSERT_RUNNING(server);
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(1.5));
    // The parent has called it, and has a connection of GLib's too, whose thread the child does not have.
    GDBusConnection* const theirs = g_dbus_connection_new_for_address_sync(
        bus->Address().c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION), nullptr,
        nullptr, nullptr);
    ASSERT_NE(theirs, nullptr);
    EXPECT_EQ(MC_SetProfileForDisplay(MC_GetMainDisplay(), URLOf(path).Get()), 0);
    EXPECT_EQ(MC_RemoveProfileForDisplay(MC_GetMainDisplay()), 0);
    EXPECT_EQ(InAChild([&] {
                  alarm(60);
                  const OSErr status = MC_SetProfileForDisplay(MC_GetMainDisplay(), URLOf(path).Get());
                  return std::to_string(status) + " " + std::to_string(ProfileOf(MC_GetMainDisplay()).second);
              }),
              "0 " + std::to_string(kMC_ProfileOfColourManager));
    g_object_unref(theirs);
}

}  // namespace
