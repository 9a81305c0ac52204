// The output low-pass of slow speeds: one second-order Butterworth section per channel.
#pragma once

#include <cstdint>

#include <velora/bq.h>

namespace vsp {

/// b0, b1, b2, -a1, -a2 in Q30 for a corner at 2000 Hz: with K = tan(pi 2000 / rate) and
/// D = 1 + sqrt(2) K + K^2: b0 = b2 = K^2 / D, b1 = 2 b0, a1 = 2 (K^2 - 1) / D,
/// a2 = (1 - sqrt(2) K + K^2) / D (bilinear transform, pre-warped), each rounded by itself.
inline constexpr int kBiquadRates = 15;
extern const int32_t biquadCoefTable[kBiquadRates][5];

/// Memory of one channel.
struct BiquadChannelState {
    int32_t x1 = 0;       // last input, times 64
    int32_t x2 = 0;       // the one before
    int32_t y1 = 0;       // last output, times 64: four fraction bits are kept
    int32_t y2 = 0;       // the one before
    uint32_t residue = 0; // what the last output cut off, Q36: fed into the next (error feedback)
};

} // namespace vsp

class Velora_BQ : public Velora_BQ_Interface {
public:
    Velora_BQ();
    void Init(int sampleRate) override;
    void Exe(short (*dst)[2], const short (*src)[2], int frames) override;

private:
    vsp::BiquadChannelState state[2]; // history: [channel]
    int32_t coefIndex;                // row of biquadCoefTable
};
