// A media file or pipe that is written packet by packet.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "av.h"
#include "bytes.h"
#include "media_input.h"
#include "speed_map.h"

/// Adds tags, but those that describe the file that they come from, which another one isn't like.
void copyTags(AVDictionary** to, const AVDictionary* from);

class MediaOutput {
public:
    /// Writes to `bytes`, which outlive this. Throws FileError.
    MediaOutput(const AVOutputFormat& container, Bytes& bytes);

    const AVOutputFormat& container() const { return *context->oformat; }
    const std::string& name() const { return bytes.name(); }
    AVStream& addStream();

    /// Takes over the input's tags, and its chapters at the times that they have along `course`.
    void describeLike(const MediaInput& input, const SpeedMap& course, const Span& part);
    /// Adds a cover where it is no stream of its own: to Ogg and Matroska. False if it can't be added.
    bool addCover(const AVStream& picture);
    /// To be called once all streams are added. Throws FileError, ReaderGone or Interrupted, as the
    /// next ones do.
    void begin(AvOptions& options);
    /// Takes the packet's content. Threads may do so at once.
    void write(AVPacket& packet);
    void end();

private:
    void addChapter(int number, double start, double end, const AVDictionary* tags);
    void openW64();
    void closeW64(int64_t dataEnd);
    void check(int result);

    Bytes& bytes;
    std::mutex writing;
    struct Free {
        void operator()(AVFormatContext* output) const { avformat_free_context(output); }
    };
    std::unique_ptr<AVFormatContext, Free> context;
    int64_t dataStart = 0;       // of W64: where its samples begin, in bytes
    std::vector<int64_t> delays; // by which a stream's packets come later, in its time base
};
