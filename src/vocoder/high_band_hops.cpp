#include "vocoder/high_band_hops.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace vsp {

void HighBandHops::reset(int frames)
{
    wholeHop = frames;
    hpRing.fill(Place(0));
    hpSegRing.fill(Place(0));
    clear(buffers[0]);
}

void HighBandHops::turn(int frames)
{
    // What stood in the oldest hop stays behind a shorter one.
    hpRing.turn();
    Place& newest = hpRing.newest()[0];
    newest = hpRing[0][0];
    own(newest, frames);
    // It comes a frame at a time, and each would wait for its line.
    fetchToWrite(buffers[newest], std::size_t(frames) * sizeof(Frame));
}

void HighBandHops::copy(Frame* out, int first, int count, int frames) const
{
    while (count > 0) {
        const int offset = first % frames;
        const int run = std::min(frames - offset, count);
        copyFrames(out, hop(first / frames) + offset, run);
        out += run;
        first += run;
        count -= run;
    }
}

void HighBandHops::addSegment(int first, int frames)
{
    hpSegRing.turn();
    auto& halves = hpSegRing.newest();
    if (frames == wholeHop && first % frames == 0) {
        for (int half = 0; half < 2; ++half)
            halves[half] = hpRing[first / frames + half][0];
        return;
    }
    for (int half = 0; half < 2; ++half) {
        const int count = std::clamp(2 * frames - half * wholeHop, 0, wholeHop);
        if (count == 0)
            break;
        own(halves[half], count);
        copy(buffers[halves[half]], first + half * wholeHop, count, frames);
    }
}

const Frame* HighBandHops::segment(int age, int first, int count, Frame* room) const
{
    const auto& halves = hpSegRing[age];
    const int offset = first % wholeHop;
    const Frame* const start = buffers[halves[first / wholeHop]] + offset;
    const int run = std::min(count, wholeHop - offset);
    if (run == count)
        return start;
    copyFrames(room, start, run);
    copyFrames(room + run, buffers[halves[1]], count - run);
    return room;
}

void HighBandHops::fetchNext() const
{
    fetchBeginnings(buffers[hpSegRing[1][1]], buffers[hpSegRing[2][0]]);
}

// Makes a buffer belong to one place alone, and keeps what it has from frame `from` on.
void HighBandHops::own(Place& place, int from)
{
    unsigned used = 0;
    unsigned shared = 0;
    const auto add = [&](Place other) {
        shared |= used & (1u << other);
        used |= 1u << other;
    };
    for (int age = 0; age < kHops; ++age)
        add(hpRing[age][0]);
    for (int age = 0; age < kSegments; ++age)
        for (const Place half : hpSegRing[age])
            add(half);
    if ((shared & (1u << place)) == 0)
        return;
    const auto unused = Place(std::countr_one(used));
    copyFrames(buffers[unused] + from, buffers[place] + from, wholeHop - from);
    place = unused;
}

} // namespace vsp
