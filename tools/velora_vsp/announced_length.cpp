#include "announced_length.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace {

uint64_t littleEndian(const uint8_t* in, int bytes)
{
    uint64_t value = 0;
    for (int n = 0; n < bytes; ++n)
        value |= uint64_t(in[n]) << (8 * n);
    return value;
}

std::string_view word(const uint8_t* in)
{
    return {reinterpret_cast<const char*>(in), 4};
}

// Recorders into a pipe leave about the largest size that they think there is.
bool isBoundless(uint64_t bytes)
{
    return (bytes >= 0x7FFFF000 && bytes <= 0x80000000) || bytes >= 0xFFFFF000;
}

// Chunks of W64 have names of 16 bytes and lengths of 8, which count both.
int64_t announcedW64Bytes(const std::vector<uint8_t>& start)
{
    constexpr size_t kHead = 24;
    constexpr uint64_t kBoundless = uint64_t(1) << 62;
    for (size_t at = kHead + 16; at + kHead <= start.size();) {
        const uint64_t bytes = littleEndian(start.data() + at + 16, 8);
        if (word(start.data() + at) == "data")
            return bytes < kHead || bytes >= kBoundless ? kOpenEnd : int64_t(bytes - kHead);
        if (bytes < kHead || bytes > start.size())
            break;
        at += (size_t(bytes) + 7) / 8 * 8;
    }
    return kNoWav;
}

} // namespace

int64_t announcedWavBytes(const std::vector<uint8_t>& start)
{
    if (start.size() >= 40 && word(start.data()) == "riff" && word(start.data() + 24) == "wave")
        return announcedW64Bytes(start);
    if (start.size() < 12 || word(start.data() + 8) != "WAVE")
        return kNoWav;
    const bool isLong = word(start.data()) == "RF64" || word(start.data()) == "BW64";
    if (!isLong && word(start.data()) != "RIFF")
        return kNoWav;
    const uint64_t riffBytes = littleEndian(start.data() + 4, 4);
    uint64_t longBytes = 0; // where 32 bits are too few
    for (size_t at = 12; at + 8 <= start.size();) {
        const uint8_t* const chunk = start.data() + at;
        const uint64_t bytes = littleEndian(chunk + 4, 4);
        if (word(chunk) == "ds64" && at + 24 <= start.size())
            longBytes = littleEndian(chunk + 16, 8);
        if (word(chunk) == "data") {
            if (isLong && bytes >= 0xFFFFF000)
                return longBytes == 0 || longBytes > uint64_t(INT64_MAX) ? kOpenEnd
                                                                         : int64_t(longBytes);
            // No bytes is what an empty file has, too, if nothing lies beyond its announced end.
            const bool isEmpty =
                riffBytes >= at && !isBoundless(riffBytes) && start.size() <= riffBytes + 9;
            return isBoundless(bytes) || (bytes == 0 && !isEmpty) ? kOpenEnd : int64_t(bytes);
        }
        at += 8 + size_t(bytes + bytes % 2);
    }
    return kNoWav;
}

double announcedAsfSeconds(const std::vector<uint8_t>& start)
{
    constexpr uint8_t kFileProperties[] = {0xA1, 0xDC, 0xAB, 0x8C, 0x47, 0xA9, 0xCF, 0x11,
                                           0x8E, 0xE4, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
    constexpr ptrdiff_t kBytes = 104;
    const auto found = std::search(start.begin(), start.end(), std::begin(kFileProperties),
                                   std::end(kFileProperties));
    if (start.end() - found < kBytes)
        return 0.0;
    const uint8_t* const properties = &*found;
    const bool isLive = (properties[88] & 1) != 0;
    const double playing = double(littleEndian(properties + 64, 8)) / 1e7; // in 100 ns
    const double before = double(littleEndian(properties + 80, 8)) / 1e3;  // counted, but not heard
    return isLive ? 0.0 : std::max(playing - before, 0.0);
}
