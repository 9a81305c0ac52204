// velora-vsp: plays a sound file faster or slower and writes the result.

#include <cstdio>
#include <exception>

#include "interruption.h"
#include "job.h"
#include "options.h"

namespace {

constexpr int kFailed = 1;

void announcePitch(const Options& options)
{
    if (options.pitchDrops)
        std::fprintf(stderr,
                     "velora-vsp: at speed %g the pitch drops with the speed, as on a slowed tape "
                     "(--keep-pitch keeps it)\n",
                     options.speed);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = readOptions(argc, argv);
        if (options.finished)
            return options.exitCode;
        catchInterruptions();
        announcePitch(options);
        changeSpeed(options);
        return 0;
    } catch (const Interrupted&) {
        dieOfInterruption();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "velora-vsp: %s\n", error.what());
        return kFailed;
    }
}
