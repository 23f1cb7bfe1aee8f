#pragma once

/// Retained objects: strings, numbers, booleans, data, arrays, dictionaries, URLs, errors and bundles; preferences, distributed notifications
/// and the main run loop.
///
/// On macOS this is the system framework. On Linux the same names stand for the objects in `platform/linux/CoreFoundation*.cpp`.
/// Create and Copy results belong to the caller, who releases them with CFRelease; Get results are borrowed. Reference
/// counts are thread-safe; a mutable object belongs to one thread at a time. Objects are never null and of the named type unless a
/// comment says so. Nothing is raised: without memory a Create or Copy call gives null, and a change does not take place.

#include "platform/Export.h"

#if defined(__APPLE__)

#include <CoreFoundation/CoreFoundation.h>

#elif defined(__linux__)

#include <stddef.h>
#include <stdint.h>

CM_C_BEGIN

#ifndef _XtIntrinsic_h  // The X toolkit's header has a type of that name too: a host that needs both includes that one first.
typedef unsigned char Boolean;
#endif
typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef UInt16 UniChar;
typedef unsigned long UniCharCount;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;
typedef SInt16 OSErr;
typedef SInt32 OSStatus;

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef long CFIndex;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFData* CFDataRef;
typedef struct __CFData* CFMutableDataRef;
typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFURL* CFURLRef;
typedef struct __CFError* CFErrorRef;
typedef struct __CFBundle* CFBundleRef;
typedef const struct __CFUUID* CFUUIDRef;

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    CFRange range = {location, length};
    return range;
}

/// The general-purpose allocator; the only one there is here (a null allocator means the same).
CM_EXPORT_DATA extern const CFAllocatorRef kCFAllocatorDefault;

// ---- every object ----

/// Retaining or releasing null stops a debug build; a release build ignores it. Constants are never freed.
CM_EXPORT CFTypeRef CFRetain(CFTypeRef object);
CM_EXPORT void CFRelease(CFTypeRef object);
CM_EXPORT CFIndex CFGetRetainCount(CFTypeRef object);
CM_EXPORT CFTypeID CFGetTypeID(CFTypeRef object);
/// Strings, numbers, data, arrays, dictionaries, URLs and errors are compared by content, other objects by identity. Numbers are equal by
/// value: the integer 3 and the real 3.0. An object and null are not equal.
CM_EXPORT Boolean CFEqual(CFTypeRef a, CFTypeRef b);
CM_EXPORT CFHashCode CFHash(CFTypeRef object);

// ---- strings (UTF-16 code units) ----

typedef UInt32 CFStringEncoding;
enum { kCFStringEncodingASCII = 0x0600, kCFStringEncodingUTF8 = 0x08000100 };
typedef CFOptionFlags CFStringCompareFlags;
enum { kCFCompareCaseInsensitive = 1 };
typedef CFIndex CFComparisonResult;
enum { kCFCompareLessThan = -1L, kCFCompareEqualTo = 0, kCFCompareGreaterThan = 1 };

/// A constant string, made once per text and never freed. Use it through CFSTR.
CM_EXPORT CFStringRef __CFStringMakeConstantString(const char* text);
#define CFSTR(text) __CFStringMakeConstantString("" text "")

CM_EXPORT CFTypeID CFStringGetTypeID(void);
/// Null when `text` is not valid in `encoding`.
CM_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);
/// A byte order mark is dropped from an external representation and kept otherwise.
CM_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);
CM_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* characters, CFIndex count);
/// Null for a range that is not within the string.
CM_EXPORT CFStringRef CFStringCreateWithSubstring(CFAllocatorRef allocator, CFStringRef string, CFRange range);
CM_EXPORT CFStringRef CFStringCreateCopy(CFAllocatorRef allocator, CFStringRef string);
CM_EXPORT CFIndex CFStringGetLength(CFStringRef string);
/// 0 outside the string.
CM_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex index);
/// Writes the text and a terminating 0; false (with an undefined buffer) when it does not fit or cannot be encoded.
CM_EXPORT Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding);
/// Without the terminating 0; -1 when it is more than a CFIndex holds.
CM_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
CM_EXPORT Boolean CFStringHasPrefix(CFStringRef string, CFStringRef prefix);
CM_EXPORT CFComparisonResult CFStringCompare(CFStringRef a, CFStringRef b, CFStringCompareFlags flags);
/// The pieces between separators; a string without a separator is one piece. Null only when the pieces cannot be made.
CM_EXPORT CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef allocator, CFStringRef string, CFStringRef separator);
/// Reads a leading decimal number after white space; 0.0 when there is none. Never follows the locale.
CM_EXPORT double CFStringGetDoubleValue(CFStringRef string);

