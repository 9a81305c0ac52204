// The sound card, through SDL.
#pragma once

#include <cstdint>

#include <SDL.h>

#include "deck.h"

/// What is needed to use sound cards. Throws std::runtime_error.
class Sdl {
public:
    Sdl();
    ~Sdl();
    Sdl(const Sdl&) = delete;
    Sdl& operator=(const Sdl&) = delete;
};

/// The sound card while it plays what is on a deck.
class SoundCard {
public:
    static constexpr int kBufferFrames = 1024;

    /// Throws std::runtime_error.
    SoundCard(Deck& deck, int rate, int channels);
    ~SoundCard();
    SoundCard(const SoundCard&) = delete;
    SoundCard& operator=(const SoundCard&) = delete;

    bool takes(int otherRate, int otherChannels) const
    {
        return otherRate == rate && otherChannels == channels;
    }

private:
    Deck& deck;
    int rate;
    int channels;
    SDL_AudioDeviceID device;
};
