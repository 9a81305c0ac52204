// The terminal: keys at once and without echo, no cursor, and as before however the program ends.
#pragma once

#include <string>

class Terminal {
public:
    /// Takes the keys of standard input, or, where that is a file or pipe to be played, of the
    /// terminal by itself. Without one there are no keys.
    explicit Terminal(bool inputIsPlayed);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Waits up to `milliseconds` for keys, and appends their bytes.
    void read(std::string& typed, int milliseconds);
    /// Puts a line in the place of the one shown before. Nothing where standard output is no terminal.
    void show(const std::string& line);
    /// Ends the line shown, so that something else can be written.
    void endLine();

private:
    bool showsLine;
    std::string shown;
};
