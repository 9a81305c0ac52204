// The helpers of slow speeds: which of them run, and what they do to a hop of output.

#include "engine/slow_speeds.h"

#include <cstdint>
#include <new>

#include <velora/bq.h>
#include <velora/src384.h>

#include "engine/speeds.h"
#include "fixed/fixed.h"
#include "fixed/sample_rates.h"

namespace vsp {
namespace {

// -13 dB with rounding, Q14.
VSP_INLINE int16_t slowSpeedGain(int16_t s)
{
    return fx::low16((s * 3668 + 8192) >> 14);
}

} // namespace

SlowSpeeds::Filter SlowSpeeds::createFilter()
{
    auto* const made = static_cast<Velora_BQ*>(Velora_BQ_Factory::Create()); // it makes no others
    if (made == nullptr)
        throw std::bad_alloc();
    return {made, [](Velora_BQ* filter) { Velora_BQ_Factory::Destroy(filter); }};
}

SlowSpeeds::Converter SlowSpeeds::createConverter()
{
    Velora_SRC384_Interface* made = nullptr;
    try {
        made = Velora_SRC384_Factory::Create();
    } catch (const std::bad_alloc&) {
        made = nullptr;
    }
    return {made, Velora_SRC384_Factory::Destroy};
}

SlowSpeeds::SlowSpeeds(const KernelTable& table)
    : kernels(table), bqA(createFilter()), bqB(createFilter()), src(createConverter())
{
}

void SlowSpeeds::startFilters(int sampleRate)
{
    bqA->Init(sampleRate);
    bqB->Init(sampleRate);
}

// The converter knows rates by code. Only their ratio matters, whatever the stream's rate.
void SlowSpeeds::selectConverter(float speed)
{
    switch (converterRatio(speed)) {
    case 2:
        return startConverter(96000, 48000);
    case 4:
        return startConverter(192000, 48000);
    case 8:
        return startConverter(192000, 24000);
    default:
        srcActive = false;
    }
}

void SlowSpeeds::startConverter(int outputRate, int inputRate)
{
    constexpr int kChannels = 2;
    srcActive = true;
    if (src == nullptr)
        src = createConverter();
    if (src != nullptr)
        src->Init(sampleRateCode(outputRate), sampleRateCode(inputRate), kChannels, 0, 0);
}

void SlowSpeeds::filterOutput(Frame* p, int frames)
{
    if (!bqActive)
        return;
    Velora_BQ::ExeInSeries(kernels, *bqA, *bqB, p, frames);
    for (int n = 0; n < frames; ++n)
        for (int channel = 0; channel < 2; ++channel)
            p[n][channel] = slowSpeedGain(p[n][channel]);
}

} // namespace vsp
