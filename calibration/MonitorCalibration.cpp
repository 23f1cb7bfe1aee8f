#include "calibration/MonitorCalibration.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "Misc/SafeSaver.h"
#include "calibration/CalibrationResources.h"
#include "platform/BigEndian.h"
#include "platform/Codes.h"
#include "platform/DisplayFacts.h"
#include "platform/FourCharCode.h"
#include "platform/Owned.h"
#include "session/Failure.h"
#include "session/UserNotices.h"

static_assert(sizeof(CalibrationRecord) == kSettingsResourceSize);

namespace {

constexpr ResID kFirstID = 128;
constexpr ResType kSettingsType = FourChar("CALS");
constexpr ResType kDisplayType = FourChar("GDIN");
constexpr ResType kGammaType = FourChar("GAMA");
constexpr ResType kDisplayIDType = FourChar("DPID");

/// Keeps an open resource file the current one; closes it and brings the earlier one back at the end of the scope at the latest.
class CurrentResourceFile {
public:
    /// Opening makes a file current, so `before` must have been asked for earlier.
    CurrentResourceFile(ResFileRefNum file, ResFileRefNum before) : before_(before), file_(file) { UseResFile(file_); }
    CurrentResourceFile(const CurrentResourceFile&) = delete;
    CurrentResourceFile& operator=(const CurrentResourceFile&) = delete;
    ~CurrentResourceFile() { Close(); }

