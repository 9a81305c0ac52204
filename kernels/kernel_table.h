// The hot loops of the engine as function pointers: one table for each instruction set, all with
// the same output to the bit. An engine takes the best one for its machine once, when it is made.
#pragma once

#include <cstddef>
#include <cstdint>

#include "convert/half_band.h"
#include "fixed/complex.h"
#include "fixed/frame.h"
#include "vocoder/bands.h"

namespace vsp {

struct KernelTable {
    const char* name;

    // ---- Transforms of 512 points; re and im [kFftN] ----
    /// In place, natural order.
    void (*fft512)(int32_t* re, int32_t* im);
    /// Of 128 frames, left + i right, followed by 384 of silence.
    void (*fftOfHop)(int32_t* re, int32_t* im, const Frame* in);
    /// Only points 0 to 127 of the result, natural order, [128] each; re and im are overwritten.
    void (*fftFirstQuarter)(int32_t* outRe, int32_t* outIm, int32_t* re, int32_t* im);

    // ---- Spectra; arrays [kBins] unless said otherwise ----
    /// Separates the transform of left + i right. re and im [kFftN].
    void (*separateChannels)(ComplexInt* left, ComplexInt* right, const int32_t* re,
                             const int32_t* im);
    /// conj(left + i right) over kFftN bins; imaginary parts of bins 0 and 256 are ignored.
    void (*mergeChannels)(int32_t* re, int32_t* im, const ComplexInt* left,
                          const ComplexInt* right);
    /// Velora_VSP_PartSp_AnalysisSum and Velora_VSP_PartSp_SynthesisSum (fft/analysis.h,
    /// synthesis.h).
    void (*Velora_VSP_PartSp_AnalysisSum)(ComplexInt* out, ComplexInt* sum,
                                          const ComplexInt* oldest, const ComplexInt* newest);
    void (*Velora_VSP_PartSp_SynthesisSum)(ComplexInt* sum, ComplexInt* slot,
                                           const ComplexInt* spec);
    /// Velora_VSP_MagPhase_Bins (fft/magnitude_phase.h).
    void (*Velora_VSP_MagPhase_Bins)(int32_t* mag, ComplexShort* phasor, const ComplexInt* spec);
    /// 1/768 of 128 transformed points as frames, saturated: re to the left, -im to the right.
    void (*scaleOutput)(Frame* out, const int32_t* re, const int32_t* im);

    // ---- Phasors (vocoder/phasor.h) ----
    void (*interpMagApplyPhase)(ComplexInt* X, int32_t* M, const int32_t* m0, const int32_t* m1,
                                const ComplexShort* P, int f_q15, int n);
    void (*applyPhase)(ComplexInt* X, const int32_t* m, const ComplexShort* P, int n);
    void (*scaleSpectrum)(ComplexInt* X, int32_t gain_q14);
    void (*phasorStep)(ComplexShort* D, const ComplexShort* p, const ComplexShort* q);
    /// phasorMultiply, then phasorRenormalise.
    void (*phasorAdvance)(ComplexShort* a, const ComplexShort* b);

    // ---- Onsets and peaks (vocoder/transient.h, peak_locking.h) ----
    void (*bandCentres)(float* bandCog, const ComplexInt* left, const ComplexInt* right);
    /// Finds the peaks of a magnitude spectrum: bins above kPeakFloor and above their two
    /// neighbours on each side. `peakList` [kMaxPeaks] takes those in bands whose status is 0,
    /// ascending, `listed` their number; returns the number of all peaks in bins 2 to 254.
    int (*findPeaks)(int16_t* peakList, int* listed, const int32_t* mag, const int8_t* status,
                     const int16_t (*bands)[kBands]);
    /// Gives the bins around each of `count` (1 or more) peaks the phase of the peak plus their own
    /// analysis phase offset from it, in the spectrum X and in the running phasors S; the peak
    /// itself stays. A: analysis phasors.
    void (*lockPeaks)(ComplexInt* X, ComplexShort* S, const ComplexShort* A,
                      const int16_t* peakList, int count);

    // ---- Band split (vocoder/band_split.h) ----
    void (*split)(Frame* low, Frame* high, const Frame* in, int32_t (*state)[7],
                  const int16_t* coeffs_q14, int frames, int factor);
    void (*interpolateBy2)(Frame* out, const Frame* low, const Frame* high, int32_t (*state)[6],
                           const int16_t* coeffs_q14, int lowFrames, int outFrames);
    void (*interpolateBy4)(Frame* out, const Frame* low, const Frame* high, int32_t (*state)[6],
                           const int16_t* coeffs_q14, int lowFrames, int outFrames);
    void (*fadeHighBand)(Frame* out, const Frame* older, const Frame* newer, int frames);

    // ---- Half-band resamplers, Q4 (convert/half_band.h); state [channel], out not in ----
    /// pairs outputs from 2 pairs inputs.
    void (*halveRate)(int32_t (*out)[2], const int32_t (*in)[2], DecimatorState* state, int pairs);
    /// 2 frames outputs: branch B gives the even, branch A the odd ones, at unit gain.
    void (*doubleRate)(int32_t (*out)[2], const int32_t (*in)[2], HalfBandState* state, int frames);
    void (*toQ4)(int32_t* out, const int16_t* in, int samples);
    /// Truncates and saturates.
    void (*fromQ4)(int16_t* out, const int32_t* in, int samples);

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
};

/// Plain C++, for any machine.
extern const KernelTable kPortableKernels;

/// The fastest table for this machine.
const KernelTable& bestKernels();

/// All tables that this machine can run, portable first; ends with a null pointer.
const KernelTable* const* availableKernels();

} // namespace vsp
