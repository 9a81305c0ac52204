// The memory of the high band: the last hops that came in, and the segments made of them.
#pragma once

#include <cstdint>

#include "fixed/cache_line.h"
#include "fixed/frame.h"
#include "fixed/ring.h"
#include "kernels/sizes.h"

namespace vsp {

/// The high band of the last hops of input, and segments of it, two hops long, one for each synthesis
/// frame. Hops and segments share buffers of one hop each, so that whole hops are kept once and never
/// copied. One that is shorter leaves in its buffer what stood behind it; it then has one for itself.
class HighBandHops {
public:
    static constexpr int kHops = 6; // one more than the bare engine reads
    static constexpr int kSegments = 4;

    /// To silence; whole hops have `frames` frames from now on, at most kMaxHop.
    void reset(int frames);

    /// A hop of `frames` frames, 1 to a whole one, takes the place of the oldest; it is to be written
    /// at `newest`.
    void turn(int frames);
    Frame* newest() { return buffers[hpRing.newest()[0]]; }
    /// @param age  0 is the oldest, kHops - 1 the newest
    const Frame* hop(int age) const { return buffers[hpRing[age][0]]; }
    /// `count` frames from `first` on, counted from the oldest hop, as if all hops had `frames`.
    void copy(Frame* out, int first, int count, int frames) const;

    /// Adds a segment, two hops of `frames` frames from `first` on, counted in the same way.
    void addSegment(int first, int frames);
    /// `count` frames of a segment from `first` on, at most a whole hop of both: where they lie, or in
    /// `room`.
    /// @param age  0 is the oldest, kSegments - 1 the newest
    const Frame* segment(int age, int first, int count, Frame* room) const;
    /// Asks for what will be read of the two oldest segments when another one has been added.
    void fetchNext() const;

private:
    using Place = uint8_t; // of a buffer

    void own(Place& place, int from);

    int wholeHop = kMaxHop;              // settings: frames
    Ring<Place[1], kHops> hpRing;        // history
    Ring<Place[2], kSegments> hpSegRing; // history: the first hop of each segment and the second
    alignas(kLine) Frame buffers[kHops + 2 * kSegments][kMaxHop]; // as many as can differ
};

} // namespace vsp
