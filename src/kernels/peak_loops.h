// Spectral peaks, and the centre of gravity of each band.
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "fixed/complex.h"
#include "fixed/fixed.h"
#include "kernels/centre_of_gravity.h"
#include "kernels/peaks.h"
#include "kernels/recursive_sections.h"
#include "kernels/sizes.h"
#include "kernels/spectrum_loops.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

/// One bit for each of a few bins: whether it is a peak.
template <class V>
VSP_INLINE unsigned peakBits(const int32_t* mag, int bins)
{
    unsigned bits = 0;
    forBins<V>(bins, [&](int n, auto lanes) {
        using W = decltype(lanes);
        const int32_t* const m = mag + n;
        const W around =
            max(max(load(m - 2, W{}), load(m - 1, W{})), max(load(m + 1, W{}), load(m + 2, W{})));
        const W isPeak = greater(load(m, W{}), max(around, set1(kPeakFloor, W{})));
        bits |= maskBits(isPeak) << n;
    });
    return bits;
}

template <class V>
int findPeaks(int16_t* peakList, int* listed, const int32_t* mag, const int8_t* status,
              const int16_t (*bands)[kBands])
{
    int total = 0;
    const auto list = [&](int first, unsigned bits) {
        const GroupPeaks& peaks = kGroupPeaks[bits];
        for (int i = 0; i < kMostOfGroup; ++i)
            peakList[total + i] = int16_t(first + peaks.places[i]);
        total += peaks.count;
    };
    // Two groups at a time, which don't wait for each other.
    constexpr int kEnd = kLastPeakBin + 1;
    int k = kFirstPeakBin;
    for (; k + 2 * kGroupBins <= kEnd; k += 2 * kGroupBins) {
        const unsigned bits = peakBits<V>(mag + k, kGroupBins);
        const unsigned next = peakBits<V>(mag + k + kGroupBins, kGroupBins);
        list(k, bits);
        list(k + kGroupBins, next);
    }
    for (; k < kEnd; k += kGroupBins)
        list(k, peakBits<V>(mag + k, std::min(kGroupBins, kEnd - k)));
    // Only those of idle bands stay.
    int count = total;
    if (std::any_of(status, status + kBands, [](int8_t busy) { return busy != 0; })) {
        count = 0;
        int band = 0;
        for (int i = 0; i < total; ++i) {
            const int16_t peak = peakList[i];
            while (peak > bands[1][band])
                ++band;
            peakList[count] = peak;
            count += status[band] == 0 ? 1 : 0;
        }
    }
    *listed = count;
    return total;
}

/// Peaks padded to whole vectors by repeating the last one, which does no harm.
constexpr int kPaddedPeaks = kMaxPeaks + kMostLanes;

/// The turns that a peak gives to its region: of the spectrum (Q14, raised) and of the phasors (Q16).
struct PeakTurns {
    int32_t spectrumRe[kPaddedPeaks], spectrumIm[kPaddedPeaks];
    int32_t phasorRe[kPaddedPeaks], phasorIm[kPaddedPeaks];
};

template <class V>
VSP_INLINE void peakTurns(PeakTurns& turns, const ComplexInt* X, const ComplexShort* S,
                          const ComplexShort* A, const int16_t* peaks, int count)
{
    for (int i = 0; i < count; i += V::lanes) {
        V re, im, sRe, sIm, aRe, aIm;
        pickBins(X, peaks + i, re, im);
        pickBins(S, peaks + i, sRe, sIm);
        pickBins(A, peaks + i, aRe, aIm);
        const Raised<V> wRe = raised(aRe);
        const Raised<V> wIm = raised(aIm);

        // Exactly on an axis the phase counts as 0.
        const Normalised<V> bin = Velora_VSP_InvMagPoly(re, im);
        const V zero = set1(0, V{});
        const V onAxis = equal(min(wrapAbs(re), wrapAbs(im)), zero);
        const V unitRe = shiftLeft<2>(shiftRight<14>(mulShort(bin.re, bin.inverse)));
        const V unitIm = shiftLeft<2>(shiftRight<14>(mulShort(bin.im, bin.inverse)));
        V turnRe, turnIm;
        timesConj(turnRe, turnIm, select(onAxis, set1(1 << 16, V{}), unitRe),
                  select(onAxis, zero, unitIm), wRe, wIm);
        store(turns.spectrumRe + i, raised(turnRe).v);
        store(turns.spectrumIm + i, raised(turnIm).v);

        timesConj(turnRe, turnIm, shiftLeft<2>(sRe), shiftLeft<2>(sIm), wRe, wIm);
        store(turns.phasorRe + i, shiftLeft<2>(turnRe));
        store(turns.phasorIm + i, shiftLeft<2>(turnIm));
    }
}

