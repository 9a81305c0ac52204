#include "plan.h"

#include <algorithm>
#include <cstdio>

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

Content listen(const Options& options)
{
    MediaInput input(options.input, options.input == kPipe ? options.raw : std::nullopt);
    const int best = av_find_best_stream(&input.format(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (best < 0)
        throw FileError(input.name(), "has no sound, which --silence-speed and --length need");
    const bool isLow24 = options.input == kPipe && options.raw && options.raw->encoding->isLow24;
    SoundDecoder decoder(input, *input.format().streams[best], {true, isLow24, input.hasFilm()});
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
        throwIfInterrupted();
    }
    take(nullptr);
    const double start =
        input.hasFilm() ? std::max(decoder.startTime() - input.startTime(), 0.0) : 0.0;
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
    const double paused = total(pauses);
    const double room = *options.length - (paused > 0.0 ? paused / *options.silenceSpeed : 0.0);
    const double speed = (part.to - part.from - paused) / room;
    if (room > 0.0 && speed >= kSlowest && speed <= kFastest)
        return speed;
    char text[200];
    const double longest = *options.length - room + (part.to - part.from - paused) / kSlowest;
    const double shortest = *options.length - room + (part.to - part.from - paused) / kFastest;
    std::snprintf(text, sizeof text,
                  "can't be made %.3f seconds long: lengths of %.3f to %.3f seconds are possible",
                  *options.length, shortest, longest);
    throw FileError(options.input, text);
}

} // namespace

Plan makePlan(const Options& options)
{
    if (!options.silenceSpeed && !options.length)
        return {options.speed};
    Bytes::makeRepeatable(options.input);
    const Content content = listen(options);
    const Span part{options.part.from, std::min(options.part.to, content.end)};
    const std::vector<Span> pauses = within(content.pauses, part);
    const SpeedMap speed =
        options.length ? SpeedMap(speedFor(options, part, pauses)) : options.speed;
    if (pauses.empty())
        return {speed};
    Plan plan{speed.with(pauses, *options.silenceSpeed), int(pauses.size())};
    plan.saved = speed.outputAt(content.end) - plan.speed.outputAt(content.end);
    return plan;
}
