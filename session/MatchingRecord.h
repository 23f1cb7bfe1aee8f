#pragma once

/// Matching records of a host's own: made from files or memory, several at once, asked without regard to the process's current record.
///
/// A record belongs to the caller, who ends it with DisposeMatchingData, or passes it on with SetMatchingData. Once made it never changes, so that
/// any number of threads may ask it at once; disposing of it is for when none does.

#include <stddef.h>

#include "appearance/ViewingConditions.h"

CM_C_BEGIN

/// A profile's bytes, borrowed during the call: those of the file at `path`, a name as the system's calls take it, or else `length` bytes in
/// memory. With neither there is no profile.
typedef struct ProfileSource {
    const char* path;
    const void* bytes;
    size_t length;
} ProfileSource;

/// Zeros but for the monitor are a record of the devices as they are, at quality 'Qua2'.
typedef struct MatchingChoice {
    ProfileSource monitor;                // a display or another matrix model with tone curves
    ProfileSource printer;                // class 'prtr', RGB or CMYK; none: the printer's operations answer 1000
    ProfileSource proofer;                // a device that the printer is to imitate; any class but a link or named colours
    const FixedXYZ* monitorWhite;         // the white to adapt the monitor to; null: its own
    const FixedXYZ* printerWhite;         // the printer's white; null: its profile's media white
    const ViewingConditions* conditions;  // null: none, which is not the same as conditions that change nothing
    uint32_t renderingIntent;             // with conditions, 'Rdr0' to 'Rdr3'; 0 is 'Rdr0'
    uint32_t quality;                     // 'Qua0' (grid tables), 'Qua1' or 'Qua2'; 0 is 'Qua2'
} MatchingChoice;

/// Makes a record. The profiles are checked as the stored settings are, so that a monitor's is no printer.
///
/// status    0; -50 for a null choice, an intent or a quality that is none, and a profile of more than 20 MiB; -43 for a file that is not there;
/// -108;
///           -170 for bytes that are no profile and for a profile that does not suit its place; else what reading a file answered.
///           ICC_CopyLastRefusal has the sentence. May be null
/// returns   the record, or null
///
/// Any thread.
CM_EXPORT MatchingData* CreateMatchingData(const MatchingChoice* choice, OSErr* status);

/// The operations of ColourOperations.h, in the same formats, on a given record: its grid tables answer while they are in force. 0; 1000 with nothing
/// touched for a null record, and for the printer's and the proof's operations on a record without a printer. Any thread.
CM_EXPORT int16_t RecordMonitorMatch(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count);
CM_EXPORT int16_t RecordMonitorMatch16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t RecordMonitorPredict(const MatchingData* record, const uint8_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t RecordMonitorPredict16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t RecordMonitorGamut(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count);
CM_EXPORT int16_t RecordPrinterMatch(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count);
CM_EXPORT int16_t RecordPrinterMatch16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t RecordPrinterPredict(const MatchingData* record, const uint8_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t RecordPrinterPredict16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t RecordPrinterGamut(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count);
CM_EXPORT int16_t RecordSoftProofMatch(const MatchingData* record, const uint16_t* source, uint8_t* destination, size_t count);
CM_EXPORT int16_t RecordSoftProofMatch16(const MatchingData* record, const uint16_t* source, uint16_t* destination, size_t count);
/// 'RGB ', 'CMYK', or 'none' for a record without a printer; 1 for a null record.
CM_EXPORT uint32_t RecordPrinterColourSpace(const MatchingData* record);

CM_C_END