// ---- numbers and booleans ----

typedef CFIndex CFNumberType;
enum { kCFNumberSInt32Type = 3, kCFNumberSInt64Type = 4, kCFNumberFloat64Type = 6 };

CM_EXPORT CFTypeID CFNumberGetTypeID(void);
CM_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);
/// Converts to the asked type; false when the conversion is not exact. A value is still written: a real is cut toward zero, what is out of
/// range becomes the nearest end of it, NaN becomes 0.
CM_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);
CM_EXPORT Boolean CFNumberIsFloatType(CFNumberRef number);

CM_EXPORT_DATA extern const CFBooleanRef kCFBooleanTrue;
CM_EXPORT_DATA extern const CFBooleanRef kCFBooleanFalse;
CM_EXPORT CFTypeID CFBooleanGetTypeID(void);
/// True exactly for kCFBooleanTrue, whatever the argument's type.
CM_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean);

// ---- data ----

CM_EXPORT CFTypeID CFDataGetTypeID(void);
CM_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
/// `capacity` 0 means unlimited; otherwise the length may not pass it, and the memory is had at once (null when there is not so much).
CM_EXPORT CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);
CM_EXPORT CFIndex CFDataGetLength(CFDataRef data);
CM_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef data);
CM_EXPORT UInt8* CFDataGetMutableBytePtr(CFMutableDataRef data);
/// New bytes are 0. The length stays as it was when it cannot be had; pointers to the bytes are no longer good when it changed.
CM_EXPORT void CFDataSetLength(CFMutableDataRef data, CFIndex length);
/// Copies nothing when the range is not within the data.
CM_EXPORT void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer);

// ---- arrays ----

/// Null callbacks: the elements are plain pointers or integers, compared as such and not retained. Objects are never null.
typedef struct {
    CFIndex version;
    Boolean retains;
} CFArrayCallBacks;
CM_EXPORT_DATA extern const CFArrayCallBacks kCFTypeArrayCallBacks;

CM_EXPORT CFTypeID CFArrayGetTypeID(void);
CM_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count, const CFArrayCallBacks* callBacks);
CM_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity, const CFArrayCallBacks* callBacks);
CM_EXPORT CFIndex CFArrayGetCount(CFArrayRef array);
/// Null outside the array.
CM_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
CM_EXPORT void CFArrayAppendValue(CFMutableArrayRef array, const void* value);

// ---- dictionaries ----

/// Null callbacks: the key or value is a plain pointer or integer, compared as such and not retained. Objects are never null.
typedef struct {
    CFIndex version;
    Boolean retains;
    Boolean copiesStrings;
} CFDictionaryKeyCallBacks;
typedef struct {
    CFIndex version;
    Boolean retains;
} CFDictionaryValueCallBacks;
CM_EXPORT_DATA extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
CM_EXPORT_DATA extern const CFDictionaryKeyCallBacks kCFCopyStringDictionaryKeyCallBacks;
CM_EXPORT_DATA extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

CM_EXPORT CFTypeID CFDictionaryGetTypeID(void);
/// The first of several equal keys counts.
CM_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values, CFIndex count,
                                             const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks);
CM_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keyCallBacks,
                                                           const CFDictionaryValueCallBacks* valueCallBacks);
CM_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
CM_EXPORT Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key);
CM_EXPORT const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);
CM_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key, const void** value);
/// In no particular order, which is the same for both. Either may be null.
CM_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values);
CM_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
CM_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key);

// ---- URLs (always absolute; directory URLs end with a slash) ----

typedef CFIndex CFURLPathStyle;
enum { kCFURLPOSIXPathStyle = 0 };

CM_EXPORT CFTypeID CFURLGetTypeID(void);
/// A relative path starts from the base, or from the current directory. Null for an empty path, one with a zero character, and a base
/// that is no file URL.
CM_EXPORT CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style, Boolean isDirectory);
CM_EXPORT CFURLRef CFURLCreateWithFileSystemPathRelativeToBase(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style, Boolean isDirectory,
                                                               CFURLRef base);
