// Brings streams above 48 kHz down to the working rate and back, one or two octaves.
//
// H(z) = (B(z^2) + A(z^2) / z) / 2 with all-pass branches: flat to 0.22 of the higher rate, 60 dB
// down from 0.30 of it.

#include "convert/half_band.h"

#include "engine/velora_vsp.h"

namespace vsp {
namespace {

constexpr int kFractionBits = 4;

struct Allpass2 {
    int32_t c0_q14;
    int32_t c1_q14;
};
constexpr Allpass2 kSectionA = {12436, 1676};
constexpr Allpass2 kSectionB = {19760, 4998};
constexpr int32_t kFirstOrderQ14 = 763;

// (c1 + c0 / z + 1 / z^2) / (1 + c0 / z + c1 / z^2). The negated coefficient is multiplied, not the
// product negated: they round differently.
VSP_INLINE int32_t Allpass2_section(int32_t x, int32_t& W1, int32_t& W2, Allpass2 c)
{
    const int32_t feedback =
        fx::wrapAdd(fx::mulShift16(W2, -c.c1_q14), fx::mulShift16(W1, -c.c0_q14));
    const int32_t W = fx::wrapShl(fx::wrapAdd(x, feedback), 2);
    const int32_t y = fx::wrapAdd(fx::wrapAdd(fx::mulShift16(W1, c.c0_q14), W2 >> 2),
                                  fx::mulShift16(W, c.c1_q14));
    W2 = W1;
    W1 = W;
    return y;
}

// Samples in[0], in[step], ... through section A to out[0], out[outStep], ...
void sectionA(int32_t* out, int outStep, const int32_t* in, int step, int count,
              HalfBandState& state)
{
    for (int n = 0; n < count; ++n)
        out[n * outStep] = Allpass2_section(in[n * step], state.apA1, state.apA2, kSectionA);
}

// Samples in[0], in[step], ... through the first-order section.
void firstOrderSection(int32_t* out, const int32_t* in, int step, int count, HalfBandState& state)
{
    for (int n = 0; n < count; ++n) {
        const int32_t W0 = state.ap1;
        const int32_t W =
            fx::wrapShl(fx::wrapAdd(in[n * step], fx::mulShift16(W0, -kFirstOrderQ14)), 2);
        out[n] = fx::wrapAdd(W0 >> 2, fx::mulShift16(W, kFirstOrderQ14));
        state.ap1 = W;
    }
}

// (a + b + 1) >> 1: the average of the branches, rounded half up.
VSP_INLINE int32_t average(int32_t a, int32_t b)
{
    return fx::wrapAdd(fx::wrapAdd(a, b), 1) >> 1;
}

void loadChannel(int32_t* out, const Frame* in, int channel, int frames)
{
    for (int n = 0; n < frames; ++n)
        out[n] = in[n][channel] * (1 << kFractionBits);
}

void storeChannel(Frame* out, int channel, const int32_t* in, int frames)
{
    for (int n = 0; n < frames; ++n)
        out[n][channel] = fx::sat16(in[n] >> kFractionBits);
}

} // namespace

int DownSmpl2_stage(int32_t* out, const int32_t* in, DecimatorState& state, int count,
                    int32_t* scratch)
{
    const int fewer = count / 2;
    const int more = count - fewer;
    const bool waiting = state.parity == 1;
    const int countA = waiting ? fewer : more;
    const int countB = waiting ? more : fewer;

    int32_t* const a = waiting ? out + 1 : out;
    if (waiting)
        out[0] = state.pending;
    sectionA(a, 1, waiting ? in + 1 : in, 2, countA, state);
    firstOrderSection(scratch, waiting ? in : in + 1, 2, countB, state);

    state.parity = (state.parity + count) & 1;
    if (state.parity == 1 && countA > 0)
        state.pending = a[countA - 1];
    for (int n = 0; n < countB; ++n)
        out[n] = average(out[n], Allpass2_section(scratch[n], state.apB1, state.apB2, kSectionB));
    return countB;
}

void UpSmpl2_stage(int32_t* out, const int32_t* in, HalfBandState& state, int count,
                   int32_t* scratch)
{
    firstOrderSection(scratch, in, 1, count, state);
    for (int n = 0; n < count; ++n)
        out[2 * n] = Allpass2_section(scratch[n], state.apB1, state.apB2, kSectionB);
    sectionA(out + 1, 2, in, 1, count, state);
}

} // namespace vsp

using namespace vsp;

void Velora_VSP::DownSmpl2_Init()
{
    for (int c = 0; c < 2; ++c) {
        dsState[c] = DecimatorState();
        dsState2[c] = DecimatorState();
        usState[c] = HalfBandState();
        usState2[c] = HalfBandState();
    }
}

int Velora_VSP::DownSmpl2_polyphase(Frame* out, const Frame* in, int frames, int shift)
{
    int produced = 0;
    for (int c = 0; c < 2; ++c) {
        loadChannel(rsHighBuf, in, c, frames);
        if (shift == 1) {
            produced = DownSmpl2_stage(rsLowBuf, rsHighBuf, dsState[c], frames, rsScratch);
        } else {
            const int half = DownSmpl2_stage(rsMidBuf, rsHighBuf, dsState[c], frames, rsScratch);
            produced = DownSmpl2_stage(rsLowBuf, rsMidBuf, dsState2[c], half, rsScratch);
        }
        storeChannel(out, c, rsLowBuf, produced);
    }
    return produced;
}

void Velora_VSP::UpSmpl2_polyphase(Frame* out, const Frame* in, int frames, int shift)
{
    for (int c = 0; c < 2; ++c) {
        loadChannel(rsLowBuf, in, c, frames);
        if (shift == 1) {
            UpSmpl2_stage(rsHighBuf, rsLowBuf, usState[c], frames, rsScratch);
        } else {
            UpSmpl2_stage(rsMidBuf, rsLowBuf, usState[c], frames, rsScratch);
            UpSmpl2_stage(rsHighBuf, rsMidBuf, usState2[c], 2 * frames, rsScratch);
        }
        storeChannel(out, c, rsHighBuf, frames << shift);
    }
}
