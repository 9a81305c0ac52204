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

// From one synthesis frame to the next the bare engine's phases turn as they did from the one of the
// two analysis frames around it, at `position` behind the first of them, to the other. What sounds
// then is late by the way from the middle of these two to the middle of the synthesis frames, in hops
// of output: here the mean, where the positions come round within `kFrames` frames from 0 on.
double phaseDelayFromStart(float engineSpeed)
{
    constexpr int kFrames = 1000; // the speeds that people set do
    double sum = 0.0;
    float clock = 0.0f; // as the engine's, which is taken down by a hop at a time
    for (int frame = 0; frame < kFrames; ++frame) {
        sum += (double(clock) + 0.5 * double(engineSpeed) - 0.5) / double(engineSpeed);
        for (clock += engineSpeed; clock >= 1.0f;)
            clock -= 1.0f;
    }
    return sum / kFrames;
}

// Where they may fall anywhere.
constexpr double kUsualPhaseDelay = 0.5;

// The natural sound's phases keep time with the frames. But above 1.0 what begins within a frame
// sounds a little late, as the frames before had it, in music by up to a fifth of a hop (measured);
// steady tones don't. Half of that is taken for all.
double naturalDelay(double speed)
{
    constexpr double kMost = 0.1; // hops of output
    return speed > 1.0 ? kMost * (1.0 - 1.0 / speed) : 0.0;
}

// Output hops that the sound may be away from the time map: far more than rounding makes.
constexpr double kDriftHops = 1.0 / 64.0;

// So many synthesis frames before the input itself is heard phases begin to be steered towards it.
// From one to the next a partial so turns by less than 25 degrees more than its frequency asks for.
constexpr double kApproachFrames = 8.0;

// A synthesis frame needs this many hops of input: the four of the older of the two analysis frames
// around it, one more for the newer, and two by which onsets are known ahead.
constexpr int kPrimedHops = 7;

// Where a low-passed voice joins, this many hops of output are enough for its overlap-add and its
// filters to settle.
constexpr double kSettlingHops = 4.5;

// Hops of input before it joins: the converter remembers 64 frames, half of the shortest hop.
constexpr int kConverterHops = 1;

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

// Two second-order Butterworth sections at 2 kHz, below which they delay evenly.
double delayOfLowPass(const Rate& rate)
{
    const double pi = 3.141592653589793;
    return std::sqrt(2.0) / tangent(pi * 2000.0 / rate.sampleRate) * double(1 << rate.shift);
}

} // namespace

Voice Voice::at(double speed, const Rate& rate)
{
    Voice voice;
    voice.isNatural = rate.isNatural;
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
    voice.isFiltered = !rate.isNatural && isSlow(voice.engineSpeed);
    if (voice.isFiltered)
        voice.lowPassDelay = delayOfLowPass(rate);
    return voice;
}

bool Voice::givesNext(std::int64_t input, const Rate& rate) const
{
    if (path == Path::converter)
        return fed + std::int64_t(double(rate.hop) * speed) + rate.lookAheadOfPart <= input;
    const std::int64_t hops = hopsToTake();
    return hops == 0 || fed + hops * rate.hop + rate.lookAhead <= input;
}

bool Voice::turnsInto(const Voice& other) const
{
    if (path != other.path)
        return false;
    return path == Path::vocoder ? isFiltered == other.isFiltered : speed == other.speed;
}

void Voice::place(std::int64_t output, double media, const Rate& rate)
{
    if (isDry()) {
        fed = std::llround(media);
        end = output;
    } else if (path == Path::converter) {
        placeConverter(output, media, rate);
    } else if (media == 0.0) {
        phaseDelay = isNatural ? naturalDelay(speed) : phaseDelayFromStart(engineSpeed);
        fed = 0;
        end = output - std::llround(delay(rate));
    } else {
        placeAmidst(output, media, rate);
    }
}

void Voice::placeConverter(std::int64_t output, double media, const Rate& rate)
{
    const auto mediaHop = std::int64_t(std::floor(media / double(rate.hop)));
    fed = std::max<std::int64_t>(0, mediaHop - kConverterHops) * rate.hop;
    end = output - std::llround((media - double(fed)) / speed + delay(rate));
}

