#define VSP_KERNEL_SET sse41
#include "kernels/vector_sse41.h"

#include "kernels/level_loops.h"

namespace vsp {

extern const LevelKernels kSse41LevelKernels;
constinit const LevelKernels kSse41LevelKernels = sse41::makeLevelKernels<sse41::I32x4>("sse41");

} // namespace vsp
