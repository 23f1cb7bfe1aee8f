// Every request for memory that a load makes fails in turn, in the libraries beneath as well (tests/fixtures/WatchedHeap.h). Each load runs in a
// process of its own, so that nothing is known from an earlier one.

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>

#include "appearance/ViewingConditions.h"
#include "engine/MatchingData.h"
#include "profile/CurveSampling.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileModel.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/WatchedHeap.h"

using heap::Armed;
using heap::Refusing;

namespace {

bool sReferenceFailed = false;

}  // namespace

extern "C" {

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
    const heap::Unarmed unarmed;
    for (CFIndex i = 0; i < CFArrayGetCount(sequence); ++i) {
        const auto* step = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(sequence, i));
        const auto* profile = static_cast<ColorSyncProfileRef>(CFDictionaryGetValue(step, kColorSyncProfile));
        sTransforms += std::to_string(GetMediaWhitePoint(profile).X) + " ";
    }
    sTransforms += "; ";
    return static_cast<ColorSyncTransformRef>(const_cast<void*>(CFRetain(sequence)));
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

/// With each request refused, alone and with all after it, the work answers -108 or what it answers with enough memory.
void ExpectItSaysSoOrIsRight(const std::function<std::string()>& work, const std::string& whole) {
    EXPECT_EQ(Refusing(0, false, work), whole);
    int refused[2] = {};
    heap::RefuseEach(work, [&](std::size_t n, bool forGood, const std::string& answer) {
        refused[forGood] += answer == "-108";
        EXPECT_TRUE(answer == "-108" || (answer == whole && !forGood)) << n << ": " << answer;
    });
    EXPECT_GT(refused[false], 2);
    EXPECT_GT(refused[true], 2);
}

struct ShortOfMemory : testing::Test {
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
    struct {
        int refused, answered, references;
    } counts[2] = {};
    heap::RefuseEach(load, [&](std::size_t n, bool forGood, const std::string& answer) {
        auto& count = counts[forGood];
        count.refused += answer == "-108";
        count.answered += answer == whole;
        count.references += answer == "-43 reference";
        EXPECT_TRUE(answer == "-108" || answer == whole || answer == "-43 reference") << n << (forGood ? " and all after: " : ": ") << answer;
    });
    for (const auto& count : counts) {
        EXPECT_GT(count.refused, 50);
        EXPECT_GT(count.references, 10);
    }
    // What is kept for the next time can be done without.
    EXPECT_GT(counts[false].answered, 0);
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
             Owned<ColorSyncProfileRef> profile;
             {
                 const Armed armed;
                 profile.Reset(CreateProfileFromFSRef(&file, &status));
             }
             return profile ? "0" : std::to_string(status);
         },
         "0"},
        {"the platform's error",
         [&] {
             const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())));
             CFErrorRef error = nullptr;
             Owned<ColorSyncProfileRef> profile;
             {
                 const Armed armed;
                 profile.Reset(ColorSyncProfileCreate(data.Get(), &error));
             }
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
             OSErr status = 0;
             {
                 const Armed armed;
                 status = Get3DTable(profile.Get(), Code("A2B0"), matrix, &points, &table);
             }
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
            OSErr status = 0;
            {
                const Armed armed;
                status = row.check(alias.Get());
            }
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

// ---- how much one takes ----

namespace {

std::vector<uint16_t> Swinging(size_t entries) {
    std::vector<uint16_t> curve(entries);
    for (size_t i = 0; i < entries; ++i) curve[i] = i % 2 ? 65535 : 0;
    return curve;
}

/// What loading, viewing conditions and quality 1 take at most of the heap beyond what was in use, in MiB.
size_t MostMiBOfARecord(const std::string& monitor) {
    const size_t before = heap::BytesInUse();
    heap::ForgetPeak();
    const Loaded loaded = Load({monitor, kCMYKPrinter});
    if (loaded.data) {
        const ViewingConditions conditions = {-0.03, 1.0, 0.0, 0.0, false};
        DirectICCSetViewingConditions(loaded.data.get(), 0x52647230, &conditions);
        SetDirectMatchingQuality(loaded.data.get(), 0x51756131);
    }
    return (heap::PeakBytes() - before) >> 20;
}

}  // namespace

TEST(MemoryOfARecord, IsBoundedWhateverTheMonitorsCurves) {
    const TemporaryFolder folder;
    const struct {
        const char* what;
        std::vector<uint16_t> curve;
    } rows[] = {{"as many swings as are taken", Swinging(1321)},
                {"a swing more", Swinging(1322)},
                {"16 kB of them", Swinging(8100)},
                {"65536 of them", Swinging(65536)},
                {"a rising one of 65536 entries", std::vector<uint16_t>(65536, 9)}};
    for (const auto& row : rows) {
        EXPECT_LE(MostMiBOfARecord(folder.Write("monitor.icc", MatrixMonitor(CurvTag(row.curve)).Make())), 64U) << row.what;
    }
}
