// Engines, queues and the short fades between two voices.

#include "stream/sound.h"

#include <algorithm>

namespace vsp {

namespace {

// Of output: what a hop yields beyond the frames that are wanted, and a fade that waits for another.
constexpr std::int64_t kOutputHops = 4;

} // namespace

Sound::Sound(int channels, int sampleRate, Velora_BitDepth_T bitDepth, std::int64_t mostInput,
             std::size_t changes)
    : map(changes),
      input(channels, bitDepth, mostInput), banks{EngineBank(channels, sampleRate, bitDepth),
                                                  EngineBank(channels, sampleRate, bitDepth)},
      outputs{PairQueue(channels, bitDepth, kOutputHops * banks[0].hopFrames()),
              PairQueue(channels, bitDepth, kOutputHops * banks[0].hopFrames())}
{
}

void Sound::take(const Voice& voice, bool isNext)
{
    bank(isNext).takeHop(voice.pairsDone, input, voice.fed, voice.engineSpeed);
}

// Frames at the beginning of the voice's next hop of output that come before what is wanted: they
// are found for the first pair of channels, whose frames the queue takes in for all.
std::int64_t Sound::unwanted(const Voice& voice, bool isNext)
{
    std::int64_t& frames = skip[isNext ? 1 - sounding : sounding];
    if (voice.pairsDone == 0)
        frames = voice.isMute()
                     ? hopFrames()
                     : std::clamp<std::int64_t>(queue(isNext).end() - voice.end, 0, hopFrames());
    return frames;
}

void Sound::give(const Voice& voice, bool isNext)
{
    bank(isNext).giveHop(voice.pairsDone, queue(isNext), unwanted(voice, isNext),
                         voice.engineSpeed);
}

void Sound::convert(const Voice& voice, bool isNext)
{
    bank(isNext).convert(voice.pairsDone, queue(isNext), unwanted(voice, isNext), input, voice.fed,
                         int(voice.engineSpeed * float(hopFrames())), voice.engineSpeed);
}

void Sound::copy(const Voice& voice, std::int64_t frames, bool isNext)
{
    queue(isNext).append(input, voice.fed, frames);
}

void Sound::join(const Voice& voice, std::int64_t frame)
{
    queue(true).restart(frame);
    if (!voice.isDry())
        bank(true).start(voice.engineSpeed);
}

void Sound::fade(std::int64_t frame, std::int64_t frames)
{
    PairQueue& old = queue(false);
    PairQueue& fresh = queue(true);
    fresh.fadeFrom(old, frame, frames, frame, frames);
    // What wasn't handed out yet comes before.
    old.truncate(frame);
    const std::int64_t made = fresh.end() - frame;
    old.append(fresh, frame, made);
    std::swap(old, fresh);
    sounding = 1 - sounding;
}

} // namespace vsp
