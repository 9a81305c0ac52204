// Which media time every output frame of a stream carries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vsp {

/// Media time over output time: a polyline, one segment for each speed, what is planned included.
///
/// Positions are doubles: finer than 1/1000 frame up to 2^42 frames, 265 days at 192 kHz. A position
/// is computed from the last change of speed, not summed up hop by hop, so nothing drifts.
///
/// Segments are numbered from the start of the stream on. Those that lie behind what was handed out
/// are forgotten when there is no room for new ones.
class TimeMap {
public:
    struct Segment {
        double output; // from this output frame on, which sounds ...
        double media;  // ... this media frame ...
        double speed;  // ... media frames pass for each output frame

        double mediaAt(double at) const { return media + (at - output) * speed; }
    };

    /// Speed 1.0, with room for `changes` changes of speed at once.
    explicit TimeMap(std::size_t changes);

    /// One speed, at which output frame 0 sounds media frame `media`.
    void reset(double media, double speed);

    /// Makes room for one more change, at most by forgetting what lies before output frame `past`,
    /// which was handed out.
    /// @returns false if all that is left lies behind it
    bool makeRoom(std::int64_t past);
    /// Doubles the room. Allocates; may throw std::bad_alloc, and then nothing has happened.
    void grow();

    /// Forgets the changes from output frame `output` on. What that frame sounds stays.
    /// @returns the number of the first segment that isn't what it was
    std::size_t cut(std::int64_t output);
    /// From `output` on `speed` holds, and none of the changes that were planned from there on.
    /// @returns the number of the segment that begins there
    std::size_t turnAtOutput(std::int64_t output, double speed);
    /// The same from a media frame on up to the next one that has a change of its own; changes
    /// behind it come at the same media frames as before. A change at the same frame is replaced,
    /// one that no whole frame of output would sound is left out.
    std::size_t turnAtMedia(double media, double speed);
    /// The same from an output frame on.
    std::size_t turnFrom(std::int64_t output, double speed);
    /// Whether there is a change right at `output`, so that another one needs no more room.
    bool turnsAt(double output) const { return byOutput(output).output == output; }

    double mediaAt(double output) const { return byOutput(output).mediaAt(output); }
    double speedAt(double output) const { return byOutput(output).speed; }
    double outputAt(double media) const;
    /// Number of the segment that `output` lies in.
    std::size_t numberAt(double output) const
    {
        return forgotten + std::size_t(&byOutput(output) - segments.data());
    }

    /// Numbers of the oldest segment that is known, and of the one that will come next.
    std::size_t begin() const { return forgotten; }
    std::size_t end() const { return forgotten + segments.size(); }
    /// A segment that is forgotten is taken for the oldest that is known.
    const Segment& operator[](std::size_t n) const
    {
        return segments[n > forgotten ? n - forgotten : 0];
    }
    const Segment& last() const { return segments.back(); }

private:
    std::size_t insert(const Segment& turned);
    const Segment& byOutput(double output) const;

    std::vector<Segment> segments; // by output and by media time; never empty
    std::size_t room;              // most segments
    std::size_t forgotten = 0;     // segments before the first of them
};

} // namespace vsp
