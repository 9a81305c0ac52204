#include "playback.h"

#include <algorithm>
#include <cmath>

namespace {

// So much decoded sound has to lie behind a place before it is gone to.
constexpr double kReadySeconds = 0.25;
constexpr double kShortestLoop = 0.1; // seconds
constexpr int64_t kPiece = 1024;      // frames of input at a time

} // namespace

Playback::Playback(Feed& source, Listener& who)
    : feed(source), listener(who), stream(source.rate(), source.channels(), velora::Options{}),
      width(source.channels())
{
}

int64_t Playback::fill(float* out, int64_t frames)
{
    float peak = 0.0F;
    int64_t done = 0;
    for (takeActions(); done < frames && outcome() == Outcome::none; takeActions()) {
        float* const to = out + done * width;
        const int64_t wanted = undisturbedFrames(frames - done);
        const int64_t given = listener.isSilent() ? 0 : play(to, wanted);
        const int64_t count = outcome() == Outcome::none ? wanted : given;
        std::fill(to + given * width, to + count * width, 0.0F);
        listener.fade(to, count, width);
        for (const float* sample = to; sample < to + count * width; ++sample)
            peak = std::max(peak, std::fabs(*sample));
        output += count;
        done += count;
    }
    shownPeak = peak;
    show();
    return done;
}

// ---- What the listener wants ----

void Playback::takeActions()
{
    while (outcome() == Outcome::none) {
        const auto action = listener.next(output, stream.sampleRate());
        if (!action)
            return;
        obey(*action);
    }
}

// Frames up to the next thing that is known to come, `most` at most.
int64_t Playback::undisturbedFrames(int64_t most) const
{
    most = std::min(most, listener.nextScripted(stream.sampleRate()) - output);
    if (isSought && due > output)
        most = std::min(most, due - output);
    const int fadeLeft = listener.fadeLeft();
    return fadeLeft > 0 ? std::min<int64_t>(most, fadeLeft) : most;
}

void Playback::obey(Action action)
{
    const auto seconds = [this](double time) { return std::llround(time * stream.sampleRate()); };
    const int64_t here = mediaNow();
    switch (action) {
    case Action::faster:
    case Action::slower:
    case Action::fineFaster:
    case Action::fineSlower:
    case Action::normal:
        listener.changeSpeed(action);
        return stream.setSpeed(listener.speed(), kSpeedHops * stream.hopFrames());
    case Action::pause:
        return listener.pause();
    case Action::forward:
        return seekTo(here + seconds(kJump));
    case Action::back:
        return seekTo(here - seconds(kJump));
    case Action::farForward:
        return seekTo(here + seconds(kFarJump));
    case Action::farBack:
        return seekTo(here - seconds(kFarJump));
    case Action::loopFrom:
        loopFrom = here;
        return;
    case Action::loopTo:
        return setLoop(here);
    case Action::loopOff:
        return setLoop(Feed::kNoLoop);
    case Action::next:
        return finish(Outcome::next);
    case Action::previous:
        return finish(Outcome::previous);
    case Action::quit:
        return finish(Outcome::quit);
    }
}

void Playback::seekTo(int64_t media)
{
    const int64_t last = feed.duration() > 0 ? feed.duration() : media;
    const int64_t place = std::clamp<int64_t>(media, 0, std::max<int64_t>(last, 0));
    const bool staysInLoop = place < loopTo;
    if (!feed.canSeek())
        return;
    if (!feed.give({serial + 1, place, loopFrom, staysInLoop ? loopTo : Feed::kNoLoop}))
        return; // the decoder will be at it for a while
    if (!staysInLoop)
        loopTo = Feed::kNoLoop;
    ++serial;
    target = place;
    if (!isSought)
        due = output + std::llround(kSeekDelay * stream.sampleRate());
    isSought = true;
}

