// The sixteen operations on real profiles, from the host's call to its answer, against slow versions that share no code with them.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <set>

#include "session/ColourOperations.h"
#include "session/MatchingDataHandle.h"
#include "tests/fixtures/LcmsTruth.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/Transforms.h"
#include "tests/reference/Curves.h"
#include "tests/reference/GridReference.h"
#include "tests/reference/MonitorModel.h"
#include "tests/reference/ShaperReference.h"

namespace {

using reference::MonitorModel;
using reference::Vector3;
using Pixels = std::vector<uint16_t>;

constexpr uint32_t kQua0 = 0x51756130;
constexpr uint32_t kQua1 = 0x51756131;
constexpr uint16_t kUntouched16 = 0x5EED;
constexpr uint8_t kUntouched8 = 0x5E;

/// Greys, the corners and a coarse grid of the cube, dark colours, and random ones; the fourth words are noise.
Pixels ManyColours(uint32_t seed) {
    reference::Random random(seed);
    Pixels pixels;
    const auto add = [&](uint32_t r, uint32_t g, uint32_t b) {
        for (const uint32_t value : {r, g, b}) pixels.push_back(static_cast<uint16_t>(value));
        pixels.push_back(random.Word());
    };
    for (uint32_t i = 0; i <= 64; ++i) add(i * 1023, i * 1023, i * 1023);
    for (uint32_t i = 0; i < 7 * 7 * 7; ++i) add(i / 49 * 65535 / 6, i / 7 % 7 * 65535 / 6, i % 7 * 65535 / 6);
    for (int i = 0; i < 600; ++i) {
        uint32_t values[3];  // one by one, in this order
        for (uint32_t& value : values) value = i < 200 ? random.Below(1500) : random.Word();
        add(values[0], values[1], values[2]);
    }
    return pixels;
}

Vector3 Colour(const Pixels& pixels, size_t p) {
    return {double(pixels[4 * p]), double(pixels[4 * p + 1]), double(pixels[4 * p + 2])};
}

/// 8-bit device pixels, the first byte noise.
std::vector<uint8_t> HighBytes(const Pixels& pixels) {
    std::vector<uint8_t> bytes(pixels.size());
    for (size_t p = 0; p < pixels.size() / 4; ++p) {
        for (size_t c = 0; c < 4; ++c) bytes[4 * p + (c + 1) % 4] = static_cast<uint8_t>(pixels[4 * p + c] >> 8);
    }
    return bytes;
}

class ColourPath : public testing::Test {
protected:
    void TearDown() override { SetMatchingData(nullptr); }

    /// Builds a record and makes it current. Borrowed.
    static MatchingData* Install(const Choice& choice, uint32_t quality) {
        Loaded loaded = Load(choice);
        EXPECT_EQ(loaded.status, 0) << choice.monitor << " " << choice.printer << " " << choice.proofer;
        if (!loaded.data) return nullptr;
        EXPECT_EQ(SetDirectMatchingQuality(loaded.data.get(), quality), 0);
        SetMatchingData(loaded.data.get());
        return loaded.data.release();
    }
};

// ---- monitors ----

struct Differences {
    double largest = 0;
    double sum = 0;
    size_t count = 0;

