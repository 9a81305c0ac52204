// The tests' view of an engine's members.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "engine/velora_vsp.h"

struct EngineProbe {
    struct Engine : Velora_VSP {
        using Velora_VSP::bandCog;
        using Velora_VSP::bandRingIndex;
        using Velora_VSP::bandStatus;
        using Velora_VSP::carryCount;
        using Velora_VSP::frameClock;
        using Velora_VSP::highBand;
        using Velora_VSP::lowBandFrame;
        using Velora_VSP::src;
        using Velora_VSP::stageWork;
        using Velora_VSP::transientDecision;
        using Velora_VSP::transientThreshold;
        using Velora_VSP::transitionCount;
    };
    std::unique_ptr<Engine> engine = std::make_unique<Engine>();

    auto& spectrum() { return engine->stageWork.spectrum; }
    vsp::Frame* lowBandFrame() { return engine->lowBandFrame; }
    vsp::Frame* highBand() { return engine->highBand.newest(); }
    vsp::Frame* hpOut() { return engine->stageWork.hpOut; }
    float* bandCog() { return engine->bandCog; }
    float transientThreshold() const { return engine->transientThreshold; }
    bool transientDecision() const { return engine->transientDecision != 0; }
    const int8_t* bandStatus() const { return engine->bandStatus; }
    const int8_t* bandRingIndex() const { return engine->bandRingIndex; }
    int transitionCount() const { return engine->transitionCount; }
    int carryCount() const { return engine->carryCount; }
    bool hasConverter() const { return engine->src != nullptr; }
};
