#include "status_line.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// h:mm:ss, or m:ss below an hour.
std::string shortClock(double seconds)
{
    constexpr long long kMost = 99LL * 3600 + 3599;
    const long long s = std::min(std::llround(std::floor(std::max(seconds, 0.0))), kMost);
    char text[32];
    if (s >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", s / 3600, s / 60 % 60, s % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", s / 60, s % 60);
    return text;
}

// Blocks of 6 dB, the last one above -6 dB of full scale.
std::string levelBar(float peak)
{
    constexpr int kBlocks = 8;
    const double above = 20.0 * std::log10(std::max(double(peak), 1e-9)) / 6.02 + kBlocks;
    return std::string(size_t(std::clamp(int(std::ceil(above)), 0, kBlocks)), '#');
}

} // namespace

std::string statusLine(const Position& position, int64_t duration, int rate)
{
    std::string left = "-";
    left += duration > 0 ? shortClock(double(std::max<int64_t>(duration - position.media, 0)) /
                                      rate / position.speed)
                         : "?";
    const char* const state = position.isPaused       ? "||"
                              : position.loops        ? "AB"
                              : position.hasLoopStart ? "A"
                                                      : "";
    char text[64];
    std::snprintf(text, sizeof text, "%8s %9s %4.2fx %-2s [%-8s]",
                  shortClock(double(position.media) / rate).c_str(), left.c_str(), position.speed,
                  state, levelBar(position.isPaused ? 0.0F : position.peak).c_str());
    return text;
}
