// What a stream is made for.
#pragma once

#include <cstdint>

#include <velora/vsp.h>

namespace vsp {

/// Checked by whoever makes a stream.
struct StreamSettings {
    int sampleRate; // Hz
    int channels;   // 1 to 32
    Velora_BitDepth_T depth;
    bool pitchDrops;        // at the converter's speeds
    std::uint32_t sound;    // of the engines, Velora_VSP_Sound_T values
    bool ridesLevel;        // so that the engines work near full scale
    std::int64_t lookAhead; // frames of input that this takes
    double slowest;         // 0.125 to 1
    double fastest;         // 1 to 8
    std::int64_t
        longestBlock;     // frames of input that may wait for room; 0: as many as there is memory
    std::int64_t changes; // changes of speed, and jumps, that are in force at once
};

} // namespace vsp
