#include "images/ImageDifference.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <numeric>

#include "images/Complaint.h"

namespace {

constexpr std::size_t kBins = 131072;
constexpr double kBinsPerUnit = 256;

/// What lies beyond the last bin is counted in it; the largest difference is known by itself.
std::size_t BinOf(float difference) {
    return std::min(static_cast<std::size_t>(static_cast<double>(difference) * kBinsPerUnit), kBins - 1);
}

}  // namespace

struct ImageDifference::Worker {
    explicit Worker(const std::array<Side, 2>& sides) {
        for (std::size_t i = 0; i < 2; ++i) {
            regions[i].reset(vips_region_new(sides[i].image));
            rows[i] = std::make_unique<RowConverter>(sides[i].plan, static_cast<std::size_t>(vips_image_get_width(sides[i].image)));
        }
        for (Counts& each : counts) each.bins.resize(kBins);
    }

    std::array<VipsHold<VipsRegion>, 2> regions;
    std::array<std::unique_ptr<RowConverter>, 2> rows;
    std::array<Counts, kFormulas> counts;
};

ImageDifference::ImageDifference(const Side& picture, const Side& standard, const std::array<XYZColour, 3>& primaries, CmcWeights weights,
                                 Formula mapped)
    : sides_{picture, standard}, primaries_(primaries), weights_(weights), mapped_(static_cast<std::size_t>(mapped)), map_(vips_image_new()) {
    for (Counts& each : counts_) each.bins.resize(kBins);
    VipsImage* const out = map_.get();
    bool isDone = vips_image_pipelinev(out, VIPS_DEMAND_STYLE_THINSTRIP, picture.image, standard.image, nullptr) == 0;
    out->Bands = 1;
    out->BandFmt = VIPS_FORMAT_USHORT;
    out->Type = VIPS_INTERPRETATION_GREY16;
    for (const char* name : {VIPS_META_ICC_NAME, VIPS_META_EXIF_NAME, VIPS_META_XMP_NAME, VIPS_META_IPTC_NAME, VIPS_META_PHOTOSHOP_NAME,
                             VIPS_META_ORIENTATION, VIPS_META_N_PAGES, VIPS_META_PAGE_HEIGHT, "jpeg-thumbnail-data"}) {
        vips_image_remove(out, name);
    }
    isDone = isDone && vips_image_generate(out, StartWorker, CompareRegion, StopWorker, nullptr, this) == 0;
    if (!isDone) throw Complaint{"image", "it cannot be compared", "more memory is needed", Exit::Failed};
}

void* ImageDifference::StartWorker(VipsImage* /*out*/, void* /*sides*/, void* self) try {
    return new Worker(static_cast<ImageDifference*>(self)->sides_);
} catch (const std::bad_alloc&) {
    return nullptr;
}

int ImageDifference::CompareRegion(VipsRegion* out, void* worker, void* /*sides*/, void* self, gboolean* /*stop*/) {
    auto* const difference = static_cast<ImageDifference*>(self);
    auto* const state = static_cast<Worker*>(worker);
    const VipsRect area = out->valid;
    for (const auto& region : state->regions) {
        if (vips_region_prepare(region.get(), &area) != 0) return -1;
    }
    const auto count = static_cast<std::size_t>(area.width);
    for (int y = area.top; y < area.top + area.height; ++y) {
        std::array<const uint16_t*, 2> reference{};
        for (std::size_t i = 0; i < 2; ++i) {
            reference[i] = state->rows[i]->ReferenceOf(VIPS_REGION_ADDR(state->regions[i].get(), area.left, y), count);
            if (!reference[i]) {
                difference->operationFailed_ = true;
                return -1;
            }
        }
        auto* const map = reinterpret_cast<uint16_t*>(VIPS_REGION_ADDR(out, area.left, y));
        for (std::size_t x = 0; x < count; ++x) {
            const auto lab = [&](std::size_t i) { return LabOfReference(difference->primaries_, reference[i] + 4 * x); };
            const auto differences = DifferencesOf(lab(0), lab(1), difference->weights_);
            for (std::size_t i = 0; i < kFormulas; ++i) {
                Counts& counts = state->counts[i];
                ++counts.bins[BinOf(differences[i])];
                counts.sum += static_cast<double>(differences[i]);
                counts.largest = std::max(counts.largest, differences[i]);
            }
            map[x] = LevelOfDifference(differences[difference->mapped_]);
        }
    }
    return 0;
}

int ImageDifference::StopWorker(void* worker, void* /*sides*/, void* self) {
    const std::unique_ptr<Worker> state(static_cast<Worker*>(worker));
    auto* const difference = static_cast<ImageDifference*>(self);
    const std::lock_guard<std::mutex> guard(difference->lock_);
    for (std::size_t i = 0; i < kFormulas; ++i) {
        const Counts& ours = state->counts[i];
        Counts& all = difference->counts_[i];
        for (std::size_t bin = 0; bin < kBins; ++bin) all.bins[bin] += ours.bins[bin];
        all.sum += ours.sum;
        all.largest = std::max(all.largest, ours.largest);
    }
    return 0;
}

std::array<DifferenceFigures, kFormulas> ImageDifference::Figures() const {
    std::array<DifferenceFigures, kFormulas> figures;
    for (std::size_t i = 0; i < kFormulas; ++i) {
        const Counts& counts = counts_[i];
        const auto pixels = std::accumulate(counts.bins.begin(), counts.bins.end(), uint64_t{0});
        // The pixel that 95 of 100 are not above.
        const auto wanted = static_cast<uint64_t>(std::ceil(0.95 * static_cast<double>(pixels)));
        std::size_t bin = 0;
        for (uint64_t passed = counts.bins[0]; passed < wanted; passed += counts.bins[bin]) ++bin;
        const auto largest = static_cast<double>(counts.largest);
        figures[i] = {counts.sum / static_cast<double>(pixels), std::min((static_cast<double>(bin) + 0.5) / kBinsPerUnit, largest), largest};
    }
    return figures;
}
