// The ways of a stream from input to output: sound through the engine, all else with new times.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "media_input.h"
#include "media_output.h"
#include "options.h"
#include "play.h"
#include "report.h"
#include "sound_decoder.h"
#include "sound_encoder.h"
#include "text_converter.h"
#include "worker.h"

class Track {
public:
    virtual ~Track() = default;
    /// Both throw FileError, ReaderGone or Interrupted.
    virtual void take(AVPacket& packet) = 0;
    virtual void finish() {}
};

class SoundTrack : public Track {
public:
    /// @param course  output times from the start of the part that is played on
    SoundTrack(const MediaInput& input, const AVStream& stream, MediaOutput& output,
               const SpeedMap& course, const Options& options);

    const SoundDecoder& in() const { return decoder; }
    /// Lets a report see what goes in and what comes out.
    void tell(Report& to) { report = &to; }
    /// Frames of it that were played.
    int64_t played() const { return framesPlayed; }
    /// Seconds of media at which these begin.
    double playedFrom() const;
    const SoundEncoder& out() const { return *encoder; }
    const Encoding& encoding() const { return chosen; }

    void take(AVPacket& packet) override;
    void finish() override;

private:
    void pass(const AVPacket* packet);
    void cutToPart(size_t place);
    void begin();

    const MediaInput& input;
    const SpeedMap& course;
    const Options& options;
    Report* report = nullptr;
    SoundDecoder decoder;
    Encoding chosen;
    std::unique_ptr<SoundEncoder> encoder;
    std::unique_ptr<Player> player; // once it is known when the sound begins
    size_t blockBytes;
    Block next; // to be played
    Block made;
    int64_t framesDecoded = 0;
    int64_t framesPlayed = 0;
    std::optional<Worker> writing;
    std::optional<Worker> playing; // gives to that one
};

/// Picture, subtitles and the like: as they are, at other times.
class CopiedTrack : public Track {
public:
    /// @param converter  of text; null for what stays as it is
    CopiedTrack(const MediaInput& input, const AVStream& stream, MediaOutput& output,
                const SpeedMap& course, const Span& part,
                std::unique_ptr<TextConverter> converter = nullptr);

    void take(AVPacket& packet) override;

private:
    double mediaTime(int64_t time) const;
    int64_t outputTime(int64_t time) const;
    void hold(const AVPacket& packet);
    void write(AVPacket& packet);

    const MediaInput& input;
    const AVStream& from;
    MediaOutput& output;
    AVStream& to;
    const SpeedMap& course;
    const Span& part;
    const std::unique_ptr<TextConverter> converter;
    std::vector<AvPtr<AVPacket>>
        held; // before the part, since the last picture that needs no other
    int64_t lastDecoding = INT64_MIN;
};

/// Whether one speed holds throughout, and it is 1.
bool isCopy(const Options& options);
