#define VSP_KERNEL_SET neon
#include "kernels/vector_neon.h"

#include "kernels/level_loops.h"

namespace vsp {

extern const LevelKernels kNeonLevelKernels;
constinit const LevelKernels kNeonLevelKernels = neon::makeLevelKernels<neon::I32x4>("neon");

} // namespace vsp
