#include "job.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include <velora/stream.hpp>

#include "error.h"
#include "interruption.h"
#include "output_file.h"
#include "output_format.h"
#include "play.h"
#include "samples.h"
#include "sound_file.h"
#include "sound_pipe.h"
#include "standard_stream.h"

namespace fs = std::filesystem;

namespace {

using AnyStream = velora::Stream<>; // limits are the same for every format

fs::path inputPath(const Options& options)
{
    return options.input == kPipe ? "/dev/stdin" : options.input;
}

bool isCopy(const Options& options)
{
    return options.speed.isConstant() && options.speed.holds(1.0);
}

std::unique_ptr<SoundReader> openInput(const Options& options)
{
    std::unique_ptr<SoundReader> reader;
    std::error_code none;
    const bool isNamedPipe = options.input != kPipe && fs::is_fifo(options.input, none);
    if (isNamedPipe)
        takeInputFrom(options.input); // libsndfile would wait for it through any interruption
    if (options.input == kPipe || isNamedPipe)
        reader = std::make_unique<PipeReader>(options.raw);
    else
        reader = std::make_unique<FileReader>(options.input);
    const SF_INFO& info = reader->info();
    const fs::path name = options.input == kPipe ? kStandardInput : options.input;
    if (info.channels < 1 || info.channels > AnyStream::kMostChannels)
        throw FileError(name, "has " + std::to_string(info.channels) + " channels: 1 to " +
                                  std::to_string(AnyStream::kMostChannels) + " are possible");
    if (info.samplerate < AnyStream::kLowestRate || info.samplerate > AnyStream::kHighestRate)
        throw FileError(name, "has a sample rate of " + std::to_string(info.samplerate) +
                                  " Hz: " + std::to_string(AnyStream::kLowestRate) + " to " +
                                  std::to_string(AnyStream::kHighestRate) + " Hz are possible");
    return reader;
}

// At speed 1.0 nothing passes the engine, which is 16 bits wide inside.
void copySamples(SoundReader& reader, SoundWriter& writer, bool showProgress)
{
    const Samples samples = samplesFor(reader.info().format);
    forEachBlock(reader, samples, showProgress,
                 [&](const void* frames, int count) { writer.write(samples, frames, count); });
}

void convert(SoundReader& reader, SoundWriter& writer, const Options& options)
{
    if (isCopy(options))
        copySamples(reader, writer, !options.quiet);
    else
        play(reader, writer, options.speed,
             {options.keepPitch ? velora::Pitch::keep : velora::Pitch::drop, options.sound,
              options.material},
             !options.quiet);
    writer.close();
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

// In frames, not rounded.
double idealLength(const Options& options, int64_t frames, int rate)
{
    return options.speed.isConstant() ? double(frames) / options.speed.speedAt(0.0)
                                      : options.speed.outputAt(double(frames) / rate) * rate;
}

// Gives the numbers of frames in and out.
std::pair<int64_t, int64_t> toPipe(SoundReader& reader, const Options& options)
{
    std::error_code none;
    if (fs::is_regular_file("/dev/stdout", none) &&
        fs::equivalent(inputPath(options), "/dev/stdout", none))
        throw FileError(kStandardOutput, "is the input file itself");
    PipeWriter writer(reader, options.raw);
    convert(reader, writer, options);
    return {reader.position(), writer.position()};
}

std::pair<int64_t, int64_t> toFile(SoundReader& reader, const Options& options)
{
    SF_INFO info = reader.info();
    info.format = chooseOutputFormat(options.output, reader.info());
    const int64_t expected = std::max<int64_t>(reader.length(), 0);
    checkOutputSize(options.output, info,
                    std::llround(idealLength(options, expected, info.samplerate)));
    OutputFile output(options.output, inputPath(options), options.overwrite);

    std::pair<int64_t, int64_t> counts{expected, expected};
    if (isCopy(options) && info.format == reader.info().format && isLossy(info.format)) {
        copyBytes(options, output.temporary()); // encoding again would change the samples
    } else {
        FileWriter writer(options.output, output.temporary(), info);
        writer.describeLike(reader);
        convert(reader, writer, options);
        counts = {reader.position(), writer.position()};
    }
    output.keep();
    return counts;
}

} // namespace

Summary changeSpeed(const Options& options)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const auto reader = openInput(options);
    Summary summary;
    summary.samples = samplesFor(reader->info().format);
    summary.rate = reader->info().samplerate;
    summary.channels = reader->info().channels;
    std::tie(summary.framesIn, summary.framesOut) =
        options.output == kPipe ? toPipe(*reader, options) : toFile(*reader, options);
    summary.framesIdeal = idealLength(options, summary.framesIn, summary.rate);
    summary.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return summary;
}
