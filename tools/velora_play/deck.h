// Plays file after file on one sound card: where one ends, the next that is there begins with the next frame.
#pragma once

#include <atomic>
#include <cstdint>

#include "listener.h"
#include "playback.h"

class Deck {
public:
    explicit Deck(Listener& who) : listener(who) {}

    /// Fills a buffer, on the audio thread: never allocates, locks or waits.
    /// @param channels  of all that is laid in while this goes on
    void fill(float* out, int64_t frames, int64_t channels);

    // From one other thread, at any time.

    /// What sounds, or sounded last; null before the first. What did before is no longer used.
    const Playback* playing() const { return current.load(std::memory_order_acquire); }
    /// Whether nothing sounds until something is laid in.
    bool isIdle() const { return playing() == nullptr || playing()->outcome() != Outcome::none; }
    /// Lays in what comes when that has ended, or what comes now, since the file before is wanted.
    void lay(Playback& next, bool isBefore)
    {
        (isBefore ? before : following).store(&next, std::memory_order_release);
    }
    /// Takes that out again; false if it plays already, or nothing is there.
    bool takeOut();
    /// Frames that were filled with silence since.
    int64_t framesBehind() const { return behind.load(); }
    /// Whether the listener wants to quit though nothing sounds.
    bool quits() const { return wantsEnd.load(); }

    /// Does what needs no file: for this thread while there is no audio thread.
    void obeyWithoutFile() { wantsEnd = listener.obeyWithoutFile() || wantsEnd; }

private:
    bool goOn();

    Listener& listener;
    std::atomic<Playback*> current = nullptr;
    // What was laid in to come next is not what a listener wants who goes back.
    std::atomic<Playback*> following = nullptr;
    std::atomic<Playback*> before = nullptr;
    std::atomic<int64_t> behind = 0;
    std::atomic<bool> wantsEnd = false;
};
