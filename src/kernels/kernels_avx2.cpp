#define VSP_KERNEL_SET avx2
#include "kernels/vector_avx2.h"

#include "kernels/kernel_table.h"
#include "kernels/make_table.h"

namespace vsp {

extern const KernelTable kAvx2Kernels;
constinit const KernelTable kAvx2Kernels = avx2::makeTable<avx2::I32x8, avx2::I32x4Wide>("avx2");

} // namespace vsp
