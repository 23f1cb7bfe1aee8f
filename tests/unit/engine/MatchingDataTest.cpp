#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "colour/ChromaticAdaptation.h"
#include "colour/MatrixArithmetic.h"
#include "engine/DirectPrinter.h"
#include "engine/MatchingData.h"
#include "profile/CurveSampling.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileModel.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

using Triple = std::array<std::int32_t, 3>;
using Pixel = std::array<uint16_t, 4>;

Triple Values(const FixedXYZ& xyz) {
    return {xyz.X, xyz.Y, xyz.Z};
}
std::vector<std::int32_t> Values(const FixedMatrix& matrix) {
    return {std::begin(matrix.element), std::end(matrix.element)};
}

ProfileMaker RGBPrinter() {
    ProfileMaker maker = MatrixMonitor(CurvTag({460}));
    maker.profileClass = Code("prtr");
    maker.Set("wtpt", XYZTag(0.85, 0.89, 0.71));
    return maker;
}

OwnedRecord LoadGood(const Choice& choice) {
    Loaded loaded = Load(choice);
    EXPECT_EQ(loaded.status, 0);
    return std::move(loaded.data);
}

/// What the record makes of some colours through its three transforms.
std::vector<uint16_t> Answers(const MatchingData* data) {
    std::vector<uint16_t> in;
    for (const uint16_t red : std::initializer_list<uint16_t>{0, 9000, 30000, 65535})
        for (const uint16_t green : std::initializer_list<uint16_t>{0, 20000, 65535})
            for (const uint16_t blue : std::initializer_list<uint16_t>{0, 12345, 50000, 65535}) in.insert(in.end(), {red, green, blue, 0});
    const size_t count = in.size() / 4;
    std::vector<uint16_t> answers;
    for (const auto operation : {DirectPrinterMatch16, DirectPrinterPredict16, DirectProofMatch16}) {
        std::vector<uint16_t> out(in.size());
        operation(data, in.data(), out.data(), count);
        answers.insert(answers.end(), out.begin(), out.end());
    }
    return answers;
}

Pixel PaperWhite(const MatchingData* data) {
    const Pixel noInk = {};
    Pixel white = {};
    DirectPrinterPredict16(data, noInk.data(), white.data(), 1);
    return white;
}

/// An inverse as the library makes every one: refined once.
FixedMatrix RefinedInverse(const FixedMatrix& matrix) {
    FixedMatrix inverse;
    ICC_MatrixInverse(&matrix, &inverse);
    ICC_ImproveMatrixInverse(&matrix, &inverse);
    return inverse;
}

// ---- what is in a record ----

TEST(LoadMatchingData, StartsWithOneReferenceAndNoTables) {
    const OwnedRecord data = LoadGood({kSRGBMonitor, kCMYKPrinter});
    ASSERT_TRUE(data);
    EXPECT_EQ(data->referenceCount, 1);
    EXPECT_EQ(data->tablesBuilt, 0u);
    for (const PixelTable* table : {&data->matchTable, &data->proofTable, &data->predictTable, &data->gamutTable}) EXPECT_EQ(table->table, nullptr);
    for (const ThreeDTable* table : {&data->match3D, &data->predict3D, &data->gamut3D, &data->proof3D}) {
        EXPECT_EQ(table->table, nullptr);
        EXPECT_EQ(table->gridPoints, 0u);
    }
    EXPECT_NE(data->printerMatchTransform, nullptr);
    EXPECT_NE(data->printerPredictTransform, nullptr);
    EXPECT_NE(data->proofTransform, nullptr);
}

TEST(LoadMatchingData, TakesItsWhitesFromTheProfiles) {
    const TemporaryFolder folder;
    const OwnedRecord data = LoadGood({kLuminousMonitor, folder.Write("printer.icc", RGBPrinter().Make())});
    ASSERT_TRUE(data);
    const Triple mediaWhite = {55706, 58327, 46531};  // 0.85, 0.89, 0.71
    EXPECT_EQ(Values(data->printerMediaWhite), mediaWhite);
    EXPECT_EQ(Values(data->printerWhite), mediaWhite);
    EXPECT_EQ(Values(data->referenceIlluminant), Values(PCSWhite));
    EXPECT_EQ(data->useMonitorWhite, 0u);
    EXPECT_EQ(Values(data->monitorWhite), (Triple{0, 0, 0}));
    EXPECT_EQ(data->monitorLuminance, 80 * 65536);
}

