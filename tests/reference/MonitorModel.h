#pragma once

/// A matrix monitor evaluated in doubles straight from its profile's bytes, and how far the fixed-point model may be from it.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/reference/ToneCurve.h"

namespace reference {

using Bytes = std::vector<std::uint8_t>;
using Vector3 = std::array<double, 3>;
using Matrix3 = std::array<Vector3, 3>;

// ---- the profile's bytes ----

inline std::uint32_t Number(const Bytes& bytes, std::size_t offset, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value * 256 + bytes.at(offset + i);
    return value;
}

inline double Fixed(const Bytes& bytes, std::size_t offset) {
    return static_cast<std::int32_t>(Number(bytes, offset, 4)) / 65536.0;
}

inline std::map<std::string, Bytes> Tags(const Bytes& profile) {
    std::map<std::string, Bytes> tags;
    for (std::size_t i = 0; i < Number(profile, 128, 4); ++i) {
        const std::size_t entry = 132 + 12 * i;
        const auto start = profile.begin() + Number(profile, entry + 4, 4);
        tags.emplace(std::string(profile.begin() + static_cast<std::ptrdiff_t>(entry), profile.begin() + static_cast<std::ptrdiff_t>(entry) + 4),
                     Bytes(start, start + Number(profile, entry + 8, 4)));
    }
    return tags;
}

inline bool IsMatrixProfile(const std::map<std::string, Bytes>& tags) {
    for (const char* name : {"rXYZ", "gXYZ", "bXYZ", "rTRC", "gTRC", "bTRC"}) {
        if (!tags.contains(name)) return false;
    }
    return true;
}

/// A tone curve at x in 0..1, as the tag defines it.
inline double CurveValue(const Bytes& tag, double x) {
    if (tag.at(0) == 'p') {
        constexpr std::size_t kParameters[] = {1, 3, 4, 5, 7};
        const std::uint32_t type = Number(tag, 8, 2);
        std::vector<double> parameters;
        for (std::size_t i = 0; i < kParameters[type]; ++i) parameters.push_back(Fixed(tag, 12 + 4 * i));
        return std::clamp(static_cast<double>(FormulaCurve(type, parameters, x)), 0.0, 1.0);
    }
    const std::uint32_t count = Number(tag, 8, 4);
    if (count == 0) return x;
    if (count == 1) return std::pow(x, Number(tag, 12, 2) / 256.0);
    const double position = x * (count - 1);
    const auto index = std::min(static_cast<std::uint32_t>(position), count - 2);
    const double low = Number(tag, 12 + 2 * index, 2), high = Number(tag, 14 + 2 * index, 2);
    return (low + (high - low) * (position - index)) / 65535.0;
}

/// The number of points at which the curve's table stands.
inline std::uint32_t CurvePoints(const Bytes& tag) {
    if (tag.at(0) == 'p') return 772;
    const std::uint32_t count = Number(tag, 8, 4);
    return count == 0 ? 2 : count == 1 ? 772 : count;
}

inline Matrix3 Colourants(const std::map<std::string, Bytes>& tags) {
    Matrix3 matrix{};
    const char* const names[] = {"rXYZ", "gXYZ", "bXYZ"};
    for (std::size_t c = 0; c < 3; ++c)
        for (std::size_t r = 0; r < 3; ++r) matrix[r][c] = Fixed(tags.at(names[c]), 8 + 4 * r);
    return matrix;
}

// ---- matrices ----

inline Matrix3 Product(const Matrix3& a, const Matrix3& b) {
    Matrix3 product{};
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c)
            for (std::size_t k = 0; k < 3; ++k) product[r][c] += a[r][k] * b[k][c];
    return product;
}

inline Vector3 Product(const Matrix3& a, const Vector3& v) {
    Vector3 product{};
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c) product[r] += a[r][c] * v[c];
    return product;
}

inline Matrix3 Inverse(const Matrix3& m) {
    Matrix3 inverse{};
    double determinant = 0;
    for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t r1 = (r + 1) % 3, r2 = (r + 2) % 3, c1 = (c + 1) % 3, c2 = (c + 2) % 3;
            inverse[c][r] = m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1];
        }
        determinant += m[r][0] * inverse[0][r];
    }
    for (Vector3& row : inverse)
        for (double& element : row) element /= determinant;
    return inverse;
}

inline Matrix3 Absolute(Matrix3 m) {
    for (Vector3& row : m)
        for (double& element : row) element = std::abs(element);
    return m;
}

inline Matrix3 Filled(double value) {
    return {Vector3{value, value, value}, Vector3{value, value, value}, Vector3{value, value, value}};
}

inline Matrix3 Sum(const Matrix3& a, const Matrix3& b) {
    Matrix3 sum = a;
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c) sum[r][c] += b[r][c];
    return sum;
}

// ---- the model ----

