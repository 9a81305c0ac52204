// Takes the newest spectra apart into magnitudes and unit phasors and keeps the last four of them.

#include "fft/spectra.h"

namespace vsp {

void Spectra::Velora_VSP_Extract_MagPhase(int channel, const ComplexInt* spectrum)
{
    extract(channel, spectrum, kernels.Velora_VSP_MagPhase_Bins);
}

void Spectra::extractExactly(int channel, const ComplexInt* spectrum)
{
    extract(channel, spectrum, kernels.exactMagPhase);
}

void Spectra::extract(int channel, const ComplexInt* spectrum,
                      decltype(KernelTable::exactMagPhase) kernel)
{
    kernel(magRing(kAnalyses - 1)[channel], phasorRing(kAnalyses - 1)[channel], spectrum);
}

} // namespace vsp