TEST(LoadMatchingData, LuminanceIsZeroWithoutATag) {
    const OwnedRecord data = LoadGood({kGammaMonitor, kCMYKPrinter});
    ASSERT_TRUE(data);
    EXPECT_EQ(data->monitorLuminance, 0);
}

TEST(LoadMatchingData, ColourSpaceIsThePrinters) {
    const TemporaryFolder folder;
    EXPECT_EQ(LoadGood({kSRGBMonitor, kCMYKPrinter})->printerColourSpace, 0x434D594Bu);
    EXPECT_EQ(LoadGood({kSRGBMonitor, folder.Write("printer.icc", RGBPrinter().Make())})->printerColourSpace, 0x52474220u);
}

TEST(LoadMatchingData, MonitorWhiteIsKeptForTheViewingConditions) {
    const FixedXYZ white = {62273, 65536, 71335};
    const OwnedRecord plain = LoadGood({kSRGBMonitor, kCMYKPrinter});
    const OwnedRecord given = LoadGood({kSRGBMonitor, kCMYKPrinter, "", 0, &white});
    ASSERT_TRUE(plain && given);
    EXPECT_EQ(given->useMonitorWhite, 1u);
    EXPECT_EQ(Values(given->monitorWhite), Values(white));
    EXPECT_EQ(Values(given->monitorShaper.matrix), Values(plain->monitorShaper.matrix));
}

TEST(LoadMatchingData, PrinterWhiteReplacesTheMediaWhiteInTheTransformsOnly) {
    const TemporaryFolder folder;
    const std::string printer = folder.Write("printer.icc", RGBPrinter().Make());
    const Bytes before = ReadFile(printer);
    const FixedXYZ white = {63190 / 2, 65536 / 2, 54061 / 2};  // half as bright as the connection white
    const OwnedRecord plain = LoadGood({kSRGBMonitor, printer});
    const OwnedRecord given = LoadGood({kSRGBMonitor, printer, "", 0, nullptr, &white});
    ASSERT_TRUE(plain && given);
    EXPECT_EQ(Values(given->printerWhite), Values(white));
    EXPECT_EQ(Values(given->printerMediaWhite), Values(plain->printerMediaWhite));
    EXPECT_EQ(Values(given->printerMediaWhite), (Triple{55706, 58327, 46531}));
    EXPECT_EQ(ReadFile(printer), before);

    // The paper is full device RGB here; its luminance is that of the white that was given.
    const Pixel fullDevice = {65535, 65535, 65535, 0};
    Pixel paper = {};
    DirectPrinterPredict16(given.get(), fullDevice.data(), paper.data(), 1);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(paper[static_cast<size_t>(c)], 32768, 40) << c;
    EXPECT_NE(Answers(given.get()), Answers(plain.get()));
}

TEST(LoadMatchingData, ReferenceInverseIsTheInverseOfTheReferenceMatrix) {
    const OwnedRecord data = LoadGood({kSRGBMonitor, kCMYKPrinter});
    ASSERT_TRUE(data);
    OSErr error = 0;
    const Owned<ColorSyncProfileRef> reference(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &error));
    FixedMatrix matrix;
    ASSERT_EQ(GetMonitorMatrix(reference.Get(), &matrix), 0);
    EXPECT_EQ(Values(data->referenceInverse), Values(RefinedInverse(matrix)));
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            long double product = 0;
            for (int k = 0; k < 3; ++k) product += static_cast<long double>(matrix.element[3 * r + k]) * data->referenceInverse.element[3 * k + c];
            // Half a unit in each element of the inverse, and one for the refinement's own rounding.
            EXPECT_NEAR(static_cast<double>(product / 65536), r == c ? 65536 : 0, 1.5) << r << c;
        }
    }
}

