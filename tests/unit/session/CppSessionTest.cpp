#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#include "ColourMatch/Session.hpp"
#include "tests/fixtures/ChangeCounter.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/SettingsStore.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

using namespace colourmatch;

const PrivateStore store;

template <typename In, typename Out>
concept Matches = requires(const Matcher& matcher, std::span<const In> in, std::span<Out> out) {
    matcher.Match(in, out);
};
template <typename In, typename Out>
concept Predicts = requires(const Matcher& matcher, std::span<const In> in, std::span<Out> out) {
    matcher.Predict(in, out);
};
template <typename In, typename Out>
concept PrinterMatches = requires(const Matcher& matcher, std::span<const In> in, std::span<Out> out) {
    matcher.PrinterMatch(in, out);
};
template <typename In, typename Out>
concept Tests = requires(const Matcher& matcher, std::span<const In> in, std::span<Out> out) {
    matcher.Gamut(in, out);
};

// A wrong number of channels, or a wrong side, does not compile.
static_assert(Matches<ReferencePixel16, DevicePixel8> && Matches<PackedReference16, PackedRGB16>);
static_assert(!Matches<ReferencePixel16, InkPixel16> && !Matches<InkPixel16, DevicePixel16> && !Matches<DevicePixel16, DevicePixel16>);
static_assert(!Matches<ReferencePixel16, ReferencePixel16> && !Matches<ReferencePixel16, std::uint8_t> && !Matches<std::uint16_t, PackedRGB16>);
static_assert(Predicts<PackedRGB8, ReferencePixel16> && !Predicts<PackedReference16, ReferencePixel16>);
static_assert(PrinterMatches<ReferencePixel16, InkPixel8> && PrinterMatches<ReferencePixel16, PackedRGB8>);
static_assert(Tests<ReferencePixel16, GamutFlag> && !Tests<ReferencePixel16, std::uint16_t>);

std::vector<ReferencePixel16> Colours(std::size_t count) {
    std::mt19937 random(3);
    const auto word = [&random] { return static_cast<std::uint16_t>(random()); };
    std::vector<ReferencePixel16> colours(count);
    for (ReferencePixel16& colour : colours) colour = {word(), word(), word(), word()};
    return colours;
}

template <typename Pixel>
std::vector<std::array<unsigned, 3>> Values(const std::vector<Pixel>& pixels) {
    std::vector<std::array<unsigned, 3>> values;
    for (const Pixel& pixel : pixels) values.push_back({pixel.red, pixel.green, pixel.blue});
    return values;
}

int StatusOf(const std::function<void()>& act, std::string* sentence = nullptr) {
    try {
        act();
    } catch (const Error& error) {
        if (sentence) *sentence = error.what();
        return error.Code();
    }
    return 0;
}

class CppMatcher : public testing::TestWithParam<std::size_t> {
protected:
    Matcher matcher{{.monitor = kSRGBMonitor, .printer = kCMYKPrinter}};
};

// Lengths around that of the tiles that packed pixels go through.
INSTANTIATE_TEST_SUITE_P(Lengths, CppMatcher, testing::Values(0, 1, 1023, 1024, 1025, 5000));

TEST_P(CppMatcher, AnswersPackedPixelsAsPaddedOnes) {
    const std::vector<ReferencePixel16> in = Colours(GetParam());
    std::vector<PackedReference16> packedIn;
    for (const ReferencePixel16& colour : in) packedIn.push_back({colour.red, colour.green, colour.blue});
    const std::span<const ReferencePixel16> source(in);
    const std::span<const PackedReference16> packedSource(packedIn);

    std::vector<DevicePixel16> expected(in.size());
    EXPECT_EQ(RecordSoftProofMatch16(matcher.Record(), reinterpret_cast<const std::uint16_t*>(in.data()),
                                     reinterpret_cast<std::uint16_t*>(expected.data()), in.size()),
              0);
    std::vector<DevicePixel16> padded(in.size());
    std::vector<PackedRGB16> packed(in.size()), fromPadded(in.size());
    matcher.Proof(source, std::span(padded));
    matcher.Proof(packedSource, std::span(packed));
    matcher.Proof(source, std::span(fromPadded));
    EXPECT_EQ(Values(padded), Values(expected));
    EXPECT_EQ(Values(packed), Values(expected));
    EXPECT_EQ(Values(fromPadded), Values(expected));

    std::vector<DevicePixel8> expected8(in.size());
    RecordMonitorMatch(matcher.Record(), reinterpret_cast<const std::uint16_t*>(in.data()), reinterpret_cast<std::uint8_t*>(expected8.data()),
                       in.size());
    std::vector<PackedRGB8> packed8(in.size());
    matcher.Match(packedSource, std::span(packed8));
    EXPECT_EQ(Values(packed8), Values(expected8));

    std::vector<PackedReference16> back(in.size()), backExpected(in.size());
    matcher.Predict(std::span<const PackedRGB8>(packed8), std::span(back));
    std::vector<ReferencePixel16> backPadded(in.size());
    matcher.Predict(std::span<const DevicePixel8>(expected8), std::span(backPadded));
    EXPECT_EQ(Values(back), Values(backPadded));
}

