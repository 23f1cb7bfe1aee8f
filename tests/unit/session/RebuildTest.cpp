// A change of the viewing conditions with unchanged profiles: what it opens and makes again, counted below the code under test, and what comes out.
//
// With arguments this program is another process, which loads once and writes what came out: QUALITY FLARE MONITOR PRINTER PROOFER FILE.

#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <stdarg.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "engine/DirectMonitor.h"
#include "engine/DirectPrinter.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/FixedValues.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/SettingsStore.h"

namespace {

std::atomic<int> sOpens = 0;   // of profiles' files
std::atomic<int> sParsed = 0;  // profiles that the colour engine read
std::atomic<int> sLinked = 0;  // transforms that it made

std::string sProgram;

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
void* __real_cmsOpenProfileFromMemTHR(void* context, const void* bytes, unsigned size);
void* __wrap_cmsOpenProfileFromMemTHR(void* context, const void* bytes, unsigned size);
void* __real_cmsCreateExtendedTransform(void* context, unsigned count, void** profiles, int* compensations, unsigned* intents, double* states,
                                        void* gamut, unsigned gamutPlace, unsigned from, unsigned to, unsigned flags);
void* __wrap_cmsCreateExtendedTransform(void* context, unsigned count, void** profiles, int* compensations, unsigned* intents, double* states,
                                        void* gamut, unsigned gamutPlace, unsigned from, unsigned to, unsigned flags);

int __wrap_open(const char* path, int flags, ...) {
    const std::string name = path;
    if (name.ends_with(".icc") || name.ends_with(".icm")) ++sOpens;
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    return __real_open(path, flags, mode);
}

void* __wrap_cmsOpenProfileFromMemTHR(void* context, const void* bytes, unsigned size) {
    ++sParsed;
    return __real_cmsOpenProfileFromMemTHR(context, bytes, size);
}

void* __wrap_cmsCreateExtendedTransform(void* context, unsigned count, void** profiles, int* compensations, unsigned* intents, double* states,
                                        void* gamut, unsigned gamutPlace, unsigned from, unsigned to, unsigned flags) {
    ++sLinked;
    return __real_cmsCreateExtendedTransform(context, count, profiles, compensations, intents, states, gamut, gamutPlace, from, to, flags);
}

}  // extern "C"

namespace {

struct Work {
    int opens, parsed, linked;
    bool operator==(const Work&) const = default;
};
void PrintTo(const Work& work, std::ostream* stream) {
    *stream << work.opens << " opens, " << work.parsed << " parsed, " << work.linked << " linked";
}
Work Done() {
    return {sOpens.exchange(0), sParsed.exchange(0), sLinked.exchange(0)};
}

/// Loads with a flare; the answer is the status.
int LoadWith(const ICCProfileLocation& location, double flare) {
    const ViewingConditions conditions = {flare, 1.0, 0.0, 0.0, false};
    ICC_SetViewingConditions(Code("Rdr0"), &conditions);
    return ICC_Load(&location);
}

/// Three aliases as the settings hold them.
struct Location {
    Location(const std::string& monitorPath, const std::string& printerPath, const std::string& prooferPath = {})
        : monitor(monitorPath), printer(printerPath), proofer(prooferPath) {
        ICC_RememberUseProofingProfile(!prooferPath.empty());
    }
    ICCProfileLocation Get() const { return {monitor.Get(), printer.Get(), proofer.Get()}; }

