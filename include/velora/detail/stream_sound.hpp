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

/// Format of a stream whose samples are std::int32_t holding sign-extended 24-bit values,
/// -8388608..8388607.
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
        for (int channel = 0; channel < channels; channel += 2)
            engines.emplace_back(Velora_VSP_Factory::Create());
        engines[0]->Init(sampleRate, FormatTraits<Format>::kBitDepth);
        workingHop = engines[0]->GetPredictedInputFrameSize(1);
        in.resize(2 * std::size_t(hop()));
        out.resize(in.size() * kMostHopsPerHop);
    }

    int shift() const { return sampleRate <= 48000 ? 0 : sampleRate <= 96000 ? 1 : 2; }
    std::int64_t hop() const { return std::int64_t(workingHop) << shift(); }

    /// Brings the engines to where the vocoder has seen nothing but silence and the next hop is
    /// played at `speed`, without a transition. A transition counts down by a whole hop for every
    /// call, however short, and at speed 0.5 a call costs next to nothing.
    void prime(float speed)
    {
        std::fill(in.begin(), in.end(), Sample(0));
        for (auto& engine : engines) {
            engine->Init(sampleRate, FormatTraits<Format>::kBitDepth);
            engine->SetPar(0.5f);
            for (int frames = 0; frames < kTransitionFrames; frames += workingHop)
                engine->Exe(out.data(), in.data(), 1 << shift());
        }
        glide(speed);
    }

    /// Changes the speed from the next hop on.
    void glide(float speed)
    {
        for (auto& engine : engines) {
            engine->SetPar(speed);
            engine->Exe(out.data(), in.data(), 0); // what it allocates or frees, it does now
        }
    }

    /// Runs a hop. Of the frames it gives, `count` from `skip` on go to `dst`.
    void feed(Sample* dst, const Sample* src, std::int64_t skip, std::int64_t count)
    {
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
    }

private:
    static constexpr int kTransitionFrames = 6144; // working-rate frames from 1.0 to another speed
    static constexpr std::size_t kMostHopsPerHop = 8; // at the slowest speed

    struct Destroy {
        void operator()(Velora_VSP_Interface* engine) const { Velora_VSP_Factory::Destroy(engine); }
    };

    int channels;
    int sampleRate;
    int workingHop = 0;
    std::vector<std::unique_ptr<Velora_VSP_Interface, Destroy>> engines;
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
        for (auto* bank : {&sounding, &joined, &primed})
            retire(*bank);
        input.clear();
        output.clear();
        times.reset();
    }

    /// Does all that `voice` may need when it is put in force, so that processing allocates
    /// nothing. Strong exception guarantee.
    void prepare(const Voice& voice, const Schedule& schedule)
    {
        const double hop = double(rate.hop);
        const double inside =
            (double(schedule.input) - times.mediaAt(schedule.ready())) / hop; // hops of media
        const double waiting =
            inside + double(voice.lagHops() + schedule.now.lagHops() + schedule.next.lagHops());
        times.reserveOneChange();
        input.reserve(std::int64_t((waiting + kMostLeadHops + 4) * hop));
        output.reserve(schedule.ready() - schedule.taken +
                       std::int64_t(((waiting + 2) / voice.speed + 2) * hop));
        if (voice.isDry() || (!schedule.joining && schedule.now.glidesTo(voice)))
            return;
        if (!primed) {
            if (idle.empty())
                idle.push_back(std::make_unique<EngineBank<Format>>(channels, rate.sampleRate));
            primed = std::move(idle.back());
            idle.pop_back();
        }
        primed->prime(voice.engineSpeed);
    }

    /// Forgets input that no voice will want: one that joins may start this far before the media
    /// time that it joins at.
    void dropHistory(const Schedule& schedule)
    {
        const std::int64_t media = std::int64_t(times.mediaAt(schedule.ready()));
        input.dropBefore((media / rate.hop - kMostLeadHops) * rate.hop);
    }

    // ---- Called by the schedule ----

    double mediaAt(std::int64_t frame) const { return times.mediaAt(frame); }
    void turn(std::int64_t frame, double media, double speed) { times.turn(frame, media, speed); }
    void glide(float speed) { sounding->glide(speed); }

    void feed(Schedule::Role role, const Voice& voice, std::int64_t frames)
    {
        const Sample* const source = input.at(voice.fed);
        if (role == Schedule::Role::tail) {
            sounding->feed(tail.data(), source, 0, std::min(frames, fadeFrames()));
        } else {
            const std::int64_t skip =
                std::min(std::max<std::int64_t>(output.end() - voice.end, 0), frames);
            auto& bank = role == Schedule::Role::joining ? joined : sounding;
            bank->feed(output.append(frames - skip), source, skip, frames - skip);
        }
    }

    void copy(Schedule::Role role, const Voice& voice, std::int64_t frames)
    {
        const bool isTail = role == Schedule::Role::tail;
        if (isTail)
            frames = std::min(frames, fadeFrames());
        Sample* const to = isTail ? tail.data() : output.append(frames);
        std::copy_n(input.at(voice.fed), frames * channels, to);
    }

    void join(const Voice& voice, std::int64_t frame)
    {
        cancel(frame);
        if (!voice.isDry())
            joined = std::move(primed);
    }

    void cancel(std::int64_t frame)
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
        retire(sounding);
        sounding = std::move(joined);
    }

    Rate rate{};
    int channels;
    TimeMap times;
    FrameQueue<Sample> input;  // what went in, as far back as a new voice may want it
    FrameQueue<Sample> output; // what has come out and was not handed out yet

private:
    using Bank = std::unique_ptr<EngineBank<Format>>;

    static constexpr std::int64_t kMostLeadHops = 14; // Voice::leadHops at the highest speed
    static constexpr std::size_t kMostBanks = 3;      // sounding, joined and primed

    std::int64_t fadeFrames() const { return rate.hop / 2; }

    void retire(Bank& bank)
    {
        if (bank)
            idle.push_back(std::move(bank));
    }

    std::vector<Sample> tail; // what the sounding voice gives to the fade
    Bank sounding, joined, primed;
    std::vector<Bank> idle;
};

} // namespace detail
} // namespace velora

#endif
