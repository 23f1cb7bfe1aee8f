#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "engine/DirectPrinter.h"
#include "engine/MatchingData.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

constexpr uint32_t kQua0 = 0x51756130;
constexpr uint32_t kQua1 = 0x51756131;

using Triple = std::array<uint16_t, 3>;

Triple Of(const uint16_t (&values)[3]) {
    return {values[0], values[1], values[2]};
}

Triple Match(const MatchingData* data, const Triple& in) {
    Triple out;
    Match_ShaperMatrix(&data->monitorShaper, in.data(), out.data());
    return out;
}

Triple Predict(const MatchingData* data, const Triple& in) {
    Triple out;
    Predict_ShaperMatrix(&data->monitorShaper, in.data(), out.data());
    return out;
}

/// One pixel through the proof transform, as the transform's own interface describes it.
Triple Proof(const MatchingData* data, const Triple& in) {
    const uint16_t source[4] = {in[0], in[1], in[2], 0};
    uint16_t destination[4] = {};
    EXPECT_TRUE(ColorSyncTransformConvert(data->proofTransform, 1, 1, destination, kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, 8, source,
                                          kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, 8, nullptr));
    return {destination[0], destination[1], destination[2]};
}

Triple NodeInput(const PixelScale& scale, uint32_t i, uint32_t j, uint32_t k) {
    const uint32_t node[3] = {i, j, k};
    Triple in;
    for (size_t c = 0; c < 3; ++c) in[c] = static_cast<uint16_t>(scale.min[c] + scale.range[c] * node[c] / 64);
    return in;
}

const uint16_t* Node(const PixelTable& table, uint32_t i, uint32_t j, uint32_t k) {
    return static_cast<const uint16_t*>(table.table) + 4 * ((i * 65 + j) * 65 + k);
}

OwnedRecord LoadGood(const Choice& choice) {
    Loaded loaded = Load(choice);
    EXPECT_EQ(loaded.status, 0);
    return std::move(loaded.data);
}

class MatchingTables : public testing::Test {
protected:
    void SetUp() override {
        data = LoadGood({kSRGBMonitor, kCMYKPrinter});
        ASSERT_TRUE(data);
    }
    OwnedRecord data;
};

TEST(SetDirectMatchingQuality, NullRecordIsNoError) {
    EXPECT_EQ(SetDirectMatchingQuality(nullptr, kQua0), 0);
    EXPECT_EQ(SetDirectMatchingQuality(nullptr, kQua1), 0);
}

TEST_F(MatchingTables, OtherQualitiesBuildNothing) {
    for (const uint32_t quality : {kQua1, 0x51756132u, 0u, 0x30617551u}) {
        EXPECT_EQ(SetDirectMatchingQuality(data.get(), quality), 0);
        EXPECT_EQ(data->tablesBuilt, 0u);
        EXPECT_EQ(data->matchTable.table, nullptr);
        EXPECT_EQ(data->gamutTable.table, nullptr);
    }
}

TEST_F(MatchingTables, FastestQualityBuildsFourTablesOf65Nodes) {
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua0), 0);
    EXPECT_EQ(data->tablesBuilt, 1u);
    for (const PixelTable* table : {&data->matchTable, &data->proofTable, &data->predictTable, &data->gamutTable}) {
        ASSERT_NE(table->table, nullptr);
        EXPECT_EQ(table->gridSize, 65u);
        EXPECT_EQ(table->shift, 9u);
    }
}

TEST_F(MatchingTables, AnotherQualityKeepsTheTablesButStopsTheirUse) {
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua0), 0);
    const PixelTable tables[] = {data->matchTable, data->proofTable, data->predictTable, data->gamutTable};
    const uint16_t probe = Node(data->matchTable, 10, 20, 30)[0];
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua1), 0);
    EXPECT_EQ(data->tablesBuilt, 0u);
    EXPECT_EQ(data->matchTable.table, tables[0].table);
    EXPECT_EQ(data->proofTable.table, tables[1].table);
    EXPECT_EQ(data->predictTable.table, tables[2].table);
    EXPECT_EQ(data->gamutTable.table, tables[3].table);
    EXPECT_EQ(Node(data->matchTable, 10, 20, 30)[0], probe);
}

