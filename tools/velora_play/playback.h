// One file as it sounds: the audio callback's side, from keys and decoded frames to the sound card.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include <velora/stream.hpp>

#include "feed.h"
#include "keys.h"
#include "mailbox.h"

/// An action at an output frame of this playback.
struct FrameAction {
    int64_t frame;
    Action action;
};

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
    static constexpr double kStep = 0.05;
    static constexpr double kFineStep = 0.01;
    static constexpr double kJump = 5.0;     // seconds
    static constexpr double kFarJump = 30.0; // seconds
    /// A speed that takes a fade is heard after so many hops, over which its work is spread.
    static constexpr int kSpeedHops = 4;
    /// Where the listener wants to be is heard after so many seconds at the earliest.
    static constexpr double kSeekDelay = 0.1;
    /// Frames over which a pause fades out and in.
    static constexpr int kFade = 256;

    /// @param script  in the order of its frames
    Playback(Feed& feed, double speed, std::vector<FrameAction> script);

    /// Fills a buffer, on the audio thread: never allocates, locks or waits.
    void fill(float* out, int64_t frames);

    // From one other thread, at any time.
    void act(Action action) { typed.put(action); } // more at once than there is room for are lost
    Position position() const;
    Outcome outcome() const { return result.load(std::memory_order_acquire); }
    /// Frames that were filled after the outcome was known.
    int64_t framesBehind() const { return behind.load(); }
    /// Times when decoded sound was not there when it was needed.
    int64_t underruns() const { return late.load(); }

    // When no thread fills any more.
    double speed() const { return chosen; }
    int64_t outputFrames() const { return output; }
    size_t scriptUsed() const { return used; }

private:
    void takeActions();
    void obey(Action action);
    void changeSpeed(double speed);
    void seekTo(int64_t media);
    void setLoop(int64_t to);
    int64_t undisturbedFrames(int64_t most) const;
    int64_t play(float* out, int64_t frames);
    void follow();
    bool passMark();
    void jump(int64_t media);
    bool give(float* out, int64_t frames, int64_t& given);
    void fade(float* out, int64_t frames);
    void finish(Outcome outcome);
    bool isSilent() const { return outcome() != Outcome::none || (pauses && fadeStep == 0); }
    int64_t mediaNow() const;
    void show();

    Feed& feed;
    velora::Stream<float> stream;
    std::vector<FrameAction> script;
    size_t used = 0;
    Mailbox<Action, 256> typed;

    int64_t width;
    int64_t output = 0; // frames that were filled
    double chosen;      // speed
    bool pauses = false;
    int fadeStep = kFade; // of the fade: 0 is silence
    bool flushes = false; // the stream knows that nothing follows
    int64_t loopFrom = -1;
    int64_t loopTo = Feed::kNoLoop;
    // Where the listener wants to be, until it is heard; serials count from 1.
    int64_t serial = 0;
    bool isSought = false;
    int64_t target = 0;
    int64_t due = 0; // output frame

    std::atomic<Outcome> result = Outcome::none;
    std::atomic<int64_t> behind = 0;
    std::atomic<int64_t> late = 0;
    std::atomic<int64_t> shownMedia = 0;
    std::atomic<double> shownSpeed;
    std::atomic<float> shownPeak = 0.0F;
    std::atomic<bool> shownPause = false;
    std::atomic<bool> shownStart = false;
    std::atomic<bool> shownLoop = false;
};
