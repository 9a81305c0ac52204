#include "benchmarks/peers/stretcher.h"

#include <new>

#include <sonic.h>

namespace {

class SonicStretcher : public Stretcher {
public:
    SonicStretcher(int rate, double speed) : stream(sonicCreateStream(rate, 2), sonicDestroyStream)
    {
        if (!stream)
            throw std::bad_alloc();
        sonicSetSpeed(stream.get(), float(speed));
    }

    int process(const Clip& clip, size_t from, int frames) override
    {
        // The library takes a pointer to non-const, and only reads.
        if (sonicWriteShortToStream(
                stream.get(), const_cast<int16_t*>(clip.samples.data() + 2 * from), frames) == 0)
            throw std::bad_alloc();
        int written = 0;
        while (const int count = sonicReadShortFromStream(stream.get(), out.data(), kMostFrames))
            written += count;
        return written;
    }

private:
    std::unique_ptr<sonicStreamStruct, void (*)(sonicStream)> stream;
    std::vector<int16_t> out = std::vector<int16_t>(2 * kMostFrames);
};

} // namespace

Library sonic()
{
    return {"Sonic",
            [](int rate, double speed) { return std::make_unique<SonicStretcher>(rate, speed); }};
}
