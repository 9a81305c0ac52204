// Plays dense music at one speed with one table of kernels, for scripts/arm-instructions to count.
//   play_stream TABLE SPEED SECONDS

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/dense_music.h"
#include "engine/velora_vsp.h"

namespace {

constexpr int kRate = 44100; // Hz
constexpr int kBlocksPerSecond = 10;
constexpr int kBlock = kRate / kBlocksPerSecond; // frames
constexpr int kMusicBlocks = 2 * kBlocksPerSecond;

const vsp::KernelTable* tableNamed(const std::string& name)
{
    const vsp::KernelTable* const* table = vsp::availableKernels();
    while (*table != nullptr && name != (*table)->name)
        ++table;
    return *table;
}

} // namespace

int main(int argc, char** argv)
{
    const vsp::KernelTable* const kernels = argc == 4 ? tableNamed(argv[1]) : nullptr;
    if (kernels == nullptr)
        return 2;
    const std::vector<int16_t> music = denseMusic(kRate, size_t(kBlock) * kMusicBlocks);
    std::vector<int16_t> out(2 * (8 * (kBlock + 3) + 2 * vsp::kMaxHop));
    const auto engine = std::make_unique<Velora_VSP>(*kernels);
    engine->Init(kRate, Velora_BitDepth_16);
    engine->SetPar(std::strtof(argv[2], nullptr));
    for (int block = 0; block < kBlocksPerSecond * std::atoi(argv[3]); ++block)
        engine->Exe(out.data(), music.data() + 2 * kBlock * (block % kMusicBlocks), kBlock);
}
