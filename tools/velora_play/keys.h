// What the listener can do, by which keys, and how a script of keys is written.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class Action {
    faster,
    slower,
    fineFaster,
    fineSlower,
    normal,
    pause,
    forward,
    back,
    farForward,
    farBack,
    loopFrom,
    loopTo,
    loopOff,
    next,
    previous,
    quit
};

/// An action at a time of listening: in seconds since the first file began, pauses included.
struct TimedAction {
    double time;
    Action action;
};

/// Takes from the start of `typed` the bytes of one key, and returns what it does, if anything. Part
/// of a key that is still on its way stays, and so does nothing else.
std::optional<Action> takeKey(std::string& typed);

/// By its name in scripts.
std::optional<Action> actionNamed(std::string_view name);

/// Reads a file of lines `TIME ACTION...`; # begins a comment. Throws FileError.
std::vector<TimedAction> readScript(const std::string& path);
