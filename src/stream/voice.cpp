// What each hop of input yields, and how the engine is steered so that it keeps to the time map.

#include "stream/voice.h"

#include <algorithm>
#include <cmath>

#include <velora/src384.h>

#include "engine/speeds.h"
#include "fixed/floating_point.h"

namespace vsp {

namespace {

// Synthesis frame m is centred on the input four hops before the clock's position, and its centre
// comes out two hops after its first frame.
constexpr int kAnalysisDelayHops = 4;
constexpr int kSynthesisDelayHops = 2;

// Up to the next synthesis frame phases turn as they did between the two analysis frames around the
// clock's position. What sounds then is half a hop of output late, where the position may fall
// anywhere between these two.
constexpr double kPhaseDelayHops = 0.5;

// The same where a voice of this speed starts on an analysis frame: its positions then have only so
// many places between two of these, and the mean of them isn't the middle.
double phaseDelayHops(float engineSpeed)
{
    constexpr int kFrames = 1000; // the speeds that people set come round within
    double sum = 0.0;
    float clock = 0.0f; // as the engine's, which is taken down by a hop at a time
    for (int frame = 0; frame < kFrames; ++frame) {
        sum += double(clock);
        for (clock += engineSpeed; clock >= 1.0f;)
            clock -= 1.0f;
    }
    return kPhaseDelayHops + (sum / kFrames - 0.5) / double(engineSpeed);
}

// Output hops that the sound may be away from the time map: far more than rounding makes.
constexpr double kDriftHops = 1.0 / 64.0;

// Where a voice joins below 1.0, this many hops of output are enough for its overlap-add and phases
// to settle, once its analysis has heard eight hops. At a speed of eight hops a hop, the engine
// makes one synthesis frame of these.
constexpr double kSettlingHops = 6.5;
constexpr int kMuteHops = 8;

// The vocoder's speed closest to one that the engine takes for something else.
float vocoderSpeed(float speed)
{
    if (converterRatio(speed) != 0)
        return std::nextafter(speed, 1.0f);
    return speed == 1.0f ? std::nextafter(speed, 2.0f) : speed;
}

// tan(x) for x of 0 to pi / 4, as a continued fraction: libraries differ in the last bit of
// std::tan, these operations don't.
double tangent(double x)
{
    double fraction = 17.0;
    for (double odd = 15.0; odd >= 3.0; odd -= 2.0)
        fraction = odd - x * x / fraction;
    return x + x * x * x / (fraction - x * x);
}

} // namespace

Voice Voice::at(double speed, const Rate& rate)
{
    Voice voice;
    voice.speed = speed;
    voice.engineSpeed = float(speed);
    if (converterRatio(voice.engineSpeed) != 0 && rate.pitchDrops)
        voice.path = Path::converter;
    else if (voice.engineSpeed != 1.0f)
        voice.path = Path::vocoder;
    if (voice.path != Path::vocoder)
        voice.speed = double(voice.engineSpeed);
    else
        voice.engineSpeed = vocoderSpeed(voice.engineSpeed);
    return voice;
}

bool Voice::turnsInto(const Voice& other) const
{
    if (path != other.path)
        return false;
    return path == Path::vocoder ? isFiltered() == other.isFiltered() : speed == other.speed;
}

void Voice::place(std::int64_t output, double media, const Rate& rate)
{
    if (isDry()) {
        fed = std::llround(media);
        end = output;
        return;
    }
    if (path == Path::vocoder)
        phaseDelay = phaseDelayHops(engineSpeed);
    const double hops = media / double(rate.hop);
    const auto mediaHop = std::int64_t(std::floor(hops));
    std::int64_t first = std::max<std::int64_t>(0, mediaHop - leadHops()); // hop whose sound counts
    if (path == Path::vocoder && speed < 1.0) {
        const double settled =
            hops + kAnalysisDelayHops - (kSettlingHops - synthesisDelayHops()) * speed;
        const auto shorter = std::int64_t(std::floor(settled));
        if (shorter >= kMuteHops) {
            mute = kMuteHops;
            first = shorter;
        }
    }
    fed = (first - mute) * rate.hop;
    end = output - std::llround((media - double(first * rate.hop)) / speed + delay(rate));
}

std::int64_t Voice::inputStep(const Rate& rate) const
{
    return path == Path::converter ? std::int64_t(double(rate.hop) * speed) : rate.hop;
}

void Voice::takeHop(const Rate& rate)
{
    clock -= 1.0f;
    fed += rate.hop;
    mute = std::max(mute - 1, 0);
}

void Voice::follow(const TimeMap& times, const Rate& rate)
{
    if (mute > 0) {
        engineSpeed = float(kMuteHops);
        return;
    }
    // Of this hop of output and of the next, in hops of input.
    const double position = double(fed) / double(rate.hop) - 1.0 + double(clock);
    segment = segmentAt(times, end, rate);
    if (speed != times[segment].speed)
        phaseDelay = kPhaseDelayHops;
    speed = times[segment].speed;
    const double aim = positionAt(times, end + rate.hop, rate);
    const double drift = aim - (position + speed);
    engineSpeed = std::abs(drift) < kDriftHops * speed ? vocoderSpeed(float(speed))
                                                       : nearSpeed(aim - position);
}

void Voice::giveHop(const Rate& rate)
{
    clock += engineSpeed;
    if (mute == 0)
        end += rate.hop;
}

void Voice::convertHop(const Rate& rate)
{
    fed += inputStep(rate);
    end += rate.hop;
}

std::int64_t Voice::stepsToGive() const
{
    if (path == Path::converter)
        return 1;
    return 1 + (wantsInput() ? std::int64_t(clock) : 0);
}

void Voice::move(const Rate& rate)
{
    pairsDone = 0;
    if (path == Path::converter)
        convertHop(rate);
    else if (wantsInput())
        takeHop(rate);
    else
        giveHop(rate);
}

void Voice::step(const TimeMap& times, const Rate& rate)
{
    if (!wantsInput())
        follow(times, rate);
    move(rate);
}

std::int64_t Voice::turnFrame(const Rate& rate) const
{
    return path == Path::vocoder ? std::int64_t(std::ceil(centre(end, rate))) : end;
}

std::int64_t Voice::mostLagHops(double speed)
{
    // Four hops to the centre of a frame, two and a half hops of output from there, half of one for a
    // fade and one that work is done for ahead; and what is rounded up.
    return kAnalysisDelayHops + std::int64_t(std::ceil(4.0 * speed)) + 4;
}

std::int64_t Voice::mostLeadHops(double speed)
{
    return std::max<std::int64_t>(kMuteHops, 6 + std::int64_t(speed));
}

// Hops before the first wanted one after which level and phases have settled; nothing is mute.
std::int64_t Voice::leadHops() const
{
    return path == Path::vocoder ? 6 + std::int64_t(speed) : 2;
}

bool Voice::isFiltered() const
{
    return isSlow(path == Path::vocoder ? vocoderSpeed(float(speed)) : float(speed));
}

// The closest speed that sounds through the same filters.
float Voice::nearSpeed(double wanted) const
{
    const float slowest = isFiltered() ? kSlowestSpeed : 0.5f;
    const float fastest = isFiltered() ? std::nextafter(0.5f, 0.0f) : kFastestSpeed;
    return vocoderSpeed(std::clamp(float(wanted), slowest, fastest));
}

double Voice::synthesisDelayHops() const
{
    return kSynthesisDelayHops + phaseDelay;
}

// Output frame at which the centre of the synthesis frame sounds that is first heard at `output`.
double Voice::centre(std::int64_t output, const Rate& rate) const
{
    return double(output) + synthesisDelayHops() * double(rate.hop) + filterDelay(rate);
}

// Segment of the time map that the synthesis frame at `output` is to follow: the voice goes on in
// its last one where another voice takes over, and starts in its first one.
std::size_t Voice::segmentAt(const TimeMap& times, std::int64_t output, const Rate& rate) const
{
    const double sounds = centre(output, rate);
    std::size_t n = std::max(segment, times.begin());
    while (n + 1 < times.end() && times[n + 1].output <= sounds &&
           turnsInto(Voice::at(times[n + 1].speed, rate)))
        ++n;
    return n;
}

// Clock position, in hops from input frame 0, that the time map gives the synthesis frame at
// `output`.
double Voice::positionAt(const TimeMap& times, std::int64_t output, const Rate& rate) const
{
    const TimeMap::Segment& s = times[segmentAt(times, output, rate)];
    return s.mediaAt(centre(output, rate)) / double(rate.hop) + kAnalysisDelayHops;
}

// From an input frame's way in to its way out, in output frames.
double Voice::delay(const Rate& rate) const
{
    const double frames =
        path == Path::converter
            ? double(Velora_SRC384_DelayFrames << rate.shift) / speed
            : (kAnalysisDelayHops / speed + synthesisDelayHops()) * double(rate.hop);
    return frames + filterDelay(rate);
}

double Voice::filterDelay(const Rate& rate) const
{
    if (!isFiltered())
        return 0.0;
    // Two second-order Butterworth sections at 2 kHz, below which they delay evenly.
    const double pi = 3.141592653589793;
    return std::sqrt(2.0) / tangent(pi * 2000.0 / rate.sampleRate) * double(1 << rate.shift);
}

} // namespace vsp
