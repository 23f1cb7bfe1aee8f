#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "colour/MatrixArithmetic.h"
#include "colour/MatrixInversion.h"
#include "engine/ChosenDevices.h"
#include "engine/MatchingData.h"
#include "engine/MonitorTables.h"
#include "engine/ShaperBuilding.h"
#include "platform/Codes.h"
#include "platform/FourCharCode.h"
#include "platform/Owned.h"
#include "profile/CurveSampling.h"
#include "profile/ProfileHeader.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileModel.h"
#include "profile/ProfileReading.h"
#include "profile/Refusals.h"
#include "profile/TagRegistry.h"

namespace {

struct RecordDisposer {
    void operator()(MatchingData* data) const { DisposeMatchingData(data); }
};
using OwnedRecord = std::unique_ptr<MatchingData, RecordDisposer>;

/// The profiles of one build. The proofer is null when there is none.
struct Profiles {
    Owned<ColorSyncProfileRef> reference, monitor, printer, proofer;
    Owned<ColorSyncMutableProfileRef> printerCopy;
};

/// A file that was read but is no profile opens as null with status 0: here that is an unsuitable profile.
OSErr OpeningStatus(const Owned<ColorSyncProfileRef>& profile, OSErr status) {
    return profile || status != 0 ? status : kStatusProfileUnsuitable;
}

void NameRefused(const DeviceProfile& device) noexcept {
    if (device.alias) return NameRefusedFile(device.alias);
    NameRefusedFile(device.name);
}

/// A status that came from a device's profile.
OSErr OfDevice(const DeviceProfile& device, OSErr status) {
    if (status == 0) return 0;
    RefuseForStatus(status);
    NameRefused(device);
    return status;
}

OSErr Open(const DeviceProfile& device, Owned<ColorSyncProfileRef>* profile) {
    if (device.opened) {
        *profile = Owned<ColorSyncProfileRef>::Retain(device.opened);
        return 0;
    }
    OSErr status = 0;
    profile->Reset(CreateProfileFromAlias(device.alias, &status));
    return OpeningStatus(*profile, status);
}

OSErr CheckPrinterSpace(ColorSyncProfileRef printer) {
    ICCProfileHeader header;
    const OSErr status = ReadProfileHeader(printer, &header);
    if (status != 0) return status;
    if (DrivesAPrinter(header.dataColourSpace)) return 0;
    Refuse({"the profile's colour space is ", CodeText(header.dataColourSpace)}, "a printer profile for RGB or CMYK is needed");
    return kStatusProfileUnsuitable;
}

/// A grid is asked at twice as many places for each channel more: with 15 a table of the proof takes half a minute.
OSErr CheckProoferSpace(ColorSyncProfileRef proofer) {
    constexpr uint32_t kMostChannels = 10;
    ICCProfileHeader header;
    const OSErr status = ReadProfileHeader(proofer, &header);
    if (status != 0) return status;
    const uint32_t channels = ChannelsByNumber(header.dataColourSpace);
    if (channels <= kMostChannels) return 0;
    Refuse({"the device has ", std::to_string(channels), " channels"}, "a proofer of 10 at most is needed");
    return kStatusProfileUnsuitable;
}

OSErr OpenProfiles(const ChosenDevices& devices, Profiles* profiles) {
    OSErr status = 0;
    profiles->reference.Reset(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &status));
    status = OpeningStatus(profiles->reference, status);
    if (status == 0) status = Open(devices.monitor, &profiles->monitor);
    if (status == 0 && !devices.printer) {
        Refuse({"no printer is chosen"}, "the profile of a printer is needed");
        status = kStatusFileNotFound;
    }
    if (status == 0) status = Open(devices.printer, &profiles->printer);
    if (status == 0) status = OfDevice(devices.printer, CheckPrinterSpace(profiles->printer.Get()));
    if (status == 0) {
        profiles->printerCopy.Reset(ColorSyncProfileCreateMutableCopy(profiles->printer.Get()));
        if (!profiles->printerCopy) status = kStatusNoMemory;
    }
    if (status == 0 && devices.proofer) {
        status = Open(devices.proofer, &profiles->proofer);
        if (status == 0) status = OfDevice(devices.proofer, CheckProoferSpace(profiles->proofer.Get()));
    }
    return status;
}

// ---- matrices ----

OSErr InvertMatrix(const FixedMatrix& matrix, FixedMatrix* inverse) {
    if (!HasInverse(matrix)) return kStatusProfileUnsuitable;
    ICC_MatrixInverse(&matrix, inverse);
    ICC_ImproveMatrixInverse(&matrix, inverse);
    return 0;
}

