#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "engine/DirectMonitor.h"
#include "engine/MonitorTables.h"
#include "tests/reference/Allocations.h"
#include "tests/reference/Curves.h"
#include "tests/reference/GridReference.h"
#include "tests/reference/GuardedArray.h"
#include "tests/reference/ShaperModel.h"
#include "tests/reference/ShaperReference.h"

namespace {

using reference::Colour16;
using reference::GuardedArray;
using reference::Model;
using reference::NamedModel;
using reference::OwnedShaper;
using reference::Random;
using Bytes = std::vector<uint8_t>;
using Words = std::vector<uint16_t>;

constexpr size_t kCounts[] = {0, 1, 2, 7, 63, 64, 65, 257};

/// A record that holds a monitor model and nothing else.
MatchingData RecordWith(const OwnedShaper& shaper) {
    MatchingData data{};
    data.monitorShaper = *shaper.Get();
    return data;
}

Colour16 Channels(const Words& pixels, size_t pixel) {
    return {pixels[4 * pixel], pixels[4 * pixel + 1], pixels[4 * pixel + 2]};
}

// What each run gives, from the slow versions. `before` is the destination as it was.
Words SlowMatch16(const Model& model, const Words& in, Words before) {
    for (size_t p = 0; p < in.size() / 4; ++p) {
        const Colour16 out = reference::Match(model, Channels(in, p));
        for (size_t c = 0; c < 3; ++c) before[4 * p + c] = out[c];
    }
    return before;
}

Bytes SlowMatch8(const Model& model, const Words& in, Bytes before) {
    for (size_t p = 0; p < in.size() / 4; ++p) {
        const Colour16 out = reference::Match(model, Channels(in, p));
        for (size_t c = 0; c < 3; ++c) before[4 * p + 1 + c] = static_cast<uint8_t>(out[c] / 256);
    }
    return before;
}

Words SlowPredict16(const Model& model, const Words& in, Words before) {
    for (size_t p = 0; p < in.size() / 4; ++p) {
        const Colour16 out = reference::Predict(model, Channels(in, p));
        for (size_t c = 0; c < 3; ++c) before[4 * p + c] = out[c];
    }
    return before;
}

Words SlowPredict8(const Model& model, const Bytes& in, Words before) {
    for (size_t p = 0; p < in.size() / 4; ++p) {
        Colour16 device{};
        for (size_t c = 0; c < 3; ++c) device[c] = static_cast<uint16_t>((in[4 * p + 1 + c] << 8) | in[4 * p + 1 + c]);
        const Colour16 out = reference::Predict(model, device);
        for (size_t c = 0; c < 3; ++c) before[4 * p + c] = out[c];
    }
    return before;
}

Bytes SlowGamut(const Model& model, const Words& in) {
    Bytes out(in.size() / 4);
    for (size_t p = 0; p < out.size(); ++p) out[p] = reference::Gamut(model, Channels(in, p));
    return out;
}

Bytes RandomBytes(Random& random, size_t count) {
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random.Below(4) == 0 ? 255 * random.Below(2) : random.Below(256));
    return bytes;
}

TEST(DirectMonitor, RunsEqualTheSlowVersionsForAnyLengthAndTouchNothingElse) {
    for (const NamedModel& named : reference::ManyModels()) {
        const OwnedShaper shaper(named.model);
        const MatchingData data = RecordWith(shaper);
        Random random(60);
        for (const size_t count : kCounts) {
            const std::string what = named.name + ", " + std::to_string(count) + " pixels";
            const GuardedArray<uint16_t> words(random.Words(4 * count));
            const GuardedArray<uint8_t> bytes(RandomBytes(random, 4 * count));

            // The destinations hold random values beforehand: the fourth words and first bytes must come through.
            const Words beforeWords = random.Words(4 * count);
            const Bytes beforeBytes = RandomBytes(random, 4 * count);
            GuardedArray<uint16_t> match16(beforeWords);
            DirectMonitorMatch16(&data, words.Data(), match16.Data(), count);
            EXPECT_EQ(match16.Values(), SlowMatch16(named.model, words.Values(), beforeWords)) << what;

            GuardedArray<uint8_t> match8(beforeBytes);
            DirectMonitorMatch(&data, words.Data(), match8.Data(), count);
            EXPECT_EQ(match8.Values(), SlowMatch8(named.model, words.Values(), beforeBytes)) << what;

            GuardedArray<uint16_t> predict16(beforeWords);
            DirectMonitorPredict16(&data, words.Data(), predict16.Data(), count);
            EXPECT_EQ(predict16.Values(), SlowPredict16(named.model, words.Values(), beforeWords)) << what;

            GuardedArray<uint16_t> predict8(beforeWords);
            DirectMonitorPredict(&data, bytes.Data(), predict8.Data(), count);
            EXPECT_EQ(predict8.Values(), SlowPredict8(named.model, bytes.Values(), beforeWords)) << what;

            GuardedArray<uint8_t> gamut(count, 7);
            DirectMonitorGamut(&data, words.Data(), gamut.Data(), count);
            EXPECT_EQ(gamut.Values(), SlowGamut(named.model, words.Values())) << what;
        }
    }
}

