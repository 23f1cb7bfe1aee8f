#pragma once

/// What ProfileHeader.h and ProfileModel.h read, with the status that tells an absent part from one that was not read for lack of memory: 0, or -108
/// with the result zeros. C++ only, used inside the library. Any thread.

#include "colour/FixedPoint.h"
#include "platform/Carbon.h"
#include "platform/ColorSync.h"
#include "profile/ProfileHeader.h"

/// 0, or -50 with a refusal for a profile that is longer than any may be.
OSErr CheckProfileSize(SInt64 size);
/// A profile of bytes in memory, which the caller releases; null with 0 when they are none, and the refusal says why.
ColorSyncProfileRef CreateProfileFromBytes(CFDataRef bytes, OSErr* error);
/// Every profile has a header: none is -108.
OSErr ReadProfileHeader(ColorSyncProfileRef profile, ICCProfileHeader* header);
OSErr ReadMediaColourant(ColorSyncProfileRef profile, uint32_t signature, FixedXYZ* xyz);
OSErr ReadMediaWhitePoint(ColorSyncProfileRef profile, FixedXYZ* xyz);
OSErr ReadMonitorLuminance(ColorSyncProfileRef profile, int32_t* luminance);
/// Also -170, for a profile that is no matrix model.
OSErr CheckMatrixModel(ColorSyncProfileRef profile);

/// What a printer and a proofer must be to be chosen: 0, -108, or -170 with a refusal that says what is wrong.
OSErr CheckPrinter(ColorSyncProfileRef profile);
OSErr CheckProofer(ColorSyncProfileRef profile);

/// Whether a printer of that colour space can be used: RGB or CMYK, as a pixel has room for four values.
bool DrivesAPrinter(uint32_t colourSpace);
/// The channels of a colour space that is called by their number, '2CLR' to 'FCLR' and 'MCH2' to 'MCHF'; 0 for every other.
uint32_t ChannelsByNumber(uint32_t colourSpace);
