// Takes the newest spectra apart into magnitudes and unit phasors and keeps the last four of them.

#include "fft/spectra.h"

namespace vsp {

void Spectra::Velora_VSP_Extract_MagPhase()
{
    for (int c = 0; c < 2; ++c) {
        magRing[c].turn();
        phasorRing[c].turn();
        kernels.Velora_VSP_MagPhase_Bins(magRing[c].newest(), phasorRing[c].newest(), spectrum[c]);
    }
}

} // namespace vsp
