#include "play.h"

#include <algorithm>
#include <vector>

#include "interruption.h"
#include "output_format.h"
#include "progress.h"

namespace {

constexpr int kBlockFrames = 8192; // whole hops at every rate

// Gives the stream the speed that belongs to where it would hold if set now.
template <class Format>
void steer(velora::Stream<Format>& stream, const SpeedMap& map)
{
    const double rate = stream.sampleRate();
    const double step = double(stream.hopFrames()) / rate * std::max(stream.speed(), 1.0);
    const auto outputIf = [&](double speed) { return stream.changeFrame(speed); };
    const auto mediaIf = [&](double speed) {
        return double(stream.mediaFrameOf(outputIf(speed))) / rate;
    };
    // Where it would hold depends on what it is: a change between vocoder speeds takes longer.
    const double next = map.speedAt(mediaIf(stream.speed()) + 0.5 * step);
    stream.setSpeed(
        map.speedFrom(mediaIf(next), double(outputIf(next)) / rate, step, stream.speed()));
}

template <class Format>
void playAs(SoundReader& reader, SoundWriter& writer, Samples samples, const SpeedMap& map,
            velora::Pitch pitch, bool showProgress)
{
    using Sample = typename velora::Stream<Format>::Sample;
    velora::Stream<Format> stream(reader.info().samplerate, reader.info().channels, pitch);
    const int hop = int(stream.hopFrames());
    const size_t width = size_t(stream.channels());
    std::vector<Sample> out;

    forEachBlock(reader, samples, showProgress, [&](const void* frames, int count) {
        const auto* in = static_cast<const Sample*>(frames);
        out.clear();
        for (int done = 0; done < count; done += hop) {
            steer(stream, map);
            stream.process(in + size_t(done) * width, size_t(std::min(hop, count - done)), out);
        }
        writer.write(samples, out.data(), int(out.size() / width));
    });

    out.resize(size_t(hop) * width);
    for (int given = hop; given == hop;) {
        steer(stream, map);
        given = int(stream.flush(out.data(), size_t(hop)));
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

void play(SoundReader& reader, SoundWriter& writer, const SpeedMap& speed, velora::Pitch pitch,
          bool showProgress)
{
    const auto as = [&](auto format, Samples samples) {
        playAs<decltype(format)>(reader, writer, samples, speed, pitch, showProgress);
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
