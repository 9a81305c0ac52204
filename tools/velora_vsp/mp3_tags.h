// Titles and covers in the middle of MP3 files that were joined, which are neither sound nor damage.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

class Mp3Tags {
public:
    /// How much at the front of the next packet is no sound: tags, and a frame behind them that only
    /// counts those to come. Packets are what lies between two things that look like frames, so that
    /// a long tag may be several.
    size_t bytesIn(std::span<const uint8_t> packet);

private:
    size_t left = 0; // bytes of the tag that began last
};
