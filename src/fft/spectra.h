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
    static constexpr int kAnalyses = 4; // frames whose magnitudes and phasors are kept

    explicit Spectra(const KernelTable& table) : kernels(table) {}

    /// Moves the analysis on by a hop: transformHop, then addHop for both channels.
    /// @param in  [kLowHop]
    void Velora_VSP_partFFT(SpectrumRow (&spectrum)[2], const Frame* in);
    void transformHop(const Frame* in);
    /// @param spectrum  becomes a channel's of the last four hops under a periodic Hann window
    void addHop(int channel, ComplexInt* spectrum);
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
        for (auto& rows : phasorRows)
            for (auto& phasors : rows)
                std::fill(std::begin(phasors), std::end(phasors), kPhaseZero);
    }

    auto partSpRing(int channel) { return RingView(partSpBuf[channel], partSpPlace); }
    auto magRing(int channel) { return RingView(magRows[channel], analysisPlace); }
    auto phasorRing(int channel) { return RingView(phasorRows[channel], analysisPlace); }
    auto phasorRing(int channel) const { return RingView(phasorRows[channel], analysisPlace); }
    auto synthWinRing(int channel) { return RingView(synthWinRows[channel], synthesisPlace); }

    const KernelTable& kernels; // the hot loops, for this machine

    // History, all turned once a hop, or with the last one once a synthesis frame.
    RingPlace<5> partSpPlace; // the oldest row is the hop that has left the frame
    RingPlace<kAnalyses> analysisPlace;
    RingPlace<4> synthesisPlace;

    // History: [channel], rows in the order of memory.
    alignas(kLine) SpectrumRow partSpBuf[2][5];
    alignas(kLine) SpectrumRow partSpSum[2]; // spectrum of the unwindowed frame
    alignas(kLine) MagnitudeRow magRows[2][kAnalyses];
    alignas(kLine) PhasorRow phasorRows[2][kAnalyses]; // Q14
    alignas(kLine) SpectrumRow synthWinRows[2][4];     // windowed
    alignas(kLine) SpectrumRow synthSum[2];            // overlap-add of those four

private:
    void extract(int channel, const ComplexInt* spectrum,
                 decltype(KernelTable::exactMagPhase) kernel);
};

} // namespace vsp
