// velora-vsp: plays sound faster or slower and writes the result.

#include <cstdio>
#include <exception>
#include <string>

#include "batch.h"
#include "bytes.h"
#include "interruption.h"
#include "job.h"
#include "options.h"
#include "play.h"
#include "progress.h"
#include "summary.h"

namespace {

constexpr int kFailed = 1;
constexpr int kReaderGone = 141; // as of a process that a closed pipe has ended

void announcePitch(const Options& options)
{
    for (const double speed : kTapeSpeeds)
        if ((options.speed.holds(speed) || options.silenceSpeed == speed) && !options.keepPitch &&
            !options.quiet)
            std::fprintf(stderr, "velora-vsp: %s\n", pitchNotice(speed).c_str());
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

int run(int argc, char** argv, Options& options)
{
    readOptions(argc, argv, options);
    if (!options.mistake.empty())
        reportMistake(options.mistake, options);
    if (options.finished)
        return options.exitCode;
    catchInterruptions();
    announcePitch(options);
    if (options.folder.empty())
        return changeOne(options);
    return changeAll(options) ? 0 : kFailed;
}

int runAndTell(int argc, char** argv)
{
    Options options;
    try {
        return run(argc, argv, options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "velora-vsp: %s\n", error.what());
        reportMistake(error.what(), options);
        return kFailed;
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return runAndTell(argc, argv);
    } catch (const Interrupted&) {
        dieOfInterruption();
    } catch (const ReaderGone&) {
        return kReaderGone;
    } catch (const std::exception&) { // the object could not be written, as has been said
        return kFailed;
    }
}
