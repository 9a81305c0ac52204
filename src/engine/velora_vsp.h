// The engine object: all memory of one stream, and the methods that conduct its processing.
//
// Each line says what a member lives for: "settings" until the next Init or SetPar, "history" from
// hop to hop, "this hop" or "this piece" only so long. Methods pick members; the arithmetic is in
// free functions on plain arrays, one stage a file.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <utility>

#include <velora/bq.h>
#include <velora/src384.h>
#include <velora/vsp.h>

#include "convert/biquad.h"
#include "fixed/cache_line.h"
#include "fixed/complex.h"
#include "fixed/fixed.h"
#include "fixed/frame.h"
#include "kernels/band_split.h"
#include "kernels/kernel_table.h"
#include "kernels/peaks.h"
#include "kernels/sizes.h"

namespace vsp {

inline constexpr int kPieceFrames = 2048; // most caller frames converted and scheduled at a time
inline constexpr int kMaxHop = 512;       // working-rate frames
inline constexpr int kSlowestRatio = 8;   // most synthesis hops from one analysis hop
inline constexpr int kNoLimit = INT_MAX;

/// Turns a ring of pointers by one: each entry takes the next one, the oldest becomes the newest.
template <class T, size_t n>
void turnRing(T* (&ring)[n])
{
    std::rotate(ring, ring + 1, ring + n);
}

} // namespace vsp

class Velora_VSP : public Velora_VSP_Interface {
public:
    explicit Velora_VSP(const vsp::KernelTable& kernels = vsp::bestKernels());
    ~Velora_VSP() override;
    Velora_VSP(const Velora_VSP&) = delete;
    Velora_VSP& operator=(const Velora_VSP&) = delete;

    void Init(int sampleRate, Velora_BitDepth_T bitDepth) override;
    void SetPar(float speed) override;
    int Exe(void* out, const void* in, int frames) override;
    int Exe_buffered(void* out, const void* in, int frames) override;
    int GetPredictedInputFrameSize(int outFrames) override;
    const char* Get_Version() override;

    // ---- Settings (engine/lifecycle.cpp, configuration.cpp, speed.cpp) ----
    void Velora_VSP_Call_InitSetPar_Apply();
    void Velora_VSP_Init_Apply(int sampleRate);
    void Velora_VSP_SetPar_Apply(float speed);

    // ---- For players that lead several engines (engine/conductor.cpp) ----
    void setSpeedNow(float speed);
    bool foundOnset() const { return transientDecision != 0; }
    void takeOnset() { transientDecision = 1; }

    // ---- Driver (engine/block_driver.cpp, frame_scheduler.cpp) ----
    /// Runs the engine on one piece of 16-bit audio at the working rate, at most kPieceFrames
    /// frames; returns the frames written to `out`, those carried from the call before included.
    int Exe1(vsp::Frame* out, const vsp::Frame* in, int frames);

    // ---- Prediction (engine/prediction.cpp) ----
    int ExeSim(int hopFrames);   ///< output frames that one hop of input will give
    int frameSim(int hopFrames); ///< the same from the simulated frame clock

    // ---- Buffered front end (engine/buffered.cpp) ----
    void Velora_VSP_BufInit(int sampleRate, Velora_BitDepth_T bitDepth);
    void Velora_VSP_BufInit_Apply();
    void Velora_VSP_BufInit_EXE();
    /// Appends caller frames to the ring; 1 if it now holds a whole chunk, else 0.
    int Kavo_VSP_WriteDataToBuf(const void* in, int frames, int bytesPerSample);

    // ---- Frame pipeline (vocoder/) ----
    /// Analyses one hop and synthesises as many hops as the frame clock asks for.
    /// @param written  frames that stand in the caller's output before `out`; counted against
    /// outputLimit
    /// @returns        frames written at `out`, a multiple of `frames`; the others went to carryBuf
    int Velora_VSP_frame(vsp::Frame* out, const vsp::Frame* in, int frames, int written);
    void Velora_VSP_LPHP_separate(const vsp::Frame* in, int frames);
    void Velora_VSP_Combine_HP(int frames);
    /// Writes `outFrames` frames from `lowFrames` low-band frames; what these don't reach is
    /// silence.
    void Velora_VSP_LP_interpolate(vsp::Frame* dest, int lowFrames, int outFrames);
    void Velora_VSP_computeCOG();
    void Velora_VSP_TransientProbability();
    void Velora_VSP_ModifyBandStatus();
    int peakphaselock(vsp::ComplexInt* X, int* mag, vsp::ComplexShort* A, vsp::ComplexShort* S,
                      signed char* status, const short (*bands)[10]);

