// One file as it sounds: the audio callback's side, from keys and decoded frames to the sound card.
#pragma once

#include <atomic>
#include <cstdint>

#include <velora/stream.hpp>

#include "feed.h"
#include "keys.h"
#include "listener.h"

enum class Outcome { none, ended, next, previous, quit };

/// What the listener is shown.
struct Position {
    int64_t media; // frame
    double speed;
    bool isPaused;
    bool hasLoopStart;
    bool loops;
    float peak; // of the last buffer, full scale 1.0
};

class Playback {
public:
    static constexpr double kJump = 5.0;     // seconds
    static constexpr double kFarJump = 30.0; // seconds
    /// A speed that takes a fade is heard after so many hops, over which its work is spread.
    static constexpr int kSpeedHops = 4;
    /// Where the listener wants to be is heard after so many seconds at the earliest.
    static constexpr double kSeekDelay = 0.1;

    Playback(Feed& feed, Listener& listener);

    // On the audio thread: these neither allocate, lock nor wait.

    /// To be called once before anything is filled, when the listener is done with other files.
    void begin() { stream.setSpeed(listener.speed()); }
    /// Fills a buffer, up to the frame at which the outcome is known.
    /// @return how many frames these were
    int64_t fill(float* out, int64_t frames);
    /// How long it has been heard.
    double seconds() const { return double(output) / stream.sampleRate(); }

    // From one other thread, at any time.
    Position position() const;
    Outcome outcome() const { return result.load(std::memory_order_acquire); }
    /// Times when decoded sound was not there when it was needed.
    int64_t underruns() const { return late.load(); }

private:
    void takeActions();
    void obey(Action action);
    void seekTo(int64_t media);
    void setLoop(int64_t to);
    int64_t undisturbedFrames(int64_t most) const;
    int64_t play(float* out, int64_t frames);
    void follow();
    bool passMark();
    void jump(int64_t media);
    bool give(float* out, int64_t frames, int64_t& given);
    void finish(Outcome outcome);
    int64_t mediaNow() const;
    void show();

    Feed& feed;
    Listener& listener;
    velora::Stream<float> stream;
    int64_t width;
    int64_t output = 0;   // frames that were filled
    bool flushes = false; // the stream knows that nothing follows
    int64_t loopFrom = -1;
    int64_t loopTo = Feed::kNoLoop;
    // Where the listener wants to be, until it is heard; serials count from 1.
    int64_t serial = 0;
    bool isSought = false;
    int64_t target = 0;
    int64_t due = 0; // output frame

    std::atomic<Outcome> result = Outcome::none;
    std::atomic<int64_t> late = 0;
    std::atomic<int64_t> shownMedia = 0;
    std::atomic<float> shownPeak = 0.0F;
    std::atomic<bool> shownStart = false;
    std::atomic<bool> shownLoop = false;
};
