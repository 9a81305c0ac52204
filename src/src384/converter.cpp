// Raises the sample rate by a whole number: the engine's slowest speeds play a stream as a slowed
// tape does, and this finds the sound between the frames of that stream.
//
// A band-limited sound has one value at every instant: the sum of its samples, each weighted by the
// low-pass impulse response at its distance from that instant. That response is 1 at its own sample
// and 0 at all others, so at the instants of the input frames the input passes through unchanged.
// Everything is integer arithmetic: the same output to the bit on every machine.

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>
#include <new>

#include <velora/src384.h>

#include "fixed/sample_rates.h"
#include "src384/interpolation_table.h"

namespace {

constexpr int kChannels = 2;
constexpr int kDelay = Velora_SRC384_DelayFrames;
constexpr int kTaps = 2 * kDelay; // input samples that one output sample is made of
constexpr int kPhases = 48; // instants from one input sample to the next that a ratio can ask for
constexpr int kBlock = 256; // input frames taken at a time

static_assert(std::size(kImpulseResponse) == kDelay * kPhases + 1);

/// Output frames per input frame; 0 if a code is unknown or the ratio is not whole.
/// Every whole ratio of two rates divides kPhases.
int ratioOf(int outputCode, int inputCode)
{
    const auto isCode = [](int code) { return code >= 0 && code < vsp::kSampleRateCount; };
    if (!isCode(outputCode) || !isCode(inputCode))
        return 0;
    const int output = vsp::kSampleRates[outputCode];
    const int input = vsp::kSampleRates[inputCode];
    return output % input == 0 ? output / input : 0;
}

/// The weights of the input samples for one instant, oldest sample first. A weight is 256 * coarse
/// + fine, Q22: two products of 16 bits, which vector units have, and sums that fit 32 bits, but
/// far less noise in the stop band than 16-bit weights would leave.
struct Phase {
    std::int16_t coarse[kTaps]; // Q14
    std::int16_t fine[kTaps];   // Q22, -128..127
};

/// phases[n] is for the instant n / kPhases of an input sample behind the sample at tap kDelay - 1.
struct PhaseTable {
    Phase phases[kPhases];
};

constexpr PhaseTable makePhaseTable()
{
    PhaseTable table{};
    for (int phase = 0; phase < kPhases; ++phase) {
        for (int tap = 0; tap < kTaps; ++tap) {
            const int offset = phase - kPhases * (tap - (kDelay - 1));
            const int weight_q22 = kImpulseResponse[offset < 0 ? -offset : offset];
            const int coarse_q14 = (weight_q22 + 128) >> 8;
            table.phases[phase].coarse[tap] = std::int16_t(coarse_q14);
            table.phases[phase].fine[tap] = std::int16_t(weight_q22 - 256 * coarse_q14);
        }
    }
    return table;
}

constexpr PhaseTable kTable = makePhaseTable();

/// True if no input can make a 32-bit sum of products overflow.
constexpr bool sumsFit(const Phase& phase)
{
    int coarse = 0;
    int fine = 0;
    for (int tap = 0; tap < kTaps; ++tap) {
        coarse += phase.coarse[tap] < 0 ? -phase.coarse[tap] : phase.coarse[tap];
        fine += phase.fine[tap] < 0 ? -phase.fine[tap] : phase.fine[tap];
    }
    return coarse <= INT32_MAX / 32768 && fine <= INT32_MAX / 32768;
}
static_assert(std::all_of(std::begin(kTable.phases), std::end(kTable.phases), sumsFit));

/// The sum rounded with halves upward, saturated.
short sample(std::int32_t coarse_q14, std::int32_t fine_q22)
{
    const std::int64_t sum_q22 = std::int64_t(coarse_q14) * 256 + fine_q22;
    const std::int64_t rounded = (sum_q22 + (1 << 21)) >> 22;
    return short(std::clamp<std::int64_t>(rounded, SHRT_MIN, SHRT_MAX));
}

/// Writes the `ratio` output frames that each of `frames` input frames completes.
/// @param left, right  [kTaps - 1 + frames], oldest first
[[gnu::always_inline]] inline void interpolate(short (*out)[kChannels], const short* left,
                                               const short* right, int frames, int ratio)
{
    const int step = kPhases / ratio;
    for (int frame = 0; frame < frames; ++frame, ++left, ++right) {
        (*out)[0] = left[kDelay - 1];
        (*out)[1] = right[kDelay - 1];
        ++out;
        for (int n = step; n < kPhases; n += step, ++out) {
            const Phase& phase = kTable.phases[n];
            std::int32_t leftCoarse = 0, leftFine = 0; // coarse Q14, fine Q22
            std::int32_t rightCoarse = 0, rightFine = 0;
            for (int tap = 0; tap < kTaps; ++tap) {
                leftCoarse += left[tap] * phase.coarse[tap];
                leftFine += left[tap] * phase.fine[tap];
                rightCoarse += right[tap] * phase.coarse[tap];
                rightFine += right[tap] * phase.fine[tap];
            }
            (*out)[0] = sample(leftCoarse, leftFine);
            (*out)[1] = sample(rightCoarse, rightFine);
        }
    }
}

using Interpolate = void (*)(short (*out)[kChannels], const short* left, const short* right,
                             int frames, int ratio);

void interpolateAnywhere(short (*out)[kChannels], const short* left, const short* right, int frames,
                         int ratio)
{
    interpolate(out, left, right, frames, ratio);
}

#if defined(VELORA_KERNELS_X86)

// The same loop, compiled to take twice as many taps at a time: nearly twice as fast.
[[gnu::target("avx2")]] void interpolateAvx2(short (*out)[kChannels], const short* left,
                                             const short* right, int frames, int ratio)
{
    interpolate(out, left, right, frames, ratio);
}

Interpolate bestInterpolate()
{
    return __builtin_cpu_supports("avx2") ? interpolateAvx2 : interpolateAnywhere;
}

#else

Interpolate bestInterpolate()
{
    return interpolateAnywhere;
}

#endif

class Converter final : public Velora_SRC384_Interface {
public:
    int Init(int a, int b, int c, int d, int e) override
    {
        const int wanted = ratioOf(a, b);
        if (wanted == 0 || c != kChannels || d != 0 || e != 0)
            return -1;
        ratio = wanted;
        std::fill_n(line[0], kHistory, short(0));
        std::fill_n(line[1], kHistory, short(0));
        return 0;
    }

