#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "images/Differences.h"
#include "images/RowConverter.h"
#include "images/VipsHold.h"

/// The differences of two pictures of the same size, as a grey picture of 16 bits that is made as its pixels are asked for. Its white is 25.5 or
/// more.
class ImageDifference {
public:
    /// A picture, and how its colours become reference RGB. Borrowed.
    struct Side {
        VipsImage* image;
        RunPlan plan;
    };
    /// The second is the standard. Throws Complaint when libvips cannot set it up.
    ImageDifference(const Side& picture, const Side& standard, const std::array<XYZColour, 3>& primaries, CmcWeights weights, Formula mapped);

    VipsImage* Map() const { return map_.get(); }
    /// By Formula; once every pixel of the map was asked for.
    std::array<DifferenceFigures, kFormulas> Figures() const;
    bool OperationFailed() const { return operationFailed_; }

private:
    struct Worker;
    static void* StartWorker(VipsImage* out, void* sides, void* self);
    static int CompareRegion(VipsRegion* out, void* worker, void* sides, void* self, gboolean* stop);
    static int StopWorker(void* worker, void* sides, void* self);

    struct Counts {
        std::vector<uint32_t> bins;
        double sum = 0;
        float largest = 0;
    };

    std::array<Side, 2> sides_;
    std::array<XYZColour, 3> primaries_;
    CmcWeights weights_;
    std::size_t mapped_;
    ImageHold map_;
    std::atomic<bool> operationFailed_ = false;
    std::mutex lock_;  // of what follows
    std::array<Counts, kFormulas> counts_;
};
