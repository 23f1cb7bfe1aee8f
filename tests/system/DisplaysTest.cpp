// Displays of a real X server, checked by another client of it.

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <random>

#include "calibration/Displays.h"
#include "platform/Owned.h"
#include "tests/fixtures/PrivateBus.h"
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
    // Twins are told apart by where they are plugged in.
    client.SetIdentification("DUMMY1", Identification(2));
    EXPECT_NE(identifiers()[0], identifiers()[1]);
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

TEST(Displays, AProfileIsGivenToTheColourManagerAndToTheWindow) {
    const TemporaryFolder folder;
    const PrivateBus bus(folder);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    const ServerProcess colord({"unshare", "-m", "sh", "-c", "mount -t tmpfs tmpfs /var/lib/colord && exec /usr/libexec/colord"});
    const XorgServer server;
    ASSERT_RUNNING(server);
    PlugThree();
    const std::string path = folder.Write("display.icc", ProfileWithCalibration(1.5));
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                                      static_cast<CFIndex>(path.size()), false));
    XClient client;

    bool isThere = false;
    for (int tries = 0; tries < 100 && !isThere; ++tries) {
        isThere = Shell("colormgr get-devices") == 0;
        if (!isThere) g_usleep(100000);
    }
    if (!isThere) GTEST_SKIP() << "the colour manager cannot be run here (it needs root and a name space of its own)";
    // It knows nothing of the display yet.
    EXPECT_EQ(MC_SetProfileForDisplay(MC_GetIndexedDisplay(2), url.Get()), -50);

    GDBusConnection* const manager = g_dbus_connection_new_for_address_sync(
        bus.Address().c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION), nullptr,
        nullptr, nullptr);
    ASSERT_NE(manager, nullptr);
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&properties, "{ss}", "Kind", "display");
    g_variant_builder_add(&properties, "{ss}", "XRANDR_name", "DUMMY1");
    GVariant* const made = g_dbus_connection_call_sync(
        manager, "org.freedesktop.ColorManager", "/org/freedesktop/ColorManager", "org.freedesktop.ColorManager", "CreateDevice",
        g_variant_new("(ssa{ss})", "orlo-display", "temp", &properties), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    ASSERT_NE(made, nullptr);
    g_variant_unref(made);

    EXPECT_EQ(MC_SetProfileForDisplay(MC_GetIndexedDisplay(2), url.Get()), 0);
    EXPECT_EQ(client.Property("_ICC_PROFILE_1"), ReadFile(path));
    EXPECT_TRUE(client.Property("_ICC_PROFILE").empty());
    EXPECT_EQ(Shell("colormgr device-get-default-profile orlo-display | grep -q " + path), 0);
    // Its ramp is what the display goes back to.
    CGDisplayRestoreColorSyncSettings();
    EXPECT_NEAR(client.Ramp("DUMMY1")[0][128], 65535.0 * std::pow(128.0 / 255.0, 1.5), 2.0);

    const std::string text = folder.Write("text.icc", std::vector<uint8_t>(200, 'x'));
    const Owned<CFURLRef> unfit(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                                                        static_cast<CFIndex>(text.size()), false));
    EXPECT_EQ(MC_SetProfileForDisplay(MC_GetIndexedDisplay(2), unfit.Get()), -50);
    EXPECT_EQ(client.Property("_ICC_PROFILE_1"), ReadFile(path));
    g_object_unref(manager);
}

}  // namespace
