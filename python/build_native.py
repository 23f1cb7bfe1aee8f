"""Writes the C source of the module _native: what the package calls of the library and of native/, as cffi binds it.

    build_native.py OUTPUT

The compiler checks the declarations against the headers.
"""

import sys

import cffi

DECLARATIONS = """
typedef unsigned char Boolean;
typedef int16_t OSErr;
typedef uint32_t OSType;
typedef long CFIndex;
typedef struct { ...; } AliasRecord;
typedef AliasRecord** AliasHandle;
typedef char** Handle;

static const int kStatusDone, kStatusNoMatchingData, kStatusParameter, kStatusNoMemory, kStatusProfileUnsuitable, kStatusFileNotFound, kStatusFailed;
static const int kMatchingQuality0, kMatchingQuality1, kMatchingQuality2;
static const int kRenderingIntent0, kRenderingIntent1, kRenderingIntent2, kRenderingIntent3;
static const int kColourSpaceRGB, kColourSpaceCMYK, kColourSpaceNone;

/* Objects */
typedef ... *CFStringRef;
typedef ... *CFDataRef;
typedef ... *CFURLRef;
typedef ... *CFDictionaryRef;
typedef ... *ColorSyncProfileRef;
typedef ... *ColorSyncTransformRef;
typedef ... *CFAllocatorRef;
static const int kCFStringEncodingUTF8;
void CFRelease(const void*);
CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char*, uint32_t);
CFIndex CFStringGetLength(CFStringRef);
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex, uint32_t);
Boolean CFStringGetCString(CFStringRef, char*, CFIndex, uint32_t);
const uint8_t* CFDataGetBytePtr(CFDataRef);
CFIndex CFDataGetLength(CFDataRef);
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const uint8_t*, CFIndex, Boolean);
typedef struct { ...; } FSRef;
Boolean CFURLGetFSRef(CFURLRef, FSRef*);
OSErr FSNewAlias(const FSRef*, const FSRef*, AliasHandle*);
void DisposeHandle(Handle);

/* Records */
typedef struct FixedXYZ { int32_t X, Y, Z; } FixedXYZ;
typedef struct ViewingConditions { double flare, contrast, aOffset, bOffset; Boolean usePrinter; } ViewingConditions;
typedef struct ProfileSource { const char* path; const void* bytes; size_t length; } ProfileSource;
typedef struct MatchingChoice {
    ProfileSource monitor, printer, proofer;
    const FixedXYZ *monitorWhite, *printerWhite;
    const ViewingConditions* conditions;
    uint32_t renderingIntent, quality;
} MatchingChoice;
typedef struct MatchingData MatchingData;
MatchingData* CreateMatchingData(const MatchingChoice*, OSErr*);
void DisposeMatchingData(MatchingData*);
uint32_t RecordPrinterColourSpace(const MatchingData*);
CFStringRef ICC_CopyLastRefusal(void);

/* Arrays */
enum PixelOperation { kRunMatch, kRunPredict, kRunGamut, kRunProof, kRunPrinterMatch, kRunPrinterPredict, kRunPrinterGamut, ... };
int16_t RunPixels(enum PixelOperation, int, const MatchingData*, const void*, size_t, void*, size_t, size_t);
Boolean RunToReference(ColorSyncTransformRef, int, const void*, size_t, size_t, uint16_t*, size_t, size_t);
int16_t RunPicture(ColorSyncTransformRef, int, const void*, size_t, size_t, enum PixelOperation, const MatchingData*, int, void*, size_t, size_t);
enum ColourConversion { kRunXYZToLab, kRunLabToXYZ, kRunXYZToYxy, kRunYxyToXYZ, ... };
enum ColourDifference { kRunCIE76, kRunCIE94, kRunCMC, kRunCIEDE2000, ... };
void RunConversion(enum ColourConversion, const float*, const float*, float*, size_t);
void RunDifference(enum ColourDifference, const float*, const float*, size_t, float, float, float*, size_t);

/* Profiles */
CFDataRef CopyProfileOfFile(const char*, OSErr*);
ColorSyncProfileRef CreateProfileOfBytes(const void*, size_t);
CFDataRef CopyWithFineCurves(ColorSyncProfileRef);
ColorSyncTransformRef CreateTransformToReference(ColorSyncProfileRef);
int CountImageChannels(ColorSyncProfileRef);
CFDataRef CopyInstalledProfiles(void);
CFStringRef ColorSyncProfileCopyDescriptionString(ColorSyncProfileRef);
CFStringRef LocateResourceProfilePath(CFStringRef);
CFStringRef LocateProfilePath(AliasHandle);
typedef struct ICCProfileHeader { uint32_t version, profileClass, dataColourSpace, connectionSpace; ...; } ICCProfileHeader;
ICCProfileHeader GetProfileHeader(ColorSyncProfileRef);
Boolean IsMatrixModel(ColorSyncProfileRef);
FixedXYZ GetMediaWhitePoint(ColorSyncProfileRef);
int32_t GetMonitorLuminance(ColorSyncProfileRef);

/* Settings */
typedef struct ICCProfileLocation { AliasHandle monitor, printer, proofer; } ICCProfileLocation;
int16_t CMSControlInit(void);
int32_t CMSGetVersion(void);
int16_t CMSGetQuality(int32_t*);
int16_t CMSGetIllObs(char*, char*);
int16_t CMSGetViewingConditions(ViewingConditions*);
int16_t CMSCopyFixWhite(CFStringRef*, Boolean*, CFStringRef*, Boolean*);
int16_t CMSGetUseProofingProfile(Boolean*);
OSType ICC_GetRenderingIntent(void);
OSErr ICC_SetRenderingIntent(OSType);
OSErr ICC_RememberRenderingIntent(void);
OSErr ICC_SetViewingConditions(OSType, const ViewingConditions*);
OSErr ICC_RecallViewingConditions(void);
OSErr ICC_RememberViewingConditions(void);
OSErr ICC_SetMatchingQuality(OSType);
OSErr ICC_RecallMatchingQuality(void);
OSErr ICC_RememberMatchingQuality(void);
OSErr ICC_RememberMonitorWhitepoint(CFStringRef, Boolean);
OSErr ICC_RememberPrinterWhitepoint(CFStringRef, Boolean);
OSErr ICC_RememberUseProofingProfile(Boolean);
OSErr ICC_ValidateMonitorAlias(AliasHandle);
OSErr ICC_ValidatePrinterAlias(AliasHandle);
OSErr ICC_ValidateProoferAlias(AliasHandle);
OSType GetOSTypePreference(CFStringRef, OSType);
void SetStringPreference(CFStringRef, CFStringRef);
void SynchronisePreferences(Boolean);
AliasHandle GetFileLocationPreference(CFStringRef);
void RecallICCProfileLocation(void);
void GetICCProfileLocation(ICCProfileLocation*);
OSErr SetICCProfileLocation(const ICCProfileLocation*);
Boolean ExtractPCSXYZ(CFStringRef, FixedXYZ*);
Boolean SynchroniseStore(void);

/* The session */
typedef ... *MatchingListenerRef;
OSErr AddMatchingListener(long (*)(OSType, void*), void*, MatchingListenerRef*);
void RemoveMatchingListener(MatchingListenerRef);
int RunMainLoop(double);
extern "Python" long matching_changed(OSType, void*);
"""

SOURCE = """
#include "ColourMatch/ColourMatch.h"
#include "python/native/ColourRuns.h"
#include "python/native/MainLoop.h"
#include "python/native/PixelRuns.h"
#include "python/native/Profiles.h"
"""


def main() -> None:
    builder = cffi.FFI()
    builder.cdef(DECLARATIONS)
    builder.set_source("colourmatch._native", SOURCE)
    builder.emit_c_code(sys.argv[1])


main()
