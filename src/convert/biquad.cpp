// Low-pass at 2 kHz that takes the edge off slow speeds. Fixed point with error feedback, so that
// even at low frequencies a constant settles to itself.

#include "convert/biquad.h"

#include "fixed/sample_rates.h"

namespace vsp {
namespace {

constexpr int kDefaultRate = 44100; // Hz: its coefficients serve every unknown rate

} // namespace

extern const int32_t biquadCoefTable[kSampleRateCount][5] = {
    {314491699, 628983398, 314491699, 0, -184224972},
    {190315397, 380630794, 190315397, 546231287, -233751051},
    {166484771, 332969542, 166484771, 665939085, -258136345},
    {104830566, 209661133, 104830566, 1012333500, -357913941},
    {61418432, 122836865, 61418432, 1308761722, -480693627},
    {53139436, 106278872, 53139436, 1373994854, -512810774},
    {32163488, 64326975, 32163488, 1561482161, -616394288},
    {18059425, 36118850, 18059425, 1719159868, -717655743},
    {15463429, 30926858, 15463429, 1753413056, -741524947},
    {9065273, 18130545, 9065273, 1850890572, -813409838},
    {4943506, 9887011, 4943506, 1931765060, -877797259},
    {4204909, 8409818, 4204909, 1949207645, -892285457},
    {2417618, 4835237, 2417618, 1998621313, -934549963},
    {1296441, 2592883, 1296441, 2039393731, -970837673},
    {1098672, 2197343, 1098672, 2048164275, -978817138},
};

} // namespace vsp

using namespace vsp;

Velora_BQ::Velora_BQ()
{
    Velora_BQ::Init(kDefaultRate);
}

void Velora_BQ::Init(int sampleRate)
{
    const int code = sampleRateCode(sampleRate);
    coefIndex = code < kSampleRateCount ? code : sampleRateCode(kDefaultRate);
    for (BiquadChannelState& channel : state)
        channel = BiquadChannelState();
}

void Velora_BQ::Exe(short (*dst)[2], const short (*src)[2], int frames)
{
    Biquad_Frames(dst, src, frames, state, biquadCoefTable[coefIndex]);
}

void Velora_BQ::ExeInSeries(const KernelTable& kernels, Velora_BQ& first, Velora_BQ& second,
                            Frame* frames, int count)
{
    kernels.lowPassTwice(frames, first.state, second.state, biquadCoefTable[first.coefIndex],
                         count);
}

Velora_BQ_Interface* Velora_BQ_Factory::Create()
{
    return new Velora_BQ;
}

void Velora_BQ_Factory::Destroy(Velora_BQ_Interface* filter)
{
    delete filter;
}
