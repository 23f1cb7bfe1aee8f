#include "platform/ColorSync.h"

#if __has_include(<Accelerate/Accelerate.h>)
#include <Accelerate/Accelerate.h>
#else
// A folder of headers without the image library still lets this file be checked.
extern "C" {
typedef struct vImageConverter* vImageConverterRef;
typedef struct vImage_Buffer {
    void* data;
    unsigned long height, width;
    size_t rowBytes;
} vImage_Buffer;
typedef struct vImage_CGImageFormat {
    uint32_t bitsPerComponent, bitsPerPixel;
    CGColorSpaceRef colorSpace;
    CGBitmapInfo bitmapInfo;
    uint32_t version;
    const CGFloat* decode;
    CGColorRenderingIntent renderingIntent;
} vImage_CGImageFormat;
vImageConverterRef vImageConverter_CreateWithColorSyncCodeFragment(CFTypeRef, const vImage_CGImageFormat*, const vImage_CGImageFormat*,
                                                                   const CGFloat*, uint32_t, ssize_t*);
ssize_t vImageConvert_AnyToAny(vImageConverterRef, const vImage_Buffer*, const vImage_Buffer*, void*, uint32_t);
void vImageConverter_Release(vImageConverterRef);
}
#endif

#include "platform/Owned.h"

namespace {

/// 8 bits a component, 32 a pixel, the last byte skipped.
vImage_CGImageFormat FormatIn(CGColorSpaceRef space) {
    vImage_CGImageFormat format = {};
    format.bitsPerComponent = 8;
    format.bitsPerPixel = 32;
    format.colorSpace = space;
    format.bitmapInfo = static_cast<CGBitmapInfo>(kCGImageAlphaNoneSkipLast);
    return format;
}

}  // namespace

/// Shows how a transform is handed to the system's image library: converts one pixel of nothing. Nothing else depends on it.
extern "C" CM_EXPORT void VImageConvertorExample(ColorSyncTransformRef transform, ColorSyncProfileRef source, ColorSyncProfileRef destination) {
    vImageConverterRef converter = nullptr;
    {
        const Owned<CFTypeRef> conversion(ColorSyncTransformCopyProperty(transform, kColorSyncTransformFullConversionData, nullptr));
        const Owned<CGColorSpaceRef> sourceSpace(CGColorSpaceCreateWithPlatformColorSpace(source));
        const Owned<CGColorSpaceRef> destinationSpace(CGColorSpaceCreateWithPlatformColorSpace(destination));
        const vImage_CGImageFormat from = FormatIn(sourceSpace.Get());
        const vImage_CGImageFormat to = FormatIn(destinationSpace.Get());
        converter = vImageConverter_CreateWithColorSyncCodeFragment(conversion.Get(), &from, &to, nullptr, 0, nullptr);
    }
    if (!converter) return;
    const vImage_Buffer pixel = {nullptr, 1, 1, 4};
    vImageConvert_AnyToAny(converter, &pixel, &pixel, nullptr, 0);
    vImageConverter_Release(converter);
}
