// The tests' view of an engine's members.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "engine/velora_vsp.h"

struct EngineProbe {
    std::unique_ptr<Velora_VSP> engine = std::make_unique<Velora_VSP>();

    vsp::ComplexInt* spectrum(size_t channel) { return engine->spectrum[channel]; }
    vsp::ComplexShort* synthPhasor(size_t channel) { return engine->synthPhasor[channel]; }
    vsp::Frame* lowBandFrame() { return engine->lowBandFrame; }
    vsp::Frame* highBand() { return engine->hpRing[4]; }
    vsp::Frame* hpOut() { return engine->hpOut; }
    float* bandCog() { return engine->bandCog; }
    float transientThreshold() const { return engine->transientThreshold; }
    bool transientDecision() const { return engine->transientDecision != 0; }
    const int8_t* bandStatus() const { return engine->bandStatus; }
    const int8_t* bandRingIndex() const { return engine->bandRingIndex; }
    int transitionCount() const { return engine->transitionCount; }
    int carryCount() const { return engine->carryCount; }
    bool hasConverter() const { return engine->src != nullptr; }
};
