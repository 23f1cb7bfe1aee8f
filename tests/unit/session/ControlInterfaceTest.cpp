#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "platform/FourCharCode.h"
#include "session/ControlInterface.h"
#include "session/MatchingDataHandle.h"
#include "tests/fixtures/ChangeCounter.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/SettingsStore.h"
#include "tests/fixtures/StringText.h"

namespace {

const PrivateStore store;

std::string StoredText(CFStringRef key) {
    const Owned<CFTypeRef> stored = CopyRaw(key);
    if (!stored) return "(none)";
    return CFGetTypeID(stored.Get()) == CFStringGetTypeID() ? Text(static_cast<CFStringRef>(stored.Get())) : "(no text)";
}

class ControlInterface : public testing::Test {
protected:
    void SetUp() override {
        EmptyStore();
        EXPECT_EQ(CMSControlInit(), 0);
    }
};

std::vector<uint8_t> BytesOf(AliasHandle alias) {
    const Handle handle = reinterpret_cast<Handle>(alias);
    return {reinterpret_cast<uint8_t*>(*handle), reinterpret_cast<uint8_t*>(*handle) + GetHandleSize(handle)};
}

/// A profile as its getter hands it out, disposed of at the end of the scope.
struct Got {
    explicit Got(int16_t (*get)(AliasHandle*)) : alias(reinterpret_cast<AliasHandle>(&status)), status(get(&alias)) {}
    Got(const Got&) = delete;
    Got& operator=(const Got&) = delete;
    ~Got() {
        if (alias) DisposeHandle(reinterpret_cast<Handle>(alias));
    }
    AliasHandle alias;
    int16_t status;
};

TEST_F(ControlInterface, VersionIs250) {
    EXPECT_EQ(CMSGetVersion(), 0x20500);
}

TEST_F(ControlInterface, QualitiesAreStoredAsTheirCodes) {
    const struct {
        int32_t number;
        const char* stored;
        int32_t readBack;
    } kRows[] = {{0, "Qua0", 0}, {1, "Qua1", 1}, {2, "Qua2", 2}, {3, "Qua2", 2}, {-1, "Qua2", 2}, {INT32_MIN, "Qua2", 2}, {INT32_MAX, "Qua2", 2}};
    ChangeCounter changes;
    for (const auto& row : kRows) {
        EXPECT_EQ(CMSSetQuality(row.number), 0);
        EXPECT_EQ(StoredText(CFSTR("Matching Quality")), row.stored) << row.number;
        int32_t quality = -9;
        EXPECT_EQ(CMSGetQuality(&quality), 0);
        EXPECT_EQ(quality, row.readBack) << row.number;
        EXPECT_GE(changes.Take(), 1);
    }
}

TEST_F(ControlInterface, IntentsAreStoredAsTheirCodes) {
    const struct {
        int32_t number;
        const char* stored;
        int32_t readBack;
    } kRows[] = {{1, "Rdr1", 1}, {2, "Rdr2", 2}, {3, "Rdr3", 3},  {0, "Rdr0", 1},
                 {4, "Rdr0", 1}, {7, "Rdr0", 1}, {-1, "Rdr0", 1}, {INT32_MAX, "Rdr0", 1}};
    ChangeCounter changes;
    for (const auto& row : kRows) {
        EXPECT_EQ(CMSSetRenderingIntent(row.number), 0);
        EXPECT_EQ(StoredText(CFSTR("Rendering Intent")), row.stored) << row.number;
        int32_t intent = -9;
        EXPECT_EQ(CMSGetRenderingIntent(&intent), 0);
        EXPECT_EQ(intent, row.readBack) << row.number;
        EXPECT_GE(changes.Take(), 1);
    }
}

TEST_F(ControlInterface, UnknownCodesInMemoryReadAsTwoAndOne) {
    ICC_SetMatchingQuality(FourChar("Qua7"));
    ICC_SetRenderingIntent(FourChar("abcd"));
    int32_t number = 0;
    EXPECT_EQ(CMSGetQuality(&number), 0);
    EXPECT_EQ(number, 2);
    EXPECT_EQ(CMSGetRenderingIntent(&number), 0);
    EXPECT_EQ(number, 1);
}

TEST_F(ControlInterface, InitRecallsQualityAndConditionsButNoIntent) {
    StoreRaw(CFSTR("Matching Quality"), CFSTR("Qua1"));
    StoreRaw(CFSTR("Rendering Intent"), CFSTR("Rdr2"));
    ICC_SetRenderingIntent(FourChar("Rdr3"));
    EXPECT_EQ(CMSControlInit(), 0);
    int32_t number = 0;
    CMSGetQuality(&number);
    EXPECT_EQ(number, 1);
    CMSGetRenderingIntent(&number);
    EXPECT_EQ(number, 3);
}

struct Place {
    const char* name;
    int16_t (*set)(AliasHandle);
    int16_t (*get)(AliasHandle*);
    Boolean (*setURL)(CFURLRef);
    CFURLRef (*copyURL)(void);
    CFStringRef key;
    std::string good, wrong;
};
const Place kPlaces[] = {
    {"monitor", CMSSetMonitorProfile, CMSGetMonitorProfile, CMSSetMonitorProfileURL, CMSCopyMonitorProfileURL, CFSTR("Monitor Profile"), kSRGBMonitor,
     kCMYKPrinter},
    {"printer", CMSSetPrinterProfile, CMSGetPrinterProfile, CMSSetPrinterProfileURL, CMSCopyPrinterProfileURL, CFSTR("Printer Profile"), kCMYKPrinter,
     kSRGBMonitor},
    {"proofer", CMSSetProofingProfile, CMSGetProofingProfile, CMSSetProofingProfileURL, CMSCopyProofingProfileURL, CFSTR("Proofer Profile"),
     kXYZPrinter, kNamedColours},
};

TEST_F(ControlInterface, ProfilesAreStoredPublishedAndHandedOutAsCopies) {
    ChangeCounter changes;
    for (const Place& place : kPlaces) {
        SCOPED_TRACE(place.name);
        const Alias alias(place.good);
        EXPECT_EQ(place.set(alias.Get()), 0);
        EXPECT_GE(changes.Take(), 1);
        const Owned<CFTypeRef> stored = CopyRaw(place.key);
        ASSERT_TRUE(stored);
        ASSERT_EQ(CFGetTypeID(stored.Get()), CFDataGetTypeID());
        const auto data = static_cast<CFDataRef>(stored.Get());
        EXPECT_EQ(std::vector<uint8_t>(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data)), BytesOf(alias.Get()));
        const Got first(place.get), second(place.get);
        EXPECT_EQ(first.status, 0);
        ASSERT_NE(first.alias, nullptr);
        ASSERT_NE(second.alias, nullptr);
        EXPECT_NE(first.alias, second.alias);
        EXPECT_EQ(BytesOf(first.alias), BytesOf(alias.Get()));
    }
    // Setting one keeps the others.
    for (const Place& place : kPlaces) EXPECT_TRUE(CopyRaw(place.key)) << place.name;
}

