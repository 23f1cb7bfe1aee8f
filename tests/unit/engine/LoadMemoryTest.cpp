// Every request for memory that a load makes fails in turn, in the libraries beneath as well: the whole program's malloc passes through here, and is
// refused to this program, the C++ library and Little CMS. (GLib ends the process where it gets no memory, and Little CMS where it gets none for a
// mutex.) Each load runs in a process of its own, so
// that nothing is known from an earlier one. Not for sanitised builds, which have their own malloc.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "engine/MatchingData.h"
#include "profile/CurveSampling.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileModel.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

struct Range {
    std::uintptr_t start, end;
    bool isEngine;
};
Range sRanges[16];
std::size_t sRangeCount = 0;

bool sArmed = false;
bool sForGood = false;       // from the one request on, instead of that one alone
std::size_t sCountdown = 0;  // requests until then
bool sReferenceFailed = false;

/// Where the code lies whose requests may be refused.
int NoteModule(dl_phdr_info* module, std::size_t, void*) {
    const std::string_view name = module->dlpi_name;
    if (!name.empty() && name.find("libstdc++") == name.npos && name.find("liblcms2") == name.npos) return 0;
    for (int i = 0; i < module->dlpi_phnum; ++i) {
        const auto& part = module->dlpi_phdr[i];
        if (part.p_type != PT_LOAD || !(part.p_flags & PF_X) || sRangeCount == std::size(sRanges)) continue;
        const std::uintptr_t start = module->dlpi_addr + part.p_vaddr;
        sRanges[sRangeCount++] = {start, start + part.p_memsz, name.find("liblcms2") != name.npos};
    }
    return 0;
}

bool IsRefused(const void* caller, std::size_t size) {
    if (!sArmed) return false;
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    const Range* range = sRanges;
    while (range < sRanges + sRangeCount && (address < range->start || address >= range->end)) ++range;
    if (range == sRanges + sRangeCount || (range->isEngine && size == sizeof(pthread_mutex_t))) return false;
    if (sCountdown > 0 && --sCountdown > 0) return false;
    if (!sForGood) sArmed = false;
    errno = ENOMEM;
    return true;
}

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
    return IsRefused(__builtin_return_address(0), size) ? nullptr : __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
    return IsRefused(__builtin_return_address(0), count * size) ? nullptr : __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) {
    return IsRefused(__builtin_return_address(0), size) ? nullptr : __libc_realloc(block, size);
}

ColorSyncProfileRef __real_CreateProfileFromNamedResource(CFStringRef name, OSErr* error);
ColorSyncProfileRef __wrap_CreateProfileFromNamedResource(CFStringRef name, OSErr* error);
ColorSyncTransformRef __wrap_ColorSyncTransformCreate(CFArrayRef sequence, CFDictionaryRef options);

ColorSyncProfileRef __wrap_CreateProfileFromNamedResource(CFStringRef name, OSErr* error) {
    ColorSyncProfileRef profile = __real_CreateProfileFromNamedResource(name, error);
    if (!profile) sReferenceFailed = true;
    return profile;
}

}  // extern "C"

namespace {

/// What the transforms were asked to be made of.
std::string sTransforms;

}  // namespace

/// Stands in for the making of a transform, which has a status of its own: notes the steps, each by its profile's media white.
extern "C" __attribute__((used)) ColorSyncTransformRef __wrap_ColorSyncTransformCreate(CFArrayRef sequence, CFDictionaryRef) {
    const bool wasArmed = std::exchange(sArmed, false);
    for (CFIndex i = 0; i < CFArrayGetCount(sequence); ++i) {
        const auto* step = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(sequence, i));
        const auto* profile = static_cast<ColorSyncProfileRef>(CFDictionaryGetValue(step, kColorSyncProfile));
        sTransforms += std::to_string(GetMediaWhitePoint(profile).X) + " ";
    }
    sTransforms += "; ";
    auto* stand = static_cast<ColorSyncTransformRef>(const_cast<void*>(CFRetain(sequence)));
    sArmed = wasArmed;
    return stand;
}

