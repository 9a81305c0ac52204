#include "support/golden_engines.h"

std::vector<GoldenEngine> goldenEngines()
{
    return {{"shipped", [](size_t) { return Velora_VSP_Factory::Create(); }}};
}