/// Turns the bins first[i] and first[i] + 1 by what peak i says; where `wanted` is given, only bins
/// whose bits are set in it. No two pairs share a bin, so others can be stored as they were.
template <class V>
VSP_INLINE void turnPairs(ComplexInt* X, ComplexShort* S, const ComplexShort* A,
                          const PeakTurns& turns, const int16_t* first, const int32_t* wanted,
                          int count)
{
    for (int i = 0; i < count; i += V::lanes / 2, first += V::lanes / 2) {
        const auto choose = [=](V turned, V old) {
            return wanted != nullptr ? select(load(wanted + 2 * i, V{}), turned, old) : turned;
        };
        V re, im, sRe, sIm;
        Raised<V> aRe, aIm;
        pickPairs(X, first, re, im);
        pickPairs(S, first, sRe, sIm);
        pickRaisedPairs(A, first, aRe, aIm);
        const V m = shiftLeft<2>(cheapModulus(re, im));
        const auto turnedBy = [=](const int32_t* turn) {
            return shiftLeft<2>(mulShift16(m, Raised<V>{loadTwice(turn + i, V{})}));
        };
        const V mRe = turnedBy(turns.spectrumRe);
        const V mIm = turnedBy(turns.spectrumIm);
        V newRe, newIm;
        times(newRe, newIm, mRe, mIm, aRe, aIm);
        putPairs(X, first, choose(newRe, re), choose(newIm, im));
        times(newRe, newIm, loadTwice(turns.phasorRe + i, V{}), loadTwice(turns.phasorIm + i, V{}),
              aRe, aIm);
        putPairs(S, first, choose(newRe, sRe), choose(newIm, sIm));
    }
}

/// Two bins on each side follow a peak. Of two peaks four bins apart, both turn the bin between
/// them and the later one has the last word, so the bins above all peaks are turned first, then
/// those below all peaks; of two peaks three bins apart, the earlier one leaves the bin next to the
/// other alone. Bins 0 and 1 follow no peak.
template <class V>
void lockPeaks(ComplexInt* X, ComplexShort* S, const ComplexShort* A, const int16_t* peakList,
               int count)
{
    using Pairs = std::conditional_t<V::lanes == 1, Scalar<2>, V>;
    int16_t lowest[kPaddedPeaks]; // bin two below each peak
    for (int i = 0; i < count; ++i)
        lowest[i] = int16_t(peakList[i] - 2);
    for (int i = count; i < count + kMostLanes; ++i)
        lowest[i] = lowest[count - 1];
    int32_t wanted[2 * kPaddedPeaks]; // of the two bins above each peak
    for (int i = 0; i < count + kMostLanes; ++i)
        wanted[2 * i] = wanted[2 * i + 1] = -1;
    for (int i = 0; i + 1 < count; ++i)
        wanted[2 * i + 1] = lowest[i + 1] - lowest[i] > 3 ? -1 : 0;

    PeakTurns turns;
    peakTurns<V>(turns, X + 2, S + 2, A + 2, lowest, count);
    turnPairs<Pairs>(X + 3, S + 3, A + 3, turns, lowest, wanted, count);
    const ComplexInt X0 = X[0];
    const ComplexInt X1 = X[1];
    const ComplexShort S0 = S[0];
    const ComplexShort S1 = S[1];
    turnPairs<Pairs>(X, S, A, turns, lowest, nullptr, count);
    X[0] = X0;
    X[1] = X1;
    S[0] = S0;
    S[1] = S1;
}

