#include "sound_file.h"

#include <array>
#include <regex>
#include <string>

#include "error.h"
#include "output_format.h"

namespace {

constexpr int kLowestRate = 8000;
constexpr int kHighestRate = 192000;

// libsndfile has 24-bit samples at the top of an int32_t, the engine at the bottom.
constexpr int kInt24Shift = 8;

sf_count_t readFrames(SNDFILE* file, int16_t* out, int frames)
{
    return sf_readf_short(file, out, frames);
}
sf_count_t readFrames(SNDFILE* file, int32_t* out, int frames)
{
    return sf_readf_int(file, out, frames);
}
sf_count_t readFrames(SNDFILE* file, float* out, int frames)
{
    return sf_readf_float(file, out, frames);
}
sf_count_t readFrames(SNDFILE* file, double* out, int frames)
{
    return sf_readf_double(file, out, frames);
}

sf_count_t writeFrames(SNDFILE* file, const int16_t* in, int frames)
{
    return sf_writef_short(file, in, frames);
}
sf_count_t writeFrames(SNDFILE* file, const int32_t* in, int frames)
{
    return sf_writef_int(file, in, frames);
}
sf_count_t writeFrames(SNDFILE* file, const float* in, int frames)
{
    return sf_writef_float(file, in, frames);
}
sf_count_t writeFrames(SNDFILE* file, const double* in, int frames)
{
    return sf_writef_double(file, in, frames);
}

// Calls `use` with a null pointer of the C++ type of the samples.
template <class Use>
auto withType(Samples samples, Use use)
{
    switch (samples) {
    case Samples::int16:
        return use(static_cast<int16_t*>(nullptr));
    case Samples::float32:
        return use(static_cast<float*>(nullptr));
    case Samples::float64:
        return use(static_cast<double*>(nullptr));
    default:
        return use(static_cast<int32_t*>(nullptr));
    }
}

template <class Sample>
int readStereo(SNDFILE* file, int channels, Sample* out, int frames)
{
    const int count = int(readFrames(file, out, frames));
    if (channels == 1)
        for (int n = count - 1; n >= 0; --n)
            out[2 * n] = out[2 * n + 1] = out[n];
    return count;
}

// The sizes that containers claim for their data, where libsndfile has corrected them, from its
// log.
bool claimsMoreThanThereIs(const std::string& log)
{
    static const std::regex kCorrected(
        R"((?:data|SSND|BODY|Data Size|Riff size|riff) *: (\d+) \(should be (\d+)\))");
    for (std::sregex_iterator match(log.begin(), log.end(), kCorrected), none; match != none;
         ++match) {
        const uint64_t claimed = std::stoull((*match)[1]);
        const uint64_t actual = std::stoull((*match)[2]);
        // What recorders into a pipe write, who can't know.
        const bool isUnknown =
            claimed == 0xFFFFFFFF || claimed == 0x7FFFFFFF || claimed == 0x7FFFF000;
        if (claimed > actual && !isUnknown)
            return true;
    }
    return false;
}

} // namespace

Samples samplesFor(int format)
{
    const int bits = resolutionBits(format);
    return bits <= 16   ? Samples::int16
           : bits <= 24 ? Samples::int24
           : bits <= 32 ? Samples::int32
           : bits == 33 ? Samples::float32
                        : Samples::float64;
}

size_t frameBytes(Samples samples)
{
    return withType(samples, [](auto* type) { return 2 * sizeof *type; });
}

SoundReader::SoundReader(const std::filesystem::path& path) : name(path)
{
    file.reset(sf_open(path.c_str(), SFM_READ, &fileInfo));
    if (file == nullptr) {
        std::error_code error;
        const bool isEmpty = std::filesystem::file_size(path, error) == 0;
        throw FileError(name, error     ? "can't be opened: " + error.message()
                              : isEmpty ? "is empty: a sound file is needed"
                                        : std::string("can't be read as a sound file: ") +
                                              sf_strerror(nullptr));
    }
    if (fileInfo.channels > 2)
        throw FileError(name, "has " + std::to_string(fileInfo.channels) +
                                  " channels: mono or stereo is needed");
    if (fileInfo.samplerate < kLowestRate || fileInfo.samplerate > kHighestRate)
        throw FileError(name, "has a sample rate of " + std::to_string(fileInfo.samplerate) +
                                  " Hz: 8000 to 192000 Hz are possible");
    refuseCutData();
}

