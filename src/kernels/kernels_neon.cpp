#define VSP_KERNEL_SET neon
#include "kernels/vector_neon.h"

#include "kernels/kernel_table.h"
#include "kernels/make_table.h"
#include "kernels/vector_twice.h"

namespace vsp {

namespace {

constexpr KernelTable neonTable()
{
    using Two = neon::Twice<neon::I32x4>;
    KernelTable table = neon::makeTable<neon::I32x4, neon::I32x4>("neon");
    // Long chains of operations, for which in-order cores would wait.
    table.Velora_VSP_PartSp_AnalysisSum = neon::Velora_VSP_PartSp_AnalysisSum<Two>;
    table.Velora_VSP_PartSp_SynthesisSum = neon::Velora_VSP_PartSp_SynthesisSum<Two>;
    table.Velora_VSP_MagPhase_Bins = neon::Velora_VSP_MagPhase_Bins<Two>;
    table.scaleSpectrum = neon::scaleSpectrum<Two>;
    table.phasorAdvance = neon::phasorAdvance<Two>;
    table.findPeaks = neon::findPeaks<Two>;
    table.halveRateTwice = neon::halveRateTwice<neon::I32x4>;
    table.doubleRateTwice = neon::doubleRateTwice<neon::I32x4>;
    // These read 16-bit values, of which the compiler takes eight at a time where I32x4 takes four.
    table.phasorStep = neon::phasorStep<neon::I32x1>;
    table.toQ4 = neon::toQ4<neon::I32x1>;
    return table;
}

} // namespace

extern const KernelTable kNeonKernels;
constinit const KernelTable kNeonKernels = neonTable();

} // namespace vsp
