// Chooses the table of level kernels for this machine.

#include "kernels/level_kernels.h"
#include "kernels/runnable_tables.h"

namespace vsp {

#if defined(VELORA_KERNELS_X86)
extern const LevelKernels kSse41LevelKernels;
extern const LevelKernels kAvx2LevelKernels;
#elif defined(VELORA_KERNELS_NEON)
extern const LevelKernels kNeonLevelKernels;
#endif

namespace {

const RunnableTables<LevelKernels>& tables()
{
#if defined(VELORA_KERNELS_X86)
    static const RunnableTables<LevelKernels> found(kPortableLevelKernels, kSse41LevelKernels,
                                                    kAvx2LevelKernels);
#elif defined(VELORA_KERNELS_NEON)
    static const RunnableTables<LevelKernels> found(kPortableLevelKernels, kNeonLevelKernels);
#else
    static const RunnableTables<LevelKernels> found(kPortableLevelKernels);
#endif
    return found;
}

} // namespace

const LevelKernels& bestLevelKernels()
{
    return tables().best();
}

const LevelKernels* const* availableLevelKernels()
{
    return tables().all;
}

} // namespace vsp