TEST_F(ControlInterface, ARefusedProfileChangesNothing) {
    const TemporaryFolder folder;
    const std::string gone = folder.Write("gone.icc", ReadFile(kSRGBMonitor));
    const std::string text = folder.Write("text.icc", std::vector<uint8_t>(500, 'x'));
    const Alias goneAlias(gone), textAlias(text);
    const Owned<CFURLRef> textURL = FileURL(text);
    std::filesystem::remove(gone);
    for (const Place& place : kPlaces) {
        const Alias good(place.good);
        ASSERT_EQ(place.set(good.Get()), 0);
    }
    ChangeCounter changes;
    const auto before = store.Bytes();
    ASSERT_FALSE(before.empty());
    for (const Place& place : kPlaces) {
        SCOPED_TRACE(place.name);
        const Alias wrong(place.wrong);
        EXPECT_EQ(place.set(wrong.Get()), -170);
        EXPECT_EQ(place.set(goneAlias.Get()), -43);
        EXPECT_NE(place.set(textAlias.Get()), 0);
        EXPECT_FALSE(place.setURL(FileURL(place.wrong).Get()));
        EXPECT_FALSE(place.setURL(textURL.Get()));
        const Got kept(place.get);
        ASSERT_NE(kept.alias, nullptr);
        EXPECT_EQ(BytesOf(kept.alias), BytesOf(Alias(place.good).Get()));
    }
    SynchronisePreferences(false);
    EXPECT_EQ(store.Bytes(), before);
    EXPECT_EQ(changes.Take(), 0);
}

