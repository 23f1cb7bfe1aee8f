#pragma once

/// Descriptor records: keyed, typed values.

#include "platform/Carbon.h"

#if defined(__APPLE__)

#include <CoreServices/CoreServices.h>

#elif defined(__linux__)

CM_C_BEGIN

typedef UInt32 DescType;
typedef UInt32 AEKeyword;
typedef struct OpaqueAEDataStorageType* AEDataStorageType;
typedef AEDataStorageType* AEDataStorage;
/// A descriptor owns its data; dispose of it with AEDisposeDesc.
typedef struct AEDesc {
    DescType descriptorType;
    AEDataStorage dataHandle;
} AEDesc;
typedef AEDesc AEDescList;
typedef AEDescList AERecord;

enum {
    typeNull = 0x6E756C6C,                    // 'null'
    typeBoolean = 0x626F6F6C,                 // 'bool'
    typeIEEE64BitFloatingPoint = 0x646F7562,  // 'doub'
    typeAERecord = 0x7265636F,                // 'reco'
    typeAEList = 0x6C697374,                  // 'list'
};
enum { errAECoercionFail = -1700, errAEDescNotFound = -1701, errAECorruptData = -1702, errAEWrongDataType = -1703, errAENotAEDesc = -1704 };

/// An empty record (or list, when `isRecord` is 0).
CM_EXPORT OSErr AECreateList(const void* factoringPtr, Size factoredSize, Boolean isRecord, AEDescList* resultList);
CM_EXPORT OSErr AEPutParamPtr(AERecord* record, AEKeyword keyword, DescType type, const void* data, Size size);
/// -1701 for an absent key, -1700 when the value is of another type, -1702 when it says that it is a 'doub' or a 'bool' and has not that size;
/// nothing is written then. At most `maximumSize` bytes are written; *actualSize is the value's.
CM_EXPORT OSErr AEGetParamPtr(const AERecord* record, AEKeyword keyword, DescType desiredType, DescType* actualType, void* data, Size maximumSize,
                              Size* actualSize);
CM_EXPORT OSErr AEDisposeDesc(AEDesc* desc);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
