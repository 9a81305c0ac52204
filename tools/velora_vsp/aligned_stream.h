// Turns the engine, which has a start-up fade and a delay, into what a file needs: the music starts
// at the start, a sound at time t comes out at t / speed, and nothing is missing at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <velora/vsp.h>

/// One stereo stream of known format through one engine. One thread at a time; the memory it takes
/// (about 1 MiB) doesn't depend on the stream's length.
class AlignedStream {
public:
    /// Takes `count` (1 or more) stereo frames of output, valid during the call.
    using Sink = std::function<void(const void* frames, int count)>;

    /// @param sampleRate   8000 to 192000 Hz
    /// @param speed        0.125 to 8, not 1.0: speed of the time axis
    /// @param engineSpeed  `speed` as the engine is told; may lie a rounding error beside it
    /// @param sink         called by process and finish; what it throws passes through them
    AlignedStream(int sampleRate, Velora_BitDepth_T depth, double speed, float engineSpeed,
                  Sink sink);

    /// Takes the next `frames` stereo frames, any number, in the format of `depth`.
    void process(const void* in, int frames);

    /// Ends the stream with silence, until the sink has got round(all frames / speed) frames.
    void finish();

private:
    void feedBlock();

    struct Destroy {
        void operator()(Velora_VSP_Interface* used) const { Velora_VSP_Factory::Destroy(used); }
    };

    std::unique_ptr<Velora_VSP_Interface, Destroy> engine;
    double speed;
    Sink sink;
    size_t frameBytes;
    std::vector<std::byte> block;  // [kBlockFrames] frames of input
    std::vector<std::byte> output; // room for what a block gives
    int blockFrames = 0;           // frames collected in `block`
    int64_t inputFrames = 0;       // taken so far
    int64_t framesToDrop = 0;      // the engine's delay, still to be taken off the start
    int64_t givenFrames = 0;
    int64_t framesToGive = INT64_MAX; // known once the input has ended
};
