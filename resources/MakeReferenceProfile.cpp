// make_reference_profile FILE: writes MatrixCalRGB, the profile of the linear RGB space in which hosts hand over their colours.
//
// The bytes are the same on every run. Exit status 0, or 2 when the file cannot be written.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "colour/ChromaticAdaptation.h"
#include "colour/ReferenceRGB.h"
#include "platform/FourCharCode.h"

namespace {

using Vector = std::array<double, 3>;
using Matrix = std::array<Vector, 3>;
using Bytes = std::vector<std::uint8_t>;

constexpr double kOne = static_cast<double>(kFixedOne);
constexpr int kFailed = 2;

// ---- colourants ----

Matrix ToDouble(const FixedMatrix& fixed) {
    Matrix matrix;
    for (std::size_t i = 0; i < 9; ++i) matrix[i / 3][i % 3] = fixed.element[i] / kOne;
    return matrix;
}

Vector Apply(const Matrix& matrix, const Vector& vector) {
    Vector result = {};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t i = 0; i < 3; ++i) result[row] += matrix[row][i] * vector[i];
    }
    return result;
}

Matrix Inverse(const Matrix& m) {
    const auto cofactor = [&](std::size_t row, std::size_t column) {
        const std::size_t r1 = (row + 1) % 3, r2 = (row + 2) % 3, c1 = (column + 1) % 3, c2 = (column + 2) % 3;
        return m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1];
    };
    const double determinant = m[0][0] * cofactor(0, 0) + m[0][1] * cofactor(0, 1) + m[0][2] * cofactor(0, 2);
    Matrix inverse;
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) inverse[row][column] = cofactor(column, row) / determinant;
    }
    return inverse;
}

/// Rounds to s15.16 so that the three sum exactly to `sum`: the largest remainders are rounded up.
std::array<std::int32_t, 3> RoundToSum(const Vector& values, std::int32_t sum) {
    std::array<std::int32_t, 3> rounded;
    Vector remainders;
    for (std::size_t i = 0; i < 3; ++i) {
        rounded[i] = static_cast<std::int32_t>(std::floor(values[i] * kOne));
        remainders[i] = values[i] * kOne - rounded[i];
    }
    for (std::int32_t missing = sum - std::accumulate(rounded.begin(), rounded.end(), 0); missing > 0; --missing) {
        const auto largest = std::max_element(remainders.begin(), remainders.end()) - remainders.begin();
        ++rounded[static_cast<std::size_t>(largest)];
        remainders[static_cast<std::size_t>(largest)] -= 1.0;
    }
    return rounded;
}

/// The primaries under the white of the connection space: columns red, green, blue; every row sums to that white.
FixedMatrix AdaptedColourants() {
    const Matrix reference = ToDouble(calRGBToXYZ);
    const Matrix bradford = ToDouble(bradfordMatrix);
    const std::array<std::int32_t, 3> white = {PCSWhite.X, PCSWhite.Y, PCSWhite.Z};

    const Vector ownCones = Apply(bradford, Apply(reference, {1.0, 1.0, 1.0}));
    const Vector pcsCones = Apply(bradford, {white[0] / kOne, white[1] / kOne, white[2] / kOne});
    const Matrix back = Inverse(bradford);
    Matrix adapted;
    for (std::size_t column = 0; column < 3; ++column) {
        Vector cones = Apply(bradford, {reference[0][column], reference[1][column], reference[2][column]});
        for (std::size_t i = 0; i < 3; ++i) cones[i] *= pcsCones[i] / ownCones[i];
        const Vector xyz = Apply(back, cones);
        for (std::size_t row = 0; row < 3; ++row) adapted[row][column] = xyz[row];
    }

    FixedMatrix colourants;
    for (std::size_t row = 0; row < 3; ++row) {
        const std::array<std::int32_t, 3> rounded = RoundToSum(adapted[row], white[row]);
        std::copy(rounded.begin(), rounded.end(), colourants.element + 3 * row);
    }
    return colourants;
}

// ---- bytes ----

void Append16(Bytes* bytes, std::uint32_t value) {
    bytes->push_back(static_cast<std::uint8_t>(value >> 8));
    bytes->push_back(static_cast<std::uint8_t>(value));
}

void Append32(Bytes* bytes, std::uint32_t value) {
    Append16(bytes, value >> 16);
    Append16(bytes, value);
}

void AppendXYZ(Bytes* bytes, std::int32_t X, std::int32_t Y, std::int32_t Z) {
    for (const std::int32_t value : {X, Y, Z}) Append32(bytes, static_cast<std::uint32_t>(value));
}

void AppendText(Bytes* bytes, std::string_view text) {
    bytes->insert(bytes->end(), text.begin(), text.end());
    bytes->push_back(0);
}

