#include "appearance/AppearanceDescriptor.h"

#include "platform/FourCharCode.h"

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

OSErr GetReal(const AERecord* record, AEKeyword key, double* value) {
    return AEGetParamPtr(record, key, typeIEEE64BitFloatingPoint, nullptr, value, sizeof *value, nullptr);
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
    *result = {-0.03, 1.0, 0.0, 0.0, false};
    OSErr error = GetReal(descriptor, kFlareKey, &result->flare);
    if (error == 0) error = GetReal(descriptor, kContrastKey, &result->contrast);
    if (error == 0) error = GetReal(descriptor, kAOffsetKey, &result->aOffset);
    if (error == 0) error = GetReal(descriptor, kBOffsetKey, &result->bOffset);
    if (error == 0) error = AEGetParamPtr(descriptor, kUsePrinterKey, typeBoolean, nullptr, &result->usePrinter, sizeof result->usePrinter, nullptr);
    return error;
}
