#define VSP_KERNEL_SET avx2
#include "kernels/vector_avx2.h"

#include "kernels/level_loops.h"

namespace vsp {

extern const LevelKernels kAvx2LevelKernels;
constinit const LevelKernels kAvx2LevelKernels = avx2::makeLevelKernels<avx2::I32x8>("avx2");

} // namespace vsp
