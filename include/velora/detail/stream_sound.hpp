// What happens to a Stream's samples: queues that keep history and output, the engines of all
// channel pairs, and the short fades between them.
#ifndef VELORA_DETAIL_STREAM_SOUND_HPP
#define VELORA_DETAIL_STREAM_SOUND_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include <velora/detail/stream_timing.hpp>
#include <velora/vsp.h>

namespace velora {

/// Format of a stream whose samples are std::int32_t holding sign-extended 24-bit values, from
/// -8388608 to 8388607.
struct Int24In32 {};

namespace detail {

template <class Format>
struct FormatTraits; // undefined for what no engine speaks

template <>
struct FormatTraits<std::int16_t> {
    using Sample = std::int16_t;
    static constexpr Velora_BitDepth_T kBitDepth = Velora_BitDepth_16;
};
template <>
struct FormatTraits<Int24In32> {
    using Sample = std::int32_t;
    static constexpr Velora_BitDepth_T kBitDepth = Velora_BitDepth_24;
};
template <>
struct FormatTraits<std::int32_t> {
    using Sample = std::int32_t;
    static constexpr Velora_BitDepth_T kBitDepth = Velora_BitDepth_32;
};
template <>
struct FormatTraits<float> {
    using Sample = float;
    static constexpr Velora_BitDepth_T kBitDepth = Velora_BitDepth_Float;
};

/// A stretch of a stream in one piece of memory: grows at its end, shrinks at both. Frames are
/// counted from the start of the stream and interleave all channels.
template <class Sample>
class FrameQueue {
public:
    explicit FrameQueue(int channelCount) : channels(channelCount) {}

    std::int64_t end() const { return first + frames; }
    Sample* at(std::int64_t frame) { return buffer.data() + (head + frame - first) * channels; }

    /// Up to `most` frames at a time will then cause no allocation.
    void reserve(std::int64_t most)
    {
        if (2 * most > capacity())
            regrow(2 * most);
    }

    /// Room for `count` more frames, for the caller to fill.
    Sample* append(std::int64_t count)
    {
        if (2 * (frames + count) > capacity())
            regrow(4 * (frames + count));
        else if (head + frames + count > capacity())
            moveToFront(buffer);
        frames += count;
        return at(end() - count);
    }

    void dropBefore(std::int64_t frame)
    {
        const std::int64_t count = std::min(std::max<std::int64_t>(frame - first, 0), frames);
        first += count;
        head += count;
        frames -= count;
    }

    void truncate(std::int64_t frame) { frames = std::min(frames, frame - first); }
    void clear() { first = head = frames = 0; }

private:
    std::int64_t capacity() const { return std::int64_t(buffer.size()) / channels; }

    void moveToFront(std::vector<Sample>& to)
    {
        const Sample* const from = at(first);
        std::copy(from, from + frames * channels, to.data());
        head = 0;
    }

    void regrow(std::int64_t newCapacity)
    {
        std::vector<Sample> grown(std::size_t(newCapacity * channels));
        moveToFront(grown);
        buffer.swap(grown);
    }

    int channels;
    std::vector<Sample> buffer; // at most half full, so that moving to its front is rare
    std::int64_t head = 0;      // frames of it before `first`
    std::int64_t first = 0;     // frame number in the stream
    std::int64_t frames = 0;
};

/// One engine for each pair of channels, all in the same state but for the sound in them. The last
/// of an odd number of channels is a pair with itself.
template <class Format>
class EngineBank {
public:
    using Sample = typename FormatTraits<Format>::Sample;

    EngineBank(int channelCount, int rate) : channels(channelCount), sampleRate(rate)
    {
        const std::size_t pairs = std::size_t(channels + 1) / 2;
        owned.reserve(pairs);
        engines.reserve(pairs);
        for (std::size_t pair = 0; pair < pairs; ++pair) {
            owned.emplace_back(Velora_VSP_Factory::Create());
            engines.push_back(owned.back().get());
        }
        start(1.0f);
        workingHop = engines[0]->GetPredictedInputFrameSize(1);
        in.resize(2 * std::size_t(hop()));
        out.resize(in.size() * Voice::kMostHopsPerHop);
    }

    int shift() const { return sampleRate <= 48000 ? 0 : sampleRate <= 96000 ? 1 : 2; }
    std::int64_t hop() const { return std::int64_t(workingHop) << shift(); }

    /// Brings the engines to where they have heard nothing but silence; the next hop is played at
    /// `speed`, without a transition.
    void start(float speed)
    {
        for (Velora_VSP_Interface* engine : engines)
            engine->Init(sampleRate, FormatTraits<Format>::kBitDepth);
        current = 1.0f;
        setSpeed(speed);
    }

    /// Runs a hop at `speed`. Of the frames it gives, `count` from `skip` on go to `dst`.
    void feed(Sample* dst, const Sample* src, float speed, std::int64_t skip, std::int64_t count)
    {
        if (speed != current)
            setSpeed(speed);
        for (std::size_t pair = 0; pair < engines.size(); ++pair) {
            const int left = 2 * int(pair);
            const int right = std::min(left + 1, channels - 1);
            for (std::int64_t n = 0; n < hop(); ++n) {
                in[std::size_t(2 * n)] = src[n * channels + left];
                in[std::size_t(2 * n + 1)] = src[n * channels + right];
            }
            engines[pair]->Exe(out.data(), in.data(), int(hop()));
            for (std::int64_t n = 0; n < count; ++n) {
                dst[n * channels + right] = out[std::size_t(2 * (skip + n) + 1)];
                dst[n * channels + left] = out[std::size_t(2 * (skip + n))];
            }
        }
        Velora_VSP_Conductor::ShareOnsets(engines.data(), int(engines.size()));
    }

private:
    void setSpeed(float speed)
    {
        for (Velora_VSP_Interface* engine : engines)
            Velora_VSP_Conductor::SetSpeedNow(engine, speed);
        current = speed;
    }

