// The stream in the frequency domain, both channels.
//
// Each line says what a member lives for: "settings" until the next Init or SetPar, "history" from
// hop to hop, "this hop" only so long.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "fixed/cache_line.h"
#include "fixed/complex.h"
#include "fixed/frame.h"
#include "fixed/ring.h"
#include "kernels/kernel_table.h"
#include "kernels/sizes.h"

namespace vsp {

// A row of bins, and unused ones up to the next cache line: 16 values of 4 bytes fill one.
inline constexpr int kRowBins = (kBins + 15) / 16 * 16;
using MagnitudeRow = int32_t[kRowBins];
using PhasorRow = ComplexShort[kRowBins];
using SpectrumRow = ComplexInt[kRowBins];
static_assert(sizeof(MagnitudeRow) % kLine == 0 && sizeof(PhasorRow) % kLine == 0);

/// What the hops of one stream have in common in the frequency domain: partial spectra of the last
/// hops, magnitudes and phasors of the last frames, the overlap-add of the synthesis.
///
/// An analysis frame is the last four low-band hops; its spectrum has bins 0 to 256, in units of
/// 16-bit samples, unscaled.
class Spectra {
public:
    static constexpr int kOverlap = 4;  // hops of a frame
    static constexpr int kAnalyses = 4; // frames whose magnitudes and phasors are kept

    explicit Spectra(const KernelTable& table) : kernels(table) {}

    /// Moves the analysis on by a hop: Velora_VSP_FFT_PartSp, then addHop.
    /// @param in  [kLowHop]
    void Velora_VSP_partFFT(SpectrumRow (&spectrum)[2], const Frame* in);
    /// Both channels' partial spectra become the spectra of the last four hops under a periodic Hann
    /// window.
    void addHop(SpectrumRow (&spectrum)[2]);
    /// Spectra of one hop followed by silence.
    /// @param outL, outR  [kBins] each, neither of them the other
    /// @param in          [kLowHop]
    void Velora_VSP_FFT_PartSp(ComplexInt* outL, ComplexInt* outR, const Frame* in);
    /// The next analysis frame: what follows takes the place of the oldest one.
    void turnAnalysis() { analysisPlace.turn(); }
    /// Takes a channel's spectrum apart into the newest rows of its `magRing` and `phasorRing`.
    void Velora_VSP_Extract_MagPhase(int channel, const ComplexInt* spectrum);
    void extractExactly(int channel, const ComplexInt* spectrum); // the same within 0.4 %
    /// Adds a synthesis frame to the overlap-add and gives the hop that this completes: overlapAdd,
    /// then Velora_VSP_IFFT_PartSp of the sums.
    /// @param out           [kLowHop], saturated
    /// @param specL, specR  [kBins] each; imaginary parts of bins 0 and 256 are ignored
    void Velora_VSP_partIFFT(Frame* out, const ComplexInt* specL, const ComplexInt* specR);
    void overlapAdd(const ComplexInt* specL, const ComplexInt* specR);
    /// The first hop of the inverse transform of two overlap-add sums.
    /// @param out         [kLowHop], saturated
    /// @param sumL, sumR  [kBins] each
    void Velora_VSP_IFFT_PartSp(Frame* out, ComplexInt* sumL, ComplexInt* sumR);

protected:
    /// To silence, with all phases 0. What a hop writes before it reads is left as it is.
    void reset()
    {
        clear(partSpPlace, analysisPlace, synthesisPlace);
        clear(partSpBuf, partSpSum, magRows, synthWinRows, synthSum);
        for (auto& row : phasorRows)
            for (auto& phasors : row)
                std::fill(std::begin(phasors), std::end(phasors), kPhaseZero);
    }

    // By age, 0 is the oldest; [channel].
    SpectrumRow (&partSpRing(int age))[2] { return partSpBuf[partSpPlace[age]]; }
    MagnitudeRow (&magRing(int age))[2] { return magRows[analysisPlace[age]]; }
    PhasorRow (&phasorRing(int age))[2] { return phasorRows[analysisPlace[age]]; }
    const PhasorRow (&phasorRing(int age) const)[2] { return phasorRows[analysisPlace[age]]; }
    SpectrumRow (&synthWinRing(int age))[2] { return synthWinRows[synthesisPlace[age]]; }

    const KernelTable& kernels; // the hot loops, for this machine

    // History, turned with each hop, the last one with each synthesis frame.
    RingPlace<kOverlap> partSpPlace;
    RingPlace<kAnalyses> analysisPlace;
    RingPlace<kOverlap> synthesisPlace;

    // History: [row as it lies][channel].
    alignas(kLine) SpectrumRow partSpBuf[kOverlap][2]; // partial spectra of the frame's hops
    alignas(kLine) SpectrumRow partSpSum[2];           // spectrum of the unwindowed frame
    alignas(kLine) MagnitudeRow magRows[kAnalyses][2];
    alignas(kLine) PhasorRow phasorRows[kAnalyses][2];    // Q14
    alignas(kLine) SpectrumRow synthWinRows[kOverlap][2]; // windowed
    alignas(kLine) SpectrumRow synthSum[2];               // overlap-add of those

private:
    void extract(int channel, const ComplexInt* spectrum,
                 decltype(KernelTable::exactMagPhase) kernel);
};

} // namespace vsp