    /// What writing the file out answered; 0 when it was closed before.
    OSErr Close() {
        if (file_ <= 0) return 0;
        CloseResFile(file_);
        const OSErr error = ResError();
        file_ = 0;
        UseResFile(before_);
        return error;
    }

private:
    ResFileRefNum before_;
    ResFileRefNum file_;
};

/// The first bytes of a resource of the current file, zeros where it is shorter; raises -108 when it is not there.
template <size_t Size>
void ReadResource(ResType type, ResID id, UInt8 (&bytes)[Size]) {
    const Handle resource = Get1Resource(type, id);
    FailNIL(resource);
    std::memset(bytes, 0, Size);
    std::memcpy(bytes, *resource, std::min(Size, static_cast<size_t>(GetHandleSize(resource))));
    ReleaseResource(resource);
}

/// Adds a resource to the current file, which takes the handle over.
void AddHandle(Handle handle, ResType type, ResID id) {
    FailNIL(handle);
    const unsigned char noName[1] = {0};
    AddResource(handle, type, id, noName);
    const OSErr error = ResError();
    if (error != 0) DisposeHandle(handle);
    FailOSErr(error);
}

template <size_t Size>
void AddBytes(const UInt8 (&bytes)[Size], ResType type, ResID id) {
    const Handle handle = NewHandle(Size);
    FailNIL(handle);
    std::memcpy(*handle, bytes, Size);
    AddHandle(handle, type, id);
}

ResID DisplayResourceID(int16_t i) {
    return static_cast<ResID>(kFirstID + i);
}

Owned<CFStringRef> Text(const char* text) {
    return Owned<CFStringRef>(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

void TellRefused(const char* message) {
    NotifyUser(Text(message).Get(), CFSTR("Launch the 'Lumaset' application and re-calibrate the monitors."));
}

bool IsSameDevice(const MC_DisplayInfo& stored, const MC_DisplayInfo& current) {
    char message[160];
    if (current.depth != stored.depth) {
        std::snprintf(message, sizeof message, "Couldn't install the monitor calibration because the device depth has changed (expected %d).",
                      stored.depth);
        TellRefused(message);
        return false;
    }
    const int width = stored.right - stored.left;
    const int height = stored.bottom - stored.top;
    if (current.right - current.left != width || current.bottom - current.top != height) {
        std::snprintf(message, sizeof message, "Couldn't install the monitor calibration because the device bounds have changed (expected %d x %d).",
                      width, height);
        TellRefused(message);
        return false;
    }
    return true;
}

/// A file name as the file calls take it; false when it is longer than they allow.
bool GetUnicodeName(CFStringRef name, HFSUniStr255* unicode) {
    const CFIndex length = name ? CFStringGetLength(name) : 0;
    if (length < 1 || length > 255) return false;
    unicode->length = static_cast<UInt16>(length);
    for (CFIndex i = 0; i < length; ++i) unicode->unicode[i] = CFStringGetCharacterAtIndex(name, i);
    return true;
}

/// The folder and name of a file that is yet to be made.
bool GetParentAndName(CFURLRef url, FSRef* folder, HFSUniStr255* name) {
    if (!url) return false;
    const Owned<CFURLRef> parent(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, url));
    const Owned<CFStringRef> last(CFURLCopyLastPathComponent(url));
    return parent && CFURLGetFSRef(parent.Get(), folder) && GetUnicodeName(last.Get(), name);
}

/// Whether a display can take the ramp.
bool IsLoadable(const MC_OpaqueGammaTable* table) {
    if (!table) return false;
    int16_t channels = 0, entries = 0, width = 0;
    MC_GetGammaTableParams(table, &channels, &entries, &width);
    return channels == 3 && entries >= 2 && entries <= 256;
}

/// What a display had loaded, with every entry of its hardware.
class EarlierRamp {
public:
    explicit EarlierRamp(CGDirectDisplayID display) : display_(display) {
        uint32_t count = CGDisplayGammaTableCapacity(display);
        for (auto& samples : samples_) samples.resize(count);
        const CGError error = CGGetDisplayTransferByTable(display, count, samples_[0].data(), samples_[1].data(), samples_[2].data(), &count);
        for (auto& samples : samples_) samples.resize(error == 0 ? count : 0);
    }
    void Load() const {
        const auto count = static_cast<uint32_t>(samples_[0].size());
        if (count > 0) CGSetDisplayTransferByTable(display_, count, samples_[0].data(), samples_[1].data(), samples_[2].data());
    }

private:
    CGDirectDisplayID display_;
    std::vector<float> samples_[3];
};

template <typename Item>
Item* NewArray(int16_t count) {
    // NOLINTNEXTLINE(bugprone-sizeof-expression): an array of pointers is one of them
    Item* const items = static_cast<Item*>(std::calloc(static_cast<size_t>(std::max<int16_t>(count, 1)), sizeof(Item)));
    FailNIL(items);
    return items;
}

}  // namespace

MonitorCalibration::MonitorCalibration(int16_t displayCount, const CGDirectDisplayID* displayIDs, MC_OpaqueGammaTable** tables,
                                       const CalibrationRecord& calibrationSettings)
    : count(displayCount),
      displays(NewArray<CGDirectDisplayID>(displayCount)),
      displayInfo(nullptr),
      gammaTables(tables),
      settings(calibrationSettings),
      valid(true) {
    std::unique_ptr<CGDirectDisplayID, decltype(&std::free)> held(displays, &std::free);
    displayInfo = NewArray<MC_DisplayInfo>(count);
    static_cast<void>(held.release());
    for (int16_t i = 0; i < count; ++i) {
        displays[i] = displayIDs[i];
        MC_GetDisplayInfo(displays[i], &displayInfo[i]);
    }
}

MonitorCalibration::MonitorCalibration(const FSRef* file)
    : count(0), displays(nullptr), displayInfo(nullptr), gammaTables(nullptr), settings(), valid(false) {
    const ResFileRefNum before = CurResFile();
    bool sane = false;
    if (CheckResourceForkSanity(file, &sane) != 0 || !sane) return;
    const ResFileRefNum opened = FSOpenResFile(file, fsRdPerm);
    if (opened < 1) return;
    CurrentResourceFile current(opened, before);
    try {
        ReadResources();
    } catch (...) {
        Free();
        throw;
    }
    valid = true;
}

MonitorCalibration::~MonitorCalibration() {
    Free();
}

void MonitorCalibration::Free() {
    for (int16_t i = 0; gammaTables && i < count; ++i) MC_DisposeGammaTable(gammaTables[i]);
    std::free(gammaTables);
    std::free(displayInfo);
    std::free(displays);
    gammaTables = nullptr;
    displayInfo = nullptr;
    displays = nullptr;
    count = 0;
}

void MonitorCalibration::ReadResources() {
    const int16_t stored = std::max<int16_t>(Count1Resources(kDisplayType), 0);
    displays = NewArray<CGDirectDisplayID>(stored);
    displayInfo = NewArray<MC_DisplayInfo>(stored);
    gammaTables = NewArray<MC_OpaqueGammaTable*>(stored);
    count = stored;
    for (int16_t i = 0; i < count; ++i) {
        UInt8 bytes[kDisplayResourceSize];
        ReadResource(kDisplayType, DisplayResourceID(i), bytes);
        const DisplayResource display = ReadDisplayResource(bytes);
        const DepthAndSample depth = DepthFromClassic(display.depth);
        displayInfo[i] = {depth.depth, depth.bitsPerSample, display.index, display.top, display.left, display.bottom, display.right};
        displays[i] = MC_GetIndexedDisplay(display.index);
        const Handle gamma = Get1Resource(kGammaType, DisplayResourceID(i));
        FailNIL(gamma);
        gammaTables[i] = MC_HandleToGammaTable(gamma);
        ReleaseResource(gamma);
    }
    if (const Handle ids = Get1Resource(kDisplayIDType, kFirstID)) {
        if (count != 0 && GetHandleSize(ids) == Size{count} * 4) {
            for (int16_t i = 0; i < count; ++i) {
                const uint32_t number = ReadBigEndian32(reinterpret_cast<const UInt8*>(*ids) + size_t{4} * static_cast<size_t>(i));
                displays[i] = platform::DisplayOfStoredNumber(number, displays[i]);
            }
        }
        ReleaseResource(ids);
    }
    UInt8 bytes[kSettingsResourceSize];
    ReadResource(kSettingsType, kFirstID, bytes);
    SwapSettings(bytes);
    std::memcpy(&settings, bytes, sizeof settings);
}

void MonitorCalibration::AddResources() const {
    UInt8 record[kSettingsResourceSize];
    std::memcpy(record, &settings, sizeof record);
    SwapSettings(record);
    AddBytes(record, kSettingsType, kFirstID);
    for (int16_t i = 0; i < count; ++i) {
        const MC_DisplayInfo& info = displayInfo[i];
        UInt8 display[kDisplayResourceSize];
        WriteDisplayResource({ClassicDepth(info.depth), info.top, info.left, info.bottom, info.right, static_cast<int16_t>(info.index)}, display);
        AddBytes(display, kDisplayType, DisplayResourceID(i));
        FailNIL(gammaTables[i]);
        AddHandle(MC_GammaTableToHandle(gammaTables[i]), kGammaType, DisplayResourceID(i));
    }
    const Handle ids = NewHandle(Size{std::max<int16_t>(count, 0)} * 4);
    FailNIL(ids);
    for (int16_t i = 0; i < count; ++i) WriteBigEndian32(displays[i], reinterpret_cast<UInt8*>(*ids) + size_t{4} * static_cast<size_t>(i));
    AddHandle(ids, kDisplayIDType, kFirstID);
}

void MonitorCalibration::Save(const FSRef* folder, CFStringRef name) {
    const Owned<CFURLRef> folderURL(CFURLCreateFromFSRef(kCFAllocatorDefault, folder));
    const Owned<CFURLRef> target(folderURL && name ? CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, folderURL.Get(), name, false)
                                                   : nullptr);
    SafeSaver saver(target.Get());
    if (!saver.PrepareToSave(nullptr)) FailOSErr(kStatusInputOutput);

