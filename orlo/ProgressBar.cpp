#include "orlo/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace {

constexpr int kBarWidth = 40;

}  // namespace

ProgressBar::ProgressBar(VipsImage* image) : shown_(isatty(STDERR_FILENO) == 1) {
    if (!shown_) return;
    vips_image_set_progress(image, TRUE);
    g_signal_connect(image, "eval", G_CALLBACK(&ProgressBar::Draw), this);
}

ProgressBar::~ProgressBar() {
    if (shown_) std::fputs("\r\033[K", stderr);
}

void ProgressBar::Draw(VipsImage*, VipsProgress* progress, void* bar) {
    auto* self = static_cast<ProgressBar*>(bar);
    if (progress->percent == self->percent_) return;
    self->percent_ = progress->percent;
    std::string line(static_cast<std::size_t>(kBarWidth), '.');
    for (int i = 0; i < progress->percent * kBarWidth / 100 && i < kBarWidth; i++) line[static_cast<std::size_t>(i)] = '#';
    const double seconds = std::max(g_timer_elapsed(progress->start, nullptr), 1e-3);
    const double done = static_cast<double>(progress->npels), left = static_cast<double>(progress->tpels - progress->npels);
    const long remaining = done > 0 ? std::lround(seconds * left / done) : 0;
    std::fprintf(stderr, "\r[%s] %3d %%  %.1f Mpixel/s  %ld:%02ld left\033[K", line.c_str(), progress->percent, done / seconds / 1e6, remaining / 60,
                 remaining % 60);
    std::fflush(stderr);
}