// A loop begins at once. Behind its end it goes on as if nothing of the next turn had been decoded.
void Playback::setLoop(int64_t to)
{
    const int64_t here = mediaNow();
    if (to == Feed::kNoLoop) {
        if (loopTo == Feed::kNoLoop)
            return void(loopFrom = -1);
        loopFrom = -1;
        loopTo = to;
        const double ahead = kSeekDelay * stream.sampleRate() * listener.speed();
        return seekTo(here + std::llround(ahead) + stream.latencyFrames());
    }
    const auto shortest = std::llround(kShortestLoop * stream.sampleRate());
    if (loopFrom < 0 || to - loopFrom < shortest || !feed.canSeek())
        return;
    loopTo = to;
    seekTo(loopFrom);
}

// A file that the listener has gone to plays; one that follows goes on with a pause.
void Playback::finish(Outcome outcome)
{
    if (outcome != Outcome::ended)
        listener.playOn();
    result.store(outcome, std::memory_order_release);
}

// ---- Sound ----

int64_t Playback::play(float* out, int64_t frames)
{
    int64_t given = 0;
    while (given < frames) {
        if (isSought && output + given >= due)
            follow();
        if (give(out, frames, given) || passMark())
            continue;
        if (outcome() == Outcome::none && !flushes)
            ++late;
        break;
    }
    return given;
}

// Adds what the stream gives for a piece of input, if it needs any; false if there was none to be had.
bool Playback::give(float* out, int64_t frames, int64_t& given)
{
    float* const to = out + given * width;
    const auto room = size_t(frames - given);
    if (flushes) {
        const auto more = int64_t(stream.flush(to, room));
        given += more;
        if (given < frames && !isSought)
            finish(Outcome::ended);
        return more > 0;
    }
    auto wanted = std::min(int64_t(stream.inputFramesFor(room)), kPiece);
    const float* in = nullptr;
    FrameQueue& queue = feed.frames();
    if (wanted > 0) {
        const int64_t written = queue.written(); // before the marks are looked at
        const auto& marks = feed.marks();
        const int64_t limit = marks.size() > 0 ? marks[0].position : written;
        wanted = std::min(wanted, std::min(written, limit) - queue.taken());
        if (wanted <= 0)
            return false;
        in = queue.next(wanted);
    }
    const auto more = int64_t(stream.process(in, size_t(wanted), to, room));
    queue.takeUpTo(queue.taken() + wanted);
    given += more;
    return wanted > 0 || more > 0;
}

// Goes on behind the mark that has been reached; false if there is none.
bool Playback::passMark()
{
    auto& marks = feed.marks();
    if (marks.size() == 0 || marks[0].position != feed.frames().taken() || flushes)
        return false;
    const Mark mark = marks[0];
    marks.drop(1);
    if (mark.kind == Mark::Kind::end)
        flushes = true;
    else
        jump(mark.media);
    if (mark.kind == Mark::Kind::order && mark.serial == serial)
        isSought = false;
    return true;
}

// Goes to where the listener wants to be, if enough of it is decoded; until then what sounds goes on.
void Playback::follow()
{
    const int64_t written = feed.frames().written(); // before the marks are looked at
    auto& marks = feed.marks();
    const size_t count = marks.size();
    size_t place = 0;
    while (place < count &&
           (marks[place].kind != Mark::Kind::order || marks[place].serial != serial))
        ++place;
    if (place == count)
        return;
    const Mark mark = marks[place];
    const auto enough = std::llround(kReadySeconds * stream.sampleRate());
    if (place + 1 == count && written - mark.position < enough)
        return;
    marks.drop(place + 1);
    feed.frames().takeUpTo(mark.position);
    jump(mark.media);
    isSought = false;
}

void Playback::jump(int64_t media)
{
    if (flushes || !stream.jump(media))
        stream.seek(media);
    flushes = false;
}

// ---- What is shown ----

int64_t Playback::mediaNow() const
{
    return isSought ? target : stream.clock().mediaFrame;
}

void Playback::show()
{
    shownMedia = mediaNow();
    shownStart = loopFrom >= 0;
    shownLoop = loopTo != Feed::kNoLoop;
}

Position Playback::position() const
{
    return {shownMedia, listener.speed(), listener.pauses(), shownStart, shownLoop, shownPeak};
}
