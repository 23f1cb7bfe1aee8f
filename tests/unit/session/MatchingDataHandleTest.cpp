#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "platform/InstructionSet.h"
#include "session/ColourOperations.h"
#include "session/MatchingDataHandle.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

/// Records whose disposal can be seen: each holds a reference to one object, which it releases when it goes.
class WatchedRecords {
public:
    WatchedRecords() : object_(CFStringCreateWithCString(nullptr, "held by every record", kCFStringEncodingASCII)) {}

    MatchingData* New() {
        auto* data = static_cast<MatchingData*>(std::calloc(1, sizeof(MatchingData)));
        data->referenceCount = 1;
        CFRetain(object_.Get());
        data->proofTransform = reinterpret_cast<ColorSyncTransformRef>(const_cast<__CFString*>(object_.Get()));
        return data;
    }
    long Living() const { return CFGetRetainCount(object_.Get()) - 1; }

private:
    Owned<CFStringRef> object_;
};

class MatchingDataHandle : public testing::Test {
protected:
    void TearDown() override { SetMatchingData(nullptr); }
    WatchedRecords records;
};

TEST_F(MatchingDataHandle, NothingIsCurrentBeforeALoad) {
    EXPECT_EQ(GetMatchingData(), nullptr);
    EXPECT_EQ(GetMatchingData(), nullptr);
}

TEST_F(MatchingDataHandle, InstallingTakesTheCallersReference) {
    MatchingData* data = records.New();
    SetMatchingData(data);
    EXPECT_EQ(data->referenceCount, 1);
    EXPECT_EQ(records.Living(), 1);
}

TEST_F(MatchingDataHandle, GetAddsAReferenceAndReleaseGivesItBack) {
    MatchingData* data = records.New();
    SetMatchingData(data);
    EXPECT_EQ(GetMatchingData(), data);
    EXPECT_EQ(GetMatchingData(), data);
    EXPECT_EQ(data->referenceCount, 3);
    ReleaseMatchingData(data);
    EXPECT_EQ(data->referenceCount, 2);
    ReleaseMatchingData(data);
    EXPECT_EQ(data->referenceCount, 1);
    EXPECT_EQ(records.Living(), 1);
}

TEST_F(MatchingDataHandle, ReplacingAnUnusedRecordDisposesOfIt) {
    SetMatchingData(records.New());
    MatchingData* second = records.New();
    EXPECT_EQ(records.Living(), 2);
    SetMatchingData(second);
    EXPECT_EQ(records.Living(), 1);
    EXPECT_EQ(second->referenceCount, 1);
}

TEST_F(MatchingDataHandle, AReplacedRecordLivesUntilItsLastUserIsDone) {
    MatchingData* first = records.New();
    SetMatchingData(first);
    ASSERT_EQ(GetMatchingData(), first);
    ASSERT_EQ(GetMatchingData(), first);
    SetMatchingData(records.New());
    EXPECT_EQ(records.Living(), 2);
    EXPECT_EQ(first->referenceCount, 2);
    ReleaseMatchingData(first);
    EXPECT_EQ(records.Living(), 2);
    ReleaseMatchingData(first);
    EXPECT_EQ(records.Living(), 1);
}

TEST_F(MatchingDataHandle, InstallingTabulatesTheMonitorOfAHostThatChoseNoQuality) {
    Loaded loaded = Load({kSRGBMonitor, kCMYKPrinter});
    ASSERT_EQ(loaded.status, 0);
    MatchingData* const data = loaded.data.release();
    EXPECT_EQ(data->monitorTables, nullptr);
    SetMatchingData(data);
    EXPECT_EQ(data->monitorTables != nullptr, platform::WidestAllowed() > platform::InstructionSet::kPlain);
}

TEST_F(MatchingDataHandle, NothingReplacesARecordOfCountOne) {
    SetMatchingData(records.New());
    SetMatchingData(nullptr);
    EXPECT_EQ(records.Living(), 0);
    EXPECT_EQ(GetMatchingData(), nullptr);
    SetMatchingData(nullptr);
    EXPECT_EQ(GetMatchingData(), nullptr);
}

