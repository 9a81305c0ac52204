// Engines, queues and the short fades between two voices.

#include "stream/sound.h"

#include <algorithm>

namespace vsp {

namespace {

// Of output: what a hop yields beyond the frames that are wanted, and a fade that waits for another.
constexpr std::int64_t kOutputHops = 4;

} // namespace

Sound::Sound(int channels, int sampleRate, Velora_BitDepth_T bitDepth, std::uint32_t engineSound,
             std::int64_t mostInput, std::size_t changes)
    : map(changes),
      input(channels, bitDepth, mostInput), banks{EngineBank(channels, sampleRate, bitDepth,
                                                             engineSound),
                                                  EngineBank(channels, sampleRate, bitDepth,
                                                             engineSound)},
      outputs{PairQueue(channels, bitDepth, kOutputHops * banks[0].hopFrames()),
              PairQueue(channels, bitDepth, kOutputHops * banks[0].hopFrames())}
{
}

void Sound::run(const Voice& voice, int stages, bool isNext)
{
    EngineBank& engines = bank(isNext);
    const EngineBank::Stages part{voice.done, voice.done + stages};
    switch (voice.nextStep()) {
    case Voice::Step::start:
        engines.start(part, voice.engineSpeed, voice.clock);
        break;
    case Voice::Step::take:
        engines.takeHop(part, input, voice.fed, voice.engineSpeed);
        break;
    case Voice::Step::give:
        engines.giveHop(part, queue(isNext), unwanted(voice, isNext), voice.engineSpeed);
        break;
    case Voice::Step::convert:
        engines.convert(part, queue(isNext), unwanted(voice, isNext), input, voice.fed,
                        voice.engineSpeed);
        break;
    }
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
    fresh.fadeFrom(old, frame, frames, frame, frames);
    // What wasn't handed out yet comes before.
    old.truncate(frame);
    const std::int64_t made = fresh.end() - frame;
    old.append(fresh, frame, made);
    std::swap(old, fresh);
    sounding = 1 - sounding;
}

} // namespace vsp
