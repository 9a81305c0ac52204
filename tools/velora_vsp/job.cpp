#include "job.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <vector>

#include "aligned_stream.h"
#include "error.h"
#include "interruption.h"
#include "output_file.h"
#include "output_format.h"
#include "progress.h"
#include "sound_file.h"

namespace fs = std::filesystem;

namespace {

constexpr int kBlockFrames = 8192;

Velora_BitDepth_T engineFormat(Samples samples)
{
    switch (samples) {
    case Samples::int16:
        return Velora_BitDepth_16;
    case Samples::int24:
        return Velora_BitDepth_24;
    case Samples::int32:
        return Velora_BitDepth_32;
    default:
        return Velora_BitDepth_Float;
    }
}

// Calls use(frames, count) for every block of the file.
template <class Use>
void forEachBlock(SoundReader& reader, Samples samples, Use use)
{
    Progress progress(reader.length());
    std::vector<std::byte> block(kBlockFrames * frameBytes(samples));
    for (int count = kBlockFrames; count == kBlockFrames;) {
        count = reader.read(samples, block.data(), kBlockFrames);
        use(block.data(), count);
        progress.show(reader.position());
        throwIfInterrupted();
    }
}

void play(SoundReader& reader, SoundWriter& writer, const Options& options)
{
    const Samples samples = std::min(samplesFor(reader.info().format), Samples::float32);
    AlignedStream stream(
        reader.info().samplerate, engineFormat(samples), options.speed, options.engineSpeed,
        [&](const void* frames, int count) { writer.write(samples, frames, count); });
    forEachBlock(reader, samples,
                 [&](const void* frames, int count) { stream.process(frames, count); });
    stream.finish();
}

// At speed 1.0 nothing passes the engine, which is 16 bits wide inside.
void copySamples(SoundReader& reader, SoundWriter& writer)
{
    const Samples samples = samplesFor(reader.info().format);
    forEachBlock(reader, samples,
                 [&](const void* frames, int count) { writer.write(samples, frames, count); });
}

void copyBytes(const Options& options, const fs::path& to)
{
    std::ifstream in(options.input, std::ios::binary);
    std::ofstream out(to, std::ios::binary);
    std::vector<char> block(65536);
    while (in.read(block.data(), std::streamsize(block.size())), in.gcount() > 0) {
        out.write(block.data(), in.gcount());
        throwIfInterrupted();
    }
    out.close();
    if (in.bad() || !out)
        throw FileError(options.output, "can't be written: is the disk full?");
}

int64_t outputLength(const SoundReader& reader, double speed)
{
    return std::llround(double(std::max<int64_t>(reader.length(), 0)) / speed);
}

} // namespace

void changeSpeed(const Options& options)
{
    SoundReader reader(options.input);
    SF_INFO info = reader.info();
    info.format = chooseOutputFormat(options.output, reader.info());
    checkOutputSize(options.output, info, outputLength(reader, options.speed));
    OutputFile output(options.output, options.input, options.overwrite);

    const bool isCopy = options.speed == 1.0;
    if (isCopy && info.format == reader.info().format && isLossy(info.format)) {
        copyBytes(options, output.temporary()); // encoding again would change the samples
    } else {
        SoundWriter writer(options.output, output.temporary(), info);
        writer.copyStrings(reader.handle());
        if (isCopy)
            copySamples(reader, writer);
        else
            play(reader, writer, options);
        writer.close();
    }
    output.keep();
}
