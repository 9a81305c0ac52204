#include "speed_map.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include <velora/stream.hpp>

#include "error.h"

namespace fs = std::filesystem;

namespace {

constexpr double kSlowest = velora::Stream<>::kSlowest;
constexpr double kFastest = velora::Stream<>::kFastest;

struct Point {
    double media;
    double speed;
};

std::optional<double> parseNumber(const std::string& text)
{
    const bool isPlain = text.find_first_not_of("0123456789.") == std::string::npos;
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    return isPlain && end != text.c_str() && *end == '\0' ? std::optional(number) : std::nullopt;
}

// Seconds, m:ss or h:mm:ss, with or without a fraction.
std::optional<double> parseTime(const std::string& text)
{
    std::istringstream fields(text);
    double seconds = 0.0;
    int count = 0;
    for (std::string field; std::getline(fields, field, ':'); ++count) {
        const auto number = parseNumber(field);
        const bool isLast = fields.eof();
        if (!number || count == 3 || (count > 0 && *number >= 60.0) ||
            (!isLast && *number != std::floor(*number)))
            return std::nullopt;
        seconds = 60.0 * seconds + *number;
    }
    const bool isComplete = count > 0 && text.back() != ':';
    return isComplete ? std::optional(seconds) : std::nullopt;
}

std::vector<Point> readPoints(const fs::path& name)
{
    std::ifstream file(name);
    if (!file)
        throw FileError(name, std::string("can't be opened: ") + std::strerror(errno));
    std::vector<Point> points;
    int lineNumber = 0;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        const auto fail = [&](const std::string& problem) {
            throw FileError(name, "line " + std::to_string(lineNumber) + ": " + problem);
        };
        std::istringstream words(line.substr(0, line.find('#')));
        std::string time;
        std::string speed;
        std::string more;
        if (!(words >> time))
            continue;
        if (!(words >> speed) || words >> more)
            fail("a time and a speed are needed, such as '1:30 0.75'");
        const auto media = parseTime(time);
        if (!media)
            fail("'" + time +
                 "' is not a time: give seconds, m:ss or h:mm:ss, such as 90.5 or "
                 "1:30.5");
        const auto value = parseSpeed(speed);
        if (!value)
            fail("'" + speed + "' is not a speed: give a number from 0.125 to 8");
        if (!points.empty() && *media <= points.back().media)
            fail("'" + time + "' doesn't come after the time before it: put the lines in order");
        points.push_back({*media, *value});
    }
    if (file.bad())
        throw FileError(name, "can't be read");
    if (points.empty())
        throw FileError(name, "has no line with a time and a speed, such as '1:30 0.75'");
    return points;
}

} // namespace

std::optional<double> parseSpeed(const std::string& text)
{
    const auto speed = parseNumber(text);
    if (!speed || *speed < kSlowest || *speed > kFastest)
        return std::nullopt;
    return float(*speed) == 1.0f ? 1.0 : *speed;
}

double SpeedMap::Piece::outputAt(double at) const
{
    if (slope == 0.0)
        return output + (at - media) / speed;
    return output + std::log1p(slope * (at - media) / speed) / slope;
}

SpeedMap::SpeedMap(double speed)
{
    add(0.0, speed, 0.0);
}

SpeedMap::SpeedMap(const fs::path& file, bool ramp)
{
    const std::vector<Point> points = readPoints(file);
    if (points.front().media > 0.0)
        add(0.0, 1.0, 0.0);
    for (size_t n = 0; n < points.size(); ++n) {
        const Point& point = points[n];
        const bool isRamp = ramp && n + 1 < points.size();
        add(point.media, point.speed,
            isRamp ? (points[n + 1].speed - point.speed) / (points[n + 1].media - point.media)
                   : 0.0);
    }
}

void SpeedMap::add(double media, double speed, double slope)
{
    if (!pieces.empty() && slope == 0.0 && pieces.back().slope == 0.0 &&
        pieces.back().speed == speed)
        return; // goes on as it was
    pieces.push_back({media, pieces.empty() ? 0.0 : outputAt(media), speed, slope});
}

const SpeedMap::Piece& SpeedMap::pieceAt(double media) const
{
    const auto next = std::partition_point(pieces.begin() + 1, pieces.end(),
                                           [=](const Piece& p) { return p.media <= media; });
    return *(next - 1);
}

double SpeedMap::endOf(const Piece& piece) const
{
    const bool isLast = &piece == &pieces.back();
    return isLast ? std::numeric_limits<double>::infinity() : (&piece + 1)->media;
}

double SpeedMap::outputAt(double media) const
{
    return pieceAt(media).outputAt(media);
}

double SpeedMap::speedAt(double media) const
{
    return pieceAt(media).speedAt(media);
}

std::vector<SpeedMap::Step> SpeedMap::steps(int sampleRate) const
{
    std::vector<Step> steps;
    for (const Piece& piece : pieces) {
        if (piece.slope == 0.0)
            steps.push_back({std::llround(piece.media * sampleRate), piece.speed});
        else
            addRamp(steps, piece, sampleRate);
    }
    return steps;
}

// A chord of the curve of output over media, of length d, leaves it by d^2 / 8 times the second
// derivative, which is slope / speed^2.
void SpeedMap::addRamp(std::vector<Step>& steps, const Piece& piece, double rate) const
{
    constexpr double kMostError = 0.0005; // seconds of output
    constexpr double kShortest = 0.005;   // seconds of media
    for (double from = piece.media; from < endOf(piece);) {
        const double speed = piece.speedAt(from);
        const double length = speed * std::sqrt(8.0 * kMostError / std::abs(piece.slope));
        const double to = std::min(from + std::max(length, kShortest), endOf(piece));
        const double pace = (piece.outputAt(to) - piece.outputAt(from)) / (to - from);
        steps.push_back({std::llround(from * rate), std::clamp(1.0 / pace, kSlowest, kFastest)});
        from = to;
    }
}

bool SpeedMap::holds(double speed) const
{
    return std::any_of(pieces.begin(), pieces.end(),
                       [=](const Piece& p) { return p.slope == 0.0 && p.speed == speed; });
}
