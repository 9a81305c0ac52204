// The two output low-passes of slow speeds, in series: left and right of the first filter are two
// lanes, those of the second the other two.
#pragma once

#include <cstdint>
#include <type_traits>

#include "fixed/fixed.h"
#include "fixed/frame.h"
#include "kernels/biquad_section.h"
#include "kernels/recursive_sections.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

// The second filter is so many frames behind the first that no lane waits for another's output.
constexpr int kLagFrames = 2;

/// `count` is above kLagFrames.
template <class V4>
VSP_INLINE void lowPassInLanes(Frame* frames, BiquadChannelState* first, BiquadChannelState* second,
                               const int32_t* coeffs_q30, int count)
{
    Biquad_Frames(frames, frames, kLagFrames, first, coeffs_q30);
    BiquadSections<V4> sections(first, second, coeffs_q30);
    V4 older = loadFrameTwice<0>(frames, V4{});
    V4 newer = loadFrameTwice<0>(frames + 1, V4{});
    for (int n = kLagFrames; n < count; ++n) {
        const V4 y = sections.run(joinHalves(loadFrameTwice<0>(frames + n, V4{}), older));
        older = newer;
        newer = lowHalfTwice(y);
        storeHighFrame(frames + n - kLagFrames, y);
    }
    sections.keep();
    Frame* const last = frames + count - kLagFrames;
    storeTwoFrames(last, joinHalves(older, newer));
    Biquad_Frames(last, last, kLagFrames, second, coeffs_q30);
}

/// Without vector registers the sections of two channels are as much as the machine can hold.
template <class V4>
void lowPassTwice(Frame* frames, BiquadChannelState* first, BiquadChannelState* second,
                  const int32_t* coeffs_q30, int count)
{
    if constexpr (!std::is_same_v<V4, I32x4Scalar>)
        if (count > kLagFrames)
            return lowPassInLanes<V4>(frames, first, second, coeffs_q30, count);
    Biquad_Frames(frames, frames, count, first, coeffs_q30);
    Biquad_Frames(frames, frames, count, second, coeffs_q30);
}

} // namespace vsp::VSP_KERNEL_SET
