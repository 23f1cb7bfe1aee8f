#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "ColourMatch/ColourMatch.h"

inline const std::string kBuiltLibrary = CM_BINARY_DIR "/lib/libcolourmatch.so.2";

/// The built library, opened at run time as a host opens a plug-in; this program is not linked with it.
class LoadedLibrary {
public:
    explicit LoadedLibrary(int mode, const std::string& file = kBuiltLibrary) : library_(dlopen(file.c_str(), RTLD_NOW | mode)) {
        if (!library_) ADD_FAILURE() << dlerror();
    }

    /// The operation (or variable) of that name inside the library, with the type of `Declared`.
    template <typename Declared>
    Declared Find(const char* name) const {
        void* address = library_ ? dlsym(library_, name) : nullptr;
        if (!address) ADD_FAILURE() << name << " is not in the library";
        return reinterpret_cast<Declared>(address);
    }

private:
    void* library_;  // stays open for the life of the process, as a plug-in with a main loop source does
};

#define FIND(library, name) (library).Find<decltype(&name)>(#name)
