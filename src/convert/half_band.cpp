// Brings streams above 48 kHz down to the working rate and back, one or two octaves.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "convert/bridge.h"
#include "convert/sample_format.h"
#include "convert/segments.h"
#include "fixed/cache_line.h"
#include "kernels/half_band.h"
#include "kernels/kernel_table.h"
#include "kernels/sizes.h"

namespace vsp {
namespace {

using Stereo = int32_t[2]; // left, right, Q4

// The rate is doubled in blocks of so many frames at the caller's rate, which stay in the
// first-level cache.
constexpr int kBlockFrames = 1024;

// So many of them are brought to Q4 at a time for both segments together, and for each of the two: few
// enough that the next ones are there when they are wanted.
constexpr int kReadFrames = 512;
constexpr int kSegmentFrames = 128;

// The caller's frames, brought to Q4 as they are wanted. What comes next is fetched into the cache
// meanwhile.
class CallerFrames {
public:
    CallerFrames(const KernelTable& table, const void* frames, Velora_BitDepth_T format)
        : kernels(table), in(static_cast<const std::byte*>(frames)), depth(format)
    {
    }
    const Stereo* read(int place, int first, int count)
    {
        Stereo* const to = q4 + place * kSegmentFrames;
        samplesToQ4(kernels, *to, in + first * bytesPerFrame(depth), 2 * count, depth);
        return to;
    }
    void expect(int first, int count) const
    {
        fetchToRead(in + first * bytesPerFrame(depth),
                    std::size_t(std::max(count, 0) * bytesPerFrame(depth)));
    }

private:
    const KernelTable& kernels;
    const std::byte* in;
    Velora_BitDepth_T depth;
    alignas(kLine) Stereo q4[kReadFrames];
};

// What is Q4 already.
class StageFrames {
public:
    explicit StageFrames(const Stereo* frames) : in(frames) {}
    const Stereo* read(int /*place*/, int first, int /*count*/) const { return in + first; }
    void expect(int /*first*/, int /*count*/) const {}

private:
    const Stereo* in;
};

// Halves the rate of stereo frames: those at even positions of the stream go to branch A, at odd
// ones to branch B; each output is the average of the branches, rounded half up.
// @param out    [pairs]; not `in`
// @param in     2 * pairs frames from `first` on
// @param state  [channel]
template <class Source>
void halvePairs(const KernelTable& kernels, Stereo* out, Source& in, int first,
                DecimatorState (&state)[2], int pairs)
{
    const auto read = [&](int place, int pair, int count) {
        return in.read(place, first + 2 * pair, 2 * count);
    };
    const auto expect = [&](int pair, int most) {
        in.expect(first + 2 * pair, 2 * std::min(most, pairs - pair));
    };
    const auto runBoth = [&](HalfBandLanes& lanes, int begin, int end, int ahead) {
        constexpr int kMost = kSegmentFrames / 2;
        if (begin == 0) { // so that the one is on its way while the other is waited for
            expect(0, kMost);
            expect(ahead, kMost);
        }
        for (int n = begin; n < end; n += kMost) {
            const int count = std::min(kMost, end - n);
            const Stereo* const from[2] = {read(0, n, count), read(1, n + ahead, count)};
            Stereo* const to[2] = {out + n, out + n + ahead};
            expect(n + count, kMost);
            expect(n + ahead + count, kMost);
            kernels.halveRateTwice(to, from, lanes, count);
        }
    };
    int n = kernels.halveRateTwice != nullptr ? runInTwoSegments(state, pairs, runBoth) : 0;
    while (n < pairs) {
        constexpr int kMost = kReadFrames / 2;
        const int count = std::min(kMost, pairs - n);
        const Stereo* const from = read(0, n, count);
        expect(n + count, kMost);
        kernels.halveRate(out + n, from, state, count);
        n += count;
    }
}

// Halves the rate of frames that begin anywhere in a pair.
// @param out    [(count + 1) / 2]
// @param state  [channel], carried to the next call
// @returns the number of outputs: pairs completed by this call
template <class Source>
int DownSmpl2_stage(const KernelTable& kernels, Stereo* out, Source&& in,
                    DecimatorState (&state)[2], int count)
{
    if (count == 0)
        return 0;
    const int completing = state[0].parity;
    if (completing == 1) {
        const Stereo& newest = *in.read(0, 0, 1);
        const Stereo pair[2] = {{state[0].pending, state[1].pending}, {newest[0], newest[1]}};
        kernels.halveRate(out, pair, state, 1);
    }
    const int pairs = (count - completing) / 2;
    halvePairs(kernels, out + completing, in, completing, state, pairs);
    const int left = count - completing - 2 * pairs;
    for (int c = 0; c < 2; ++c) {
        state[c].parity = left;
        if (left == 1)
            state[c].pending = (*in.read(0, count - 1, 1))[c];
    }
    return completing + pairs;
}

// Doubles the rate of stereo frames.
// @param out    [2 * count]; not `in`
// @param in     [count]
// @param state  [channel], carried to the next call
void UpSmpl2_stage(const KernelTable& kernels, Stereo* out, const Stereo* in,
                   HalfBandState (&state)[2], int count)
{
    const auto runBoth = [=, &kernels](HalfBandLanes& lanes, int begin, int end, int ahead) {
        const Stereo* const from[2] = {in + begin, in + begin + ahead};
        Stereo* const to[2] = {out + 2 * begin, out + 2 * (begin + ahead)};
        kernels.doubleRateTwice(to, from, lanes, end - begin);
    };
    const int done =
        kernels.doubleRateTwice != nullptr ? runInTwoSegments(state, count, runBoth) : 0;
    kernels.doubleRate(out + 2 * done, in + done, state, count - done);
}

} // namespace

int FormatBridge::DownSmpl2_polyphase(Frame* out, const void* in, int frames, int shift,
                                      Velora_BitDepth_T depth)
{
    Stereo mid[kPieceFrames / 2 + 1];
    Stereo low[kPieceFrames / 4 + 1];
    const Stereo* result = mid;
    int results = DownSmpl2_stage(kernels, mid, CallerFrames(kernels, in, depth), dsState, frames);
    if (shift == 2) {
        results = DownSmpl2_stage(kernels, low, StageFrames(mid), dsState2, results);
        result = low;
    }
    kernels.fromQ4(*out, *result, 2 * results);
    return results;
}

void FormatBridge::UpSmpl2_polyphase(void* out, const Frame* in, int frames, int shift,
                                     Velora_BitDepth_T depth)
{
    Stereo high[kBlockFrames];
    Stereo mid[kBlockFrames / 2];
    Stereo low[kBlockFrames / 2];
    auto* target = static_cast<std::byte*>(out);
    const int blockFrames = kBlockFrames >> shift;
    for (int done = 0; done < frames; done += blockFrames) {
        const int count = std::min(blockFrames, frames - done);
        kernels.toQ4(*low, in[done], 2 * count);
        if (shift == 1) {
            UpSmpl2_stage(kernels, high, low, usState, count);
        } else {
            UpSmpl2_stage(kernels, mid, low, usState, count);
            UpSmpl2_stage(kernels, high, mid, usState2, 2 * count);
        }
        samplesFromQ4(kernels, target, *high, 2 * (count << shift), depth);
        target += (count << shift) * bytesPerFrame(depth);
    }
}

int FormatBridge::Convert_UHQ2MQ(Frame* out, const void* in, int frames, int shift,
                                 Velora_BitDepth_T depth)
{
    if (shift != 0)
        return DownSmpl2_polyphase(out, in, frames, shift, depth);
    samplesTo16(kernels, *out, in, 2 * frames, depth);
    return frames;
}

void FormatBridge::Convert_MQ2UHQ(void* out, const Frame* in, int frames, int shift,
                                  Velora_BitDepth_T depth)
{
    if (shift != 0)
        UpSmpl2_polyphase(out, in, frames, shift, depth);
    else
        samplesFrom16(kernels, out, *in, 2 * frames, depth);
}

} // namespace vsp
