// Sends sound through a velora::Stream along a course of speeds.
#pragma once

#include <memory>
#include <string>

#include <velora/stream.hpp>

#include "samples.h"
#include "speed_map.h"

/// Where the engine lowers the pitch by whole octaves, to single precision.
constexpr double kTapeSpeeds[] = {0.5, 0.25, 0.125};

/// What to tell of one of these; empty for all other speeds.
std::string pitchNotice(double speed);

/// How it is to sound.
struct Manner {
    velora::Pitch pitch;
    velora::Sound sound;
    velora::Material material;
};

/// One sound track on its way from one speed to another.
class Player {
public:
    virtual ~Player() = default;
    /// Plays a block of samples; `out` then holds what has come out.
    virtual void play(const Block& in, Block& out) = 0;
    /// Gives the next part of the rest; false if there is none.
    virtual bool flush(Block& out) = 0;
};

/// @param start  seconds of the map's time at which the track begins
std::unique_ptr<Player> makePlayer(Samples samples, int rate, int channels, const SpeedMap& speed,
                                   double start, const Manner& manner);

/// At speed 1.0 nothing passes the engine, which is 16 bits wide inside.
std::unique_ptr<Player> makeCopier();
