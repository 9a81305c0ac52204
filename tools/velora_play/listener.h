// What the listener has asked for and chosen: keys and a script of them, speed and pause, which stay from file to file.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "keys.h"
#include "mailbox.h"

/// Belongs to the audio thread while there is one, else to the one that plays the files.
class Listener {
public:
    static constexpr double kStep = 0.05;
    static constexpr double kFineStep = 0.01;
    /// Frames over which a pause fades out and in.
    static constexpr int kFade = 256;
    static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

    /// @param script  in the order of its times
    Listener(double speed, std::vector<TimedAction> script);

    // From any one thread, at any time.
    void act(Action action) { typed.put(action); } // more at once than there is room for are lost
    double speed() const { return chosen.load(); }
    bool pauses() const { return waits.load(); }

    /// What the script has for this frame of the file and those before, then what was typed.
    std::optional<Action> next(int64_t frame, int rate);
    /// Frame of the file at which the script goes on.
    int64_t nextScripted(int rate) const;
    /// So much of a file was heard, the last of it now.
    void endFile(double seconds) { elapsed += seconds; }

    /// Takes on the speed that an action asks for; false if it asks for none.
    bool changeSpeed(Action action);
    void pause() { waits = !waits; }
    /// What needs no file: of what was typed, the rest is lost, but for one that ends it all.
    /// @return whether it is to end
    bool obeyWithoutFile();
    void playOn();

    int fadeLeft() const { return waits ? fadeStep : kFade - fadeStep; } // frames
    bool isSilent() const { return waits && fadeStep == 0; }
    void fade(float* out, int64_t frames, int64_t channels);

private:
    Mailbox<Action, 256> typed;
    std::vector<TimedAction> script;
    size_t used = 0;
    double elapsed = 0.0; // seconds of listening before this file
    std::atomic<double> chosen;
    std::atomic<bool> waits = false;
    int fadeStep = kFade; // 0 is silence
};
