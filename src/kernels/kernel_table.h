// The hot loops of the engine as function pointers: one table for each instruction set, all with
// the same output to the bit. An engine takes the best one for its machine once, when it is made.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fixed/complex.h"
#include "fixed/frame.h"
#include "kernels/biquad_section.h"
#include "kernels/half_band.h"
#include "kernels/sizes.h"

namespace vsp {

/// Unless said otherwise no output overlaps another array.
struct KernelTable {
    const char* name;

    // ---- Transforms of 512 points; re and im [kFftN] ----
    /// In place, natural order.
    void (*fft512)(int32_t* re, int32_t* im);
    /// Of kLowHop frames, left + i right, followed by silence.
    void (*fftOfHop)(int32_t* re, int32_t* im, const Frame* in);
    /// Only the first points of the result, natural order, [kLowHop] each; overwrites re and im.
    void (*fftFirstQuarter)(int32_t* outRe, int32_t* outIm, int32_t* re, int32_t* im);

    // ---- Spectra; arrays [kBins] unless said otherwise ----
    /// Separates the transform of left + i right. re and im [kFftN].
    void (*separateChannels)(ComplexInt* left, ComplexInt* right, const int32_t* re,
                             const int32_t* im);
    /// conj(left + i right) over kFftN bins; imaginary parts of bins 0 and 256 are ignored.
    void (*mergeChannels)(int32_t* re, int32_t* im, const ComplexInt* left,
                          const ComplexInt* right);
    /// Moves one channel's sum of partial spectra on by a hop and windows it.
    /// @param out     spectrum of the last four hops under a periodic Hann window, in units of
    ///                16-bit samples: X[k] / 2 - X[k - 1] / 4 - X[k + 1] / 4, halved in steps
    ///                that truncate; bins outside 0..256 are the conjugates of their mirror images
    /// @param sum     X = i^k (sum - slot + newest): the spectrum of the last four hops without
    ///                a window
    /// @param slot    partial spectrum of the hop that leaves; replaced by that of the one that enters
    /// @param newest  partial spectrum of that one; may be `out`
    void (*Velora_VSP_PartSp_AnalysisSum)(ComplexInt* out, ComplexInt* sum, ComplexInt* slot,
                                          const ComplexInt* newest);
    /// Windows a synthesis spectrum in the same way and adds it to one channel's overlap-add sum.
    /// @param sum   i^k sum + windowed - slot: its inverse transform begins with the finished hop
    /// @param slot  windowed spectrum of the frame four hops ago; replaced by that of `spec`
    /// @param spec  synthesis spectrum
    void (*Velora_VSP_PartSp_SynthesisSum)(ComplexInt* sum, ComplexInt* slot,
                                           const ComplexInt* spec);
    /// Moduli, as max + min / 4 + min / 8, and Q14 unit phasors of bins above INT32_MIN in both
    /// components; an all-zero bin has phase 0.
    void (*Velora_VSP_MagPhase_Bins)(int32_t* mag, ComplexShort* phasor, const ComplexInt* spec);
    /// The same, moduli and lengths within 0.4 %, so that steady tones keep a steady level. Moduli
    /// below 2^29.
    void (*exactMagPhase)(int32_t* mag, ComplexShort* phasor, const ComplexInt* spec);
    /// 1/768 of kLowHop transformed points as frames, saturated: re to the left, -im to the right.
    /// 512 of the 768 undo the unscaled transform, 1.5 the two windows at fourfold overlap.
    void (*scaleOutput)(Frame* out, const int32_t* re, const int32_t* im);

    // ---- Phasors, Q14; arrays [kBins] unless said otherwise, results keep the low 16 bits ----
    /// X = M P with M = m0 (1 - f) + m1 f, each term truncated. All arrays [n].
    /// @param m0, m1  magnitudes of the older and the newer analysis frame
    /// @param f_q15   position between the two, 0 to 32767
    void (*interpMagApplyPhase)(ComplexInt* X, int32_t* M, const int32_t* m0, const int32_t* m1,
                                const ComplexShort* P, int f_q15, int n);
    /// X = m P. All arrays [n].
    void (*applyPhase)(ComplexInt* X, const int32_t* m, const ComplexShort* P, int n);
    /// X = gain X
    void (*scaleSpectrum)(ComplexInt* X, int32_t gain_q14);
    /// D = q conj(p): the rotation from p to q.
    void (*phasorStep)(ComplexShort* D, const ComplexShort* p, const ComplexShort* q);
    /// a = a b, then brought back towards length 1.0, to first order.
    void (*phasorAdvance)(ComplexShort* a, const ComplexShort* b);