namespace {

std::string Numbers(const FixedXYZ& xyz) {
    return std::to_string(xyz.X) + "," + std::to_string(xyz.Y) + "," + std::to_string(xyz.Z) + " ";
}

std::string Numbers(const FixedMatrix& matrix) {
    std::string text;
    for (const int32_t element : matrix.element) text += std::to_string(element) + " ";
    return text;
}

/// All that a load reads from profiles.
std::string Described(const MatchingData& data) {
    std::string text = sTransforms + Numbers(data.printerWhite) + Numbers(data.printerMediaWhite) + Numbers(data.referenceIlluminant) +
                       Numbers(data.monitorWhite) + Numbers(data.referenceInverse) + Numbers(data.monitorMatrix) +
                       Numbers(data.monitorShaper.inverseMatrix) + std::to_string(data.monitorLuminance) + " " +
                       std::to_string(data.printerColourSpace);
    for (const ICC_ShaperMatrix* shaper : {&data.monitorShaper, &data.baseShaper}) {
        for (int c = 0; c < 3; ++c) text += " " + std::to_string(shaper->counts[c]) + ":" + std::to_string(shaper->curves[c][shaper->counts[c] / 2]);
    }
    return text;
}

/// Runs `work` in a process of its own with the n-th request refused (0: none). The text that it answers, "(enough)" when there were fewer requests.
std::string Refusing(std::size_t n, bool forGood, const std::function<std::string()>& work) {
    return InAChild([&]() -> std::string {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDERR_FILENO);  // an alias that does not resolve is told there
        sForGood = forGood;
        sCountdown = n;
        const std::string answer = work();
        return n > 0 && sCountdown > 0 ? "(enough)" : answer;
    });
}

class Armed {
public:
    Armed() { sArmed = sCountdown > 0; }
    ~Armed() { sArmed = false; }
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
};

/// With each request refused, alone and with all after it, the work answers -108 or what it answers with enough memory.
void ExpectItSaysSoOrIsRight(const std::function<std::string()>& work, const std::string& whole) {
    EXPECT_EQ(Refusing(0, false, work), whole);
    for (const bool forGood : {false, true}) {
        int refused = 0;
        for (std::size_t n = 1;; ++n) {
            ASSERT_LT(n, 1000U);
            const std::string answer = Refusing(n, forGood, work);
            if (answer == "(enough)") break;
            refused += answer == "-108";
            EXPECT_TRUE(answer == "-108" || (answer == whole && !forGood)) << n << ": " << answer;
        }
        EXPECT_GT(refused, 2);
    }
}

struct ShortOfMemory : testing::Test {
    static void SetUpTestSuite() { dl_iterate_phdr(NoteModule, nullptr); }

    TemporaryFolder folder;
};

}  // namespace

TEST_F(ShortOfMemory, ALoadSaysSoOrIsRight) {
    ProfileMaker monitorMaker = MatrixMonitor(CurvTag({0, 9000, 65535}));
    monitorMaker.Set("lumi", XYZTag(0, 80, 0));
    ProfileMaker printerMaker = MatrixMonitor(CurvTag({460}));
    printerMaker.profileClass = Code("prtr");
    printerMaker.Set("wtpt", XYZTag(0.9, 0.9, 0.8));
    const Alias monitor(folder.Write("monitor.icc", monitorMaker.Make()));
    const Alias printer(folder.Write("printer.icc", printerMaker.Make()));
    printerMaker.Set("wtpt", XYZTag(0.7, 0.7, 0.6));
    const Alias proofer(folder.Write("proofer.icc", printerMaker.Make()));
    const AliasHandle aliases[3] = {monitor.Get(), printer.Get(), proofer.Get()};
    const FixedXYZ white = {60000, 61000, 62000};

    const auto load = [&]() -> std::string {
        OSErr status = 12345;
        MatchingData* data = nullptr;
        {
            const Armed armed;
            data = LoadMatchingData(aliases, 1, &white, &white, &status);
        }
        const OwnedRecord owner(data);
        // The library's own profile is not found, whatever keeps it from being made.
        if (!data) return std::to_string(status) + (sReferenceFailed ? " reference" : "");
        return status == 0 ? Described(*data) : "a record with status " + std::to_string(status);
    };
    const std::string whole = Refusing(0, false, load);
    ASSERT_GT(whole.size(), 200U) << whole;
    for (const bool forGood : {false, true}) {
        int refused = 0, answered = 0, references = 0;
        for (std::size_t n = 1;; ++n) {
            ASSERT_LT(n, 3000U);
            const std::string answer = Refusing(n, forGood, load);
            if (answer == "(enough)") break;
            refused += answer == "-108";
            answered += answer == whole;
            references += answer == "-43 reference";
            EXPECT_TRUE(answer == "-108" || answer == whole || answer == "-43 reference") << n << (forGood ? " and all after: " : ": ") << answer;
        }
        EXPECT_GT(refused, 50) << forGood;
        EXPECT_GT(references, 10) << forGood;
        // What is kept for the next time can be done without.
        EXPECT_TRUE(forGood || answered > 0);
    }
}

