// Every request for memory of the operations that hosts call is refused in turn, alone and with all after it, each time in a process of its own
// (tests/fixtures/WatchedHeap.h): the status is one that the operation states, what was in force stays or is replaced whole, the next call does it
// all, and nothing is kept for good.
//
// Refused are the requests of the library, the C++ library and Little CMS. Those of GLib are not: g_malloc ends the process by its contract.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "calibration/Displays.h"
#include "calibration/MonitorCalibration.h"
#include "platform/FourCharCode.h"
#include "session/ColourOperations.h"
#include "session/ControlInterface.h"
#include "session/Failure.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSession.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/DisplayBench.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/SettingsStore.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/WatchedHeap.h"

namespace {

using Operation = std::function<int()>;

const PrivateStore store;

std::string Colours() {
    const uint16_t in[] = {60000, 20000, 3000, 0, 1000, 30000, 50000, 0};
    uint16_t monitor[8] = {}, printer[8] = {};
    if (MonitorMatch16(in, monitor, 2) != 0) return "no record";
    PrinterMatch16(in, printer, 2);
    std::string text;
    for (int i = 0; i < 8; ++i) text += std::to_string(monitor[i]) + "/" + std::to_string(printer[i]) + " ";
    return text;
}

/// A setting that is not read for lack of memory counts as unset: the record that comes out of it is whole, though another one.
std::string RecordOrNone() {
    return Colours() == "no record" ? "none" : "a record";
}

std::string Described(CFTypeRef value) {
    if (!value) return "none";
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFStringGetTypeID()) return Text(static_cast<CFStringRef>(value));
    if (type == CFBooleanGetTypeID()) return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) ? "true" : "false";
    std::string text;
    if (type == CFDataGetTypeID()) {
        const auto data = static_cast<CFDataRef>(value);
        for (CFIndex i = 0; i < CFDataGetLength(data); ++i) text += std::to_string(CFDataGetBytePtr(data)[i]) + " ";
    } else if (type == CFDictionaryGetTypeID()) {
        const auto dictionary = static_cast<CFDictionaryRef>(value);
        for (const CFStringRef key : {CFSTR("Flare"), CFSTR("Contrast"), CFSTR("A Offset"), CFSTR("B Offset")}) {
            text += std::to_string(GetRealFromDictionary(dictionary, key, -1)) + " ";
        }
        text += std::to_string(CFDictionaryGetCount(dictionary));
    }
    return text;
}

/// A line for each setting.
std::string StoredSettings() {
    std::string text;
    for (const CFStringRef key : kSettingsKeys) text += Text(key) + ": " + Described(CopyRaw(key).Get()) + "\n";
    return text;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

/// Whether each line of `after` is as it was before or as it is to become.
bool IsOldOrNew(const std::string& after, const std::string& before, const std::string& whole) {
    const std::vector<std::string> lines = Lines(after), old = Lines(before), fresh = Lines(whole);
    if (lines.size() != old.size() || old.size() != fresh.size()) return false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] != old[i] && lines[i] != fresh[i]) return false;
    }
    return true;
}

int ReleaseText(CFStringRef text) {
    const Owned<CFStringRef> owner(text);
    return 0;
}

struct ScarceMemory : testing::Test {
    void SetUp() override {
        ProfileMaker printer = MatrixMonitor(CurvTag({460}));
        printer.profileClass = Code("prtr");
        printerPath = folder.Write("printer.icc", printer.Make());
        monitorPath = folder.Write("monitor.icc", MatrixMonitor(CurvTag({0, 9000, 65535})).Make());
        otherMonitorPath = folder.Write("other.icc", MatrixMonitor(CurvTag({0, 30000, 65535})).Make());
        EmptyStore();
        StoreRaw(CFSTR("Matching Quality"), CFSTR("Qua1"));
        StoreRaw(CFSTR("Monitor Whitepoint"), CFSTR("D65\txyz:95.05,100,108.9"));
        StoreRaw(CFSTR("Use Monitor Whitepoint"), kCFBooleanTrue);
        const Alias monitor(monitorPath), printerAlias(printerPath);
        SetFileLocationPreference(monitor.Get(), CFSTR("Monitor Profile"), false);
        SetFileLocationPreference(printerAlias.Get(), CFSTR("Printer Profile"), false);
        SynchronisePreferences(false);
    }

