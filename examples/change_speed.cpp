// Changes the speed of raw audio (16-bit stereo, 44100 Hz):  change_speed 0.8 < in.raw > out.raw
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <vector>

#include <velora/stream.hpp>

int main(int argc, char** argv)
try {
    velora::Stream<std::int16_t> stream(44100, 2);
    stream.setSpeed(argc > 1 ? std::atof(argv[1]) : 0.8);

    std::vector<std::int16_t> in(2 * 1000), out;
    while (const std::size_t frames = std::fread(in.data(), 4, 1000, stdin)) {
        stream.process(in.data(), frames, out); // appends what has come out
        std::fwrite(out.data(), 4, out.size() / 2, stdout);
        out.clear();
    }
    stream.flush(out); // the rest: round(frames / speed) in all
    std::fwrite(out.data(), 4, out.size() / 2, stdout);
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return EXIT_FAILURE;
}
