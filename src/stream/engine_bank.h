// The engines of all channels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <velora/vsp.h>

#include "stream/pair_queue.h"
#include "stream/voice.h"

namespace vsp {

/// One engine for each pair of channels, all in the same state but for the sound in them.
class EngineBank {
public:
    EngineBank(int channels, int sampleRate, Velora_BitDepth_T bitDepth);

    /// Caller frames that the engines take at a time.
    int hopFrames() const { return hop; }

    /// Brings the engines to where they have heard nothing but silence.
    void start(float speed);

    // For one pair of channels at a time, the first one first, and all of them before the next call
    // for the first one.

    /// Analyses the hop at frame `at` of `in`, at `speed`.
    void takeHop(int pair, const PairQueue& in, std::int64_t at, float speed);
    /// Synthesises the next hop of output at `speed`; all of it but the first `skip` frames is
    /// appended to `out`.
    void giveHop(int pair, PairQueue& out, std::int64_t skip, float speed);
    /// Converts `count` frames at `at` of `in` into one hop of output.
    void convert(int pair, PairQueue& out, std::int64_t skip, const PairQueue& in, std::int64_t at,
                 int count, float speed);

private:
    void warmUp();
    Velora_VSP_Interface* engine(int pair, float speed);
    template <class Run>
    void collect(int pair, PairQueue& out, std::int64_t skip, Run run);

    struct Destroy {
        void operator()(Velora_VSP_Interface* engine) const { Velora_VSP_Factory::Destroy(engine); }
    };

    int sampleRate;
    Velora_BitDepth_T depth;
    int hop = 0;
    std::vector<float> speeds; // [pair]
    std::vector<std::unique_ptr<Velora_VSP_Interface, Destroy>> owned;
    std::vector<Velora_VSP_Interface*> engines;
    std::vector<std::byte> part; // a hop of which the beginning isn't wanted
};

} // namespace vsp
