#include "sound_clip.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

extern "C" {
#include <libavutil/base64.h>
}

#include "output_choice.h"

/// What browsers play, and an encoder for it.
struct SoundClip::Form {
    const char* encoder;
    const char* container;
    const char* type;
};

SoundClip::SoundClip(Samples samples, int rate, const AVChannelLayout& layout, int64_t most)
    : kind(samples), frameBytes(size_t(layout.nb_channels) * sampleBytes(samples)), left(most)
{
    constexpr Form kForms[] = {{"libopus", "ogg", "audio/ogg"},
                               {"libmp3lame", "mp3", "audio/mpeg"}};
    for (const Form& form : kForms) {
        try {
            open(form, rate, layout);
        } catch (const std::runtime_error&) { // such as a layout that can't be mixed to stereo
            close();
        }
        if (encoder != nullptr)
            return;
    }
}

void SoundClip::open(const Form& form, int rate, AVChannelLayout layout)
{
    constexpr int kRate = 48000;
    constexpr int64_t kBitRate = 48000; // for each channel
    const AVCodec* const codec = avcodec_find_encoder_by_name(form.encoder);
    const AVOutputFormat* const container = av_guess_format(form.container, nullptr, nullptr);
    file = memfd_create("clip", MFD_CLOEXEC);
    if (codec == nullptr || container == nullptr || file < 0)
        return close();
    type = form.type;
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    bytes.reset(new Bytes(Bytes::output(path, "the report's sound")));
    output = std::make_unique<MediaOutput>(*container, *bytes);
    Encoding encoding;
    encoding.encoder = codec;
    const int channels = std::min(layout.nb_channels, 2);
    encoding.format = {codec->sample_fmts[0], kRate, {}};
    av_channel_layout_default(&encoding.format.layout, channels);
    encoding.bitRate = kBitRate * channels;
    if (layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&layout, layout.nb_channels);
    encoder = std::make_unique<SoundEncoder>(
        *output, encoding, kind, SoundFormat{avFormat(kind), rate, layout}, false, true);
    AvOptions none;
    output->begin(none);
}

void SoundClip::close()
{
    encoder.reset();
    output.reset();
    bytes.reset();
    if (file >= 0)
        ::close(file);
    file = -1;
}

SoundClip::~SoundClip()
{
    close();
}

void SoundClip::take(const Block& block)
{
    const auto frames = std::min(left, int64_t(block.size() / frameBytes));
    if (encoder == nullptr || frames == 0)
        return;
    left -= frames;
    part.assign(block.begin(), block.begin() + frames * std::ptrdiff_t(frameBytes));
    encoder->write(part);
}

std::string SoundClip::finish()
{
    if (encoder == nullptr || encoder->position() == 0)
        return {};
    encoder->finish();
    output->end();
    std::string url = "data:" + std::string(type) + ";base64," + content();
    close();
    return url;
}

std::string SoundClip::content() const
{
    std::vector<uint8_t> raw(size_t(std::max<off_t>(lseek(file, 0, SEEK_END), 0)));
    const ssize_t got = pread(file, raw.data(), raw.size(), 0);
    std::vector<char> text(AV_BASE64_SIZE(raw.size()));
    av_base64_encode(text.data(), int(text.size()), raw.data(), int(std::max<ssize_t>(got, 0)));
    return text.data();
}
