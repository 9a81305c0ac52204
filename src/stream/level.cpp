// The gain over a stream's input: octaves in fixed point, and doubles of which every operation is
// rounded by itself, so it is the same on every machine.

#include "stream/level.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "convert/bridge.h"
#include "fixed/floating_point.h"
#include "fixed/sample_rates.h"

namespace vsp {

namespace {

// Octaves are in Q16.
constexpr std::int32_t kOctaveUnits = 1 << 16;
constexpr double kOctave = kOctaveUnits;

// Of a double.
constexpr std::uint64_t kMantissa = (std::uint64_t(1) << 52) - 1;
constexpr std::uint64_t kBitsOfOne = std::uint64_t(1023) << 52;

// Peaks are brought to here, of full scale: stretching makes new ones, up to twice as high.
constexpr double kWorkingPeak = 0.5;

// Most gain, octaves: what lies below the last bit of the format needs no more.
constexpr int kMostGain16 = 8;
constexpr int kMostGainFine = 14;

// Octaves a second by which the gain rises: 15 dB.
constexpr double kRise = 2.5;

// Share by which the limiter goes back, a stretch: 5 ms at 48 kHz. A slower one would take more than
// 1 dB from loud masters.
constexpr double kLimiterRise = 1.0 / 4.0;

// Less bend than this changes no sample.
constexpr double kLeastBend = 1.0 / 65536.0;

// Frames of output over which the inverse gain runs evenly.
constexpr std::int64_t kStretch = 64;

// Peaks are found in blocks of 2.7 to 5.4 ms, of which hops are made up: log2 of their frames.
int blockShiftFor(int sampleRate)
{
    int shift = 7;
    while (shift > 5 && (187 << shift) > sampleRate)
        --shift;
    return shift + rateShiftOf(sampleRate);
}

// log2(x) of a positive, normal x, Q16, within 0.1 of the last place, and up to one lower.
std::int32_t octavesOf(double x)
{
    std::uint64_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    const int exponent = int(bits >> 52) - 1023;
    bits = (bits & kMantissa) | kBitsOfOne;
    double mantissa; // 1 to 2
    std::memcpy(&mantissa, &bits, sizeof mantissa);
    const double z = (mantissa - 1.5) / (mantissa + 1.5);
    const double z2 = z * z;
    // 2 atanh(z) = ln(mantissa / 1.5)
    const double series = z * (1.0 + z2 * (1.0 / 3.0 + z2 * (1.0 / 5.0 + z2 * (1.0 / 7.0))));
    constexpr double kTwoPerLn2 = 2.8853900817779268;
    constexpr double kLog2Of3Halves = 0.5849625007211562;
    return std::int32_t((kLog2Of3Halves + kTwoPerLn2 * series) * kOctave) + exponent * kOctaveUnits;
}

// 2^(octaves / 2^16), within 2 in 10^8.
double powerOfTwo(std::int32_t octaves)
{
    const std::int32_t whole = octaves >> 16;
    const double y = (double(octaves - whole * kOctaveUnits) / kOctave - 0.5) * 0.6931471805599453;
    const double y2 = y * y;
    // exp(y) times the root of 2
    const double even = 1.0 + y2 * (1.0 / 2.0 + y2 * (1.0 / 24.0 + y2 * (1.0 / 720.0)));
    const double odd = y * (1.0 + y2 * (1.0 / 6.0 + y2 * (1.0 / 120.0 + y2 * (1.0 / 5040.0))));
    const std::uint64_t bits = std::uint64_t(1023 + whole) << 52;
    double scale;
    std::memcpy(&scale, &bits, sizeof scale);
    return (even + odd) * (1.4142135623730951 * scale);
}

float unitOf(Velora_BitDepth_T depth)
{
    switch (depth) {
    case Velora_BitDepth_24:
        return 1.0f / 256.0f;
    case Velora_BitDepth_32:
        return 1.0f / 65536.0f;
    case Velora_BitDepth_Float:
        return 32768.0f;
    case Velora_BitDepth_16:
        break;
    }
    return 1.0f;
}

} // namespace

LevelCurve::LevelCurve(int sampleRate, Velora_BitDepth_T bitDepth, std::int64_t lookAheadFrames,
                       std::int64_t mostFrames, const LevelKernels& table)
    : kernels(table), depth(bitDepth), blockShift(blockShiftFor(sampleRate)),
      blockFrames(std::int64_t(1) << blockShift), blocksPerFrame(1.0f / float(blockFrames)),
      ahead(std::max<std::int64_t>(lookAheadFrames / blockFrames - 1, 0)),
      averaged(std::max<std::int64_t>(ahead, 1)),
      mostGain((depth == Velora_BitDepth_16 ? kMostGain16 : kMostGainFine) * kOctaveUnits),
      rise(std::int32_t(kRise * kOctave * double(blockFrames) / sampleRate)),
      kept(mostFrames / blockFrames + 2), blocks(kept), bears(ahead + 1), raised(averaged)
{
    restart(0);
}

void LevelCurve::reserve(std::int64_t mostFrames)
{
    const std::int64_t size = mostFrames / blockFrames + 2;
    if (size <= kept)
        return;
    NumberedRing<Block> larger(size);
    for (std::int64_t n = std::max<std::int64_t>(known - kept, 0); n < known; ++n)
        larger[n] = blocks[n];
    if (known == 0)
        larger[0] = blocks[0];
    blocks = std::move(larger);
    kept = size;
}

void LevelCurve::restart(std::int64_t frame)
{
    first = frame;
    frames = 0;
    known = 0;
    whole = 0;
    peak = 0.0f;
    blocks[0] = {{0, 1.0f}, {0, 1.0f}};
}

std::int64_t LevelCurve::settled() const
{
    return first + known * blockFrames;
}

void LevelCurve::append(const PairQueue& input, std::int64_t until)
{
    const std::int64_t last = std::min(until, input.end());
    while (end() < last) {
        const std::int64_t left = blockFrames - (frames & (blockFrames - 1));
        const std::int64_t count = std::min(left, last - end());
        takePeaks(input, count);
        frames += count;
        if (count == left)
            endBlock();
    }
}

void LevelCurve::takePeaks(const PairQueue& input, std::int64_t count)
{
    const int samples = int(2 * count);
    for (int pair = 0; pair < input.pairCount(); ++pair) {
        const std::byte* const in = input.at(pair, end());
        float found = 0.0f;
        if (depth == Velora_BitDepth_Float)
            found = kernels.peakFloat(reinterpret_cast<const float*>(in), samples);
        else if (depth == Velora_BitDepth_16)
            found = float(kernels.peak16(reinterpret_cast<const std::int16_t*>(in), samples));
        else
            found = float(kernels.peak32(reinterpret_cast<const std::int32_t*>(in), samples));
        peak = std::max(peak, found * (unitOf(depth) / 32768.0f));
    }
}

// The block that came in last is whole: what gain it bears, and that of the one a look-ahead before.
void LevelCurve::endBlock()
{
    // A peak below the least one would ask for more than the most gain.
    constexpr float kLeastPeak = 1.0f / 65536.0f;
    const double level = double(std::clamp(peak, kLeastPeak, kMostPeak));
    peak = 0.0f;
    bears[whole] = std::min(octavesOf(kWorkingPeak / level), mostGain);
    ++whole;
    if (whole > ahead)
        settleBlock();
}

void LevelCurve::settleBlock()
{
    const std::int32_t lowest = lowestAhead();
    if (known == 0) {
        raised.fill(lowest);
        sum = averaged * lowest;
    }
    const std::int32_t now = std::min(lowest, raised[known - 1] + rise);
    sum += now - raised[known - averaged];
    raised[known] = now;

    // Each of those that are averaged is no more than this block and the next one bear. Without a
    // look-ahead there is but one, and the gain falls in a step.
    const auto octaves = std::int32_t(sum / averaged);
    const End end{octaves, float(powerOfTwo(octaves))};
    const bool goesOn = known > 0 && block(known - 1).last.octaves <= bears[known];
    const Block settled{goesOn ? block(known - 1).last : end, end};
    blocks[known] = settled;
    ++known;
}

// What the block that is to be settled, and those up to a look-ahead behind it, bear.
std::int32_t LevelCurve::lowestAhead()
{
    const std::int32_t newest = bears[whole - 1];
    if (known == 0 || lowestBlock < known) {
        lowestBlock = known;
        for (std::int64_t n = known; n < whole; ++n)
            if (bears[n] <= bears[lowestBlock])
                lowestBlock = n;
    } else if (newest <= bears[lowestBlock]) {
        lowestBlock = whole - 1;
    }
    return bears[lowestBlock];
}

// The closest block that is known and not forgotten.
const LevelCurve::Block& LevelCurve::block(std::int64_t number) const
{
    const std::int64_t newest = std::max<std::int64_t>(known - 1, 0);
    const std::int64_t oldest = std::max<std::int64_t>(known - kept, 0);
    return blocks[std::clamp(number, oldest, newest)];
}

double LevelCurve::inverseAt(double frame) const
{
    const double position =
        std::clamp((frame - double(first)) * double(blocksPerFrame), 0.0, double(known));
    const auto number = std::min(std::int64_t(position), std::max<std::int64_t>(known - 1, 0));
    const Block& at = block(number);
    const double begin = double(at.first.gain);
    return 1.0 / (begin + (double(at.last.gain) - begin) * (position - double(number)));
}

void LevelCurve::scaleIn(std::int16_t (*out)[2], const std::byte* in, std::int64_t frame,
                         std::int64_t count) const
{
    const float unit = unitOf(depth);
    while (count > 0) {
        // Before the first block its gain holds.
        const std::int64_t position = std::max<std::int64_t>(frame - first, 0);
        const std::int64_t into = position & (blockFrames - 1);
        const Block& at = block(position >> blockShift);
        const std::int64_t part = std::min(count, blockFrames - into);
        const float step = (at.last.gain - at.first.gain) * blocksPerFrame;
        const Ramp gain{(at.first.gain + step * float(into)) * unit, step * unit};
        if (depth == Velora_BitDepth_Float)
            kernels.inFloat(*out, reinterpret_cast<const float*>(in), gain, int(part));
        else if (depth == Velora_BitDepth_16)
            kernels.in16(*out, reinterpret_cast<const std::int16_t*>(in), gain, int(part));
        else
            kernels.in32(*out, reinterpret_cast<const std::int32_t*>(in), gain, int(part));
        out += part;
        in += part * bytesPerFrame(depth);
        frame += part;
        count -= part;
    }
}

void LevelCurve::scaleOut(std::byte* out, const std::int16_t (*in)[2], std::int64_t count,
                          double from, double speed, PeakLimiter& limiter) const
{
    const double unit = 1.0 / double(unitOf(depth));
    double begin = inverseAt(from);
    PeakLimiter needed = neededFor(in, std::min(count, kStretch), begin);
    for (std::int64_t done = 0; done < count; done += kStretch) {
        const std::int64_t part = std::min(count - done, kStretch);
        const double end = inverseAt(from + double(done + part) * speed);
        const PeakLimiter next =
            neededFor(in + done + part, std::min(count - done - part, kStretch), end);
        const PeakLimiter before = limiter;
        limiter.gain =
            std::min({before.gain + (1.0 - before.gain) * kLimiterRise, needed.gain, next.gain});
        limiter.bend = std::max({before.bend - before.bend * kLimiterRise, needed.bend, next.bend});
        if (limiter.bend < kLeastBend)
            limiter.bend = 0.0;
        const auto ramp = [part](double head, double tail) {
            return Ramp{float(head), float((tail - head) / double(part))};
        };
        const Ramp gain = ramp(begin * before.gain * unit, end * limiter.gain * unit);
        if (before.bend > 0.0 || limiter.bend > 0.0)
            writeBent(out, in + done, gain, ramp(before.bend, limiter.bend), part);
        else
            write(out, in + done, gain, part);
        out += part * bytesPerFrame(depth);
        begin = end;
        needed = next;
    }
}

// The least that brings no frame of a stretch beyond full scale.
PeakLimiter LevelCurve::neededFor(const std::int16_t (*in)[2], std::int64_t count,
                                  double inverse) const
{
    constexpr double kKneeToPeak = double(kBentPeak) - double(kKnee);
    if (depth == Velora_BitDepth_Float || count <= 0)
        return {};
    const double highest = double(kernels.peak16(*in, int(2 * count)) + 1) * inverse;
    if (highest <= double(kBentPeak))
        return {};
    if (highest >= double(kMostBent))
        return {double(kMostBent) / highest, 1.0};
    const double above = highest - double(kKnee);
    return {1.0, (highest - double(kBentPeak)) * 4.0 * kKneeToPeak / (above * above)};
}

void LevelCurve::writeBent(std::byte* out, const std::int16_t (*in)[2], Ramp gain, Ramp bend,
                           std::int64_t count) const
{
    const int stretch = int(count);
    if (depth == Velora_BitDepth_16)
        kernels.bent16(reinterpret_cast<std::int16_t*>(out), *in, gain, bend, stretch);
    else if (depth == Velora_BitDepth_24)
        kernels.bent24(reinterpret_cast<std::int32_t*>(out), *in, gain, bend, stretch);
    else
        kernels.bent32(reinterpret_cast<std::int32_t*>(out), *in, gain, bend, stretch);
}

void LevelCurve::write(std::byte* out, const std::int16_t (*in)[2], Ramp gain,
                       std::int64_t count) const
{
    const int stretch = int(count);
    if (depth == Velora_BitDepth_Float)
        kernels.outFloat(reinterpret_cast<float*>(out), *in, gain, stretch);
    else if (depth == Velora_BitDepth_16)
        kernels.out16(reinterpret_cast<std::int16_t*>(out), *in, gain, stretch);
    else if (depth == Velora_BitDepth_24)
        kernels.out24(reinterpret_cast<std::int32_t*>(out), *in, gain, stretch);
    else
        kernels.out32(reinterpret_cast<std::int32_t*>(out), *in, gain, stretch);
}

} // namespace vsp
