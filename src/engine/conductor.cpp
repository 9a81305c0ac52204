// What players need that lead several engines as one: speeds that change without a transition, and
// onsets and phases that are the same in all engines.

#include <algorithm>

#include "engine/velora_vsp.h"

namespace {

Velora_VSP& engineOf(Velora_VSP_Interface* engine)
{
    return *static_cast<Velora_VSP*>(engine); // the factory makes no others
}

} // namespace

void Velora_VSP_Conductor::SetSpeedNow(Velora_VSP_Interface* engine, float speed)
{
    engineOf(engine).setSpeedNow(speed);
}

void Velora_VSP_Conductor::SetSound(Velora_VSP_Interface* engine, uint32_t sound)
{
    engineOf(engine).setSound(sound);
}

int Velora_VSP_Conductor::HopFrames(Velora_VSP_Interface* engine)
{
    return engineOf(engine).callerHopFrames();
}

void Velora_VSP_Conductor::TakeHop(Velora_VSP_Interface* engine, const void* in)
{
    engineOf(engine).takeCallerHop(in);
}

int Velora_VSP_Conductor::GiveHop(Velora_VSP_Interface* engine, void* out)
{
    return engineOf(engine).giveCallerHop(out);
}

void Velora_VSP_Conductor::TakeStage(Velora_VSP_Interface* engine, int stage, const void* in)
{
    engineOf(engine).takeCallerStage(stage, in);
}

void Velora_VSP_Conductor::GiveStage(Velora_VSP_Interface* engine, int stage, void* out)
{
    engineOf(engine).giveCallerStage(stage, out);
}

void Velora_VSP_Conductor::Prime(Velora_VSP_Interface* engine, float hops)
{
    engineOf(engine).prime(hops);
}

void Velora_VSP_Conductor::Steer(Velora_VSP_Interface* engine, float lead, float share)
{
    engineOf(engine).steer(lead, share);
}

void Velora_VSP_Conductor::ShareOnsets(Velora_VSP_Interface* const* engines, int count)
{
    const auto found = [](Velora_VSP_Interface* engine) { return engineOf(engine).foundOnset(); };
    if (std::any_of(engines, engines + count, found))
        std::for_each(engines, engines + count,
                      [](Velora_VSP_Interface* engine) { engineOf(engine).takeOnset(); });
}

void Velora_VSP_Conductor::ShareTurns(Velora_VSP_Interface* const* engines, int count)
{
    vsp::Vocoder::Agreement total = {};
    std::for_each(engines, engines + count,
                  [&](Velora_VSP_Interface* engine) { engineOf(engine).addTo(total); });
    std::for_each(engines, engines + count,
                  [&](Velora_VSP_Interface* engine) { engineOf(engine).agreeOn(total); });
}
