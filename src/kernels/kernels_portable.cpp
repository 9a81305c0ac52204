#define VSP_KERNEL_SET portable
#include "kernels/vector_scalar.h"

#include "kernels/kernel_table.h"
#include "kernels/make_table.h"

namespace vsp {

constinit const KernelTable kPortableKernels =
    portable::makeTable<portable::I32x1, portable::I32x4Scalar>("portable");

} // namespace vsp
