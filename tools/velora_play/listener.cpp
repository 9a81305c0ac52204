#include "listener.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <velora/stream.hpp>

Listener::Listener(double speed, std::vector<TimedAction> actions)
    : script(std::move(actions)), chosen(speed)
{
}

std::optional<Action> Listener::next(int64_t frame, int rate)
{
    if (nextScripted(rate) <= frame)
        return script[used++].action;
    if (typed.size() == 0)
        return std::nullopt;
    const Action action = typed[0];
    typed.drop(1);
    return action;
}

int64_t Listener::nextScripted(int rate) const
{
    return used == script.size() ? kNever
                                 : std::llround(std::max(script[used].time - elapsed, 0.0) * rate);
}

// Whole hundredths, so that steps lead back to where they began.
bool Listener::changeSpeed(Action action)
{
    double speed = chosen;
    switch (action) {
    case Action::faster:
        speed += kStep;
        break;
    case Action::slower:
        speed -= kStep;
        break;
    case Action::fineFaster:
        speed += kFineStep;
        break;
    case Action::fineSlower:
        speed -= kFineStep;
        break;
    case Action::normal:
        speed = 1.0;
        break;
    default:
        return false;
    }
    using AnyStream = velora::Stream<>;
    chosen =
        std::clamp(std::round(100.0 * speed) / 100.0, AnyStream::kSlowest, AnyStream::kFastest);
    return true;
}

bool Listener::obeyWithoutFile()
{
    for (; typed.size() > 0; typed.drop(1)) {
        if (typed[0] == Action::quit)
            return true;
        if (!changeSpeed(typed[0]) && typed[0] == Action::pause) {
            waits = !waits;
            fadeStep = waits ? 0 : kFade;
        }
    }
    return false;
}

void Listener::playOn()
{
    waits = false;
    fadeStep = kFade;
}

void Listener::fade(float* out, int64_t frames, int64_t channels)
{
    if (fadeLeft() == 0)
        return;
    for (int64_t n = 0; n < frames; ++n) {
        fadeStep += waits ? -1 : 1;
        for (int64_t channel = 0; channel < channels; ++channel)
            out[n * channels + channel] *= float(fadeStep) / kFade;
    }
}
