// Where arrays begin that vectors walk.
#pragma once

#include <cstddef>

namespace vsp {

/// Bytes of a cache line. Arrays that kernels walk begin on one, and so does every row of bins: a
/// vector across two lines takes two loads or stores. Speed is all that hangs on it; kernels take
/// any address.
inline constexpr std::size_t kLine = 64;

} // namespace vsp
