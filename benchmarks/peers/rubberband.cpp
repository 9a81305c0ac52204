#include "benchmarks/peers/stretcher.h"

#include <algorithm>

#include <rubberband/RubberBandStretcher.h>

namespace {

using RubberBand::RubberBandStretcher;

class RubberBandRealTime : public Stretcher {
public:
    RubberBandRealTime(int rate, double speed, RubberBandStretcher::Options engineOption)
        : engine(size_t(rate), 2, RubberBandStretcher::OptionProcessRealTime | engineOption,
                 1.0 / speed)
    {
        engine.setMaxProcessSize(kMostFrames);
    }

    int process(const Clip& clip, size_t from, int frames) override
    {
        const float* const in[2] = {clip.planes[0].data() + from, clip.planes[1].data() + from};
        engine.process(in, size_t(frames), false);
        int written = 0;
        float* const planes[2] = {out.data(), out.data() + kMostFrames};
        while (const int ready = std::min(engine.available(), int(kMostFrames)))
            written += int(engine.retrieve(planes, size_t(ready)));
        return written;
    }

private:
    RubberBandStretcher engine;
    std::vector<float> out = std::vector<float>(2 * kMostFrames);
};

Library withEngine(const char* name, RubberBandStretcher::Options engineOption)
{
    return {name, [engineOption](int rate, double speed) {
                return std::make_unique<RubberBandRealTime>(rate, speed, engineOption);
            }};
}

} // namespace

Library rubberBandR2()
{
    return withEngine("Rubber Band R2", RubberBandStretcher::OptionEngineFaster);
}

Library rubberBandR3()
{
    return withEngine("Rubber Band R3", RubberBandStretcher::OptionEngineFiner);
}
