// Frames in and out of pairs of channels, and the fades between two stretches.

#include "stream/pair_queue.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include "convert/bridge.h"
#include "fixed/cache_line.h"
#include "fixed/floating_point.h"

namespace vsp {

namespace {

// As frames come and go, what stands here walks through its memory. It goes back to the front after
// so many times its length, long before it must: memory that was in use lately is in the cache.
constexpr std::int64_t kMostWay = 2;

// One sample of every channel at a stride from the next.
template <class Sample>
struct Lane {
    Sample* first;
    std::int64_t stride;
};

template <class Sample, class Void>
Lane<Sample> laneOf(const View<Void>& view, int channel, int channels)
{
    if (view.interleaved != nullptr)
        return {static_cast<Sample*>(view.interleaved) + view.from * channels + channel, channels};
    return {static_cast<Sample*>(view.planes[channel]) + view.from, 1};
}

template <class Sample>
void gather(Sample* to, Lane<const Sample> left, Lane<const Sample> right, std::int64_t frames)
{
    for (std::int64_t n = 0; n < frames; ++n) {
        to[2 * n] = left.first[n * left.stride];
        to[2 * n + 1] = right.first[n * right.stride];
    }
}

template <class Sample>
void scatter(Lane<Sample> to, const Sample* from, std::int64_t frames)
{
    for (std::int64_t n = 0; n < frames; ++n)
        to.first[n * to.stride] = from[2 * n];
}

template <class Void>
bool hasWholePair(const View<Void>& view, int pair, int channels)
{
    return view.interleaved != nullptr && 2 * pair + 1 < channels;
}

// Both channels as one, each frame so many samples behind the one before.
template <class Sample>
void movePairs(Sample* to, std::int64_t toStride, const Sample* from, std::int64_t fromStride,
               std::int64_t frames)
{
    for (std::int64_t n = 0; n < frames; ++n)
        std::memcpy(to + n * toStride, from + n * fromStride, 2 * sizeof(Sample));
}

// Runs run(sample) with a sample of the format's type.
template <class Run>
void withSample(Velora_BitDepth_T depth, Run run)
{
    if (depth == Velora_BitDepth_Float)
        return run(float());
    if (depth == Velora_BitDepth_16)
        return run(std::int16_t());
    run(std::int32_t());
}

// Weights grow from done / total on.
template <class Sample>
void fade(Sample* to, const Sample* from, std::int64_t frames, std::int64_t done,
          std::int64_t total)
{
    using Wide = std::conditional_t<std::is_floating_point_v<Sample>, double, std::int64_t>;
    for (std::int64_t n = 0; n < frames; ++n)
        for (int channel = 0; channel < 2; ++channel, ++from, ++to) {
            const Wide old = *from;
            *to = Sample(old + (Wide(*to) - old) * Wide(done + n) / Wide(total));
        }
}

// On a 32-bit machine there may be no number for so many.
std::size_t bytesFor(std::int64_t frames, std::int64_t frameBytes)
{
    if (frames > std::numeric_limits<std::ptrdiff_t>::max() / frameBytes)
        throw std::bad_alloc();
    return std::size_t(frames * frameBytes);
}

} // namespace

PairQueue::PairQueue(int channelCount, Velora_BitDepth_T bitDepth, std::int64_t mostFrames,
                     std::int64_t mostMovedBytes)
    : channels(channelCount), pairs((channelCount + 1) / 2), depth(bitDepth),
      frameBytes(bytesPerFrame(bitDepth)), most(mostFrames), capacity(2 * mostFrames),
      mostMoved(mostMovedBytes / (pairs * frameBytes)), data(bytesFor(pairs * capacity, frameBytes))
{
}

void PairQueue::moveToFront(std::vector<std::byte>& to, std::int64_t newCapacity)
{
    for (int pair = 0; pair < pairs; ++pair)
        std::memmove(to.data() + pair * newCapacity * frameBytes, at(pair, first),
                     std::size_t(frames * frameBytes));
    head = 0;
}

void PairQueue::reserve(std::int64_t count)
{
    if (frames + count <= most)
        return;
    const std::int64_t newMost = 2 * (frames + count);
    std::vector<std::byte> grown(bytesFor(2 * newMost * pairs, frameBytes));
    moveToFront(grown, 2 * newMost);
    data.swap(grown);
    most = newMost;
    capacity = 2 * newMost;
}

void PairQueue::append(std::int64_t count)
{
    const bool isFarOff = head > kMostWay * (frames + count) && frames <= mostMoved;
    if (isFarOff || head + frames + count > capacity)
        moveToFront(data, capacity);
    frames += count;
}

void PairQueue::append(const Source& source, std::int64_t count)
{
    appendLater(source, count);
    settle();
}

void PairQueue::appendLater(const Source& source, std::int64_t count)
{
    settle();
    waiting = {source, end(), count};
    append(count);
}

// Whether the caller's frames are as they will be here.
bool PairQueue::isPairs(const Source& source) const
{
    return channels == 2 && source.interleaved != nullptr;
}

const std::byte* PairQueue::pairsIn(const Source& source) const
{
    return static_cast<const std::byte*>(source.interleaved) + source.from * frameBytes;
}

const std::byte* PairQueue::stretch(int pair, std::int64_t frame, std::int64_t count)
{
    const std::int64_t offset = frame - waiting.frame;
    if (isPairs(waiting.source) && offset >= 0 && offset + count <= waiting.count)
        return pairsIn(waiting.source) + offset * frameBytes;
    settle();
    return at(pair, frame);
}

void PairQueue::expect(const Source& source, std::int64_t count) const
{
    const std::int64_t sampleBytes = frameBytes / 2;
    const int lanes = source.interleaved != nullptr ? 1 : channels;
    const std::int64_t unit = sampleBytes * channels / lanes; // from one frame to the next
    for (int lane = 0; lane < lanes; ++lane) {
        const void* const plane =
            source.interleaved != nullptr ? source.interleaved : source.planes[lane];
        fetchToRead(static_cast<const std::byte*>(plane) + source.from * unit,
                    std::size_t(count * unit));
    }
}

void PairQueue::settle()
{
    const Waiting now = std::exchange(waiting, {});
    const Source& source = now.source;
    const std::int64_t from = now.frame;
    const std::int64_t count = now.count;
    if (count == 0)
        return;
    if (isPairs(source)) {
        std::memcpy(at(0, from), pairsIn(source), std::size_t(count * frameBytes));
        return;
    }
    withSample(depth, [&](auto sample) {
        using Sample = decltype(sample);
        for (int pair = 0; pair < pairs; ++pair) {
            const auto to = reinterpret_cast<Sample*>(at(pair, from));
            const Lane<const Sample> left = laneOf<const Sample>(source, 2 * pair, channels);
            const int right = std::min(2 * pair + 1, channels - 1);
            if (hasWholePair(source, pair, channels))
                movePairs(to, 2, left.first, left.stride, count);
            else
                gather(to, left, laneOf<const Sample>(source, right, channels), count);
        }
    });
}

void PairQueue::appendSilence(std::int64_t count)
{
    const std::int64_t from = end();
    append(count);
    for (int pair = 0; pair < pairs; ++pair)
        std::memset(at(pair, from), 0, std::size_t(count * frameBytes));
}

void PairQueue::append(PairQueue& other, std::int64_t frame, std::int64_t count)
{
    other.settle();
    const std::int64_t from = end();
    append(count);
    for (int pair = 0; pair < pairs; ++pair)
        std::memcpy(at(pair, from), other.at(pair, frame), std::size_t(count * frameBytes));
}

std::byte* PairQueue::pairsAt(const Destination& destination) const
{
    if (channels != 2 || destination.interleaved == nullptr)
        return nullptr;
    return static_cast<std::byte*>(destination.interleaved) + destination.from * frameBytes;
}

void PairQueue::copyTo(const Destination& destination, std::int64_t frame, std::int64_t count)
{
    settle();
    if (std::byte* const pairsThere = pairsAt(destination)) {
        std::memcpy(pairsThere, at(0, frame), std::size_t(count * frameBytes));
        return;
    }
    withSample(depth, [&](auto sample) {
        using Sample = decltype(sample);
        for (int pair = 0; pair < pairs; ++pair) {
            const auto from = reinterpret_cast<const Sample*>(at(pair, frame));
            const Lane<Sample> left = laneOf<Sample>(destination, 2 * pair, channels);
            if (hasWholePair(destination, pair, channels)) {
                movePairs(left.first, left.stride, from, 2, count);
                continue;
            }
            scatter(left, from, count);
            if (2 * pair + 1 < channels)
                scatter(laneOf<Sample>(destination, 2 * pair + 1, channels), from + 1, count);
        }
    });
}

void PairQueue::appendReversed(PairQueue& other, std::int64_t end, std::int64_t count)
{
    other.settle();
    const std::int64_t from = this->end();
    append(count);
    for (int pair = 0; pair < pairs; ++pair)
        for (std::int64_t n = 0; n < count; ++n)
            std::memcpy(at(pair, from + n), other.at(pair, end - 1 - n), std::size_t(frameBytes));
}

void PairQueue::fadeFrom(PairQueue& old, std::int64_t frame, std::int64_t count, std::int64_t start,
                         std::int64_t total)
{
    settle();
    withSample(depth, [&](auto sample) {
        using Sample = decltype(sample);
        for (int pair = 0; pair < pairs; ++pair)
            fade(reinterpret_cast<Sample*>(at(pair, frame)),
                 reinterpret_cast<const Sample*>(old.at(pair, frame)), count, frame - start, total);
    });
}

void PairQueue::dropBefore(std::int64_t frame)
{
    const std::int64_t count = std::clamp<std::int64_t>(frame - first, 0, frames);
    first += count;
    head += count;
    frames -= count;
}

void PairQueue::truncate(std::int64_t frame)
{
    frames = std::min(frames, std::max<std::int64_t>(frame - first, 0));
}

void PairQueue::restart(std::int64_t frame)
{
    first = frame;
    head = 0;
    frames = 0;
    waiting = {};
}

} // namespace vsp
