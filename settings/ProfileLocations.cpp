#include "settings/ProfileLocations.h"

#include <cstring>
#include <utility>

#include "settings/PreferenceStore.h"
#include "settings/SettingDefaults.h"

namespace {

ICCProfileLocation sLocation = {nullptr, nullptr, nullptr};

/// The three fields with their keys, in the order in which they are read and written.
struct LocationField {
    AliasHandle ICCProfileLocation::*handle;
    const char* key;
};
constexpr LocationField kFields[3] = {{&ICCProfileLocation::monitor, "Monitor Profile"},
                                      {&ICCProfileLocation::printer, "Printer Profile"},
                                      {&ICCProfileLocation::proofer, "Proofer Profile"}};

CFStringRef Key(const LocationField& field) {
    return __CFStringMakeConstantString(field.key);
}

/// Disposes of its handles unless they were taken over.
struct LocationCopies {
    ICCProfileLocation handles = {nullptr, nullptr, nullptr};

    LocationCopies() = default;
    LocationCopies(const LocationCopies&) = delete;
    LocationCopies& operator=(const LocationCopies&) = delete;
    ~LocationCopies() {
        for (const LocationField& field : kFields) {
            if (handles.*field.handle) DisposeHandle(reinterpret_cast<Handle>(handles.*field.handle));
        }
    }
};

OSErr CopyAlias(AliasHandle alias, AliasHandle* copy) {
    const Handle source = reinterpret_cast<Handle>(alias);
    const Size size = GetHandleSize(source);
    if (size < 0) return static_cast<OSErr>(size);
    const Handle block = NewHandle(size);
    *copy = reinterpret_cast<AliasHandle>(block);
    const OSErr error = MemError();
    if (error != 0) return error;
    std::memcpy(*block, *source, static_cast<size_t>(size));
    return 0;
}

}  // namespace

void RecallICCProfileLocation(void) {
    // Deliberate: the handles held before are dropped, not disposed of; a caller may still be reading them.
    sLocation = {nullptr, nullptr, nullptr};
    for (const LocationField& field : kFields) sLocation.*field.handle = GetFileLocationPreference(Key(field));
}

OSErr RememberICCProfileLocation(void) {
    const Boolean usePaths = GetBooleanPreference(CFSTR("Use Paths"), kDefaultUsePaths);
    for (const LocationField& field : kFields) SetFileLocationPreference(sLocation.*field.handle, Key(field), usePaths);
    return 0;
}

void GetICCProfileLocation(ICCProfileLocation* location) {
    *location = sLocation;
}

OSErr SetICCProfileLocation(const ICCProfileLocation* location) {
    LocationCopies copies;
    for (const LocationField& field : kFields) {
        if (!(location->*field.handle)) continue;
        const OSErr error = CopyAlias(location->*field.handle, &(copies.handles.*field.handle));
        if (error != 0) return error;
    }
    std::swap(sLocation, copies.handles);
    return RememberICCProfileLocation();
}
