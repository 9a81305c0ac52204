// Stands in for the companion converter: writes each frame ratio times, so that what the engine
// does with it doesn't depend on the quality of a filter.

#include <velora/src384.h>

namespace {

class RepeatingConverter : public Velora_SRC384_Interface {
public:
    int Init(int a, int b, int, int, int) override
    {
        ratio = a == 11 && b == 8 ? 2 : a == 14 && b == 8 ? 4 : a == 14 && b == 5 ? 8 : 0;
        return ratio == 0 ? 1 : 0;
    }

    int Exe(short (*out)[2], const short (*in)[2], int frames) override
    {
        for (int n = 0; n < frames * ratio; ++n) {
            out[n][0] = in[n / ratio][0];
            out[n][1] = in[n / ratio][1];
        }
        return frames * ratio;
    }

private:
    int ratio = 0;
};

} // namespace

Velora_SRC384_Interface* Velora_SRC384_Factory::Create()
{
    return new RepeatingConverter;
}

void Velora_SRC384_Factory::Destroy(Velora_SRC384_Interface* converter)
{
    delete converter;
}