    struct Destroy {
        void operator()(Velora_VSP_Interface* engine) const { Velora_VSP_Factory::Destroy(engine); }
    };

    int channels;
    int sampleRate;
    int workingHop = 0;
    float current = 1.0f; // speed
    std::vector<std::unique_ptr<Velora_VSP_Interface, Destroy>> owned;
    std::vector<Velora_VSP_Interface*> engines;
    std::vector<Sample> in;  // one hop of a pair
    std::vector<Sample> out; // all that it can give
};

/// The samples of a stream: a Schedule's Sound.
template <class Format>
class Sounding {
public:
    using Sample = typename FormatTraits<Format>::Sample;

    Sounding(int channelCount, int sampleRate, Pitch pitch)
        : channels(channelCount), input(channels), output(channels)
    {
        idle.reserve(kMostBanks);
        idle.push_back(std::make_unique<EngineBank<Format>>(channels, sampleRate));
        rate = Rate{sampleRate, idle[0]->shift(), idle[0]->hop(), pitch};
        tail.resize(std::size_t(fadeFrames() * channels));
        input.reserve((kMostLeadHops + 4) * rate.hop);
        output.reserve(4 * rate.hop);
    }

    void reset()
    {
        retire(sounding);
        retire(joined);
        tailFrames = 0;
        input.clear();
        output.clear();
        map.reset();
    }

    /// Makes room for all that one more change to `voice` may need, so that processing allocates
    /// nothing. Strong exception guarantee.
    void prepare(const Voice& voice, const Schedule& schedule)
    {
        if (!voice.isDry() && banks < kMostBanks && (sounding || joined || schedule.joining)) {
            idle.push_back(std::make_unique<EngineBank<Format>>(channels, rate.sampleRate));
            ++banks;
        }
        map.reserveOne();
        mostLag = std::max(mostLag, voice.lagHops());
        slowest = std::min(slowest, voice.speed);
        const std::int64_t waiting = mostLag + 4; // hops of media
        input.reserve((waiting + kMostLeadHops) * rate.hop);
        output.reserve(schedule.ready() - schedule.taken +
                       std::int64_t((double(waiting) / slowest + 4.0) * double(rate.hop)));
    }

    /// Forgets input that no voice will want: one that joins may start this far before the media
    /// time that it joins at.
    void dropHistory(const Schedule& schedule)
    {
        const std::int64_t media = std::int64_t(map.mediaAt(double(schedule.ready())));
        input.dropBefore((media / rate.hop - kMostLeadHops) * rate.hop);
    }

    // ---- Called by the schedule ----

    const TimeMap& times() const { return map; }

    void feed(const Voice& voice, std::int64_t frames, bool joins)
    {
        const std::int64_t skip =
            std::min(std::max<std::int64_t>(output.end() - voice.end, 0), frames);
        auto& bank = joins ? joined : sounding;
        bank->feed(output.append(frames - skip), input.at(voice.fed), voice.engineSpeed, skip,
                   frames - skip);
    }

    void copy(const Voice& voice, std::int64_t frames)
    {
        std::copy_n(input.at(voice.fed), frames * channels, output.append(frames));
    }

    void split(std::int64_t frame)
    {
        if (output.end() <= frame)
            return;
        const std::int64_t more = std::min(output.end() - frame, fadeFrames() - tailFrames);
        std::copy_n(output.at(frame), more * channels, tail.data() + tailFrames * channels);
        tailFrames += more;
        output.truncate(frame);
    }

    void join(const Voice& voice)
    {
        if (voice.isDry())
            return;
        joined = std::move(idle.back());
        idle.pop_back();
        joined->start(voice.engineSpeed);
    }

    void leave(std::int64_t frame)
    {
        output.truncate(frame);
        retire(joined);
    }

    void fade(std::int64_t frame, std::int64_t frames)
    {
        using Wide = std::conditional_t<std::is_floating_point_v<Sample>, double, std::int64_t>;
        const Sample* from = tail.data();
        Sample* to = output.at(frame);
        for (std::int64_t n = 0; n < frames; ++n)
            for (int channel = 0; channel < channels; ++channel, ++from, ++to)
                *to = Sample(*from + (Wide(*to) - *from) * Wide(n) / Wide(frames));
        tailFrames = 0;
        retire(sounding);
        sounding = std::move(joined);
    }

    Rate rate{};
    int channels;
    TimeMap map;
    FrameQueue<Sample> input;  // what went in, as far back as a new voice may want it
    FrameQueue<Sample> output; // what has come out and was not handed out yet

private:
    using Bank = std::unique_ptr<EngineBank<Format>>;

    static constexpr std::int64_t kMostLeadHops = 14; // Voice::leadHops at the highest speed
    static constexpr int kMostBanks = 2;              // sounding and joined

    std::int64_t fadeFrames() const { return rate.hop / 2; }

    void retire(Bank& bank)
    {
        if (bank)
            idle.push_back(std::move(bank));
    }

    std::vector<Sample> tail;    // what the voice that leaves gives to the fade
    std::int64_t tailFrames = 0; // of it that are there
    std::int64_t mostLag = 0;    // of all voices so far, in hops
    double slowest = 1.0;        // of all speeds so far
    Bank sounding, joined;
    std::vector<Bank> idle;
    int banks = 1;
};

} // namespace detail
} // namespace velora

#endif
