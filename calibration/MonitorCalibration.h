#pragma once

/// Calibration documents: for every display that was calibrated its identity, its geometry and the ramp to load. C++ hosts; main thread.

#include <stdbool.h>

#include "calibration/Displays.h"
#include "platform/Carbon.h"

#pragma pack(push, 2)
/// The calibrating application's own settings, stored and returned as they are. 42 bytes; in a file the 64-bit values are big-endian.
typedef struct CalibrationRecord {
    int64_t setting1;
    int64_t setting2;
    uint8_t flag1;
    uint8_t flag2;
    int64_t setting3;
    int64_t setting4;
    int64_t setting5;
} CalibrationRecord;
#pragma pack(pop)

#ifdef __cplusplus

/// A document in memory. Failures of reading and saving are raised (session/Failure.h).
class CM_EXPORT MonitorCalibration {
public:
    /// Takes over the array of ramps (from malloc) and the ramps in it; copies the displays and the settings.
    MonitorCalibration(int16_t count, const CGDirectDisplayID* displayIDs, MC_OpaqueGammaTable** tables,
                       const CalibrationRecord& calibrationSettings);
    /// Reads a document. One that is malformed or cannot be opened is left empty and invalid.
    explicit MonitorCalibration(const FSRef* file);
    MonitorCalibration(const MonitorCalibration&) = delete;
    MonitorCalibration& operator=(const MonitorCalibration&) = delete;
    ~MonitorCalibration();

    /// Writes the document as folder/name, replacing one that is there in one step. Raises -36, -43 or what the resource calls answered.
    void Save(const FSRef* folder, CFStringRef name);

    CalibrationRecord& GetCalibrationSettings();
    int16_t NumGammaTables() const;
    /// Borrowed.
    MC_OpaqueGammaTable* GammaTable(int16_t i) const;
    CGDirectDisplayID DisplayRef(int16_t i) const;
    /// The display's current position, -1 when it is no longer there.
    int32_t DisplayIndex(int16_t i) const;
    /// The display as it was when the document was made. Borrowed.
    const MC_DisplayInfo& StoredInfo(int16_t i) const;

    /// True when every stored display that is present still has its depth and size; otherwise the user is told.
    bool VerifySameDevices() const;
    /// Loads every present display's ramp; a document that is invalid, or made for other devices, loads nothing and becomes invalid. Raises -50, with
    /// nothing loaded, where a present display's ramp is missing or of a kind that no display takes, and what loading answered when a display
    /// refuses; those that were loaded before it have their earlier ramps again then.
    void Install();
    /// Raises -50 for a null ramp.
    void InstallGamma(CGDirectDisplayID display, const MC_OpaqueGammaTable* table);
    bool IsValid() const { return valid; }

private:
    CM_INTERNAL void ReadResources();
    CM_INTERNAL void AddResources() const;
    CM_INTERNAL void Free();
    CM_INTERNAL void LoadAll() const;

    int16_t count;
    CGDirectDisplayID* displays;
    MC_DisplayInfo* displayInfo;
    MC_OpaqueGammaTable** gammaTables;
    CalibrationRecord settings;
    bool valid;
};

#endif

CM_C_BEGIN

/// Puts every display back to its system ramp, then loads the document "Orlo Monitor Calibration" of the user's preferences folder, if there is
/// one that fits. Quiet about every failure.
CM_EXPORT void InstallMonitorCalibration(void);
/// The first file error, else 0. *sane tells whether the resource fork can be trusted.
CM_EXPORT OSErr CheckResourceForkSanity(const FSRef* file, bool* sane);

CM_C_END