    void Add(double difference) {
        largest = std::max(largest, difference);
        sum += difference;
        ++count;
    }
    double Mean() const { return sum / static_cast<double>(count); }
};

std::vector<std::string> MatrixMonitors() {
    std::vector<std::string> paths;
    for (const char* folder :
         {"/usr/share/color/icc/colord", "/usr/share/color/icc", "/usr/share/color/argyll/ref", "/usr/share/color/icc/ghostscript"}) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            const std::string extension = entry.path().extension();
            if (extension != ".icc" && extension != ".icm") continue;
            if (reference::IsMatrixProfile(reference::Tags(ReadFile(entry.path())))) paths.push_back(entry.path());
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

TEST_F(ColourPath, MonitorsAgreeWithTheirProfilesEvaluatedInDoubles) {
    const std::vector<std::string> monitors = MatrixMonitors();
    ASSERT_GE(monitors.size(), 49u) << "install colord-data, icc-profiles-free, libgs-common and argyll-ref";
    const std::vector<uint8_t> referenceBytes = ReadFile(kReferenceProfile);
    const Pixels colours = ManyColours(1);
    const size_t count = colours.size() / 4;
    for (const std::string& path : monitors) {
        SCOPED_TRACE(path);
        ASSERT_TRUE(Install({path, kCMYKPrinter}, kQua1));
        const MonitorModel model(ReadFile(path), referenceBytes);

        Pixels predicted(4 * count, kUntouched16);
        ASSERT_EQ(MonitorPredict16(colours.data(), predicted.data(), count), 0);
        Differences differences;
        for (size_t p = 0; p < count; ++p) {
            const Vector3 exact = model.Predict(Colour(colours, p));
            const Vector3 error = model.PredictError(Colour(colours, p));
            for (size_t c = 0; c < 3; ++c) {
                const double inRange = std::clamp(exact[c], 0.0, 65535.0);
                ASSERT_NEAR(predicted[4 * p + c], inRange, error[c]) << "predict " << p << " " << c;
                differences.Add(std::abs(predicted[4 * p + c] - inRange));
            }
            ASSERT_EQ(predicted[4 * p + 3], kUntouched16);
        }
        // The bounds add up the worst of every step; on average the steps' errors cancel.
        EXPECT_LE(differences.Mean(), 1.25);

        Pixels matched(4 * count, kUntouched16);
        ASSERT_EQ(MonitorMatch16(colours.data(), matched.data(), count), 0);
        std::vector<uint8_t> gamut(count);
        ASSERT_EQ(MonitorGamut(colours.data(), gamut.data(), count), 0);
        size_t inside = 0, outside = 0;
        for (size_t p = 0; p < count; ++p) {
            const Vector3 linear = model.ToLinear(Colour(colours, p));
            const Vector3 error = model.ToLinearError(Colour(colours, p));
            bool surelyIn = true, surelyOut = false;
            for (size_t c = 0; c < 3; ++c) {
                ASSERT_TRUE(model.MayAnswer(c, linear[c], error[c], matched[4 * p + c]))
                    << "match " << p << " " << c << ": " << matched[4 * p + c] << " for linear " << linear[c] << " +- " << error[c];
                const double least = std::max(0.0, model.Least(c)), most = std::min(65535.0, model.Most(c));
                surelyIn &= linear[c] - error[c] - 0.5 > least && linear[c] + error[c] + 0.5 < most;
                surelyOut |= linear[c] + error[c] + 0.5 < least || linear[c] - error[c] - 0.5 > most;
            }
            ASSERT_EQ(matched[4 * p + 3], kUntouched16);
            if (surelyOut) {
                ASSERT_EQ(gamut[p], 255) << p;
            }
            if (surelyIn) {
                ASSERT_EQ(gamut[p], 0) << p;
            }
            inside += surelyIn;
            outside += surelyOut;
        }
        // The bounds are narrow enough to decide nearly every colour.
        EXPECT_GT(inside + outside, count * 8 / 10) << inside << " " << outside;
        EXPECT_GT(inside, 0u);
    }
}

/// The record's monitor model for the slow evaluator.
reference::Model ModelOf(const MatchingData* data) {
    reference::Model model;
    for (size_t c = 0; c < 3; ++c) {
        const uint16_t* curve = data->monitorShaper.curves[c];
        model.curves[c].assign(curve, curve + data->monitorShaper.counts[c]);
    }
    model.matrix = data->monitorShaper.matrix;
    model.inverseMatrix = data->monitorShaper.inverseMatrix;
    return model;
}

TEST_F(ColourPath, DirectMonitorOperationsEqualTheSlowModelBitForBit) {
    for (const std::string& path : {kSRGBMonitor, kGammaMonitor, kLuminousMonitor, std::string("/usr/share/color/icc/ghostscript/scrgb.icc"),
                                    std::string("/usr/share/color/icc/colord/ProPhotoRGB.icc"), std::string("/usr/share/color/icc/LStar-RGB.icc")}) {
        SCOPED_TRACE(path);
        const MatchingData* data = Install({path, kCMYKPrinter}, kQua1);
        ASSERT_TRUE(data);
        const reference::Model model = ModelOf(data);
        Pixels colours = ManyColours(2);
        colours.resize(4 * 500);  // the slow model is slow
        const size_t count = colours.size() / 4;
        const std::vector<uint8_t> bytes = HighBytes(colours);

        Pixels matched(4 * count, kUntouched16), predicted(4 * count, kUntouched16), predicted8(4 * count, kUntouched16);
        std::vector<uint8_t> matched8(4 * count, kUntouched8), gamut(count);
        ASSERT_EQ(MonitorMatch16(colours.data(), matched.data(), count), 0);
        ASSERT_EQ(MonitorMatch(colours.data(), matched8.data(), count), 0);
        ASSERT_EQ(MonitorPredict16(colours.data(), predicted.data(), count), 0);
        ASSERT_EQ(MonitorPredict(bytes.data(), predicted8.data(), count), 0);
        ASSERT_EQ(MonitorGamut(colours.data(), gamut.data(), count), 0);
        for (size_t p = 0; p < count; ++p) {
            const reference::Colour16 in = {colours[4 * p], colours[4 * p + 1], colours[4 * p + 2]};
            const reference::Colour16 match = reference::Match(model, in);
            const reference::Colour16 predict = reference::Predict(model, in);
            reference::Colour16 wide;
            for (size_t c = 0; c < 3; ++c) wide[c] = static_cast<uint16_t>(bytes[4 * p + 1 + c] << 8 | bytes[4 * p + 1 + c]);
            const reference::Colour16 predict8 = reference::Predict(model, wide);
            for (size_t c = 0; c < 3; ++c) {
                ASSERT_EQ(matched[4 * p + c], match[c]) << p;
                ASSERT_EQ(matched8[4 * p + 1 + c], match[c] >> 8) << p;
                ASSERT_EQ(predicted[4 * p + c], predict[c]) << p;
                ASSERT_EQ(predicted8[4 * p + c], predict8[c]) << p;
            }
            ASSERT_EQ(gamut[p], reference::Gamut(model, in)) << p;
            ASSERT_EQ(matched[4 * p + 3], kUntouched16);
            ASSERT_EQ(matched8[4 * p], kUntouched8);
            ASSERT_EQ(predicted[4 * p + 3], kUntouched16);
            ASSERT_EQ(predicted8[4 * p + 3], kUntouched16);
        }
    }
}

// ---- tables ----

/// A component in the grid's range, clamped.
reference::Wide Clamped(const PixelTable& table, size_t c, int value) {
    const int scaled = (value - table.scale.min[c]) * 32768 / table.scale.range[c];
    return static_cast<reference::Wide>(std::clamp(scaled, 0, 32768));
}

reference::Wide LookUp16(const PixelTable& table, const reference::Triple& scaled, size_t channel) {
    return reference::GridLookup(scaled, 6, [&](auto i, auto j, auto k) {
        return reference::Wide{static_cast<const uint16_t*>(table.table)[4 * ((i * 65 + j) * 65 + k) + channel]};
    });
}

TEST_F(ColourPath, TableOperationsEqualTheSlowInterpolationBitForBit) {
    for (const Choice& choice : {Choice{kSRGBMonitor, kCMYKPrinter}, Choice{kLuminousMonitor, PrinterNamed("rgb_printer").path},
                                 Choice{"/usr/share/color/icc/colord/ProPhotoRGB.icc", PrinterNamed("fogra39l").path}}) {
        SCOPED_TRACE(choice.monitor + " " + choice.printer);
        const MatchingData* data = Install(choice, kQua0);
        ASSERT_TRUE(data);
        ASSERT_EQ(data->tablesBuilt, 1u);
        const Pixels colours = ManyColours(3);
        const size_t count = colours.size() / 4;
        const std::vector<uint8_t> bytes = HighBytes(colours);

        const struct {
            const char* name;
            const PixelTable* table;
            decltype(&MonitorMatch16) to16;
            decltype(&MonitorMatch) to8;
        } matches[] = {{"monitor", &data->matchTable, MonitorMatch16, MonitorMatch}, {"proof", &data->proofTable, SoftProofMatch16, SoftProofMatch}};
        for (const auto& match : matches) {
            Pixels matched(4 * count, kUntouched16);
            std::vector<uint8_t> matched8(4 * count, kUntouched8);
            ASSERT_EQ(match.to16(colours.data(), matched.data(), count), 0);
            ASSERT_EQ(match.to8(colours.data(), matched8.data(), count), 0);
            for (size_t p = 0; p < count; ++p) {
                reference::Triple scaled;
                for (size_t c = 0; c < 3; ++c) scaled[c] = Clamped(*match.table, c, colours[4 * p + c]);
                for (size_t c = 0; c < 3; ++c) {
                    const reference::Wide expected = LookUp16(*match.table, scaled, c);
                    ASSERT_EQ(matched[4 * p + c], expected) << match.name << " " << p;
                    ASSERT_EQ(matched8[4 * p + 1 + c], expected / 256) << match.name << " " << p;
                }
                ASSERT_EQ(matched[4 * p + 3], 0);
                ASSERT_EQ(matched8[4 * p], kUntouched8);
            }
        }

        const struct {
            decltype(&MonitorPredict16) from16;
            decltype(&MonitorPredict) from8;
            decltype(&MonitorGamut) gamut;
        } others[] = {{MonitorPredict16, MonitorPredict, MonitorGamut}, {SoftProofPredict16, SoftProofPredict, SoftProofGamut}};
        for (const auto& other : others) {
            Pixels predicted(4 * count, kUntouched16), predicted8(4 * count, kUntouched16);
            std::vector<uint8_t> gamut(count, kUntouched8);
            ASSERT_EQ(other.from16(colours.data(), predicted.data(), count), 0);
            ASSERT_EQ(other.from8(bytes.data(), predicted8.data(), count), 0);
            ASSERT_EQ(other.gamut(colours.data(), gamut.data(), count), 0);
            size_t out = 0;
            for (size_t p = 0; p < count; ++p) {
                reference::Triple from16, from8, scaled;
                bool outside = false;
                for (size_t c = 0; c < 3; ++c) {
                    from16[c] = reference::Wide{colours[4 * p + c]} * 32768 / 65535;
                    from8[c] = reference::Wide{bytes[4 * p + 1 + c]} * 32768 / 255;
                    const int distance = colours[4 * p + c] - data->gamutTable.scale.min[c];
                    outside |= distance < 0 || distance * 32768LL / data->gamutTable.scale.range[c] > 32768;
                    scaled[c] = Clamped(data->gamutTable, c, colours[4 * p + c]);
                }
                for (size_t c = 0; c < 3; ++c) {
                    ASSERT_EQ(predicted[4 * p + c], LookUp16(data->predictTable, from16, c)) << p;
                    ASSERT_EQ(predicted8[4 * p + c], LookUp16(data->predictTable, from8, c)) << p;
                }
                ASSERT_EQ(predicted[4 * p + 3], kUntouched16);
                ASSERT_EQ(predicted8[4 * p + 3], 0);
                const reference::Wide inDomain = reference::GridLookup(scaled, 6, [&](auto i, auto j, auto k) {
                    return reference::Wide{static_cast<const uint8_t*>(data->gamutTable.table)[(i * 65 + j) * 65 + k]};
                });
                ASSERT_EQ(gamut[p], outside ? 255 : inDomain) << p;
                out += gamut[p] == 255;
            }
            EXPECT_GT(out, 0u);
        }
    }
}

TEST_F(ColourPath, PrinterOperationsAreTheSameWithAndWithoutTables) {
    const Pixels colours = ManyColours(4);
    const size_t count = colours.size() / 4;
    const std::vector<uint8_t> bytes = HighBytes(colours);
    std::vector<Pixels> answers[2];
    std::vector<std::vector<uint8_t>> answers8[2];
    for (const int tables : {0, 1}) {
        ASSERT_TRUE(Install({kSRGBMonitor, PrinterNamed("rgb_printer").path}, tables ? kQua0 : kQua1));
        Pixels out(4 * count, kUntouched16);
        std::vector<uint8_t> out8(4 * count, kUntouched8), gamut(count);
        ASSERT_EQ(PrinterMatch16(colours.data(), out.data(), count), 0);
        answers[tables].push_back(out);
        ASSERT_EQ(PrinterPredict16(colours.data(), out.data(), count), 0);
        answers[tables].push_back(out);
        ASSERT_EQ(PrinterPredict(bytes.data(), out.data(), count), 0);
        answers[tables].push_back(out);
        ASSERT_EQ(PrinterMatch(colours.data(), out8.data(), count), 0);
        answers8[tables].push_back(out8);
        ASSERT_EQ(PrinterGamut(colours.data(), gamut.data(), count), 0);
        answers8[tables].push_back(gamut);
        MatchingData* data = GetMatchingData();
        EXPECT_EQ(PrinterColourSpace(), 0x52474220u);
        ReleaseMatchingData(data);
        ReleaseMatchingData(data);  // the one that PrinterColourSpace keeps
    }
    EXPECT_EQ(answers[0], answers[1]);
    EXPECT_EQ(answers8[0], answers8[1]);
}

// ---- printers ----

/// Names of Printers(), or paths.
struct Chain {
    std::string printer;
    std::string proofer;  // empty: none
};

const std::string kDisplayP3 = "/usr/share/color/argyll/ref/DisplayP3.icm";

std::string PathOf(const std::string& device) {
    return device.empty() || device.front() == '/' ? device : PrinterNamed(device).path;
}

const Chain kChains[] = {
    {"ISOcoated_v2_300_bas", ""},
    {"fogra39l", ""},
    {"default_cmyk", ""},
    {"rgb_printer", ""},
    {"rgb_printer_xyz", ""},
    {"rgb_printer", "ISOcoated_v2_300_bas"},
    {"fogra39l", "rgb_printer"},
    {"ISOcoated_v2_300_bas", "fogra39l"},
    {"rgb_printer_xyz", "fogra39l"},
    {"fogra39l", kSRGBMonitor},                                            // formula curves
    {"rgb_printer", kGammaMonitor},                                        // one gamma
    {"fogra39l", "/usr/share/color/icc/ghostscript/scrgb.icc"},            // identity curves
    {"ISOcoated_v2_300_bas", "/usr/share/color/icc/sRGB.icc"},             // tables for curves
    {"fogra39l", "ps_cmyk"},                                               // version 4, tables
    {"rgb_printer", "/usr/share/color/icc/ghostscript/default_cmyk.icc"},  // CMYK between two of RGB
};

/// The chain put together in doubles, one device at a time.
class TrueChain {
public:
    explicit TrueChain(const Chain& chain)
        : lab_(LabFile()), reference_(OpenLcmsFile(kReferenceProfile)), printer_(OpenLcmsFile(PathOf(chain.printer))) {
        if (!chain.proofer.empty()) proofer_ = OpenLcmsFile(PathOf(chain.proofer));
    }

    bool IsCMYK() const { return cmsGetColorSpace(printer_.get()) == cmsSigCmykData; }
    size_t PrinterChannels() const { return IsCMYK() ? 4 : 3; }

    /// Reference RGB (0..1) to the printer's values, from those to reference RGB, and the one after the other.
    std::vector<double> Matched(const std::vector<double>& rgb) const { return Through(reference_, {&printer_}, rgb); }
    std::vector<double> Predicted(const std::vector<double>& device) const { return Through(printer_, {&reference_}, device); }
    std::vector<double> Proofed(const std::vector<double>& rgb) const { return Through(reference_, {&printer_, &reference_}, rgb); }
    /// Reference RGB to the Lab that the printer is asked for, and what the printer shows of that.
    std::vector<double> Asked(const std::vector<double>& rgb) const { return Through(reference_, {&lab_}, rgb); }
    std::vector<double> Shown(const std::vector<double>& lab) const { return StepwiseTruth({lab_.get(), printer_.get(), lab_.get()})(lab); }

private:
    /// The proofer, where there is one, stands after the first device.
    std::vector<double> Through(const LcmsFile& first, std::initializer_list<const LcmsFile*> others, const std::vector<double>& values) const {
        std::vector<cmsHPROFILE> profiles = {first.get()};
        if (proofer_) profiles.push_back(proofer_.get());
        for (const LcmsFile* other : others) profiles.push_back(other->get());
        return StepwiseTruth(profiles)(values);
    }

    LcmsFile lab_, reference_, printer_, proofer_;
};

Choice ChoiceOf(const Chain& chain) {
    return {kSRGBMonitor, PathOf(chain.printer), PathOf(chain.proofer), 1};
}

std::vector<double> ToUnit(const Pixels& pixels, size_t channels, double full) {
    std::vector<double> values;
    for (size_t p = 0; p < pixels.size() / 4; ++p)
        for (size_t c = 0; c < channels; ++c) values.push_back(pixels[4 * p + c] * full / 65535.0);
    return values;
}

/// The profiles' tables answer in 16 bits, and where one answer enters the next table, that table's slope multiplies its rounding: a few codes, and
/// a few more through a proofer's tables and the printer's.
double Tolerance(const Chain& chain) {
    return chain.proofer.empty() ? 6 : 10;
}

TEST_F(ColourPath, PrinterMatchingAgreesWithTheChainInDoubles) {
    const Pixels colours = ManyColours(5);
    const size_t count = colours.size() / 4;
    for (const Chain& chain : kChains) {
        SCOPED_TRACE(chain.printer + " " + chain.proofer);
        const TrueChain truth(chain);
        ASSERT_TRUE(Install(ChoiceOf(chain), kQua1));
        const std::vector<double> device = truth.Matched(ToUnit(colours, 3, 1.0));
        const size_t channels = truth.PrinterChannels();
        const double scale = 65535.0 / (truth.IsCMYK() ? 100.0 : 1.0);

        Pixels matched(4 * count, kUntouched16);
        std::vector<uint8_t> matched8(4 * count, kUntouched8);
        ASSERT_EQ(PrinterMatch16(colours.data(), matched.data(), count), 0);
        ASSERT_EQ(PrinterMatch(colours.data(), matched8.data(), count), 0);
        Differences differences;
        for (size_t p = 0; p < count; ++p) {
            for (size_t c = 0; c < channels; ++c) {
                const double exact = std::clamp(device[channels * p + c] * scale, 0.0, 65535.0);
                differences.Add(std::abs(matched[4 * p + c] - exact));
                ASSERT_NEAR(matched8[4 * p + c + (channels == 3)], exact / 257, 0.5 + Tolerance(chain) / 257) << p;
            }
            if (channels == 3) {
                ASSERT_EQ(matched[4 * p + 3], kUntouched16);
                ASSERT_EQ(matched8[4 * p], kUntouched8);
            }
        }
        EXPECT_LE(differences.largest, Tolerance(chain));
        EXPECT_LE(differences.Mean(), Tolerance(chain) / 7);
    }
}

TEST_F(ColourPath, PrinterPredictionAgreesWithTheChainInDoubles) {
    const Pixels inks = ManyColours(6);
    const size_t count = inks.size() / 4;
    for (const Chain& chain : kChains) {
        SCOPED_TRACE(chain.printer + " " + chain.proofer);
        const TrueChain truth(chain);
        ASSERT_TRUE(Install(ChoiceOf(chain), kQua1));
        const size_t channels = truth.PrinterChannels();
        const std::vector<double> rgb = truth.Predicted(ToUnit(inks, channels, truth.IsCMYK() ? 100.0 : 1.0));

        Pixels predicted(4 * count, kUntouched16);
        ASSERT_EQ(PrinterPredict16(inks.data(), predicted.data(), count), 0);
        Differences differences;
        for (size_t p = 0; p < count; ++p) {
            for (size_t c = 0; c < 3; ++c) differences.Add(std::abs(predicted[4 * p + c] - std::clamp(rgb[3 * p + c] * 65535.0, 0.0, 65535.0)));
            ASSERT_EQ(predicted[4 * p + 3], kUntouched16);
        }
        EXPECT_LE(differences.largest, Tolerance(chain));
        EXPECT_LE(differences.Mean(), Tolerance(chain) / 7);

        // 8-bit pixels are the same values, widened.
        std::vector<uint8_t> bytes(4 * count);
        Pixels wide(4 * count);
        for (size_t p = 0; p < count; ++p) {
            for (size_t c = 0; c < 4; ++c) {
                const auto value = static_cast<uint8_t>(inks[4 * p + c] >> 8);
                bytes[4 * p + (channels == 3 ? (c + 1) % 4 : c)] = value;
                wide[4 * p + c] = static_cast<uint16_t>(value * 257);
            }
        }
        Pixels fromBytes(4 * count, kUntouched16), fromWide(4 * count, kUntouched16);
        ASSERT_EQ(PrinterPredict(bytes.data(), fromBytes.data(), count), 0);
        ASSERT_EQ(PrinterPredict16(wide.data(), fromWide.data(), count), 0);
        EXPECT_EQ(fromBytes, fromWide);
    }
}

TEST_F(ColourPath, PrinterGamutFollowsTheRoundTripInDoubles) {
    const Pixels colours = ManyColours(7);
    const size_t count = colours.size() / 4;
    for (const Chain& chain : kChains) {
        SCOPED_TRACE(chain.printer + " " + chain.proofer);
        const TrueChain truth(chain);
        ASSERT_TRUE(Install(ChoiceOf(chain), kQua1));
        const std::vector<double> asked = truth.Asked(ToUnit(colours, 3, 1.0));
        const std::vector<double> shown = truth.Shown(asked);
        std::vector<uint8_t> gamut(count, kUntouched8);
        ASSERT_EQ(PrinterGamut(colours.data(), gamut.data(), count), 0);
        size_t in = 0, out = 0;
        for (size_t p = 0; p < count; ++p) {
            double squares = 0;
            for (size_t c = 0; c < 3; ++c) squares += std::pow(asked[3 * p + c] - shown[3 * p + c], 2);
            // Makers of gamut tags draw the line between differences of 2 and 5; what lies beyond on either side is certain.
            if (squares < 2 * 2) {
                ASSERT_EQ(gamut[p], 0) << p << " " << std::sqrt(squares);
                ++in;
            } else if (squares > 5 * 5) {
                ASSERT_EQ(gamut[p], 255) << p << " " << std::sqrt(squares);
                ++out;
            }
        }
        EXPECT_GT(in, count / 50);
        EXPECT_GT(out, 0u);
    }
}

TEST_F(ColourPath, ProofIsTheMonitorsShowingOfThePrintedColour) {
    const Pixels colours = ManyColours(8);
    const size_t count = colours.size() / 4;
    const std::vector<uint8_t> referenceBytes = ReadFile(kReferenceProfile);
    for (const Chain& chain : kChains) {
        SCOPED_TRACE(chain.printer + " " + chain.proofer);
        const TrueChain truth(chain);
        ASSERT_TRUE(Install(ChoiceOf(chain), kQua1));
        const MonitorModel model(ReadFile(kSRGBMonitor), referenceBytes);
        const std::vector<double> printed = truth.Proofed(ToUnit(colours, 3, 1.0));

        Pixels proofed(4 * count, kUntouched16);
        std::vector<uint8_t> proofed8(4 * count, kUntouched8);
        ASSERT_EQ(SoftProofMatch16(colours.data(), proofed.data(), count), 0);
        ASSERT_EQ(SoftProofMatch(colours.data(), proofed8.data(), count), 0);
        for (size_t p = 0; p < count; ++p) {
            Vector3 rgb;
            for (size_t c = 0; c < 3; ++c) rgb[c] = std::clamp(printed[3 * p + c] * 65535.0, 0.0, 65535.0);
            const Vector3 linear = model.ToLinear(rgb);
            const Vector3 error = model.ToLinearError(rgb, Tolerance(chain));
            for (size_t c = 0; c < 3; ++c) {
                ASSERT_TRUE(model.MayAnswer(c, linear[c], error[c], proofed[4 * p + c]))
                    << p << " " << c << ": " << proofed[4 * p + c] << " for linear " << linear[c] << " +- " << error[c];
                ASSERT_EQ(proofed8[4 * p + 1 + c], proofed[4 * p + c] >> 8);
            }
            ASSERT_EQ(proofed[4 * p + 3], kUntouched16);
            ASSERT_EQ(proofed8[4 * p], kUntouched8);
        }
    }
}

/// The corners, edges and greys of a display wider than sRGB, as reference RGB.
Pixels DisplayP3Colours() {
    const LcmsFile display = OpenLcmsFile(kDisplayP3), reference = OpenLcmsFile(kReferenceProfile);
    constexpr int kSteps = 6;
    std::vector<double> rgb;
    for (int i = 0; i < kSteps * kSteps * kSteps; ++i) {
        for (const int step : {i / (kSteps * kSteps), i / kSteps % kSteps, i % kSteps}) rgb.push_back(step / (kSteps - 1.0));
    }
    Pixels pixels;
    for (const double value : StepwiseTruth({display.get(), reference.get()})(rgb)) {
        pixels.push_back(static_cast<uint16_t>(std::lround(std::clamp(value, 0.0, 1.0) * 65535.0)));
        if (pixels.size() % 4 == 3) pixels.push_back(0);
    }
    return pixels;
}

TEST_F(ColourPath, AProofersFormulasKeepThePrinterToWhatTheProoferCanShow) {
    const Chain chain = {"fogra39l", kSRGBMonitor};
    const Pixels colours = DisplayP3Colours();
    const size_t count = colours.size() / 4;
    const LcmsFile reference = OpenLcmsFile(kReferenceProfile), proofer = OpenLcmsFile(kSRGBMonitor);
    const std::vector<double> onProofer = StepwiseTruth({reference.get(), proofer.get()})(ToUnit(colours, 3, 1.0));
    Pixels through(4 * count), direct(4 * count);
    ASSERT_TRUE(Install(ChoiceOf(chain), kQua1));
    ASSERT_EQ(PrinterMatch16(colours.data(), through.data(), count), 0);
    ASSERT_TRUE(Install(ChoiceOf({chain.printer, ""}), kQua1));
    ASSERT_EQ(PrinterMatch16(colours.data(), direct.data(), count), 0);
    size_t inside = 0, outside = 0;
    for (size_t p = 0; p < count; ++p) {
        double beyond = -1.0;  // how far outside the proofer's range
        int difference = 0;
        for (size_t c = 0; c < 3; ++c) beyond = std::max({beyond, -onProofer[3 * p + c], onProofer[3 * p + c] - 1.0});
        for (size_t c = 0; c < 4; ++c) difference = std::max(difference, std::abs(through[4 * p + c] - direct[4 * p + c]));
        if (beyond < 0.0) {
            EXPECT_LE(difference, Tolerance(chain)) << p;
            ++inside;
        } else if (beyond > 0.05) {
            EXPECT_GT(difference, 100) << p;
            ++outside;
        }
    }
    EXPECT_GT(inside, count / 4);
    EXPECT_GT(outside, count / 4);
}

TEST_F(ColourPath, APrinterOfFormulasIsProofedAsTheSamePrinterOfTables) {
    const TemporaryFolder folder;
    std::vector<uint16_t> entries;
    for (int i = 0; i < 4096; ++i) {
        const double x = i / 4095.0;
        entries.push_back(static_cast<uint16_t>(std::lround(65535.0 * (x < 0.04045 ? x / 12.92 : std::pow((x + 0.055) / 1.055, 2.4)))));
    }
    const auto write = [&](const char* name, const Bytes& curve) {
        ProfileMaker maker = MatrixMonitor(curve);
        maker.version = 0x04200000;
        maker.profileClass = Code("prtr");
        return folder.Write(name, maker.Make());
    };
    const std::string printers[] = {write("formulas.icc", ParaTag(3, {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045})),
                                    write("tables.icc", CurvTag(entries))};
    const Pixels colours = DisplayP3Colours();
    const size_t count = colours.size() / 4;
    Pixels proofs[2] = {Pixels(4 * count), Pixels(4 * count)}, shown(4 * count);
    for (const size_t i : {0, 1}) {
        ASSERT_TRUE(Install({kDisplayP3, printers[i]}, kQua1));
        ASSERT_EQ(SoftProofMatch16(colours.data(), proofs[i].data(), count), 0);
    }
    ASSERT_EQ(MonitorMatch16(colours.data(), shown.data(), count), 0);
    constexpr int kCodeOf8Bits = 257;  // the tables' own steps are within half of it
    size_t changed = 0;
    for (size_t p = 0; p < count; ++p) {
        int change = 0;
        for (size_t c = 0; c < 3; ++c) {
            EXPECT_NEAR(proofs[0][4 * p + c], proofs[1][4 * p + c], kCodeOf8Bits) << p;
            change = std::max(change, std::abs(proofs[0][4 * p + c] - shown[4 * p + c]));
        }
        changed += change > 1000;
    }
    EXPECT_GT(changed, count / 4);
}

TEST_F(ColourPath, PrinterWhiteThatIsGivenBecomesThePapersColour) {
    const FixedXYZ white = {55706, 58327, 46531};
    for (const char* name : {"fogra39l", "rgb_printer"}) {
        const Printer& printer = PrinterNamed(name);
        ASSERT_TRUE(Install({kSRGBMonitor, printer.path, "", 0, nullptr, &white}, kQua1)) << name;
        const uint16_t level = printer.channels == 4 ? 0 : 65535;  // no ink, or full device RGB
        const uint16_t paper[4] = {level, level, level, printer.channels == 4 ? level : uint16_t{0}};
        uint16_t seen[4] = {};
        ASSERT_EQ(PrinterPredict16(paper, seen, 1), 0);
        // The luminance of reference RGB, from the reference profile's own matrix.
        const reference::Matrix3 matrix = reference::Colourants(reference::Tags(ReadFile(kReferenceProfile)));
        const Vector3 xyz = reference::Product(matrix, Vector3{double(seen[0]), double(seen[1]), double(seen[2])});
        // Media-relative white of the profile's tables is within 1 % of the connection white.
        EXPECT_NEAR(xyz[0] / 65535, white.X / 65536.0, 0.01) << name;
        EXPECT_NEAR(xyz[1] / 65535, white.Y / 65536.0, 0.01) << name;
        EXPECT_NEAR(xyz[2] / 65535, white.Z / 65536.0, 0.01) << name;
    }
}

}  // namespace