TEST_F(ControlInterface, NullClearsAField) {
    for (const Place& place : kPlaces) {
        const Alias good(place.good);
        ASSERT_EQ(place.set(good.Get()), 0);
        ASSERT_TRUE(CopyRaw(place.key));
        EXPECT_EQ(place.set(nullptr), 0) << place.name;
        EXPECT_FALSE(CopyRaw(place.key)) << place.name;
    }
}

TEST_F(ControlInterface, URLsSetAndClear) {
    const TemporaryFolder folder;
    const Owned<CFURLRef> nowhere = FileURL(folder / "nowhere.icc");
    ChangeCounter changes;
    for (const Place& place : kPlaces) {
        SCOPED_TRACE(place.name);
        for (const CFURLRef clearing : {CFURLRef{nullptr}, nowhere.Get()}) {
            EXPECT_TRUE(place.setURL(FileURL(place.good).Get()));
            const Owned<CFTypeRef> stored = CopyRaw(place.key);
            ASSERT_TRUE(stored);
            EXPECT_EQ(CFGetTypeID(stored.Get()), CFDataGetTypeID());
            EXPECT_GE(changes.Take(), 1);
            // Deliberate: no file at that URL clears, and is a success.
            EXPECT_TRUE(place.setURL(clearing));
            EXPECT_FALSE(CopyRaw(place.key));
            EXPECT_GE(changes.Take(), 1);
        }
    }
}

TEST_F(ControlInterface, NoLocationBecomesAURL) {
    for (const Place& place : kPlaces) {
        EXPECT_EQ(place.copyURL(), nullptr) << place.name;
        const Alias good(place.good);
        ASSERT_EQ(place.set(good.Get()), 0);
        EXPECT_EQ(place.copyURL(), nullptr) << place.name;
    }
}

TEST_F(ControlInterface, TheMonitorsFieldDecidesWhetherAProfileIsUnset) {
    for (const Place& place : kPlaces) {
        const Got unset(place.get);
        EXPECT_EQ(std::make_tuple(unset.status, unset.alias), std::make_tuple(int16_t{0}, AliasHandle{nullptr})) << place.name;
    }
    const Alias monitor(kSRGBMonitor), printer(kCMYKPrinter), proofer(kXYZPrinter);
    ASSERT_EQ(CMSSetPrinterProfile(printer.Get()), 0);
    ASSERT_EQ(CMSSetProofingProfile(proofer.Get()), 0);
    for (const Place& place : kPlaces) {
        const Got hidden(place.get);
        EXPECT_EQ(std::make_tuple(hidden.status, hidden.alias), std::make_tuple(int16_t{0}, AliasHandle{nullptr})) << place.name;
    }
    ASSERT_EQ(CMSSetMonitorProfile(monitor.Get()), 0);
    ASSERT_EQ(CMSSetPrinterProfile(nullptr), 0);
    ASSERT_EQ(CMSSetProofingProfile(nullptr), 0);
    Handle null = nullptr;
    const OSErr copyOfNull = HandToHand(&null);
    EXPECT_NE(copyOfNull, 0);
    for (const auto get : {CMSGetPrinterProfile, CMSGetProofingProfile}) {
        const Got empty(get);
        EXPECT_EQ(std::make_tuple(empty.status, empty.alias), std::make_tuple(copyOfNull, AliasHandle{nullptr}));
    }
}

TEST_F(ControlInterface, IlluminantAndObserver) {
    char illuminant[32], observer[32];
    EXPECT_EQ(CMSGetIllObs(illuminant, observer), 0);
    EXPECT_EQ(std::string(illuminant) + "/" + observer, "D65/2");
    ChangeCounter changes;
    EXPECT_EQ(CMSSetIllObs("D50 \xC3\xA9", "10"), 0);
    EXPECT_GE(changes.Take(), 1);
    EXPECT_EQ(CMSGetIllObs(illuminant, observer), 0);
    EXPECT_EQ(std::string(illuminant) + "/" + observer, "D50 \xC3\xA9/10");
    // What is no UTF-8 is left out, the other is stored.
    EXPECT_EQ(CMSSetIllObs("\xFF\xFE", "12"), 0);
    EXPECT_EQ(CMSGetIllObs(illuminant, observer), 0);
    EXPECT_EQ(std::string(illuminant) + "/" + observer, "D50 \xC3\xA9/12");
    EXPECT_EQ(CMSSetIllObs(nullptr, nullptr), 0);
    EXPECT_EQ(CMSGetIllObs(illuminant, observer), 0);
    EXPECT_EQ(std::string(illuminant) + "/" + observer, "D50 \xC3\xA9/12");
}

