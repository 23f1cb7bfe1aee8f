// Every set of kernels against the formulae, byte for byte, and what a set may not touch.

#include <gtest/gtest.h>

#include <memory>

#include "engine/DirectMonitor.h"
#include "engine/kernels/MonitorKernels.h"
#include "tests/reference/GuardedArray.h"
#include "tests/reference/ShaperModel.h"

namespace {

using platform::InstructionSet;
using reference::GuardedArray;
using reference::Model;
using reference::NamedModel;
using reference::OwnedShaper;
using reference::Random;
using Words = std::vector<uint16_t>;
using Bytes = std::vector<uint8_t>;

constexpr FixedMatrix kIdentity = {{65536, 0, 0, 0, 65536, 0, 0, 0, 65536}};

std::vector<const MonitorKernels*> Sets() {
    std::vector<const MonitorKernels*> sets;
    for (const MonitorKernels* set : AllMonitorKernels()) {
        if (platform::ProcessorRuns(set->set)) sets.push_back(set);
    }
    return sets;
}

/// A model with its tables, and a record that has none, so that its operations evaluate the formulae.
class Monitor {
public:
    explicit Monitor(const Model& model) : shaper_(model), tables_(MakeMonitorTables(*shaper_.Get())) { record_.monitorShaper = *shaper_.Get(); }
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;
    ~Monitor() { DisposeMonitorTables(tables_); }

    const MonitorTables& Tables() const { return *tables_; }
    const MatchingData* Record() const { return &record_; }

private:
    OwnedShaper shaper_;
    MonitorTables* tables_;
    MatchingData record_{};
};

std::vector<NamedModel> Models() {
    std::vector<NamedModel> models = reference::ManyModels();
    Random random(90);
    const Words gamma = reference::GammaCurve(256, 2.2);
    for (const uint32_t reach : {3u, 70000u, 400000u, 3000000u, (1u << 27) - 1, 1u << 31}) {
        for (int i = 0; i < 4; ++i) {
            Model model{{gamma, random.Words(50), reference::StraightCurve(100, 500, 60000)}, {}, {}};
            for (FixedMatrix* matrix : {&model.matrix, &model.inverseMatrix}) {
                for (int32_t& element : matrix->element) element = static_cast<int32_t>(int64_t{random.Below(reach)} - reach / 2);
            }
            models.push_back({"elements within " + std::to_string(reach / 2), model});
        }
    }
    return models;
}

/// Runs an operation by the formulae and by a set, from and to memory that ends at inaccessible pages, over random remains of what was there.
template <typename In, typename Out, typename Plain, typename Kernel>
void Compare(Random& random, const std::vector<In>& in, size_t outSize, Plain plain, Kernel kernel, const std::string& what) {
    std::vector<Out> expected(outSize);
    for (Out& value : expected) value = static_cast<Out>(random.Bits());
    const GuardedArray<In> source(in);
    GuardedArray<Out> result(expected);
    plain(source.Data(), expected.data());
    kernel(source.Data(), result.Data());
    ASSERT_TRUE(std::equal(expected.begin(), expected.end(), result.Data())) << what;
}

void CompareAll(Random& random, const Monitor& monitor, const MonitorKernels& set, const Words& words, const Bytes& bytes, const std::string& what) {
    const MatchingData* const record = monitor.Record();
    const MonitorTables& tables = monitor.Tables();
    const size_t count = words.size() / 4;
    Compare<uint16_t, uint16_t>(
        random, words, words.size(), [&](auto in, auto out) { DirectMonitorMatch16(record, in, out, count); },
        [&](auto in, auto out) { set.match16(tables, in, out, count); }, what + ", match16");
    Compare<uint16_t, uint8_t>(
        random, words, words.size(), [&](auto in, auto out) { DirectMonitorMatch(record, in, out, count); },
        [&](auto in, auto out) { set.match8(tables, in, out, count); }, what + ", match8");
    Compare<uint16_t, uint16_t>(
        random, words, words.size(), [&](auto in, auto out) { DirectMonitorPredict16(record, in, out, count); },
        [&](auto in, auto out) { set.predict16(tables, in, out, count); }, what + ", predict16");
    Compare<uint8_t, uint16_t>(
        random, bytes, words.size(), [&](auto in, auto out) { DirectMonitorPredict(record, in, out, count); },
        [&](auto in, auto out) { set.predict8(tables, in, out, count); }, what + ", predict8");
    Compare<uint16_t, uint8_t>(
        random, words, count, [&](auto in, auto out) { DirectMonitorGamut(record, in, out, count); },
        [&](auto in, auto out) { set.gamut(tables, in, out, count); }, what + ", gamut");
}

Bytes RandomBytes(Random& random, size_t count) {
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random.Bits());
    return bytes;
}