TEST(CppMatcherOfInks, AsksPrinterAndGamut) {
    const Matcher matcher({.monitor = kSRGBMonitor, .printer = kCMYKPrinter, .quality = Quality::Evaluated});
    EXPECT_TRUE(matcher.IsPrinterCMYK());
    const std::vector<ReferencePixel16> in = Colours(700);
    std::vector<InkPixel16> inks(in.size()), expected(in.size());
    matcher.PrinterMatch(std::span<const ReferencePixel16>(in), std::span(inks));
    RecordPrinterMatch16(matcher.Record(), reinterpret_cast<const std::uint16_t*>(in.data()), reinterpret_cast<std::uint16_t*>(expected.data()),
                         in.size());
    EXPECT_EQ(std::memcmp(inks.data(), expected.data(), in.size() * sizeof(InkPixel16)), 0);
    std::vector<GamutFlag> out(in.size()), outExpected(in.size());
    matcher.PrinterGamut(std::span<const ReferencePixel16>(in), std::span(out));
    RecordPrinterGamut(matcher.Record(), reinterpret_cast<const std::uint16_t*>(in.data()), outExpected.data(), in.size());
    EXPECT_EQ(out, outExpected);
    EXPECT_GT(std::ranges::count(out, 255), 0);

    std::vector<PackedRGB8> rgb(in.size());
    std::string sentence;
    EXPECT_EQ(StatusOf([&] { matcher.PrinterMatch(std::span<const ReferencePixel16>(in), std::span(rgb)); }, &sentence), -50);
    EXPECT_EQ(sentence, "the printer has four inks; pixels of inks are needed");
    rgb.pop_back();
    EXPECT_EQ(StatusOf([&] { matcher.Proof(std::span<const ReferencePixel16>(in), std::span(rgb)); }, &sentence), -50);
    EXPECT_EQ(sentence, "the source has 700 pixels and the destination 699; as many are needed");
}

TEST(CppMatcherRefusals, AreErrorsWithStatusAndSentence) {
    std::string sentence;
    EXPECT_EQ(StatusOf([] { Matcher({.monitor = std::filesystem::path("/nowhere/display.icc")}); }, &sentence), -43);
    EXPECT_EQ(sentence, "/nowhere/display.icc: the file is not there; the file of a profile is needed");
    EXPECT_EQ(StatusOf([] { Matcher({.monitor = kSRGBMonitor, .printer = kSRGBMonitor}); }, &sentence), -170);
    EXPECT_NE(sentence.find(kSRGBMonitor), std::string::npos);
    EXPECT_EQ(StatusOf([] { Matcher({.monitor = Profile::OfBytes({})}); }), -170);
    EXPECT_EQ(StatusOf([] { Matcher({.monitor = ""}); }), -43);

    const Matcher monitorAlone({.monitor = kSRGBMonitor});
    EXPECT_FALSE(monitorAlone.HasPrinter());
    const std::vector<PackedReference16> in(3);
    std::vector<PackedRGB8> out(3);
    monitorAlone.Match(std::span<const PackedReference16>(in), std::span(out));
    EXPECT_EQ(StatusOf([&] { monitorAlone.Proof(std::span<const PackedReference16>(in), std::span(out)); }, &sentence), 1000);
    EXPECT_EQ(sentence, "the record has no printer; the profile of one is needed");
}

TEST(CppMatchers, AreMadeOfBytesAndMovedBetweenThreads) {
    std::ifstream file(kSRGBMonitor, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    const ViewingConditions conditions = {-0.02, 1.1, 0, 0, false};
    Matcher ofBytes({.monitor = Profile::OfBytes(std::as_bytes(std::span(bytes))), .conditions = conditions});
    const Matcher ofFile({.monitor = kSRGBMonitor, .conditions = conditions}), plain({.monitor = kSRGBMonitor});
    const std::vector<ReferencePixel16> in = Colours(100);
    const auto answer = [&in](const Matcher& matcher) {
        std::vector<PackedRGB16> out(in.size());
        matcher.Match(std::span<const ReferencePixel16>(in), std::span(out));
        return Values(out);
    };
    std::vector<std::array<unsigned, 3>> elsewhere;
    std::thread([&elsewhere, &answer, moved = std::move(ofBytes)] { elsewhere = answer(moved); }).join();
    EXPECT_EQ(elsewhere, answer(ofFile));
    EXPECT_NE(elsewhere, answer(plain));
}

TEST(CppSession, HasTheStoredRecordAndTellsOfChanges) {
    EmptyStore();
    ProfileMaker maker = MatrixMonitor(CurvTag({460}));
    maker.profileClass = Code("prtr");
    const TemporaryFolder folder;
    const std::string printer = folder.Write("printer.icc", maker.Make());
    const auto choose = [&printer](const std::string& monitor) {
        const Alias first(monitor), second(printer);
        SetFileLocationPreference(first.Get(), CFSTR("Monitor Profile"), false);
        SetFileLocationPreference(second.Get(), CFSTR("Printer Profile"), false);
        SynchronisePreferences(true);
        TurnRunLoop(0.1);
    };
    int told = 0, toldOther = 0;
    {
        const Session session([&told] { ++told; }), other([&toldOther] { ++toldOther; });
        EXPECT_FALSE(session.Current());
        choose(kSRGBMonitor);
        EXPECT_EQ(told, 1);
        EXPECT_EQ(toldOther, 1);
        const std::optional<Matcher> before = session.Current();
        ASSERT_TRUE(before);
        choose(kGammaMonitor);
        EXPECT_EQ(told, 2);
        const std::optional<Matcher> after = session.Current();
        ASSERT_TRUE(after);
        EXPECT_NE(before->Record(), after->Record());
        // The record from before the change still answers.
        const std::vector<ReferencePixel16> in = Colours(10);
        std::vector<PackedRGB16> old(10), fresh(10);
        before->Match(std::span<const ReferencePixel16>(in), std::span(old));
        after->Match(std::span<const ReferencePixel16>(in), std::span(fresh));
        EXPECT_NE(Values(old), Values(fresh));
    }
    choose(kSRGBMonitor);
    EXPECT_EQ(told, 2);
    EXPECT_EQ(GetMatchingData(), nullptr);
}

}  // namespace
