// Numbers as WAV headers and samples in a pipe have them, whatever the machine.
#pragma once

#include <cstddef>
#include <cstdint>

inline uint64_t loadLittleEndian(const std::byte* in, int bytes)
{
    uint64_t value = 0;
    for (int n = 0; n < bytes; ++n)
        value |= uint64_t(in[n]) << (8 * n);
    return value;
}

inline void storeLittleEndian(std::byte* out, int bytes, uint64_t value)
{
    for (int n = 0; n < bytes; ++n)
        out[n] = std::byte(value >> (8 * n) & 0xFF);
}