/// y(k) = x(k) + c1 y(k - 1) + c2 y(k - 2) on the real and the imaginary parts of two stretches of bins
/// at once; y as multiplicands.
template <class V4>
struct CogRecursion {
    using Word = typename V4::Word;
    CoeffsOf<V4> c1 = coeffsOf<V4>(kCogFeedback1, kCogFeedback1);
    CoeffsOf<V4> c2 = coeffsOf<V4>(kCogFeedback2, kCogFeedback2);
    V4 c1y, c2y, c2yPrev; // products of the last two

    /// Begins behind nothing.
    [[gnu::always_inline]] CogRecursion()
    {
        const int32_t nothing[4] = {};
        c1y = c2y = c2yPrev = load(nothing, V4{});
    }
    /// Goes on behind two values of each stretch.
    [[gnu::always_inline]] void start(V4 last, V4 before)
    {
        c1y = mulQ14(last, c1);
        c2y = mulQ14(last, c2);
        c2yPrev = mulQ14(before, c2);
    }
    [[gnu::always_inline]] V4 next(V4 x)
    {
        const V4 y = multiplicand(wrapAdd(wrapAdd(x, c2yPrev), c1y));
        c2yPrev = c2y;
        c1y = mulQ14(y, c1);
        c2y = mulQ14(y, c2);
        return y;
    }
    /// One stretch: y(k) for n values x(k), each `step` bins from the one before.
    void run(Word* y, const Word* x, int step, int n)
    {
        for (int k = 0; k < n; ++k)
            storeTwo(y + 2 * k * step, next(loadTwo(x + 2 * k * step, V4{})));
    }
};

/// Filters across bins: y(k - 1) at bin k, from the values x(k) of bins 0 to kLastBin. Each value waits
/// for the one before. So that four can be on their way at once, the bins are cut into as many
/// segments, each of which starts from nothing some bins early: by then the past is forgotten. Where
/// it isn't, to the bit, the segment is done again.
template <class V4>
void filterBins(typename V4::Word* y, const typename V4::Word* x)
{
    using Word = typename V4::Word;
    constexpr int kSegmentBins = kLastBin / kFilterSegments;
    static_assert(kFilterSegments == 4 && kFilterSegments * kSegmentBins == kLastBin);
    constexpr int kSegmentWords = 2 * kSegmentBins;
    const auto first = [](int segment) { return 2 * (1 + segment * kSegmentBins); }; // its word

    // Run backwards over the lowest bins and mirrored: the values at negative frequencies, from
    // which the recursion starts.
    Word mirrored[2 * kMirroredBins];
    constexpr int kLast = 2 * (kMirroredBins - 1);
    CogRecursion<V4>().run(mirrored + kLast, x + kLast, -1, kMirroredBins);
    for (int k = 0; k < 2; ++k) {
        y[2 * k] = mirrored[2 - 2 * k];
        y[2 * k + 1] = fx::wrapNeg(int32_t(mirrored[3 - 2 * k]));
    }

    Word assumed[kFilterSegments][4];     // the two bins before each segment
    CogRecursion<V4> firstTwo, secondTwo; // segments
    for (int n = -2 * kFilterEarlyBins; n < 0; n += 2) {
        const Word* const from = x + first(1) + n;
        const Word* const ofFirst = x + std::max(first(0) + n, 0); // which is started anew below
        const V4 a = firstTwo.next(loadTwoEach(ofFirst, from, V4{}));
        const V4 b =
            secondTwo.next(loadTwoEach(from + kSegmentWords, from + 2 * kSegmentWords, V4{}));
        const int kept = n + 4;
        if (kept >= 0) {
            storeTwoEach(assumed[0] + kept, assumed[1] + kept, a);
            storeTwoEach(assumed[2] + kept, assumed[3] + kept, b);
        }
    }
    std::copy(y, y + 4, assumed[0]);
    firstTwo.start(loadTwoEach(assumed[0] + 2, assumed[1] + 2, V4{}),
                   loadTwoEach(assumed[0], assumed[1], V4{}));
    for (int n = 0; n < kSegmentWords; n += 2) {
        const Word* const from = x + first(0) + n;
        Word* const to = y + first(0) + 2 + n;
        storeTwoEach(to, to + kSegmentWords,
                     firstTwo.next(loadTwoEach(from, from + kSegmentWords, V4{})));
        storeTwoEach(
            to + 2 * kSegmentWords, to + 3 * kSegmentWords,
            secondTwo.next(loadTwoEach(from + 2 * kSegmentWords, from + 3 * kSegmentWords, V4{})));
    }
    for (int segment = 1; segment < kFilterSegments; ++segment) {
        Word* const start = y + first(segment) + 2;
        const auto isAsAssumed = [&](int n) {
            return int32_t(start[n - 4]) == int32_t(assumed[segment][n]);
        };
        if (isAsAssumed(0) && isAsAssumed(1) && isAsAssumed(2) && isAsAssumed(3))
            continue;
        CogRecursion<V4> again;
        again.start(loadTwo(start - 2, V4{}), loadTwo(start - 4, V4{}));
        again.run(start, x + first(segment), 1, kSegmentBins);
    }
}

