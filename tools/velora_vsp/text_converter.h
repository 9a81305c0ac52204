// Subtitles that are text, from the way in which one kind of file has them to that of another.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "av.h"

class TextConverter {
public:
    /// Null if the stream is no text, or the container has no room for text.
    static std::unique_ptr<TextConverter> make(const AVStream& from, const AVOutputFormat& to);

    /// Makes these the parameters of a stream of what is converted. Throws std::bad_alloc.
    void describe(AVCodecParameters& parameters) const;
    AVCodecID codec() const { return encoder->codec_id; }
    /// Replaces a packet's content; false if no text is in it. Throws std::bad_alloc.
    bool convert(AVPacket& packet);

private:
    TextConverter(AvPtr<AVCodecContext> from, AvPtr<AVCodecContext> to)
        : decoder(std::move(from)), encoder(std::move(to))
    {
    }

    AvPtr<AVCodecContext> decoder;
    AvPtr<AVCodecContext> encoder;
    std::vector<uint8_t> text;
};
