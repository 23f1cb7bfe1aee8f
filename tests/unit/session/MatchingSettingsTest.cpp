#include <gtest/gtest.h>

#include <tuple>

#include "engine/DirectPrinter.h"
#include "platform/FourCharCode.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/SettingsStore.h"
#include "tests/fixtures/StringText.h"

namespace {

using Fields = std::tuple<double, double, double, double, bool>;
const Fields kDefaultFields = {-0.03, 1.0, 0.0, 0.0, false};

Fields Values(const ViewingConditions& c) {
    return {c.flare, c.contrast, c.aOffset, c.bOffset, c.usePrinter != 0};
}

const PrivateStore store;
// Before any test has set them.
const OSType kFirstIntent = ICC_GetRenderingIntent();
const OSType kFirstQuality = ICC_GetMatchingQuality();
const Fields kFirstConditions = Values(*ICC_GetViewingConditions());

class MatchingSettings : public testing::Test {
protected:
    void SetUp() override {
        EmptyStore();
        const ViewingConditions conditions = {-0.03, 1, 0, 0, false};
        ICC_SetViewingConditions(FourChar("Rdr0"), &conditions);
        ICC_SetMatchingQuality(FourChar("Qua1"));
        ICC_SetMonitorWhitepoint(nullptr);
        ICC_SetPrinterWhitepoint(nullptr);
    }
    void TearDown() override { SetMatchingData(nullptr); }

    std::string RGBPrinter() const { return folder.Write("printer.icc", PrinterMaker().Make()); }
    static ProfileMaker PrinterMaker() {
        ProfileMaker maker = MatrixMonitor(CurvTag({460}));
        maker.profileClass = Code("prtr");
        return maker;
    }
    /// An alias to a file that has gone since.
    static std::string Vanishing(const TemporaryFolder& where) { return where.Write("gone.icc", MatrixMonitor(CurvTag({})).Make()); }