TEST_F(MatchingTables, FastestQualityAgainRebuildsInTheSameStorage) {
    constexpr size_t kNodes = 65 * 65 * 65;
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua0), 0);
    const PixelTable tables[] = {data->matchTable, data->proofTable, data->predictTable, data->gamutTable};
    std::vector<std::vector<uint8_t>> built;
    for (const PixelTable& table : tables) {
        const size_t bytes = table.table == data->gamutTable.table ? kNodes : 8 * kNodes;
        const auto* contents = static_cast<const uint8_t*>(table.table);
        built.emplace_back(contents, contents + bytes);
    }
    MonitorTables* const tabulated = data->monitorTables;
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua1), 0);
    for (size_t t = 0; t < 4; ++t) {
        // The fourth word of a node is no part of a table's contents.
        for (size_t i = 0; i < built[t].size(); ++i) {
            if (t == 3 || i % 8 < 6) static_cast<uint8_t*>(tables[t].table)[i] ^= 0x5A;
        }
    }
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua0), 0);
    EXPECT_EQ(data->tablesBuilt, 1u);
    EXPECT_EQ(data->matchTable.table, tables[0].table);
    EXPECT_EQ(data->proofTable.table, tables[1].table);
    EXPECT_EQ(data->predictTable.table, tables[2].table);
    EXPECT_EQ(data->gamutTable.table, tables[3].table);
    EXPECT_EQ(data->monitorTables, tabulated) << "the same model is not tabulated again";
    for (size_t t = 0; t < 4; ++t) EXPECT_EQ(std::memcmp(tables[t].table, built[t].data(), built[t].size()), 0) << t;
}

TEST_F(MatchingTables, ScalesSpanTheMonitorsRange) {
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua0), 0);
    const Triple white = Predict(data.get(), {65535, 65535, 65535});
    const Triple black = Predict(data.get(), {0, 0, 0});
    const Triple proofedWhite = Proof(data.get(), white);
    const Triple proofedBlack = Proof(data.get(), black);
    EXPECT_NE(proofedBlack, black);  // ink is no black
    for (size_t c = 0; c < 3; ++c) {
        EXPECT_EQ(data->matchTable.scale.min[c], black[c]);
        EXPECT_EQ(data->matchTable.scale.range[c], white[c] - black[c]);
        EXPECT_EQ(data->gamutTable.scale.min[c], black[c]);
        EXPECT_EQ(data->gamutTable.scale.range[c], white[c] - black[c]);
        EXPECT_EQ(data->proofTable.scale.min[c], proofedBlack[c]);
        EXPECT_EQ(data->proofTable.scale.range[c], proofedWhite[c] - proofedBlack[c]);
        EXPECT_EQ(data->predictTable.scale.min[c], 0);
        EXPECT_EQ(data->predictTable.scale.range[c], 32768);
    }
}

TEST_F(MatchingTables, EveryNodeIsItsOperationOfTheNodeInput) {
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua0), 0);
    const PixelScale wholeDevice = {{65535, 65535, 65535}, {0, 0, 0}};
    for (uint32_t i = 0; i < 65; ++i) {
        for (uint32_t j = 0; j < 65; ++j) {
            for (uint32_t k = 0; k < 65; ++k) {
                const Triple in = NodeInput(data->matchTable.scale, i, j, k);
                const uint16_t* match = Node(data->matchTable, i, j, k);
                ASSERT_EQ((Triple{match[0], match[1], match[2]}), Match(data.get(), in)) << i << " " << j << " " << k;
                const uint16_t* predict = Node(data->predictTable, i, j, k);
                ASSERT_EQ((Triple{predict[0], predict[1], predict[2]}), Predict(data.get(), NodeInput(wholeDevice, i, j, k)));
                uint8_t flag = 77;
                Gamut_ShaperMatrix(&data->monitorShaper, in.data(), &flag);
                ASSERT_EQ(static_cast<const uint8_t*>(data->gamutTable.table)[(i * 65 + j) * 65 + k], flag);
                ASSERT_EQ(match[3], 0);
                ASSERT_EQ(predict[3], 0);
                ASSERT_EQ(Node(data->proofTable, i, j, k)[3], 0);
            }
        }
    }
}

TEST_F(MatchingTables, EveryProofNodeIsTheMatchOfTheProofedNodeInput) {
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua0), 0);
    // One pixel a conversion is slow: every node on the faces' diagonals and a coprime walk through the rest.
    uint32_t walked = 0;
    for (uint32_t node = 0; node < 65 * 65 * 65; node += 11, ++walked) {
        const uint32_t i = node / (65 * 65), j = node / 65 % 65, k = node % 65;
        const uint16_t* proof = Node(data->proofTable, i, j, k);
        const Triple expected = Match(data.get(), Proof(data.get(), NodeInput(data->proofTable.scale, i, j, k)));
        ASSERT_EQ((Triple{proof[0], proof[1], proof[2]}), expected) << i << " " << j << " " << k;
    }
    EXPECT_EQ(walked, 24966u);
    for (uint32_t n = 0; n < 65; ++n) {
        const uint16_t* proof = Node(data->proofTable, n, n, n);
        EXPECT_EQ((Triple{proof[0], proof[1], proof[2]}), Match(data.get(), Proof(data.get(), NodeInput(data->proofTable.scale, n, n, n)))) << n;
    }
}

