#include "session/MatchingRecord.h"

#include <cstring>
#include <memory>

#include "engine/ChosenDevices.h"
#include "engine/DirectMonitor.h"
#include "engine/DirectPrinter.h"
#include "platform/Codes.h"
#include "platform/Owned.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileReading.h"
#include "profile/Refusals.h"
#include "session/EntryPoint.h"

namespace {

constexpr uint32_t kNoRecord = 1;

struct RecordDisposer {
    void operator()(MatchingData* data) const { DisposeMatchingData(data); }
};
using OwnedRecord = std::unique_ptr<MatchingData, RecordDisposer>;

/// A profile of the choice, open and checked.
struct OpenedProfile {
    Owned<ColorSyncProfileRef> profile;
    const char* name = "";

    DeviceProfile Device() const { return {nullptr, profile.Get(), name}; }
};

bool IsGiven(const ProfileSource& source) {
    return source.path || source.bytes;
}

OSErr ReadSource(const ProfileSource& source, Owned<ColorSyncProfileRef>* profile) {
    OSErr status = 0;
    if (source.path) {
        const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(source.path),
                                                                          static_cast<CFIndex>(std::strlen(source.path)), false));
        FSRef file;
        if (!url || !CFURLGetFSRef(url.Get(), &file)) return kStatusFileNotFound;
        profile->Reset(CreateProfileFromFSRef(&file, &status));
    } else {
        status = CheckProfileSize(static_cast<SInt64>(source.length));
        if (status != 0) return status;
        const Owned<CFDataRef> bytes(CFDataCreate(kCFAllocatorDefault, static_cast<const UInt8*>(source.bytes), static_cast<CFIndex>(source.length)));
        if (!bytes) return kStatusNoMemory;
        profile->Reset(CreateProfileFromBytes(bytes.Get(), &status));
    }
    return *profile || status != 0 ? status : kStatusProfileUnsuitable;
}

/// Opens a profile of the choice, and checks that it suits its place. A source without a profile stays closed.
OSErr Open(const ProfileSource& source, const char* nameInMemory, OSErr (*check)(ColorSyncProfileRef), OpenedProfile* opened) {
    if (!IsGiven(source)) return 0;
    opened->name = source.path ? source.path : nameInMemory;
    OSErr status = ReadSource(source, &opened->profile);
    if (status == 0) status = check(opened->profile.Get());
    if (status == 0) return 0;
    RefuseForStatus(status);
    NameRefusedFile(opened->name);
    return status;
}

OSErr OpenReference(OpenedProfile* opened) {
    OSErr status = 0;
    opened->profile.Reset(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &status));
    return status;
}

OSErr CheckCodes(const MatchingChoice& choice) {
    if (choice.quality != 0 && choice.quality != kMatchingQuality0 && choice.quality != kMatchingQuality1 && choice.quality != kMatchingQuality2) {
        Refuse({"the quality is ", CodeText(choice.quality)}, "'Qua0', 'Qua1' or 'Qua2' is needed");
    } else if (choice.renderingIntent != 0 && (choice.renderingIntent < kRenderingIntent0 || choice.renderingIntent > kRenderingIntent3)) {
        Refuse({"the rendering intent is ", CodeText(choice.renderingIntent)}, "'Rdr0' to 'Rdr3' are needed");
    } else if (!IsGiven(choice.monitor)) {
        Refuse({"no monitor is chosen"}, "the profile of a monitor is needed");
    } else {
        return 0;
    }
    return kStatusParameter;
}

OSErr Build(const MatchingChoice& choice, OwnedRecord* record) {
    OpenedProfile monitor, printer, proofer;
    OSErr status = CheckCodes(choice);
    if (status == 0) status = Open(choice.monitor, "the monitor's profile in memory", CheckMatrixModel, &monitor);
    if (status == 0) status = Open(choice.printer, "the printer's profile in memory", CheckPrinter, &printer);
    if (status == 0) status = Open(choice.proofer, "the proofer's profile in memory", CheckProofer, &proofer);
    const bool hasPrinter = static_cast<bool>(printer.profile);
    if (status == 0 && !hasPrinter) status = OpenReference(&printer);
    if (status != 0) return status;

    record->reset(LoadMatchingData({monitor.Device(), printer.Device(), proofer.Device()}, choice.monitorWhite, choice.printerWhite, &status));
    if (!*record) return status;
    // Its transforms are those of the reference profile, and nobody may ask them.
    if (!hasPrinter) (*record)->printerColourSpace = kColourSpaceNone;
    const uint32_t intent = choice.renderingIntent != 0 ? choice.renderingIntent : kRenderingIntent0;
    if (choice.conditions) status = BendMonitor(record->get(), intent, *choice.conditions);
    if (status == 0) status = SetDirectMatchingQuality(record->get(), choice.quality != 0 ? choice.quality : kMatchingQuality2);
    RefuseForStatus(status);
    return status;
}

