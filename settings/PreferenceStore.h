#pragma once

/// Typed access to the per-user, per-host preferences domain "com.brenwick.orlocms".
///
/// A failed read gives the default, a failed write is skipped; nothing here reports an error. Copy and Create results belong to the caller.
/// Any thread. Writes are pending until SynchronisePreferences.

#include "platform/Carbon.h"
#include "platform/CoreFoundation.h"

CM_C_BEGIN

CM_EXPORT double GetRealPreference(CFStringRef key, double defaultValue);
CM_EXPORT void SetRealPreference(CFStringRef key, double value);
/// A stored real is taken when it is a whole number that fits; otherwise the default.
CM_EXPORT int32_t GetIntPreference(CFStringRef key, int32_t defaultValue);
CM_EXPORT void SetIntPreference(CFStringRef key, int32_t value);
/// The default only when the key is absent: a stored value of any type is read as a boolean.
CM_EXPORT Boolean GetBooleanPreference(CFStringRef key, Boolean defaultValue);
CM_EXPORT void SetBooleanPreference(CFStringRef key, Boolean value);
/// The first four characters of a string of four or more.
CM_EXPORT OSType GetOSTypePreference(CFStringRef key, OSType defaultValue);
CM_EXPORT void SetOSTypePreference(CFStringRef key, OSType value);
CM_EXPORT CFStringRef CopyStringPreference(CFStringRef key, CFStringRef defaultValue);
/// A null string removes the key.
CM_EXPORT void SetStringPreference(CFStringRef key, CFStringRef value);
/// An empty dictionary when there is none; never null.
CM_EXPORT CFDictionaryRef CopyDictionaryPreference(CFStringRef key);
CM_EXPORT void SetDictionaryPreference(CFStringRef key, CFDictionaryRef value);

CM_EXPORT CFMutableDictionaryRef CreatePreferencesDictionary(void);
CM_EXPORT void AddRealToDictionary(CFMutableDictionaryRef dictionary, CFStringRef key, double value);
CM_EXPORT double GetRealFromDictionary(CFDictionaryRef dictionary, CFStringRef key, double defaultValue);
CM_EXPORT void AddBooleanToDictionary(CFMutableDictionaryRef dictionary, CFStringRef key, Boolean value);
/// The default unless the value is a boolean object.
CM_EXPORT Boolean GetBooleanFromDictionary(CFDictionaryRef dictionary, CFStringRef key, Boolean defaultValue);

/// A new alias handle (DisposeHandle), or null. A stored string is read as a POSIX path, a byte block as the alias record itself.
CM_EXPORT AliasHandle GetFileLocationPreference(CFStringRef key);
/// Stores the alias record's bytes, or with usePaths the URL text of its file (which the reader takes as a path); null removes the key.
CM_EXPORT void SetFileLocationPreference(AliasHandle alias, CFStringRef key, Boolean usePaths);

/// Writes pending changes and picks up those of other processes; with `notify` also tells every process that the settings changed.
CM_EXPORT void SynchronisePreferences(Boolean notify);

CM_C_END
