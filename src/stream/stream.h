// One stream of 1 to 32 channels, whatever its format: what the C interface hands out.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include <velora/vsp.h>

#include "stream/clock.h"
#include "stream/pair_queue.h"
#include "stream/places.h"
#include "stream/schedule.h"
#include "stream/settings.h"
#include "stream/sound.h"

namespace vsp {

class Stream {
public:
    /// Takes all the memory that it will need, unless longestBlock is 0. May throw std::bad_alloc.
    explicit Stream(const StreamSettings& fixed);

    const StreamSettings& settings() const { return fixed; }
    std::int64_t hopFrames() const { return schedule.rate.hop; }

    bool takesSpeed(double speed) const { return speed >= fixed.slowest && speed <= fixed.fastest; }

    // ---- Speeds; all are in range ----
    void setSpeed(double speed, std::int64_t withinFrames);
    /// @returns the first output frame at which it holds; -1 if there is no room for another change
    std::int64_t setSpeedAt(std::int64_t mediaFrame, double speed);
    void clearPlans();
    double speed() const { return map().last().speed; }
    double speedAt(std::int64_t outputFrame) const { return map().speedAt(double(outputFrame)); }
    /// From any thread: the next call that processes sets it.
    void requestSpeed(double speed) { requested.store(speed, std::memory_order_release); }

    // ---- Places ----
    void reset();
    void seek(std::int64_t mediaFrame, const Source& preRoll, std::int64_t frames);
    /// What is planned for frames that don't go in any more is forgotten.
    /// @returns false if there is no room for another jump
    bool jump(std::int64_t mediaFrame);

    // ---- Processing ----
    std::int64_t process(const Source& in, std::int64_t frames, const Destination& out,
                         std::int64_t room);
    std::int64_t flush(const Destination& out, std::int64_t room);
    bool hasEnded() const { return ended; }

    // ---- Queries ----
    std::int64_t maxOutputFrames(std::int64_t frames) const;
    std::int64_t inputFramesFor(std::int64_t frames) const;
    std::int64_t mostInputFrames(std::int64_t frames) const;
    std::int64_t latencyFrames() const;
    std::int64_t inputFrames() const { return (ended ? inputAtEnd : schedule.input) - preRolled; }
    std::int64_t outputFrames() const { return schedule.taken; }
    std::int64_t changeFrame(double speed, std::int64_t withinFrames) const;
    std::int64_t mediaFrameOf(std::int64_t outputFrame) const;
    std::int64_t outputFrameOf(std::int64_t mediaFrame) const;
    /// From any thread.
    Clock clock() const { return published.read(); }

private:
    const TimeMap& map() const { return sound.map; }
    Voice voiceAt(double speed) const { return Voice::at(speed, schedule.rate); }
    bool makeRoomForChange();
    void forgetPlans(std::int64_t from);
    void takeRequest();
    /// Whether it makes do with the memory that it took at its start.
    bool isBounded() const { return fixed.longestBlock > 0; }
    std::int64_t blendFrames() const;
    void begin(std::int64_t mediaFrame, double atSpeed, std::int64_t preRoll);
    void blend(std::int64_t from, std::int64_t frames);
    void blendIn(std::int64_t from);
    void expect(const Source& in, std::int64_t done, std::int64_t frames) const;
    void accept(std::int64_t frames);
    std::int64_t roomForInput(std::int64_t wanted);
    std::int64_t give(const Destination& out, std::int64_t given, std::int64_t room);
    std::int64_t givePart(const Destination& out, std::int64_t most);
    std::int64_t finish(const Destination& out, std::int64_t room);
    std::int64_t total() const;
    void publish();

    StreamSettings fixed;
    Sound sound;
    Schedule schedule;
    Places places; // media frames of input frames
    std::int64_t preRolled = 0;
    bool ended = false;
    std::int64_t inputAtEnd = 0; // without the silence that the end adds

    // ---- Where the input is cut: it fades from what came before, reversed, or from silence ----
    PairQueue before;
    PairQueue silence;          // [blendFrames()] at frame 0
    std::int64_t blendFrom = 0; // input frame
    std::int64_t blendTo = 0;   // input frame; what lies up to there is to be blended
    std::int64_t fadeInTo = 0;  // output frame; the engines' sound is faded in up to there

    std::int64_t setFrame = 0; // output frame from which the speed last set holds
    std::int64_t seeks = 0;
    std::atomic<double> requested{0.0}; // 0: none
    ClockFace published;
};

} // namespace vsp
