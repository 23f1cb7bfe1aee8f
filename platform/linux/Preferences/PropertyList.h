#pragma once

/// Property-list objects to and from the nodes of a property-list file.

#include <plist/plist.h>

#include <memory>
#include <string>

#include "platform/CoreFoundation.h"

namespace platform {

struct FreePlist {
    void operator()(void* node) const { plist_free(node); }
};
using PlistNode = std::unique_ptr<void, FreePlist>;

/// A new node, or null for an object that a property list cannot hold. Every text can be held.
PlistNode PlistFromObject(CFTypeRef object);
/// A new object, or null for a node of a kind that is not known here.
CFTypeRef CreateObjectFromPlist(plist_t node);

/// Reads a property list of either form, binary or XML; null when it is damaged.
PlistNode ParsePlist(const std::string& bytes);
/// The binary form, in which every real comes back bit for bit.
std::string SerialisePlist(plist_t node);

}  // namespace platform
