#pragma once

#include "images/VipsHold.h"

/// Shows on standard error how much of the image is done, how fast, and the time that is left, while its pixels are pulled; nothing when standard
/// error is no terminal. Destroying it wipes the bar.
class ProgressBar {
public:
    explicit ProgressBar(VipsImage* image);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    ~ProgressBar();

private:
    static void Draw(VipsImage* image, VipsProgress* progress, void* bar);

    bool shown_;
    int percent_ = -1;
};
