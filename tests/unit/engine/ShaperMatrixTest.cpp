#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "engine/ShaperMatrix.h"
#include "tests/reference/Allocations.h"
#include "tests/reference/Curves.h"
#include "tests/reference/ShaperModel.h"
#include "tests/reference/ShaperReference.h"

namespace {

using reference::Colour16;
using reference::Model;
using reference::NamedModel;
using reference::OwnedShaper;
using reference::Random;

constexpr FixedMatrix kIdentity = {{65536, 0, 0, 0, 65536, 0, 0, 0, 65536}};

Colour16 Matched(const OwnedShaper& shaper, const Colour16& in) {
    Colour16 out{};
    Match_ShaperMatrix(shaper.Get(), in.data(), out.data());
    return out;
}

Colour16 Predicted(const OwnedShaper& shaper, const Colour16& in) {
    Colour16 out{};
    Predict_ShaperMatrix(shaper.Get(), in.data(), out.data());
    return out;
}

uint8_t GamutFlag(const OwnedShaper& shaper, const Colour16& in) {
    uint8_t flag = 7;
    Gamut_ShaperMatrix(shaper.Get(), in.data(), &flag);
    return flag;
}

TEST(ShaperMatrix, KeepsTheOrderOfItsFields) {
    EXPECT_EQ(offsetof(ICC_ShaperMatrix, curves), 0u);
    EXPECT_EQ(offsetof(ICC_ShaperMatrix, counts), 24u);
    EXPECT_EQ(offsetof(ICC_ShaperMatrix, matrix), 36u);
    EXPECT_EQ(offsetof(ICC_ShaperMatrix, inverseMatrix), 72u);
    EXPECT_EQ(offsetof(ICC_ShaperMatrix, reverse), 112u);
}

TEST(ShaperMatrix, AnswersZeroInGamutWithoutReverseTables) {
    ICC_ShaperMatrix shaper = {};
    shaper.inverseMatrix = kIdentity;
    const uint16_t in[3] = {1, 2, 3};
    uint16_t out[3] = {9, 9, 9};
    Match_ShaperMatrix(&shaper, in, out);
    EXPECT_EQ((Colour16{out[0], out[1], out[2]}), (Colour16{0, 0, 0}));
    uint8_t flag = 7;
    Gamut_ShaperMatrix(&shaper, in, &flag);
    EXPECT_EQ(flag, 0);
}

TEST(ShaperMatrix, EvaluatorsEqualTheSlowVersions) {
    for (const NamedModel& named : reference::ManyModels()) {
        const OwnedShaper shaper(named.model);
        Random random(50);
        for (int trial = 0; trial < 60000; ++trial) {
            const Colour16 in = {random.EdgeWord(), random.EdgeWord(), random.EdgeWord()};
            ASSERT_EQ(Matched(shaper, in), reference::Match(named.model, in)) << named.name;
            ASSERT_EQ(Predicted(shaper, in), reference::Predict(named.model, in)) << named.name;
            ASSERT_EQ(GamutFlag(shaper, in), reference::Gamut(named.model, in)) << named.name;
        }
    }
}

TEST(ShaperMatrix, EvaluatorsMayWorkInPlace) {
    for (const NamedModel& named : reference::ManyModels()) {
        const OwnedShaper shaper(named.model);
        const Colour16 in = {12345, 40000, 999};
        Colour16 inPlace = in;
        Match_ShaperMatrix(shaper.Get(), inPlace.data(), inPlace.data());
        EXPECT_EQ(inPlace, Matched(shaper, in)) << named.name;
        inPlace = in;
        Predict_ShaperMatrix(shaper.Get(), inPlace.data(), inPlace.data());
        EXPECT_EQ(inPlace, Predicted(shaper, in)) << named.name;
    }
}

TEST(MatchShaperMatrix, TurnsWithTheInverseMatrixAndThenLooksCurvesUpBackwards) {
    // Falling curves, so that nothing is mirrored: linear v comes from device 65535 - v.
    const auto falling = reference::StraightCurve(256, 65535, 0);
    Model model{{falling, falling, falling}, kIdentity, {{0, 65536, 0, 0, 0, 65536, 65536, 0, 0}}};
    const OwnedShaper shaper(model);
    EXPECT_EQ(Matched(shaper, {257, 514, 771}), (Colour16{65535 - 514, 65535 - 771, 65535 - 257}));
}

TEST(PredictShaperMatrix, LooksCurvesUpAndThenTurnsWithTheMatrix) {
    Model model{{{{0, 1000}, {0, 2000}, {0, 0, 3000}}}, {{0, 65536, 0, 0, 0, 65536, 65536, 0, 0}}, kIdentity};
    const OwnedShaper shaper(model);
    EXPECT_EQ(Predicted(shaper, {65535, 65535, 65535}), (Colour16{2000, 3000, 1000}));
    EXPECT_EQ(Predicted(shaper, {0, 65535, 32767}), (Colour16{2000, 0, 0})) << "each channel its own curve and count";
}

TEST(GamutShaperMatrix, ReportsClampingAndValuesOutsideTheCurves) {
    const auto inside = reference::StraightCurve(64, 1000, 60000);
    const Model model{{inside, inside, inside}, kIdentity, {{65536, 0, 0, 0, 65536, 0, -65536, 0, 131072}}};
    const OwnedShaper shaper(model);
    const struct {
        Colour16 in;
        uint8_t flag;
        const char* what;
    } rows[] = {
        {{1000, 1000, 1500}, 0, "inside; a flag from before is cleared"},
        {{1000, 60000, 30000}, 0, "at the ends of the curves"},
        {{30000, 30000, 14999}, 255, "the matrix goes below 0"},
        {{1000, 30000, 65535}, 255, "the matrix goes above full scale"},
        {{999, 30000, 20000}, 255, "below the smallest value of the first curve"},
        {{1000, 60001, 20000}, 255, "above the largest of the second"},
        {{20000, 30000, 10400}, 255, "below the smallest of the third"},
    };
    for (const auto& row : rows) EXPECT_EQ(GamutFlag(shaper, row.in), row.flag) << row.what;
}

TEST(GamutShaperMatrix, DoesNotConsultTheReverseTablesWhenTheMatrixClamps) {
    ICC_ShaperMatrix shaper{};  // without any reverse table
    shaper.inverseMatrix = {{-65536, 0, 0, 0, 65536, 0, 0, 0, 65536}};
    const uint16_t in[3] = {1, 2, 3};
    uint8_t flag = 0;
    Gamut_ShaperMatrix(&shaper, in, &flag);
    EXPECT_EQ(flag, 255);
}

// Round trips are not exact: within two segments where the curve rises without flat pieces, and mirrored on the way.
TEST(MatchShaperMatrix, ComesBackFromAPredictedColourWithinASegment) {
    const auto rising = reference::StraightCurve(256, 0, 65535);
    const OwnedShaper shaper(Model{{rising, rising, rising}, kIdentity, kIdentity});
    Random random(51);
    int inexact = 0;
    for (int trial = 0; trial < 100000; ++trial) {
        const Colour16 device = {random.EdgeWord(), random.EdgeWord(), random.EdgeWord()};
        const Colour16 back = Matched(shaper, Predicted(shaper, device));
        for (size_t c = 0; c < 3; ++c) {
            ASSERT_NEAR(back[c], device[c], 257 + 1);
            if (back[c] != device[c]) ++inexact;
        }
    }
    EXPECT_GT(inexact, 100000) << "mirrored segments come back elsewhere";
}

TEST(DeleteShaperMatrix, FreesWhatIsPresentOnceAndKeepsTheRest) {
    const Model model = reference::ManyModels()[1].model;
    const reference::Allocations before = reference::CountedAllocations();
    ICC_ShaperMatrix shaper = reference::CreateShaper(model);
    const reference::Allocations made = reference::CountedAllocations();
    const size_t temporary = made.freed - before.freed;

    DeleteShaperMatrix(&shaper);
    const reference::Allocations deleted = reference::CountedAllocations();
    EXPECT_EQ(deleted.freed - made.freed, made.taken - before.taken - temporary);
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(shaper.curves[c], nullptr);
        EXPECT_EQ(shaper.reverse[c], nullptr);
        EXPECT_EQ(shaper.counts[c], 1024u) << "counts stay";
    }
    EXPECT_EQ(std::memcmp(&shaper.matrix, &model.matrix, sizeof model.matrix), 0) << "so do the matrices";
    EXPECT_EQ(std::memcmp(&shaper.inverseMatrix, &model.inverseMatrix, sizeof model.inverseMatrix), 0);