// Up to `output` the voice sounds as the input does, so that the two may be mixed; its synthesis
// frames up to there lie on analysis frames. Through the low-pass it can't.
void Voice::placeAmidst(std::int64_t output, double media, const Rate& rate)
{
    phaseDelay = usualDelay(speed);
    const double heard = media + rate.delayIn; // the engine hears `media` at this input frame
    const double hops = heard / double(rate.hop);
    double position = 0.0; // of the first synthesis frame
    if (isFiltered) {
        position = hops + kAnalysisDelayHops - (kSettlingHops - synthesisDelayHops()) * speed;
        end = output - std::llround(kSettlingHops * double(rate.hop) + delayOut(rate));
    } else {
        position = std::floor(hops) - 1.0 + kAnalysisDelayHops;
        const double beyond = heard - (position - kAnalysisDelayHops) * double(rate.hop);
        end = output - kSynthesisDelayHops * rate.hop - std::llround(beyond + delayOut(rate));
        inPhaseTo = output;
    }
    const std::int64_t taken = std::int64_t(std::floor(position)) + 1;
    const std::int64_t first = std::max<std::int64_t>(0, taken - kPrimedHops);
    fed = first * rate.hop;
    unheard = Velora_VSP_Conductor::kUnheardHops;
    clock = float(position + 1.0 - double(first));
}

void Voice::follow(const TimeMap& times, const Rate& rate)
{
    approach = {};
    if (double(end + (1 + kSynthesisDelayHops) * rate.hop) + delayOut(rate) <= double(inPhaseTo)) {
        engineSpeed = vocoderSpeed(1.0f);
        return;
    }
    segment = segmentAt(times, end, rate);
    if (speed != times[segment].speed)
        phaseDelay = usualDelay(times[segment].speed);
    speed = times[segment].speed;
    const double aim = positionAt(times, end + rate.hop, rate);
    const double drift = aim - (position(rate) + speed);
    engineSpeed = std::abs(drift) < kDriftHops * speed ? vocoderSpeed(float(speed))
                                                       : nearSpeed(aim - position(rate));
}

void Voice::approachInput(std::int64_t output, std::int64_t media, const Rate& rate)
{
    const double middle = double(end + kSynthesisDelayHops * rate.hop) + delayOut(rate);
    const double framesAhead = double(output) - middle;
    const double frames = std::max(std::floor(framesAhead / double(rate.hop)), 0.0);
    if (!isNatural || path != Path::vocoder || frames >= kApproachFrames)
        return;
    const double wanted =
        (double(media) - framesAhead + rate.delayIn) / double(rate.hop) + kAnalysisDelayHops;
    approach = {float(wanted - position(rate)), float(1.0 / (frames + 1.0))};
}

double Voice::mediaAt(const TimeMap& times, std::int64_t output) const
{
    const std::size_t n = std::max(firstSegment, std::min(times.numberAt(double(output)), segment));
    return times[n].mediaAt(double(output));
}

void Voice::move(const Rate& rate)
{
    done = 0;
    switch (nextStep()) {
    case Step::start:
        isNew = false;
        break;
    case Step::take:
        clock -= 1.0f;
        fed += rate.hop;
        unheard = std::max(unheard - 1, 0);
        break;
    case Step::give:
        clock += engineSpeed;
        end += rate.hop;
        ahead = 0;
        break;
    case Step::convert:
        fed += inputStep(rate);
        end += rate.hop;
        ahead = 0;
        break;
    }
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

// The closest speed that sounds through the same filters.
float Voice::nearSpeed(double wanted) const
{
    const float slowest = isFiltered || isNatural ? kSlowestSpeed : 0.5f;
    const float fastest = isFiltered ? std::nextafter(0.5f, 0.0f) : kFastestSpeed;
    return vocoderSpeed(std::clamp(float(wanted), slowest, fastest));
}

// Of the next hop of output, in hops of input.
double Voice::position(const Rate& rate) const
{
    return double(fed) / double(rate.hop) - 1.0 + double(clock);
}

double Voice::usualDelay(double atSpeed) const
{
    return isNatural ? naturalDelay(atSpeed) : kUsualPhaseDelay;
}

double Voice::synthesisDelayHops() const
{
    return kSynthesisDelayHops + phaseDelay;
}

// Output frame at which the centre of the synthesis frame sounds that is first heard at `output`.
double Voice::centre(std::int64_t output, const Rate& rate) const
{
    return double(output) + synthesisDelayHops() * double(rate.hop) + delayOut(rate);
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
    const double media = s.mediaAt(centre(output, rate));
    return (media + rate.delayIn) / double(rate.hop) + kAnalysisDelayHops;
}

// From an input frame's way in to its way out, in output frames.
double Voice::delay(const Rate& rate) const
{
    if (path == Path::converter)
        return double(Velora_SRC384_DelayFrames << rate.shift) / speed + lowPassDelay;
    return (kAnalysisDelayHops * double(rate.hop) + rate.delayIn) / speed +
           synthesisDelayHops() * double(rate.hop) + delayOut(rate);
}

} // namespace vsp
