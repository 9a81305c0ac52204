// Keeps the bins around a spectral peak in step with it, so that a partial stays one sound: each
// takes the peak's synthesis phase plus the phase offset it had from the peak in the analysis.

#include "vocoder/vocoder.h"

namespace vsp {

int Vocoder::peakphaselock(ComplexInt* X, int* mag, ComplexShort* A, ComplexShort* S,
                           signed char* status, const short (*bands)[10])
{
    int16_t peakList[kPeakRoom];
    int listed = 0;
    const int total = kernels.findPeaks(peakList, &listed, mag, status, bands);
    if (listed > 0)
        kernels.lockPeaks(X, S, A, peakList, listed);
    return total;
}

} // namespace vsp
