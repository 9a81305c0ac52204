#include "plan.h"

#include <algorithm>
#include <cmath>

#include "clock.h"
#include "error.h"
#include "interruption.h"
#include "media_input.h"
#include "pause_finder.h"
#include "sound_decoder.h"

namespace {

constexpr double kSlowest = velora::Stream<>::kSlowest;
constexpr double kFastest = velora::Stream<>::kFastest;

struct Content {
    double end = 0.0; // of the sound, in seconds of media
    std::vector<Span> pauses;
};

Content listen(const Options& options, int stored, const Phase& progress)
{
    MediaInput input(options.input, options.rawOf(options.input), stored);
    const int best = input.bestSound();
    if (best < 0)
        throw FileError(input.name(), "has no sound, which --silence-speed and --length need");
    SoundDecoder decoder(input, *input.format().streams[best],
                         {true, isLow24(options.rawOf(options.input)), input.hasFilm()});
    PauseFinder finder(decoder.rate(), decoder.channels(), decoder.samples());
    Block block;
    const auto take = [&](const AVPacket* packet) {
        block.clear();
        decoder.decode(packet, block);
        finder.take(block);
    };
    AvPtr<AVPacket> packet(av_packet_alloc());
    while (input.read(*packet)) {
        if (packet->stream_index == best)
            take(packet.get());
        progress.show(input.position(), input.duration());
        throwIfInterrupted();
    }
    take(nullptr);
    const double start = decoder.startIn(input);
    Content content{start + double(decoder.position()) / decoder.rate(), {}};
    if (options.silenceSpeed)
        content.pauses = finder.pauses(options.silenceThreshold, options.silenceMargin);
    for (Span& pause : content.pauses) {
        pause.from += start;
        pause.to += start;
    }
    return content;
}

// Pauses outside are left out, those that reach outside are cut.
std::vector<Span> within(const std::vector<Span>& pauses, const Span& part)
{
    std::vector<Span> inside;
    for (const Span& pause : pauses) {
        const Span cut{std::max(pause.from, part.from), std::min(pause.to, part.to)};
        if (cut.from < cut.to)
            inside.push_back(cut);
    }
    return inside;
}

double total(const std::vector<Span>& spans)
{
    double sum = 0.0;
    for (const Span& span : spans)
        sum += span.to - span.from;
    return sum;
}

// That makes what isn't a pause fill what pauses leave of the length.
double speedFor(const Options& options, const Span& part, const std::vector<Span>& pauses)
{
    if (part.from >= part.to)
        throw FileError(options.input, "ends at " + clock(part.to) + ", before --from");
    const double paused = total(pauses);
    const double room = *options.length - (paused > 0.0 ? paused / *options.silenceSpeed : 0.0);
    const double speed = (part.to - part.from - paused) / room;
    if (room > 0.0 && speed >= kSlowest && speed <= kFastest)
        return speed;
    const double inPauses = *options.length - room;
    const double rest = part.to - part.from - paused;
    // Rounded to what is possible itself.
    const double shortest = std::ceil(1000.0 * (inPauses + rest / kFastest)) / 1000.0;
    const double longest = std::floor(1000.0 * (inPauses + rest / kSlowest)) / 1000.0;
    throw FileError(options.input, "can't be made " + clock(*options.length) + " long: " +
                                       clock(shortest) + " to " + clock(longest) + " is possible");
}

} // namespace

bool needsListening(const Options& options)
{
    return options.silenceSpeed || options.length;
}

Plan makePlan(const Options& options, int stored, const Phase& progress)
{
    if (!needsListening(options))
        return {options.speed, options.speed.speedAt(0.0)};
    const Content content = listen(options, stored, progress);
    const Span part{options.part.from, std::min(options.part.to, content.end)};
    const std::vector<Span> pauses = within(content.pauses, part);
    const SpeedMap speed =
        options.length ? SpeedMap(speedFor(options, part, pauses)) : options.speed;
    const double pace = speed.speedAt(0.0);
    if (pauses.empty())
        return {speed, pace};
    Plan plan{speed.with(pauses, *options.silenceSpeed), pace, int(pauses.size())};
    plan.saved = speed.outputAt(content.end) - plan.speed.outputAt(content.end);
    return plan;
}
