// Times as people write them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

/// h:mm:ss.sss
inline std::string clock(double seconds)
{
    const long long ms = std::llround(1000.0 * std::max(seconds, 0.0));
    char text[64];
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld.%03lld", ms / 3600000, ms / 60000 % 60,
                  ms / 1000 % 60, ms % 1000);
    return text;
}
