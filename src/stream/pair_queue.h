// Stretches of a stream, as the engines want them: channels in stereo pairs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <velora/vsp.h>

namespace vsp {

/// Where a caller's frames lie: interleaved, or in one plane for each channel.
template <class Void>
struct View {
    Void* interleaved;   // null if planar
    Void* const* planes; // null if interleaved
    std::int64_t from;   // frames before the first
};
using Source = View<const void>;
using Destination = View<void>;

/// A stretch of a stream in one piece of memory for each pair of channels: grows at its end, shrinks
/// at both. The last of an odd number of channels is a pair with itself. Frames are counted from the
/// start of the stream.
class PairQueue {
public:
    /// Room for `most` frames.
    /// @param mostMoved  bytes that may be moved in one call, unless more must be
    PairQueue(int channels, Velora_BitDepth_T bitDepth, std::int64_t most,
              std::int64_t mostMoved = std::numeric_limits<std::int64_t>::max());

    int pairCount() const { return pairs; }
    std::int64_t begin() const { return first; }
    std::int64_t end() const { return first + frames; }
    std::int64_t room() const { return most - frames; }

    /// Stereo frames of a pair from a frame of the stream on, all of which are settled.
    std::byte* at(int pair, std::int64_t frame) { return data.data() + offset(pair, frame); }
    const std::byte* at(int pair, std::int64_t frame) const
    {
        return data.data() + offset(pair, frame);
    }

    /// Makes room for `count` more frames in all. Allocates if there is none; may throw
    /// std::bad_alloc, and then nothing has happened.
    void reserve(std::int64_t count);

    /// `count` more frames, at most room(), for the caller to fill.
    void append(std::int64_t count);
    void append(const Source& source, std::int64_t count);
    /// The same, but the frames may be read from where they lie until settle() copies them, which
    /// must come before the caller has that memory back. What is in the cache by then costs less.
    void appendLater(const Source& source, std::int64_t count);
    void settle();
    /// So many frames are about to come in from there: asks for them from memory.
    void expect(const Source& source, std::int64_t count) const;
    /// `count` frames of a pair from a frame of the stream on, wherever they lie together.
    const std::byte* stretch(int pair, std::int64_t frame, std::int64_t count);
    void appendSilence(std::int64_t count);
    /// From another queue, from `frame` on.
    void append(PairQueue& other, std::int64_t frame, std::int64_t count);

    void copyTo(const Destination& destination, std::int64_t frame, std::int64_t count);
    /// The first of the caller's frames if they lie there as they would here, else null.
    std::byte* pairsAt(const Destination& destination) const;

    /// Fades what stands here in, from `old` at the same frames: `count` frames at `frame`, of a fade
    /// that begins at frame `start` and takes `total`.
    void fadeFrom(PairQueue& old, std::int64_t frame, std::int64_t count, std::int64_t start,
                  std::int64_t total);
    /// `count` frames of another queue, the one before its frame `end` first, then backwards.
    void appendReversed(PairQueue& other, std::int64_t end, std::int64_t count);

    void dropBefore(std::int64_t frame);
    void truncate(std::int64_t frame);
    /// Empty, with `frame` to come next.
    void restart(std::int64_t frame);

private:
    std::int64_t offset(int pair, std::int64_t frame) const
    {
        return (pair * capacity + head + frame - first) * frameBytes;
    }
    bool isPairs(const Source& source) const;
    const std::byte* pairsIn(const Source& source) const;
    void moveToFront(std::vector<std::byte>& to, std::int64_t newCapacity);

    int channels;
    int pairs;
    Velora_BitDepth_T depth;
    std::int64_t frameBytes;     // of a stereo frame
    std::int64_t most;           // frames
    std::int64_t capacity;       // frames: twice as many, so that it seldom must move to the front
    std::int64_t mostMoved;      // frames of each pair, unless more must be
    std::vector<std::byte> data; // [pair][capacity]
    std::int64_t head = 0;       // frames before `first`
    std::int64_t first = 0;      // frame number in the stream
    std::int64_t frames = 0;

    struct Waiting { // to be copied
        Source source;
        std::int64_t frame; // in the stream
        std::int64_t count;
    };
    Waiting waiting = {};
};

} // namespace vsp
