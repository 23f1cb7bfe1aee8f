#pragma once

/// Single colours: how they are written, and the way of each to every other space.

#include <optional>
#include <string>
#include <vector>

#include "ColourMatch/ColourMatch.h"

/// Reference RGB is linear. XYZ, L*a*b* and Yxy are those of the connection space, under its white, unless they are told to be under another.
enum class ColourSpace { Reference, Xyz, Lab, Yxy, Srgb, Monitor, Printer };
constexpr std::size_t kColourSpaces = 7;
const char* NameOf(ColourSpace space);
std::optional<ColourSpace> ColourSpaceCalled(const std::string& name);

/// What stands for full scale where a space has one: in RGB, inks, XYZ and the Y of Yxy.
struct Unit {
    const char* name;
    double full;
    int digits;  // behind the point, as many as 16 bits are worth
};
const Unit& UnitCalled(const std::string& name);

/// Values on the scale of 1, but for L*, a* and b*.
struct SingleColour {
    ColourSpace space;
    std::vector<double> values;
};

/// By how much a number of a colour is multiplied when it is shown.
double ScaleOf(ColourSpace space, std::size_t index, const Unit& unit);

/// The colours in a text: each a name and its numbers, with blanks, commas or a colon between. What stands behind a # is passed over.
///
/// usual   what numbers without a name before them are; nothing: that is an error
///
/// Throws Complaint.
std::vector<SingleColour> ColoursIn(const std::string& text, const Unit& unit, std::optional<ColourSpace> usual);

/// "lab 50.0000 20.0000 -30.0000", which ColoursIn reads.
std::string TextOf(const SingleColour& colour, const Unit& unit);

/// How a device shows a colour.
struct Reproduction {
    double difference;  // CIE76, of the colour and its prediction back
    bool isMarked;      // by the library's own gamut operation
};

/// The ways between spaces. Those of monitor and printer are the current matching data's.
class ColourWays {
public:
    /// isD65   whether XYZ, L*a*b* and Yxy are meant under D65
    ///
    /// Throws Complaint.
    explicit ColourWays(bool isD65);

    /// In the connection space, 1.0 for its white. Throws Complaint for a printer's colour with too few or too many inks.
    XYZColour ToConnection(const SingleColour& colour) const;
    /// What RGB cannot say lies outside of 0..1, but for devices, which answer what they show.
    SingleColour FromConnection(const XYZColour& colour, ColourSpace space) const;
    Reproduction ReproductionOf(const XYZColour& colour, ColourSpace device) const;

private:
    FixedMatrix reference_, fromReference_, srgb_, fromSrgb_, adapt_, back_;  // back_: from the connection space to the white that is meant
    XYZColour white_;
};