/// Colours are on 0..65535.
class MonitorModel {
public:
    MonitorModel(const Bytes& monitor, const Bytes& referenceProfile) : tags_(Tags(monitor)) {
        const Matrix3 toXYZ = Colourants(tags_);
        const Matrix3 referenceInverse = Inverse(Colourants(Tags(referenceProfile)));
        matrix_ = Product(referenceInverse, toXYZ);
        inverse_ = Inverse(matrix_);

        // One unit of the last place. Both matrices are held at half scale, cut to a unit: an error of up to one unit an element. The product of
        // an inverse in fixed point and its matrix is within 1.5 units of the identity (2.5 for the second inverse, whose elements are larger).
        constexpr double kUnit = 1.0 / 65536;
        const Matrix3 halfInverse = Absolute(Product(referenceInverse, Matrix3{Vector3{2, 0, 0}, Vector3{0, 2, 0}, Vector3{0, 0, 2}}));
        const Matrix3 halfToXYZ = Absolute(Product(toXYZ, Matrix3{Vector3{0.5, 0, 0}, Vector3{0, 0.5, 0}, Vector3{0, 0, 0.5}}));
        matrixError_ = Filled(0.5 * kUnit);
        matrixError_ = Sum(matrixError_, Product(Product(halfInverse, Filled(1.5 * kUnit)), halfToXYZ));
        matrixError_ = Sum(matrixError_, Product(halfInverse, Filled(kUnit)));
        matrixError_ = Sum(matrixError_, Product(Product(halfInverse, Filled(kUnit)), Absolute(matrix_)));
        inverseError_ = Sum(Product(Product(Absolute(inverse_), matrixError_), Absolute(inverse_)), Product(Absolute(inverse_), Filled(2.5 * kUnit)));
    }

    /// Device RGB to reference RGB, without clamping.
    Vector3 Predict(const Vector3& device) const { return Product(matrix_, Linear(device)); }

    /// How far the fixed-point prediction may be: the table's rounding (half a unit), its sampling of a formula and the truncated interpolation
    /// (together one unit more), through the matrix; the matrix's own error; the last rounding.
    Vector3 PredictError(const Vector3& device) const {
        const Vector3 fromCurves = Product(Absolute(matrix_), Vector3{1.5, 1.5, 1.5});
        const Vector3 fromMatrix = Product(matrixError_, Linear(device));
        return {fromCurves[0] + fromMatrix[0] + 0.5, fromCurves[1] + fromMatrix[1] + 0.5, fromCurves[2] + fromMatrix[2] + 0.5};
    }

    /// Reference RGB to linear device RGB, without clamping.
    Vector3 ToLinear(const Vector3& reference) const { return Product(inverse_, reference); }
    /// How far the fixed-point linear values may be when the reference RGB itself is known to `tolerance`.
    Vector3 ToLinearError(const Vector3& reference, double tolerance = 0) const {
        const Vector3 fromMatrix = Product(inverseError_, reference);
        const Vector3 fromColour = Product(Absolute(inverse_), Vector3{tolerance, tolerance, tolerance});
        return {fromMatrix[0] + fromColour[0] + 0.5, fromMatrix[1] + fromColour[1] + 0.5, fromMatrix[2] + fromColour[2] + 0.5};
    }

    /// Whether a device value may be the answer for a linear value known to `error`: some segment that holds the answer must reach the linear
    /// value, or the value must lie beyond the curve's range on the side of that segment's end. A segment is inverted mirrored, so the answer
    /// is known to a segment only.
    bool MayAnswer(std::size_t channel, double linear, double error, std::uint16_t device) const {
        const Curve& curve = CurveOf(channel);
        const double wanted = std::clamp(std::clamp(linear, 0.0, 65535.0), curve.least, curve.most);
        const auto last = static_cast<std::uint32_t>(curve.points.size() - 1);
        const auto first = static_cast<std::uint32_t>(std::uint64_t{device} * last / 65535);
        const std::uint32_t begin = first > 0 ? first - 1 : 0;
        for (std::uint32_t i = begin; i <= std::min(first + 1, last - 1); ++i) {
            // The segments before and after count only where the answer stands at their end.
            if (i < first && std::uint64_t{device} * last - std::uint64_t{first} * 65535 > last) continue;
            if (i > first && (std::uint64_t{first} + 1) * 65535 - std::uint64_t{device} * last > last) continue;
            const auto [low, high] = std::minmax(curve.points[i], curve.points[i + 1]);
            if (wanted >= low - error - 0.5 && wanted <= high + error + 0.5) return true;
        }
        return false;
    }

    double Least(std::size_t channel) const { return CurveOf(channel).least; }
    double Most(std::size_t channel) const { return CurveOf(channel).most; }

private:
    struct Curve {
        std::vector<double> points;
        double least, most;
    };

    Vector3 Linear(const Vector3& device) const {
        Vector3 linear{};
        for (std::size_t c = 0; c < 3; ++c) linear[c] = 65535.0 * CurveValue(tags_.at(kCurves[c]), device[c] / 65535.0);
        return linear;
    }

    const Curve& CurveOf(std::size_t channel) const {
        Curve& curve = curves_[channel];
        if (curve.points.empty()) {
            const Bytes& tag = tags_.at(kCurves[channel]);
            const std::uint32_t count = CurvePoints(tag);
            for (std::uint32_t i = 0; i < count; ++i) curve.points.push_back(65535.0 * CurveValue(tag, i / (count - 1.0)));
            const auto [least, most] = std::minmax_element(curve.points.begin(), curve.points.end());
            curve.least = *least;
            curve.most = *most;
        }
        return curve;
    }

    static constexpr const char* kCurves[] = {"rTRC", "gTRC", "bTRC"};
    std::map<std::string, Bytes> tags_;
    Matrix3 matrix_{}, inverse_{}, matrixError_{}, inverseError_{};
    mutable Curve curves_[3];
};

}  // namespace reference
