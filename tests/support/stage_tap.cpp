// What the sound is between the stages of the vocoder:  stage_tap SPEED FOLDER < in.raw
// Takes 16-bit stereo of 44100 Hz and writes the same kind there, but the low band at a quarter of the
// rate: what the split makes of each hop (low.raw, high.raw), what synthesis makes of that
// (stretched-low.raw, stretched-high.raw), and both together (out.raw). onsets.txt has the seconds of
// input at which an onset was found. scripts/signal_path draws them.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kernels/sizes.h"
#include "support/engine_probe.h"

namespace {

constexpr int kRate = 44100;

class RawFile {
public:
    RawFile(const std::string& folder, const char* name)
        : file(std::fopen((folder + "/" + name).c_str(), "wb"))
    {
        if (file == nullptr) {
            std::perror(name);
            std::exit(1);
        }
    }
    ~RawFile() { std::fclose(file); }
    RawFile(const RawFile&) = delete;
    RawFile& operator=(const RawFile&) = delete;

    void add(const vsp::Frame* frames, int count)
    {
        std::fwrite(frames, sizeof(vsp::Frame), size_t(count), file);
    }
    std::FILE* get() const { return file; }

private:
    std::FILE* file;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("stage_tap SPEED FOLDER < in.raw\n", stderr);
        return 2;
    }
    const std::string folder = argv[2];
    EngineProbe probe;
    Velora_VSP_Interface* const engine = probe.engine.get();
    Velora_VSP_Conductor::SetSound(engine, Velora_VSP_Sound_LockedChannels |
                                               Velora_VSP_Sound_FullBand |
                                               Velora_VSP_Sound_EvenLevel);
    engine->Init(kRate, Velora_BitDepth_16);
    Velora_VSP_Conductor::SetSpeedNow(engine, std::strtof(argv[1], nullptr));

    RawFile low(folder, "low.raw");
    RawFile high(folder, "high.raw");
    RawFile stretchedLow(folder, "stretched-low.raw");
    RawFile stretchedHigh(folder, "stretched-high.raw");
    RawFile out(folder, "out.raw");
    RawFile onsets(folder, "onsets.txt");
    const int hop = Velora_VSP_Conductor::HopFrames(engine);
    std::vector<int16_t> in(2 * size_t(hop));
    std::vector<int16_t> made(in.size());
    for (long hops = 0; std::fread(in.data(), sizeof in[0], in.size(), stdin) == in.size();
         ++hops) {
        for (int stage = 0; stage < Velora_VSP_Conductor::kTakeStages; ++stage) {
            Velora_VSP_Conductor::TakeStage(engine, stage, in.data());
            if (stage == 1) { // the split is done
                low.add(probe.lowBandFrame(), vsp::kLowHop);
                high.add(probe.highBand(), hop);
            }
        }
        if (probe.transientDecision())
            std::fprintf(onsets.get(), "%.3f\n", double(hops * hop) / kRate);
        while (probe.engine->hasFrame()) {
            for (int stage = 0; stage < Velora_VSP_Conductor::kGiveStages; ++stage)
                Velora_VSP_Conductor::GiveStage(engine, stage, made.data());
            stretchedLow.add(probe.lowBandFrame(), vsp::kLowHop);
            stretchedHigh.add(probe.hpOut(), hop);
            out.add(reinterpret_cast<const vsp::Frame*>(made.data()), hop);
        }
    }
    return 0;
}
