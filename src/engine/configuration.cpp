// Derives the working parameters from the sample rate and returns the signal path to silence.
//
// High rates are halved once or twice; at the working rate, hop and low-band decimation are chosen
// so that every vocoder step sees the same number of low-band frames.

#include <algorithm>

#include <velora/fft.h>

#include "convert/bridge.h"
#include "engine/velora_vsp.h"
#include "kernels/sizes.h"

using namespace vsp;

namespace {

int hopIndexFor(int sampleRate)
{
    switch (sampleRate) {
    case 8000:
    case 11025:
    case 12000:
        return 0;
    case 16000:
    case 22050:
    case 24000:
        return 1;
    default:
        return 2;
    }
}

} // namespace

void Velora_VSP::Velora_VSP_Init_Apply(int rate)
{
    DownSmpl2_Init();
    appliedSampleRate = rate;
    rateShift = rateShiftOf(rate);
    const int usual = hopIndexFor(rate);
    configure(does(Velora_VSP_Sound_ShortHop) ? std::max(usual - 1, 0) : usual);
    Scheduler::reset();
    Velora_VSP_FFT_Init(kFftLog2N);
}
