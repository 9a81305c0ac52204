// velora-vsp: plays sound faster or slower and writes the result.

#include <cstdio>
#include <exception>
#include <string>

#include "batch.h"
#include "bytes.h"
#include "interruption.h"
#include "job.h"
#include "options.h"
#include "progress.h"
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

int changeOne(const Options& options)
{
    Progress progress({1.0}, options.quiet);
    Summary summary;
    try {
        summary = changeSpeed(options, progress, 0);
    } catch (const std::exception& error) {
        reportFailure(error, options, progress);
        return kFailed;
    }
    report(summary, options, progress);
    return 0;
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
        if (options.folder.empty())
            return changeOne(options);
        return changeAll(options) ? 0 : kFailed;
    } catch (const Interrupted&) {
        dieOfInterruption();
    } catch (const ReaderGone&) {
        return kReaderGone;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "velora-vsp: %s\n", error.what());
        return kFailed;
    }
}
