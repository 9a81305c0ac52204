// Birth and death of an engine, and the settings that a caller records between blocks.

#include "engine/velora_vsp.h"
#include "kernels/kernel_table.h"

using namespace vsp;

namespace {

constexpr char kVersion[] = "Velora VSP ver. 3.16a Cppref (arm-v8 64bit). Release: 2016.6.1";

// What an engine is configured for before its first Init, so that a call then is harmless.
constexpr int kInitialSampleRate = 44100;

bool isKnown(Velora_BitDepth_T depth)
{
    return depth >= Velora_BitDepth_16 && depth <= Velora_BitDepth_Float;
}

} // namespace

Velora_VSP::Velora_VSP(const KernelTable& table) : Scheduler(table), FormatBridge(table)
{
    Velora_VSP_Init_Apply(kInitialSampleRate);
}

void Velora_VSP::Init(int rate, Velora_BitDepth_T depth)
{
    // Unknown formats step through the caller's buffers in the smallest frames.
    bitDepth = isKnown(depth) ? depth : Velora_BitDepth_16;
    sampleRate = rate;
    Velora_VSP_BufInit(rate, bitDepth);
    initPending = true;
}

void Velora_VSP::SetPar(float speed)
{
    parPending = true;
    speedRequested = speed;
}

const char* Velora_VSP::Get_Version()
{
    return kVersion;
}

void Velora_VSP::Velora_VSP_Call_InitSetPar_Apply()
{
    if (initPending) {
        sound = soundRequested;
        Velora_VSP_Init_Apply(sampleRate);
        initPending = false;
    }
    const bool mayChangeSpeed = transitionCount <= 0;
    if (parPending && mayChangeSpeed) {
        Velora_VSP_SetPar_Apply(speedRequested);
        parPending = false;
    }
}

Velora_VSP_Interface* Velora_VSP_Factory::Create()
{
    return new Velora_VSP;
}

void Velora_VSP_Factory::Destroy(Velora_VSP_Interface* engine)
{
    delete engine;
}