TEST_F(ShortOfMemory, ReadingAProfileSaysSoOrIsRight) {
    const Bytes bytes = MatrixMonitor(CurvTag({0, 9000, 65535})).Set("A2B0", TagOfType("mft2")).Make();
    const std::string path = folder.Write("monitor.icc", bytes);
    const FSRef file = FileRef(path);
    const struct {
        const char* what;
        std::function<std::string()> work;
        const char* whole;
    } rows[] = {
        {"opening",
         [&] {
             OSErr status = 12345;
             const Armed armed;
             const Owned<ColorSyncProfileRef> profile(CreateProfileFromFSRef(&file, &status));
             sArmed = false;
             return profile ? "0" : std::to_string(status);
         },
         "0"},
        {"the platform's error",
         [&] {
             const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())));
             CFErrorRef error = nullptr;
             const Armed armed;
             const Owned<ColorSyncProfileRef> profile(ColorSyncProfileCreate(data.Get(), &error));
             sArmed = false;
             // There need be no memory for an error either.
             const Owned<CFErrorRef> owner(error);
             return profile ? "0" : !error || CFErrorGetCode(error) == ENOMEM ? "-108" : std::to_string(CFErrorGetCode(error));
         },
         "0"},
        {"a curve",
         [&] {
             const auto profile = ProfileFrom(bytes);
             uint16_t* table = nullptr;
             uint32_t count = 0;
             OSErr status = 0;
             {
                 const Armed armed;
                 status = GetColourantLUT(profile.Get(), Code("gTRC"), &table, &count);
             }
             const bool isWhole = table && table[1] == 9000 && count == 3;
             std::free(table);
             return isWhole ? "9000" : std::to_string(status);
         },
         "9000"},
        {"the matrix",
         [&] {
             const auto profile = ProfileFrom(bytes);
             FixedMatrix matrix = {};
             OSErr status = 0;
             {
                 const Armed armed;
                 status = GetMonitorMatrix(profile.Get(), &matrix);
             }
             return status == 0 ? std::to_string(matrix.element[4]) : std::to_string(status);
         },
         "23490"},
        {"a table",
         [&] {
             const auto profile = ProfileFrom(bytes);
             int32_t matrix[9];
             uint32_t points = 0;
             uint16_t* table = nullptr;
             const Armed armed;
             const OSErr status = Get3DTable(profile.Get(), Code("A2B0"), matrix, &points, &table);
             sArmed = false;
             return std::to_string(status);
         },
         "-170"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        ExpectItSaysSoOrIsRight(row.work, row.whole);
    }
}

TEST_F(ShortOfMemory, CheckingAProfileSaysSoOrIsRight) {
    ProfileMaker maker = MatrixMonitor(CurvTag({0, 9000, 65535}));
    const std::string monitor = folder.Write("monitor.icc", maker.Make());
    maker.profileClass = Code("prtr");
    const std::string printer = folder.Write("printer.icc", maker.Make());
    const struct {
        const char* what;
        OSErr (*check)(AliasHandle);
        const std::string& file;
    } rows[] = {
        {"a monitor's", ICC_ValidateMonitorAlias, monitor},
        {"a printer's", ICC_ValidatePrinterAlias, printer},
        {"a proofer's", ICC_ValidateProoferAlias, printer},
    };
    for (const auto& row : rows) {
        const Alias alias(row.file);
        const auto check = [&] {
            const Armed armed;
            const OSErr status = row.check(alias.Get());
            sArmed = false;
            return std::to_string(status);
        };
        SCOPED_TRACE(row.what);
        ExpectItSaysSoOrIsRight(check, "0");
    }
}

TEST_F(ShortOfMemory, WhatIsNoProfileIsStillNone) {
    const FSRef file = FileRef(folder.Write("text", Bytes(500, 'x')));
    OSErr status = 12345;
    errno = ENOMEM;  // of something before
    EXPECT_EQ(CreateProfileFromFSRef(&file, &status), nullptr);
    EXPECT_EQ(status, 0);
}
