// Stages of the half-band resamplers: 2:1 and 1:2 polyphase all-pass filters on one channel.
//
// Samples are Q4: 16-bit audio with four fraction bits. Everything wraps rather than saturates.
#pragma once

#include <cstdint>

namespace vsp {

/// Delays of the three all-pass sections of a stage, each four times the section's value.
struct HalfBandState {
    int32_t apA1 = 0, apA2 = 0; // section A
    int32_t ap1 = 0;            // first-order section, in front of B
    int32_t apB1 = 0, apB2 = 0; // section B
};

/// A decimator also remembers where in a pair of samples the stream stands.
struct DecimatorState : HalfBandState {
    int32_t parity = 0;  // 1: an odd number of samples has come in
    int32_t pending = 0; // with parity 1: section A's result that waits for its partner
};

/// Halves the rate: samples at even positions of the stream go to branch A, at odd ones to branch
/// B; each output is the average of a pair, rounded half up.
/// @param out      [count / 2 + 1]; not `in`
/// @param in       [count]
/// @param state    this channel's delays, carried to the next call
/// @param scratch  [ceil(count / 2)]
/// @returns the number of outputs: pairs completed by this call
int DownSmpl2_stage(int32_t* out, const int32_t* in, DecimatorState& state, int count,
                    int32_t* scratch);

/// Doubles the rate: branch B gives the even, branch A the odd outputs, at unit gain.
/// @param out      [2 * count]; not `in`
/// @param in       [count]
/// @param state    this channel's delays, carried to the next call
/// @param scratch  [count]
void UpSmpl2_stage(int32_t* out, const int32_t* in, HalfBandState& state, int count,
                   int32_t* scratch);

} // namespace vsp
