// The engines that replay the golden scenarios: which ones is up to the test program.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <velora/vsp.h>

struct GoldenEngine {
    std::string name;
    Velora_VSP_Interface* (*create)(size_t index);
};

std::vector<GoldenEngine> goldenEngines();
