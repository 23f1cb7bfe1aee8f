#pragma once

/// Profiles, their tags, and transforms between them.
///
/// On Linux profiles are kept as their own bytes and transforms run on Little CMS 2, un-optimised: every conversion is evaluated
/// through the profiles' own curves, matrices and tables, so that linear-light input keeps its shadows.

#include "platform/CoreFoundation.h"

#if defined(__APPLE__)

#include <ApplicationServices/ApplicationServices.h>

#elif defined(__linux__)

#include <stdbool.h>

CM_C_BEGIN

typedef const struct ColorSyncProfile* ColorSyncProfileRef;
typedef struct ColorSyncProfile* ColorSyncMutableProfileRef;
typedef struct ColorSyncTransform* ColorSyncTransformRef;

// ---- profiles ----

CM_EXPORT CFTypeID ColorSyncProfileGetTypeID(void);
/// Null when the bytes are not a whole ICC profile (sizes and tag offsets are checked; 100 tags at most), with an error object, which the
/// caller releases, where one is asked for. Bytes past the size that the profile states do not belong to it.
CM_EXPORT ColorSyncProfileRef ColorSyncProfileCreate(CFDataRef data, CFErrorRef* error);
CM_EXPORT ColorSyncProfileRef ColorSyncProfileCreateWithURL(CFURLRef url, CFErrorRef* error);
CM_EXPORT ColorSyncMutableProfileRef ColorSyncProfileCreateMutableCopy(ColorSyncProfileRef profile);
/// The profile as a file's bytes: those it was made from, or, once changed, laid out anew without a profile ID.
CM_EXPORT CFDataRef ColorSyncProfileCopyData(ColorSyncProfileRef profile, CFErrorRef* error);
/// English where there is some. Null when the profile says nothing.
CM_EXPORT CFStringRef ColorSyncProfileCopyDescriptionString(ColorSyncProfileRef profile);
/// The 128 header bytes with every multi-byte field in host byte order.
CM_EXPORT CFDataRef ColorSyncProfileCopyHeader(ColorSyncProfileRef profile);
CM_EXPORT void ColorSyncProfileSetHeader(ColorSyncMutableProfileRef profile, CFDataRef header);
/// Tags are named by four-character strings; tag bytes are as stored (big-endian).
CM_EXPORT bool ColorSyncProfileContainsTag(ColorSyncProfileRef profile, CFStringRef signature);
CM_EXPORT CFDataRef ColorSyncProfileCopyTag(ColorSyncProfileRef profile, CFStringRef signature);
CM_EXPORT void ColorSyncProfileSetTag(ColorSyncMutableProfileRef profile, CFStringRef signature, CFDataRef data);
CM_EXPORT void ColorSyncProfileRemoveTag(ColorSyncMutableProfileRef profile, CFStringRef signature);

// ---- transforms ----

CM_EXPORT_DATA extern const CFStringRef kColorSyncProfile;
CM_EXPORT_DATA extern const CFStringRef kColorSyncRenderingIntent;
CM_EXPORT_DATA extern const CFStringRef kColorSyncRenderingIntentPerceptual;
CM_EXPORT_DATA extern const CFStringRef kColorSyncRenderingIntentRelative;
CM_EXPORT_DATA extern const CFStringRef kColorSyncRenderingIntentSaturation;
CM_EXPORT_DATA extern const CFStringRef kColorSyncRenderingIntentAbsolute;
CM_EXPORT_DATA extern const CFStringRef kColorSyncTransformTag;
CM_EXPORT_DATA extern const CFStringRef kColorSyncTransformDeviceToPCS;
CM_EXPORT_DATA extern const CFStringRef kColorSyncTransformPCSToPCS;
CM_EXPORT_DATA extern const CFStringRef kColorSyncTransformPCSToDevice;
CM_EXPORT_DATA extern const CFStringRef kColorSyncBlackPointCompensation;
CM_EXPORT_DATA extern const CFStringRef kColorSyncConvertQuality;
CM_EXPORT_DATA extern const CFStringRef kColorSyncBestQuality;

enum ColorSyncDataDepth {
    kColorSync1BitGamut = 1,
    kColorSync8BitInteger = 2,
    kColorSync16BitInteger = 3,
    kColorSync32BitFloat = 7,
};
typedef enum ColorSyncDataDepth ColorSyncDataDepth;

typedef uint32_t ColorSyncDataLayout;
typedef enum CGImageAlphaInfo {
    kCGImageAlphaNone = 0,
    kCGImageAlphaLast = 3,
    kCGImageAlphaFirst = 4,
    kCGImageAlphaNoneSkipLast = 5,
    kCGImageAlphaNoneSkipFirst = 6,
} CGImageAlphaInfo;

CM_EXPORT CFTypeID ColorSyncTransformGetTypeID(void);
/// profileSequence   dictionaries, each with kColorSyncProfile, kColorSyncTransformTag (DeviceToPCS first, PCSToDevice last, PCSToPCS
///                   between), kColorSyncRenderingIntent (absent: perceptual) and kColorSyncBlackPointCompensation (absent: false)
/// options           may be null; the quality makes no difference here, as there is only the exact one
/// returns           null when the sequence is not of that shape, or a profile is not of a device or lacks what its place asks for
///
/// The transform keeps what it needs; profiles may be released afterwards, and later changes to them do not reach it.
CM_EXPORT ColorSyncTransformRef ColorSyncTransformCreate(CFArrayRef profileSequence, CFDictionaryRef options);
/// Converts `height` rows of `width` pixels. Any thread, many at once; the result for a pixel depends on that pixel only.
///
/// Integer samples are in host byte order, 0..255 or 0..65535 = full scale, channels interleaved; an alpha or skipped sample is
/// neither read nor written. 32-bit floats are 0..1 = full scale, and may pass it on both sides; a device between the first and the last holds its
/// values within it. A kColorSync1BitGamut destination gets one bit a pixel, most significant bit first, the unused bits of a row's last byte 0:
/// 1 = the last device of the chain, asked for the colour that reaches it absolutely, shows one more than a CIE 1976 difference of 3 away.
/// returns           false, with nothing written, for a depth or layout that does not fit
CM_EXPORT bool ColorSyncTransformConvert(ColorSyncTransformRef transform, size_t width, size_t height, void* dst, ColorSyncDataDepth dstDepth,
                                         ColorSyncDataLayout dstLayout, size_t dstBytesPerRow, const void* src, ColorSyncDataDepth srcDepth,
                                         ColorSyncDataLayout srcLayout, size_t srcBytesPerRow, CFDictionaryRef options);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
