// Takes the newest spectra apart into magnitudes and unit phasors and keeps the last four of them.

#include "engine/velora_vsp.h"

using namespace vsp;

void Velora_VSP::Velora_VSP_Extract_MagPhase()
{
    for (int c = 0; c < 2; ++c) {
        turnRing(magRing[c]);
        turnRing(phasorRing[c]);
        kernels.Velora_VSP_MagPhase_Bins(magRing[c][3], phasorRing[c][3], spectrum[c]);
    }
}
