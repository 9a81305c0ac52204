// Chooses the table of level kernels for this machine.

#include "kernels/level_kernels.h"

namespace vsp {

#if defined(VELORA_KERNELS_X86)
extern const LevelKernels kSse41LevelKernels;
extern const LevelKernels kAvx2LevelKernels;
#endif
#if defined(VELORA_KERNELS_NEON)
extern const LevelKernels kNeonLevelKernels;
#endif

namespace {

struct Tables {
    const LevelKernels* all[4] = {&kPortableLevelKernels};
    int count = 1;

    Tables()
    {
#if defined(VELORA_KERNELS_X86)
        if (__builtin_cpu_supports("sse4.1"))
            all[count++] = &kSse41LevelKernels;
        if (__builtin_cpu_supports("avx2"))
            all[count++] = &kAvx2LevelKernels;
#endif
#if defined(VELORA_KERNELS_NEON)
        all[count++] = &kNeonLevelKernels;
#endif
    }
};

const Tables& tables()
{
    static const Tables found;
    return found;
}

} // namespace

const LevelKernels& bestLevelKernels()
{
    return *tables().all[tables().count - 1];
}

const LevelKernels* const* availableLevelKernels()
{
    return tables().all;
}

} // namespace vsp
