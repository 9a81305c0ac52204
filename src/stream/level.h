// Rides the level: the engines work with 16 bits, near full scale, whatever the input's level is,
// and what they give gets its own level back.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <velora/vsp.h>

#include "kernels/level_kernels.h"
#include "stream/pair_queue.h"

namespace vsp {

/// Takes integers back to full scale where stretching makes peaks above it: peaks are bent, and those
/// that are too high for that get a gain as well. Both set in within a few milliseconds and go as fast.
/// For each pair of channels of each voice one, which starts anew with it.
struct PeakLimiter {
    double gain = 1.0;
    double bend = 0.0; // as in kernels/level_kernels.h, 0 to 1
};

/// Places that come round, for whatever is numbered from 0 on: as many as a power of two, so that no
/// number is divided.
template <class Item>
class NumberedRing {
public:
    /// Room for the last `most` of them.
    explicit NumberedRing(std::int64_t most) : places(std::bit_ceil(std::size_t(most))) {}
    Item& operator[](std::int64_t number) { return places[place(number)]; }
    const Item& operator[](std::int64_t number) const { return places[place(number)]; }
    void fill(const Item& item) { places.assign(places.size(), item); }

private:
    std::size_t place(std::int64_t number) const
    {
        return std::size_t(number) & (places.size() - 1);
    }
    std::vector<Item> places;
};

/// The gain over a stream's input, from the peaks of what lies ahead; the same for all channels. It
/// begins to fall a look-ahead before a peak, evenly in decibels, and rises slowly. Behind the
/// engines its inverse is taken at the same media times.
///
/// Takes all its memory when it is made. Any format; gains are those that bring full scale to full
/// scale of 16 bits.
class LevelCurve {
public:
    /// What is above 1.0 in the caller's format is levelled down to here; beyond, it is limited.
    static constexpr float kMostPeak = 64.0f;

    /// @param lookAheadFrames  0: the gain falls at once, where a peak comes
    /// @param mostFrames       of input that may be asked for at a time, from the oldest that may
    ///                         still be wanted to the newest
    LevelCurve(int sampleRate, Velora_BitDepth_T bitDepth, std::int64_t lookAheadFrames,
               std::int64_t mostFrames, const LevelKernels& table = bestLevelKernels());

    /// Input frames that must have come in, beyond one, for its gain to be known; and beyond a whole
    /// hop, for all of its gains.
    std::int64_t lookAhead() const { return (ahead + 1) * blockFrames; }
    std::int64_t lookAheadOfHop() const { return ahead * blockFrames; }

    /// Makes room for so many frames if there is less. Allocates then; may throw std::bad_alloc, and
    /// then nothing has happened.
    void reserve(std::int64_t mostFrames);

    /// Nothing has come in; input frame `frame` is the next. The gain starts where it is needed.
    void restart(std::int64_t frame);
    /// The frames of `input` from end() on, up to `until` or its end, have come in. What lies more
    /// than `mostFrames` back is forgotten.
    void append(const PairQueue& input, std::int64_t until);
    /// The input frame that comes next.
    std::int64_t end() const { return first + frames; }
    /// Up to this input frame gains are known: the engines may take what lies before.
    std::int64_t settled() const;

    /// Inverse of the gain at an input frame, or between two of them; that of the closest frame
    /// whose gain is known.
    double inverseAt(double frame) const;

    /// The engine's form of the stereo frames `in`, the first of them input frame `frame`: times
    /// the gain.
    /// @param out     [frames]
    /// @param in      [frames] in the caller's format, all before settled()
    void scaleIn(std::int16_t (*out)[2], const std::byte* in, std::int64_t frame,
                 std::int64_t frames) const;
    /// The caller's form of what the engine gave: times the inverse of the gain at the media times
    /// that it sounds, which run evenly.
    /// @param out      [frames] in the caller's format; floats pass full scale
    /// @param in       [frames], a hop of output
    /// @param from     input frame that frame 0 sounds
    /// @param speed    input frames that pass for a frame
    /// @param limiter  for integers; goes on from the hop before
    void scaleOut(std::byte* out, const std::int16_t (*in)[2], std::int64_t frames, double from,
                  double speed, PeakLimiter& limiter) const;

private:
    struct End {
        std::int32_t octaves; // gain, Q16
        float gain;           // the same as a factor
    };
    /// The gain runs evenly from one end to the other.
    struct Block {
        End first;
        End last;
    };

    void takePeaks(const PairQueue& input, std::int64_t count);
    void endBlock();
    void settleBlock();
    std::int32_t lowestAhead();
    const Block& block(std::int64_t number) const;
    PeakLimiter neededFor(const std::int16_t (*in)[2], std::int64_t count, double inverse) const;
    void write(std::byte* out, const std::int16_t (*in)[2], Ramp gain, std::int64_t count) const;
    void writeBent(std::byte* out, const std::int16_t (*in)[2], Ramp gain, Ramp bend,
                   std::int64_t count) const;

    const LevelKernels& kernels;
    Velora_BitDepth_T depth;
    int blockShift; // log2 of blockFrames
    std::int64_t blockFrames;
    float blocksPerFrame;              // exact
    std::int64_t ahead;                // blocks of look-ahead
    std::int64_t averaged;             // of `raised`
    std::int32_t mostGain;             // octaves, Q16
    std::int32_t rise;                 // most that the gain rises a block, octaves, Q16
    std::int64_t kept;                 // blocks whose gains are remembered
    NumberedRing<Block> blocks;        // the last of them
    NumberedRing<std::int32_t> bears;  // of ahead + 1 blocks: most gain of each by itself
    NumberedRing<std::int32_t> raised; // the last `averaged`: the lowest of those, rising slowly

    std::int64_t first = 0;       // input frame of the first block
    std::int64_t frames = 0;      // that came in since
    std::int64_t whole = 0;       // blocks that have come in
    std::int64_t known = 0;       // blocks whose gain is known
    std::int64_t lowestBlock = 0; // of those in `bears`
    std::int64_t sum = 0;         // of `raised`
    float peak = 0.0f;            // of the block that isn't whole yet, 1.0 is full scale
};

} // namespace vsp
