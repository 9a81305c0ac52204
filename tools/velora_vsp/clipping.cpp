#include "clipping.h"

#include <algorithm>
#include <cstddef>

namespace {

template <class Sample>
int64_t countOutside(const void* data, size_t count, Sample lowest, Sample highest)
{
    const auto* const samples = static_cast<const Sample*>(data);
    return std::count_if(samples, samples + count,
                         [=](Sample sample) { return sample <= lowest || sample >= highest; });
}

template <class Sample>
int64_t countBeyondOne(const void* data, size_t count)
{
    const auto* const samples = static_cast<const Sample*>(data);
    return std::count_if(samples, samples + count,
                         [](Sample sample) { return sample < Sample(-1) || sample > Sample(1); });
}

int64_t countInPlane(const void* data, AVSampleFormat packed, size_t count)
{
    switch (packed) {
    case AV_SAMPLE_FMT_U8:
        return countOutside<uint8_t>(data, count, 0, UINT8_MAX);
    case AV_SAMPLE_FMT_S16:
        return countOutside<int16_t>(data, count, INT16_MIN, INT16_MAX);
    case AV_SAMPLE_FMT_S32:
        return countOutside<int32_t>(data, count, INT32_MIN, INT32_MAX);
    case AV_SAMPLE_FMT_FLT:
        return countBeyondOne<float>(data, count);
    default:
        return countBeyondOne<double>(data, count);
    }
}

} // namespace

int64_t countClipped(const uint8_t* const* data, AVSampleFormat format, int channels, int frames)
{
    const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
    const int planes = isPlanar ? channels : 1;
    const auto count = size_t(frames) * size_t(isPlanar ? 1 : channels);
    int64_t sum = 0;
    for (int plane = 0; plane < planes; ++plane)
        sum += countInPlane(data[plane], av_get_packed_sample_fmt(format), count);
    return sum;
}

int64_t countClipped(const Block& block, Samples samples)
{
    const size_t count = block.size() / sampleBytes(samples);
    if (samples == Samples::int24) // which FFmpeg has elsewhere in 32 bits
        return countOutside<int32_t>(block.data(), count, -0x800000, 0x7FFFFF);
    return countInPlane(block.data(), avFormat(samples), count);
}
