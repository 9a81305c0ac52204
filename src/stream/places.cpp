// Stretches of media, by where they went in.

#include "stream/places.h"

#include <algorithm>
#include <iterator>

namespace vsp {

Places::Places(std::size_t changes) : room(changes + 1)
{
    stretches.resize(room); // so that its pages are there
    reset(0, 0);
}

void Places::reset(std::int64_t input, std::int64_t media)
{
    stretches.assign(1, Stretch{input, media});
}

void Places::reserveOne()
{
    if (stretches.size() < room)
        return;
    stretches.reserve(2 * room);
    room *= 2;
}

bool Places::add(std::int64_t input, std::int64_t media, std::int64_t past)
{
    if (stretches.back().input == input) {
        stretches.back().media = media;
        return true;
    }
    if (stretches.size() == room) {
        if (stretches.size() < 2 || stretches[1].input > past)
            return false;
        stretches.erase(stretches.begin());
    }
    stretches.push_back(Stretch{input, media});
    return true;
}

std::int64_t Places::mediaAt(std::int64_t input) const
{
    const auto after = std::partition_point(stretches.begin() + 1, stretches.end(),
                                            [=](const Stretch& s) { return s.input <= input; });
    const Stretch& here = *std::prev(after);
    return here.media + (input - here.input);
}

std::int64_t Places::inputAt(std::int64_t media) const
{
    const Stretch& last = stretches.back();
    return last.input + (media - last.media);
}

} // namespace vsp