TEST_F(ControlInterface, OfATooLongTextTheWholeCharactersThatFitAreHandedOut) {
    const auto row = [](size_t count, const char* rest) { return std::string(count, 'a') + rest; };
    const struct {
        std::string stored, handedOut;
    } kRows[] = {
        {row(31, ""), row(31, "")},
        {row(32, ""), row(31, "")},
        {row(500, ""), row(31, "")},
        {row(29, "\xC3\xA9"), row(29, "\xC3\xA9")},
        {row(30, "\xC3\xA9"), row(30, "")},
        {row(28, "\xE2\x82\xAC"), row(28, "\xE2\x82\xAC")},
        {row(29, "\xE2\x82\xAC"), row(29, "")},
        {row(30, "\xE2\x82\xAC"), row(30, "")},
        {row(27, "\xF0\x9F\x8E\xA8"), row(27, "\xF0\x9F\x8E\xA8")},
        {row(28, "\xF0\x9F\x8E\xA8"), row(28, "")},
        {row(30, "\xF0\x9F\x8E\xA8zz"), row(30, "")},
        {row(31, "\xF0\x9F\x8E\xA8zz"), row(31, "")},
    };
    for (const auto& [stored, handedOut] : kRows) {
        char illuminant[33], observer[33];
        illuminant[32] = observer[32] = '!';
        EXPECT_EQ(CMSSetIllObs(stored.c_str(), stored.c_str()), 0);
        EXPECT_EQ(CMSGetIllObs(illuminant, observer), 0);
        EXPECT_EQ(std::string(illuminant), handedOut) << stored;
        EXPECT_EQ(std::string(observer), handedOut) << stored;
        EXPECT_EQ(illuminant[32], '!') << stored;
        EXPECT_EQ(observer[32], '!') << stored;
        EXPECT_EQ(StoredText(CFSTR("Illuminant")), stored);
    }
}

TEST_F(ControlInterface, ValuesOfWrongKindsReadAsUnset) {
    const int32_t number = 5;
    const Owned<CFNumberRef> wrong(CFNumberCreate(nullptr, kCFNumberSInt32Type, &number));
    for (const CFStringRef key : kSettingsKeys) StoreRaw(key, wrong.Get());
    SynchronisePreferences(false);
    EXPECT_EQ(CMSControlInit(), 0);
    char illuminant[32], observer[32];
    EXPECT_EQ(CMSGetIllObs(illuminant, observer), 0);
    EXPECT_EQ(std::string(illuminant) + "/" + observer, "D65/2");
    for (const Place& place : kPlaces) {
        const Got unset(place.get);
        EXPECT_EQ(std::make_tuple(unset.status, unset.alias), std::make_tuple(int16_t{0}, AliasHandle{nullptr})) << place.name;
    }
    int32_t quality = -9;
    EXPECT_EQ(CMSGetQuality(&quality), 0);
    EXPECT_EQ(quality, 0);
    ViewingConditions conditions = {9, 9, 9, 9, true};
    EXPECT_EQ(CMSGetViewingConditions(&conditions), 0);
    EXPECT_EQ(std::make_tuple(conditions.flare, conditions.contrast, conditions.aOffset, conditions.bOffset, conditions.usePrinter),
              std::make_tuple(-0.03, 1.0, 0.0, 0.0, Boolean{0}));
    Boolean use = true;
    EXPECT_EQ(CMSGetUseProofingProfile(&use), 0);
    EXPECT_FALSE(use);
}

