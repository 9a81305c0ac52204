// How much two sounds have in common, and the fade that follows from it. Doubles, summed up in order.

#include "stream/fade.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

#include "fixed/floating_point.h"

namespace vsp {

namespace {

// Most that weights are raised: 8 dB. Of opposite sounds more would bring out what little differs.
constexpr double kMostRaise = 2.5;

template <class Run>
void withSample(Velora_BitDepth_T depth, Run run)
{
    if (depth == Velora_BitDepth_Float)
        return run(float());
    if (depth == Velora_BitDepth_16)
        return run(std::int16_t());
    run(std::int32_t());
}

template <class Sample>
Sample inFormat(double value, Velora_BitDepth_T depth)
{
    if constexpr (std::is_floating_point_v<Sample>)
        return Sample(value);
    const double highest = depth == Velora_BitDepth_16   ? 32767.0
                           : depth == Velora_BitDepth_24 ? 8388607.0
                                                         : 2147483647.0;
    return Sample(std::clamp(std::floor(value + 0.5), -highest - 1.0, highest));
}

} // namespace

FadeWeights::FadeWeights(const PairQueue& old, const PairQueue& fresh, Velora_BitDepth_T depth,
                         std::int64_t frame, std::int64_t frames)
    : total(frames)
{
    double squaresOld = 0.0;
    double squaresFresh = 0.0;
    double products = 0.0;
    withSample(depth, [&](auto sample) {
        using Sample = decltype(sample);
        for (int pair = 0; pair < fresh.pairCount(); ++pair) {
            const auto* const a = reinterpret_cast<const Sample*>(old.at(pair, frame));
            const auto* const b = reinterpret_cast<const Sample*>(fresh.at(pair, frame));
            for (std::int64_t n = 0; n < 2 * frames; ++n) {
                const auto x = double(a[n]);
                const auto y = double(b[n]);
                squaresOld += x * x;
                squaresFresh += y * y;
                products += x * y;
            }
        }
    });
    // Silence leaves the weights linear, and so does what is infinite or not a number.
    const double sum = squaresOld + squaresFresh;
    if (sum > 0.0 && sum <= std::numeric_limits<double>::max()) {
        oldEnergy = squaresOld;
        freshEnergy = squaresFresh;
        product = products;
    }
}

FadeWeights::Pair FadeWeights::at(std::int64_t n) const
{
    const double b = double(n) / double(total);
    const double a = 1.0 - b;
    const double faded = a * a * oldEnergy + b * b * freshEnergy + 2.0 * a * b * product;
    const double wanted = a * oldEnergy + b * freshEnergy;
    if (faded * (kMostRaise * kMostRaise) <= wanted)
        return {a * kMostRaise, b * kMostRaise};
    const double raise = std::sqrt(wanted / faded);
    return {a * raise, b * raise};
}

void fade(PairQueue& fresh, const PairQueue& old, Velora_BitDepth_T depth,
          const FadeWeights& weights, std::int64_t frame, std::int64_t count, std::int64_t start)
{
    withSample(depth, [&](auto sample) {
        using Sample = decltype(sample);
        for (std::int64_t n = 0; n < count; ++n) {
            const FadeWeights::Pair weight = weights.at(frame + n - start);
            for (int pair = 0; pair < fresh.pairCount(); ++pair) {
                auto* const to = reinterpret_cast<Sample*>(fresh.at(pair, frame + n));
                const auto* const from = reinterpret_cast<const Sample*>(old.at(pair, frame + n));
                for (std::size_t channel = 0; channel < 2; ++channel)
                    to[channel] = inFormat<Sample>(double(from[channel]) * weight.old +
                                                       double(to[channel]) * weight.fresh,
                                                   depth);
            }
        }
    });
}

} // namespace vsp
