// How fast the sound plays when: one speed throughout, or a course over the time of the input.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// A speed that a stream takes, to single precision: what the engine takes as 1 is 1.
std::optional<double> parseSpeed(const std::string& text);

/// Speed over media time in seconds: pieces that are constant or linear.
class SpeedMap {
public:
    explicit SpeedMap(double speed);

    /// Reads lines of a time and the speed from there on; `ramp` joins them linearly instead of in
    /// steps. Speed 1.0 holds before the first. Throws FileError with the line.
    SpeedMap(const std::filesystem::path& file, bool ramp);

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

    /// Whether this speed holds anywhere for a while.
    bool holds(double speed) const;

private:
    struct Piece {
        double media;
        double output; // outputAt(media)
        double speed;  // at `media`
        double slope;  // per second of media

        double speedAt(double at) const { return speed + slope * (at - media); }
        double outputAt(double at) const;
    };

    /// From `media`, the end of the last piece, on.
    void add(double media, double speed, double slope);
    const Piece& pieceAt(double media) const;
    double endOf(const Piece& piece) const;
    void addRamp(std::vector<Step>& steps, const Piece& piece, double rate) const;

    std::vector<Piece> pieces; // by time, the first at 0
};
