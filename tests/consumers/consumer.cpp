// Plays 1000 frames of silence at speed 0.5 through the converter and wants 2000 of them.
#include <cstdint>
#include <vector>

#include <velora/stream.hpp>

int main()
{
    velora::Stream<std::int16_t> stream(48000, 2, velora::Pitch::drop);
    stream.setSpeed(0.5);
    std::vector<std::int16_t> out;
    const std::size_t got = stream.process(std::vector<std::int16_t>(2 * 1000), out);
    return got + stream.flush(out) == 2000 ? 0 : 1;
}