TEST_F(ControlInterface, ViewingConditionsAreStoredWithTheIntentInMemory) {
    ChangeCounter changes;
    ICC_SetRenderingIntent(FourChar("Rdr2"));
    const ViewingConditions conditions = {0.5, 2, -3, 4, true};
    EXPECT_EQ(CMSSetViewingConditions(&conditions), 0);
    EXPECT_GE(changes.Take(), 1);
    EXPECT_EQ(ICC_GetRenderingIntent(), FourChar("Rdr2"));
    ViewingConditions other = {0, 0, 0, 0, false};
    ICC_SetViewingConditions(FourChar("Rdr2"), &other);
    ICC_RecallViewingConditions();
    EXPECT_EQ(CMSGetViewingConditions(&other), 0);
    EXPECT_EQ(std::make_tuple(other.flare, other.contrast, other.aOffset, other.bOffset, other.usePrinter),
              std::make_tuple(0.5, 2.0, -3.0, 4.0, Boolean{1}));
}

TEST_F(ControlInterface, FixedWhites) {
    const auto copy = [] {
        CFStringRef monitor = CFSTR("x"), printer = CFSTR("x");
        Boolean useMonitor = 9, usePrinter = 9;
        EXPECT_EQ(CMSCopyFixWhite(&monitor, &useMonitor, &printer, &usePrinter), 0);
        const Owned<CFStringRef> first(monitor), second(printer);
        return Text(first) + "/" + std::to_string(useMonitor) + "/" + Text(second) + "/" + std::to_string(usePrinter);
    };
    EXPECT_EQ(copy(), "/0//0");
    ChangeCounter changes;
    EXPECT_EQ(CMSSetFixWhite(CFSTR("xyz:1,2,3"), true, CFSTR("paper"), false), 0);
    EXPECT_GE(changes.Take(), 1);
    EXPECT_EQ(copy(), "xyz:1,2,3/1/paper/0");
    EXPECT_EQ(CMSSetFixWhite(nullptr, false, nullptr, true), 0);
    EXPECT_EQ(copy(), "/0//1");
    EXPECT_FALSE(CopyRaw(CFSTR("Monitor Whitepoint")));
}

TEST_F(ControlInterface, UseOfTheProofer) {
    Boolean use = 9;
    EXPECT_EQ(CMSGetUseProofingProfile(&use), 0);
    EXPECT_EQ(use, 0);
    ChangeCounter changes;
    EXPECT_EQ(CMSSetUseProofingProfile(true), 0);
    EXPECT_GE(changes.Take(), 1);
    EXPECT_EQ(CMSGetUseProofingProfile(&use), 0);
    EXPECT_EQ(use, 1);
}

int sCalls = 0;
void CountCall(void* userData) {
    ++sCalls;
    ++*static_cast<int*>(userData);
}

TEST_F(ControlInterface, ARegistrationOutlivesItsProcedure) {
    int first = 0, second = 0;
    EXPECT_EQ(CMSSetChangeNotificationProc(CountCall, &first), 0);
    ChangeCounter changes;
    first = 0;
    CMSSetQuality(1);
    const int heard = changes.Take();
    ASSERT_GE(heard, 1);
    EXPECT_EQ(first, heard);
    // Without a procedure nobody is called.
    EXPECT_EQ(CMSSetChangeNotificationProc(nullptr, &second), 0);
    sCalls = 0;
    CMSSetQuality(2);
    ASSERT_GE(changes.Take(), 1);
    EXPECT_EQ(sCalls, 0);
    // Deliberate: the first registration still stands, so each change is told twice.
    EXPECT_EQ(CMSSetChangeNotificationProc(CountCall, &second), 0);
    CMSSetQuality(0);
    const int heardAgain = changes.Take();
    EXPECT_EQ(second, 2 * heardAgain);
    EXPECT_GE(second, 2);
    CMSSetChangeNotificationProc(nullptr, nullptr);
}

void CountAndRaise(void* userData) {
    CountCall(userData);
    throw 0x65727220L;
}

TEST_F(ControlInterface, AProcedureThatRaisesIsCalledAgain) {
    int calls = 0;
    ASSERT_EQ(CMSSetChangeNotificationProc(CountAndRaise, &calls), 0);
    ChangeCounter changes;
    for (const int32_t quality : {1, 2}) {
        calls = 0;
        CMSSetQuality(quality);
        EXPECT_GE(changes.Take(), 1);
        EXPECT_GE(calls, 1);
    }
    EXPECT_EQ(CMSSetChangeNotificationProc(nullptr, nullptr), 0);
}

}  // namespace