    // ---- Transforms (fft/) ----
    void Velora_VSP_partFFT(const vsp::Frame* in);
    void Velora_VSP_FFT_PartSp(vsp::ComplexInt* outL, vsp::ComplexInt* outR, const vsp::Frame* in);
    void Velora_VSP_Extract_MagPhase();
    void Velora_VSP_partIFFT(vsp::Frame* out, vsp::ComplexInt* specL, vsp::ComplexInt* specR);
    void Velora_VSP_IFFT_PartSp(vsp::Frame* out, vsp::ComplexInt* sumL, vsp::ComplexInt* sumR);

    // ---- Conversion (convert/) ----
    /// Caller format and rate to 16 bits at the working rate; returns the frames written to `out`.
    int Convert_UHQ2MQ(vsp::Frame* out, const void* in, int frames, int shift,
                       Velora_BitDepth_T depth);
    /// 16 bits at the working rate to caller format and rate; writes frames << shift frames. With a
    /// shift, frames << shift is at most kOutStageFrames.
    void Convert_MQ2UHQ(void* out, const vsp::Frame* in, int frames, int shift,
                        Velora_BitDepth_T depth);
    void DownSmpl2_Init();
    int DownSmpl2_polyphase(vsp::Frame* out, const vsp::Frame* in, int frames, int shift);
    void UpSmpl2_polyphase(vsp::Frame* out, const vsp::Frame* in, int frames, int shift);

private:
    friend struct EngineProbe; // the tests' view of the members

    class Output;       // where the scheduler's frames go
    class DirectOutput; // to the caller's buffer
    class ConvertedOutput;

    int processPiece(void* out, const void* in, int frames);
    int runScheduler(Output& output, const vsp::Frame* in, int frames);
    void emit(Output& output, const vsp::Frame* frames, int count);
    void runSteady(Output& output, const vsp::Frame* in, int frames);
    void runTransition(Output& output, const vsp::Frame* in, int frames);
    int produceHop(vsp::Frame* p, const vsp::Frame* piece, int frames, int written);
    int fadeOutHop(vsp::Frame* p, const vsp::Frame* piece, int frames, int written);
    int fadeInHop(vsp::Frame* p, const vsp::Frame* piece, int frames, int written);
    bool extendTransition(const vsp::Frame* piece, int frames);
    void filterOutput(vsp::Frame* p, int frames);
    int vocodeOrConvert(vsp::Frame* p, const vsp::Frame* piece, int frames, int written);
    bool converterInForce() const { return srcActive && src != nullptr; }
    int hopFrames() const { return 1 << (hopIndex + 7); }
    int bytesPerFrame() const { return bitDepth != Velora_BitDepth_16 ? 8 : 4; }

    void resetSignal();
    static Velora_BQ* createFilter();
    static Velora_SRC384_Interface* createConverter();
    void startFilters();
    void selectConverter(float speed);
    void startConverter(int outputRateCode, int inputRateCode);
    void dropConverter();

    void analyseHop(const vsp::Frame* in, int frames);
    void synthesiseSpectrum(bool firstOfHop);
    void synthesiseBand(int band, int32_t f_q15);
    void countDownBands();

    static constexpr int kRingFrames = 4096;
    static constexpr int kOutStageFrames = 4096;
    static constexpr int kMqOutFrames = 5120;
    static_assert(kMqOutFrames >= vsp::kSlowestRatio * vsp::kMaxHop &&
                      kMqOutFrames >= vsp::kPieceFrames,
                  "holds what one hop or one piece of pass-through gives");
    // A limited call may have to carry all that it makes.
    static constexpr int kCarryFrames = vsp::kSlowestRatio * vsp::kPieceFrames;

