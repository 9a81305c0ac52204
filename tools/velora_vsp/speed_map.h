// How fast the sound plays when: one speed throughout, or a course over the time of the input.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

constexpr double kSlowest = 0.125;
constexpr double kFastest = 8.0;

/// A number from kSlowest to kFastest, to single precision: what the engine takes as 1 is 1.
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

    /// Speed to set where it holds from media time `media` on, which sounds at `output`, for at
    /// least `step` seconds of media. Makes up for what output is early or late: by the choice of
    /// where a step falls, and along a ramp.
    /// @param current  the speed before
    double speedFrom(double media, double output, double step, double current) const;

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
    const Piece* chooseBetweenSteps(const Piece* piece, double media, double output, double step,
                                    double current) const;
    double endOf(const Piece& piece) const;

    std::vector<Piece> pieces; // by time, the first at 0
};
