#include "speed_map.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include <velora/stream.hpp>

#include "clock.h"
#include "error.h"

namespace fs = std::filesystem;

namespace {

constexpr double kSlowest = velora::Stream<>::kSlowest;
constexpr double kFastest = velora::Stream<>::kFastest;

constexpr double kLatest = 3.6e7; // seconds: frames of any rate are counted exactly far beyond

// A speed that a stream takes: what the engine takes as 1 is 1.
double possibleSpeed(double speed)
{
    return float(speed) == 1.0f ? 1.0 : std::clamp(speed, kSlowest, kFastest);
}

std::optional<double> parseNumber(const std::string& text)
{
    const bool isPlain = text.find_first_not_of("0123456789.") == std::string::npos;
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    return isPlain && end != text.c_str() && *end == '\0' ? std::optional(number) : std::nullopt;
}

// As few digits as give back the same number.
std::string shortest(double number)
{
    char text[512];
    const auto end = std::to_chars(text, text + sizeof text, number, std::chars_format::fixed).ptr;
    return {text, end};
}

} // namespace

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
    return isComplete && seconds <= kLatest ? std::optional(seconds) : std::nullopt;
}

std::vector<SpeedMap::Point> SpeedMap::readPoints(const fs::path& name, bool ramp)
{
    std::ifstream file(name);
    if (!file)
        throw FileError(name, std::string("can't be opened: ") + std::strerror(errno));
    std::vector<Point> points;
    int lineNumber = 0;
    bool lastGlides = false;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        const auto fail = [&](const std::string& problem) {
            throw FileError(name, "line " + std::to_string(lineNumber) + ": " + problem);
        };
        std::istringstream words(line.substr(0, line.find('#')));
        std::string time;
        std::string speed;
        if (!(words >> time))
            continue;
        if (!(words >> speed))
            fail("a time and a speed are needed, such as '1:30 0.75'");
        const auto media = parseTime(time);
        if (!media)
            fail("'" + time +
                 "' is not a time: give seconds, m:ss or h:mm:ss, such as 90.5 or 1:30.5, up to "
                 "10000 hours");
        std::string to;
        std::string end = speed;
        std::string more;
        const bool glides = bool(words >> to);
        if (glides && (to != "to" || !(words >> end) || words >> more))
            fail("a time and a speed are needed, such as '1:30 0.75', or two speeds, such as "
                 "'1:30 0.75 to 1.5'");
        for (const std::string& each : {speed, end})
            if (!parseSpeed(each))
                fail("'" + each + "' is not a speed: give a number from 0.125 to 8");
        if (!points.empty() && *media <= points.back().media)
            fail("'" + time + "' doesn't come after the time before it: put the lines in order");
        if (ramp && !points.empty() && !lastGlides)
            points.back().end = *parseSpeed(speed);
        points.push_back({*media, *parseSpeed(speed), *parseSpeed(end)});
        lastGlides = glides;
    }
    if (file.bad())
        throw FileError(name, "can't be read");
    if (points.empty())
        throw FileError(name, "has no line with a time and a speed, such as '1:30 0.75'");
    if (lastGlides)
        throw FileError(name, "line " + std::to_string(lineNumber) +
                                  ": no line comes after, up to which the speed could glide");
    return points;
}

std::optional<double> parseSpeed(const std::string& text)
{
    const auto speed = parseNumber(text);
    if (!speed || *speed < kSlowest || *speed > kFastest)
        return std::nullopt;
    return possibleSpeed(*speed);
}

double SpeedMap::Piece::outputAt(double at) const
{
    if (slope == 0.0 || at < media)
        return output + (at - media) / speed;
    return output + std::log1p(slope * (at - media) / speed) / slope;
}

SpeedMap::SpeedMap(double speed)
    : SpeedMap(std::vector<Point>{{0.0, possibleSpeed(speed), possibleSpeed(speed)}})
{
}

SpeedMap::SpeedMap(const fs::path& file, bool ramp) : SpeedMap(readPoints(file, ramp)) {}

SpeedMap::SpeedMap(const std::vector<Point>& points)
{
    constexpr double kNever = std::numeric_limits<double>::infinity();
    if (points.front().media > 0.0)
        add({0.0, 1.0, 1.0}, points.front().media);
    for (size_t n = 0; n < points.size(); ++n)
        add(points[n], n + 1 < points.size() ? points[n + 1].media : kNever);
}

void SpeedMap::add(const Point& point, double next)
{
    const auto& [media, speed, end] = point;
    const double slope = end == speed ? 0.0 : (end - speed) / (next - media);
    if (!pieces.empty() && slope == 0.0 && pieces.back().slope == 0.0 &&
        pieces.back().speed == speed)
        return; // goes on as it was
    pieces.push_back({media, pieces.empty() ? 0.0 : outputAt(media), speed, end, slope});
}

void SpeedMap::copy(std::vector<Point>& points, double from, double to) const
{
    for (const Piece* piece = &pieceAt(from); piece <= &pieces.back() && piece->media < to;
         ++piece) {
        const double start = std::max(piece->media, from);
        const bool isWhole = to >= endOf(*piece);
        const double end = isWhole || piece->slope == 0.0 ? piece->end : piece->speedAt(to);
        points.push_back({start, possibleSpeed(piece->speedAt(start)), possibleSpeed(end)});
    }
}

SpeedMap SpeedMap::with(const std::vector<Span>& spans, double speed) const
{
    std::vector<Point> points;
    double at = 0.0;
    for (const Span& span : spans) {
        copy(points, at, span.from);
        points.push_back({span.from, speed, speed});
        at = span.to;
    }
    copy(points, at, std::numeric_limits<double>::infinity());
    return SpeedMap(points);
}

SpeedMap SpeedMap::from(double start) const
{
    constexpr double kInNoTime = 10000.0;
    if (start <= 0.0)
        return *this;
    std::vector<Point> points{{0.0, kInNoTime, kInNoTime}};
    copy(points, start, std::numeric_limits<double>::infinity());
    SpeedMap part(points);
    const double before = part.outputAt(start);
    for (Piece& piece : part.pieces)
        piece.output -= before;
    return part;
}

std::string SpeedMap::text() const
{
    std::string text = "# Seconds of the input, and the speed from there on; with \"to\" it glides "
                       "up to the next line.\n";
    for (const Piece& piece : pieces) {
        text += shortest(piece.media) + "  " + shortest(piece.speed);
        if (piece.end != piece.speed)
            text += " to " + shortest(piece.end);
        text += "  # " + clock(piece.media) + "\n";
    }
    return text;
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
        if (piece.speed > kFastest)
            continue; // is passed over
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
    return std::any_of(pieces.begin(), pieces.end(), [=](const Piece& p) {
        return p.slope == 0.0 && float(p.speed) == float(speed);
    });
}
