// The engines of all channels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <velora/vsp.h>

#include "stream/level.h"
#include "stream/pair_queue.h"
#include "stream/settings.h"
#include "stream/voice.h"

namespace vsp {

/// One engine for each pair of channels, all in the same state but for the sound in them.
class EngineBank {
public:
    /// @param curve  if not null, rides the level of what goes in and comes out; outlives the bank
    EngineBank(const StreamSettings& settings, const LevelCurve* curve);

    /// Caller frames that the engines take at a time.
    int hopFrames() const { return hop; }

    // What follows goes in stages, as a Voice counts them: all stages of one call before the first
    // of the next.
    struct Stages {
        int from, to; // to - 1 is the last
        int ofPair;
    };
    /// What a hop of output sounds.
    struct Media {
        double frame = 0.0; // input frame of the first one
        double speed = 0.0; // input frames that pass for each
    };

    /// Brings the engines to where they have heard nothing but silence; the first hop of output comes
    /// after `hops` hops of input.
    void start(Stages stages, float speed, float hops);
    /// Analyses the hop at frame `at` of `in`, at `speed`.
    void takeHop(Stages stages, PairQueue& in, std::int64_t at, float speed);
    /// Synthesises the next hop of output at `speed`, which sounds `media`, steered as `approach` says;
    /// all of it but the first `skip` frames is appended to `out`.
    void giveHop(Stages stages, PairQueue& out, std::int64_t skip, Media media, Approach approach,
                 float speed);
    /// The same into `room`, if there is one pair of channels and the stages are all: a hop of stereo
    /// frames.
    bool givesWhole(Stages stages) const { return isAll(stages) && pairs() == 1; }
    void giveHopTo(std::byte* room, Media media, Approach approach, float speed);
    /// Converts the frames at `at` of `in` that make one hop of output, which sounds `media`.
    void convert(Stages stages, PairQueue& out, std::int64_t skip, Media media, PairQueue& in,
                 std::int64_t at, float speed);

private:
    int pairs() const { return int(engines.size()); }
    bool isAll(Stages stages) const
    {
        return stages.from == 0 && stages.to == stages.ofPair * pairs();
    }
    void takeStages(Stages stages, PairQueue& in, std::int64_t at, float speed);
    void giveStages(Stages stages, PairQueue& out, std::int64_t skip, Media media,
                    Approach approach, float speed);
    void warmUp();
    void startPair(int pair, float speed);
    Velora_VSP_Interface* engine(int pair, float speed);
    const void* engineInput(int pair, PairQueue& in, std::int64_t at, std::int64_t frames);
    std::byte* hopRoom(int pair, PairQueue& out, std::int64_t skip);
    std::byte* engineOutput(std::byte* room);
    void giveHopOf(int pair, std::byte* room, Media media, Approach approach, float speed);
    void finishHop(int pair, std::byte* room, Media media);
    void keep(int pair, PairQueue& out, std::int64_t skip);

    struct Destroy {
        void operator()(Velora_VSP_Interface* engine) const { Velora_VSP_Factory::Destroy(engine); }
    };

    int sampleRate;
    Velora_BitDepth_T depth;
    const LevelCurve* level;
    bool sharesTurns; // between more than two channels
    int hop = 0;
    std::vector<float> speeds; // [pair]
    std::vector<std::unique_ptr<Velora_VSP_Interface, Destroy>> owned;
    std::vector<Velora_VSP_Interface*> engines;
    std::vector<std::byte> part; // a hop of which the beginning isn't wanted
    // Under a level curve, what goes into an engine and comes out of it.
    using Frame = std::int16_t[2];
    std::vector<std::int16_t> levelled;
    std::vector<std::int16_t> given;
    std::vector<PeakLimiter> limiters; // [pair]
};

} // namespace vsp
