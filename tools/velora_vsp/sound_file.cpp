#include "sound_file.h"

#include <array>
#include <cstdint>
#include <regex>
#include <string>
#include <system_error>
#include <type_traits>

#include "error.h"
#include "output_format.h"

namespace {

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

// Whether a container claims more data than there is, by libsndfile's log of what it corrected.
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

FileReader::FileReader(const std::filesystem::path& path) : name(path)
{
    file.reset(sf_open(path.c_str(), SFM_READ, &soundInfo));
    if (file == nullptr) {
        std::error_code error;
        const bool isEmpty = std::filesystem::file_size(path, error) == 0;
        const bool isUnknown = sf_error(nullptr) == SF_ERR_UNRECOGNISED_FORMAT;
        throw FileError(name, error     ? "can't be opened: " + error.message()
                              : isEmpty ? "is empty: a sound file is needed"
                              : isUnknown
                                  ? "is no kind of sound file that is known here (samples without "
                                    "a header go in through -, with --raw)"
                                  : std::string("can't be read: ") + sf_strerror(nullptr));
    }
    refuseCutData();
}

void FileReader::refuseCutData() const
{
    std::array<char, 16384> log{};
    sf_command(file.get(), SFC_GET_LOG_INFO, log.data(), int(log.size()));
    // An Ogg stream whose end can't be found has lost it; others may leave the length out.
    const bool hasLostEnd =
        length() < 0 && (soundInfo.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG;
    if (hasLostEnd || claimsMoreThanThereIs(log.data()))
        throw FileError(name, "is incomplete: it ends before the sound it announces does");
}

int FileReader::read(Samples samples, void* out, int frames)
{
    const int count = withType(samples, [&](auto* type) {
        return int(readFrames(file.get(), static_cast<decltype(type)>(out), frames));
    });
    framesRead += count;
    if (samples == Samples::int24)
        for (int n = 0; n < count * soundInfo.channels; ++n)
            static_cast<int32_t*>(out)[n] >>= kInt24Shift;
    if (sf_error(file.get()) != SF_ERR_NO_ERROR)
        throw FileError(name, std::string("can't be read to the end: ") + sf_strerror(file.get()));
    if (count < frames && framesRead < length())
        failIncomplete(name);
    return count;
}

FileWriter::FileWriter(const std::filesystem::path& outputName,
                       const std::filesystem::path& outputPath, const SF_INFO& info)
    : name(outputName), path(outputPath), fileInfo(info)
{
    SF_INFO opened = info;
    file.reset(sf_open(path.c_str(), SFM_WRITE, &opened));
    if (file == nullptr)
        throw FileError(name, "can't be written with " + std::to_string(info.channels) +
                                  " channel(s) at " + std::to_string(info.samplerate) +
                                  " Hz: " + sf_strerror(nullptr));
    sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

void FileWriter::describeLike(const SoundReader& reader)
{
    if (reader.handle() == nullptr)
        return;
    // A container without room for something goes without it.
    for (int kind = SF_STR_FIRST; kind <= SF_STR_LAST; ++kind)
        if (const char* text = sf_get_string(reader.handle(), kind))
            sf_set_string(file.get(), kind, text);
    std::vector<int> speakers(size_t(fileInfo.channels));
    const int bytes = int(speakers.size() * sizeof speakers[0]);
    if (sf_command(reader.handle(), SFC_GET_CHANNEL_MAP_INFO, speakers.data(), bytes) == SF_TRUE)
        sf_command(file.get(), SFC_SET_CHANNEL_MAP_INFO, speakers.data(), bytes);
}

void FileWriter::write(Samples samples, const void* in, int frames)
{
    if (samples == Samples::int24) {
        const auto* source = static_cast<const int32_t*>(in);
        shifted.assign(source, source + size_t(frames) * size_t(fileInfo.channels));
        for (int32_t& sample : shifted)
            sample = int32_t(uint32_t(sample) << kInt24Shift);
        in = shifted.data();
    }
    const sf_count_t written = withType(samples, [&](auto* type) {
        using Sample = std::remove_pointer_t<decltype(type)>;
        return writeFrames(file.get(), static_cast<const Sample*>(in), frames);
    });
    framesWritten += written;
    if (written != frames)
        throw FileError(name, "can't be written: is the disk full?");
    checkOutputSize(name, fileInfo, framesWritten);
}

// Encoders lose frames silently on a full disk, at the latest when they are closed, and announce
// them all the same: only reading tells.
void FileWriter::close()
{
    const bool isClosed = sf_close(file.release()) == 0;
    const bool isComplete = isReadable();
    if (framesWritten == 0 && !isComplete)
        throw FileError(name, "this kind of file can't be empty, but the input has no frames: "
                              "give another extension, such as .wav");
    if (!isClosed || !isComplete)
        throw FileError(name, "couldn't be written completely: is the disk full?");
}

bool FileWriter::isReadable() const
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
