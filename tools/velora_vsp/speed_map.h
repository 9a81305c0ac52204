// How fast the sound plays when: one speed throughout, or a course over the time of the input.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// A speed that a stream takes, to single precision: what the engine takes as 1 is 1.
std::optional<double> parseSpeed(const std::string& text);

/// A time in seconds: 90.5, 1:30.5 or 0:01:30.5, up to 10000 hours.
std::optional<double> parseTime(const std::string& text);

/// A stretch of media time in seconds.
struct Span {
    double from;
    double to;
};

/// Speed over media time in seconds: pieces that are constant or linear.
class SpeedMap {
public:
    /// One speed throughout, moved into the range that a stream takes.
    explicit SpeedMap(double speed);

    /// Reads lines of a time and the speed from there on, or `SPEED to SPEED` where it glides up to
    /// the next line; `ramp` lets all lines glide to the next instead of in steps. Speed 1.0 holds
    /// before the first. Throws FileError with the line.
    SpeedMap(const std::filesystem::path& file, bool ramp);

    /// The same map with these stretches, in order and apart, at a speed of their own.
    SpeedMap with(const std::vector<Span>& spans, double speed) const;

    /// The same map with output time 0 at `start`. What comes before passes in no time, at times just
    /// below 0: pictures that later ones need.
    SpeedMap from(double start) const;

    /// As a file that is read back as this very map.
    std::string text() const;

    /// Output time in seconds at which `media` sounds: the exact integral of 1 / speed.
    double outputAt(double media) const;

    double speedAt(double media) const;

    /// The course in steps: each speed with the frame of input from which it holds, the first at 0.
    /// A ramp becomes so many steps that it is met exactly at its ends,
    /// and between them within half a millisecond of output.
    struct Step {
        int64_t frame;
        double speed;
    };
    std::vector<Step> steps(int sampleRate) const;

    /// Whether one speed holds throughout.
    bool isConstant() const { return pieces.size() == 1; }

    /// Whether this speed holds anywhere for a while, to the single precision that the engine has.
    bool holds(double speed) const;

private:
    struct Point {
        double media;
        double speed; // from there on ...
        double end;   // ... up to the next point, at which it is this
    };
    struct Piece {
        double media;
        double output; // outputAt(media)
        double speed;  // at `media`
        double end;    // the speed that it glides to up to the next piece; `speed` if it stays
        double slope;  // per second of media

        double speedAt(double at) const { return speed + slope * (at - media); }
        double outputAt(double at) const;
    };

    explicit SpeedMap(const std::vector<Point>& points);
    static std::vector<Point> readPoints(const std::filesystem::path& name, bool ramp);
    /// From the end of the last piece on; up to `next`, if it glides.
    void add(const Point& point, double next);
    /// Appends what holds from one time to another.
    void copy(std::vector<Point>& points, double from, double to) const;
    const Piece& pieceAt(double media) const;
    double endOf(const Piece& piece) const;
    void addRamp(std::vector<Step>& steps, const Piece& piece, double rate) const;

    std::vector<Piece> pieces; // by time, the first at 0
};
