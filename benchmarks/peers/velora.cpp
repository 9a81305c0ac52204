#include "benchmarks/peers/stretcher.h"

#include <velora/stream.hpp>

#include "engine/velora_vsp.h"

namespace {

class Velora : public Stretcher {
public:
    Velora(const vsp::KernelTable& kernels, SampleForm sampleForm, int rate, double speed)
        : engine(kernels), form(sampleForm)
    {
        engine.Init(rate, form == SampleForm::int16 ? Velora_BitDepth_16 : Velora_BitDepth_Float);
        engine.SetPar(float(speed));
        engine.Exe(nullptr, nullptr, 0);
    }

    int process(const Clip& clip, size_t from, int frames) override
    {
        const void* const in = form == SampleForm::int16
                                   ? static_cast<const void*>(clip.samples.data() + 2 * from)
                                   : clip.floats.data() + 2 * from;
        return engine.Exe(out.data(), in, frames);
    }

private:
    Velora_VSP engine;
    SampleForm form;
    std::vector<float> out = std::vector<float>(size_t(2 * (8 * (kMostFrames + 3) + 512)));
};

class VeloraStream : public Stretcher {
public:
    VeloraStream(velora::Sound sound, int rate, double speed)
        : stream(rate, 2, velora::Pitch::keep, sound)
    {
        stream.setSpeed(speed);
    }

    int process(const Clip& clip, size_t from, int frames) override
    {
        return int(stream.process(clip.samples.data() + 2 * from, size_t(frames), out.data(),
                                  out.size() / 2));
    }

private:
    velora::Stream<int16_t> stream;
    std::vector<int16_t> out = std::vector<int16_t>(size_t(2 * 16 * kMostFrames));
};

Library streamOf(const char* name, velora::Sound sound)
{
    return {name, [sound](int rate, double speed) {
                return std::make_unique<VeloraStream>(sound, rate, speed);
            }};
}

} // namespace

std::vector<Library> veloraStreams()
{
    return {streamOf("Stream, engine", velora::Sound::engine),
            streamOf("Stream, natural", velora::Sound::natural)};
}

std::vector<Library> veloraEngines(SampleForm form)
{
    std::vector<Library> engines;
    for (auto table = vsp::availableKernels(); *table != nullptr; ++table)
        engines.push_back({(*table)->name, [form, kernels = *table](int rate, double speed) {
                               return std::make_unique<Velora>(*kernels, form, rate, speed);
                           }});
    return engines;
}

size_t veloraEngineBytes()
{
    return sizeof(Velora_VSP);
}
