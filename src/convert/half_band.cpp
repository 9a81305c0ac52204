// Brings streams above 48 kHz down to the working rate and back, one or two octaves.

#include <algorithm>
#include <cstdint>

#include "convert/bridge.h"
#include "kernels/half_band.h"

namespace vsp {
namespace {

using Stereo = int32_t[2]; // left, right, Q4

// Halves the rate of stereo frames: those at even positions of the stream go to branch A, at odd
// ones to branch B; each output is the average of the branches, rounded half up.
// @param out    [(count + 1) / 2]; not `in`
// @param in     [count], Q4
// @param state  [channel], carried to the next call
// @returns the number of outputs: pairs completed by this call
int DownSmpl2_stage(const KernelTable& kernels, Stereo* out, const Stereo* in,
                    DecimatorState (&state)[2], int count)
{
    if (count == 0)
        return 0;
    int produced = 0;
    if (state[0].parity == 1) {
        const Stereo pair[2] = {{state[0].pending, state[1].pending}, {in[0][0], in[0][1]}};
        kernels.halveRate(out, pair, state, 1);
        ++produced;
        ++in;
        --count;
    }
    const int pairs = count / 2;
    kernels.halveRate(out + produced, in, state, pairs);
    for (int c = 0; c < 2; ++c) {
        state[c].parity = count % 2;
        if (count % 2 == 1)
            state[c].pending = in[count - 1][c];
    }
    return produced + pairs;
}

} // namespace

int FormatBridge::DownSmpl2_polyphase(Frame* out, const Frame* in, int frames, int shift)
{
    Stereo high[kBlockFrames];
    Stereo mid[kBlockFrames / 2 + 1];
    Stereo low[kBlockFrames / 4 + 1];
    int produced = 0;
    for (int done = 0; done < frames; done += kBlockFrames) {
        const int count = std::min(kBlockFrames, frames - done);
        kernels.toQ4(*high, in[done], 2 * count);
        const Stereo* result = mid;
        int results = DownSmpl2_stage(kernels, mid, high, dsState, count);
        if (shift == 2) {
            results = DownSmpl2_stage(kernels, low, mid, dsState2, results);
            result = low;
        }
        kernels.fromQ4(out[produced], *result, 2 * results);
        produced += results;
    }
    return produced;
}

void FormatBridge::UpSmpl2_polyphase(Frame* out, const Frame* in, int frames, int shift)
{
    Stereo high[kBlockFrames];
    Stereo mid[kBlockFrames / 2];
    Stereo low[kBlockFrames / 2];
    const int blockFrames = kBlockFrames >> shift;
    for (int done = 0; done < frames; done += blockFrames) {
        const int count = std::min(blockFrames, frames - done);
        kernels.toQ4(*low, in[done], 2 * count);
        if (shift == 1) {
            kernels.doubleRate(high, low, usState, count);
        } else {
            kernels.doubleRate(mid, low, usState, count);
            kernels.doubleRate(high, mid, usState2, 2 * count);
        }
        kernels.fromQ4(out[done << shift], *high, 2 * (count << shift));
    }
}

} // namespace vsp
