// Takes the newest spectra apart into magnitudes and unit phasors and keeps the last four of them.

#include "fft/spectra.h"

namespace vsp {

void Spectra::Velora_VSP_Extract_MagPhase(int channel)
{
    magRing[channel].turn();
    phasorRing[channel].turn();
    kernels.Velora_VSP_MagPhase_Bins(magRing[channel].newest(), phasorRing[channel].newest(),
                                     spectrum[channel]);
}

} // namespace vsp
