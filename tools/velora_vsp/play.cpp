#include "play.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "interruption.h"
#include "output_format.h"
#include "progress.h"

namespace {

constexpr int kBlockFrames = 8192;

template <class Format>
void playAs(SoundReader& reader, SoundWriter& writer, Samples samples, const SpeedMap& map,
            const Manner& manner, bool showProgress)
{
    using Sample = typename velora::Stream<Format>::Sample;
    velora::Stream<Format> stream(reader.info().samplerate, reader.info().channels, manner.pitch,
                                  manner.sound, manner.material);
    for (const SpeedMap::Step& step : map.steps(stream.sampleRate()))
        stream.setSpeedAt(step.frame, step.speed);
    const size_t width = size_t(stream.channels());
    std::vector<Sample> out;

    forEachBlock(reader, samples, showProgress, [&](const void* frames, int count) {
        const auto* in = static_cast<const Sample*>(frames);
        out.clear();
        stream.process(in, size_t(count), out);
        writer.write(samples, out.data(), int(out.size() / width));
    });

    out.resize(kBlockFrames * width);
    for (int given = kBlockFrames; given == kBlockFrames;) {
        given = int(stream.flush(out.data(), kBlockFrames));
        writer.write(samples, out.data(), given);
        throwIfInterrupted();
    }
}

} // namespace

void forEachBlock(SoundReader& reader, Samples samples, bool showProgress, const TakeBlock& take)
{
    Progress progress(showProgress ? reader.length() : 0);
    std::vector<std::byte> block(kBlockFrames * size_t(reader.info().channels) *
                                 sampleBytes(samples));
    for (int count = kBlockFrames; count == kBlockFrames;) {
        count = reader.read(samples, block.data(), kBlockFrames);
        take(block.data(), count);
        progress.show(reader.position());
        throwIfInterrupted();
    }
}

void play(SoundReader& reader, SoundWriter& writer, const SpeedMap& speed, const Manner& manner,
          bool showProgress)
{
    const auto as = [&](auto format, Samples samples) {
        playAs<decltype(format)>(reader, writer, samples, speed, manner, showProgress);
    };
    switch (samplesFor(reader.info().format)) {
    case Samples::int16:
        return as(int16_t(), Samples::int16);
    case Samples::int24:
        return as(velora::Int24In32(), Samples::int24);
    case Samples::int32:
        return as(int32_t(), Samples::int32);
    default:
        return as(float(), Samples::float32);
    }
}