TEST(DirectMonitor, RunsEqualTheSlowVersionsOverManyColours) {
    constexpr size_t kPixels = 60000;
    for (const NamedModel& named : reference::ManyModels()) {
        const OwnedShaper shaper(named.model);
        const MatchingData data = RecordWith(shaper);
        Random random(61);
        const Words words = random.Words(4 * kPixels);
        const Bytes bytes = RandomBytes(random, 4 * kPixels);

        Words out(4 * kPixels);
        DirectMonitorMatch16(&data, words.data(), out.data(), kPixels);
        EXPECT_TRUE(out == SlowMatch16(named.model, words, Words(4 * kPixels))) << named.name;
        Words predicted(4 * kPixels);
        DirectMonitorPredict16(&data, words.data(), predicted.data(), kPixels);
        EXPECT_TRUE(predicted == SlowPredict16(named.model, words, Words(4 * kPixels))) << named.name;
        Words widened(4 * kPixels);
        DirectMonitorPredict(&data, bytes.data(), widened.data(), kPixels);
        EXPECT_TRUE(widened == SlowPredict8(named.model, bytes, Words(4 * kPixels))) << named.name;
        Bytes narrow(4 * kPixels);
        DirectMonitorMatch(&data, words.data(), narrow.data(), kPixels);
        EXPECT_TRUE(narrow == SlowMatch8(named.model, words, Bytes(4 * kPixels))) << named.name;
        Bytes gamut(kPixels);
        DirectMonitorGamut(&data, words.data(), gamut.data(), kPixels);
        EXPECT_TRUE(gamut == SlowGamut(named.model, words)) << named.name;
    }
}

TEST(DirectMonitor, ARunGivesTheSameHoweverItIsSplit) {
    const OwnedShaper shaper(reference::ManyModels()[2].model);
    const MatchingData data = RecordWith(shaper);
    constexpr size_t kPixels = 257;
    Random random(62);
    const Words words = random.Words(4 * kPixels);
    const Bytes bytes = RandomBytes(random, 4 * kPixels);

    const auto all = [&](const std::vector<size_t>& lengths) {
        Words match16(4 * kPixels), predict16(4 * kPixels), predict8(4 * kPixels);
        Bytes match8(4 * kPixels), gamut(kPixels);
        size_t at = 0;
        for (const size_t length : lengths) {
            DirectMonitorMatch16(&data, words.data() + 4 * at, match16.data() + 4 * at, length);
            DirectMonitorMatch(&data, words.data() + 4 * at, match8.data() + 4 * at, length);
            DirectMonitorPredict16(&data, words.data() + 4 * at, predict16.data() + 4 * at, length);
            DirectMonitorPredict(&data, bytes.data() + 4 * at, predict8.data() + 4 * at, length);
            DirectMonitorGamut(&data, words.data() + 4 * at, gamut.data() + at, length);
            at += length;
        }
        EXPECT_EQ(at, kPixels);
        return std::make_tuple(match16, match8, predict16, predict8, gamut);
    };
    const auto whole = all({kPixels});
    EXPECT_EQ(all({1, 256}), whole);
    EXPECT_EQ(all({64, 65, 127, 0, 1}), whole);
    EXPECT_EQ(all(std::vector<size_t>(kPixels, 1)), whole);
}

