#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <thread>
#include <vector>

#include "profile/LastRefusal.h"
#include "session/ColourOperations.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingRecord.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

constexpr size_t kCount = 500;
constexpr uint32_t kQualities[] = {0x51756130, 0x51756131, 0x51756132};
constexpr uint32_t kCMYK = 0x434D594B;

using Buffer = std::vector<uint16_t>;  // wide enough for the widest pixels

Buffer Colours() {
    std::mt19937 random(5);
    Buffer colours(4 * kCount);
    for (uint16_t& word : colours) word = static_cast<uint16_t>(random());
    return colours;
}

/// One operation, on a record and on the process's current one.
struct Operation {
    const char* name;
    bool needsPrinter;
    std::function<int16_t(const MatchingData*, const Buffer&, Buffer&)> onRecord;
    std::function<int16_t(const Buffer&, Buffer&)> onCurrent;
};

template <typename Source, typename Destination>
Operation Row(const char* name, bool needsPrinter, int16_t onRecord(const MatchingData*, const Source*, Destination*, size_t),
              int16_t onCurrent(const Source*, Destination*, size_t)) {
    const auto source = [](const Buffer& in) { return reinterpret_cast<const Source*>(in.data()); };
    const auto destination = [](Buffer& out) { return reinterpret_cast<Destination*>(out.data()); };
    return {name, needsPrinter,
            [=](const MatchingData* record, const Buffer& in, Buffer& out) { return onRecord(record, source(in), destination(out), kCount); },
            [=](const Buffer& in, Buffer& out) { return onCurrent(source(in), destination(out), kCount); }};
}

const Operation kOperations[] = {
    Row("MonitorMatch", false, RecordMonitorMatch, MonitorMatch),
    Row("MonitorMatch16", false, RecordMonitorMatch16, MonitorMatch16),
    Row("MonitorPredict", false, RecordMonitorPredict, MonitorPredict),
    Row("MonitorPredict16", false, RecordMonitorPredict16, MonitorPredict16),
    Row("MonitorGamut", false, RecordMonitorGamut, MonitorGamut),
    Row("PrinterMatch", true, RecordPrinterMatch, PrinterMatch),
    Row("PrinterMatch16", true, RecordPrinterMatch16, PrinterMatch16),
    Row("PrinterPredict", true, RecordPrinterPredict, PrinterPredict),
    Row("PrinterPredict16", true, RecordPrinterPredict16, PrinterPredict16),
    Row("PrinterGamut", true, RecordPrinterGamut, PrinterGamut),
    Row("SoftProofMatch", true, RecordSoftProofMatch, SoftProofMatch),
    Row("SoftProofMatch16", true, RecordSoftProofMatch16, SoftProofMatch16),
};

std::vector<char> BytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

ProfileSource InFile(const std::string& path) {
    return {path.c_str(), nullptr, 0};
}

ProfileSource InMemory(const std::vector<char>& bytes) {
    return {nullptr, bytes.data(), bytes.size()};
}

struct Made {
    OwnedRecord record;
    OSErr status;
};

Made Make(const MatchingChoice& choice) {
    OSErr status = 12345;
    OwnedRecord record(CreateMatchingData(&choice, &status));
    return {std::move(record), status};
}

MatchingChoice Devices(const std::string& monitor, const std::string& printer) {
    MatchingChoice choice = {};
    choice.monitor = InFile(monitor);
    choice.printer = InFile(printer);
    return choice;
}

std::string Refusal() {
    const Owned<CFStringRef> text(ICC_CopyLastRefusal());
    return Text(text);
}