    FSRef parent;
    HFSUniStr255 fileName = {};
    if (!GetParentAndName(saver.SafeSaveURL(), &parent, &fileName)) FailOSErr(kStatusFileNotFound);
    HFSUniStr255 forkName;
    FailOSErr(FSGetResourceForkName(&forkName));
    const ResFileRefNum before = CurResFile();
    FSRef file;
    FailOSErr(FSCreateResourceFile(&parent, fileName.length, fileName.unicode, 0, nullptr, forkName.length, forkName.unicode, &file, nullptr));
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdWrPerm);
    if (opened < 1) Failure(ResError(), 0);

    CurrentResourceFile current(opened, before);
    AddResources();
    FailOSErr(current.Close());
    if (!saver.CompleteSave(nullptr)) FailOSErr(kStatusInputOutput);
}

CalibrationRecord& MonitorCalibration::GetCalibrationSettings() {
    return settings;
}

int16_t MonitorCalibration::NumGammaTables() const {
    return count;
}

MC_OpaqueGammaTable* MonitorCalibration::GammaTable(int16_t i) const {
    return gammaTables[i];
}

CGDirectDisplayID MonitorCalibration::DisplayRef(int16_t i) const {
    return displays[i];
}

int32_t MonitorCalibration::DisplayIndex(int16_t i) const {
    return MC_GetDisplayIndex(displays[i]);
}

const MC_DisplayInfo& MonitorCalibration::StoredInfo(int16_t i) const {
    return displayInfo[i];
}

bool MonitorCalibration::VerifySameDevices() const {
    for (int16_t i = 0; i < count; ++i) {
        if (DisplayIndex(i) <= 0) continue;
        MC_DisplayInfo current;
        MC_GetDisplayInfo(displays[i], &current);
        if (!IsSameDevice(displayInfo[i], current)) return false;
    }
    return true;
}

void MonitorCalibration::Install() {
    if (!valid || !VerifySameDevices()) {
        valid = false;
        return;
    }
    LoadAll();
}

void MonitorCalibration::LoadAll() const {
    std::vector<int16_t> present;
    for (int16_t i = 0; i < count; ++i) {
        if (DisplayIndex(i) <= 0) continue;
        if (!IsLoadable(gammaTables[i])) FailOSErr(kStatusParameter);
        present.push_back(i);
    }
    std::vector<EarlierRamp> earlier;
    for (const int16_t i : present) {
        earlier.emplace_back(displays[i]);
        const OSErr error = MC_SetDisplayGammaTable(displays[i], gammaTables[i]);
        if (error == 0) continue;
        earlier.pop_back();
        for (const EarlierRamp& ramp : earlier) ramp.Load();
        FailOSErr(error);
    }
}

void MonitorCalibration::InstallGamma(CGDirectDisplayID display, const MC_OpaqueGammaTable* table) {
    FailOSErr(table ? MC_SetDisplayGammaTable(display, table) : kStatusParameter);
}

void InstallMonitorCalibration(void) {
    try {
        CGDisplayRestoreColorSyncSettings();
        FSRef folder;
        if (FSFindFolder(kUserDomain, kPreferencesFolderType, false, &folder) != 0) return;
        HFSUniStr255 name;
        FSRef file;
        if (!GetUnicodeName(CFSTR("Orlo Monitor Calibration"), &name)) return;
        if (FSMakeFSRefUnicode(&folder, name.length, name.unicode, 0, &file) != 0) return;
        MonitorCalibration(&file).Install();
    } catch (...) {
        // The displays keep their system ramps.
    }
}