    Alias monitor, printer, proofer;
};

template <typename Value>
void Append(Bytes* bytes, const Value* values, size_t count) {
    const auto* first = reinterpret_cast<const std::uint8_t*>(values);
    bytes->insert(bytes->end(), first, first + count * sizeof(Value));
}

/// All that the current data holds or answers that a change of the profiles, the transforms or the conditions could show in.
Bytes OutcomeOf(OSType quality) {
    MatchingData* const data = GetMatchingData();
    Bytes bytes;
    if (quality == Code("Qua0")) {
        EXPECT_EQ(data->tablesBuilt, 1u);
        for (const PixelTable* table : {&data->matchTable, &data->proofTable, &data->predictTable, &data->gamutTable}) {
            const size_t nodes = size_t{table->gridSize} * table->gridSize * table->gridSize;
            Append(&bytes, &table->scale, 1);
            if (table == &data->gamutTable) {
                Append(&bytes, static_cast<const uint8_t*>(table->table), nodes);
            } else {
                Append(&bytes, static_cast<const uint16_t*>(table->table), 4 * nodes);
            }
        }
    }
    constexpr size_t kCount = 500;
    std::vector<uint16_t> in(4 * kCount), out(4 * kCount);
    std::vector<uint8_t> flags(kCount);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint16_t>(i * 40503 + i / 3);
    DirectMonitorMatch16(data, in.data(), out.data(), kCount);
    Append(&bytes, out.data(), out.size());
    DirectMonitorPredict16(data, in.data(), out.data(), kCount);
    Append(&bytes, out.data(), out.size());
    DirectPrinterMatch16(data, in.data(), out.data(), kCount);
    Append(&bytes, out.data(), out.size());
    DirectPrinterPredict16(data, in.data(), out.data(), kCount);
    Append(&bytes, out.data(), out.size());
    DirectProofMatch16(data, in.data(), out.data(), kCount);
    Append(&bytes, out.data(), out.size());
    DirectPrinterGamut(data, in.data(), flags.data(), kCount);
    Append(&bytes, flags.data(), flags.size());
    ReleaseMatchingData(data);
    return bytes;
}

class Rebuild : public testing::Test {
protected:
    void SetUp() override {
        EmptyStore();
        ICC_SetMonitorWhitepoint(nullptr);
        ICC_SetPrinterWhitepoint(nullptr);
    }
    void TearDown() override { SetMatchingData(nullptr); }
};

const void* CurrentData() {
    MatchingData* const data = GetMatchingData();
    if (data) ReleaseMatchingData(data);
    return data;
}

TEST_F(Rebuild, AnotherFlareOpensNoProfileAndMakesNoTransform) {
    const FixedXYZ paper = {60000, 62000, 50000};
    const FixedXYZ monitorWhite = {63000, 65536, 60000};
    const struct {
        const char* what;
        const char* quality;
        std::string printer, proofer;
        const FixedXYZ* monitorWhite;
        const FixedXYZ* printerWhite;
    } rows[] = {
        {"tables", "Qua0", kCMYKPrinter, "", nullptr, nullptr},         {"direct", "Qua1", kCMYKPrinter, "", nullptr, nullptr},
        {"direct, slower", "Qua2", kXYZPrinter, "", nullptr, nullptr},  {"a proofer", "Qua1", kCMYKPrinter, kXYZPrinter, nullptr, nullptr},
        {"a printer white", "Qua1", kCMYKPrinter, "", nullptr, &paper}, {"a monitor white", "Qua1", kCMYKPrinter, "", &monitorWhite, nullptr},
    };
    for (const auto& row : rows) {
        const Location location(kSRGBMonitor, row.printer, row.proofer);
        ICC_SetMatchingQuality(Code(row.quality));
        ICC_SetMonitorWhitepoint(row.monitorWhite);
        ICC_SetPrinterWhitepoint(row.printerWhite);
        ASSERT_EQ(LoadWith(location.Get(), -0.03), 0) << row.what;
        for (const double flare : {-0.02, 0.0, 0.01}) {
            const void* const before = CurrentData();
            const Bytes outcome = OutcomeOf(Code("Qua1"));
            Done();
            ASSERT_EQ(LoadWith(location.Get(), flare), 0) << row.what;
            EXPECT_EQ(Done(), (Work{0, 0, 0})) << row.what;
            EXPECT_NE(CurrentData(), before) << row.what;
            EXPECT_NE(OutcomeOf(Code("Qua1")), outcome) << row.what;
        }
    }
}

TEST_F(Rebuild, AnotherPrinterWhiteMakesItsTransformsAndTheFormerOnesAreFoundAgain) {
    const Location location(kGammaMonitor, kCMYKPrinter);
    ICC_SetMatchingQuality(Code("Qua1"));
    const FixedXYZ whites[] = {{60001, 62001, 50001}, {60002, 62002, 50002}};
    Bytes outcomes[2];
    for (int i = 0; i < 2; ++i) {
        ICC_SetPrinterWhitepoint(&whites[i]);
        Done();
        ASSERT_EQ(LoadWith(location.Get(), -0.03), 0);
        EXPECT_GT(Done().linked, 0);
        outcomes[i] = OutcomeOf(Code("Qua1"));
    }
    EXPECT_NE(outcomes[0], outcomes[1]);
    for (int i = 0; i < 2; ++i) {
        ICC_SetPrinterWhitepoint(&whites[i]);
        ASSERT_EQ(LoadWith(location.Get(), -0.03), 0);
        EXPECT_EQ(Done(), (Work{0, 0, 0}));
        EXPECT_EQ(OutcomeOf(Code("Qua1")), outcomes[i]);
    }
}

TEST_F(Rebuild, AProfileReplacedInPlaceIsTakenUpAndOneThatIsGoneIsReported) {
    const TemporaryFolder folder;
    const auto printerOf = [](uint16_t gamma) {
        ProfileMaker maker = MatrixMonitor(CurvTag({gamma}));
        maker.profileClass = Code("prtr");
        return maker.Make();
    };
    const std::string printer = folder.Write("printer.icc", printerOf(460));
    const Location location(kGammaMonitor, printer);
    ICC_SetMatchingQuality(Code("Qua1"));
    ASSERT_EQ(LoadWith(location.Get(), -0.03), 0);
    const Bytes before = OutcomeOf(Code("Qua1"));
    folder.Write("printer.icc", printerOf(512));
    ASSERT_EQ(LoadWith(location.Get(), -0.03), 0);
    const Bytes after = OutcomeOf(Code("Qua1"));
    EXPECT_NE(after, before);
    folder.Write("printer.icc", Bytes(printerOf(512).size(), 'x'));
    EXPECT_NE(LoadWith(location.Get(), -0.03), 0);
    std::filesystem::remove(printer);
    testing::internal::CaptureStderr();
    EXPECT_EQ(LoadWith(location.Get(), -0.03), -43);
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(OutcomeOf(Code("Qua1")), after) << "the data in force stays";
    folder.Write("printer.icc", printerOf(460));
    ASSERT_EQ(LoadWith(location.Get(), -0.03), 0);
    EXPECT_EQ(OutcomeOf(Code("Qua1")), before);
}

TEST_F(Rebuild, WhatComesOutIsTheSameToTheByteAsInAProcessThatLoadedNothingBefore) {
    const struct {
        const char* quality;
        const char* flare;
        std::string monitor, printer, proofer;
    } rows[] = {
        {"Qua0", "-0.02", kSRGBMonitor, kCMYKPrinter, ""},
        {"Qua0", "0.01", kGammaMonitor, kXYZPrinter, kCMYKPrinter},
        {"Qua1", "-0.02", kSRGBMonitor, kCMYKPrinter, kXYZPrinter},
        {"Qua2", "-0.05", kGammaMonitor, kCMYKPrinter, ""},
    };
    const TemporaryFolder folder;
    for (const auto& row : rows) {
        const std::string file = folder / "outcome";
        std::vector<std::string> words = {sProgram, row.quality, row.flare, row.monitor, row.printer, row.proofer, file};
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        int status = -1;
        ASSERT_TRUE(g_spawn_sync(nullptr, arguments.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, nullptr, nullptr, &status, nullptr));
        ASSERT_EQ(status, 0);

        const Location location(row.monitor, row.printer, row.proofer);
        ICC_SetMatchingQuality(Code(row.quality));
        ASSERT_EQ(LoadWith(location.Get(), -0.03), 0);
        Done();
        ASSERT_EQ(LoadWith(location.Get(), std::stod(row.flare)), 0);
        EXPECT_EQ(Done(), (Work{0, 0, 0}));
        EXPECT_TRUE(OutcomeOf(Code(row.quality)) == ReadFile(file)) << row.quality << " " << row.printer;
    }
}

int LoadOnce(char** words) {
    const Location location(words[2], words[3], words[4]);
    ICC_SetMatchingQuality(Code(words[0]));
    if (LoadWith(location.Get(), std::stod(words[1])) != 0) return 1;
    const Bytes outcome = OutcomeOf(Code(words[0]));
    std::ofstream file(words[5], std::ios::binary);
    file.write(reinterpret_cast<const char*>(outcome.data()), static_cast<std::streamsize>(outcome.size()));
    return file.flush() ? 0 : 2;
}

}  // namespace

int main(int count, char** arguments) {
    testing::InitGoogleTest(&count, arguments);
    sProgram = arguments[0];
    const PrivateStore store;
    return count == 7 ? LoadOnce(arguments + 1) : RUN_ALL_TESTS();
}
