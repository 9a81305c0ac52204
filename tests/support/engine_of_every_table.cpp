#include "engine/velora_vsp.h"
#include "support/golden_engines.h"

std::vector<GoldenEngine> goldenEngines()
{
    std::vector<GoldenEngine> engines;
    for (const vsp::KernelTable* const* table = vsp::availableKernels(); *table != nullptr; ++table)
        engines.push_back({(*table)->name, [](size_t index) -> Velora_VSP_Interface* {
                               return new Velora_VSP(*vsp::availableKernels()[index]);
                           }});
    return engines;
}
