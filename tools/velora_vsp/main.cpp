// velora-vsp: plays sound faster or slower and writes the result.

#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include "bytes.h"
#include "interruption.h"
#include "job.h"
#include "options.h"
#include "summary.h"

namespace {

constexpr int kFailed = 1;
constexpr int kReaderGone = 141; // as of a process that a closed pipe has ended

void announcePitch(const Options& options)
{
    for (const double speed : {0.5, 0.25, 0.125})
        if (options.speed.holds(speed) && !options.keepPitch && !options.quiet)
            std::fprintf(stderr,
                         "velora-vsp: at speed %g the pitch drops with the speed, as on a slowed "
                         "tape (--keep-pitch keeps it)\n",
                         speed);
}

void report(const Summary& summary, const Options& options)
{
    if (options.json) {
        const std::string text = json(summary, options);
        if (options.output == kPipe)
            std::fputs(text.c_str(), stderr);
        else
            writeOutput(text.data(), text.size());
    } else if (!options.quiet) {
        std::fprintf(stderr, "velora-vsp: %s\n", closingLine(summary).c_str());
    }
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
        report(changeSpeed(options), options);
        return 0;
    } catch (const Interrupted&) {
        dieOfInterruption();
    } catch (const ReaderGone&) {
        return kReaderGone;
    } catch (const std::bad_alloc&) {
        std::fputs("velora-vsp: out of memory\n", stderr);
        return kFailed;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "velora-vsp: %s\n", error.what());
        return kFailed;
    }
}
