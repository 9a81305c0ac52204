// Keeps the bins around a spectral peak in step with it, so that a partial stays one sound: each
// takes the peak's synthesis phase plus the phase offset it had from the peak in the analysis.

#include "vocoder/peak_locking.h"

#include <algorithm>

#include "engine/velora_vsp.h"

namespace vsp {

void peakRegions(PeakRegion* regions, const int16_t* peakList, int count)
{
    regions[0].first = int16_t(std::max(peakList[0] - 2, 2));
    for (int i = 0; i + 1 < count; ++i) {
        const int middle = (peakList[i] + peakList[i + 1]) >> 1;
        regions[i].last = int16_t(std::min(middle, peakList[i] + 2));
        regions[i + 1].first = int16_t(std::max(middle, peakList[i + 1] - 2));
    }
    regions[count - 1].last = int16_t(peakList[count - 1] + 2);
}

} // namespace vsp

using namespace vsp;

int Velora_VSP::peakphaselock(ComplexInt* X, int* mag, ComplexShort* A, ComplexShort* S,
                              signed char* status, const short (*bands)[10])
{
    int listed = 0;
    const int total = kernels.findPeaks(peakList, &listed, mag, status, bands);
    if (listed > 0)
        kernels.lockPeaks(X, S, A, peakList, listed);
    return total;
}
