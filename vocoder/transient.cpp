// Finds onsets: where in time, within the newest analysis frame, each band's energy lies, and
// whether enough bands say "late" at once. Starts the eight-hop countdown that treats a band around
// an onset.

#include <cmath>

#include "engine/velora_vsp.h"
#include "vocoder/bands.h"

#ifdef __FAST_MATH__
#error "a silent band's 0 / 0 must stay \"not a number\": build without -ffast-math"
#endif

using namespace vsp;

namespace {

// A recursive filter across bins stands for the derivative with respect to frequency. Its values y
// are held times four, so that a Q14 weight and a shift by 16 give the product.
constexpr int16_t kFeedback1 = -8168; // on y(k - 1)
constexpr int16_t kFeedback2 = -204;  // on y(k - 2)
constexpr int16_t kAbove = 11639;     // weight of y(k + 1)
constexpr int16_t kHere = 9534;       // weight of y(k)
constexpr int16_t kBelow = -16776;    // weight of y(k - 1)

constexpr float kTwoPi = 6.2831855f;
constexpr float kLateInFrame =
    0.08f; // a centre of gravity above it says "onset"; lengths of the analysis frame

constexpr int kStatusStart = 8;
constexpr int kRingIndexStart = 7;

// The sum of both channels; the sign turns with every bin, which moves the time origin to the
// middle of the frame.
VSP_INLINE ComplexInt centredSum(const ComplexInt* left, const ComplexInt* right, int k)
{
    const ComplexInt sum = {fx::wrapAdd(right[k].re >> 1, left[k].re >> 1),
                            fx::wrapAdd(right[k].im >> 1, left[k].im >> 1)};
    return k % 2 == 0 ? sum : ComplexInt{fx::wrapNeg(sum.re), fx::wrapNeg(sum.im)};
}

VSP_INLINE int32_t recursion(int32_t x, int32_t y1, int32_t y2)
{
    return fx::wrapShl(
        fx::wrapAdd(fx::wrapAdd(x, fx::mulShift16(y1, kFeedback1)), fx::mulShift16(y2, kFeedback2)),
        2);
}

VSP_INLINE ComplexInt recursion(ComplexInt x, ComplexInt y1, ComplexInt y2)
{
    return {recursion(x.re, y1.re, y2.re), recursion(x.im, y1.im, y2.im)};
}

VSP_INLINE int32_t derivative(int32_t above, int32_t here, int32_t below)
{
    return fx::wrapAdd(fx::wrapAdd(fx::mulShift16(above, kAbove), fx::mulShift16(here, kHere)),
                       fx::mulShift16(below, kBelow));
}

// Lower confidence bound (Wilson score, z = 2) of the share n / 10 of flagged bands.
float lowerBound(int n)
{
    return float(((20 * n + 40) - 2.0 * std::sqrt(double(40 * (10 * n + 10 - n * n)))) / 280.0);
}

// Upper confidence bound of the share m / 40 over four frames.
float upperBound(int m)
{
    return float(((80 * m + 160) + 2.0 * std::sqrt(double(160 * (40 * m + 40 - m * m)))) / 3520.0);
}

} // namespace

void Velora_VSP::Velora_VSP_computeCOG()
{
    const ComplexInt* const left = spectrum[0];
    const ComplexInt* const right = spectrum[1];

    // Run backwards over the lowest bins and mirror the result: the values at negative frequencies.
    ComplexInt y = {0, 0};
    ComplexInt yPrev = {0, 0};
    for (int k = 12; k >= 0; --k) {
        const ComplexInt next = recursion(centredSum(left, right, k), y, yPrev);
        yPrev = y;
        y = next;
    }
    y.im = fx::wrapNeg(y.im);
    yPrev.im = fx::wrapNeg(yPrev.im);

    ComplexInt x = centredSum(left, right, 0);
    for (int b = 0; b < kBands; ++b) {
        int64_t cross = 0;
        int64_t energy = 0;
        for (int k = bandTable[0][b]; k <= bandTable[1][b]; ++k) {
            const ComplexInt xNext = centredSum(left, right, k + 1);
            const ComplexInt yNext = recursion(xNext, y, yPrev);
            const int32_t zRe = derivative(yNext.re, y.re, yPrev.re);
            const int32_t zIm = derivative(yNext.im, y.im, yPrev.im);
            cross = fx::wrapAdd64(cross, int64_t(zIm) * x.re);
            cross = fx::wrapAdd64(cross, int64_t(zRe) * fx::wrapNeg(x.im));
            energy = fx::wrapAdd64(energy, int64_t(x.re) * x.re);
            energy = fx::wrapAdd64(energy, int64_t(x.im) * x.im);
            yPrev = y;
            y = yNext;
            x = xNext;
        }
        // A silent band gives 0 / 0, which no comparison takes for late.
        bandCog[b] = (-float(cross) / float(energy)) / kTwoPi;
    }
}

void Velora_VSP::Velora_VSP_TransientProbability()
{
    turnRing(bandFlagRing);
    int newest = 0;
    for (int b = 0; b < kBands; ++b) {
        bandFlagRing[3][b] = bandCog[b] > kLateInFrame ? 1 : 0;
        newest += bandFlagRing[3][b];
    }
    int lastFour = 0;
    for (const int8_t* flags : bandFlagRing)
        for (int b = 0; b < kBands; ++b)
            lastFour += flags[b];

    const float lower = lowerBound(newest);
    const float upper = upperBound(lastFour);
    float threshold = upper >= 0.7f * lower ? upper : 0.7f * lower;
    if (threshold <= 0.99f * transientThreshold)
        threshold = 0.99f * transientThreshold;
    transientThreshold = threshold;

    // The bands hear of a decision one hop later.
    transientDecisionPrev = transientDecision;
    transientDecision = lower > threshold ? 1 : 0;
    for (uint8_t& flag : bandTransient)
        flag = transientDecisionPrev;
}

void Velora_VSP::Velora_VSP_ModifyBandStatus()
{
    for (int b = 0; b < kBands; ++b)
        if (bandStatus[b] == 0 && bandTransient[b] == 1) {
            bandStatus[b] = kStatusStart;
            bandRingIndex[b] = kRingIndexStart;
        }
}
