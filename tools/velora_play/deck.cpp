#include "deck.h"

#include <algorithm>

void Deck::fill(float* out, int64_t frames, int64_t channels)
{
    for (int64_t done = 0; done < frames;) {
        Playback* const now = current.load(std::memory_order_relaxed);
        if (now != nullptr)
            done += now->fill(out + done * channels, frames - done);
        if (done == frames || goOn())
            continue;
        obeyWithoutFile();
        std::fill(out + done * channels, out + frames * channels, 0.0F);
        behind += frames - done;
        return;
    }
}

bool Deck::takeOut()
{
    const bool wasFollowing = following.exchange(nullptr) != nullptr;
    return before.exchange(nullptr) != nullptr || wasFollowing;
}

bool Deck::goOn()
{
    Playback* const now = current.load(std::memory_order_relaxed);
    const Outcome outcome = now != nullptr ? now->outcome() : Outcome::none;
    if (outcome == Outcome::quit)
        return false;
    Playback* const next = (outcome == Outcome::previous ? before : following).exchange(nullptr);
    if (next == nullptr)
        return false;
    if (now != nullptr)
        listener.endFile(now->seconds());
    behind = 0;
    next->begin();
    current.store(next, std::memory_order_release);
    return true;
}
