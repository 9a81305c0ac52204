#include "progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <utility>

#include <unistd.h>

Progress::Progress(std::vector<double> sizes, bool quiet)
    : weights(std::move(sizes)), parts(weights.size()), isQuiet(quiet),
      isTerminal(!quiet && isatty(STDERR_FILENO) != 0)
{
    const double all = std::accumulate(weights.begin(), weights.end(), 0.0);
    for (double& weight : weights)
        weight = all > 0.0 ? weight / all : 1.0 / double(weights.size());
}

Progress::~Progress()
{
    if (!shown.empty())
        std::fputs("\r\033[K", stderr);
}

void Progress::say(const std::string& line)
{
    if (!isQuiet)
        complain(line);
}

void Progress::complain(const std::string& line)
{
    const std::lock_guard lock(mutex);
    if (!std::exchange(shown, {}).empty())
        std::fputs("\r\033[K", stderr);
    std::fprintf(stderr, "velora-vsp: %s\n", line.c_str());
}

void Progress::show(size_t job, double done)
{
    if (!isTerminal)
        return;
    const std::lock_guard lock(mutex);
    parts[job] = std::clamp(done, 0.0, 1.0);
    std::string now = bar();
    if (now == shown)
        return;
    std::fprintf(stderr, "\r%s\033[K", now.c_str());
    shown = std::move(now);
}

// Fits into 40 columns, and of up to 9999 files tells how many are done. How long it will still take is said once that can be told.
std::string Progress::bar() const
{
    const size_t all = parts.size();
    const auto ended = size_t(std::count(parts.begin(), parts.end(), 1.0));
    char files[48] = "";
    if (all > 1)
        std::snprintf(files, sizeof files, " %zu/%zu", ended, all);
    const int width = std::max(16 - int(std::strlen(files)), 4);
    constexpr double kTelling = 0.02;
    const double done = std::inner_product(parts.begin(), parts.end(), weights.begin(), 0.0);
    const std::string blocks(size_t(done * width + 1e-6), '#');
    char text[64];
    std::snprintf(text, sizeof text, "[%-*s] %3d %%%s", width, blocks.c_str(),
                  int(100.0 * done + 1e-6), files);
    if (done < kTelling)
        return text;
    const double taken =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const long left = std::lround(std::min(taken * (1.0 - done) / done, 359999.0));
    char time[32];
    if (left >= 3600)
        std::snprintf(time, sizeof time, " %ld:%02ld:%02ld left", left / 3600, left / 60 % 60,
                      left % 60);
    else
        std::snprintf(time, sizeof time, " %ld:%02ld left", left / 60, left % 60);
    return std::string(text) + time;
}