TEST(LoadMatchingData, MonitorModelIsTheProfilesCurvesAndMatrix) {
    const OwnedRecord data = LoadGood({kGammaMonitor, kCMYKPrinter});
    ASSERT_TRUE(data);
    const Owned<ColorSyncProfileRef> monitor(ColorSyncProfileCreateWithURL(FileURL(kGammaMonitor).Get(), nullptr));
    FixedMatrix matrix;
    ASSERT_EQ(GetMonitorMatrix(monitor.Get(), &matrix), 0);
    EXPECT_EQ(Values(data->monitorMatrix), Values(matrix));
    const char* const signatures[] = {"rTRC", "gTRC", "bTRC"};
    for (size_t channel = 0; channel < 3; ++channel) {
        uint16_t* curve = nullptr;
        uint32_t count = 0;
        ASSERT_EQ(GetColourantLUT(monitor.Get(), Code(signatures[channel]), &curve, &count), 0);
        const std::unique_ptr<uint16_t, decltype(&std::free)> owner(curve, &std::free);
        ASSERT_EQ(data->monitorShaper.counts[channel], count);
        EXPECT_EQ(std::memcmp(data->monitorShaper.curves[channel], curve, 2 * (count + 1)), 0);
        ASSERT_NE(data->monitorShaper.reverse[channel], nullptr);
        EXPECT_EQ(data->monitorShaper.reverse[channel]->entryCount, count);
    }
    // Reference inverse times monitor matrix, by the plain rule.
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            std::int64_t sum = 32768;
            for (int k = 0; k < 3; ++k) sum += std::int64_t{data->referenceInverse.element[3 * r + k]} * matrix.element[3 * k + c];
            EXPECT_EQ(data->monitorShaper.matrix.element[3 * r + c], sum >> 16) << r << c;
        }
    }
    EXPECT_EQ(Values(data->monitorShaper.inverseMatrix), Values(RefinedInverse(data->monitorShaper.matrix)));
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            long double product = 0;
            for (int k = 0; k < 3; ++k) {
                product +=
                    static_cast<long double>(data->monitorShaper.matrix.element[3 * r + k]) * data->monitorShaper.inverseMatrix.element[3 * k + c];
            }
            EXPECT_NEAR(static_cast<double>(product / 65536), r == c ? 65536 : 0, 2.5) << r << c;
        }
    }
}

TEST(LoadMatchingData, BaseModelIsAnIndependentCopyWithItsGuardEntries) {
    const TemporaryFolder folder;
    ProfileMaker maker = MatrixMonitor(CurvTag({0, 100, 40000, 65535}));
    maker.Set("gTRC", CurvTag({563}));
    maker.Set("bTRC", ParaTag(0, {1.8}));
    const OwnedRecord data = LoadGood({folder.Write("monitor.icc", maker.Make()), kCMYKPrinter});
    ASSERT_TRUE(data);
    const ICC_ShaperMatrix& working = data->monitorShaper;
    const ICC_ShaperMatrix& base = data->baseShaper;
    EXPECT_EQ(Values(base.matrix), Values(working.matrix));
    EXPECT_EQ(Values(base.inverseMatrix), Values(working.inverseMatrix));
    for (int c = 0; c < 3; ++c) {
        ASSERT_EQ(base.counts[c], working.counts[c]);
        EXPECT_NE(base.curves[c], working.curves[c]);
        EXPECT_NE(base.reverse[c], working.reverse[c]);
        EXPECT_EQ(std::memcmp(base.curves[c], working.curves[c], 2 * (base.counts[c] + 1)), 0);
        EXPECT_EQ(base.curves[c][base.counts[c]], base.curves[c][base.counts[c] - 1]);
        for (uint32_t y = 0; y < 65536; y += 257) {
            uint8_t flag = 0;
            ASSERT_EQ(ICC_ReverseOneDLookup(static_cast<uint16_t>(y), base.reverse[c], &flag),
                      ICC_ReverseOneDLookup(static_cast<uint16_t>(y), working.reverse[c], &flag));
        }
    }
}

// ---- the proofer ----

TEST(LoadMatchingData, ProoferCountsOnlyWhenChosenAndUsed) {
    const std::vector<uint16_t> without = Answers(LoadGood({kSRGBMonitor, kCMYKPrinter}).get());
    EXPECT_EQ(Answers(LoadGood({kSRGBMonitor, kCMYKPrinter, "", 1}).get()), without);
    EXPECT_EQ(Answers(LoadGood({kSRGBMonitor, kCMYKPrinter, kXYZPrinter, 0}).get()), without);
    const std::vector<uint16_t> with = Answers(LoadGood({kSRGBMonitor, kCMYKPrinter, kXYZPrinter, 1}).get());
    EXPECT_NE(with, without);
    EXPECT_EQ(Answers(LoadGood({kSRGBMonitor, kCMYKPrinter, kXYZPrinter, 255}).get()), with);
}

