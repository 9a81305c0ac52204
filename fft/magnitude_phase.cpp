// Takes the newest spectra apart into magnitudes and unit phasors and keeps the last four of them.

#include "fft/magnitude_phase.h"

#include "engine/velora_vsp.h"

namespace vsp {

void Velora_VSP_MagPhase_Bins(int32_t* mag, ComplexShort* phasor, const ComplexInt* spec)
{
    for (int k = 0; k < kBins; ++k) {
        const ComplexInt X = spec[k];
        mag[k] = cheapModulus(X.re, X.im);
        if (mag[k] == 0) {
            phasor[k] = kPhaseZero;
            continue;
        }
        const NormalisedBin bin = Velora_VSP_InvMagPoly(X.re, X.im);
        phasor[k] = {fx::low16(fx::mulQ14(bin.re, bin.inverse)),
                     fx::low16(fx::mulQ14(bin.im, bin.inverse))};
    }
}

} // namespace vsp

using namespace vsp;

void Velora_VSP::Velora_VSP_Extract_MagPhase()
{
    for (int c = 0; c < 2; ++c) {
        turnRing(magRing[c]);
        turnRing(phasorRing[c]);
        Velora_VSP_MagPhase_Bins(magRing[c][3], phasorRing[c][3], spectrum[c]);
    }
}
