#pragma once

#include <atomic>

#include "images/RowConverter.h"
#include "images/VipsHold.h"

/// An image whose pixels are converted as they are asked for, strip by strip on the threads of libvips.
class Conversion {
public:
    /// outputProfile   embedded in the result; null: none is
    ///
    /// The conversion must live until the image is no longer evaluated. Throws Complaint when libvips cannot set it up.
    Conversion(VipsImage* input, const RunPlan& plan, ColorSyncProfileRef outputProfile);

    VipsImage* Image() const { return image_.get(); }
    /// Why the evaluation failed, when it did.
    bool InputFailed() const { return inputFailed_; }
    bool OperationFailed() const { return operationFailed_; }

private:
    struct Worker;
    static void* StartWorker(VipsImage* out, void* input, void* conversion);
    static int ConvertRegion(VipsRegion* out, void* worker, void* input, void* conversion, gboolean* stop);
    static int StopWorker(void* worker, void* input, void* conversion);

    RunPlan plan_;
    ImageHold image_;
    std::atomic<bool> inputFailed_ = false;
    std::atomic<bool> operationFailed_ = false;
};
