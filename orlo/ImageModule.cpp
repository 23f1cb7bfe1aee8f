#include "orlo/ImageModule.h"

#include <dlfcn.h>

#include "ColourMatch/ColourMatch.h"
#include "images/Complaint.h"

namespace {

/// The library's own folder, whatever program asks.
std::string LibraryFolder() {
    Dl_info library = {};
    if (dladdr(reinterpret_cast<const void*>(&CMSGetVersion), &library) == 0 || !library.dli_fname) return ".";
    const std::string path = library.dli_fname;
    return path.substr(0, path.rfind('/'));
}

template <typename Function>
Function* InModule(const char* name) {
    static void* const module = dlopen((LibraryFolder() + "/colourmatch-2/orlo-images.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const function = module ? dlsym(module, name) : nullptr;
    if (!function) {
        const char* const reason = dlerror();
        throw Complaint{"orlo-images.so",
                        std::string("what works on pictures cannot be loaded (") + (reason ? reason : "loaded before in vain") + ")",
                        "install orlo and libvips again", Exit::Failed};
    }
    return reinterpret_cast<Function*>(function);
}

}  // namespace

ImageReport RunImage(const ImageRequest& request) {
    ImageReport report;
    InModule<decltype(OrloRunImage)>("OrloRunImage")(&request, &report);
    return report;
}

DifferenceReport CompareImages(const DifferenceRequest& request) {
    DifferenceReport report;
    InModule<decltype(OrloCompareImages)>("OrloCompareImages")(&request, &report);
    return report;
}

void RenderPicture(const std::string& svg, const std::string& path) {
    InModule<decltype(OrloRenderPicture)>("OrloRenderPicture")(&svg, &path);
}
