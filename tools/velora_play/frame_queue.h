// Decoded sound on its way to the audio callback: one thread puts frames in, the other takes them out.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <vector>

/// Frames are counted from the first that was ever put in. Allocates when it is made, never locks.
class FrameQueue {
public:
    FrameQueue(int64_t frames, int channels)
        : capacity(frames), width(channels), samples(size_t(frames * channels))
    {
    }

    int64_t written() const { return end.load(std::memory_order_acquire); }
    int64_t taken() const { return begin.load(std::memory_order_acquire); }
    int64_t room() const { return capacity - (written() - taken()); }

    /// For the one that puts in: no more than there is room for.
    void put(const float* from, int64_t frames)
    {
        const int64_t at = written();
        const int64_t first = std::min(frames, capacity - at % capacity);
        std::copy_n(from, first * width, samples.begin() + at % capacity * width);
        std::copy_n(from + first * width, (frames - first) * width, samples.begin());
        end.store(at + frames, std::memory_order_release);
    }

    /// For the one that takes out: the next frames, `wanted` or as many as lie in a row.
    const float* next(int64_t& wanted) const
    {
        const int64_t place = taken() % capacity;
        wanted = std::min(wanted, capacity - place);
        return samples.data() + place * width;
    }
    /// Those before this one are no longer needed.
    void takeUpTo(int64_t frame) { begin.store(frame, std::memory_order_release); }

private:
    int64_t capacity; // frames
    int64_t width;    // samples in a frame
    std::vector<float> samples;
    std::atomic<int64_t> end = 0;
    std::atomic<int64_t> begin = 0;
};