/// A mask of the words of odd bins.
constexpr int32_t kOddBins[kMostLanes] = {0, 0, -1, -1, 0, 0, -1, -1};

/// The sum of both channels, its sign turned with every bin (which moves the time origin to the
/// middle of the frame), filtered across bins.
template <class V, class V4>
void bandCentres(float* bandCog, const ComplexInt* left, const ComplexInt* right)
{
    using Word = typename V4::Word;
    Word sum[2 * kBins];            // x(k)
    Word filtered[2 * (kBins + 2)]; // y(k - 1) at k: one place for the mirrored bin, one beyond
    for (int n = 0; n < 2 * kLastBin; n += V::lanes) {
        const V x = wrapAdd(shiftRight<1>(load(words(right) + n, V{})),
                            shiftRight<1>(load(words(left) + n, V{})));
        const V odd = load(kOddBins + n % 4, V{});
        storeWords(sum + n, select(odd, wrapSub(set1(0, V{}), x), x));
    }
    sum[2 * kLastBin] = fx::wrapAdd(right[kLastBin].re >> 1, left[kLastBin].re >> 1);
    sum[2 * kLastBin + 1] = fx::wrapAdd(right[kLastBin].im >> 1, left[kLastBin].im >> 1);
    filterBins<V4>(filtered, sum);
    filtered[2 * (kBins + 1)] = filtered[2 * (kBins + 1) + 1] = 0;

    const auto aboveQ14 = coeffsOf<V4>(kCogAbove, kCogAbove);
    const auto hereQ14 = coeffsOf<V4>(kCogHere, kCogHere);
    const auto belowQ14 = coeffsOf<V4>(kCogBelow, kCogBelow);
    const int32_t nothing[4] = {};
    for (int b = 0; b < kBands; ++b) {
        auto cross = pairSums(V4{}); // of Im y' Re x, of Re y' Im x
        auto energy = pairSums(V4{});
        const int end = 2 * (bandTable[1][b] + 1);
        for (int k = 2 * bandTable[0][b]; k < end; k += V4::lanes) {
            V4 x = load(sum + k, V4{});
            if (k + V4::lanes > end) // the bin of the next band counts as silent
                x = joinHalves(x, load(nothing, V4{}));
            const V4 derivative = wrapAdd(wrapAdd(mulQ14(load(filtered + k + 4, V4{}), aboveQ14),
                                                  mulQ14(load(filtered + k + 2, V4{}), hereQ14)),
                                          mulQ14(load(filtered + k, V4{}), belowQ14));
            addProducts(cross, swapPairs(derivative), x);
            addProducts(energy, x, x);
        }
        bandCog[b] = centreOfGravity(difference(cross), total(energy));
    }
}

} // namespace vsp::VSP_KERNEL_SET