Bytes TagOfType(std::uint32_t type) {
    Bytes bytes;
    Append32(&bytes, type);
    Append32(&bytes, 0);
    return bytes;
}

Bytes DescriptionTag(std::string_view text) {
    Bytes bytes = TagOfType(FourChar("desc"));
    Append32(&bytes, static_cast<std::uint32_t>(text.size()) + 1);
    AppendText(&bytes, text);
    // No Unicode text (language, count), no script text (code, count and its fixed 67 bytes).
    bytes.insert(bytes.end(), 4 + 4 + 2 + 1 + 67, 0);
    return bytes;
}

Bytes TextTag(std::string_view text) {
    Bytes bytes = TagOfType(FourChar("text"));
    AppendText(&bytes, text);
    return bytes;
}

Bytes XYZTag(std::int32_t X, std::int32_t Y, std::int32_t Z) {
    Bytes bytes = TagOfType(FourChar("XYZ "));
    AppendXYZ(&bytes, X, Y, Z);
    return bytes;
}

Bytes LinearCurveTag() {
    Bytes bytes = TagOfType(FourChar("curv"));
    Append32(&bytes, 0);
    return bytes;
}

Bytes Header(std::size_t size) {
    Bytes bytes;
    Append32(&bytes, static_cast<std::uint32_t>(size));
    Append32(&bytes, 0);           // no preferred engine
    Append32(&bytes, 0x02100000);  // version 2.1
    Append32(&bytes, FourChar("mntr"));
    Append32(&bytes, FourChar("RGB "));
    Append32(&bytes, FourChar("XYZ "));
    for (const std::uint32_t part : {2024u, 1u, 1u, 0u, 0u, 0u}) Append16(&bytes, part);
    Append32(&bytes, FourChar("acsp"));
    for (int i = 0; i < 6; ++i) Append32(&bytes, 0);  // platform, flags, manufacturer, model, attributes
    Append32(&bytes, 1);                              // media-relative colorimetric
    AppendXYZ(&bytes, PCSWhite.X, PCSWhite.Y, PCSWhite.Z);
    bytes.resize(128);
    return bytes;
}

Bytes ReferenceProfile() {
    const FixedMatrix matrix = AdaptedColourants();
    const std::int32_t* m = matrix.element;
    struct Tag {
        std::uint32_t signature;
        Bytes data;
    };
    const Tag tags[] = {
        {FourChar("desc"), DescriptionTag("MatrixCalRGB")},
        {FourChar("cprt"), TextTag("Part of Orlo ColourMatch")},
        {FourChar("wtpt"), XYZTag(PCSWhite.X, PCSWhite.Y, PCSWhite.Z)},
        {FourChar("rXYZ"), XYZTag(m[0], m[3], m[6])},
        {FourChar("gXYZ"), XYZTag(m[1], m[4], m[7])},
        {FourChar("bXYZ"), XYZTag(m[2], m[5], m[8])},
        {FourChar("rTRC"), LinearCurveTag()},
        {FourChar("gTRC"), {}},  // without data of its own: shares the tag before it
        {FourChar("bTRC"), {}},
    };

    Bytes table;
    Bytes data;
    const std::size_t dataStart = 128 + 4 + 12 * std::size(tags);
    std::size_t offset = 0, size = 0;
    Append32(&table, std::size(tags));
    for (const Tag& tag : tags) {
        if (!tag.data.empty()) {
            offset = dataStart + data.size();
            size = tag.data.size();
            data.insert(data.end(), tag.data.begin(), tag.data.end());
            data.resize((data.size() + 3) / 4 * 4);
        }
        Append32(&table, tag.signature);
        Append32(&table, static_cast<std::uint32_t>(offset));
        Append32(&table, static_cast<std::uint32_t>(size));
    }
    Bytes profile = Header(dataStart + data.size());
    profile.insert(profile.end(), table.begin(), table.end());
    profile.insert(profile.end(), data.begin(), data.end());
    return profile;
}

/// Writes beside the file and renames, so that nobody ever reads half a profile. False with errno set.
bool WriteWhole(const std::string& path, const Bytes& bytes) {
    const std::string part = path + ".part";
    std::FILE* file = std::fopen(part.c_str(), "wb");
    if (!file) return false;
    bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    int code = errno;
    if (std::fclose(file) != 0 && written) {
        written = false;
        code = errno;
    }
    if (written && std::rename(part.c_str(), path.c_str()) == 0) return true;
    if (written) code = errno;
    std::remove(part.c_str());
    errno = code;
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_reference_profile FILE\n");
        return kFailed;
    }
    if (!WriteWhole(argv[1], ReferenceProfile())) {
        std::fprintf(stderr, "make_reference_profile: cannot write \"%s\": %s\n", argv[1], std::strerror(errno));
        return kFailed;
    }
    return 0;
}