/// Any bytes, in no particular encoding, but 0.
CM_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* path, CFIndex length, Boolean isDirectory);
/// Null for text that holds what must be percent-encoded in a URL. Without a scheme it is resolved against the base.
CM_EXPORT CFURLRef CFURLCreateWithString(CFAllocatorRef allocator, CFStringRef text, CFURLRef base);
CM_EXPORT CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef allocator, CFURLRef url, CFStringRef component, Boolean isDirectory);
/// The folder that holds it; "/" is its own. Null for a URL that is no file URL.
CM_EXPORT CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef allocator, CFURLRef url);
CM_EXPORT CFStringRef CFURLGetString(CFURLRef url);
/// Without a trailing slash but for "/". Null for a URL that is no file URL, and for a path that is not UTF-8.
CM_EXPORT CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style);
/// Null when it is not UTF-8.
CM_EXPORT CFStringRef CFURLCopyLastPathComponent(CFURLRef url);
/// Writes the native path and a terminating 0; false for a URL that is no file URL, or when it does not fit.
CM_EXPORT Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer, CFIndex bufferSize);

// ---- properties of files, bookmarks ----

typedef CFOptionFlags CFURLBookmarkResolutionOptions;
enum { kCFURLBookmarkResolutionWithoutUIMask = 1 << 8 };

/// A number: the length of a plain file. Other objects have none.
CM_EXPORT_DATA extern const CFStringRef kCFURLFileSizeKey;
/// A string: the name as shown to users.
CM_EXPORT_DATA extern const CFStringRef kCFURLLocalizedNameKey;
/// A boolean: whether it is an alias file, which is a symbolic link here.
CM_EXPORT_DATA extern const CFStringRef kCFURLIsAliasFileKey;
/// Equal for two URLs exactly when they name the same existing object; good as long as the object exists.
CM_EXPORT_DATA extern const CFStringRef kCFURLFileResourceIdentifierKey;

/// Writes the property's value (a CFTypeRef that the caller owns) to *value: of a link itself, not of what it leads to. True with null for a
/// property that such an object does not have, or that is not known here. False with an error when nothing stands there; `error` may be null.
CM_EXPORT Boolean CFURLCopyResourcePropertyForKey(CFURLRef url, CFStringRef key, void* value, CFErrorRef* error);

/// A persistent reference to what an alias file leads to; null when it leads nowhere, or for a file that is none.
CM_EXPORT CFDataRef CFURLCreateBookmarkDataFromFile(CFAllocatorRef allocator, CFURLRef file, CFErrorRef* error);
/// Null when the object is not found. No base, and no properties to include; `isStale` (may be null) tells that it is at another path now.
CM_EXPORT CFURLRef CFURLCreateByResolvingBookmarkData(CFAllocatorRef allocator, CFDataRef bookmark, CFURLBookmarkResolutionOptions options,
                                                      CFURLRef relativeTo, CFArrayRef properties, Boolean* isStale, CFErrorRef* error);

// ---- unique identifiers ----

typedef struct {
    UInt8 byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7, byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15;
} CFUUIDBytes;

CM_EXPORT CFTypeID CFUUIDGetTypeID(void);
CM_EXPORT CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes);
CM_EXPORT CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);
/// "68753A44-4D6F-1226-9C60-0050E4C00067".
CM_EXPORT CFStringRef CFUUIDCreateString(CFAllocatorRef allocator, CFUUIDRef uuid);

// ---- errors ----

typedef CFStringRef CFErrorDomain;
CM_EXPORT_DATA extern const CFErrorDomain kCFErrorDomainPOSIX;
CM_EXPORT_DATA extern const CFStringRef kCFErrorLocalizedDescriptionKey;
CM_EXPORT_DATA extern const CFStringRef kCFErrorLocalizedFailureReasonKey;
CM_EXPORT CFTypeID CFErrorGetTypeID(void);
/// Null user information means none, which is read as an empty dictionary.
CM_EXPORT CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFErrorDomain domain, CFIndex code, CFDictionaryRef userInfo);
CM_EXPORT CFErrorDomain CFErrorGetDomain(CFErrorRef error);
CM_EXPORT CFIndex CFErrorGetCode(CFErrorRef error);
CM_EXPORT CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef error);
/// The user information's description, or else a text made of its failure reason, or of the domain and code.
CM_EXPORT CFStringRef CFErrorCopyDescription(CFErrorRef error);

// ---- bundles ----

