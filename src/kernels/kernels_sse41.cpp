#define VSP_KERNEL_SET sse41
#include "kernels/vector_sse41_wide.h"

#include "kernels/kernel_table.h"
#include "kernels/make_table.h"

namespace vsp {

extern const KernelTable kSse41Kernels;
constinit const KernelTable kSse41Kernels =
    sse41::makeTable<sse41::I32x4, sse41::I32x4Wide>("sse41");

} // namespace vsp