TEST(DirectMonitor, ARecordWithTablesAnswersAsOneWithout) {
    constexpr size_t kPixels = 100;
    const OwnedShaper shaper(reference::ManyModels()[2].model);
    const std::unique_ptr<MonitorTables, void (*)(MonitorTables*)> tables(MakeMonitorTables(*shaper.Get()), DisposeMonitorTables);
    const MatchingData without = RecordWith(shaper);
    MatchingData with = RecordWith(shaper);
    with.monitorTables = tables.get();
    Random random(66);
    const Words words = random.Words(4 * kPixels);
    const Bytes bytes = RandomBytes(random, 4 * kPixels);
    const auto all = [&](const MatchingData& data) {
        Words match16(4 * kPixels), predict16(4 * kPixels), predict8(4 * kPixels);
        Bytes match8(4 * kPixels), gamut(kPixels);
        DirectMonitorMatch16(&data, words.data(), match16.data(), kPixels);
        DirectMonitorPredict16(&data, words.data(), predict16.data(), kPixels);
        DirectMonitorPredict(&data, bytes.data(), predict8.data(), kPixels);
        DirectMonitorMatch(&data, words.data(), match8.data(), kPixels);
        DirectMonitorGamut(&data, words.data(), gamut.data(), kPixels);
        return std::tuple(match16, predict16, predict8, match8, gamut);
    };
    EXPECT_EQ(all(with), all(without));
}

TEST(DirectMonitor, ACountOf0AsksForNoRecord) {
    DirectMonitorMatch(nullptr, nullptr, nullptr, 0);
    DirectMonitorMatch16(nullptr, nullptr, nullptr, 0);
    DirectMonitorPredict(nullptr, nullptr, nullptr, 0);
    DirectMonitorPredict16(nullptr, nullptr, nullptr, 0);
    DirectMonitorGamut(nullptr, nullptr, nullptr, 0);
}

TEST(DirectMonitor, MatchesAndPredictsInPlace) {
    const OwnedShaper shaper(reference::ManyModels()[2].model);
    const MatchingData data = RecordWith(shaper);
    Random random(63);
    const Words in = random.Words(size_t{4} * 65);
    Words apart = in;
    DirectMonitorMatch16(&data, in.data(), apart.data(), 65);
    Words shared = in;
    DirectMonitorMatch16(&data, shared.data(), shared.data(), 65);
    EXPECT_EQ(shared, apart);
    apart = in;
    DirectMonitorPredict16(&data, in.data(), apart.data(), 65);
    shared = in;
    DirectMonitorPredict16(&data, shared.data(), shared.data(), 65);
    EXPECT_EQ(shared, apart);
}

TEST(DirectMonitorPredict, WidensEachByteToTheFullRange) {
    // Identity throughout: the widened bytes come out.
    constexpr FixedMatrix kIdentity = {{65536, 0, 0, 0, 65536, 0, 0, 0, 65536}};
    const auto straight = reference::StraightCurve(256, 0, 65535);
    const OwnedShaper shaper(Model{{straight, straight, straight}, kIdentity, kIdentity});
    const MatchingData data = RecordWith(shaper);
    for (unsigned v = 0; v < 256; ++v) {
        const uint8_t in[4] = {99, static_cast<uint8_t>(v), static_cast<uint8_t>(255 - v), 1};
        uint16_t out[4] = {0, 0, 0, 4321};
        DirectMonitorPredict(&data, in, out, 1);
        EXPECT_EQ(out[0], v * 257);
        EXPECT_EQ(out[1], (255 - v) * 257);
        EXPECT_EQ(out[2], 257);
        EXPECT_EQ(out[3], 4321) << "the fourth word stays";
    }
}

TEST(DirectMonitor, UsesTheWorkingModelNotTheBaseModel) {
    const std::vector<NamedModel> models = reference::ManyModels();
    const OwnedShaper working(models[1].model);
    const OwnedShaper base(models[2].model);
    MatchingData data = RecordWith(working);
    data.baseShaper = *base.Get();
    Random random(64);
    const Words in = random.Words(size_t{4} * 64);
    Words out(size_t{4} * 64);
    DirectMonitorMatch16(&data, in.data(), out.data(), 64);
    EXPECT_EQ(out, SlowMatch16(models[1].model, in, Words(size_t{4} * 64)));
    EXPECT_NE(out, SlowMatch16(models[2].model, in, Words(size_t{4} * 64)));
}

TEST(DirectMonitor, RunsAllocateNothing) {
    constexpr size_t kPixels = 1000;
    const OwnedShaper shaper(reference::ManyModels()[1].model);
    const MatchingData data = RecordWith(shaper);
    Random random(65);
    const Words words = random.Words(4 * kPixels);
    const Bytes bytes = RandomBytes(random, 4 * kPixels);
    Words wide(4 * kPixels);
    Bytes narrow(4 * kPixels);
    EXPECT_EQ(reference::AllocationsDuring([&] {
                  DirectMonitorMatch(&data, words.data(), narrow.data(), kPixels);
                  DirectMonitorMatch16(&data, words.data(), wide.data(), kPixels);
                  DirectMonitorPredict(&data, bytes.data(), wide.data(), kPixels);
                  DirectMonitorPredict16(&data, words.data(), wide.data(), kPixels);
                  DirectMonitorGamut(&data, words.data(), narrow.data(), kPixels);
              }),
              0u);
}

