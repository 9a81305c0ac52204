#include "benchmarks/peers/stretcher.h"

#include <type_traits>

#include <soundtouch/SoundTouch.h>

namespace {

class SoundTouchStretcher : public Stretcher {
public:
    SoundTouchStretcher(int rate, double speed, bool quickSeek)
    {
        static_assert(std::is_same_v<soundtouch::SAMPLETYPE, float>);
        engine.setSampleRate(unsigned(rate));
        engine.setChannels(2);
        engine.setSetting(SETTING_USE_QUICKSEEK, quickSeek);
        engine.setTempo(speed);
    }

    int process(const Clip& clip, size_t from, int frames) override
    {
        engine.putSamples(clip.floats.data() + 2 * from, unsigned(frames));
        int written = 0;
        while (const unsigned count = engine.receiveSamples(out.data(), kMostFrames))
            written += int(count);
        return written;
    }

private:
    soundtouch::SoundTouch engine;
    std::vector<float> out = std::vector<float>(2 * kMostFrames);
};

Library withQuickSeek(const char* name, bool quickSeek)
{
    return {name, [quickSeek](int rate, double speed) {
                return std::make_unique<SoundTouchStretcher>(rate, speed, quickSeek);
            }};
}

} // namespace

Library soundTouch()
{
    return withQuickSeek("SoundTouch", false);
}

Library soundTouchQuickSeek()
{
    return withQuickSeek("SoundTouch quick seek", true);
}
