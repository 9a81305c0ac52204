// What happens to a stream's samples.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include <velora/vsp.h>

#include "stream/engine_bank.h"
#include "stream/fade.h"
#include "stream/level.h"
#include "stream/pair_queue.h"
#include "stream/schedule.h"
#include "stream/settings.h"
#include "stream/time_map.h"

namespace vsp {

/// The samples of a stream: a Schedule's Sound. The voice that sounds and the next one have a bank of
/// engines and a queue of output each.
class Sound {
public:
    /// @param mostInput  frames of input that may wait at a time
    Sound(const StreamSettings& settings, std::int64_t mostInput, std::size_t changes);

    std::int64_t hopFrames() const { return banks[0].hopFrames(); }

    // ---- Called by the schedule ----
    const TimeMap& times() const { return map; }
    void run(const Voice& voice, int stages, bool isNext);
    void copy(const Voice& voice, std::int64_t frames, bool isNext);
    void join(std::int64_t frame, const Voice& now, const Voice& next);
    void fade(std::int64_t frame, std::int64_t frames);

    /// What stands in `input` is all that has come in; nothing has come out.
    void restart();
    /// Makes room for `count` more frames of input. Allocates if there is none; may throw
    /// std::bad_alloc.
    void reserveInput(std::int64_t count);
    /// Output from frame `frame` on, `frames` frames, is about to be handed out to `out`. A hop that
    /// belongs there whole may be written there at once.
    void offer(const Destination& out, std::int64_t frame, std::int64_t frames);
    /// Hands out `frames` frames of output, from frame `frame` on, and forgets them.
    void handOut(const Destination& out, std::int64_t frame, std::int64_t frames);

    /// Output of the voice that sounds, from the next frame to be handed out on.
    PairQueue& output() { return outputs[sounding]; }

    /// Input frames beyond a hop, or beyond any frames, without which they can't be taken.
    std::int64_t lookAheadOfHop() const { return level ? level->lookAheadOfHop() : 0; }
    std::int64_t lookAhead() const { return level ? level->lookAhead() : 0; }

    TimeMap map;
    PairQueue input; // what went in, as far back as a new voice may want it

private:
    void takeLevel(const Voice& voice);
    const LevelCurve* curve() const { return level ? &*level : nullptr; }
    EngineBank::Media mediaOf(const Voice& voice) const;
    void finishFade(std::int64_t until);
    EngineBank& bank(bool isNext) { return banks[isNext ? 1 - sounding : sounding]; }
    std::int64_t unwanted(const Voice& voice, bool isNext);
    bool giveAtOnce(const Voice& voice, EngineBank::Stages stages, bool isNext);
    PairQueue& queue(bool isNext) { return outputs[isNext ? 1 - sounding : sounding]; }

    Velora_BitDepth_T depth;
    std::optional<LevelCurve> level;
    EngineBank banks[2];
    PairQueue outputs[2];
    std::int64_t skip[2] = {}; // of the hop of output that is being made
    int sounding = 0;          // which of them

    struct Offer {
        std::byte* room = nullptr; // a hop of stereo frames of the caller's; null: none
        std::int64_t frame = 0;    // of output, to stand there first
    };
    Offer offered;

    // ---- The last fade, as far as it wasn't handed out ----
    PairQueue fadingOut; // the sound before
    FadeWeights weights{1};
    std::int64_t fadeStart = 0; // output frame
    std::int64_t fadeEnd = 0;   // output frame
    std::int64_t fadedTo = 0;   // output frame up to which it is done
};

} // namespace vsp
