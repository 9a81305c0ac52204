// The files in their order: opens each in time for the next frame, and passes on what the listener types.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "deck.h"
#include "feed.h"
#include "listener.h"
#include "options.h"
#include "playback.h"
#include "sound_card.h"
#include "terminal.h"

class Playlist {
public:
    explicit Playlist(const Options& options);

    /// Plays until the end, or until the listener quits. Throws Interrupted, or std::runtime_error if
    /// there is no sound card.
    /// @return whether all could be played
    bool playAll();

private:
    /// A file on its way to the sound card.
    struct Title {
        Title(size_t place, const std::string& path) : file(place), feed(path) {}

        size_t file; // place in the list
        Feed feed;
        std::optional<Playback> playback; // once enough is decoded
        bool isLaid = false;              // on the deck
        bool isClosed = false;            // heard to its end, or left
    };

    bool isDone() const;
    bool isDrained() const;
    void attend();
    bool obeyWhileIdle(Action action);
    bool leaveFor(size_t file, bool isBack);
    void moveOn();
    void prepare();
    bool mayOpen() const;
    void passOver();
    void close(Title& title);
    void show();
    void announce(const std::string& path);
    void complain(const std::string& problem);

    const Options& options;
    Terminal terminal;
    std::string typed;
    Listener listener;
    Deck deck;
    size_t next = 0;       // place of the file to be opened next
    bool goesBack = false; // past what can't be played
    bool quits = false;
    bool allPlayed = true;
    std::unique_ptr<Title> playing; // or what did last
    std::unique_ptr<Title> upcoming;
    std::optional<SoundCard> card; // gone before what it plays
};
