// A host with symbols of its own that carry the library's names: they must not take the place of the library's inside the library.
//
// This program exports them, so that they come first in the search order of everything loaded later.

#include "tests/system/LoadedLibrary.h"

namespace {
int sHostReleases, sHostMultiplies;
}

extern "C" {
void CFRelease(CFTypeRef) {
    ++sHostReleases;
}
void ICC_FixedMatrixMultiply(const FixedMatrix*, const FixedXYZ*, FixedXYZ* result) {
    ++sHostMultiplies;
    *result = {1, 1, 1};
}
short gLastError = 77;
const FixedXYZ PCSWhite = {1, 2, 3};
}

namespace {

const LoadedLibrary& Library() {
    static const LoadedLibrary library(RTLD_GLOBAL);
    return library;
}

TEST(HostSymbol, TheHostsOwnComeFirstInTheProcess) {
    ASSERT_NE(FIND(Library(), CFRelease), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "CFRelease"), reinterpret_cast<void*>(&CFRelease));
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "PCSWhite"), static_cast<const void*>(&PCSWhite));
    EXPECT_NE(FIND(Library(), CFRelease), &CFRelease);
}

TEST(HostSymbol, OperationsInsideTheLibraryAreItsOwn) {
    const CFStringRef text = FIND(Library(), CFStringCreateWithCString)(nullptr, "xyz:95.021,100,108.849", kCFStringEncodingUTF8);
    FixedXYZ white = {};
    EXPECT_TRUE(FIND(Library(), ExtractPCSXYZ)(text, &white));
    EXPECT_EQ(sHostReleases, 0);
    EXPECT_EQ(sHostMultiplies, 0);
    FIND(Library(), CFRelease)(text);
    // D65 adapted to the connection space is that space's white, but for the rounding of the adaptation.
    const FixedXYZ& pcsWhite = *FIND(Library(), PCSWhite);
    EXPECT_NEAR(white.X, pcsWhite.X, 8);
    EXPECT_NEAR(white.Y, pcsWhite.Y, 8);
    EXPECT_NEAR(white.Z, pcsWhite.Z, 8);
}

TEST(HostSymbol, VariablesInsideTheLibraryAreItsOwn) {
    EXPECT_EQ(FIND(Library(), PCSWhite)->Y, 65536);
    try {
        FIND(Library(), Fail)(-43);
    } catch (long raised) {
        EXPECT_EQ(raised, 0x65727220);
    }
    EXPECT_EQ(*FIND(Library(), gLastError), -43);
    EXPECT_EQ(gLastError, 77);
}

}  // namespace
