// Chooses the table of kernels for this machine.

#include "kernels/kernel_table.h"

namespace vsp {

#if defined(VELORA_KERNELS_X86)
extern const KernelTable kSse41Kernels;
extern const KernelTable kAvx2Kernels;
#endif
#if defined(VELORA_KERNELS_NEON)
extern const KernelTable kNeonKernels;
#endif

namespace {

struct Tables {
    const KernelTable* all[4] = {&kPortableKernels};
    int count = 1;

    Tables()
    {
#if defined(VELORA_KERNELS_X86)
        if (__builtin_cpu_supports("sse4.1"))
            all[count++] = &kSse41Kernels;
        if (__builtin_cpu_supports("avx2"))
            all[count++] = &kAvx2Kernels;
#endif
#if defined(VELORA_KERNELS_NEON)
        all[count++] = &kNeonKernels;
#endif
    }
};

const Tables& tables()
{
    static const Tables found;
    return found;
}

} // namespace

const KernelTable& bestKernels()
{
    return *tables().all[tables().count - 1];
}

const KernelTable* const* availableKernels()
{
    return tables().all;
}

} // namespace vsp
