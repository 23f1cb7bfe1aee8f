#include "orlo/ProgressBar.h"

#include <unistd.h>

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
    std::fprintf(stderr, "\r[%s] %3d %%", line.c_str(), progress->percent);
    std::fflush(stderr);
}
