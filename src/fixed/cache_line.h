// Where arrays begin that vectors walk.
#pragma once

#include <cstddef>

namespace vsp {

/// Bytes of a cache line. Arrays that kernels walk begin on one, and so does every row of bins: a
/// vector across two lines takes two loads or stores. Only speed hangs on it: kernels take any
/// address that their values may have.
inline constexpr std::size_t kLine = 64;

/// Asks for memory that is about to be read.
inline void fetchToRead(const void* memory, std::size_t bytes)
{
    for (std::size_t n = 0; n < bytes; n += kLine)
        __builtin_prefetch(static_cast<const char*>(memory) + n, 0);
}
/// Asks for memory that is about to be written, at once or after it was read.
inline void fetchToWrite(const void* memory, std::size_t bytes)
{
    for (std::size_t n = 0; n < bytes; n += kLine)
        __builtin_prefetch(static_cast<const char*>(memory) + n, 1);
}

/// Asks for the beginnings of arrays that are about to be walked. Where an engine is one of many, all
/// that it has is out of the cache when its turn comes; processors go on by themselves with what is
/// walked in order, but wait for each beginning. Asked for at once, these come at the same time. An
/// engine by itself loses nothing that can be measured, as it would if whole arrays were asked for.
template <class... Arrays>
void fetchBeginnings(const Arrays&... arrays)
{
    (fetchToWrite(&arrays, 4 * kLine), ...);
}

} // namespace vsp
