// The memory of the high band beside one in which nothing is shared and everything copied.

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "fixed/frame.h"
#include "kernels/sizes.h"
#include "vocoder/high_band_hops.h"

#include <gtest/gtest.h>

namespace {

using namespace vsp;

using Sample = std::array<int16_t, 2>;
using Buffer = std::vector<Sample>;

/// Rings of buffers, the oldest of which is overwritten by what comes.
class Copies {
public:
    explicit Copies(int frames)
        : hops(HighBandHops::kHops, Buffer(size_t(frames))),
          segments(HighBandHops::kSegments, Buffer(2 * size_t(frames)))
    {
    }

    void turn(const Buffer& in)
    {
        Buffer recycled = hops[1];
        std::copy(in.begin(), in.end(), recycled.begin());
        hops.erase(hops.begin());
        hops.push_back(recycled);
    }
    void addSegment(size_t first, size_t frames)
    {
        Buffer recycled = segments.front();
        for (size_t n = 0; n < 2 * frames; ++n)
            recycled[n] = hops[(first + n) / frames][(first + n) % frames];
        segments.erase(segments.begin());
        segments.push_back(recycled);
    }

    std::vector<Buffer> hops;
    std::vector<Buffer> segments;
};

Buffer read(const Frame* frames, int count)
{
    Buffer all;
    for (int n = 0; n < count; ++n)
        all.push_back({frames[n][0], frames[n][1]});
    return all;
}

class HighBandMemory : public testing::TestWithParam<int> {
protected:
    void SetUp() override { shared->reset(hop()); }
    int hop() const { return GetParam(); }
    int pick(int below) { return int(random() % unsigned(below)); }

    // A hop of `frames` frames that are like no others.
    void turn(int frames)
    {
        Buffer in;
        for (int n = 0; n < frames; ++n, ++count)
            in.push_back({int16_t(count), int16_t(count >> 16)});
        shared->turn(frames);
        for (int n = 0; n < frames; ++n)
            std::copy(in[size_t(n)].begin(), in[size_t(n)].end(), shared->newest()[n]);
        copies.turn(in);
    }
    void addSegment(int first, int frames)
    {
        shared->addSegment(first, frames);
        copies.addSegment(size_t(first), size_t(frames));
    }
    void expectEqual(int frames)
    {
        for (int age = 0; age < HighBandHops::kHops; ++age)
            ASSERT_EQ(read(shared->hop(age), hop()), copies.hops[size_t(age)]) << age;
        Frame room[kMaxHop];
        for (int age = 0; age < HighBandHops::kSegments; ++age)
            for (const int first : {0, frames / 3, frames}) {
                const auto from = copies.segments[size_t(age)].begin() + first;
                ASSERT_EQ(read(shared->segment(age, first, frames, room), frames),
                          Buffer(from, from + frames))
                    << age << " from " << first;
            }
    }

    const std::unique_ptr<HighBandHops> shared = std::make_unique<HighBandHops>();
    Copies copies{GetParam()};
    std::minstd_rand random{1};
    uint32_t count = 1;
};

TEST_P(HighBandMemory, IsSilentAtFirst)
{
    for (int step = 0; step < 20; ++step) { // every buffer is used: what it has is forgotten
        turn(hop());
        addSegment(hop() + step, hop());
    }
    shared->reset(hop());
    copies = Copies(hop());
    expectEqual(hop());
}

TEST_P(HighBandMemory, HoldsWhatCopiesWould)
{
    int usual = hop();
    for (int step = 0; step < 3000; ++step) {
        if (pick(20) == 0) // whole hops for a while, then others
            usual = pick(3) == 0 ? 1 + pick(hop()) : hop();
        const int frames = pick(12) == 0 ? 1 + pick(hop()) : usual;
        turn(frames);
        for (int segment = pick(3); segment > 0; --segment)
            addSegment(pick(2) == 0 ? frames : pick((HighBandHops::kHops - 2) * frames + 1),
                       frames);
        expectEqual(frames);
        if (HasFatalFailure())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Hops, HighBandMemory, testing::Values(2 * kLowHop, kMaxHop));

} // namespace
