// One stage of a decimator, for streams that come in pieces.
#pragma once

#include "kernels/half_band.h"
#include "kernels/kernel_table.h"

namespace vsp {

/// Halves the rate of stereo frames: those at even positions of the stream go to branch A, at odd
/// ones to branch B; each output is the average of the branches, rounded half up.
/// @param out    [(count + 1) / 2]; not `in`
/// @param in     [count], Q4
/// @param state  [channel], carried to the next call
/// @returns the number of outputs: pairs completed by this call
int DownSmpl2_stage(const KernelTable& kernels, int32_t (*out)[2], const int32_t (*in)[2],
                    DecimatorState (&state)[2], int count);

} // namespace vsp
