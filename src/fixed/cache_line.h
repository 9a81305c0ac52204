// Where arrays begin that vectors walk.
#pragma once

#include <cstddef>

namespace vsp {

/// Bytes of a cache line. Arrays that kernels walk begin on one, and so does every row of bins: a
/// vector across two lines takes two loads or stores. Only speed hangs on it: kernels take any
/// address that their values may have.
inline constexpr std::size_t kLine = 64;

} // namespace vsp
