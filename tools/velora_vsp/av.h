// The objects of FFmpeg's libraries, each freed by the one that holds it.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avstring.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

struct FreeAv {
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(SwrContext* resampler) const { swr_free(&resampler); }
    void operator()(AVIOContext* bytes) const
    {
        av_freep(&bytes->buffer);
        avio_context_free(&bytes);
    }
};
template <class Object>
using AvPtr = std::unique_ptr<Object, FreeAv>;

/// Options for one call, which takes those that it knows.
class AvOptions {
public:
    AvOptions() = default;
    ~AvOptions() { av_dict_free(&dictionary); }
    AvOptions(const AvOptions&) = delete;
    AvOptions& operator=(const AvOptions&) = delete;

    void set(const char* name, const std::string& value)
    {
        av_dict_set(&dictionary, name, value.c_str(), 0);
    }
    AVDictionary** get() { return &dictionary; }

private:
    AVDictionary* dictionary = nullptr;
};

/// For `io_open`: what one file says opens no other.
inline int refuseToOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**)
{
    return AVERROR(EPERM);
}

/// What an error code of these libraries means.
inline std::string avReason(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}