    DeleteShaperMatrix(&shaper);
    EXPECT_EQ(reference::CountedAllocations().freed, deleted.freed) << "a second time does nothing";
}

TEST(DeleteShaperMatrix, TakesAModelThatIsOnlyPartlyBuilt) {
    ICC_ShaperMatrix shaper{};
    DeleteShaperMatrix(&shaper);
    shaper.curves[1] = static_cast<uint16_t*>(std::calloc(4, sizeof(uint16_t)));
    const uint16_t curve[] = {1, 2};
    ASSERT_EQ(ICC_BuildReverseTable(curve, 2, &shaper.reverse[2]), 0);
    DeleteShaperMatrix(&shaper);
    EXPECT_EQ(shaper.curves[1], nullptr);
    EXPECT_EQ(shaper.reverse[2], nullptr);
}

TEST(ShaperMatrix, EvaluatorsAllocateNothing) {
    const OwnedShaper shaper(reference::ManyModels()[1].model);
    uint16_t out[3];
    uint8_t flag = 0;
    const size_t taken = reference::AllocationsDuring([&] {
        for (uint32_t v = 0; v <= 65535; v += 17) {
            const uint16_t in[3] = {static_cast<uint16_t>(v), static_cast<uint16_t>(65535 - v), static_cast<uint16_t>(v / 3)};
            Match_ShaperMatrix(shaper.Get(), in, out);
            Predict_ShaperMatrix(shaper.Get(), in, out);
            Gamut_ShaperMatrix(shaper.Get(), in, &flag);
        }
    });
    EXPECT_EQ(taken, 0u);
}

}  // namespace
