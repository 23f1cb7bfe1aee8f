#include "orlo/ColourSpaces.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "images/Complaint.h"
#include "images/FourCharCodes.h"
#include "images/ProfileChoice.h"
#include "orlo/CommandTable.h"
#include "platform/Owned.h"

namespace {

constexpr std::array<const char*, kColourSpaces> kNames = {"reference", "xyz", "lab", "yxy", "srgb", "monitor", "printer"};
constexpr std::array<Unit, 4> kUnits = {{{"0..1", 1.0, 6}, {"0..255", 255.0, 3}, {"percent", 100.0, 4}, {"16-bit", 65535.0, 1}}};
constexpr int kLabDigits = 4, kChromaticityDigits = 6;

/// The numbers of a place in a space: what they may be, and what they are shown with.
struct Place {
    double scale, least, most;
    int digits;
    bool hasUnit = true;
};

Place PlaceOf(ColourSpace space, std::size_t index, const Unit& unit) {
    switch (space) {
        case ColourSpace::Lab:
            return {1.0, index == 0 ? 0.0 : -500.0, index == 0 ? 200.0 : 500.0, kLabDigits, false};
        case ColourSpace::Xyz:
            // Imaginary colours, and those lighter than white.
            return {unit.full, -unit.full, 10 * unit.full, unit.digits};
        case ColourSpace::Yxy:
            if (index > 0) return {1.0, -1.0, 2.0, kChromaticityDigits, false};
            return {unit.full, 0.0, 10 * unit.full, unit.digits};
        default:
            return {unit.full, 0.0, unit.full, unit.digits};
    }
}

std::vector<std::string> WordsIn(const std::string& text) {
    std::vector<std::string> words;
    std::string word;
    for (const char c : text.substr(0, text.find('#')) + " ") {
        if (std::string_view(" \t\r\n\v\f,;:").find(c) == std::string_view::npos) {
            word += c;
        } else if (!word.empty()) {
            words.push_back(std::move(word));
            word.clear();
        }
    }
    return words;
}

double NumberFrom(const std::string& about, const std::string& word, const Place& place, const Unit& unit) {
    if (!place.hasUnit) return RealFrom(about, word, place.least, place.most);
    const bool isShare = word.back() == '%';
    const double full = isShare ? 100.0 : unit.full;
    try {
        return RealFrom(about, isShare ? word.substr(0, word.size() - 1) : word, place.least / unit.full * full, place.most / unit.full * full) /
               full;
    } catch (Complaint& complaint) {
        if (!isShare) complaint.right += ", or another --unit";
        throw;
    }
}

double Real(int32_t fixed) {
    return static_cast<double>(fixed) / double{kFixedOne};
}

int32_t Fixed(double value) {
    return static_cast<int32_t>(std::lround(value * double{kFixedOne}));
}

XYZColour Product(const FixedMatrix& matrix, double a, double b, double c) {
    std::array<float, 3> sums{};
    for (std::size_t row = 0; row < 3; ++row) {
        const int32_t* const m = matrix.element + 3 * row;
        sums[row] = static_cast<float>(Real(m[0]) * a + Real(m[1]) * b + Real(m[2]) * c);
    }
    return {sums[0], sums[1], sums[2]};
}

XYZColour Product(const FixedMatrix& matrix, const XYZColour& colour) {
    return Product(matrix, static_cast<double>(colour.X), static_cast<double>(colour.Y), static_cast<double>(colour.Z));
}

FixedMatrix InverseOf(const FixedMatrix& matrix) {
    FixedMatrix inverse;
    ICC_MatrixInverse(&matrix, &inverse);
    ICC_ImproveMatrixInverse(&matrix, &inverse);
    return inverse;
}

/// Linear sRGB to the connection space: its primaries, scaled to its white and adapted.
FixedMatrix SrgbMatrix() {
    constexpr std::array<std::array<double, 2>, 3> kPrimaries = {{{0.64, 0.33}, {0.30, 0.60}, {0.15, 0.06}}};
    constexpr double kWhiteX = 0.3127, kWhiteY = 0.3290;
    const FixedXYZ white = {Fixed(kWhiteX / kWhiteY), kFixedOne, Fixed((1 - kWhiteX - kWhiteY) / kWhiteY)};
    FixedMatrix primaries;
    for (std::size_t c = 0; c < 3; ++c) {
        const auto [x, y] = kPrimaries[c];
        primaries.element[c] = Fixed(x);
        primaries.element[3 + c] = Fixed(y);
        primaries.element[6 + c] = Fixed(1 - x - y);
    }
    const FixedMatrix inverse = InverseOf(primaries);
    FixedXYZ amounts;
    ICC_FixedMatrixMultiply(&inverse, &white, &amounts);
    const int32_t numerators[3] = {amounts.X, amounts.Y, amounts.Z}, denominators[3] = {kFixedOne, kFixedOne, kFixedOne};
    ICC_MatrixScaleColumns(&primaries, numerators, denominators);
    FixedMatrix adaptation, matrix;
    BradfordTransform(&white, &PCSWhite, &adaptation);
    ICC_MatrixConcat(&adaptation, &primaries, &matrix);
    return matrix;
}

double SrgbLight(double value) {
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}
double SrgbValue(double light) {
    return light <= 0.0031308 ? light * 12.92 : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

std::vector<double> ValuesOf(const XYZColour& colour) {
    return {static_cast<double>(colour.X), static_cast<double>(colour.Y), static_cast<double>(colour.Z)};
}

using Words16 = std::array<uint16_t, 4>;

Words16 Words16Of(const std::vector<double>& values) {
    Words16 words{};
    for (std::size_t i = 0; i < values.size(); ++i) words[i] = static_cast<uint16_t>(std::lround(std::clamp(values[i], 0.0, 1.0) * kFull65535));
    return words;
}

std::vector<double> ValuesOf(const Words16& words, std::size_t count) {
    std::vector<double> values;
    for (std::size_t i = 0; i < count; ++i) values.push_back(static_cast<double>(words[i]) / kFull65535);
    return values;
}

using ColourOperation = int16_t (*)(const uint16_t* in, uint16_t* out, std::size_t count);

Words16 Done(ColourOperation operation, const Words16& in) {
    Words16 out{};
    if (operation(in.data(), out.data(), 1) != 0) throw Complaint{"matching data", "there is none", "name the device's profile"};
    return out;
}

std::size_t CountOfInks() {
    return PrinterColourSpace() == kColourSpaceCMYK ? 4 : 3;
}

}  // namespace

const char* NameOf(ColourSpace space) {
    return kNames[static_cast<std::size_t>(space)];
}

std::optional<ColourSpace> ColourSpaceCalled(const std::string& name) {
    const auto found = std::find(kNames.begin(), kNames.end(), name);
    return found == kNames.end() ? std::nullopt : std::optional(static_cast<ColourSpace>(found - kNames.begin()));
}

const Unit& UnitCalled(const std::string& name) {
    return *std::find_if(kUnits.begin(), kUnits.end(), [&name](const Unit& unit) { return unit.name == name; });
}

double ScaleOf(ColourSpace space, std::size_t index, const Unit& unit) {
    return PlaceOf(space, index, unit).scale;
}

std::vector<SingleColour> ColoursIn(const std::string& text, const Unit& unit, std::optional<ColourSpace> usual) {
    std::vector<SingleColour> colours;
    const std::string about = "colour '" + text + "'";
    for (const std::string& word : WordsIn(text)) {
        if (const auto space = ColourSpaceCalled(word)) {
            colours.push_back({*space, {}});
            continue;
        }
        if (colours.empty() && usual) colours.push_back({*usual, {}});
        if (colours.empty() || std::string_view("0123456789+-.").find(word[0]) == std::string_view::npos) {
            throw Complaint{about, "'" + word + "' names no colour space", "begin with reference, xyz, lab, yxy, srgb, monitor or printer"};
        }
        SingleColour& colour = colours.back();
        colour.values.push_back(NumberFrom(about, word, PlaceOf(colour.space, colour.values.size(), unit), unit));
    }
    for (const SingleColour& colour : colours) {
        const std::size_t count = colour.values.size();
        if (count == 3 || (count == 4 && colour.space == ColourSpace::Printer)) continue;
        throw Complaint{about, std::string(NameOf(colour.space)) + " has " + std::to_string(count) + (count == 1 ? " number" : " numbers"),
                        colour.space == ColourSpace::Printer ? "write three, or four inks" : "write three"};
    }
    return colours;
}

std::string TextOf(const SingleColour& colour, const Unit& unit) {
    std::string text = NameOf(colour.space);
    for (std::size_t i = 0; i < colour.values.size(); ++i) {
        const Place place = PlaceOf(colour.space, i, unit);
        text += " " + NumberText(colour.values[i] * place.scale, place.digits);
    }
    return text;
}

ColourWays::ColourWays(bool isD65) : srgb_(SrgbMatrix()), fromSrgb_(InverseOf(srgb_)), white_(isD65 ? D65WhiteColour : PCSWhiteColour) {
    const Owned<ColorSyncProfileRef> profile = OpenReferenceProfile();
    constexpr std::array<uint32_t, 3> kColourants = {Code("rXYZ"), Code("gXYZ"), Code("bXYZ")};
    for (std::size_t c = 0; c < 3; ++c) {
        const FixedXYZ colourant = GetMediaColourant(profile.Get(), kColourants[c]);
        reference_.element[c] = colourant.X;
        reference_.element[3 + c] = colourant.Y;
        reference_.element[6 + c] = colourant.Z;
    }
    fromReference_ = InverseOf(reference_);
    const FixedXYZ& white = isD65 ? D65White : PCSWhite;
    BradfordTransform(&white, &PCSWhite, &adapt_);
    BradfordTransform(&PCSWhite, &white, &back_);
    if (isD65) return;
    // From a white to itself it is a unit or two off.
    ICC_MatrixIdentity(&adapt_);
    ICC_MatrixIdentity(&back_);
}

XYZColour ColourWays::ToConnection(const SingleColour& colour) const {
    const std::vector<double>& v = colour.values;
    const auto number = [&v](std::size_t i) { return static_cast<float>(v[i]); };
    switch (colour.space) {
        case ColourSpace::Xyz:
            return Product(adapt_, v[0], v[1], v[2]);
        case ColourSpace::Lab:
            return Product(adapt_, CIELabToXYZ({number(0), number(1), number(2)}, white_));
        case ColourSpace::Yxy:
            return Product(adapt_, YxyToXYZ({number(0), number(1), number(2)}));
        case ColourSpace::Srgb:
            return Product(srgb_, SrgbLight(v[0]), SrgbLight(v[1]), SrgbLight(v[2]));
        case ColourSpace::Reference:
            return Product(reference_, v[0], v[1], v[2]);
        case ColourSpace::Monitor:
        case ColourSpace::Printer:
            break;
    }
    const bool isMonitor = colour.space == ColourSpace::Monitor;
    if (!isMonitor && v.size() != CountOfInks()) {
        throw Complaint{"printer", "it has " + std::to_string(CountOfInks()) + " inks, and " + std::to_string(v.size()) + " are given", "write each"};
    }
    const std::vector<double> light = ValuesOf(Done(isMonitor ? MonitorPredict16 : PrinterPredict16, Words16Of(v)), 3);
    return Product(reference_, light[0], light[1], light[2]);
}

SingleColour ColourWays::FromConnection(const XYZColour& colour, ColourSpace space) const {
    const XYZColour meant = Product(back_, colour);
    std::vector<double> values;
    switch (space) {
        case ColourSpace::Xyz:
            return {space, ValuesOf(meant)};
        case ColourSpace::Lab: {
            const LabColour lab = XYZToCIELab(meant, white_);
            return {space, {static_cast<double>(lab.L), static_cast<double>(lab.a), static_cast<double>(lab.b)}};
        }
        case ColourSpace::Yxy: {
            const YxyColour yxy = XYZToYxy(meant);
            return {space, {static_cast<double>(yxy.Y), static_cast<double>(yxy.x), static_cast<double>(yxy.y)}};
        }
        case ColourSpace::Srgb:
            for (const double light : ValuesOf(Product(fromSrgb_, colour))) values.push_back(SrgbValue(light));
            return {space, values};
        case ColourSpace::Reference:
            return {space, ValuesOf(Product(fromReference_, colour))};
        case ColourSpace::Monitor:
        case ColourSpace::Printer:
            break;
    }
    const bool isMonitor = space == ColourSpace::Monitor;
    const Words16 reference = Words16Of(ValuesOf(Product(fromReference_, colour)));
    return {space, ValuesOf(Done(isMonitor ? MonitorMatch16 : PrinterMatch16, reference), isMonitor ? 3 : CountOfInks())};
}

Reproduction ColourWays::ReproductionOf(const XYZColour& colour, ColourSpace device) const {
    const Words16 reference = Words16Of(ValuesOf(Product(fromReference_, colour)));
    uint8_t flag = 0;
    (device == ColourSpace::Monitor ? MonitorGamut : PrinterGamut)(reference.data(), &flag, 1);
    const XYZColour back = ToConnection(FromConnection(colour, device));
    return {static_cast<double>(deltaE(XYZToCIELab(colour, PCSWhiteColour), XYZToCIELab(back, PCSWhiteColour))), flag != 0};
}