    TemporaryFolder folder;
};

/// The current record, given back at the end of the scope.
class Current {
public:
    Current() : data_(GetMatchingData()) {}
    Current(const Current&) = delete;
    Current& operator=(const Current&) = delete;
    ~Current() {
        if (data_) ReleaseMatchingData(data_);
    }
    const MatchingData* operator->() const { return data_; }
    const MatchingData* Get() const { return data_; }

private:
    MatchingData* data_;
};

TEST_F(MatchingSettings, AProcessStartsWithTheInitialValues) {
    EXPECT_EQ(kFirstIntent, FourChar("Rdr0"));
    EXPECT_EQ(kFirstQuality, FourChar("Qua0"));
    EXPECT_EQ(kFirstConditions, kDefaultFields);
}

TEST_F(MatchingSettings, AnEmptyStoreRecallsTheDefaults) {
    const ViewingConditions other = {1, 2, 3, 4, true};
    ICC_SetViewingConditions(FourChar("Rdr2"), &other);
    ICC_SetMatchingQuality(FourChar("Qua2"));
    EXPECT_EQ(ICC_RecallViewingConditions(), 0);
    EXPECT_EQ(Values(*ICC_GetViewingConditions()), kDefaultFields);
    EXPECT_EQ(ICC_GetRenderingIntent(), FourChar("Rdr2"));
    EXPECT_EQ(ICC_RecallRenderingIntent(), 0);
    // Deliberate: not the intent that a process starts with.
    EXPECT_EQ(ICC_GetRenderingIntent(), FourChar("Rdr3"));
    EXPECT_EQ(ICC_RecallMatchingQuality(), 0);
    EXPECT_EQ(ICC_GetMatchingQuality(), FourChar("Qua0"));
    for (const auto recall : {ICC_RecallMonitorWhitepoint, ICC_RecallPrinterWhitepoint}) {
        CFStringRef text = nullptr;
        Boolean use = true;
        EXPECT_EQ(recall(&text, &use), 0);
        const Owned<CFStringRef> owner(text);
        EXPECT_EQ(Text(text), "");
        EXPECT_FALSE(use);
    }
    Boolean use = true;
    EXPECT_EQ(ICC_RecallUseProofingProfile(&use), 0);
    EXPECT_FALSE(use);
}

TEST_F(MatchingSettings, ValuesOfWrongKindsRecallTheDefaults) {
    const double number = 1.5;
    const Owned<CFNumberRef> real(CFNumberCreate(nullptr, kCFNumberFloat64Type, &number));
    const Owned<CFDataRef> data(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("abcd"), 4));
    const Owned<CFMutableDictionaryRef> dictionary(CreatePreferencesDictionary());
    for (const CFTypeRef wrong : {CFTypeRef{real.Get()}, CFTypeRef{data.Get()}, CFTypeRef{dictionary.Get()}}) {
        for (const CFStringRef key : kSettingsKeys) StoreRaw(key, wrong);
        SynchronisePreferences(false);
        const ViewingConditions other = {1, 2, 3, 4, true};
        ICC_SetViewingConditions(FourChar("Rdr2"), &other);
        ICC_SetMatchingQuality(FourChar("Qua2"));
        EXPECT_EQ(ICC_RecallViewingConditions(), 0);
        EXPECT_EQ(Values(*ICC_GetViewingConditions()), kDefaultFields);
        EXPECT_EQ(ICC_RecallRenderingIntent(), 0);
        EXPECT_EQ(ICC_GetRenderingIntent(), FourChar("Rdr3"));
        EXPECT_EQ(ICC_RecallMatchingQuality(), 0);
        EXPECT_EQ(ICC_GetMatchingQuality(), FourChar("Qua0"));
        for (const auto recall : {ICC_RecallMonitorWhitepoint, ICC_RecallPrinterWhitepoint}) {
            CFStringRef text = nullptr;
            Boolean use = true;
            EXPECT_EQ(recall(&text, &use), 0);
            const Owned<CFStringRef> owner(text);
            EXPECT_EQ(Text(text), "");
            EXPECT_FALSE(use);
        }
        Boolean use = true;
        EXPECT_EQ(ICC_RecallUseProofingProfile(&use), 0);
        EXPECT_FALSE(use);
    }
}

TEST_F(MatchingSettings, WrongEntriesOfTheDictionaryRecallTheirDefaults) {
    const Owned<CFMutableDictionaryRef> dictionary(CreatePreferencesDictionary());
    CFDictionarySetValue(dictionary.Get(), CFSTR("Flare"), CFSTR("0.5"));
    AddRealToDictionary(dictionary.Get(), CFSTR("Contrast"), 1.75);
    AddBooleanToDictionary(dictionary.Get(), CFSTR("A Offset"), true);
    AddRealToDictionary(dictionary.Get(), CFSTR("Use Printer"), 1);
    SetDictionaryPreference(CFSTR("Viewing Conditions"), dictionary.Get());
    const ViewingConditions other = {1, 2, 3, 4, true};
    ICC_SetViewingConditions(FourChar("Rdr0"), &other);
    EXPECT_EQ(ICC_RecallViewingConditions(), 0);
    EXPECT_EQ(Values(*ICC_GetViewingConditions()), Fields(-0.03, 1.75, 0, 0, false));
}

TEST_F(MatchingSettings, EachEntryOfTheDictionaryIsReadAlone) {
    const struct {
        CFStringRef key;
        Fields expected;
    } kRows[] = {{CFSTR("Flare"), {7, 1, 0, 0, false}},
                 {CFSTR("Contrast"), {-0.03, 7, 0, 0, false}},
                 {CFSTR("A Offset"), {-0.03, 1, 7, 0, false}},
                 {CFSTR("B Offset"), {-0.03, 1, 0, 7, false}}};
    for (const auto& row : kRows) {
        const Owned<CFMutableDictionaryRef> dictionary(CreatePreferencesDictionary());
        AddRealToDictionary(dictionary.Get(), row.key, 7);
        SetDictionaryPreference(CFSTR("Viewing Conditions"), dictionary.Get());
        EXPECT_EQ(ICC_RecallViewingConditions(), 0);
        EXPECT_EQ(Values(*ICC_GetViewingConditions()), row.expected);
    }
}

