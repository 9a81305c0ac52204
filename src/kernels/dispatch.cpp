// Chooses the table of kernels for this machine.

#include "kernels/kernel_table.h"
#include "kernels/runnable_tables.h"

namespace vsp {

#if defined(VELORA_KERNELS_X86)
extern const KernelTable kSse41Kernels;
extern const KernelTable kAvx2Kernels;
#elif defined(VELORA_KERNELS_NEON)
extern const KernelTable kNeonKernels;
#endif

namespace {

const RunnableTables<KernelTable>& tables()
{
#if defined(VELORA_KERNELS_X86)
    static const RunnableTables<KernelTable> found(kPortableKernels, kSse41Kernels, kAvx2Kernels);
#elif defined(VELORA_KERNELS_NEON)
    static const RunnableTables<KernelTable> found(kPortableKernels, kNeonKernels);
#else
    static const RunnableTables<KernelTable> found(kPortableKernels);
#endif
    return found;
}

} // namespace

const KernelTable& bestKernels()
{
    return tables().best();
}

const KernelTable* const* availableKernels()
{
    return tables().all;
}

} // namespace vsp
