#include "appearance/AppearanceDescriptor.h"

#include "platform/FourCharCode.h"
#include "settings/SettingDefaults.h"

namespace {

/// The record's parameters in the order in which they are put and read.
constexpr AEKeyword kFlareKey = FourChar("flar");
constexpr AEKeyword kContrastKey = FourChar("cont");
constexpr AEKeyword kAOffsetKey = FourChar("aOff");
constexpr AEKeyword kBOffsetKey = FourChar("bOff");
constexpr AEKeyword kUsePrinterKey = FourChar("useP");

OSErr PutReal(AERecord* record, AEKeyword key, const double& value) {
    return AEPutParamPtr(record, key, typeIEEE64BitFloatingPoint, &value, sizeof value);
}

/// Leaves the value as it is on an error, also where the record holds too few bytes for it or too many: not every system refuses those.
template <typename Value>
OSErr Get(const AERecord* record, AEKeyword key, DescType type, Value* value) {
    Value read;
    Size size = 0;
    const OSErr error = AEGetParamPtr(record, key, type, nullptr, &read, sizeof read, &size);
    if (error != 0) return error;
    if (size != sizeof read) return errAECorruptData;
    *value = read;
    return 0;
}

OSErr GetReal(const AERecord* record, AEKeyword key, double* value) {
    return Get(record, key, typeIEEE64BitFloatingPoint, value);
}

OSErr PutAll(AERecord* record, const ViewingConditions& conditions) {
    OSErr error = PutReal(record, kFlareKey, conditions.flare);
    if (error == 0) error = PutReal(record, kContrastKey, conditions.contrast);
    if (error == 0) error = PutReal(record, kAOffsetKey, conditions.aOffset);
    if (error == 0) error = PutReal(record, kBOffsetKey, conditions.bOffset);
    if (error == 0) error = AEPutParamPtr(record, kUsePrinterKey, typeBoolean, &conditions.usePrinter, sizeof conditions.usePrinter);
    return error;
}

}  // namespace

OSErr MakeAppearanceDescriptor(const ViewingConditions* conditions, AEDesc* result) {
    *result = {typeNull, nullptr};
    OSErr error = AECreateList(nullptr, 0, true, result);
    if (error == 0) error = PutAll(result, *conditions);
    if (error != 0) {
        if (result->dataHandle) AEDisposeDesc(result);
        *result = {typeNull, nullptr};
    }
    return error;
}

OSErr UnpackAppearanceDescriptor(const AEDesc* descriptor, ViewingConditions* result) {
    *result = {kDefaultFlare, kDefaultContrast, kDefaultAOffset, kDefaultBOffset, kDefaultUsePrinter};
    OSErr error = GetReal(descriptor, kFlareKey, &result->flare);
    if (error == 0) error = GetReal(descriptor, kContrastKey, &result->contrast);
    if (error == 0) error = GetReal(descriptor, kAOffsetKey, &result->aOffset);
    if (error == 0) error = GetReal(descriptor, kBOffsetKey, &result->bOffset);
    if (error == 0) error = Get(descriptor, kUsePrinterKey, typeBoolean, &result->usePrinter);
    return error;
}