    // A row of bins, and unused ones up to the next cache line: 16 values of 4 bytes fill one.
    static constexpr int kRowBins = (vsp::kBins + 15) / 16 * 16;
    using MagnitudeRow = int32_t[kRowBins];
    using PhasorRow = vsp::ComplexShort[kRowBins];
    using SpectrumRow = vsp::ComplexInt[kRowBins];
    static_assert(sizeof(MagnitudeRow) % vsp::kLine == 0 && sizeof(PhasorRow) % vsp::kLine == 0);

    const vsp::KernelTable& kernels; // the hot loops, for this machine

    // ---- Buffered front end: caller frames waiting for a whole chunk ----
    // History: in the caller's format; 2-byte samples use the first half.
    alignas(int32_t) std::byte bufRing[kRingFrames * 8] = {};
    int32_t bufWritePos = 0;    // history: frame index in the ring
    int32_t bufReadPos = 0;     // history: frame index, a multiple of bufChunkFrames
    int32_t bufFill = 0;        // history: frames written and not yet processed
    int32_t bufInitPending = 0; // settings: a format is waiting to be applied
    Velora_BitDepth_T bufBitDepth = Velora_BitDepth_16; // settings
    int32_t bufChunkFrames = 512;                       // settings: 512, 1024 or 2048 caller frames
    int32_t bufSampleRate = 44100;                      // settings: caller's rate, Hz

    // ---- Conversion: one piece between the caller's form and the engine's ----
    int32_t rateShift = 0; // settings: log2 of caller's rate / working rate
    alignas(vsp::kLine) vsp::Frame mqIn[vsp::kPieceFrames]; // this piece: input at the working rate
    alignas(vsp::kLine) vsp::Frame mqOut[kMqOutFrames];     // this hop: output at the working rate
    alignas(vsp::kLine) vsp::Frame uhqInStage[vsp::kPieceFrames]; // this piece: at caller's rate
    alignas(vsp::kLine) vsp::Frame uhqOutStage[kOutStageFrames];  // this hop: at caller's rate
    vsp::DecimatorState dsState[2];  // history: [channel], stage at the caller's rate
    vsp::HalfBandState usState[2];   // history: [channel], stage from the working rate
    vsp::DecimatorState dsState2[2]; // history: [channel], second stage at rateShift 2
    vsp::HalfBandState usState2[2];  // history: [channel], second stage at rateShift 2

    // ---- Band split ----
    int32_t splitState[2][7];  // history: [channel] delays, four times the value
    int32_t interpState[2][6]; // history: [channel] delays, four times the value
    alignas(vsp::kLine) vsp::Frame hpBuf[5][vsp::kMaxHop]; // storage of hpRing
    vsp::Frame* hpRing[5]; // history: high band of each input hop, [4] newest
    alignas(vsp::kLine) vsp::Frame hpSegBuf[4][2 * vsp::kMaxHop]; // storage of hpSegRing
    vsp::Frame* hpSegRing[4]; // history: two hops for each synthesis frame, [3] newest
    alignas(vsp::kLine) vsp::Frame hpOut[vsp::kMaxHop]; // this synthesis frame: high band
    // This hop: into the analysis, then out of the synthesis; a shorter hop leaves the rest as it
    // was.
    alignas(vsp::kLine) vsp::Frame lowBandFrame[vsp::kLowHop] = {};

    // ---- Analysis: partial spectra of the last hops and their sum ----
    alignas(vsp::kLine) SpectrumRow partSpBuf[2][5]; // storage of partSpRing
    vsp::ComplexInt* partSpRing[2][5];               // history: [channel][age], [4] newest
    alignas(vsp::kLine) SpectrumRow partSpSum[2];    // history: spectrum of the unwindowed frame
    alignas(vsp::kLine) SpectrumRow spectrum[2];     // this hop: analysis first, then synthesis
    alignas(vsp::kLine) int32_t fftRe[vsp::kFftN];   // work space of the transforms
    alignas(vsp::kLine) int32_t fftIm[vsp::kFftN];