TEST(MatchingRecord, AnswersAsTheCurrentOneOfTheSameProfilesDoes) {
    const Buffer in = Colours();
    const FixedXYZ white = {64000, 65536, 60000};
    const ViewingConditions conditions = {-0.03, 1.2, 2, -3, false};
    for (const uint32_t quality : kQualities) {
        MatchingChoice choice = Devices(kLuminousMonitor, kCMYKPrinter);
        choice.proofer = InFile(kXYZPrinter);
        choice.monitorWhite = &white;
        choice.conditions = &conditions;
        choice.renderingIntent = 0x52647231;
        choice.quality = quality;
        const Made made = Make(choice);
        ASSERT_EQ(made.status, 0);

        Loaded loaded = Load({kLuminousMonitor, kCMYKPrinter, kXYZPrinter, 1, &white});
        ASSERT_EQ(loaded.status, 0);
        DirectICCSetViewingConditions(loaded.data.get(), 0x52647231, &conditions);
        ASSERT_EQ(SetDirectMatchingQuality(loaded.data.get(), quality), 0);
        SetMatchingData(loaded.data.release());
        for (const Operation& operation : kOperations) {
            Buffer expected(4 * kCount, 0xC3C3), out(4 * kCount, 0xC3C3);
            ASSERT_EQ(operation.onCurrent(in, expected), 0);
            EXPECT_EQ(operation.onRecord(made.record.get(), in, out), 0) << operation.name;
            EXPECT_EQ(out, expected) << operation.name;
        }
        EXPECT_EQ(RecordPrinterColourSpace(made.record.get()), kCMYK);
        SetMatchingData(nullptr);
    }
}

TEST(MatchingRecord, IsTheSameOfFilesAndOfMemory) {
    const std::vector<char> monitor = BytesOf(kSRGBMonitor), printer = BytesOf(kXYZPrinter), proofer = BytesOf(kCMYKPrinter);
    MatchingChoice ofFiles = Devices(kSRGBMonitor, kXYZPrinter), ofMemory = {};
    ofFiles.proofer = InFile(kCMYKPrinter);
    ofMemory.monitor = InMemory(monitor);
    ofMemory.printer = InMemory(printer);
    ofMemory.proofer = InMemory(proofer);
    const Made first = Make(ofFiles), second = Make(ofMemory);
    ASSERT_EQ(first.status, 0);
    ASSERT_EQ(second.status, 0);
    const Buffer in = Colours();
    for (const Operation& operation : kOperations) {
        Buffer one(4 * kCount), other(4 * kCount);
        EXPECT_EQ(operation.onRecord(first.record.get(), in, one), 0);
        EXPECT_EQ(operation.onRecord(second.record.get(), in, other), 0);
        EXPECT_EQ(one, other) << operation.name;
    }
}

TEST(MatchingRecord, OfAMonitorAloneAnswersTheMonitorsOperationsOnly) {
    const Made whole = Make(Devices(kSRGBMonitor, kCMYKPrinter));
    MatchingChoice choice = {};
    choice.monitor = InFile(kSRGBMonitor);
    const Made made = Make(choice);
    ASSERT_EQ(made.status, 0);
    EXPECT_EQ(RecordPrinterColourSpace(made.record.get()), 0x6E6F6E65u);
    const Buffer in = Colours(), untouched(4 * kCount, 0xC3C3);
    for (const Operation& operation : kOperations) {
        Buffer out = untouched, expected = untouched;
        EXPECT_EQ(operation.onRecord(made.record.get(), in, out), operation.needsPrinter ? 1000 : 0) << operation.name;
        if (!operation.needsPrinter) {
            operation.onRecord(whole.record.get(), in, expected);
        }
        EXPECT_EQ(out, expected) << operation.name;
    }
}

TEST(MatchingRecord, ThatIsNoneAnswers1000AndTouchesNothing) {
    const Buffer in = Colours(), untouched(4 * kCount, 0xC3C3);
    for (const Operation& operation : kOperations) {
        Buffer out = untouched;
        EXPECT_EQ(operation.onRecord(nullptr, in, out), 1000) << operation.name;
        EXPECT_EQ(out, untouched) << operation.name;
    }
    EXPECT_EQ(RecordPrinterColourSpace(nullptr), 1u);
}

TEST(MatchingRecord, ConditionsThatChangeNothingAreNotNone) {
    const ViewingConditions conditions = {0, 1, 0, 0, false};
    MatchingChoice choice = Devices(kSRGBMonitor, kCMYKPrinter);
    const Made plain = Make(choice);
    choice.conditions = &conditions;
    const Made bent = Make(choice);
    const Buffer in = Colours();
    Buffer one(4 * kCount), other(4 * kCount);
    RecordMonitorMatch16(plain.record.get(), in.data(), one.data(), kCount);
    RecordMonitorMatch16(bent.record.get(), in.data(), other.data(), kCount);
    EXPECT_NE(one, other);
}