TEST(MonitorKernels, TheOperationsUseTheBestSetThatIsAllowed) {
    const MonitorKernels* expected = nullptr;
    for (const MonitorKernels* set : Sets()) {
        if (set->set <= platform::WidestAllowed()) expected = set;
    }
    EXPECT_EQ(MonitorKernelsInUse(), expected);
}

TEST(MonitorKernels, GiveTheBytesOfTheFormulae) {
    Random random(91);
    for (const NamedModel& model : Models()) {
        const Monitor monitor(model.model);
        for (const MonitorKernels* set : Sets()) {
            const Words words = random.Words(4 * 20003);
            CompareAll(random, monitor, *set, words, RandomBytes(random, words.size()), model.name + ", " + NameOf(set->set));
        }
    }
}

TEST(MonitorKernels, RunsOfEveryLengthEndWithTheirLastPixel) {
    Random random(92);
    const Monitor monitor(reference::ManyModels()[2].model);
    for (size_t count = 0; count <= 140; ++count) {
        for (const MonitorKernels* set : Sets()) {
            CompareAll(random, monitor, *set, random.Words(4 * count), RandomBytes(random, 4 * count),
                       std::string(NameOf(set->set)) + ", " + std::to_string(count) + " pixels");
        }
    }
}

TEST(MonitorKernels, WorkInPlace) {
    Random random(93);
    const Monitor monitor(reference::ManyModels()[2].model);
    const Words in = random.Words(4 * 77);
    for (const MonitorKernels* set : Sets()) {
        Words expected = in, shared = in;
        DirectMonitorMatch16(monitor.Record(), expected.data(), expected.data(), 77);
        set->match16(monitor.Tables(), shared.data(), shared.data(), 77);
        EXPECT_EQ(shared, expected) << NameOf(set->set);
        expected = shared = in;
        DirectMonitorPredict16(monitor.Record(), expected.data(), expected.data(), 77);
        set->predict16(monitor.Tables(), shared.data(), shared.data(), 77);
        EXPECT_EQ(shared, expected) << NameOf(set->set);
    }
}

/// The 8-bit pixels at the start of the words that they are made of, or at the end of those that are made of them.
TEST(MonitorKernels, WorkInPlaceWhereTheSidesDiffer) {
    Random random(95);
    constexpr size_t kPixels = 151;
    const Monitor monitor(reference::ManyModels()[2].model);
    const Words words = random.Words(4 * kPixels);
    for (const MonitorKernels* set : Sets()) {
        Words expected = words, shared = words;
        DirectMonitorMatch(monitor.Record(), expected.data(), reinterpret_cast<uint8_t*>(expected.data()), kPixels);
        set->match8(monitor.Tables(), shared.data(), reinterpret_cast<uint8_t*>(shared.data()), kPixels);
        EXPECT_EQ(shared, expected) << NameOf(set->set) << ", match8";
        expected = shared = words;
        DirectMonitorPredict(monitor.Record(), reinterpret_cast<uint8_t*>(expected.data()) + 4 * kPixels, expected.data(), kPixels);
        set->predict8(monitor.Tables(), reinterpret_cast<uint8_t*>(shared.data()) + 4 * kPixels, shared.data(), kPixels);
        EXPECT_EQ(shared, expected) << NameOf(set->set) << ", predict8";
    }
}

/// Full scale finds the last entries; the tables end at an inaccessible page.
TEST(MonitorKernels, ReadNothingBehindTheTables) {
    const Words straight = reference::StraightCurve(256, 0, 65535);
    const Monitor monitor(Model{{straight, straight, straight}, kIdentity, kIdentity});
    const GuardedArray<MonitorTables> tables(1, monitor.Tables());
    const Words white(4 * 40, 65535);
    const Bytes white8(4 * 40, 255);
    for (const MonitorKernels* set : Sets()) {
        Words out(white.size());
        Bytes out8(white.size());
        set->match16(tables[0], white.data(), out.data(), 40);
        EXPECT_EQ(out[2], tables[0].toDevice[2][65535]) << NameOf(set->set);
        set->match8(tables[0], white.data(), out8.data(), 40);
        EXPECT_EQ(out8[3], tables[0].toDevice[2][65535] >> 8) << NameOf(set->set);
        set->predict16(tables[0], white.data(), out.data(), 40);
        EXPECT_EQ(out[2], 65535) << NameOf(set->set);
        set->predict8(tables[0], white8.data(), out.data(), 40);
        EXPECT_EQ(out[2], 65535) << NameOf(set->set);
    }
}