    /// Runs `operation` with each request refused, after `prepare` and another call of it that succeeded or not. `state` describes what it changes.
    ///
    /// An answer: its status, what was there before and after, and what a second call with memory made of it.
    void Sweep(
        const Operation& prepare, const Operation& operation, const std::function<std::string()>& state, const std::vector<int>& statuses,
        const Operation& end = [] { return 0; }) const {
        const auto run = [&]() -> std::string {
            if (prepare() != 0) return "not prepared";
            const std::string before = state();
            int status = 0;
            {
                const heap::Armed armed;
                status = operation();
            }
            const std::string after = state();
            const int second = operation();
            const std::string whole = state();
            const std::string answer = std::to_string(status) + (IsOldOrNew(after, before, whole) ? "" : " neither old nor new: " + after) +
                                       " then " + std::to_string(second);
            end();
            return answer + " " + whole;
        };
        const std::string good = heap::Refusing(0, false, run);
        ASSERT_EQ(good.substr(0, 9), "0 then 0 ") << good;
        int refusals = 0;
        const auto judge = [&](std::size_t n, bool forGood, const std::string& answer) {
            ++refusals;
            const int status = std::atoi(answer.c_str());
            EXPECT_THAT(statuses, testing::Contains(status)) << n << (forGood ? " and all after: " : ": ") << answer;
            EXPECT_EQ(answer, std::to_string(status) + good.substr(1)) << n << (forGood ? " and all after" : "");
        };
        heap::RefuseEach(run, judge, 97);
        RecordProperty("refusals", refusals);
        EXPECT_GT(refusals, 0);
    }

    TemporaryFolder folder;
    std::string monitorPath, otherMonitorPath, printerPath;
};

}  // namespace

TEST_F(ScarceMemory, ALoadKeepsTheRecordThatIsInForce) {
    const Alias monitor(monitorPath), other(otherMonitorPath), printer(printerPath);
    const auto load = [&](const Alias& alias) {
        const ICCProfileLocation location = {alias.Get(), printer.Get(), nullptr};
        return ICC_Load(&location);
    };
    Sweep([&] { return load(monitor); }, [&] { return load(other); }, Colours, {0, -108, -43, -50});
}

TEST_F(ScarceMemory, OpeningBuildsOrLeavesThatToAReload) {
    Sweep([] { return 0; }, [] { return OpenMatching(nullptr, nullptr); }, RecordOrNone, {0, -1}, CloseMatching);
}

TEST_F(ScarceMemory, AReloadKeepsTheRecordThatIsInForce) {
    const auto choose = [&](const std::string& path) {
        const Alias alias(path);
        SetFileLocationPreference(alias.Get(), CFSTR("Monitor Profile"), false);
        return 0;
    };
    const auto prepare = [&] {
        OpenMatching(nullptr, nullptr);
        return choose(otherMonitorPath);
    };
    Sweep(prepare, ReloadPreferences, RecordOrNone, {0, -1, -108, -43, -50}, CloseMatching);
}

TEST_F(ScarceMemory, TheGridTablesAreThereOrNotInForce) {
    const Loaded loaded = Load({monitorPath, printerPath});
    const auto state = [&] { return std::to_string(loaded.data->tablesBuilt); };
    Sweep([] { return 0; }, [&] { return SetDirectMatchingQuality(loaded.data.get(), 0x51756130); }, state, {0, -108});
}

TEST_F(ScarceMemory, ViewingConditionsBendTheModelOrLeaveIt) {
    const Loaded loaded = Load({monitorPath, printerPath});
    const ViewingConditions conditions = {-0.03, 1.3, 4, 0, false};
    const auto state = [&] {
        const uint16_t in[3] = {60000, 20000, 3000};
        uint16_t out[3];
        Match_ShaperMatrix(&loaded.data->monitorShaper, in, out);
        return std::to_string(out[0]) + " " + std::to_string(out[1]) + " " + std::to_string(out[2]);
    };
    const auto bend = [&] {
        DirectICCSetViewingConditions(loaded.data.get(), 0x52647230, &conditions);
        return 0;
    };
    Sweep([] { return 0; }, bend, state, {0});
}

