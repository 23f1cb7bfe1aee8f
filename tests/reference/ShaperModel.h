#pragma once

/// A shaper/matrix model as the product holds it, made from a reference model and freed with DeleteShaperMatrix.

#include <algorithm>
#include <cstdlib>

#include "colour/MatrixArithmetic.h"
#include "engine/ShaperMatrix.h"
#include "tests/reference/Curves.h"
#include "tests/reference/ShaperReference.h"

namespace reference {

/// Allocates the parts; the caller frees them with DeleteShaperMatrix.
inline ICC_ShaperMatrix CreateShaper(const Model& model) {
    ICC_ShaperMatrix shaper{};
    for (std::size_t c = 0; c < 3; ++c) {
        const std::vector<std::uint16_t>& curve = model.curves[c];
        shaper.curves[c] = static_cast<std::uint16_t*>(std::calloc(curve.size() + 1, sizeof(std::uint16_t)));
        if (!shaper.curves[c]) std::abort();
        std::copy(curve.begin(), curve.end(), shaper.curves[c]);
        shaper.curves[c][curve.size()] = curve.back();
        shaper.counts[c] = static_cast<std::uint32_t>(curve.size());
        if (ICC_BuildReverseTable(shaper.curves[c], static_cast<int>(curve.size()), &shaper.reverse[c]) != 0) std::abort();
    }
    shaper.matrix = model.matrix;
    shaper.inverseMatrix = model.inverseMatrix;
    return shaper;
}

class OwnedShaper {
public:
    explicit OwnedShaper(const Model& model) : shaper_(CreateShaper(model)) {}
    OwnedShaper(const OwnedShaper&) = delete;
    OwnedShaper& operator=(const OwnedShaper&) = delete;
    ~OwnedShaper() { DeleteShaperMatrix(&shaper_); }

    const ICC_ShaperMatrix* Get() const { return &shaper_; }

private:
    ICC_ShaperMatrix shaper_;
};

struct NamedModel {
    std::string name;
    Model model;
};

inline Model WithInverse(std::array<std::vector<std::uint16_t>, 3> curves, const FixedMatrix& matrix) {
    Model model{std::move(curves), matrix, {}};
    ICC_MatrixInverse(&matrix, &model.inverseMatrix);
    ICC_ImproveMatrixInverse(&matrix, &model.inverseMatrix);
    return model;
}

inline std::vector<NamedModel> ManyModels() {
    constexpr FixedMatrix kIdentity = {{65536, 0, 0, 0, 65536, 0, 0, 0, 65536}};
    constexpr FixedMatrix kNarrow = {{46000, 14000, 5536, 4200, 58000, 3336, 900, 6100, 58536}};
    constexpr FixedMatrix kWide = {{74000, -7000, -1464, -2500, 70000, -1964, 300, -5000, 70236}};
    const std::vector<std::uint16_t> gamma = GammaCurve(1024, 2.2);
    std::vector<NamedModel> models = {
        {"identity, linear falling curves",
         {{StraightCurve(256, 65535, 0), StraightCurve(256, 65535, 0), StraightCurve(256, 65535, 0)}, kIdentity, kIdentity}},
        {"narrow primaries, gamma 2.2", WithInverse({gamma, gamma, gamma}, kNarrow)},
        {"wide primaries, a curve each", WithInverse({GammaCurve(256, 1.8), GammaCurve(4096, 2.2), GammaCurve(17, 2.6)}, kWide)},
        {"curves inside the range",
         WithInverse({StraightCurve(100, 3000, 60000), StraightCurve(200, 500, 65535), StraightCurve(2, 0, 64000)}, kNarrow)},
    };
    Random random(40);
    Model wild{{random.Words(300), random.Words(2), random.Words(64)}, {}, {}};
    for (std::int32_t& element : wild.matrix.element) element = static_cast<std::int32_t>(random.Below(120000)) - 30000;
    for (std::int32_t& element : wild.inverseMatrix.element) element = static_cast<std::int32_t>(random.Below(120000)) - 30000;
    models.push_back({"random curves and matrices", wild});
    return models;
}

}  // namespace reference