TEST(MatchingRecord, OfSeveralAnswerEachItsOwnOnManyThreads) {
    const Buffer in = Colours();
    const Made srgb = Make(Devices(kSRGBMonitor, kCMYKPrinter)), gamma = Make(Devices(kGammaMonitor, kXYZPrinter));
    const auto answer = [&in](const MatchingData* record) {
        Buffer out(4 * kCount);
        RecordSoftProofMatch16(record, in.data(), out.data(), kCount);
        return out;
    };
    const Buffer first = answer(srgb.record.get()), second = answer(gamma.record.get());
    ASSERT_NE(first, second);
    std::vector<std::thread> threads;
    std::vector<int> wrong(4, 0);
    for (size_t t = 0; t < wrong.size(); ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20; ++i) {
                const bool even = (t + static_cast<size_t>(i)) % 2 == 0;
                wrong[t] += answer(even ? srgb.record.get() : gamma.record.get()) != (even ? first : second);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(MatchingRecord, ThatCannotBeMadeSaysWhatIsWrongWithWhich) {
    const TemporaryFolder folder;
    const std::string text = folder.Write("text.icc", std::vector<uint8_t>(200, 'x')), gone = folder / "gone.icc", itself = folder / "";
    const std::vector<char> noProfile = {'n', 'o'}, huge(20971521);
    const std::vector<char> srgb = BytesOf(kSRGBMonitor);
    MatchingChoice rows[12];
    for (MatchingChoice& row : rows) row = Devices(kSRGBMonitor, kCMYKPrinter);
    rows[0].monitor = {};
    rows[1].monitor = InFile(gone);
    rows[2].monitor = InFile(text);
    rows[3].monitor = InFile(kCMYKPrinter);
    rows[4].printer = InFile(kSRGBMonitor);
    rows[5].printer = InMemory(srgb);
    rows[6].proofer = InFile(kNamedColours);
    rows[7].proofer = InMemory(noProfile);
    rows[8].printer = InMemory(huge);
    rows[9].quality = 0x51756133;
    rows[10].renderingIntent = 0x52647234;
    rows[11].printer = InFile(itself);
    const struct {
        OSErr status;
        std::string about, what;
    } expected[12] = {
        {-50, "no monitor is chosen", "the profile of a monitor is needed"},
        {-43, gone, "the file is not there"},
        {-170, text, "not a whole ICC profile"},
        {-170, kCMYKPrinter, "'rXYZ' is missing"},
        {-170, kSRGBMonitor, "class is 'mntr'"},
        {-170, "the printer's profile in memory", "class is 'mntr'"},
        {-170, kNamedColours, "class is 'nmcl'"},
        {-170, "the proofer's profile in memory", "not a whole ICC profile"},
        {-50, "the printer's profile in memory", "20971521 bytes"},
        {-50, "'Qua3'", "'Qua0', 'Qua1' or 'Qua2' is needed"},
        {-50, "'Rdr4'", "'Rdr0' to 'Rdr3' are needed"},
        {-1302, itself.substr(0, itself.size() - 1), "this is a folder"},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        const Made made = Make(rows[i]);
        EXPECT_EQ(made.status, expected[i].status) << i;
        EXPECT_EQ(made.record, nullptr) << i;
        EXPECT_NE(Refusal().find(expected[i].about), std::string::npos) << i << ": " << Refusal();
        EXPECT_NE(Refusal().find(expected[i].what), std::string::npos) << i << ": " << Refusal();
    }
    OSErr status = 0;
    EXPECT_EQ(CreateMatchingData(nullptr, &status), nullptr);
    EXPECT_EQ(status, -50);
    EXPECT_EQ(CreateMatchingData(&rows[0], nullptr), nullptr);
}

TEST(MatchingRecord, MayBecomeTheCurrentOne) {
    MatchingChoice choice = {};
    choice.monitor = InFile(kSRGBMonitor);
    Made made = Make(choice);
    SetMatchingData(made.record.release());
    const Buffer in = Colours();
    Buffer out(4 * kCount);
    EXPECT_EQ(MonitorMatch16(in.data(), out.data(), kCount), 0);
    EXPECT_EQ(PrinterMatch16(in.data(), out.data(), kCount), 1000);
    SetMatchingData(nullptr);
    Made printer = Make(Devices(kSRGBMonitor, kCMYKPrinter));
    EXPECT_EQ(RecordPrinterColourSpace(printer.record.get()), kCMYK);
}

}  // namespace
