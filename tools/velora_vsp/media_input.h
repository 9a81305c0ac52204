// A media file or pipe that is read packet by packet, whatever its kind.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "av.h"
#include "bytes.h"
#include "error.h"
#include "ogg_pages.h"
#include "raw_format.h"

/// Thrown for a file whose content is nothing that can be played.
class NoMedia : public FileError {
public:
    using FileError::FileError;
};

/// Thrown where the content shows no kind at all: samples without a header, for one.
class UnknownMedia : public NoMedia {
public:
    using NoMedia::NoMedia;
};

class MediaInput {
public:
    /// Finds out what the input is, unless told. Throws NoMedia, any other FileError, or Interrupted.
    /// @param stored  as Bytes::input has it
    MediaInput(const std::string& path, const std::optional<RawFormat>& raw,
               int stored = Bytes::kNotStored);

    AVFormatContext& format() const { return *context; }
    const std::string& name() const { return bytes.name(); }

    /// Whether there is a picture that moves.
    bool hasFilm() const;
    /// The index of the sound that a player would choose; -1 if there is none.
    int bestSound() const;

    /// Reads the next packet; false at the end. Throws FileError, or Interrupted.
    bool read(AVPacket& packet);

    /// Seconds from the start of the file's clock at which the first of its streams begins.
    double startTime() const { return beginning; }
    /// Seconds of media that have been read.
    double position() const { return end - startTime(); }
    /// Seconds of media that there are, or seem to be; 0 if nothing tells.
    double duration() const;
    /// Where the input ends before all that its header announces; empty if it doesn't.
    /// @param lastIsDamaged  whether what was read last can't be decoded
    std::string whatIsMissing(bool lastIsDamaged) const;

    /// Goes to the last packet of a stream before `time`, in its time base, from which decoding may begin;
    /// false if the file can't be gone back in.
    bool seek(const AVStream& stream, int64_t time);

    /// Seconds of media at which times began anew, from where on they go on; 0 if they never did.
    double turningPoint() const { return turn; }

private:
    void open(const std::optional<RawFormat>& raw);
    double findStart() const;
    double playedDuration() const;
    double announcedDuration() const;
    double countedDuration() const;
    bool isCountedInFrames() const;
    bool readNext(AVPacket& packet);
    void makeContinuous(AVPacket& packet);
    uint8_t* endSkip(const AVPacket& packet) const;
    [[noreturn]] void failUnreadable(int error);

    Bytes bytes;
    OggPages pages; // of an Ogg file
    struct Close {
        void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
    };
    std::unique_ptr<AVFormatContext, Close> context;
    AvPtr<AVPacket> ahead;  // was read already
    double announced = 0.0; // seconds of media that the header promises; 0 if it doesn't
    double beginning = 0.0; // as startTime has it
    double end = 0.0;       // of what was read, in seconds of the file's clock
    struct Clock {
        double next = -1e9;  // seconds at which the next packet should come
        size_t restarts = 0; // of its times
    };
    std::vector<Clock> clocks;       // of the streams
    std::vector<double> shifts{0.0}; // by which times come later, in seconds, after each restart
    double turn = 0.0;               // as turningPoint has it
    bool endsInPacket = false;       // by the last one that was read
    std::string problem;
};

/// Whether this is a cover rather than a film.
inline bool isPicture(const AVStream& stream)
{
    return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

/// The name of a stream's codec, as people write it.
inline std::string codecName(const AVStream& stream)
{
    return avcodec_get_name(stream.codecpar->codec_id);
}
