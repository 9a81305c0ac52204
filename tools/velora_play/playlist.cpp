#include "playlist.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "bytes.h"
#include "interruption.h"
#include "keys.h"
#include "status_line.h"

namespace {

constexpr int kPollMilliseconds = 20;

// Names may hold bytes that a terminal would obey.
std::string printable(std::string text)
{
    const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    // U+0080 to U+009F in UTF-8, of which U+009B begins a sequence as Esc [ does.
    for (size_t at = 0; (at = text.find('\xc2', at)) < text.size(); ++at)
        if (at + 1 < text.size() && (text[at + 1] & '\xe0') == '\x80')
            text.replace(at, 2, "?");
    return text;
}

} // namespace

Playlist::Playlist(const Options& given)
    : options(given), terminal(std::count(given.files.begin(), given.files.end(), kPipe) > 0),
      listener(given.speed, given.script), deck(listener)
{
}

bool Playlist::playAll()
{
    while (!isDone()) {
        attend();
        moveOn();
        prepare();
        show();
    }
    terminal.endLine();
    card.reset();
    if (playing)
        close(*playing);
    return allPlayed;
}

bool Playlist::isDone() const
{
    if (quits || deck.quits())
        return true;
    if (playing && playing->playback->outcome() == Outcome::quit)
        return isDrained();
    return !upcoming && next >= options.files.size() && (!playing || isDrained());
}

// Whether all has been heard.
bool Playlist::isDrained() const
{
    return deck.isIdle() && deck.framesBehind() >= 2 * SoundCard::kBufferFrames;
}

// ---- What the listener wants ----

void Playlist::attend()
{
    throwIfInterrupted();
    terminal.read(typed, kPollMilliseconds);
    for (size_t before = 0; before != typed.size();) {
        before = typed.size();
        const auto action = takeKey(typed);
        if (action && !(deck.isIdle() && obeyWhileIdle(*action)))
            listener.act(*action);
    }
    if (!card)
        deck.obeyWithoutFile();
}

// While the next file is awaited, that is the one to leave; false if it is not for that.
bool Playlist::obeyWhileIdle(Action action)
{
    const size_t awaited = upcoming ? upcoming->file : next;
    if (action == Action::quit)
        return quits = true;
    if (action == Action::next)
        return leaveFor(awaited + 1, false);
    if (action == Action::previous)
        return leaveFor(awaited - std::min<size_t>(awaited, 1), true);
    return false;
}

// Opens another file than what is awaited; false if that plays already.
bool Playlist::leaveFor(size_t file, bool isBack)
{
    if (upcoming && upcoming->isLaid && !deck.takeOut())
        return false;
    upcoming.reset();
    next = std::min(file, options.files.size());
    goesBack = isBack;
    return true;
}

// ---- From file to file ----

// Follows the sound card to the next file, and the listener to the one before.
void Playlist::moveOn()
{
    if (upcoming && upcoming->isLaid && deck.playing() == &*upcoming->playback) {
        if (playing)
            close(*playing);
        playing = std::move(upcoming);
        next = playing->file + 1;
        goesBack = false;
        announce(options.files[playing->file]);
    }
    if (!playing || playing->isClosed || !deck.isIdle())
        return;
    if (playing->playback->outcome() == Outcome::previous)
        leaveFor(playing->file - std::min<size_t>(playing->file, 1), true);
    close(*playing);
}

// Opens the next file and lays it in. A sound card that is set up for other sound ends first.
void Playlist::prepare()
{
    if (!upcoming && mayOpen())
        upcoming = std::make_unique<Title>(next, options.files[next]);
    if (!upcoming || upcoming->isLaid || !upcoming->feed.isReady())
        return;
    const Feed& feed = upcoming->feed;
    if (!feed.hasSound())
        return passOver();
    if (!upcoming->playback)
        upcoming->playback.emplace(upcoming->feed, listener);
    if (card && !card->takes(feed.rate(), feed.channels())) {
        if (!isDrained())
            return;
        card.reset();
    }
    // Before the listener's wish to go back is seen here, what comes is not what is wanted.
    deck.lay(*upcoming->playback,
             playing && playing->isClosed && playing->playback->outcome() == Outcome::previous);
    upcoming->isLaid = true;
    if (!card)
        card.emplace(deck, feed.rate(), feed.channels());
}

// Once nothing more is read from the one that plays. What follows in the same pipe begins where that ends.
bool Playlist::mayOpen() const
{
    if (next >= options.files.size())
        return false;
    const std::string& path = options.files[next];
    return !playing || playing->isClosed ||
           (playing->feed.isAllDecoded() &&
            (Feed::canGoBackIn(path) || path != options.files[playing->file]));
}

// On, or on back, from what can't be played.
void Playlist::passOver()
{
    const size_t file = upcoming->file;
    complain(upcoming->feed.stop());
    upcoming.reset();
    goesBack = goesBack && file > 0;
    next = goesBack ? file - 1 : file + 1;
}

void Playlist::close(Title& title)
{
    if (title.isClosed)
        return;
    title.isClosed = true;
    const std::string problem = title.feed.stop();
    if (!problem.empty())
        complain(problem);
    const auto late = static_cast<long long>(title.playback->underruns());
    if (late > 0) {
        terminal.endLine();
        std::fprintf(stderr, "velora-play: %lld times sound came too late\n", late);
    }
}

// ---- What is shown ----

void Playlist::show()
{
    if (playing)
        return terminal.show(statusLine(playing->playback->position(), playing->feed.duration(),
                                        playing->feed.rate()));
    const Position none{0, listener.speed(), listener.pauses(), false, false, 0.0F};
    terminal.show(statusLine(none, 0, 1));
}

void Playlist::announce(const std::string& path)
{
    if (options.files.size() < 2)
        return;
    terminal.endLine();
    std::printf("%s\n", printable(path).c_str());
    std::fflush(stdout);
}

void Playlist::complain(const std::string& problem)
{
    terminal.endLine();
    std::fprintf(stderr, "velora-play: %s\n", printable(problem).c_str());
    allPlayed = false;
}
