#include "sound_pipe.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include <unistd.h>

#include "error.h"
#include "standard_stream.h"

namespace {

WavHeader headerOf(const RawFormat& raw)
{
    WavHeader header;
    header.format = raw.pcm;
    header.rate = raw.rate;
    header.channels = raw.channels;
    return header;
}

// The usual loudspeakers of so many channels: quadro, 5.1 and 7.1 (front, centre, low, back, side).
uint32_t usualSpeakers(int channels)
{
    switch (channels) {
    case 1:
        return 0x4;
    case 2:
        return 0x3;
    case 4:
        return 0x33;
    case 6:
        return 0x3F;
    case 8:
        return 0x63F;
    default:
        return 0;
    }
}

} // namespace

PipeReader::PipeReader(const std::optional<RawFormat>& raw)
{
    if (isatty(STDIN_FILENO) != 0)
        throw FileError(kStandardInput, "is a terminal: pipe sound into it, or name a file");
    header = raw ? headerOf(*raw) : readWavHeader();
    speakerMask = header.speakers;
    soundInfo.samplerate = header.rate;
    soundInfo.channels = header.channels;
    soundInfo.frames = header.dataBytes < 0 ? SF_COUNT_MAX : header.dataBytes / header.frameBytes();
    soundInfo.format =
        header.format->encoding | (header.isExtensible ? SF_FORMAT_WAVEX : SF_FORMAT_WAV);
}

int PipeReader::read(Samples samples, void* out, int frames)
{
    const size_t frameBytes = size_t(header.frameBytes());
    if (length() >= 0)
        frames = int(std::min<int64_t>(frames, length() - framesRead));
    bytes.resize(size_t(frames) * frameBytes);
    const size_t given = readInput(bytes.data(), bytes.size());
    const size_t count = given / frameBytes;
    decodePcm(*header.format, bytes.data(), samples, out, count * size_t(header.channels));
    framesRead += int64_t(count);
    if (given < bytes.size() && length() >= 0)
        failIncomplete(kStandardInput);
    if (given % frameBytes != 0)
        throw FileError(kStandardInput,
                        "ends within a frame of " + std::to_string(frameBytes) +
                            " bytes: it was cut, or has other channels or another format");
    return int(count);
}

PipeWriter::PipeWriter(const SoundReader& input, const std::optional<RawFormat>& raw)
    : isRaw(raw.has_value())
{
    const SF_INFO& info = input.info();
    if (isatty(STDOUT_FILENO) != 0)
        throw FileError(kStandardOutput, "is a terminal, which can't show sound: pipe it into a "
                                         "player, or name a file");
    if (raw && (raw->rate != info.samplerate || raw->channels != info.channels))
        throw FileError(kStandardOutput,
                        "--raw wants " + std::to_string(raw->rate) + " Hz and " +
                            std::to_string(raw->channels) + " channel(s), but the input has " +
                            std::to_string(info.samplerate) + " Hz and " +
                            std::to_string(info.channels) + ": neither is converted");
    header.format = raw ? raw->pcm : &closestPcm(info.format);
    header.rate = info.samplerate;
    header.channels = info.channels;
    header.isExtensible = info.channels > 2 || input.speakers() != 0;
    header.speakers = input.speakers() != 0 ? input.speakers() : usualSpeakers(info.channels);
    if (isRaw)
        return;
    headerPosition = outputPosition();
    const auto start = makeWavHeader(header);
    writeOutput(start.data(), start.size());
}

void PipeWriter::write(Samples samples, const void* in, int frames)
{
    bytes.resize(size_t(frames) * size_t(header.frameBytes()));
    encodePcm(*header.format, bytes.data(), samples, in, size_t(frames) * size_t(header.channels));
    writeOutput(bytes.data(), bytes.size());
    framesWritten += frames;
}

void PipeWriter::close()
{
    if (headerPosition < 0)
        return;
    header.dataBytes = framesWritten * header.frameBytes();
    if (header.dataBytes % 2 != 0)
        writeOutput("", 1); // chunks are padded
    const auto start = makeWavHeader(header);
    rewriteOutput(headerPosition, start.data(), start.size());
}
