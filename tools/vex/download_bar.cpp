#include "tools/vex/download_bar.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

namespace vex {

namespace {

constexpr int kBarColumns = 30;
constexpr std::chrono::seconds kMarkAge{2};

}  // namespace

// Bytes a second.
double GDownloadBar::Speed(std::uint64_t done)
{
    const auto now = GSteadyClock::now();
    if (now - nextMark.time >= kMarkAge) {
        mark = nextMark;
        nextMark = {now, done};
    }
    const std::chrono::duration<double> took = now - mark.time;
    return static_cast<double>(done - std::min(done, mark.bytes)) / std::max(took.count(), 1e-3);
}

void GDownloadBar::Show(std::uint64_t done, std::uint64_t total)
{
    const double megabytes = static_cast<double>(done) / 1e6;
    const double speed = Speed(done) / 1e6;
    if (total != 0) {
        const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
        const auto full = static_cast<std::size_t>(part * kBarColumns);
        const std::string bar = std::string(full, '#') + std::string(kBarColumns - full, '.');
        std::fprintf(stderr, "\r[%s] %3d %%  %.1f of %.1f MB  %.1f MB/s\x1B[K", bar.c_str(),
                     static_cast<int>(part * 100), megabytes, static_cast<double>(total) / 1e6, speed);
    } else {
        std::fprintf(stderr, "\r%.1f MB  %.1f MB/s\x1B[K", megabytes, speed);
    }
    std::fflush(stderr);
    shown = true;
}

void GDownloadBar::Clear()
{
    if (shown)
        std::fputs("\r\x1B[K", stderr);
    shown = false;
}

}  // namespace vex
