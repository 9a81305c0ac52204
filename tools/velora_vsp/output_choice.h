// Which kind of file the output becomes, and how sound is written in it: the extension of its name
// chooses the container; the input's encoding is kept if the container takes it, otherwise the
// container's usual one is taken, or the one that loses least.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "av.h"
#include "options.h"
#include "sound_decoder.h"

/// By --format, or else by the name. Throws FileError if neither names a kind of media file.
const AVOutputFormat& chooseContainer(const Options& options);

/// The extension that files have which --format makes. Throws FileError if it names no kind of file.
std::string extensionFor(const std::string& format);

/// The name of what becomes of a file of this name by --codec: the same where such files hold that
/// codec, else with the extension by which files of it go. Throws FileError if there is no such encoder.
std::filesystem::path nameForCodec(const Options& options, const std::filesystem::path& name,
                                   bool hasFilm);

/// Whether the container has room for streams of this codec.
bool holds(const AVOutputFormat& container, AVCodecID codec);

/// Whether files of this container are Ogg, whatever they are called.
bool isOgg(const AVOutputFormat& container);

/// Whether others can read it without a single frame of sound.
bool canBeEmpty(const AVOutputFormat& container);

/// Whether a cover can go with the sound.
bool takesPictures(const AVOutputFormat& container);

/// What the container is to do beyond its habits.
/// @param duration  seconds that will come, or 0
void setMuxing(AvOptions& muxing, const Options& options, double duration);

/// Whether an input of kind `from` is of the same kind.
bool isSameKind(const AVOutputFormat& container, const AVInputFormat& from);

/// Whether decoding and encoding again changes samples.
bool isLossy(AVCodecID codec);

struct Encoding {
    const AVCodec* encoder = nullptr;
    SoundFormat format;
    int bits = 0;                   // of an integer sample; 0: as many as the format has
    int64_t bitRate = 0;            // bits per second; 0: what the encoder thinks right
    std::optional<double> quality;  // as the encoder counts it
    std::optional<int> compression; // as the encoder counts it
};

/// Bits that a sample is worth in the output, as resolutionBits has them; 0 where that has no meaning.
int bitsOf(const Encoding& encoding);

/// For people.
std::string bitsName(int bits);

/// Throws FileError if the container can't hold the channels, or --codec doesn't fit.
Encoding chooseEncoding(const AVOutputFormat& container, const AVFormatContext& input,
                        const AVStream& stream, const SoundDecoder& sound, const Options& options);

/// For people.
std::string describe(const Encoding& encoding);
