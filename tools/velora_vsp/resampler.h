// From one sample format, rate and layout of channels to another.
#pragma once

#include <cstdint>
#include <new>
#include <stdexcept>

#include "av.h"

/// What samples are.
struct SoundFormat {
    AVSampleFormat format = AV_SAMPLE_FMT_NONE;
    int rate = 0;
    AVChannelLayout layout{}; // owns no memory: its order is native or unspecified

    bool operator==(const SoundFormat& other) const
    {
        return format == other.format && rate == other.rate &&
               av_channel_layout_compare(&layout, &other.layout) == 0;
    }
    int channels() const { return layout.nb_channels; }
};

/// A layout of ours like `layout`, as far as one can be.
inline AVChannelLayout plainLayout(const AVChannelLayout& layout)
{
    AVChannelLayout plain{};
    plain.nb_channels = layout.nb_channels;
    plain.order = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.order : AV_CHANNEL_ORDER_UNSPEC;
    plain.u.mask = plain.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
    return plain;
}

/// Throws std::bad_alloc, or std::runtime_error if FFmpeg can't.
inline AvPtr<SwrContext> makeResampler(SoundFormat from, SoundFormat to)
{
    SwrContext* made = nullptr;
    int result = swr_alloc_set_opts2(&made, &to.layout, to.format, to.rate, &from.layout,
                                     from.format, from.rate, 0, nullptr);
    AvPtr<SwrContext> resampler(made);
    if (result >= 0)
        result = swr_init(made);
    if (result < 0)
        throw std::runtime_error("sound can't be converted: " + avReason(result));
    return resampler;
}
