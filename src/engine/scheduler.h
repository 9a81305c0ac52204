// The frame scheduler: decides, call by call, what a piece of audio goes through.
#pragma once

#include <cstdint>

#include "engine/output.h"
#include "engine/slow_speeds.h"
#include "fixed/frame.h"
#include "kernels/kernel_table.h"
#include "vocoder/vocoder.h"

namespace vsp {

/// Nothing at speed 1.0, the vocoder or the converter hop by hop at other speeds, a fade between
/// the two when the speed changes from or to 1.0.
class Scheduler : public Vocoder, public SlowSpeeds {
public:
    /// Output frames that one hop of input will give, by the copy of the frame clock.
    int ExeSim(int hopFrames);
    /// The same where the clock decides: all but pass-through.
    int frameSim(int hopFrames);

protected:
    explicit Scheduler(const KernelTable& table) : Vocoder(table), SlowSpeeds(table) {}

    /// To silence at speed 1.0; settings of the helpers stay.
    void reset()
    {
        Vocoder::reset();
        startTransition(0);
        speedApplied = 1.0f;
    }

    /// Gives the first `carried` frames of carryBuf, then what a piece of input brings.
    /// @param in  [frames], 16 bits at the working rate, at most kPieceFrames
    void run(Output& output, int carried, const Frame* in, int frames);

    /// Hops of input that bring `frames` frames of output (or more), by a copy of the frame clock;
    /// at most as many as an int can count in frames.
    int predictHops(int64_t frames);

    void startTransition(int frames)
    {
        transitionCount = frames;
        prevPeak = -1;
        extensionCount = 0;
    }

    // ---- Transitions from and to 1.0 ----
    int32_t transitionCount = 0; // history: frames left of a fade, priming included
    float speedApplied = 1.0f;   // settings: what the transition leads to, or the speed in force
    int32_t prevPeak = -1;       // history: peak of the hop before, -1 none
    int32_t extensionCount = 0;  // history: how often this transition was lengthened

    // ---- Prediction: a copy of the frame clock, run ahead ----
    float simClock = 1.0f;
    float simSpeed = 1.0f;
    int32_t simTransition = 0;

private:
    void emit(Output& output, const Frame* frames, int count);
    void runSteady(Output& output, const Frame* in, int frames);
    void runTransition(Output& output, const Frame* in, int frames);
    int produceHop(Frame* p, const Frame* hop, int frames, int written);
    int fadeOutHop(Frame* p, const Frame* hop, int frames, int written);
    int fadeInHop(Frame* p, const Frame* hop, int frames, int written);
    bool extendTransition(const Frame* hop, int frames);
    int vocodeOrConvert(Frame* p, const Frame* hop, int frames, int written);
};

} // namespace vsp