    // ---- Onsets and peaks ----
    /// Where in time each band's energy lies (kernels/centre_of_gravity.h); bandCog [kBands].
    void (*bandCentres)(float* bandCog, const ComplexInt* left, const ComplexInt* right);
    /// Finds the peaks of a magnitude spectrum: bins above kPeakFloor and above their two
    /// neighbours on each side. `peakList` [kPeakRoom] takes those in bands whose status is 0,
    /// ascending, `listed` their number. Returns how many peaks the spectrum has in all, from
    /// kFirstPeakBin to kLastPeakBin.
    int (*findPeaks)(int16_t* peakList, int* listed, const int32_t* mag, const int8_t* status,
                     const int16_t (*bands)[kBands]);
    /// Gives the bins around each of `count` (1 or more) peaks the phase of the peak plus their own
    /// analysis phase offset from it, in the spectrum X and in the running phasors S; the peak
    /// itself stays. A: analysis phasors.
    void (*lockPeaks)(ComplexInt* X, ComplexShort* S, const ComplexShort* A,
                      const int16_t* peakList, int count);

    // ---- Phases locked between channels ----
    /// What both channels' analysis phases have to be turned by, weighted with their magnitudes:
    /// the sum of M S conj(A). Phasors Q14, their lengths at most 1.4.
    /// @param sum  bins 0 to 255; the others stay as they are
    /// @param M    [channel] magnitudes
    /// @param S    [channel] running phasors
    /// @param A    [channel] analysis phasors
    void (*sumTurns)(ComplexInt* sum, const int32_t* const (&M)[2],
                     const ComplexShort* const (&S)[2], const ComplexShort* const (&A)[2]);
    /// The direction of each bin of `sum` and of its neighbours together, those beside it at half
    /// their weight, the next ones at a thirty-second; phase 0 where
    /// there is nothing. Bin 0 keeps its phase, so that a constant stays one, and so does bin 1 below
    /// it, which then belongs to the constant.
    /// @param turns  Q14, length 1.0 within 0.4 %
    /// @param sum    bins -kTurnReach to kLastBin + kTurnReach, moduli below 2^29
    void (*commonTurns)(ComplexShort* turns, const ComplexInt* sum);
    /// X = M turn A, the spectrum of this frame; S = turn next, the running phasors for the one
    /// that follows. All arrays [n].
    /// @param A, next  analysis phasors, Q14: of the frame that is synthesised and a hop later
    void (*applyTurns)(ComplexInt* X, ComplexShort* S, const ComplexShort* turns, const int32_t* M,
                       const ComplexShort* A, const ComplexShort* next, int n);

    // ---- Band split (kernels/band_split.h); both channels at once ----
    /// Splits a hop; the low band keeps every `factor`-th frame (2 or 4) from the first on. Half
    /// the amplitude in each pass band. Wraps rather than saturates.
    /// @param low    [ceil(frames / factor)]
    /// @param high   [frames]; in [frames]
    /// @param state  [channel] delays: two of (C0, C1), one of C2, two each of (C3, C4), (C5, C6)
    void (*split)(Frame* low, Frame* high, const Frame* in, int32_t (*state)[7],
                  const int16_t* coeffs_q14, int frames, int factor);
    /// Interpolates the low band and adds twice the high band, saturated. The gain at zero
    /// frequency is -2 by 2 and +2 by 4.
    /// @param out        [outFrames]; high [outFrames]; low [lowFrames]
    /// @param state      [channel] delays: two of (k0, k1), two of (k2, k3); by 4 also one of k4
    ///                   and one of k5
    /// @param outFrames  at most lowFrames * factor: the rest of the last low frame is dropped
    void (*interpolateBy2)(Frame* out, const Frame* low, const Frame* high, int32_t (*state)[6],
                           const int16_t* coeffs_q14, int lowFrames, int outFrames);
    void (*interpolateBy4)(Frame* out, const Frame* low, const Frame* high, int32_t (*state)[6],
                           const int16_t* coeffs_q14, int lowFrames, int outFrames);
    /// Fades from one high-band segment to a newer one: the weight of the older is 1024 - 2 n in
    /// Q10, however long the hop is. All arrays [frames], at most 512.
    void (*fadeHighBand)(Frame* out, const Frame* older, const Frame* newer, int frames);
    /// (older * fall + newer * rise) / 2^14, rounded half up and saturated. All arrays [frames].
    /// @param fades_q14  fall and rise of sounds that are not alike, and what the weights change by
    ///                   to those of equal sounds; weights within 0 to 1.0
    /// @param alike_q14  how much of that change there is, 0 to 1.0
    void (*mixHighBand)(Frame* out, const Frame* older, const Frame* newer,
                        const int32_t (*fades_q14)[kMaxHop], int alike_q14, int frames);
    /// Sum of the products a b, where a below -32767 counts as that; arrays [samples], an even number.
    int64_t (*product)(const int16_t* a, const int16_t* b, int samples);