TEST(MatchingTableScales, AChannelWithoutExtentHasRangeOne) {
    // Curves that stay at 0 predict one colour for every device value.
    const TemporaryFolder folder;
    const OwnedRecord data = LoadGood({folder.Write("monitor.icc", MatrixMonitor(CurvTag({0, 0})).Make()), kCMYKPrinter});
    ASSERT_TRUE(data);
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua0), 0);
    for (const PixelTable* table : {&data->matchTable, &data->proofTable, &data->gamutTable}) {
        EXPECT_EQ(Of(table->scale.range), (Triple{1, 1, 1}));
    }
    const uint16_t in[4] = {1000, 2000, 3000, 0};
    uint16_t out[4] = {};
    uint8_t answer = 7;
    MapPixel16ToDevice16(&data->matchTable, in, out, 1);
    MapPixel16ToUInt8(&data->gamutTable, in, &answer, 1);
    EXPECT_EQ(answer, 255);
}

TEST(MatchingTableScales, AFallingMonitorWrapsItsRange) {
    const TemporaryFolder folder;
    const OwnedRecord data = LoadGood({folder.Write("monitor.icc", MatrixMonitor(CurvTag({65535, 0})).Make()), kCMYKPrinter});
    ASSERT_TRUE(data);
    ASSERT_EQ(SetDirectMatchingQuality(data.get(), kQua0), 0);
    const Triple white = Predict(data.get(), {65535, 65535, 65535});
    const Triple black = Predict(data.get(), {0, 0, 0});
    ASSERT_LT(white[0], black[0]);
    for (size_t c = 0; c < 3; ++c) EXPECT_EQ(data->matchTable.scale.range[c], static_cast<uint16_t>(white[c] - black[c]));
    for (const uint32_t n : {0u, 1u, 31u, 64u}) {
        const uint16_t* node = Node(data->matchTable, n, 64 - n, n);
        EXPECT_EQ((Triple{node[0], node[1], node[2]}), Match(data.get(), NodeInput(data->matchTable.scale, n, 64 - n, n)));
    }
}

TEST_F(MatchingTables, TablesOfAnotherSizeAreFilledToo) {
    for (PixelTable* table : {&data->matchTable, &data->proofTable}) ASSERT_EQ(CreateTablePixel16(3, table), 0);
    // More nodes a row than are converted at a time.
    ASSERT_EQ(CreateTablePixel16(7, &data->predictTable), 0);
    ASSERT_EQ(CreateTableUInt8(7, &data->gamutTable), 0);
    BuildMatchingTables(data.get());
    EXPECT_EQ(data->tablesBuilt, 0u);
    const uint16_t* last = static_cast<const uint16_t*>(data->matchTable.table) + 4 * (9 * 9 * 9 - 1);
    EXPECT_EQ((Triple{last[0], last[1], last[2]}), Match(data.get(), Predict(data.get(), {65535, 65535, 65535})));
    const auto* gamut = static_cast<const uint8_t*>(data->gamutTable.table);
    const PixelScale& scale = data->gamutTable.scale;
    for (uint32_t j = 0; j <= 128; ++j) {
        for (uint32_t k = 0; k <= 128; ++k) {
            const uint32_t node[3] = {17, j, k};
            Triple in, device;
            for (size_t c = 0; c < 3; ++c) {
                in[c] = static_cast<uint16_t>(scale.min[c] + scale.range[c] * node[c] / 128);
                device[c] = static_cast<uint16_t>(65535 * node[c] / 128);
            }
            uint8_t flag = 7;
            Gamut_ShaperMatrix(&data->monitorShaper, in.data(), &flag);
            ASSERT_EQ(gamut[(17 * 129 + j) * 129 + k], flag) << j << " " << k;
            const uint16_t* predict = static_cast<const uint16_t*>(data->predictTable.table) + 4 * ((17 * 129 + j) * 129 + k);
            ASSERT_EQ((Triple{predict[0], predict[1], predict[2]}), Predict(data.get(), device)) << j << " " << k;
        }
    }
}

}  // namespace
