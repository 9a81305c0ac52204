// The engine object: all memory of one stream, put together from its stages, and the methods that
// conduct its processing.
//
// Each stage owns its state and says what a member lives for: "settings" until the next Init or
// SetPar, "history" from hop to hop, "this hop" or "this piece" only so long.
#pragma once

#include <cstdint>

#include <velora/vsp.h>

#include "convert/bridge.h"
#include "engine/intake.h"
#include "engine/output.h"
#include "engine/scheduler.h"
#include "fixed/cache_line.h"
#include "fixed/frame.h"
#include "kernels/kernel_table.h"
#include "kernels/sizes.h"

class Velora_VSP : public Velora_VSP_Interface,
                   public vsp::Scheduler,
                   public vsp::FormatBridge,
                   public vsp::Intake {
public:
    /// As after Init(44100, Velora_BitDepth_16). Throws std::bad_alloc.
    explicit Velora_VSP(const vsp::KernelTable& kernels = vsp::bestKernels());

    void Init(int sampleRate, Velora_BitDepth_T bitDepth) override;
    void SetPar(float speed) override;
    int Exe(void* out, const void* in, int frames) override;
    int Exe_buffered(void* out, const void* in, int frames) override;
    int GetPredictedInputFrameSize(int outFrames) override;
    const char* Get_Version() override;

    /// Puts what Init and SetPar recorded in force; a speed waits for the end of a transition.
    void Velora_VSP_Call_InitSetPar_Apply();
    /// Derives the working parameters from the caller's rate, Hz, and returns all stages to silence
    /// at speed 1.0. Low-passes and converter stay as they are.
    void Velora_VSP_Init_Apply(int sampleRate);
    /// Puts a speed in force, through a transition from or to 1.0. What is out of range is 1.0.
    void Velora_VSP_SetPar_Apply(float speed);
    /// The same without a transition (Velora_VSP_Conductor::SetSpeedNow).
    void setSpeedNow(float speed);

    /// What goes beyond the engine's own sound from the next Init on, Velora_VSP_Sound_T values.
    void setSound(uint32_t chosen) { soundRequested = chosen; }

    // For Velora_VSP_Conductor: one hop of the caller's frames, in steps.
    int callerHopFrames();
    void takeCallerHop(const void* in);
    void takeCallerStage(int stage, const void* in);
    int giveCallerHop(void* out);
    void giveCallerStage(int stage, void* out);

    /// Runs the engine on one piece of 16-bit audio at the working rate.
    /// @param out  room for all that it gives, the frames carried from the call before included
    /// @param in   [frames], at most kPieceFrames
    /// @returns    frames written at `out`
    int Exe1(vsp::Frame* out, const vsp::Frame* in, int frames);

private:
    static constexpr int kHopOutFrames = vsp::kSlowestRatio * vsp::kMaxHop;
    static_assert(kHopOutFrames >= vsp::kPieceFrames, "a piece of pass-through fits, too");

    /// Whether the caller's frames are the engine's own.
    bool isWorkingForm() const { return rateShift == 0 && bitDepth == Velora_BitDepth_16; }
    /// Whether a speed passes the low-passes of slow speeds.
    bool isFiltered(float speed) const;
    /// The gain of the high band at a speed.
    void setHighBand(float speed);
    int processPiece(void* out, const void* in, int frames);
    int runScheduler(vsp::Output& output, const vsp::Frame* in, int frames);
    const vsp::Frame* workingHop(const void* in);
    vsp::Frame* roomForHop(void* out);
    void finishHop(void* out);

    // ---- Settings as the caller gave them ----
    Velora_BitDepth_T bitDepth = Velora_BitDepth_16; // in force at once
    bool initPending = false;
    bool parPending = false;
    int32_t sampleRate = 0; // Hz
    float speedRequested = 1.0f;
    uint32_t soundRequested = Velora_VSP_Sound_Own;

    // ---- Settings in force ----
    int32_t appliedSampleRate = 0; // caller's rate, Hz
    int32_t rateShift = 0;         // log2 of caller's rate / working rate

    // ---- Between bridge and scheduler ----
    alignas(vsp::kLine) vsp::Frame mqIn[vsp::kPieceFrames]; // this piece: input at the working rate
    alignas(vsp::kLine) vsp::Frame mqOut[kHopOutFrames];    // this hop: output at the working rate
};