// ---- 3-D table records ----

/// A record over random nodes that end at an inaccessible page.
class Table3D {
public:
    Table3D(Random& random, uint32_t gridPoints, const FixedMatrix& matrix)
        : nodes_(random.Words(size_t{gridPoints} * gridPoints * gridPoints * 3)), record_{matrix, gridPoints, nodes_.Data()} {}
    const ThreeDTable* Get() const { return &record_; }
    Colour16 Slow(const Colour16& in) const {
        Colour16 out{};
        for (size_t c = 0; c < 3; ++c) out[c] = reference::ThreeDLookup(in.data(), nodes_.Data(), record_.gridPoints, 3, reference::Wide(c));
        return out;
    }

private:
    GuardedArray<uint16_t> nodes_;
    ThreeDTable record_;
};

TEST(ThreeDTableRecords, EqualTheSlowVersions) {
    Random random(66);
    for (int trial = 0; trial < 60; ++trial) {
        FixedMatrix matrix;
        for (int32_t& element : matrix.element) element = static_cast<int32_t>(random.Below(90000)) - 20000;
        const Table3D table(random, 2 + random.Below(16), matrix);
        for (int i = 0; i < 1000; ++i) {
            const Colour16 in = {random.EdgeWord(), random.EdgeWord(), random.EdgeWord()};
            const reference::Multiplied turned = reference::MatrixMultiply(matrix, in);
            Colour16 out{};
            Match_3DLut(table.Get(), in.data(), out.data());
            ASSERT_EQ(out, table.Slow(turned.colour));
            Colour16 proofed{};
            Proof_3DLut(table.Get(), in.data(), proofed.data());
            ASSERT_EQ(proofed, out);
            Colour16 predicted{};
            Predict_3DLut(table.Get(), in.data(), predicted.data());
            ASSERT_EQ(predicted, table.Slow(in)) << "without the matrix";
            uint8_t flag = 7;
            Gamut_3DLut(table.Get(), in.data(), &flag);
            ASSERT_EQ(flag, turned.clamped ? 255 : table.Slow(turned.colour)[0] / 256);
        }
    }
}

TEST(Gamut3DLut, StopsWhenTheMatrixClamps) {
    ThreeDTable record{};  // without any nodes
    record.matrix = {{65536, 0, 0, 0, 65536, 0, 0, 0, -1}};
    const uint16_t in[3] = {1, 2, 3};
    uint8_t flag = 0;
    Gamut_3DLut(&record, in, &flag);
    EXPECT_EQ(flag, 255);
}

TEST(Gamut3DLut, GivesTheHighByteOfTheFirstOutput) {
    const struct {
        uint16_t node;
        uint8_t flag;
    } rows[] = {{0, 0}, {255, 0}, {256, 1}, {0x8000, 0x80}, {65535, 255}};
    for (const auto& row : rows) {
        GuardedArray<uint16_t> nodes(24, 1);
        for (size_t node = 0; node < 8; ++node) nodes[3 * node] = row.node;
        const ThreeDTable record = {{{65536, 0, 0, 0, 65536, 0, 0, 0, 65536}}, 2, nodes.Data()};
        const uint16_t in[3] = {65535, 40000, 7};
        uint8_t flag = 99;
        Gamut_3DLut(&record, in, &flag);
        EXPECT_EQ(flag, row.flag) << row.node;
    }
}

TEST(ThreeDTableRecords, EvaluatorsAllocateNothing) {
    Random random(67);
    const Table3D table(random, 9, {{65536, 0, 0, 0, 65536, 0, 0, 0, 65536}});
    uint16_t out[3];
    uint8_t flag;
    EXPECT_EQ(reference::AllocationsDuring([&] {
                  const uint16_t in[3] = {1000, 2000, 60000};
                  Match_3DLut(table.Get(), in, out);
                  Predict_3DLut(table.Get(), in, out);
                  Proof_3DLut(table.Get(), in, out);
                  Gamut_3DLut(table.Get(), in, &flag);
              }),
              0u);
}

}  // namespace
