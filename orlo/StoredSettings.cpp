#include "orlo/StoredSettings.h"

#include <glib.h>

#include <array>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>

#include "images/FourCharCodes.h"
#include "images/Texts.h"
#include "orlo/CommandLine.h"
#include "orlo/CommandTable.h"
#include "orlo/SettingsLock.h"

namespace {

constexpr std::size_t kShortText = 31;  // bytes: illuminant and observer are read into 32 with the terminator

CFStringRef Key(const char* key) {
    return __CFStringMakeConstantString(key);
}

// What is stored is answered whatever the default.

bool IsBooleanStored(const char* key) {
    return GetBooleanPreference(Key(key), false) == GetBooleanPreference(Key(key), true);
}
bool IsCodeStored(const char* key) {
    return GetOSTypePreference(Key(key), 0) == GetOSTypePreference(Key(key), 1);
}
bool IsTextStored(const char* key) {
    const Owned<CFStringRef> first(CopyStringPreference(Key(key), CFSTR("0"))), second(CopyStringPreference(Key(key), CFSTR("1")));
    return first && second && CFEqual(first.Get(), second.Get());
}

Owned<CFStringRef> StringOf(const std::string& text) {
    return Owned<CFStringRef>(CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
}

SettingValue Number(double number) {
    // JSON has no infinities and no NaN.
    return {std::isfinite(number) ? SettingValue::kNumber : SettingValue::kText, NumberText(number)};
}
SettingValue Switch(bool on) {
    return {SettingValue::kSwitch, on ? "on" : "off"};
}
SettingValue Text(const std::string& text) {
    return text.empty() ? SettingValue{} : SettingValue{SettingValue::kText, text};
}

/// What the changes are gathered in before anything is stored.
struct Pending {
    std::optional<int> quality, intent;
    ViewingConditions conditions = {};
    bool changesConditions = false;
    std::string monitorWhite, printerWhite;
    Boolean useMonitorWhite = false, usePrinterWhite = false;
    bool changesWhites = false;
    std::optional<ChosenProfile> monitor, printer, proofer;  // without an alias: none
    std::optional<bool> useProofer, usePaths;
    std::optional<std::string> illuminant, observer;
};

/// A new value that the setting does not take.
[[noreturn]] void Refuse(const SettingChange& change, const char* right) {
    throw Complaint{change.name, "'" + change.value + "' is not a value of it", right};
}

double RealBetween(const SettingChange& change, double least, double most) {
    return RealFrom(change.name, change.value, least, most);
}

bool OnOrOff(const SettingChange& change) {
    if (change.value == "on") return true;
    if (change.value == "off") return false;
    Refuse(change, "use on or off");
}

int OneDigit(const SettingChange& change, char least, char most, const char* right) {
    if (change.value.size() == 1 && change.value[0] >= least && change.value[0] <= most) return change.value[0] - '0';
    Refuse(change, right);
}

/// The names of the intents 1 to 3; 0 stands for the first of them.
constexpr std::array<const char*, 3> kIntentNames = {"relative", "saturation", "absolute"};

int IntentNumber(const SettingChange& change) {
    for (std::size_t i = 0; i < kIntentNames.size(); ++i) {
        if (change.value == kIntentNames[i] || change.value == std::to_string(i + 1)) return static_cast<int>(i) + 1;
    }
    Refuse(change, "use relative, saturation or absolute");
}

std::string WhiteText(const SettingChange& change) {
    if (change.value == "none") return {};
    const Owned<CFStringRef> text = StringOf(change.value);
    FixedXYZ colour;
    if (!text || !ExtractPCSXYZ(text.Get(), &colour)) Refuse(change, "use a white such as xyz:95.05,100,108.9, in per cent under D65, or none");
    return change.value;
}

std::string ShortText(const SettingChange& change) {
    const bool fits = !change.value.empty() && change.value.size() <= kShortText && g_utf8_validate(change.value.c_str(), -1, nullptr);
    if (!fits) Refuse(change, "use a text of 1 to 31 bytes in UTF-8");
    return change.value;
}

std::optional<ChosenProfile> Profile(const SettingChange& change, ChosenProfile (*choose)(const std::string&)) {
    if (change.value.empty()) Refuse(change, "name a profile file, or none");
    return change.value == "none" ? std::optional<ChosenProfile>(std::in_place) : choose(change.value);
}

/// The file that is stored under the key; empty when none is, or when it cannot be found.
std::string StoredPath(const char* key) {
    const std::unique_ptr<AliasHandle, AliasRelease> alias(GetFileLocationPreference(Key(key)));
    FSRef file;
    Boolean wasChanged = false;
    if (!alias || FSResolveAlias(nullptr, alias.get(), &file, &wasChanged) != 0) return {};
    const Owned<CFURLRef> url(CFURLCreateFromFSRef(kCFAllocatorDefault, &file));
    return PathOf(url.Get());
}

/// Stored as an alias, or as a text.
bool IsFileStored(const char* key) {
    return std::unique_ptr<AliasHandle, AliasRelease>(GetFileLocationPreference(Key(key))) || IsTextStored(key);
}

SettingValue ReadProfile(const char* key) {
    const std::string path = StoredPath(key);
    if (path.empty() && IsFileStored(key)) return {SettingValue::kText, "(a file that cannot be found)"};
    return Text(path);
}

ViewingConditions ConditionsInStore() {
    ICC_RecallViewingConditions();
    return *ICC_GetViewingConditions();
}

/// Settings that live in the dictionary of viewing conditions.
bool IsConditionStored(const char* key) {
    const Owned<CFDictionaryRef> stored(CopyDictionaryPreference(Key("Viewing Conditions")));
    if (!stored) return false;
    const double real = GetRealFromDictionary(stored.Get(), Key(key), 0.0);
    if (real == GetRealFromDictionary(stored.Get(), Key(key), 1.0)) return true;
    return GetBooleanFromDictionary(stored.Get(), Key(key), false) == GetBooleanFromDictionary(stored.Get(), Key(key), true);
}

using RecallWhite = OSErr(CFStringRef* text, Boolean* use);

/// A white's text and whether it is in use.
struct StoredWhite {
    Owned<CFStringRef> text;
    bool use;
};
StoredWhite WhiteInStore(RecallWhite recall) {
    CFStringRef text = nullptr;
    Boolean use = false;
    recall(&text, &use);
    return {Owned<CFStringRef>(text), use != 0};
}

/// Illuminant and observer, as a host is told them.
std::pair<std::string, std::string> IllObsInStore() {
    std::array<char, 32> illuminant = {}, observer = {};
    CMSGetIllObs(illuminant.data(), observer.data());
    return {illuminant.data(), observer.data()};
}

int ReadQuality() {
    int quality = 0;
    ICC_RecallMatchingQuality();
    CMSGetQuality(&quality);
    return quality;
}

/// An intent that was never stored is the one that a session starts with, not what recalling it would answer.
OSType ReadIntent() {
    return IsCodeStored("Rendering Intent") ? GetOSTypePreference(Key("Rendering Intent"), 0) : ICC_GetRenderingIntent();
}

bool UsesProofer() {
    Boolean use = false;
    ICC_RecallUseProofingProfile(&use);
    return use != 0;
}

std::optional<FixedXYZ> WhiteInUse(RecallWhite recall) {
    const StoredWhite white = WhiteInStore(recall);
    FixedXYZ colour;
    if (!white.use || !ExtractPCSXYZ(white.text.Get(), &colour)) return std::nullopt;
    return colour;
}

/// One setting: where it is stored, how it is shown, and how a new value is checked and noted.
struct Row {
    const char* name;
    const char* about;
    const char* key;
    bool (*isStored)(const char* key);
    SettingValue (*read)();
    void (*note)(const SettingChange&, Pending&);
};

constexpr const char* kProfileAbout = "PROFILE or none";
constexpr const char* kSwitchAbout = "on or off";

const Row kRows[] = {
    {"monitor-profile", kProfileAbout, "Monitor Profile", IsFileStored, [] { return ReadProfile("Monitor Profile"); },
     [](const SettingChange& change, Pending& pending) { pending.monitor = Profile(change, ChooseMonitor); }},
    {"printer-profile", kProfileAbout, "Printer Profile", IsFileStored, [] { return ReadProfile("Printer Profile"); },
     [](const SettingChange& change, Pending& pending) { pending.printer = Profile(change, ChoosePrinter); }},
    {"proofer-profile", kProfileAbout, "Proofer Profile", IsFileStored, [] { return ReadProfile("Proofer Profile"); },
     [](const SettingChange& change, Pending& pending) { pending.proofer = Profile(change, ChooseProofer); }},
    {"use-proofer", kSwitchAbout, "Use Proofer Profile", IsBooleanStored, [] { return Switch(UsesProofer()); },
     [](const SettingChange& change, Pending& pending) { pending.useProofer = OnOrOff(change); }},
    {"quality", "0 (precomputed tables), 1 or 2 (every colour evaluated)", "Matching Quality", IsCodeStored, [] { return Number(ReadQuality()); },
     [](const SettingChange& change, Pending& pending) { pending.quality = OneDigit(change, '0', '2', "use 0, 1 or 2"); }},
    {"intent", "relative, saturation (the same) or absolute (the monitor as it is, on the scale of its luminance tag); or their numbers 1, 2, 3",
     "Rendering Intent", IsCodeStored, [] { return Text(IntentName(ReadIntent())); },
     [](const SettingChange& change, Pending& pending) { pending.intent = IntentNumber(change); }},
    {"flare", "-1 to 1: negative makes dark colours darker, as a monitor needs whose black is lifted by that share; positive makes them lighter",
     "Flare", IsConditionStored, [] { return Number(ConditionsInStore().flare); },
     [](const SettingChange& change, Pending& pending) { pending.conditions.flare = RealBetween(change, -1.0, 1.0); }},
    {"contrast", "0.1 to 10: tone curves are raised to 1/contrast", "Contrast", IsConditionStored,
     [] { return Number(ConditionsInStore().contrast); },
     [](const SettingChange& change, Pending& pending) { pending.conditions.contrast = RealBetween(change, 0.1, 10.0); }},
    {"a-offset", "-128 to 127: a* shift of the adapted white", "A Offset", IsConditionStored, [] { return Number(ConditionsInStore().aOffset); },
     [](const SettingChange& change, Pending& pending) { pending.conditions.aOffset = RealBetween(change, -128.0, 127.0); }},
    {"b-offset", "-128 to 127: b* shift of the adapted white", "B Offset", IsConditionStored, [] { return Number(ConditionsInStore().bOffset); },
     [](const SettingChange& change, Pending& pending) { pending.conditions.bOffset = RealBetween(change, -128.0, 127.0); }},
    {"adapt-to-paper", "on or off: the monitor's white is the printer's paper", "Use Printer", IsConditionStored,
     [] { return Switch(ConditionsInStore().usePrinter); },
     [](const SettingChange& change, Pending& pending) { pending.conditions.usePrinter = OnOrOff(change); }},
    {"monitor-white", "xyz:X,Y,Z in per cent under D65, or none", "Monitor Whitepoint", IsTextStored,
     [] { return Text(TextOf(WhiteInStore(ICC_RecallMonitorWhitepoint).text.Get())); },
     [](const SettingChange& change, Pending& pending) { pending.monitorWhite = WhiteText(change); }},
    {"use-monitor-white", kSwitchAbout, "Use Monitor Whitepoint", IsBooleanStored,
     [] { return Switch(WhiteInStore(ICC_RecallMonitorWhitepoint).use); },
     [](const SettingChange& change, Pending& pending) { pending.useMonitorWhite = OnOrOff(change); }},
    {"printer-white", "xyz:X,Y,Z in per cent under D65, or none", "Printer Whitepoint", IsTextStored,
     [] { return Text(TextOf(WhiteInStore(ICC_RecallPrinterWhitepoint).text.Get())); },
     [](const SettingChange& change, Pending& pending) { pending.printerWhite = WhiteText(change); }},
    {"use-printer-white", kSwitchAbout, "Use Printer Whitepoint", IsBooleanStored,
     [] { return Switch(WhiteInStore(ICC_RecallPrinterWhitepoint).use); },
     [](const SettingChange& change, Pending& pending) { pending.usePrinterWhite = OnOrOff(change); }},
    {"illuminant", "a text of up to 31 bytes, kept for hosts", "Illuminant", IsTextStored, [] { return Text(IllObsInStore().first); },
     [](const SettingChange& change, Pending& pending) { pending.illuminant = ShortText(change); }},
    {"observer", "a text of up to 31 bytes, kept for hosts", "Observer", IsTextStored, [] { return Text(IllObsInStore().second); },
     [](const SettingChange& change, Pending& pending) { pending.observer = ShortText(change); }},
    {"use-paths", "on or off: profiles are stored as URL texts, which are not read back", "Use Paths", IsBooleanStored,
     [] { return Switch(GetBooleanPreference(Key("Use Paths"), false)); },
     [](const SettingChange& change, Pending& pending) { pending.usePaths = OnOrOff(change); }},
};

const Row& FindRow(const std::string& name) {
    for (const Row& row : kRows) {
        if (name == row.name) return row;
    }
    throw NoSuchSetting(name);
}

bool IsWhite(const Row& row) {
    return std::string_view(row.name).ends_with("-white");
}

/// The settings whose neighbours are stored along with them start from what is stored now.
Pending PendingFromStore() {
    Pending pending;
    const StoredWhite monitorWhite = WhiteInStore(ICC_RecallMonitorWhitepoint), printerWhite = WhiteInStore(ICC_RecallPrinterWhitepoint);
    pending.conditions = ConditionsInStore();
    pending.monitorWhite = TextOf(monitorWhite.text.Get());
    pending.printerWhite = TextOf(printerWhite.text.Get());
    pending.useMonitorWhite = monitorWhite.use;
    pending.usePrinterWhite = printerWhite.use;
    return pending;
}

void Check(const std::string& about, int status) {
    if (status != 0) throw Complaint{about, "it cannot be set (status " + std::to_string(status) + ")", "see orlo settings list for what is set"};
}

void CheckProfile(const std::string& about, const std::optional<ChosenProfile>& chosen, OSErr (*validate)(AliasHandle)) {
    if (chosen) Check(about, validate(chosen->alias.get()));
}

/// With the absolute intent a monitor is scaled by its luminance, and one that does not say it shows nothing but black.
void RequireLuminance(const Pending& pending) {
    if (!pending.monitor && !pending.intent) return;
    const bool isUnadjusted = pending.intent ? *pending.intent == 3 : IsUnadjusted(ReadIntent());
    if (!isUnadjusted) return;
    const std::string path = StoredPath("Monitor Profile");
    if (pending.monitor && pending.monitor->profile) {
        RequireLuminance(*pending.monitor);
    } else if (!pending.monitor && !path.empty()) {
        RequireLuminance(ChooseMonitor(path));
    }
}

/// The changes as they are to be stored, each checked; throws Complaint.
Pending Checked(std::span<const SettingChange> changes) {
    CMSControlInit();
    Pending pending = PendingFromStore();
    for (const SettingChange& change : changes) {
        const Row& row = FindRow(change.name);
        row.note(change, pending);
        pending.changesConditions |= row.isStored == IsConditionStored;
        pending.changesWhites |= IsWhite(row);
    }
    RequireLuminance(pending);
    CheckProfile("monitor-profile", pending.monitor, ICC_ValidateMonitorAlias);
    CheckProfile("printer-profile", pending.printer, ICC_ValidatePrinterAlias);
    CheckProfile("proofer-profile", pending.proofer, ICC_ValidateProoferAlias);
    return pending;
}

void StoreProfiles(const Pending& pending) {
    ICCProfileLocation location;
    GetICCProfileLocation(&location);
    if (pending.monitor) location.monitor = pending.monitor->alias.get();
    if (pending.printer) location.printer = pending.printer->alias.get();
    if (pending.proofer) location.proofer = pending.proofer->alias.get();
    Check("settings", SetICCProfileLocation(&location));
}

/// Each as the CMSSet function stores it that hosts call for it, but for telling every process.
void Store(const Pending& pending) {
    // First, as it decides how the profiles are stored.
    if (pending.usePaths) SetBooleanPreference(Key("Use Paths"), *pending.usePaths);
    if (pending.monitor || pending.printer || pending.proofer) StoreProfiles(pending);
    if (pending.useProofer) ICC_RememberUseProofingProfile(*pending.useProofer);
    if (pending.quality) {
        ICC_SetMatchingQuality(kQualities[*pending.quality]);
        ICC_RememberMatchingQuality();
    }
    if (pending.changesConditions) {
        ICC_SetViewingConditions(ICC_GetRenderingIntent(), &pending.conditions);
        Check("settings", ICC_RememberViewingConditions());
    }
    if (pending.intent) {
        ICC_SetRenderingIntent(kIntents[*pending.intent]);
        ICC_RememberRenderingIntent();
    }
    if (pending.changesWhites) {
        ICC_RememberMonitorWhitepoint(StringOf(pending.monitorWhite).Get(), pending.useMonitorWhite);
        ICC_RememberPrinterWhitepoint(StringOf(pending.printerWhite).Get(), pending.usePrinterWhite);
    }
    if (pending.illuminant) SetStringPreference(Key("Illuminant"), StringOf(*pending.illuminant).Get());
    if (pending.observer) SetStringPreference(Key("Observer"), StringOf(*pending.observer).Get());
}

/// Reads what others stored, and writes what was changed here.
bool Synchronise() {
    return CFPreferencesSynchronize(CFSTR("com.brenwick.orlocms"), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
}

/// Writes what was stored, and tells every process, once.
void Publish() {
    if (!Synchronise()) throw SettingsNotWritten();
    SynchronisePreferences(true);
}

/// The viewing conditions are entries of one dictionary, which goes with its last one.
void ForgetCondition(const char* key) {
    const Owned<CFDictionaryRef> stored(CopyDictionaryPreference(Key("Viewing Conditions")));
    const Owned<CFMutableDictionaryRef> kept(CreatePreferencesDictionary());
    if (!stored || !kept) Check("settings", kStatusNoMemory);
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(stored.Get()));
    std::vector<const void*> keys(count), values(count);
    CFDictionaryGetKeysAndValues(stored.Get(), keys.data(), values.data());
    for (std::size_t i = 0; i < count; ++i) CFDictionarySetValue(kept.Get(), keys[i], values[i]);
    CFDictionaryRemoveValue(kept.Get(), Key(key));
    SetDictionaryPreference(Key("Viewing Conditions"), CFDictionaryGetCount(kept.Get()) > 0 ? kept.Get() : nullptr);
}

}  // namespace

Json SettingValue::ToJson() const {
    switch (kind) {
        case kText:
            return text;
        case kNumber:
            return Json::parse(text);
        case kSwitch:
            return text == "on";
        case kNothing:
            break;
    }
    return nullptr;
}

std::string SettingValue::Line() const {
    return OneLine(Words());
}

Complaint NoSuchSetting(const std::string& name) {
    std::vector<std::string> names;
    for (const Row& row : kRows) names.emplace_back(row.name);
    const std::string near = Nearest(name, names);
    return {name, "there is no such setting", (near.empty() ? "" : "did you mean " + near + "? ") + "orlo settings list shows them"};
}

std::vector<Setting> ReadSettings() {
    std::vector<Setting> settings;
    for (const Row& row : kRows) settings.push_back({row.name, row.about, row.isStored(row.key), row.read()});
    return settings;
}

std::vector<SettingName> SettingNames() {
    std::vector<SettingName> names;
    for (const Row& row : kRows) names.push_back({row.name, row.about});
    return names;
}

void CheckSettings(std::span<const SettingChange> changes) {
    Checked(changes);
}

void ChangeSettings(std::span<const SettingChange> changes) {
    // What is wrong is refused before a file is touched.
    CheckSettings(changes);
    const SettingsLock lock;
    Synchronise();
    Store(Checked(changes));
    Publish();
}

void ResetSettings(std::span<const std::string> names) {
    std::vector<const Row*> rows;
    for (const std::string& name : names) rows.push_back(&FindRow(name));
    const SettingsLock lock;
    Synchronise();
    for (const Row* row : rows) {
        // A null string removes a key, whatever it holds.
        row->isStored == IsConditionStored ? ForgetCondition(row->key) : SetStringPreference(Key(row->key), nullptr);
    }
    Publish();
}

std::string IntentName(OSType code) {
    return kIntentNames[code == kIntents[3] ? 2 : code == kIntents[2] ? 1 : 0];
}

bool IsUnadjusted(OSType code) {
    return code == kIntents[3];
}

StoredConditions ReadStoredConditions() {
    StoredConditions stored;
    stored.viewing = ConditionsInStore();
    stored.intent = ReadIntent();
    stored.quality = ReadQuality();
    stored.monitorWhite = WhiteInUse(ICC_RecallMonitorWhitepoint);
    stored.printerWhite = WhiteInUse(ICC_RecallPrinterWhitepoint);
    return stored;
}

StoredProfiles ReadStoredProfiles() {
    const auto read = [](const char* key) { return StoredProfile{IsFileStored(key), StoredPath(key)}; };
    return {read("Monitor Profile"), read("Printer Profile"), UsesProofer() ? read("Proofer Profile") : StoredProfile{}};
}

std::string PathOfStored(const char* place, const StoredProfile& stored, const std::string& command) {
    const std::string name = place;
    const std::string right = "add --" + name + " PROFILE, or store one with orlo settings set " + name + "-profile PROFILE";
    if (!stored.isStored) throw Complaint{command, "no " + name + " profile is given, and none is stored", right, Exit::NotThere};
    if (stored.path.empty()) throw Complaint{command, "the stored " + name + " profile cannot be found", right, Exit::NotThere};
    return stored.path;
}
