#define VSP_KERNEL_SET neon
#include "kernels/vector_neon.h"

#include "kernels/kernel_table.h"
#include "kernels/make_table.h"

namespace vsp {

namespace {

constexpr KernelTable neonTable()
{
    KernelTable table = neon::makeTable<neon::I32x4, neon::I32x4>("neon");
    // These read 16-bit values, of which the compiler takes eight at a time where I32x4 takes four.
    table.phasorStep = neon::phasorStep<neon::I32x1>;
    table.toQ4 = neon::toQ4<neon::I32x1>;
    return table;
}

} // namespace

extern const KernelTable kNeonKernels;
constinit const KernelTable kNeonKernels = neonTable();

} // namespace vsp
