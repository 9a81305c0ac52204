#define VSP_KERNEL_SET neon
#include "kernels/vector_neon.h"

#include "kernels/make_table.h"

namespace vsp {

extern const KernelTable kNeonKernels;
constinit const KernelTable kNeonKernels = neon::makeTable<neon::I32x4, neon::I32x4>("neon");

} // namespace vsp