TEST(LoadMatchingData, ProoferThatIsNotUsedIsNotOpened) {
    const TemporaryFolder folder;
    const std::string noProfile = folder.Write("proofer.icc", Bytes(100, 1));
    EXPECT_EQ(Load({kSRGBMonitor, kCMYKPrinter, noProfile, 0}).status, 0);
    EXPECT_EQ(Load({kSRGBMonitor, kCMYKPrinter, noProfile, 1}).status, -170);
}

// ---- failures ----

struct FailureRow {
    const char* what;
    Choice choice;
    OSErr status;
};

void ExpectFailures(std::initializer_list<FailureRow> rows) {
    for (const FailureRow& row : rows) {
        const Loaded loaded = Load(row.choice);
        EXPECT_EQ(loaded.data, nullptr) << row.what;
        EXPECT_EQ(loaded.status, row.status) << row.what;
    }
}

TEST(LoadMatchingData, WithoutAPrinterNothingIsFound) {
    ExpectFailures({{"no printer", {kSRGBMonitor, ""}, -43}, {"no printer, a proofer", {kSRGBMonitor, "", kCMYKPrinter, 1}, -43}});
}

TEST(LoadMatchingData, FilesThatDoNotOpenEndTheBuild) {
    const TemporaryFolder folder;
    const std::string noProfile = folder.Write("text.icc", Bytes(500, 'x'));
    const std::string large = folder.Write("large.icc", Bytes(20971521, 0));
    ExpectFailures({
        {"monitor is no profile", {noProfile, kCMYKPrinter}, -170},
        {"printer is no profile", {kSRGBMonitor, noProfile}, -170},
        {"monitor is too large", {large, kCMYKPrinter}, -50},
        {"monitor fails before the missing printer", {large, ""}, -50},
        {"printer is too large", {kSRGBMonitor, large}, -50},
        {"printer fails before the proofer", {kSRGBMonitor, large, noProfile, 1}, -50},
        {"proofer is too large", {kSRGBMonitor, kCMYKPrinter, large, 1}, -50},
    });
}

TEST(LoadMatchingData, FilesThatAreGoneGiveTheResolversStatus) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("gone.icc", MatrixMonitor(CurvTag({563})).Make());
    const Alias gone(path);
    std::filesystem::remove(path);
    const Alias monitor(kSRGBMonitor);
    const Alias printer(kCMYKPrinter);
    const AliasHandle choices[][3] = {
        {gone.Get(), printer.Get(), nullptr}, {monitor.Get(), gone.Get(), nullptr}, {monitor.Get(), printer.Get(), gone.Get()}};
    for (const auto& choice : choices) {
        OSErr status = 0;
        testing::internal::CaptureStderr();
        EXPECT_EQ(LoadMatchingData(choice, 1, nullptr, nullptr, &status), nullptr);
        EXPECT_EQ(status, -43);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "CreateProfileFromAlias, GetAliasTarget failed (-43)\n");
    }
}

TEST(LoadMatchingData, ProfilesThatNoTransformCanUseGiveAParameterError) {
    const TemporaryFolder folder;
    ProfileMaker bare = RGBPrinter();
    for (const char* tag : {"rXYZ", "gXYZ", "bXYZ", "rTRC", "gTRC", "bTRC"}) bare.Remove(tag);
    const std::string noTables = folder.Write("bare.icc", bare.Make());
    ExpectFailures({
        {"printer without tables", {kSRGBMonitor, noTables}, -50},
        {"proofer without tables", {kSRGBMonitor, kCMYKPrinter, noTables, 1}, -50},
        {"named colours as proofer", {kSRGBMonitor, kCMYKPrinter, kNamedColours, 1}, -50},
        {"transforms before the monitor", {kCMYKPrinter, noTables}, -50},
    });
}

