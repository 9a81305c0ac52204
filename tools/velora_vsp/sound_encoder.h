// One sound track of an output, from samples in a row to packets.
#pragma once

#include <cstdint>
#include <memory>

extern "C" {
#include <libavutil/audio_fifo.h>
}

#include "av.h"
#include "media_output.h"
#include "output_choice.h"
#include "samples.h"

class SoundEncoder {
public:
    /// Adds a stream to the output.
    /// @param samples  what write takes, with this layout and rate
    /// @param isLow24       leaves 24-bit samples at the bottom of 32 bits
    /// @param isFromEngine  which ends integers at full scale, whatever they would have been
    /// Throws FileError if the encoder can't be had.
    SoundEncoder(MediaOutput& output, const Encoding& encoding, Samples samples,
                 const SoundFormat& from, bool isLow24, bool isFromEngine);

    AVStream& stream() const { return track; }
    /// Bits per second that the encoder took, which may be near those asked for.
    int64_t bitRate() const;
    /// Frames written so far, before any change of rate.
    int64_t position() const { return framesIn; }

    /// Samples so far that full scale cut: integers that the engine left there, and what is beyond it
    /// once its rate is the encoder's, unless this keeps that.
    int64_t clippedSamples() const { return clipped; }

    /// To be called before the first frame, which will sound so many seconds after the start.
    void startAt(double seconds);
    /// Throws what MediaOutput::write does.
    void write(const Block& block);
    void finish();

private:
    bool isFloat() const { return kind == Samples::float32 || kind == Samples::float64; }
    bool changesRate() const { return source.rate != codec->sample_rate; }
    const Block& prepare(const Block& block);
    void convert(const uint8_t* const* data, int count);
    void queue(const uint8_t* const* data, int count);
    int64_t length() const; // that the frames written have at the rate of the output
    void padTo(int64_t length);
    AvPtr<AVFrame> makeFrame(int frames) const;
    void encode(int most);
    void send(const AVFrame* frame);

    MediaOutput& output;
    AVStream& track;
    AvPtr<AVCodecContext> codec;
    AvPtr<SwrContext> resampler; // null where the encoder takes what comes
    AvPtr<AVPacket> packet{av_packet_alloc()};
    struct FreeFifo {
        void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
    };
    std::unique_ptr<AVAudioFifo, FreeFifo> waiting;
    Samples kind;
    SoundFormat source;
    bool isLow24;
    bool isFromEngine;
    bool keepsFloats = false; // beyond full scale, too
    bool isLimited = false;   // what the encoder takes for numbers is numbers
    Block prepared;
    Block converted;
    int64_t start = 0; // in frames of the output
    int64_t framesIn = 0;
    int64_t clipped = 0;
    int64_t framesConverted = 0;
    int64_t framesSent = 0;
};
