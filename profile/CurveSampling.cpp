#include "profile/CurveSampling.h"

#include <cstdlib>
#include <new>
#include <string>

#include "platform/BigEndian.h"
#include "platform/Codes.h"
#include "platform/FourCharCode.h"
#include "profile/CurveTag.h"
#include "profile/ProfileReading.h"
#include "profile/Refusals.h"
#include "profile/TagRegistry.h"

namespace {

/// The fixed part of a 16-bit multi-dimensional table tag, up to where its tables begin.
constexpr CFIndex kTableTagHeaderSize = 52;

bool HasLinearShapers(const UInt8* tag) {
    const unsigned inputs = tag[8];
    const unsigned outputs = tag[9];
    return ReadBigEndian32(tag) == FourChar("mft2") && inputs == 3 && ReadBigEndian16(tag + 48) == 2 &&
           (outputs < 2 || ReadBigEndian16(tag + 50) == 2);
}

/// Says what SampleCurveTag has against a tag that it found unsuitable.
void RefuseCurve(uint32_t signature, const UInt8* tag, size_t length) noexcept try {
    const std::string name = "tag " + CodeText(signature) + " ";
    if (length < 12) return Refuse({name, "has ", std::to_string(length), " bytes"}, "a tone curve has at least 12");
    const uint32_t type = ReadBigEndian32(tag);
    if (type == FourChar("para")) {
        const unsigned function = ReadBigEndian16(tag + 8);
        if (function > 4) return Refuse({name, "is of function type ", std::to_string(function)}, "the types of a tone curve are 0 to 4");
        return Refuse({name, "is too short for function type ", std::to_string(function)}, "1, 3, 4, 5 and 7 parameters belong to the types 0 to 4");
    }
    if (type == FourChar("curv")) {
        return Refuse(
            {name, "says that it has ", std::to_string(ReadBigEndian32(tag + 8)), " entries and has room for ", std::to_string((length - 12) / 2)},
            "a curve whose entries are all there is needed");
    }
    Refuse({name, "is of the type ", CodeText(type)}, "a tone curve is of the type 'curv' or 'para'");
} catch (const std::bad_alloc&) {
}

}  // namespace

OSErr GetColourantLUT(ColorSyncProfileRef profile, uint32_t signature, uint16_t** table, uint32_t* count) {
    *table = nullptr;
    OSErr status = CheckMatrixModel(profile);
    Owned<CFDataRef> tag;
    if (status == 0) status = CopyTag(profile, signature, &tag);
    if (!tag) return status != 0 ? status : kStatusProfileUnsuitable;
    const auto length = static_cast<size_t>(CFDataGetLength(tag.Get()));
    const int sampled = SampleCurveTag(CFDataGetBytePtr(tag.Get()), length, table, count);
    if (sampled == kStatusProfileUnsuitable) RefuseCurve(signature, CFDataGetBytePtr(tag.Get()), length);
    return static_cast<OSErr>(sampled);
}

OSErr Get3DTable(ColorSyncProfileRef profile, uint32_t signature, int32_t matrix[9], uint32_t* gridPoints, uint16_t** table) {
    *table = nullptr;
    Owned<CFDataRef> tag;
    const OSErr status = CopyTag(profile, signature, &tag);
    if (!tag) return status != 0 ? status : kStatusProfileUnsuitable;
    const UInt8* bytes = CFDataGetBytePtr(tag.Get());
    if (CFDataGetLength(tag.Get()) >= kTableTagHeaderSize && HasLinearShapers(bytes)) {
        for (size_t i = 0; i < 9; ++i) matrix[i] = static_cast<int32_t>(ReadBigEndian32(bytes + 12 + 4 * i));
        const size_t outputs = bytes[9];
        const size_t side = size_t{bytes[10]} + 1;
        *gridPoints = bytes[10];
        *table = static_cast<uint16_t*>(std::calloc(side * side * side, outputs * sizeof(uint16_t)));
        if (!*table) {
            *gridPoints = 0;
            return kStatusNoMemory;
        }
    }
    // Deliberate: no table is ever delivered, so that callers build theirs another way.
    std::free(*table);
    *table = nullptr;
    *gridPoints = 0;
    return kStatusProfileUnsuitable;
}
