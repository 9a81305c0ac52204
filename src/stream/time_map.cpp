// The polyline of media time over output time.

#include "stream/time_map.h"
#include "fixed/floating_point.h"

#include <algorithm>
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

bool TimeMap::makeRoom(double past)
{
    if (segments.size() < room)
        return true;
    const auto needed =
        lastReached(segments, [=](const Segment& segment) { return segment.output <= past; });
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

void TimeMap::cut(std::int64_t output)
{
    while (segments.size() > 1 && segments.back().output > double(output - 1))
        segments.pop_back();
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
    const auto before =
        lastReached(segments, [=](const Segment& segment) { return segment.media <= media; });
    const Segment turned{before->output + (media - before->media) / before->speed, media, speed};
    auto at = before;
    if (before->media >= media)
        *before = turned;
    else
        at = segments.insert(before + 1, turned);
    const auto index = at - segments.begin();
    for (auto next = at + 1; next != segments.end(); ++next) {
        const Segment& last = *(next - 1);
        next->output = last.output + (next->media - last.media) / last.speed;
    }
    return forgotten + std::size_t(index);
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
