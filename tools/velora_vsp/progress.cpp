#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <unistd.h>

Progress::Progress(int64_t totalCount) : total(isatty(STDERR_FILENO) != 0 ? totalCount : 0) {}

Progress::~Progress()
{
    if (percent >= 0)
        std::fputs("\r\033[K", stderr);
}

void Progress::show(int64_t done)
{
    constexpr int kWidth = 50;
    if (total <= 0)
        return;
    const int now = int(100.0 * double(std::min(done, total)) / double(total));
    if (now == percent)
        return;
    percent = now;
    const std::string bar(size_t(now * kWidth / 100), '#');
    std::fprintf(stderr, "\r[%-*s] %3d %%", kWidth, bar.c_str(), now);
}
