#include "profile/ProfileModel.h"

#include "platform/BigEndian.h"
#include "platform/Codes.h"
#include "platform/FourCharCode.h"
#include "profile/ProfileReading.h"
#include "profile/Refusals.h"
#include "profile/TagRegistry.h"

namespace {

constexpr CFIndex kXYZTagSize = 20;

/// s15.16 to the scale on which device values of 65535 give 32768 for 1.0.
int32_t MatrixElement(int32_t fixed) {
    return static_cast<int32_t>(int64_t{fixed} * 32768 / 65535);
}

}  // namespace

OSErr ReadMediaColourant(ColorSyncProfileRef profile, uint32_t signature, FixedXYZ* xyz) {
    *xyz = {0, 0, 0};
    Owned<CFDataRef> tag;
    const OSErr status = CopyTag(profile, signature, &tag);
    if (!tag || CFDataGetLength(tag.Get()) < kXYZTagSize) return status;
    const UInt8* bytes = CFDataGetBytePtr(tag.Get());
    *xyz = {static_cast<int32_t>(ReadBigEndian32(bytes + 8)), static_cast<int32_t>(ReadBigEndian32(bytes + 12)),
            static_cast<int32_t>(ReadBigEndian32(bytes + 16))};
    return 0;
}

OSErr ReadMediaWhitePoint(ColorSyncProfileRef profile, FixedXYZ* xyz) {
    bool hasWhite = false;
    OSErr status = FindTag(profile, FourChar("wtpt"), &hasWhite);
    if (hasWhite) return ReadMediaColourant(profile, FourChar("wtpt"), xyz);
    ICCProfileHeader header = {};
    if (status == 0) status = ReadProfileHeader(profile, &header);
    *xyz = {header.illuminantX, header.illuminantY, header.illuminantZ};
    return status;
}

OSErr ReadMonitorLuminance(ColorSyncProfileRef profile, int32_t* luminance) {
    bool hasLuminance = false;
    OSErr status = FindTag(profile, FourChar("lumi"), &hasLuminance);
    FixedXYZ xyz = {0, 0, 0};
    if (hasLuminance) status = ReadMediaColourant(profile, FourChar("lumi"), &xyz);
    *luminance = xyz.Y;
    return status;
}

OSErr CheckMatrixModel(ColorSyncProfileRef profile) {
    for (const uint32_t signature : {FourChar("rXYZ"), FourChar("rTRC"), FourChar("gXYZ"), FourChar("gTRC"), FourChar("bXYZ"), FourChar("bTRC")}) {
        bool isThere = false;
        const OSErr status = FindTag(profile, signature, &isThere);
        if (!isThere && status == 0)
            Refuse({"tag ", CodeText(signature), " is missing"}, "a monitor profile with three colourants and three tone curves is needed");
        if (!isThere) return status != 0 ? status : kStatusProfileUnsuitable;
    }
    return 0;
}

FixedXYZ GetMediaColourant(ColorSyncProfileRef profile, uint32_t signature) {
    FixedXYZ xyz;
    ReadMediaColourant(profile, signature, &xyz);
    return xyz;
}

FixedXYZ GetMediaWhitePoint(ColorSyncProfileRef profile) {
    FixedXYZ xyz;
    ReadMediaWhitePoint(profile, &xyz);
    return xyz;
}

FixedXYZ GetProfileIlluminant(ColorSyncProfileRef profile) {
    const ICCProfileHeader header = GetProfileHeader(profile);
    return {header.illuminantX, header.illuminantY, header.illuminantZ};
}

void SetMediaColourant(ColorSyncMutableProfileRef profile, uint32_t signature, FixedXYZ xyz) {
    UInt8 bytes[kXYZTagSize] = {};
    WriteBigEndian32(FourChar("XYZ "), bytes);
    WriteBigEndian32(static_cast<uint32_t>(xyz.X), bytes + 8);
    WriteBigEndian32(static_cast<uint32_t>(xyz.Y), bytes + 12);
    WriteBigEndian32(static_cast<uint32_t>(xyz.Z), bytes + 16);
    const Owned<CFDataRef> tag(CFDataCreate(kCFAllocatorDefault, bytes, kXYZTagSize));
    if (tag) SetTag(profile, signature, tag.Get());
}

void SetMediaWhitePoint(ColorSyncMutableProfileRef profile, FixedXYZ xyz) {
    SetMediaColourant(profile, FourChar("wtpt"), xyz);
}

Boolean IsMatrixModel(ColorSyncProfileRef profile) {
    return CheckMatrixModel(profile) == 0;
}

OSErr GetMonitorMatrix(ColorSyncProfileRef profile, FixedMatrix* matrix) {
    OSErr status = CheckMatrixModel(profile);
    FixedXYZ red, green, blue;
    if (status == 0) status = ReadMediaColourant(profile, FourChar("rXYZ"), &red);
    if (status == 0) status = ReadMediaColourant(profile, FourChar("gXYZ"), &green);
    if (status == 0) status = ReadMediaColourant(profile, FourChar("bXYZ"), &blue);
    if (status != 0) return status;
    *matrix = {{MatrixElement(red.X), MatrixElement(green.X), MatrixElement(blue.X),  //
                MatrixElement(red.Y), MatrixElement(green.Y), MatrixElement(blue.Y),  //
                MatrixElement(red.Z), MatrixElement(green.Z), MatrixElement(blue.Z)}};
    return 0;
}

int32_t GetMonitorLuminance(ColorSyncProfileRef profile) {
    int32_t luminance;
    ReadMonitorLuminance(profile, &luminance);
    return luminance;
}