    int Exe(short (*out)[2], const short (*in)[2], int frames) override
    {
        if (ratio == 0 || frames <= 0 || frames > INT_MAX / ratio)
            return 0;
        for (int done = 0; done < frames;) {
            const int count = std::min(frames - done, kBlock);
            append(in + done, count);
            interpolateBlock(out, line[0], line[1], count, ratio);
            out += count * ratio;
            forget(count);
            done += count;
        }
        return frames * ratio;
    }

private:
    static constexpr int kHistory = kTaps - 1;

    /// Puts `count` frames behind the history.
    void append(const short (*in)[2], int count)
    {
        for (int frame = 0; frame < count; ++frame)
            for (int channel = 0; channel < kChannels; ++channel)
                line[channel][kHistory + frame] = in[frame][channel];
    }

    /// Drops the oldest `count` frames: the newest become the history.
    void forget(int count)
    {
        for (auto& samples : line)
            std::copy_n(samples + count, kHistory, samples);
    }

    const Interpolate interpolateBlock = bestInterpolate();
    int ratio = 0; // output frames per input frame; 0 before a good Init
    // history: [channel], the last kHistory frames, then the block being converted
    short line[kChannels][kHistory + kBlock] = {};
};

} // namespace

Velora_SRC384_Interface* Velora_SRC384_Factory::Create()
{
    return new (std::nothrow) Converter;
}

void Velora_SRC384_Factory::Destroy(Velora_SRC384_Interface* converter)
{
    delete converter;
}