int64_t SoundReader::length() const
{
    return fileInfo.frames == SF_COUNT_MAX ? -1 : fileInfo.frames;
}

void SoundReader::refuseCutData() const
{
    std::array<char, 16384> log{};
    sf_command(file.get(), SFC_GET_LOG_INFO, log.data(), int(log.size()));
    // An Ogg stream whose end can't be found has lost it; other containers may leave the length
    // out.
    const bool hasLostEnd = length() < 0 && (fileInfo.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG;
    if (hasLostEnd || claimsMoreThanThereIs(log.data()))
        throw FileError(name, "is incomplete: it ends before the sound it announces does");
}

int SoundReader::read(Samples samples, void* out, int frames)
{
    const int count = withType(samples, [&](auto* type) {
        return readStereo(file.get(), fileInfo.channels, static_cast<decltype(type)>(out), frames);
    });
    framesRead += count;
    if (samples == Samples::int24)
        for (int n = 0; n < 2 * count; ++n)
            static_cast<int32_t*>(out)[n] >>= kInt24Shift;
    if (sf_error(file.get()) != SF_ERR_NO_ERROR)
        throw FileError(name, std::string("can't be read to the end: ") + sf_strerror(file.get()));
    if (count < frames && framesRead < length())
        throw FileError(name, "is incomplete: it ends after " + std::to_string(framesRead) +
                                  " of " + std::to_string(length()) + " frames");
    return count;
}

SoundWriter::SoundWriter(const std::filesystem::path& outputName,
                         const std::filesystem::path& outputPath, const SF_INFO& info)
    : name(outputName), path(outputPath), fileInfo(info)
{
    SF_INFO opened = info;
    file.reset(sf_open(path.c_str(), SFM_WRITE, &opened));
    if (file == nullptr)
        throw FileError(name, "can't be written: " + std::string(sf_strerror(nullptr)) + " (" +
                                  std::to_string(info.samplerate) + " Hz, " +
                                  std::to_string(info.channels) + " channel(s))");
    sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

void SoundWriter::copyStrings(SNDFILE* from)
{
    for (int kind = SF_STR_FIRST; kind <= SF_STR_LAST; ++kind)
        if (const char* text = sf_get_string(from, kind))
            sf_set_string(file.get(), kind, text); // a container without room for it goes without
}

void SoundWriter::write(Samples samples, const void* in, int frames)
{
    scratch.resize(size_t(frames) * frameBytes(samples));
    const sf_count_t written = withType(samples, [&](auto* type) {
        const auto* source = static_cast<const std::remove_pointer_t<decltype(type)>*>(in);
        auto* out = reinterpret_cast<decltype(type)>(scratch.data());
        const int step = 2 / fileInfo.channels;
        for (int n = 0; n < frames * fileInfo.channels; ++n)
            out[n] = source[n * step];
        if constexpr (std::is_same_v<decltype(type), int32_t*>)
            if (samples == Samples::int24)
                for (int n = 0; n < frames * fileInfo.channels; ++n)
                    out[n] = int32_t(uint32_t(out[n]) << kInt24Shift);
        return writeFrames(file.get(), out, frames);
    });
    framesWritten += written;
    if (written != frames)
        throw FileError(name, "can't be written: is the disk full?");
}

// Encoders lose frames silently on a full disk, at the latest when they are closed, and announce
// them all the same: only reading tells.
void SoundWriter::close()
{
    const bool isClosed = sf_close(file.release()) == 0;
    const bool isComplete = isReadable();
    if (framesWritten == 0 && !isComplete)
        throw FileError(name, "this kind of file can't be empty, but the input has no frames: "
                              "give another extension, such as .wav");
    if (!isClosed || !isComplete)
        throw FileError(name, "couldn't be written completely: is the disk full?");
}

bool SoundWriter::isReadable() const
{
    SF_INFO info{};
    const int container = fileInfo.format & SF_FORMAT_TYPEMASK;
    if (container == SF_FORMAT_RAW)
        info = fileInfo;
    const SoundFilePtr written(sf_open(path.c_str(), SFM_READ, &info));
    if (written == nullptr || info.frames < framesWritten)
        return false;
    if (container != SF_FORMAT_FLAC && container != SF_FORMAT_OGG && container != SF_FORMAT_MPEG)
        return true;
    std::vector<float> block(8192 * size_t(info.channels));
    int64_t framesRead = 0;
    while (const sf_count_t count = sf_readf_float(written.get(), block.data(), 8192))
        framesRead += count;
    return framesRead >= framesWritten;
}