TEST_F(MatchingSettings, WhatIsRememberedIsRecalled) {
    const ViewingConditions conditions = {0.25, 1.5, -3, 4.5, true};
    EXPECT_EQ(ICC_SetViewingConditions(FourChar("Rdr2"), &conditions), 0);
    EXPECT_EQ(ICC_SetMatchingQuality(FourChar("Qua2")), 0);
    EXPECT_EQ(ICC_RememberViewingConditions(), 0);
    EXPECT_EQ(ICC_RememberRenderingIntent(), 0);
    EXPECT_EQ(ICC_RememberMatchingQuality(), 0);
    EXPECT_EQ(ICC_RememberUseProofingProfile(true), 0);
    EXPECT_EQ(ICC_RememberMonitorWhitepoint(CFSTR("xyz:1,2,3"), true), 0);
    EXPECT_EQ(ICC_RememberPrinterWhitepoint(CFSTR("paper"), false), 0);
    SynchronisePreferences(false);

    const ViewingConditions other = {9, 9, 9, 9, false};
    ICC_SetViewingConditions(FourChar("Rdr1"), &other);
    ICC_SetMatchingQuality(FourChar("Qua1"));
    EXPECT_EQ(ICC_RecallViewingConditions(), 0);
    EXPECT_EQ(Values(*ICC_GetViewingConditions()), Values(conditions));
    EXPECT_EQ(ICC_GetRenderingIntent(), FourChar("Rdr1"));
    EXPECT_EQ(ICC_RecallRenderingIntent(), 0);
    EXPECT_EQ(ICC_GetRenderingIntent(), FourChar("Rdr2"));
    EXPECT_EQ(ICC_RecallMatchingQuality(), 0);
    EXPECT_EQ(ICC_GetMatchingQuality(), FourChar("Qua2"));
    Boolean use = false;
    EXPECT_EQ(ICC_RecallUseProofingProfile(&use), 0);
    EXPECT_TRUE(use);
    CFStringRef text = nullptr;
    EXPECT_EQ(ICC_RecallMonitorWhitepoint(&text, &use), 0);
    const Owned<CFStringRef> monitor(text);
    EXPECT_EQ(Text(monitor) + (use ? " used" : ""), "xyz:1,2,3 used");
    EXPECT_EQ(ICC_RecallPrinterWhitepoint(&text, &use), 0);
    const Owned<CFStringRef> printer(text);
    EXPECT_EQ(Text(printer) + (use ? " used" : ""), "paper");
}

TEST_F(MatchingSettings, TheStoredFormsAreTheseKinds) {
    const ViewingConditions conditions = {0.25, 1.5, -3, 4.5, true};
    ICC_SetViewingConditions(FourChar("Rdr2"), &conditions);
    ICC_RememberRenderingIntent();
    ICC_RememberMatchingQuality();
    ICC_RememberViewingConditions();
    EXPECT_EQ(Text(static_cast<CFStringRef>(CopyRaw(CFSTR("Rendering Intent")).Get())), "Rdr2");
    EXPECT_EQ(Text(static_cast<CFStringRef>(CopyRaw(CFSTR("Matching Quality")).Get())), "Qua1");
    const Owned<CFTypeRef> stored = CopyRaw(CFSTR("Viewing Conditions"));
    ASSERT_TRUE(stored);
    ASSERT_EQ(CFGetTypeID(stored.Get()), CFDictionaryGetTypeID());
    const auto dictionary = static_cast<CFDictionaryRef>(stored.Get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 5);
    EXPECT_EQ(CFGetTypeID(CFDictionaryGetValue(dictionary, CFSTR("Flare"))), CFNumberGetTypeID());
    EXPECT_EQ(CFGetTypeID(CFDictionaryGetValue(dictionary, CFSTR("Use Printer"))), CFBooleanGetTypeID());
}