TEST(LoadMatchingData, PrintersDrivenByNeitherRGBNorCMYKAreUnsuitable) {
    const TemporaryFolder folder;
    const struct {
        const char* space;
        size_t channels;
        OSErr status;
    } rows[] = {{"RGB ", 3, 0},    {"CMYK", 4, 0},    {"CMY ", 3, -170}, {"GRAY", 1, -170}, {"2CLR", 2, -170},
                {"4CLR", 4, -170}, {"6CLR", 6, -170}, {"8CLR", 8, -170}, {"HSV ", 3, -170}};
    for (const auto& row : rows) {
        const Loaded loaded = Load({kSRGBMonitor, folder.Write(row.space, GridPrinter(row.space, row.channels).Make())});
        EXPECT_EQ(loaded.status, row.status) << row.space;
        EXPECT_EQ(loaded.data != nullptr, row.status == 0) << row.space;
    }
}

TEST(LoadMatchingData, ProofersOfMoreThanTenChannelsAreUnsuitable) {
    const TemporaryFolder folder;
    const struct {
        const char* space;
        size_t channels;
        OSErr status;
    } rows[] = {{"6CLR", 6, 0}, {"ACLR", 10, 0}, {"MCHA", 10, 0}, {"BCLR", 11, -170}, {"MCHB", 11, -170}, {"FCLR", 15, -170}, {"MCHF", 15, -170}};
    for (const auto& row : rows) {
        const Choice choice = {kSRGBMonitor, kCMYKPrinter, folder.Write(row.space, GridPrinter(row.space, row.channels).Make()), 1};
        const Loaded loaded = Load(choice);
        EXPECT_EQ(loaded.status, row.status) << row.space;
        EXPECT_EQ(loaded.data != nullptr, row.status == 0) << row.space;
    }
}

TEST(LoadMatchingData, MonitorsWithoutAUsableModelAreUnsuitable) {
    const TemporaryFolder folder;
    int made = 0;
    const auto write = [&](const ProfileMaker& maker) { return folder.Write("monitor" + std::to_string(made++) + ".icc", maker.Make()); };
    ProfileMaker incomplete = MatrixMonitor(CurvTag({563}));
    incomplete.Remove("bTRC");
    ProfileMaker badCurve = MatrixMonitor(CurvTag({563}));
    badCurve.Set("gTRC", ParaTag(5, {1, 1, 1, 1, 1, 1, 1}));
    Bytes lying = CurvTag({0, 65535});
    Put32(lying, 8, 1000);
    ProfileMaker lyingCurve = MatrixMonitor(CurvTag({563}));
    lyingCurve.Set("bTRC", lying);
    ExpectFailures({
        {"a printer with tables only", {kCMYKPrinter, kCMYKPrinter}, -170},
        {"one curve missing", {write(incomplete), kCMYKPrinter}, -170},
        {"unknown function type", {write(badCurve), kCMYKPrinter}, -170},
        {"curve shorter than it says", {write(lyingCurve), kCMYKPrinter}, -170},
    });
}

TEST(LoadMatchingData, MonitorsWhoseMatrixHasNoInverseAreUnsuitable) {
    const TemporaryFolder folder;
    struct Row {
        const char* what;
        Bytes blue;
    };
    const Row rows[] = {
        {"no blue", RawXYZTag(0, 0, 0)},
        {"blue as red", XYZTag(0.43607, 0.22249, 0.01392)},
        {"blue as twice green", XYZTag(2 * 0.38515, 2 * 0.71687, 2 * 0.09708)},
        {"blue between red and green", XYZTag((0.43607 + 0.38515) / 2, (0.22249 + 0.71687) / 2, (0.01392 + 0.09708) / 2)},
        {"blue too short to read", Bytes(19, 0)},
        {"blue of one unit", RawXYZTag(0, 0, 1)},
    };
    for (const Row& row : rows) {
        ProfileMaker maker = MatrixMonitor(CurvTag({563}));
        maker.Set("bXYZ", row.blue);
        ExpectFailures({{row.what, {folder.Write("monitor.icc", maker.Make()), kCMYKPrinter}, -170}});
    }
    // Colourants of any size are judged without overflow.
    for (const std::int32_t extreme : {0x7FFFFFFF, -0x7FFFFFFF - 1}) {
        ProfileMaker maker = MatrixMonitor(CurvTag({563}));
        maker.Set("rXYZ", RawXYZTag(extreme, 0, 0));
        maker.Set("gXYZ", RawXYZTag(0, extreme, 0));
        maker.Set("bXYZ", RawXYZTag(0, 0, extreme));
        const Loaded loaded = Load({folder.Write("monitor.icc", maker.Make()), kCMYKPrinter});
        EXPECT_EQ(loaded.data == nullptr, loaded.status != 0) << extreme;
    }
}

