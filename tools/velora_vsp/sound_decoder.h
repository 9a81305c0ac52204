// One sound track of an input, from packets to samples in a row, all of one kind whatever happens in
// the middle of the track.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "av.h"
#include "media_input.h"
#include "mp3_tags.h"
#include "resampler.h"
#include "samples.h"

/// What is made of the packets.
struct DecodeManner {
    bool forEngine; // which takes no float64
    bool isLow24;   // 24-bit samples lie at the bottom of 32 bits
    bool fillsGaps; // where packets leave out time, there is silence
};

class SoundDecoder {
public:
    /// Throws FileError if the track can't be decoded.
    SoundDecoder(const MediaInput& input, const AVStream& stream, const DecodeManner& manner);

    Samples samples() const { return kind; }
    int bits() const { return resolution; } // as resolutionBits has them
    int rate() const { return target.rate; }
    int channels() const { return target.channels(); }
    const AVChannelLayout& layout() const { return target.layout; }
    /// Frames that came out so far.
    int64_t position() const { return frames; }
    /// Seconds of the file's clock at which the first frame sounds; right once there is one.
    double startTime() const { return start; }

    /// The same in seconds of media: sound by itself begins at once, beside a film where it began.
    double startIn(const MediaInput& input) const;

    /// Appends the samples of a packet to `out`; of none, what is left at the end.
    void decode(const AVPacket* packet, Block& out);

    /// Packets that could not be decoded.
    int damaged() const { return damagedPackets; }
    /// Whether the last one was such.
    bool endsDamaged() const { return isLastDamaged; }
    /// Whether rate, channels or format changed on the way.
    bool hasChanged() const { return changes; }

private:
    const AVPacket* withoutTags(const AVPacket& packet);
    void take(Block& out);
    void trimLast();
    void fillGap(Block& out);
    void convert(const uint8_t* const* data, int count, Block& out);

    std::string name;
    const AVStream& stream;
    AvPtr<AVCodecContext> codec;
    AvPtr<AVFrame> frame{av_frame_alloc()};
    AvPtr<SwrContext> resampler; // null where frames are as they should be
    SoundFormat source;          // of the last frame
    SoundFormat target;
    int resolution = 0;
    Samples kind = Samples::int16;
    DecodeManner manner;
    bool isMp4; // or of its family
    bool isMp3; // by itself
    Mp3Tags tags;
    AvPtr<AVPacket> untagged; // a packet of which a part was a tag
    int64_t frames = 0;
    double start = 0.0;
    int damagedPackets = 0;
    bool isLastDamaged = false;
    bool changes = false;
};
