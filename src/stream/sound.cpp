// Engines, queues and the short fades between two voices.

#include "stream/sound.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace vsp {

namespace {

// Of output: what a hop yields beyond the frames that are wanted, and a fade that waits for another.
constexpr std::int64_t kOutputHops = 4;

// Where calls are to be of even length: bytes of input that one of them may move, in about 1 us.
constexpr std::int64_t kShortMove = 32 * 1024;
constexpr std::int64_t kAnyMove = std::numeric_limits<std::int64_t>::max();

} // namespace

Sound::Sound(const StreamSettings& settings, std::int64_t mostInput, std::size_t changes)
    : map(changes), input(settings.channels, settings.depth, mostInput,
                          settings.longestBlock > 0 ? kShortMove : kAnyMove),
      depth(settings.depth),
      level(settings.ridesLevel
                ? std::optional<LevelCurve>(std::in_place, settings.sampleRate, settings.depth,
                                            settings.lookAhead, mostInput)
                : std::nullopt),
      banks{EngineBank(settings, curve()), EngineBank(settings, curve())},
      outputs{PairQueue(settings.channels, settings.depth, kOutputHops * hopFrames()),
              PairQueue(settings.channels, settings.depth, kOutputHops * hopFrames())},
      fadingOut(settings.channels, settings.depth, hopFrames())
{
}

void Sound::restart()
{
    output().restart(0);
    fadeStart = 0;
    fadeEnd = 0;
    fadedTo = 0;
}

// While input passes untouched, nobody asks for its level.
void Sound::join(std::int64_t frame, const Voice& now, const Voice& next)
{
    queue(true).restart(frame);
    if (level && now.isDry() && !next.isDry())
        level->restart(next.fed);
}

// Of what the voice takes next.
void Sound::takeLevel(const Voice& voice)
{
    if (!level)
        return;
    input.settle();
    if (voice.done == 0)
        level->append(input, voice.fed + hopFrames() + level->lookAhead());
}

void Sound::reserveInput(std::int64_t count)
{
    input.reserve(count);
    if (level)
        level->reserve(input.end() - input.begin() + input.room());
}

void Sound::run(const Voice& voice, int stages, bool isNext)
{
    EngineBank& engines = bank(isNext);
    const EngineBank::Stages part{voice.done, voice.done + stages, voice.stagesOfPair()};
    switch (voice.nextStep()) {
    case Voice::Step::start:
        engines.start(part, voice.engineSpeed, voice.clock);
        break;
    case Voice::Step::take:
        takeLevel(voice);
        engines.takeHop(part, input, voice.fed, voice.engineSpeed);
        break;
    case Voice::Step::give:
        if (!giveAtOnce(voice, part, isNext))
            engines.giveHop(part, queue(isNext), unwanted(voice, isNext), mediaOf(voice),
                            voice.approach, voice.engineSpeed);
        break;
    case Voice::Step::convert:
        takeLevel(voice);
        engines.convert(part, queue(isNext), unwanted(voice, isNext), mediaOf(voice), input,
                        voice.fed, voice.engineSpeed);
        break;
    }
}

bool Sound::giveAtOnce(const Voice& voice, EngineBank::Stages stages, bool isNext)
{
    EngineBank& engines = bank(isNext);
    const bool isOffered = !isNext && offered.room != nullptr && voice.end == offered.frame;
    if (!isOffered || !engines.givesWhole(stages))
        return false;
    input.settle(); // before the caller's output is written, which should be other memory
    engines.giveHopTo(offered.room, mediaOf(voice), voice.approach, voice.engineSpeed);
    output().restart(voice.end + hopFrames());
    offered = {};
    return true;
}

// What its next hop of output sounds, which the level follows.
EngineBank::Media Sound::mediaOf(const Voice& voice) const
{
    if (!level)
        return {};
    const double frame = voice.mediaAt(map, voice.end);
    const double last = voice.mediaAt(map, voice.end + hopFrames());
    return {frame, (last - frame) / double(hopFrames())};
}

// Frames at the beginning of the voice's next hop of output that come before what is wanted: they
// are found as it begins, before the queue takes the hop in.
std::int64_t Sound::unwanted(const Voice& voice, bool isNext)
{
    std::int64_t& frames = skip[isNext ? 1 - sounding : sounding];
    if (voice.done == 0)
        frames = std::clamp<std::int64_t>(queue(isNext).end() - voice.end, 0, hopFrames());
    return frames;
}

void Sound::copy(const Voice& voice, std::int64_t frames, bool isNext)
{
    queue(isNext).append(input, voice.fed, frames);
}

void Sound::fade(std::int64_t frame, std::int64_t frames)
{
    PairQueue& old = queue(false);
    PairQueue& fresh = queue(true);
    finishFade(fadeEnd);
    weights = FadeWeights(old, fresh, depth, frame, frames);
    fadeStart = frame;
    fadedTo = frame;
    fadeEnd = frame + frames;
    fadingOut.restart(frame);
    fadingOut.append(old, frame, frames);
    // What wasn't handed out yet comes before.
    old.truncate(frame);
    const std::int64_t made = fresh.end() - frame;
    old.append(fresh, frame, made);
    std::swap(old, fresh);
    sounding = 1 - sounding;
}

// Does the fade up to output frame `until`.
void Sound::finishFade(std::int64_t until)
{
    const std::int64_t count = std::min(until, fadeEnd) - fadedTo;
    if (count <= 0)
        return;
    vsp::fade(output(), fadingOut, depth, weights, fadedTo, count, fadeStart);
    fadedTo += count;
}

void Sound::offer(const Destination& out, std::int64_t frame, std::int64_t frames)
{
    const bool isNext = output().begin() == frame && output().end() == frame && fadeEnd <= frame;
    offered = isNext && frames >= hopFrames() ? Offer{output().pairsAt(out), frame} : Offer{};
}

void Sound::handOut(const Destination& out, std::int64_t frame, std::int64_t frames)
{
    offered = {};
    input.settle(); // before `out` is written, which should be other memory
    finishFade(frame + frames);
    const std::int64_t written = std::clamp<std::int64_t>(output().begin() - frame, 0, frames);
    output().copyTo({out.interleaved, out.planes, out.from + written}, frame + written,
                    frames - written);
    output().dropBefore(frame + frames);
}

} // namespace vsp
