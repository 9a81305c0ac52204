// What happens to a stream's samples.
#pragma once

#include <cstdint>
#include <utility>

#include <velora/vsp.h>

#include "stream/engine_bank.h"
#include "stream/pair_queue.h"
#include "stream/schedule.h"
#include "stream/time_map.h"

namespace vsp {

/// The samples of a stream: a Schedule's Sound. The voice that sounds and the next one have a bank of
/// engines and a queue of output each.
class Sound {
public:
    /// @param mostInput  frames of input that may wait at a time
    /// @param engineSound  Velora_VSP_Sound_T values
    Sound(int channels, int sampleRate, Velora_BitDepth_T bitDepth, std::uint32_t engineSound,
          std::int64_t mostInput, std::size_t changes);

    std::int64_t hopFrames() const { return banks[0].hopFrames(); }

    // ---- Called by the schedule ----
    const TimeMap& times() const { return map; }
    void run(const Voice& voice, int stages, bool isNext);
    void copy(const Voice& voice, std::int64_t frames, bool isNext);
    void join(std::int64_t frame) { queue(true).restart(frame); }
    void fade(std::int64_t frame, std::int64_t frames);

    /// Nothing has come in or out.
    void restart()
    {
        input.restart(0);
        output().restart(0);
    }

    /// Output of the voice that sounds, from the next frame to be handed out on.
    PairQueue& output() { return outputs[sounding]; }

    TimeMap map;
    PairQueue input; // what went in, as far back as a new voice may want it

private:
    EngineBank& bank(bool isNext) { return banks[isNext ? 1 - sounding : sounding]; }
    std::int64_t unwanted(const Voice& voice, bool isNext);
    PairQueue& queue(bool isNext) { return outputs[isNext ? 1 - sounding : sounding]; }

    EngineBank banks[2];
    PairQueue outputs[2];
    std::int64_t skip[2] = {}; // of the hop of output that is being made
    int sounding = 0;          // which of them
};

} // namespace vsp
