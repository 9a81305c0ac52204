// The polyline of media time over output time.

#include "stream/time_map.h"
#include "fixed/floating_point.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace vsp {

namespace {

using Segment = TimeMap::Segment;

// For speeds that are set while as many are planned as there is room for: some may be on their way.
constexpr std::size_t kSpare = 16;

// The last segment for which `reached` holds, else the first.
template <class Segments, class Reached>
auto lastReached(Segments& segments, Reached reached)
{
    return std::prev(std::partition_point(segments.begin() + 1, segments.end(), reached));
}

} // namespace

TimeMap::TimeMap(std::size_t changes) : room(changes + 1)
{
    segments.resize(room + kSpare); // so that its pages are there
    reset(0.0, 1.0);
}

void TimeMap::reset(double media, double speed)
{
    segments.assign(1, Segment{0.0, media, speed});
    forgotten = 0;
}

bool TimeMap::makeRoom(std::int64_t past)
{
    if (segments.size() < room)
        return true;
    const auto needed = lastReached(
        segments, [=](const Segment& segment) { return segment.output <= double(past); });
    const auto behind = std::size_t(needed - segments.begin());
    // Half of what can go stays: somebody may still ask for it.
    const std::size_t goes = (behind + 1) / 2;
    segments.erase(segments.begin(), segments.begin() + std::ptrdiff_t(goes));
    forgotten += goes;
    return goes > 0;
}

void TimeMap::grow()
{
    segments.reserve(2 * room + kSpare);
    room *= 2;
}

std::size_t TimeMap::cut(std::int64_t output)
{
    const double media = mediaAt(double(output));
    bool isUnderWay = false;
    for (; segments.size() > 1 && segments.back().output > double(output - 1); segments.pop_back())
        isUnderWay = isUnderWay || segments.back().output <= double(output);
    const std::size_t changed = end();
    if (isUnderWay)
        segments.push_back(Segment{double(output), media, segments.back().speed});
    return changed;
}

std::size_t TimeMap::turnAtOutput(std::int64_t output, double speed)
{
    cut(output);
    const Segment turned{double(output), segments.back().mediaAt(double(output)), speed};
    if (turned.output <= segments.back().output)
        segments.back() = turned;
    else if (segments.size() == segments.capacity())
        segments.back().speed = speed; // of too many changes at once, the last two are one
    else
        segments.push_back(turned);
    return end() - 1;
}

std::size_t TimeMap::turnAtMedia(double media, double speed)
{
    return insert(Segment{outputAt(media), media, speed});
}

std::size_t TimeMap::turnFrom(std::int64_t output, double speed)
{
    return insert(Segment{double(output), mediaAt(double(output)), speed});
}

std::size_t TimeMap::insert(const Segment& turned)
{
    const auto before = lastReached(
        segments, [&](const Segment& segment) { return segment.output <= turned.output; });
    auto at = before;
    if (before->output >= turned.output)
        *before = turned;
    else
        at = segments.insert(before + 1, turned);
    for (auto next = at + 1; next != segments.end(); ++next) {
        const Segment& last = *(next - 1);
        next->output = last.output + (next->media - last.media) / last.speed;
    }
    // What is left out leaves a step in the map, but between two frames.
    const auto isHeard = [](const Segment& segment, const Segment& next) {
        return std::ceil(segment.output) < std::ceil(next.output);
    };
    auto index = std::size_t(at - segments.begin());
    if (index > 1 && !isHeard(segments[index - 1], segments[index]))
        segments.erase(segments.begin() + std::ptrdiff_t(--index));
    for (std::size_t n = std::max<std::size_t>(index, 1); n + 1 < segments.size();)
        if (isHeard(segments[n], segments[n + 1]))
            ++n;
        else
            segments.erase(segments.begin() + std::ptrdiff_t(n));
    return forgotten + index;
}

double TimeMap::outputAt(double media) const
{
    const Segment& s =
        *lastReached(segments, [=](const Segment& segment) { return segment.media <= media; });
    return s.output + (media - s.media) / s.speed;
}

const TimeMap::Segment& TimeMap::byOutput(double output) const
{
    return *lastReached(segments, [=](const Segment& segment) { return segment.output <= output; });
}

} // namespace vsp
