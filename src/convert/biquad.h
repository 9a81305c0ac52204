// The output low-pass of slow speeds, as a class.
#pragma once

#include <cstdint>

#include <velora/bq.h>

#include "fixed/frame.h"
#include "fixed/sample_rates.h"
#include "kernels/biquad_section.h"
#include "kernels/kernel_table.h"

namespace vsp {

/// b0, b1, b2, -a1, -a2 in Q30 for a corner at 2000 Hz: with K = tan(pi 2000 / rate) and
/// D = 1 + sqrt(2) K + K^2: b0 = b2 = K^2 / D, b1 = 2 b0, a1 = 2 (K^2 - 1) / D,
/// a2 = (1 - sqrt(2) K + K^2) / D (bilinear transform, pre-warped), each rounded by itself.
extern const int32_t biquadCoefTable[kSampleRateCount][5];

} // namespace vsp

class Velora_BQ : public Velora_BQ_Interface {
public:
    Velora_BQ();
    void Init(int sampleRate) override;
    void Exe(short (*dst)[2], const short (*src)[2], int frames) override;

    /// Runs `count` frames in place through two filters of the same rate, one after the other.
    static void ExeInSeries(const vsp::KernelTable& kernels, Velora_BQ& first, Velora_BQ& second,
                            vsp::Frame* frames, int count);

private:
    vsp::BiquadChannelState state[2]; // history: [channel]
    int32_t coefIndex;                // row of biquadCoefTable
};
