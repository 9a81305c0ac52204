// velora-play: plays files through the sound card, faster or slower by keys.

#include <cstdio>
#include <exception>

#include "interruption.h"
#include "options.h"
#include "playlist.h"
#include "sound_card.h"

namespace {

constexpr int kFailed = 1;

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = readOptions(argc, argv);
        if (options.finished)
            return options.exitCode;
        const Sdl sdl;
        catchInterruptions();
        return Playlist(options).playAll() ? 0 : kFailed;
    } catch (const Interrupted&) {
        dieOfInterruption();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "velora-play: %s\n", error.what());
        return kFailed;
    }
}
