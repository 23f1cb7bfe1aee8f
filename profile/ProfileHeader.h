#pragma once

/// The 128-byte ICC header, every multi-byte field in host byte order. Any thread.

#include "platform/ColorSync.h"

CM_C_BEGIN

/// The ICC profile header, fields at their ICC byte offsets.
typedef struct ICCProfileHeader {
    uint32_t size;                 // 0
    uint32_t cmmType;              // 4
    uint32_t version;              // 8: the major version is the most significant byte
    uint32_t profileClass;         // 12
    uint32_t dataColourSpace;      // 16
    uint32_t connectionSpace;      // 20
    uint16_t dateTime[6];          // 24
    uint32_t fileSignature;        // 36
    uint32_t platform;             // 40
    uint32_t flags;                // 44
    uint32_t deviceManufacturer;   // 48
    uint32_t deviceModel;          // 52
    uint32_t deviceAttributes[2];  // 56
    uint32_t renderingIntent;      // 64
    int32_t illuminantX;           // 68: s15.16
    int32_t illuminantY;           // 72
    int32_t illuminantZ;           // 76
    uint32_t creator;              // 80
    uint8_t rest[44];              // 84
} ICCProfileHeader;

/// 128 zero bytes when the profile has no header.
CM_EXPORT ICCProfileHeader GetProfileHeader(ColorSyncProfileRef profile);
CM_EXPORT void SetProfileHeader(ColorSyncMutableProfileRef profile, ICCProfileHeader header);
/// Four-character codes; 0 without a header.
CM_EXPORT uint32_t GetProfileClass(ColorSyncProfileRef profile);
CM_EXPORT uint32_t GetProfileColourSpace(ColorSyncProfileRef profile);
/// Class 'prtr' and colour space 'RGB '.
CM_EXPORT Boolean IsRGBOutputProfile(ColorSyncProfileRef profile);
/// Major version 2, class 'prtr', colour space 'RGB ', connection space 'XYZ '.
CM_EXPORT Boolean IsXYZToRGBLUTModelOutputProfile(ColorSyncProfileRef profile);

CM_C_END