/// Sums at and beside both ends of the range, where a colour leaves the gamut, and beside every place where the rounding steps.
TEST(MonitorKernels, RoundAndClampTheSumsOfTheMatrixExactly) {
    const Words straight = reference::StraightCurve(65536, 0, 65535);
    Random random(94);
    for (const int32_t scale : {65535, 65536, 65537, 1, 3, -1, -65536, 131072, 40000}) {
        for (const int32_t fine : {0, 1, -1, 2, 32767, 32768, -32768}) {
            Model model{{straight, straight, straight}, kIdentity, {{scale, fine, 0, 0, scale, fine, fine, 0, scale}}};
            model.matrix = model.inverseMatrix;
            const Monitor monitor(model);
            Words words(4 * 4096);
            for (size_t i = 0; i < words.size(); ++i) words[i] = i % 3 == 0 ? random.Word() : random.EdgeWord();
            for (const MonitorKernels* set : Sets()) {
                CompareAll(random, monitor, *set, words, RandomBytes(random, words.size()),
                           std::string(NameOf(set->set)) + ", " + std::to_string(scale) + " and " + std::to_string(fine));
            }
        }
    }
}

/// The least sum that is out of gamut and the greatest that is not, formed by hand.
TEST(MonitorKernels, AColourLeavesTheGamutOneUnitBeyondFullScale) {
    const Words straight = reference::StraightCurve(256, 0, 65535);
    const struct {
        FixedMatrix inverse;
        uint16_t in[3];
        uint8_t answer;
        const char* what;
    } rows[] = {
        {kIdentity, {65535, 65535, 65535}, 0, "full scale"},
        {{{65536, 1, 0, 0, 65536, 0, 0, 0, 65536}}, {65535, 1, 0}, 255, "one unit beyond"},
        {{{65536, 1, -1, 0, 65536, 0, 0, 0, 65536}}, {65535, 1, 1}, 0, "full scale from three terms"},
        {{{65536, -1, 0, 0, 65536, 0, 0, 0, 65536}}, {0, 1, 0}, 255, "one unit below 0"},
        {{{65536, -1, 1, 0, 65536, 0, 0, 0, 65536}}, {0, 1, 1}, 0, "0 from three terms"},
        {{{0, 0, 0, 0, 65536, 0, 0, 65535, 65536}}, {0, 65535, 0}, 0, "just below full scale"},
        {{{0, 0, 0, 0, 65536, 0, 0, 65537, 65536}}, {0, 65535, 0}, 255, "65535 units beyond"},
    };
    for (const auto& row : rows) {
        const Monitor monitor(Model{{straight, straight, straight}, kIdentity, row.inverse});
        Words words;
        for (int i = 0; i < 33; ++i) words.insert(words.end(), {row.in[0], row.in[1], row.in[2], 4711});
        for (const MonitorKernels* set : Sets()) {
            Bytes flags(33, 7);
            set->gamut(monitor.Tables(), words.data(), flags.data(), 33);
            EXPECT_EQ(flags, Bytes(33, row.answer)) << NameOf(set->set) << ", " << row.what;
        }
    }
}

/// The curves' ends, from 500 to 60000, and the sums that are just rounded to them.
TEST(MonitorKernels, AColourLeavesTheGamutBesideTheCurves) {
    const Words inside = reference::StraightCurve(100, 500, 60000);
    const struct {
        int32_t first, second;  // the row's elements for the first two components
        uint16_t in[2];
        uint8_t answer;
        const char* what;
    } rows[] = {
        {65536, 0, {500, 0}, 0, "the lower end"},
        {65536, 0, {499, 0}, 255, "one below the lower end"},
        {65536, -32768, {500, 1}, 0, "half a unit below, rounded up"},
        {65536, -32769, {500, 1}, 255, "more than half a unit below"},
        {65536, 0, {60000, 0}, 0, "the upper end"},
        {65536, 0, {60001, 0}, 255, "one above the upper end"},
        {65536, 32767, {60000, 1}, 0, "less than half a unit above"},
        {65536, 32768, {60000, 1}, 255, "half a unit above, rounded up"},
    };
    for (const auto& row : rows) {
        for (int channel = 0; channel < 3; ++channel) {
            // The other two channels are the third component.
            Model model{{inside, inside, inside}, kIdentity, {{0, 0, 65536, 0, 0, 65536, 0, 0, 65536}}};
            int32_t* const elements = model.inverseMatrix.element + 3 * channel;
            elements[0] = row.first;
            elements[1] = row.second;
            elements[2] = 0;
            const Monitor monitor(model);
            Words words;
            for (int i = 0; i < 33; ++i) words.insert(words.end(), {row.in[0], row.in[1], 30000, 4711});
            for (const MonitorKernels* set : Sets()) {
                Bytes flags(33, 7);
                set->gamut(monitor.Tables(), words.data(), flags.data(), 33);
                EXPECT_EQ(flags, Bytes(33, row.answer)) << NameOf(set->set) << ", channel " << channel << ", " << row.what;
            }
        }
    }
}

}  // namespace