template <typename Source, typename Destination>
using DirectOperation = void(const MatchingData* data, const Source* source, Destination* destination, size_t count);

template <typename Source, typename Destination>
using TableOperation = void(const PixelTable* table, const Source* source, Destination* destination, size_t count);

bool HasPrinter(const MatchingData* record) {
    return record && record->printerColourSpace != kColourSpaceNone;
}

/// An operation without a table case.
template <typename Source, typename Destination>
int16_t Run(bool canRun, DirectOperation<Source, Destination> direct, const MatchingData* record, const Source* source, Destination* destination,
            size_t count) {
    if (!canRun) return kStatusNoMatchingData;
    direct(record, source, destination, count);
    return 0;
}

/// An operation that the record's precomputed tables answer while they are in force.
template <typename Source, typename Destination>
int16_t Run(bool canRun, DirectOperation<Source, Destination> direct, TableOperation<Source, Destination> map, PixelTable MatchingData::*table,
            const MatchingData* record, const Source* source, Destination* destination, size_t count) {
    if (!canRun) return kStatusNoMatchingData;
    if (record->tablesBuilt) {
        map(&(record->*table), source, destination, count);
    } else {
        direct(record, source, destination, count);
    }
    return 0;
}

}  // namespace

MatchingData* CreateMatchingData(const MatchingChoice* choice, OSErr* status) {
    OwnedRecord record;
    ForgetRefusal();
    const auto build = [&] {
        if (choice) return Build(*choice, &record);
        Refuse({"nothing is chosen"}, "a choice of profiles is needed");
        return kStatusParameter;
    };
    const OSErr result = Guarded(build, kStatusNoMemory);
    if (status) *status = result;
    return result == 0 ? record.release() : nullptr;
}

int16_t RecordMonitorMatch(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(record != nullptr, DirectMonitorMatch, MapPixel16ToPixel8, &MatchingData::matchTable, record, source, destination, count);
}

int16_t RecordMonitorMatch16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(record != nullptr, DirectMonitorMatch16, MapPixel16ToDevice16, &MatchingData::matchTable, record, source, destination, count);
}

int16_t RecordMonitorPredict(const MatchingData* record, const uint8_t* source, uint16_t* destination, size_t count) {
    return Run(record != nullptr, DirectMonitorPredict, MapDevice8ToPixel16, &MatchingData::predictTable, record, source, destination, count);
}

int16_t RecordMonitorPredict16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(record != nullptr, DirectMonitorPredict16, MapDevice16ToPixel16, &MatchingData::predictTable, record, source, destination, count);
}

int16_t RecordMonitorGamut(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(record != nullptr, DirectMonitorGamut, MapPixel16ToUInt8, &MatchingData::gamutTable, record, source, destination, count);
}

int16_t RecordPrinterMatch(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(HasPrinter(record), DirectPrinterMatch, record, source, destination, count);
}

int16_t RecordPrinterMatch16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(HasPrinter(record), DirectPrinterMatch16, record, source, destination, count);
}

int16_t RecordPrinterPredict(const MatchingData* record, const uint8_t* source, uint16_t* destination, size_t count) {
    return Run(HasPrinter(record), DirectPrinterPredict, record, source, destination, count);
}

int16_t RecordPrinterPredict16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(HasPrinter(record), DirectPrinterPredict16, record, source, destination, count);
}

int16_t RecordPrinterGamut(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(HasPrinter(record), DirectPrinterGamut, record, source, destination, count);
}

int16_t RecordSoftProofMatch(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count) {
    return Run(HasPrinter(record), DirectProofMatch, MapPixel16ToPixel8, &MatchingData::proofTable, record, source, destination, count);
}

int16_t RecordSoftProofMatch16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count) {
    return Run(HasPrinter(record), DirectProofMatch16, MapPixel16ToDevice16, &MatchingData::proofTable, record, source, destination, count);
}

uint32_t RecordPrinterColourSpace(const MatchingData* record) {
    return record ? DirectPrinterColourSpace(record) : kNoRecord;
}