TEST_F(MatchingSettings, ProfilesAreCheckedByTheirPlace) {
    ProfileMaker cmyk = PrinterMaker();
    cmyk.space = Code("GRAY");
    ProfileMaker link = MatrixMonitor(CurvTag({}));
    link.profileClass = Code("link");
    const std::string greyPrinter = folder.Write("grey.icc", cmyk.Make());
    const std::string linkProfile = folder.Write("link.icc", link.Make());
    const struct {
        const char* name;
        std::string path;
        OSErr monitor, printer, proofer;
    } kRows[] = {
        {"nothing", "", 0, 0, 0},
        {"an RGB display", kSRGBMonitor, 0, -170, 0},
        {"a CMYK printer", kCMYKPrinter, -170, 0, 0},
        {"an RGB printer that is a matrix model", RGBPrinter(), 0, 0, 0},
        {"a printer of another space", greyPrinter, 0, -170, 0},
        {"named colours", kNamedColours, -170, -170, -170},
        {"a device link", linkProfile, 0, -170, -170},
    };
    for (const auto& row : kRows) {
        const Alias alias(row.path);
        EXPECT_EQ(ICC_ValidateMonitorAlias(alias.Get()), row.monitor) << row.name;
        EXPECT_EQ(ICC_ValidatePrinterAlias(alias.Get()), row.printer) << row.name;
        EXPECT_EQ(ICC_ValidateProoferAlias(alias.Get()), row.proofer) << row.name;
    }
}

TEST_F(MatchingSettings, AFileThatHasGoneIsNotFound) {
    const TemporaryFolder where;
    const Alias alias(Vanishing(where));
    std::filesystem::remove(where / "gone.icc");
    for (const auto validate : {ICC_ValidateMonitorAlias, ICC_ValidatePrinterAlias, ICC_ValidateProoferAlias}) EXPECT_EQ(validate(alias.Get()), -43);
}

TEST_F(MatchingSettings, ALocationIsCheckedByMonitorThenPrinterOnly) {
    const TemporaryFolder where;
    const Alias gone(Vanishing(where));
    std::filesystem::remove(where / "gone.icc");
    const Alias display(kSRGBMonitor), printer(kCMYKPrinter), named(kNamedColours);
    const struct {
        const char* name;
        ICCProfileLocation location;
        OSErr expected;
    } kRows[] = {
        {"nothing", {nullptr, nullptr, nullptr}, 0},
        {"only a monitor", {display.Get(), nullptr, nullptr}, 0},
        {"only a printer", {nullptr, printer.Get(), nullptr}, 0},
        {"an RGB display as the printer", {display.Get(), display.Get(), nullptr}, -170},
        {"the monitor's error comes first", {printer.Get(), gone.Get(), nullptr}, -170},
        {"the printer's own error", {display.Get(), gone.Get(), nullptr}, -43},
        {"any proofer passes", {display.Get(), printer.Get(), named.Get()}, 0},
    };
    for (const auto& row : kRows) EXPECT_EQ(ICC_Validate(&row.location), row.expected) << row.name;
}

