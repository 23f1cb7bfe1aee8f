// A host that knows the library by its file alone. It is not linked with it, and finds every name at run time.

#include <cstring>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include "tests/fixtures/TemporaryFolder.h"
#include "tests/system/LoadedLibrary.h"

namespace {

const LoadedLibrary& Library() {
    static const LoadedLibrary library(RTLD_LOCAL);
    return library;
}

// Every operation takes (source, destination, count); which words they hold does not matter here.
using Operation = int16_t (*)(const void* source, void* destination, size_t count);

const char* const kOperations[] = {
    "MonitorMatch",   "MonitorMatch16",   "MonitorPredict",   "MonitorPredict16",   "MonitorGamut",
    "PrinterMatch",   "PrinterMatch16",   "PrinterPredict",   "PrinterPredict16",   "PrinterGamut",
    "SoftProofMatch", "SoftProofMatch16", "SoftProofPredict", "SoftProofPredict16", "SoftProofGamut",
};

class OperationTest : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(All, OperationTest, testing::ValuesIn(kOperations), [](const auto& row) { return std::string(row.param); });

TEST_P(OperationTest, BeforeAnyLoadAnswers1000AndTouchesNoBuffer) {
    std::vector<uint8_t> source(64), destination(64);
    std::iota(source.begin(), source.end(), uint8_t{1});
    std::iota(destination.begin(), destination.end(), uint8_t{101});
    const std::vector<uint8_t> sourceBefore = source, destinationBefore = destination;
    const auto operation = Library().Find<Operation>(GetParam());
    EXPECT_EQ(operation(source.data(), destination.data(), 8), 1000);
    EXPECT_EQ(source, sourceBefore);
    EXPECT_EQ(destination, destinationBefore);
}

TEST_P(OperationTest, BeforeAnyLoadNeedsNoBuffers) {
    EXPECT_EQ(Library().Find<Operation>(GetParam())(nullptr, nullptr, 0), 1000);
}

TEST(DlopenHost, BeforeAnyLoadThePrinterColourSpaceIs1) {
    EXPECT_EQ(FIND(Library(), PrinterColourSpace)(), 1u);
}

TEST(DlopenHost, BeforeAnyLoadThereIsNoMatchingData) {
    EXPECT_EQ(FIND(Library(), GetMatchingData)(), nullptr);
}

TEST(DlopenHost, NamesStayOutOfTheProcess) {
    ASSERT_NE(FIND(Library(), MonitorMatch), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "MonitorMatch"), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "CFRelease"), nullptr);
}

TEST(DlopenHost, ClosingTheLibraryLeavesItLoaded) {
    ASSERT_NE(FIND(Library(), PrinterColourSpace), nullptr);
    const char* const file = CM_BINARY_DIR "/lib/libcolourmatch.so.2";
    void* const again = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(again, nullptr) << dlerror();
    const auto operation = reinterpret_cast<decltype(&PrinterColourSpace)>(dlsym(again, "PrinterColourSpace"));
    EXPECT_EQ(dlclose(again), 0);
    EXPECT_EQ(dlclose(again), 0);  // this program's other reference too
    ASSERT_NE(dlopen(file, RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD), nullptr);
    EXPECT_EQ(operation(), 1u);
}

AliasHandle NewAlias(const char* path, const LoadedLibrary& library = Library()) {
    const CFURLRef url = FIND(library, CFURLCreateFromFileSystemRepresentation)(nullptr, reinterpret_cast<const UInt8*>(path),
                                                                                static_cast<CFIndex>(std::strlen(path)), false);
    FSRef file = {};
    AliasHandle alias = nullptr;
    EXPECT_TRUE(FIND(library, CFURLGetFSRef)(url, &file)) << path;
    EXPECT_EQ(FIND(library, FSNewAlias)(nullptr, &file, &alias), 0) << path;
    FIND(library, CFRelease)(url);
    return alias;
}

TEST(DlopenHost, TheReferenceProfileIsFoundBesideTheLibraryAndColoursAreMatched) {
    const AliasHandle profiles[3] = {NewAlias("/usr/share/color/argyll/ref/sRGB.icm"), NewAlias("/usr/share/color/icc/ghostscript/default_cmyk.icc"),
                                     nullptr};
    OSErr status = 1;
    MatchingData* const data = FIND(Library(), LoadMatchingData)(profiles, 0, nullptr, nullptr, &status);
    for (const AliasHandle alias : profiles) {
        if (alias) FIND(Library(), DisposeHandle)(reinterpret_cast<Handle>(alias));
    }
    ASSERT_EQ(status, 0);
    ASSERT_NE(data, nullptr);
    FIND(Library(), SetMatchingData)(data);

    const uint16_t grey[4] = {14135, 14135, 14135, 7};
    uint16_t monitor[4] = {1, 2, 3, 9};
    EXPECT_EQ(FIND(Library(), MonitorMatch16)(grey, monitor, 1), 0);
    // A linear value of 14135 is one of 32896 on the curve of an sRGB monitor; the profile's table of 1024 entries has steps of 64.
    for (int channel = 0; channel < 3; ++channel) EXPECT_NEAR(monitor[channel], 32896, 64) << channel;
    EXPECT_EQ(monitor[3], 9);
    EXPECT_EQ(FIND(Library(), PrinterColourSpace)(), 0x434D594Bu);

    FIND(Library(), ReleaseMatchingData)(data);  // the reference that PrinterColourSpace leaves behind
    FIND(Library(), SetMatchingData)(nullptr);
    EXPECT_EQ(FIND(Library(), MonitorMatch16)(grey, monitor, 1), 1000);
}

// Before anything else is looked at: the monitor here is no profile.
TEST(DlopenHost, WithoutItsReferenceProfileNothingIsFoundAndNothingIsBuilt) {
    const TemporaryFolder folder;
    std::filesystem::copy_file(kBuiltLibrary, folder / "libcolourmatch.so.2");
    const LoadedLibrary alone(RTLD_LOCAL, folder / "libcolourmatch.so.2");
    const std::string text = folder.Write("text.icc", std::vector<uint8_t>(500, 'x'));
    const auto load = [&] {
        const AliasHandle noProfile = NewAlias(text.c_str(), alone);
        const AliasHandle profiles[3] = {noProfile, noProfile, nullptr};
        OSErr status = 1;
        EXPECT_EQ(FIND(alone, LoadMatchingData)(profiles, 0, nullptr, nullptr, &status), nullptr);
        FIND(alone, DisposeHandle)(reinterpret_cast<Handle>(noProfile));
        return status;
    };
    EXPECT_EQ(load(), -43) << "no file";
    std::filesystem::create_directory(folder / "colourmatch-2");
    folder.Write("colourmatch-2/MatrixCalRGB.icc", std::vector<uint8_t>(500, 'x'));
    EXPECT_EQ(load(), -43) << "a file that is no profile";
    std::filesystem::copy_file(CM_BINARY_DIR "/lib/colourmatch-2/MatrixCalRGB.icc", folder / "colourmatch-2/MatrixCalRGB.icc",
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(load(), -170) << "the monitor comes next";
}

}  // namespace
