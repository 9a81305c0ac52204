#define VSP_KERNEL_SET portable
#include "kernels/vector_scalar.h"

#include "kernels/level_loops.h"

namespace vsp {

constinit const LevelKernels kPortableLevelKernels =
    portable::makeLevelKernels<portable::I32x1>("portable");

} // namespace vsp
