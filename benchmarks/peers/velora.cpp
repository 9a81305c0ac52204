#include "benchmarks/peers/stretcher.h"

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

} // namespace

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