/// The library's own bundle for "com.brenwick.ColourMatch", else null. Its resources stand in the folder `colourmatch-2`
/// beside the library file. Borrowed, never freed.
CM_EXPORT CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef identifier);
/// The URL of an existing resource, else null.
CM_EXPORT CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef name, CFStringRef type, CFStringRef subdirectory);

// ---- preferences (per user, per host) ----

typedef const void* CFPropertyListRef;
CM_EXPORT_DATA extern const CFStringRef kCFPreferencesCurrentUser;
CM_EXPORT_DATA extern const CFStringRef kCFPreferencesCurrentHost;

/// The pending or stored value of a key; null when there is none. Any thread.
CM_EXPORT CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user, CFStringRef host);
/// A pending change, seen at once by this process; a null value removes the key.
CM_EXPORT void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application, CFStringRef user, CFStringRef host);
/// Merges the pending changes into the file and reads what other processes wrote. False when the file could not be written or read.
CM_EXPORT Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host);

// ---- distributed notifications ----

typedef struct __CFNotificationCenter* CFNotificationCenterRef;
typedef void (*CFNotificationCallback)(CFNotificationCenterRef centre, void* observer, CFStringRef name, const void* object,
                                       CFDictionaryRef userInfo);
typedef CFIndex CFNotificationSuspensionBehavior;
enum { CFNotificationSuspensionBehaviorCoalesce = 2, CFNotificationSuspensionBehaviorDeliverImmediately = 4 };

/// The centre that reaches every process of the user; null when there is neither a session bus nor a preferences folder to watch. Borrowed.
///
/// It waits less than a second for a bus that does not answer and works without until that answers; one that was lost is taken up again, and what
/// was announced meanwhile is told then. A bus is one at a UNIX socket.
///
/// A child of fork may use it whatever other threads of its parent were doing. It keeps the observers and none of the connections, and opens its own
/// when it uses the centre or turns the main run loop. Each process tells its own observers. GLib's main context has one wake-up for both processes,
/// though: a child that turns it beside its parent may take a wake-up from the parent.
CM_EXPORT CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void);
/// Null name or object: any. Callbacks run on the main run loop.
CM_EXPORT void CFNotificationCenterAddObserver(CFNotificationCenterRef centre, const void* observer, CFNotificationCallback callback,
                                               CFStringRef name, const void* object, CFNotificationSuspensionBehavior suspensionBehaviour);
CM_EXPORT void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef centre, const void* observer);
/// Reaches this process's observers too.
CM_EXPORT void CFNotificationCenterPostNotification(CFNotificationCenterRef centre, CFStringRef name, const void* object, CFDictionaryRef userInfo,
                                                    Boolean deliverImmediately);

// ---- main run loop ----

typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef CFStringRef CFRunLoopMode;
typedef double CFTimeInterval;
typedef SInt32 CFRunLoopRunResult;
enum { kCFRunLoopRunFinished = 1, kCFRunLoopRunStopped = 2, kCFRunLoopRunTimedOut = 3, kCFRunLoopRunHandledSource = 4 };
CM_EXPORT_DATA extern const CFRunLoopMode kCFRunLoopCommonModes;
CM_EXPORT_DATA extern const CFRunLoopMode kCFRunLoopDefaultMode;

typedef struct {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
    Boolean (*equal)(const void* a, const void* b);
    CFHashCode (*hash)(const void* info);
    void (*schedule)(void* info, CFRunLoopRef loop, CFRunLoopMode mode);
    void (*cancel)(void* info, CFRunLoopRef loop, CFRunLoopMode mode);
    void (*perform)(void* info);
} CFRunLoopSourceContext;

/// GLib's default main context, whoever runs it.
CM_EXPORT CFRunLoopRef CFRunLoopGetMain(void);
CM_EXPORT CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef allocator, CFIndex order, CFRunLoopSourceContext* context);
CM_EXPORT void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
/// Marks the source; it performs once when the loop comes round, however often it was marked. Any thread.
CM_EXPORT void CFRunLoopSourceSignal(CFRunLoopSourceRef source);
CM_EXPORT void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);
CM_EXPORT Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source);
CM_EXPORT void CFRunLoopWakeUp(CFRunLoopRef loop);
/// Runs what is due on the main run loop, for hosts that run no GLib loop of their own; the thread that does so is the main one. While another
/// thread runs that loop, only the time passes.
///
/// seconds   how long to wait for something to do; 0 never waits
CM_EXPORT CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds, Boolean returnAfterSourceHandled);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