    // ---- Magnitudes and unit phasors of the last four analysis frames ----
    alignas(vsp::kLine) MagnitudeRow magBuf[2][4]; // storage of magRing
    int32_t* magRing[2][4];                        // history: [channel][age], [3] newest
    alignas(vsp::kLine) PhasorRow phasorBuf[2][4]; // storage of phasorRing
    vsp::ComplexShort* phasorRing[2][4];           // history: Q14, [channel][age], [3] newest

    // ---- Onsets ----
    float bandCog[vsp::kBands]; // this hop: where in the frame the energy lies, from its middle,
                                // in lengths of the frame
    int8_t bandFlagHist[4][vsp::kBands]; // storage of bandFlagRing
    int8_t* bandFlagRing[4];             // history: bands with late energy, [3] newest
    float transientThreshold;            // history: falls by at most 1 % a hop
    uint8_t transientDecision;           // history: the newest frame holds an onset
    uint8_t transientDecisionPrev;       // history: the frame before did
    uint8_t bandTransient[vsp::kBands];  // this hop
    int8_t bandStatus[vsp::kBands];      // history: hops left of an onset's countdown, 0 none
    int8_t bandRingIndex[vsp::kBands]; // history: ring entry whose magnitudes are frozen; falls as
                                       // the rings turn, so it stays on one analysis frame
    int8_t bandHold[vsp::kBands];      // history: synthesis frames left before the band freezes; 4:
                                       // the phase reset is due

    // ---- Synthesis ----
    alignas(vsp::kLine) MagnitudeRow interpMag[2];        // history: last interpolated magnitudes
    alignas(vsp::kLine) PhasorRow phaseAdvance[2];        // this hop: rotation over one hop, Q14
    alignas(vsp::kLine) PhasorRow synthPhasor[2];         // history: running phases, Q14
    alignas(vsp::kLine) int16_t peakList[vsp::kMaxPeaks]; // this synthesis frame
    alignas(vsp::kLine) SpectrumRow synthWinBuf[2][4];    // storage of synthWinRing
    vsp::ComplexInt* synthWinRing[2][4]; // history: windowed spectra, [channel][age], [3] newest
    alignas(vsp::kLine) SpectrumRow synthSum[2]; // history: overlap-add of the last four

    // ---- What the configuration decides ----
    const int16_t* splitCoeffs = nullptr;  // settings: Q14
    const int16_t* interpCoeffs = nullptr; // settings: Q14
    int16_t hopIndex = 0;                  // settings: the hop is 2^(hopIndex + 7) frames
    int16_t bandFactor = 1;                // settings: 1, 2 or 4, decimation of the low band
    float frameClock = 1.0f;               // history: synthesis position in analysis hops
    float effectiveSpeed = 1.0f;           // speed of the frame clock; 1.0 during transitions

    // ---- Driver ----
    int32_t transitionCount = 0;         // history: frames left of a fade, priming included
    float speedApplied = 1.0f;           // settings: speed last applied
    int32_t appliedSampleRate = 0;       // settings: caller's rate, Hz
    int32_t highBandGainQ15 = 32768;     // settings
    int32_t carryCount = 0;              // history: frames in carryBuf
    int32_t outputLimit = vsp::kNoLimit; // next scheduler run: hops of the pipeline beyond it,
                                         // carried frames included, go to carryBuf
    alignas(vsp::kLine) vsp::Frame carryBuf[kCarryFrames]; // history: frames beyond the last limit

    // ---- Prediction: a copy of the frame clock, run ahead ----
    float simClock = 1.0f;
    float simSpeed = 1.0f;
    int32_t simTransition = 0;

    // ---- Settings as the caller gave them ----
    Velora_BitDepth_T bitDepth = Velora_BitDepth_16; // in force at once
    bool initPending = false;
    bool parPending = false;
    int32_t sampleRate = 0; // Hz
    float speedRequested = 1.0f;

    // ---- Level jumps that lengthen a transition ----
    int32_t prevPeak = -1;      // history: peak of the piece before, -1 none
    int32_t extensionCount = 0; // history: how often this transition was lengthened

    // ---- Companion objects, owned ----
    bool bqActive = false;
    Velora_BQ* bqA = nullptr;
    Velora_BQ* bqB = nullptr;
    bool srcActive = false;
    Velora_SRC384_Interface* src = nullptr;
};