TEST_F(ScarceMemory, SettingsAreStoredWholeOrNotAtAll) {
    const Alias monitor(monitorPath), printer(printerPath);
    const ViewingConditions conditions = {-0.05, 1.3, 4, 0, true};
    const Owned<CFStringRef> white = NewString("D50\txyz:96.42,100,82.49");
    const struct {
        const char* what;
        Operation set;
    } rows[] = {
        {"quality", [] { return CMSSetQuality(0); }},
        {"intent", [] { return CMSSetRenderingIntent(2); }},
        {"conditions", [&] { return CMSSetViewingConditions(&conditions); }},
        {"illuminant", [] { return CMSSetIllObs("D55", "10"); }},
        {"proofing", [] { return CMSSetUseProofingProfile(true); }},
        {"monitor", [&] { return CMSSetMonitorProfile(monitor.Get()); }},
        {"printer", [&] { return CMSSetPrinterProfile(printer.Get()); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Sweep([] { return CMSControlInit(); }, row.set, StoredSettings, {0, -108});
    }
}

TEST_F(ScarceMemory, SettingsAreReadOrAnsweredWithTheirDefaults) {
    const struct {
        const char* what;
        Operation get;
    } rows[] = {
        {"quality",
         [] {
             int32_t quality;
             return CMSGetQuality(&quality);
         }},
        {"illuminant",
         [] {
             char illuminant[32], observer[32];
             return CMSGetIllObs(illuminant, observer);
         }},
        {"whites",
         [] {
             CFStringRef texts[2];
             Boolean use[2];
             const int status = CMSCopyFixWhite(&texts[0], &use[0], &texts[1], &use[1]);
             return status + ReleaseText(texts[0]) + ReleaseText(texts[1]);
         }},
        {"monitor",
         [] {
             AliasHandle alias = nullptr;
             const int status = CMSGetMonitorProfile(&alias);
             if (alias) DisposeHandle(reinterpret_cast<Handle>(alias));
             return status;
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const auto get = [&] { return CMSControlInit() + row.get(); };
        Sweep([] { return 0; }, get, StoredSettings, {0, -108});
    }
}

TEST_F(ScarceMemory, ADocumentIsSavedWholeOrTheOldOneStays) {
    Bench().displays = {{65, "--------RRRRRRRRGGGGGGGGBBBBBBBB", {{0, 0}, {1920, 1080}}, {}}};
    const CGDirectDisplayID ids[] = {65};
    const auto document = [&](double top) {
        auto** const tables = static_cast<MC_OpaqueGammaTable**>(std::calloc(1, sizeof(MC_OpaqueGammaTable*)));
        tables[0] = MC_CreateGammaTable(3, 2, 16);
        MC_SetGammaVal(tables[0], 0, 1, top);
        return std::make_unique<MonitorCalibration>(int16_t{1}, ids, tables, CalibrationRecord());
    };
    const auto old = document(1.0), fresh = document(0.5);
    const FSRef where = FileRef(folder / ".");
    const Owned<CFStringRef> name = NewString("doc");
    const auto save = [&](MonitorCalibration& saved) -> int {
        try {
            saved.Save(&where, name.Get());
            return 0;
        } catch (long) {
            return gLastError;
        } catch (const std::bad_alloc&) {
            return -108;
        }
    };
    const auto state = [&] {
        const FSRef file = FileRef(folder / "doc");
        const MonitorCalibration read(&file);
        return read.IsValid() ? std::to_string(MC_GetGammaVal(read.GammaTable(0), 0, 1)) : "invalid";
    };
    Sweep([&] { return save(*old); }, [&] { return save(*fresh); }, state, {0, -108, -36, -43});
}

TEST_F(ScarceMemory, DisplayCallsSayWhatTheyLack) {
    Bench().displays = {{65, "--------RRRRRRRRGGGGGGGGBBBBBBBB", {{0, 0}, {1920, 1080}}, {{0, 1}, {0, 1}, {0, 1}}}};
    const auto state = [] { return std::string("the display's own"); };
    const auto copy = [] {
        MC_OpaqueGammaTable* table = nullptr;
        const int status = MC_CopyGammaTableForDisplay(65, &table);
        EXPECT_EQ(table != nullptr, status == 0);
        MC_DisposeGammaTable(table);
        return status;
    };
    Sweep([] { return 0; }, copy, state, {0, -108});
}
