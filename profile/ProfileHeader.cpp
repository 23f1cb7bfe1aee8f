#include "profile/ProfileHeader.h"

#include <algorithm>
#include <cstddef>

#include "platform/Codes.h"
#include "platform/FourCharCode.h"
#include "platform/Owned.h"
#include "profile/ProfileReading.h"
#include "profile/Refusals.h"

static_assert(sizeof(ICCProfileHeader) == 128);
static_assert(offsetof(ICCProfileHeader, version) == 8 && offsetof(ICCProfileHeader, profileClass) == 12);
static_assert(offsetof(ICCProfileHeader, dataColourSpace) == 16 && offsetof(ICCProfileHeader, connectionSpace) == 20);
static_assert(offsetof(ICCProfileHeader, fileSignature) == 36 && offsetof(ICCProfileHeader, renderingIntent) == 64);
static_assert(offsetof(ICCProfileHeader, illuminantX) == 68 && offsetof(ICCProfileHeader, creator) == 80);

OSErr ReadProfileHeader(ColorSyncProfileRef profile, ICCProfileHeader* header) {
    *header = {};
    const Owned<CFDataRef> data(ColorSyncProfileCopyHeader(profile));
    if (!data) return kStatusNoMemory;
    const CFIndex length = std::min(CFDataGetLength(data.Get()), static_cast<CFIndex>(sizeof *header));
    CFDataGetBytes(data.Get(), CFRangeMake(0, length), reinterpret_cast<UInt8*>(header));
    return 0;
}

bool DrivesAPrinter(uint32_t colourSpace) {
    return colourSpace == kColourSpaceRGB || colourSpace == kColourSpaceCMYK;
}

uint32_t ChannelsByNumber(uint32_t colourSpace) {
    uint32_t digit = 0;
    if ((colourSpace & 0x00FFFFFF) == (FourChar("0CLR") & 0x00FFFFFF)) digit = colourSpace >> 24;
    if (colourSpace >> 8 == FourChar("MCH0") >> 8) digit = colourSpace & 0xFF;
    if (digit >= '1' && digit <= '9') return digit - '0';
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : 0;
}

ICCProfileHeader GetProfileHeader(ColorSyncProfileRef profile) {
    ICCProfileHeader header;
    ReadProfileHeader(profile, &header);
    return header;
}

void SetProfileHeader(ColorSyncMutableProfileRef profile, ICCProfileHeader header) {
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(&header), sizeof header));
    if (data) ColorSyncProfileSetHeader(profile, data.Get());
}

uint32_t GetProfileClass(ColorSyncProfileRef profile) {
    return GetProfileHeader(profile).profileClass;
}

uint32_t GetProfileColourSpace(ColorSyncProfileRef profile) {
    return GetProfileHeader(profile).dataColourSpace;
}

Boolean IsRGBOutputProfile(ColorSyncProfileRef profile) {
    const ICCProfileHeader header = GetProfileHeader(profile);
    return header.profileClass == FourChar("prtr") && header.dataColourSpace == kColourSpaceRGB;
}

Boolean IsXYZToRGBLUTModelOutputProfile(ColorSyncProfileRef profile) {
    const ICCProfileHeader header = GetProfileHeader(profile);
    return header.version >> 24 == 2 && header.profileClass == FourChar("prtr") && header.dataColourSpace == kColourSpaceRGB &&
           header.connectionSpace == FourChar("XYZ ");
}

OSErr CheckPrinter(ColorSyncProfileRef profile) {
    ICCProfileHeader header;
    const OSErr status = ReadProfileHeader(profile, &header);
    if (status != 0) return status;
    constexpr const char* kNeeded = "a printer profile (class 'prtr') for RGB or CMYK is needed";
    if (header.profileClass != FourChar("prtr")) {
        Refuse({"the profile's class is ", CodeText(header.profileClass)}, kNeeded);
    } else if (!DrivesAPrinter(header.dataColourSpace)) {
        Refuse({"the profile's colour space is ", CodeText(header.dataColourSpace)}, kNeeded);
    } else {
        return 0;
    }
    return kStatusProfileUnsuitable;
}

OSErr CheckProofer(ColorSyncProfileRef profile) {
    ICCProfileHeader header;
    const OSErr status = ReadProfileHeader(profile, &header);
    if (status != 0) return status;
    if (header.profileClass != FourChar("nmcl") && header.profileClass != FourChar("link")) return 0;
    Refuse({"the profile's class is ", CodeText(header.profileClass)}, "the profile of a device is needed");
    return kStatusProfileUnsuitable;
}
