#pragma once

#include <vips/vips.h>

#include <memory>

struct VipsRelease {
    void operator()(void* object) const { g_object_unref(object); }
};

/// Holds one reference to an object of libvips.
template <typename Object>
using VipsHold = std::unique_ptr<Object, VipsRelease>;
using ImageHold = VipsHold<VipsImage>;