TEST(LoadMatchingData, CurvesOfAnyShapeLoadOrAreRefusedWithAStatus) {
    const TemporaryFolder folder;
    const auto swinging = [](size_t entries) {
        std::vector<uint16_t> curve(entries);
        for (size_t i = 0; i < entries; ++i) curve[i] = i % 2 ? 65535 : 0;
        return CurvTag(curve);
    };
    std::vector<uint16_t> longRising(65536);
    for (size_t i = 0; i < longRising.size(); ++i) longRising[i] = static_cast<uint16_t>(i);
    struct Row {
        const char* what;
        Bytes curve;
        OSErr status;
    };
    const Row rows[] = {
        {"rising, 65536 entries", CurvTag(longRising), 0},
        {"70000 entries", CurvTag(std::vector<uint16_t>(70000, 5)), -108},
        {"flat", CurvTag({1000, 1000, 1000}), 0},
        {"flat at 0", CurvTag({0, 0}), 0},
        {"falling", CurvTag({65535, 0}), 0},
        {"the longest that swings: 20,964,276 bytes for the inverses of three", swinging(1321), 0},
        {"one entry more", swinging(1322), -108},
        {"swinging over 8100 entries", swinging(8100), -108},
        {"swinging over 65536 entries", swinging(65536), -108},
    };
    for (const Row& row : rows) {
        const Loaded loaded = Load({folder.Write("monitor.icc", MatrixMonitor(row.curve).Make()), kCMYKPrinter});
        EXPECT_EQ(loaded.status, row.status) << row.what;
        EXPECT_EQ(loaded.data == nullptr, row.status != 0) << row.what;
    }
}

// ---- disposal ----

TEST(DisposeMatchingData, NullIsAllowed) {
    DisposeMatchingData(nullptr);
}

TEST(DisposeMatchingData, ReleasesTheTransformsAndWhateverWasAllocated) {
    const Owned<CFStringRef> object(CFStringCreateWithCString(nullptr, "stands for a transform", kCFStringEncodingASCII));
    auto* data = static_cast<MatchingData*>(std::calloc(1, sizeof(MatchingData)));
    auto* transform = reinterpret_cast<ColorSyncTransformRef>(const_cast<__CFString*>(object.Get()));
    data->printerMatchTransform = data->printerPredictTransform = data->proofTransform = transform;
    for (int i = 0; i < 3; ++i) CFRetain(object.Get());
    for (ThreeDTable* table : {&data->match3D, &data->predict3D, &data->gamut3D, &data->proof3D}) {
        table->table = static_cast<uint16_t*>(std::calloc(27, sizeof(uint16_t)));
    }
    ASSERT_EQ(CreateTablePixel16(2, &data->proofTable), 0);
    ASSERT_EQ(CreateTableUInt8(2, &data->gamutTable), 0);
    EXPECT_EQ(CFGetRetainCount(object.Get()), 4);
    DisposeMatchingData(data);  // a leak checker sees what stays behind
    EXPECT_EQ(CFGetRetainCount(object.Get()), 1);
}

TEST(DisposeMatchingData, EmptyRecordFreesNothingElse) {
    DisposeMatchingData(static_cast<MatchingData*>(std::calloc(1, sizeof(MatchingData))));
}

TEST(LoadMatchingData, TransformsOutliveTheProfiles) {
    const TemporaryFolder folder;
    const std::string printer = folder.Write("printer.icc", ReadFile(kCMYKPrinter));
    const OwnedRecord data = LoadGood({kSRGBMonitor, printer});
    ASSERT_TRUE(data);
    const Pixel white = PaperWhite(data.get());
    std::filesystem::remove(printer);
    EXPECT_EQ(PaperWhite(data.get()), white);
}

}  // namespace