    // ---- Half-band resamplers, Q4 (kernels/half_band.h); state [channel], out not in ----
    /// `pairs` outputs from 2 * pairs inputs: the rounded average of branch A on the even and
    /// branch B on the odd ones.
    void (*halveRate)(int32_t (*out)[2], const int32_t (*in)[2], DecimatorState* state, int pairs);
    /// 2 * frames outputs: branch B gives the even, branch A the odd ones, at unit gain.
    void (*doubleRate)(int32_t (*out)[2], const int32_t (*in)[2], HalfBandState* state, int frames);
    /// The same of two stretches of sound at once; null where one after the other is faster.
    void (*halveRateTwice)(int32_t (*const (&out)[2])[2], const int32_t (*const (&in)[2])[2],
                           HalfBandLanes& lanes, int pairs);
    void (*doubleRateTwice)(int32_t (*const (&out)[2])[2], const int32_t (*const (&in)[2])[2],
                            HalfBandLanes& lanes, int frames);
    void (*toQ4)(int32_t* out, const int16_t* in, int samples);
    /// Truncates and saturates.
    void (*fromQ4)(int16_t* out, const int32_t* in, int samples);

    // ---- Output low-pass of slow speeds (kernels/biquad_section.h) ----
    /// Two filters in series, in place.
    /// @param first, second  [channel] memory of each; their inputs times 64 fit 22 bits
    void (*lowPassTwice)(Frame* frames, BiquadChannelState* first, BiquadChannelState* second,
                         const int32_t* coeffs_q30, int count);

    // ---- Sample formats; out not overlapping in ----
    /// To 16 bits: 24-bit and 32-bit values are rounded half up, floats truncated toward zero after
    /// scaling by 32768 (not a number: 0); everything saturates.
    void (*from24Bit)(int16_t* out, const int32_t* in, int samples);
    void (*from32Bit)(int16_t* out, const int32_t* in, int samples);
    void (*fromFloat)(int16_t* out, const float* in, int samples);
    /// From 16 bits, exactly.
    void (*to24Bit)(int32_t* out, const int16_t* in, int samples);
    void (*to32Bit)(int32_t* out, const int16_t* in, int samples);
    void (*toFloat)(float* out, const int16_t* in, int samples);
    /// To Q4 and from it in one go: what the 16 bits between would be.
    void (*q4From24Bit)(int32_t* out, const int32_t* in, int samples);
    void (*q4From32Bit)(int32_t* out, const int32_t* in, int samples);
    void (*q4FromFloat)(int32_t* out, const float* in, int samples);
    void (*q4To24Bit)(int32_t* out, const int32_t* in, int samples);
    void (*q4To32Bit)(int32_t* out, const int32_t* in, int samples);
    void (*q4ToFloat)(float* out, const int32_t* in, int samples);
};

/// Plain C++, for any machine.
extern const KernelTable kPortableKernels;

/// The fastest table for this machine.
const KernelTable& bestKernels();

/// All tables that this machine can run, portable first; ends with a null pointer.
const KernelTable* const* availableKernels();

} // namespace vsp
