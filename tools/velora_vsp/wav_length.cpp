#include "wav_length.h"

#include <cstddef>
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

} // namespace

int64_t announcedWavBytes(const std::vector<uint8_t>& start)
{
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