TEST_F(MatchingDataHandle, ReleasingARecordThatWasNeverInstalledDisposesOfIt) {
    ReleaseMatchingData(records.New());
    EXPECT_EQ(records.Living(), 0);
}

TEST_F(MatchingDataHandle, CountsBelowOneAreDisposedOfToo) {
    MatchingData* released = records.New();
    released->referenceCount = 0;
    ReleaseMatchingData(released);
    EXPECT_EQ(records.Living(), 0);
    MatchingData* replaced = records.New();
    replaced->referenceCount = 0;
    SetMatchingData(replaced);
    SetMatchingData(nullptr);
    EXPECT_EQ(records.Living(), 0);
}

TEST_F(MatchingDataHandle, ManyThreadsAndReplacementsLoseNoRecord) {
    constexpr int kThreads = 8;
    constexpr int kReplacements = 2000;
    std::atomic<bool> done = false;
    std::atomic<long> uses = 0;
    SetMatchingData(records.New());
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            while (!done) {
                if (MatchingData* data = GetMatchingData()) {
                    ++uses;
                    ReleaseMatchingData(data);
                }
            }
        });
    }
    for (int i = 0; i < kReplacements; ++i) SetMatchingData(i % 10 == 9 ? nullptr : records.New());
    SetMatchingData(records.New());
    while (uses < 1000) std::this_thread::yield();
    done = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(records.Living(), 1);
    SetMatchingData(nullptr);
    EXPECT_EQ(records.Living(), 0);
}

TEST_F(MatchingDataHandle, ThreadsMatchWhileRecordsAreReplaced) {
    // Two monitors take turns: every run must come from one of them, whole.
    constexpr int kThreads = 8;
    constexpr int kReplacements = 240;
    constexpr size_t kCount = 200;
    std::vector<uint16_t> in(4 * kCount);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint16_t>(i * 2477);
    const TemporaryFolder folder;
    ProfileMaker maker = MatrixMonitor(CurvTag({460}));
    maker.profileClass = Code("prtr");
    const std::string printer = folder.Write("printer.icc", maker.Make());
    const std::string monitors[] = {kSRGBMonitor, kGammaMonitor};
    std::vector<uint16_t> expected[2];
    for (size_t m = 0; m < 2; ++m) {
        SetMatchingData(Load({monitors[m], printer}).data.release());
        expected[m].resize(4 * kCount);
        ASSERT_EQ(MonitorMatch16(in.data(), expected[m].data(), kCount), 0);
    }
    ASSERT_NE(expected[0], expected[1]);

    std::vector<OwnedRecord> built(kReplacements);
    for (size_t i = 0; i < kReplacements; ++i) {
        if (i % 12 != 0) built[i] = Load({monitors[i % 2], printer}).data;
    }

    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    std::atomic<long> runs[2] = {};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            std::vector<uint16_t> out(4 * kCount);
            while (!done) {
                if (MonitorMatch16(in.data(), out.data(), kCount) != 0) {
                    ++wrong;
                } else if (out == expected[0]) {
                    ++runs[0];
                } else if (out == expected[1]) {
                    ++runs[1];
                } else {
                    ++wrong;
                }
            }
        });
    }
    for (size_t i = 0; i < kReplacements; ++i) {
        // Most records were built before, as the threads leave a build little time; some are built while they run.
        OwnedRecord next = i % 12 == 0 ? Load({monitors[i % 2], printer}).data : std::move(built[i]);
        if (!next) {
            ADD_FAILURE() << "no record";
            break;
        }
        const long before = runs[i % 2];
        SetMatchingData(next.release());
        while (runs[i % 2] == before && wrong == 0) std::this_thread::yield();
    }
    done = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GE(runs[0], kReplacements / 2);
    EXPECT_GE(runs[1], kReplacements / 2);
    MatchingData* last = GetMatchingData();
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->referenceCount, 2);
    ReleaseMatchingData(last);
}

}  // namespace