TEST_F(MatchingSettings, LoadingInstallsDataBuiltFromTheSettings) {
    const Alias display(kSRGBMonitor), printer(RGBPrinter());
    const ICCProfileLocation location = {display.Get(), printer.Get(), nullptr};
    ASSERT_EQ(ICC_Load(&location), 0);
    const Current plain;
    ASSERT_NE(plain.Get(), nullptr);
    EXPECT_EQ(plain->tablesBuilt, 0u);
    EXPECT_EQ(plain->useMonitorWhite, 0u);
    EXPECT_NE(std::vector<uint16_t>(plain->monitorShaper.curves[0], plain->monitorShaper.curves[0] + 100),
              std::vector<uint16_t>(plain->baseShaper.curves[0], plain->baseShaper.curves[0] + 100));

    const FixedXYZ white = {60000, 65536, 50000};
    const FixedXYZ paper = {55000, 57000, 45000};
    ICC_SetMonitorWhitepoint(&white);
    ICC_SetPrinterWhitepoint(&paper);
    ICC_SetRenderingIntent(FourChar("Rdr3"));
    ICC_SetMatchingQuality(FourChar("Qua0"));
    ASSERT_EQ(ICC_Load(&location), 0);
    const Current second;
    EXPECT_EQ(second->tablesBuilt, 1u);
    EXPECT_EQ(second->useMonitorWhite, 1u);
    EXPECT_EQ(second->monitorWhite.Z, 50000);
    EXPECT_EQ(second->printerWhite.X, 55000);
    EXPECT_EQ(std::vector<uint16_t>(second->monitorShaper.curves[0], second->monitorShaper.curves[0] + 100),
              std::vector<uint16_t>(second->baseShaper.curves[0], second->baseShaper.curves[0] + 100));

    ICC_SetMonitorWhitepoint(nullptr);
    ICC_SetPrinterWhitepoint(nullptr);
    ICC_SetMatchingQuality(FourChar("Qua2"));
    ASSERT_EQ(ICC_Load(&location), 0);
    const Current third;
    EXPECT_EQ(third->useMonitorWhite, 0u);
    EXPECT_EQ(third->tablesBuilt, 0u);
    EXPECT_EQ(third->printerWhite.X, third->printerMediaWhite.X);
}

TEST_F(MatchingSettings, ARefusedLoadKeepsTheCurrentData) {
    const TemporaryFolder where;
    const Alias gone(Vanishing(where));
    std::filesystem::remove(where / "gone.icc");
    const Alias display(kSRGBMonitor), printer(RGBPrinter()), named(kNamedColours);
    const ICCProfileLocation good = {display.Get(), printer.Get(), nullptr};
    ASSERT_EQ(ICC_Load(&good), 0);
    const Current before;
    const struct {
        const char* name;
        ICCProfileLocation location;
        OSErr expected;
    } kRows[] = {
        {"a display as the printer", {display.Get(), display.Get(), nullptr}, -170},
        {"a monitor that has gone", {gone.Get(), printer.Get(), nullptr}, -43},
        {"no printer", {display.Get(), nullptr, nullptr}, -43},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(ICC_Load(&row.location), row.expected) << row.name;
        const Current after;
        EXPECT_EQ(after.Get(), before.Get()) << row.name;
    }
}

TEST_F(MatchingSettings, ProofingTakesTheFlagAndAProofer) {
    const Alias display(kSRGBMonitor), printer(kCMYKPrinter), proofer(kXYZPrinter);
    const ICCProfileLocation without = {display.Get(), printer.Get(), nullptr};
    const ICCProfileLocation with = {display.Get(), printer.Get(), proofer.Get()};
    const uint16_t in[] = {60000, 2000, 2000, 0};
    const auto answer = [&](const ICCProfileLocation& location, Boolean use) {
        ICC_RememberUseProofingProfile(use);
        EXPECT_EQ(ICC_Load(&location), 0);
        const Current data;
        std::vector<uint16_t> out(4);
        DirectPrinterMatch16(data.Get(), in, out.data(), 1);
        return out;
    };
    const std::vector<uint16_t> plain = answer(without, false);
    EXPECT_EQ(answer(without, true), plain);
    EXPECT_EQ(answer(with, false), plain);
    EXPECT_NE(answer(with, true), plain);
}

TEST_F(MatchingSettings, NullAndClosingTakeTheDataAway) {
    const Alias display(kSRGBMonitor), printer(RGBPrinter());
    const ICCProfileLocation location = {display.Get(), printer.Get(), nullptr};
    EXPECT_EQ(ICC_InitServer(), 0);
    ASSERT_EQ(ICC_Load(&location), 0);
    EXPECT_NE(Current().Get(), nullptr);
    EXPECT_EQ(ICC_Null(), 0);
    EXPECT_EQ(Current().Get(), nullptr);
    ASSERT_EQ(ICC_Load(&location), 0);
    ICC_CloseServer();
    EXPECT_EQ(Current().Get(), nullptr);
}

}  // namespace
