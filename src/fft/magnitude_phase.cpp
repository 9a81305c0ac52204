// Takes the newest spectra apart into magnitudes and unit phasors and keeps the last four of them.

#include "fft/spectra.h"

namespace vsp {

void Spectra::Velora_VSP_Extract_MagPhase(int channel)
{
    extract(channel, kernels.Velora_VSP_MagPhase_Bins);
}

void Spectra::extractExactly(int channel)
{
    extract(channel, kernels.exactMagPhase);
}

void Spectra::extract(int channel, decltype(KernelTable::exactMagPhase) kernel)
{
    magRing[channel].turn();
    phasorRing[channel].turn();
    kernel(magRing[channel].newest(), phasorRing[channel].newest(), spectrum[channel]);
}

} // namespace vsp
