// The beginning of a sound in a form that browsers play.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "media_output.h"
#include "samples.h"
#include "sound_encoder.h"

class SoundClip {
public:
    /// @param most  frames that are kept; what comes after is left out
    SoundClip(Samples samples, int rate, const AVChannelLayout& layout, int64_t most);
    ~SoundClip();
    SoundClip(const SoundClip&) = delete;
    SoundClip& operator=(const SoundClip&) = delete;

    void take(const Block& block);
    /// To be called once, after the last block. A URL that holds the sound itself; empty where no
    /// encoder is there for it.
    std::string finish();

private:
    struct Form;
    void open(const Form& form, int rate, AVChannelLayout layout);
    void close();
    std::string content() const;

    Samples kind;
    size_t frameBytes;
    int64_t left; // frames that there is room for
    const char* type = nullptr;
    int file = -1; // in memory
    std::unique_ptr<Bytes> bytes;
    std::unique_ptr<MediaOutput> output;
    std::unique_ptr<SoundEncoder> encoder; // null where there is none
    Block part;
};
