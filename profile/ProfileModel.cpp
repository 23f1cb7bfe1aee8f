#include "profile/ProfileModel.h"

#include <algorithm>
#include <iterator>

#include "platform/Codes.h"
#include "platform/FourCharCode.h"
#include "profile/BigEndian.h"
#include "profile/ProfileHeader.h"
#include "profile/TagRegistry.h"

namespace {

constexpr CFIndex kXYZTagSize = 20;

/// s15.16 to the scale on which device values of 65535 give 32768 for 1.0.
int32_t MatrixElement(int32_t fixed) {
    return static_cast<int32_t>(int64_t{fixed} * 32768 / 65535);
}

}  // namespace

FixedXYZ GetMediaColourant(ColorSyncProfileRef profile, uint32_t signature) {
    const Owned<CFDataRef> tag = CopyTag(profile, signature);
    if (!tag || CFDataGetLength(tag.Get()) < kXYZTagSize) return {0, 0, 0};
    const UInt8* bytes = CFDataGetBytePtr(tag.Get());
    return {static_cast<int32_t>(ReadBigEndian32(bytes + 8)), static_cast<int32_t>(ReadBigEndian32(bytes + 12)),
            static_cast<int32_t>(ReadBigEndian32(bytes + 16))};
}

FixedXYZ GetMediaWhitePoint(ColorSyncProfileRef profile) {
    return ContainsTag(profile, FourChar("wtpt")) ? GetMediaColourant(profile, FourChar("wtpt")) : GetProfileIlluminant(profile);
}

FixedXYZ GetProfileIlluminant(ColorSyncProfileRef profile) {
    const ICCProfileHeader header = GetProfileHeader(profile);
    return {header.illuminantX, header.illuminantY, header.illuminantZ};
}

void SetMediaColourant(ColorSyncMutableProfileRef profile, uint32_t signature, FixedXYZ xyz) {
    UInt8 bytes[kXYZTagSize] = {};
    WriteBigEndian32(FourChar("XYZ "), bytes);
    WriteBigEndian32(static_cast<uint32_t>(xyz.X), bytes + 8);
    WriteBigEndian32(static_cast<uint32_t>(xyz.Y), bytes + 12);
    WriteBigEndian32(static_cast<uint32_t>(xyz.Z), bytes + 16);
    const Owned<CFDataRef> tag(CFDataCreate(kCFAllocatorDefault, bytes, kXYZTagSize));
    if (tag) SetTag(profile, signature, tag.Get());
}

void SetMediaWhitePoint(ColorSyncMutableProfileRef profile, FixedXYZ xyz) {
    SetMediaColourant(profile, FourChar("wtpt"), xyz);
}

Boolean IsMatrixModel(ColorSyncProfileRef profile) {
    constexpr uint32_t kModelTags[] = {FourChar("rXYZ"), FourChar("rTRC"), FourChar("gXYZ"), FourChar("gTRC"), FourChar("bXYZ"), FourChar("bTRC")};
    return std::all_of(std::begin(kModelTags), std::end(kModelTags), [=](uint32_t signature) { return ContainsTag(profile, signature); });
}

OSErr GetMonitorMatrix(ColorSyncProfileRef profile, FixedMatrix* matrix) {
    if (!IsMatrixModel(profile)) return kStatusProfileUnsuitable;
    constexpr uint32_t kColourants[] = {FourChar("rXYZ"), FourChar("gXYZ"), FourChar("bXYZ")};
    for (int column = 0; column < 3; ++column) {
        const FixedXYZ colourant = GetMediaColourant(profile, kColourants[column]);
        matrix->element[column] = MatrixElement(colourant.X);
        matrix->element[3 + column] = MatrixElement(colourant.Y);
        matrix->element[6 + column] = MatrixElement(colourant.Z);
    }
    return 0;
}

int32_t GetMonitorLuminance(ColorSyncProfileRef profile) {
    return ContainsTag(profile, FourChar("lumi")) ? GetMediaColourant(profile, FourChar("lumi")).Y : 0;
}