OSErr ReadReferenceInverse(ColorSyncProfileRef reference, FixedMatrix* inverse) {
    FixedMatrix matrix;
    const OSErr status = GetMonitorMatrix(reference, &matrix);
    return status != 0 ? status : InvertMatrix(matrix, inverse);
}

// ---- transforms ----

struct Step {
    ColorSyncProfileRef profile;  // null: the step is left out
    CFStringRef tag;
};

OSErr CreateTransform(std::initializer_list<Step> steps, ColorSyncTransformRef* transform) {
    const Owned<CFMutableArrayRef> sequence(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    if (!sequence) return kStatusNoMemory;
    CFIndex count = 0;
    for (const Step& step : steps) {
        if (!step.profile) continue;
        const void* keys[] = {kColorSyncProfile, kColorSyncTransformTag, kColorSyncRenderingIntent, kColorSyncBlackPointCompensation};
        const void* values[] = {step.profile, step.tag, kColorSyncRenderingIntentAbsolute, kCFBooleanFalse};
        const Owned<CFDictionaryRef> entry(
            CFDictionaryCreate(kCFAllocatorDefault, keys, values, 4, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        if (!entry) return kStatusNoMemory;
        CFArrayAppendValue(sequence.Get(), entry.Get());
        // A step that found no room would be missing without a word.
        if (CFArrayGetCount(sequence.Get()) != ++count) return kStatusNoMemory;
    }
    const void* optionKey = kColorSyncConvertQuality;
    const void* optionValue = kColorSyncBestQuality;
    const Owned<CFDictionaryRef> options(
        CFDictionaryCreate(kCFAllocatorDefault, &optionKey, &optionValue, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!options) return kStatusNoMemory;
    *transform = ColorSyncTransformCreate(sequence.Get(), options.Get());
    return *transform ? 0 : kStatusParameter;
}

OSErr CreateTransforms(const Profiles& profiles, MatchingData* data) {
    const CFStringRef toPCS = kColorSyncTransformDeviceToPCS;
    const CFStringRef through = kColorSyncTransformPCSToPCS;
    const CFStringRef toDevice = kColorSyncTransformPCSToDevice;
    ColorSyncProfileRef reference = profiles.reference.Get();
    ColorSyncProfileRef printer = profiles.printerCopy.Get();
    ColorSyncProfileRef proofer = profiles.proofer.Get();

    OSErr status = CreateTransform({{printer, toPCS}, {proofer, through}, {reference, toDevice}}, &data->printerPredictTransform);
    if (status == 0) status = CreateTransform({{reference, toPCS}, {proofer, through}, {printer, toDevice}}, &data->printerMatchTransform);
    if (status == 0) {
        status = CreateTransform({{reference, toPCS}, {proofer, through}, {printer, through}, {reference, toDevice}}, &data->proofTransform);
    }
    return status;
}

constexpr const char* kDeviceNeeded = "the profile of a device with tables or a matrix both ways is needed";

bool HasAny(ColorSyncProfileRef profile, std::initializer_list<uint32_t> signatures) {
    return std::any_of(signatures.begin(), signatures.end(), [profile](uint32_t signature) {
        bool isThere = false;
        return FindTag(profile, signature, &isThere) == 0 && isThere;
    });
}

/// Whether a device is what keeps transforms from being made; if so, the refusal says what of it.
bool IsAtFault(ColorSyncProfileRef device, ColorSyncProfileRef reference) {
    ICCProfileHeader header;
    if (ReadProfileHeader(device, &header) != 0) return false;
    ColorSyncTransformRef out = nullptr, in = nullptr;
    const OSErr outStatus = CreateTransform({{device, kColorSyncTransformDeviceToPCS}, {reference, kColorSyncTransformPCSToDevice}}, &out);
    const OSErr inStatus = CreateTransform({{reference, kColorSyncTransformDeviceToPCS}, {device, kColorSyncTransformPCSToDevice}}, &in);
    const Owned<ColorSyncTransformRef> outOwner(out), inOwner(in);
    if (outStatus != kStatusParameter && inStatus != kStatusParameter) return false;

    constexpr uint32_t kDevices[] = {FourChar("scnr"), FourChar("mntr"), FourChar("prtr"), FourChar("spac")};
    const bool hasMatrix = IsMatrixModel(device) || HasAny(device, {FourChar("kTRC")});
    if (std::find(std::begin(kDevices), std::end(kDevices), header.profileClass) == std::end(kDevices)) {
        Refuse({"the profile's class is ", CodeText(header.profileClass)}, kDeviceNeeded);
    } else if (header.dataColourSpace == FourChar("Lab ") || header.dataColourSpace == FourChar("XYZ ") ||
               (header.dataColourSpace & 0x80808080) != 0) {
        Refuse({"the profile's colour space is ", CodeText(header.dataColourSpace)}, kDeviceNeeded);
    } else if (outStatus != 0 && !hasMatrix && !HasAny(device, {FourChar("A2B0"), FourChar("A2B1"), FourChar("A2B2")})) {
        Refuse({"tag 'A2B0' is missing, so that its colours cannot be told"}, kDeviceNeeded);
    } else if (inStatus != 0 && !hasMatrix && !HasAny(device, {FourChar("B2A0"), FourChar("B2A1"), FourChar("B2A2")})) {
        Refuse({"tag 'B2A0' is missing, so that no colours can be converted for it"}, kDeviceNeeded);
    } else if (outStatus != 0) {
        Refuse({hasMatrix ? "its matrix and curves cannot be used"
                          : "tag 'A2B0' cannot be used: it does not fit the profile's colour spaces or is damaged"},
               kDeviceNeeded);
    } else {
        Refuse({hasMatrix ? "its matrix and curves cannot be inverted"
                          : "tag 'B2A0' cannot be used: it does not fit the profile's colour spaces or is damaged"},
               kDeviceNeeded);
    }
    return true;
}

/// Says which device keeps the transforms from being made.
void RefuseTransforms(const ChosenDevices& devices, const Profiles& profiles) noexcept try {
    if (IsAtFault(profiles.printer.Get(), profiles.reference.Get())) return NameRefused(devices.printer);
    if (profiles.proofer && IsAtFault(profiles.proofer.Get(), profiles.reference.Get())) return NameRefused(devices.proofer);
    Refuse({"printer and proofer cannot be linked"}, "profiles that convert into each other are needed");
} catch (const std::bad_alloc&) {
}

// ---- the monitor ----

constexpr uint32_t kCurveTags[] = {FourChar("rTRC"), FourChar("gTRC"), FourChar("bTRC")};
constexpr uint32_t kColourantTags[] = {FourChar("rXYZ"), FourChar("gXYZ"), FourChar("bXYZ")};

/// Says why a monitor's colourants have no inverse.
void RefuseColourants(ColorSyncProfileRef monitor) noexcept try {
    constexpr const char* kNeeded = "three colourants that are not mixed of each other are needed";
    for (const uint32_t signature : kColourantTags) {
        Owned<CFDataRef> tag;
        CopyTag(monitor, signature, &tag);
        const CFIndex length = tag ? CFDataGetLength(tag.Get()) : 0;
        if (length < 20) return Refuse({"tag ", CodeText(signature), " has ", std::to_string(length), " bytes"}, "a colourant has 20");
        const FixedXYZ xyz = GetMediaColourant(monitor, signature);
        if (xyz.X == 0 && xyz.Y == 0 && xyz.Z == 0) return Refuse({"tag ", CodeText(signature), " is zero"}, kNeeded);
    }
    Refuse({"its colourants have no inverse"}, kNeeded);
} catch (const std::bad_alloc&) {
}

/// The curves' inverses. A curve without one is of no use here.
OSErr Invert(ICC_ShaperMatrix* shaper) {
    int swinging = -1;
    const int status = BuildReverseTables(shaper, &swinging);
    if (swinging >= 0) Refuse({"tag ", CodeText(kCurveTags[swinging]), " goes up and down too often"}, "a tone curve that rises or falls is needed");
    if (status != 0) return static_cast<OSErr>(status);
    const bool isWhole = shaper->reverse[0] && shaper->reverse[1] && shaper->reverse[2];
    return isWhole ? OSErr{0} : kStatusProfileUnsuitable;
}

OSErr BuildMonitorModel(ColorSyncProfileRef monitor, MatchingData* data) {
    ICC_ShaperMatrix& shaper = data->monitorShaper;
    OSErr status = 0;
    for (int c = 0; c < 3 && status == 0; ++c) {
        status = GetColourantLUT(monitor, kCurveTags[c], &shaper.curves[c], &shaper.counts[c]);
        // Refused when the inverse is made: before two more of its kind take their room.
        if (status == 0 && shaper.counts[c] > kMostCurveEntries) {
            Refuse({"tag ", CodeText(kCurveTags[c]), " has ", std::to_string(shaper.counts[c]), " entries"},
                   "a tone curve of 65536 at most is needed");
            status = kStatusNoMemory;
        }
    }
    if (status == 0) status = GetMonitorMatrix(monitor, &data->monitorMatrix);
    if (status != 0) return status;
    status = ReadMonitorLuminance(monitor, &data->monitorLuminance);
    if (status != 0) return status;
    ICC_MatrixConcat(&data->referenceInverse, &data->monitorMatrix, &shaper.matrix);
    status = InvertMatrix(shaper.matrix, &shaper.inverseMatrix);
    if (status == kStatusProfileUnsuitable) RefuseColourants(monitor);
    return status != 0 ? status : Invert(&shaper);
}

OSErr CopyShaper(const ICC_ShaperMatrix& source, ICC_ShaperMatrix* copy) {
    const int status = CopyCurves(source, copy);
    return status != 0 ? static_cast<OSErr>(status) : Invert(copy);
}

// ---- the record ----

/// Setting a tag answers nothing: without memory another white would stand there.
OSErr GiveMediaWhite(ColorSyncMutableProfileRef profile, const FixedXYZ& white) {
    SetMediaWhitePoint(profile, white);
    FixedXYZ given;
    const OSErr status = ReadMediaWhitePoint(profile, &given);
    const bool isGiven = given.X == white.X && given.Y == white.Y && given.Z == white.Z;
    return status == 0 && !isGiven ? kStatusNoMemory : status;
}

OwnedRecord Build(const ChosenDevices& devices, const FixedXYZ* monitorWhite, const FixedXYZ* printerWhite, OSErr* status) {
    Profiles profiles;
    *status = OpenProfiles(devices, &profiles);
    if (*status != 0) return nullptr;

    FixedXYZ mediaWhite = {0, 0, 0};
    ICCProfileHeader reference = {};
    *status = ReadMediaWhitePoint(profiles.printer.Get(), &mediaWhite);
    if (*status == 0) *status = ReadProfileHeader(profiles.reference.Get(), &reference);
    if (*status != 0) return nullptr;
    OwnedRecord data(static_cast<MatchingData*>(std::calloc(1, sizeof(MatchingData))));
    if (!data) {
        *status = kStatusNoMemory;
        return nullptr;
    }
    data->referenceCount = 1;
    data->printerMediaWhite = mediaWhite;
    data->printerWhite = printerWhite ? *printerWhite : mediaWhite;
    data->referenceIlluminant = {reference.illuminantX, reference.illuminantY, reference.illuminantZ};
    if (monitorWhite) {
        data->monitorWhite = *monitorWhite;
        data->useMonitorWhite = 1;
    }
    data->printerColourSpace = kColourSpaceRGB;

    *status = ReadReferenceInverse(profiles.reference.Get(), &data->referenceInverse);
    if (*status == 0 && printerWhite) *status = GiveMediaWhite(profiles.printerCopy.Get(), *printerWhite);
    ICCProfileHeader printer = {};
    if (*status == 0) *status = ReadProfileHeader(profiles.printerCopy.Get(), &printer);
    data->printerColourSpace = printer.dataColourSpace;
    if (*status == 0) {
        *status = CreateTransforms(profiles, data.get());
        if (*status == kStatusParameter) RefuseTransforms(devices, profiles);
    }
    if (*status == 0) *status = OfDevice(devices.monitor, BuildMonitorModel(profiles.monitor.Get(), data.get()));
    if (*status == 0) *status = OfDevice(devices.monitor, CopyShaper(data->monitorShaper, &data->baseShaper));
    RefuseForStatus(*status);
    return *status == 0 ? std::move(data) : nullptr;
}

}  // namespace

MatchingData* LoadMatchingData(const AliasHandle profiles[3], uint8_t useProofer, const FixedXYZ* monitorWhite, const FixedXYZ* printerWhite,
                               OSErr* status) {
    ForgetRefusal();
    return Build({{profiles[0]}, {profiles[1]}, {useProofer != 0 ? profiles[2] : nullptr}}, monitorWhite, printerWhite, status).release();
}

MatchingData* LoadMatchingData(const ChosenDevices& devices, const FixedXYZ* monitorWhite, const FixedXYZ* printerWhite, OSErr* status) {
    return Build(devices, monitorWhite, printerWhite, status).release();
}

void DisposeMatchingData(MatchingData* data) {
    if (!data) return;
    DeleteShaperMatrix(&data->monitorShaper);
    DeleteShaperMatrix(&data->baseShaper);
    for (ThreeDTable* table : {&data->match3D, &data->predict3D, &data->gamut3D, &data->proof3D}) std::free(table->table);
    DisposeTablePixel16(&data->matchTable);
    DisposeTablePixel16(&data->proofTable);
    DisposeTablePixel16(&data->predictTable);
    DisposeTableUInt8(&data->gamutTable);
    for (ColorSyncTransformRef transform : {data->printerMatchTransform, data->printerPredictTransform, data->proofTransform}) {
        const Owned<ColorSyncTransformRef> released(transform);
    }
    DisposeMonitorTables(data->monitorTables);
    std::free(data);
}
