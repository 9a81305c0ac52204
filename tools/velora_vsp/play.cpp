#include "play.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace {

constexpr size_t kFlushFrames = 8192;

// A vector of samples for the Stream, bytes for all others.
template <class Format>
class StreamPlayer : public Player {
    using Sample = typename velora::Stream<Format>::Sample;

public:
    StreamPlayer(int rate, int channels, const SpeedMap& speed, double start, const Manner& manner)
        : stream(rate, channels, manner.pitch, manner.sound, manner.material)
    {
        const auto offset = std::llround(start * rate);
        for (const SpeedMap::Step& step : speed.steps(rate))
            stream.setSpeedAt(std::max<int64_t>(step.frame - offset, 0), step.speed);
    }

    void play(const Block& in, Block& out) override
    {
        const size_t frames = in.size() / frameBytes();
        out.resize(stream.maxOutputFrames(frames) * frameBytes());
        const size_t given = stream.process(reinterpret_cast<const Sample*>(in.data()), frames,
                                            samplesOf(out), out.size() / frameBytes());
        out.resize(given * frameBytes());
    }

    bool flush(Block& out) override
    {
        out.resize(kFlushFrames * frameBytes());
        out.resize(size_t(stream.flush(samplesOf(out), kFlushFrames)) * frameBytes());
        return !out.empty();
    }

private:
    size_t frameBytes() const { return size_t(stream.channels()) * sizeof(Sample); }
    static Sample* samplesOf(Block& block) { return reinterpret_cast<Sample*>(block.data()); }

    velora::Stream<Format> stream;
};

class Copier : public Player {
public:
    void play(const Block& in, Block& out) override { out = in; }
    bool flush(Block&) override { return false; }
};

} // namespace

std::string pitchNotice(double speed)
{
    char number[16];
    std::snprintf(number, sizeof number, "%g", speed);
    for (const double slowed : kTapeSpeeds)
        if (float(speed) == float(slowed))
            return "at speed " + std::string(number) +
                   " the pitch drops with the speed, as on a slowed tape (--keep-pitch keeps it)";
    return {};
}

std::unique_ptr<Player> makePlayer(Samples samples, int rate, int channels, const SpeedMap& speed,
                                   double start, const Manner& manner)
{
    const auto make = [&](auto format) -> std::unique_ptr<Player> {
        return std::make_unique<StreamPlayer<decltype(format)>>(rate, channels, speed, start,
                                                                manner);
    };
    switch (samples) {
    case Samples::int16:
        return make(int16_t());
    case Samples::int24:
        return make(velora::Int24In32());
    case Samples::int32:
        return make(int32_t());
    default:
        return make(float());
    }
}

std::unique_ptr<Player> makeCopier()
{
    return std::make_unique<Copier>();
}
