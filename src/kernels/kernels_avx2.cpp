#define VSP_KERNEL_SET avx2
#include "kernels/vector_avx2.h"

#include "kernels/kernel_table.h"
#include "kernels/make_table.h"

namespace vsp {

namespace {

constexpr KernelTable avx2Table()
{
    KernelTable table = avx2::makeTable<avx2::I32x8, avx2::I32x4Wide>("avx2");
    // Four lanes in one register, where the other tables for x86 need more.
    table.halveRateTwice = avx2::halveRateTwice<avx2::I32x4Wide>;
    table.doubleRateTwice = avx2::doubleRateTwice<avx2::I32x4Wide>;
    return table;
}

} // namespace

extern const KernelTable kAvx2Kernels;
constinit const KernelTable kAvx2Kernels = avx2Table();

} // namespace vsp
