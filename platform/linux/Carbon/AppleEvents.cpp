#include "platform/AppleEvents.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "platform/linux/Carbon/CarbonStatus.h"

/// A record's parameters in the order in which they were put.
struct OpaqueAEDataStorageType {
    struct Parameter {
        AEKeyword keyword;
        DescType type;
        std::vector<UInt8> bytes;
    };
    std::vector<Parameter> parameters;
};

namespace {

/// The data handle is a pointer to the storage's address, as a relocatable block's is.
OpaqueAEDataStorageType* Storage(const AEDesc* desc) {
    return desc && desc->dataHandle ? *desc->dataHandle : nullptr;
}

/// Whether the value can be of its type. A type that is not listed has no size of its own.
bool HasItsTypesSize(const OpaqueAEDataStorageType::Parameter& parameter) {
    switch (parameter.type) {
        case typeIEEE64BitFloatingPoint:
            return parameter.bytes.size() == sizeof(double);
        case typeBoolean:
            return parameter.bytes.size() == sizeof(Boolean);
        default:
            return true;
    }
}

OpaqueAEDataStorageType::Parameter* Find(OpaqueAEDataStorageType* storage, AEKeyword keyword) {
    const auto found = std::find_if(storage->parameters.begin(), storage->parameters.end(),
                                    [keyword](const OpaqueAEDataStorageType::Parameter& parameter) { return parameter.keyword == keyword; });
    return found == storage->parameters.end() ? nullptr : &*found;
}

}  // namespace

OSErr AECreateList(const void*, Size, Boolean isRecord, AEDescList* resultList) {
    if (!resultList) return kStatusParameter;
    *resultList = {typeNull, nullptr};
    OpaqueAEDataStorageType* const storage = new (std::nothrow) OpaqueAEDataStorageType;
    AEDataStorage const handle = new (std::nothrow) AEDataStorageType(storage);
    if (!storage || !handle) {
        delete storage;
        delete handle;
        return kStatusNoMemory;
    }
    *resultList = {isRecord ? static_cast<DescType>(typeAERecord) : static_cast<DescType>(typeAEList), handle};
    return 0;
}

OSErr AEPutParamPtr(AERecord* record, AEKeyword keyword, DescType type, const void* data, Size size) {
    if (size < 0 || (size > 0 && !data)) return kStatusParameter;
    OpaqueAEDataStorageType* const storage = Storage(record);
    if (!storage || record->descriptorType != typeAERecord) return errAEWrongDataType;
    try {
        const UInt8* const first = static_cast<const UInt8*>(data);
        OpaqueAEDataStorageType::Parameter parameter{keyword, type, std::vector<UInt8>(first, first + size)};
        if (OpaqueAEDataStorageType::Parameter* const existing = Find(storage, keyword)) {
            *existing = std::move(parameter);
        } else {
            storage->parameters.push_back(std::move(parameter));
        }
    } catch (const std::bad_alloc&) {
        return kStatusNoMemory;
    }
    return 0;
}

OSErr AEGetParamPtr(const AERecord* record, AEKeyword keyword, DescType desiredType, DescType* actualType, void* data, Size maximumSize,
                    Size* actualSize) {
    OpaqueAEDataStorageType* const storage = Storage(record);
    if (!storage || record->descriptorType != typeAERecord) return errAEWrongDataType;
    const OpaqueAEDataStorageType::Parameter* const parameter = Find(storage, keyword);
    if (!parameter) return errAEDescNotFound;
    if (parameter->type != desiredType) return errAECoercionFail;
    if (!HasItsTypesSize(*parameter)) return errAECorruptData;
    const Size size = static_cast<Size>(parameter->bytes.size());
    if (data && maximumSize > 0 && size > 0) std::memcpy(data, parameter->bytes.data(), static_cast<size_t>(std::min(size, maximumSize)));
    if (actualType) *actualType = parameter->type;
    if (actualSize) *actualSize = size;
    return 0;
}

OSErr AEDisposeDesc(AEDesc* desc) {
    if (!desc) return kStatusParameter;
    if (desc->dataHandle) {
        delete *desc->dataHandle;
        delete desc->dataHandle;
    }
    *desc = {typeNull, nullptr};
    return 0;
}
