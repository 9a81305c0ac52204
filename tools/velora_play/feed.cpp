#include "feed.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <system_error>

#include "bytes.h"
#include "error.h"
#include "interruption.h"

namespace {

// Of sound at its own speed. Half of it is decoded ahead; the other half is for where the listener
// goes, so that what sounds can go on until that is there.
constexpr int64_t kQueueSeconds = 8;
// Decoders need some packets before what they give is right.
constexpr double kWarmUpSeconds = 0.5;
constexpr std::chrono::milliseconds kPause{4};
constexpr int kMostChannels = 8; // that a sound card is asked for

void toFloat(Samples kind, const Block& from, std::vector<float>& to)
{
    to.resize(from.size() / sampleBytes(kind));
    const auto convert = [&](auto* first, float scale) {
        std::transform(first, first + to.size(), to.begin(),
                       [=](auto sample) { return float(sample) * scale; });
    };
    switch (kind) {
    case Samples::int16:
        return convert(reinterpret_cast<const int16_t*>(from.data()), 0x1p-15F);
    case Samples::int24:
        return convert(reinterpret_cast<const int32_t*>(from.data()), 0x1p-23F);
    case Samples::int32:
        return convert(reinterpret_cast<const int32_t*>(from.data()), 0x1p-31F);
    default:
        return convert(reinterpret_cast<const float*>(from.data()), 1.0F);
    }
}

} // namespace

Feed::Feed(const std::string& file) : path(file), isFile(canGoBackIn(file))
{
    const SignalsBlocked blocked;
    thread = std::thread([this] { run(); });
}

bool Feed::canGoBackIn(const std::string& path)
{
    std::error_code none;
    return path != kPipe && std::filesystem::is_regular_file(path, none);
}

Feed::~Feed()
{
    stop();
}

std::string Feed::stop()
{
    stops = true;
    if (thread.joinable())
        thread.join();
    decoder.reset();
    input.reset();
    return problem;
}

void Feed::reopen()
{
    decoder.reset();
    input = std::make_unique<MediaInput>(path, std::nullopt);
    AVFormatContext& format = input->format();
    const int best = input->bestSound();
    if (best < 0)
        throw FileError(input->name(), "has no sound");
    for (unsigned n = 0; n < format.nb_streams; ++n)
        format.streams[n]->discard = int(n) == best ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    track = format.streams[best];
    openTrack();
    counts = true;
}

void Feed::openTrack()
{
    decoder =
        std::make_unique<SoundDecoder>(*input, *track, DecodeManner{true, false, input->hasFilm()});
    atEnd = false;
}

// ---- The thread ----

void Feed::run()
{
    const StopsWith stopped(stops);
    try {
        open();
        decodeAll();
    } catch (const Interrupted&) {
        // A signal is seen by all who need to.
    } catch (const std::exception& error) {
        problem = error.what();
        if (hasSound())
            endEarly();
    }
    ended = ready = true;
}

// Nothing can be decoded any more: wherever the listener wants to go, there is the end.
void Feed::endEarly()
{
    mark(Mark::Kind::end, wanted);
    ended = ready = true;
    while (!stops) {
        if (takeOrder())
            mark(Mark::Kind::end, now.media);
        else
            std::this_thread::sleep_for(kPause);
    }
}

void Feed::open()
{
    reopen();
    if (decoder->channels() > kMostChannels)
        throw FileError(input->name(), "has " + std::to_string(decoder->channels()) +
                                           " channels: 1 to 8 can be played");
    hertz = decoder->rate();
    width = decoder->channels();
    length = std::llround(input->duration() * hertz);
    queue = std::make_unique<FrameQueue>(kQueueSeconds * hertz, width);
}

void Feed::decodeAll()
{
    while (!stops) {
        if (!obey() && (ended || !waitForRoom(1)))
            std::this_thread::sleep_for(kPause);
        else
            decodeMore();
    }
}

bool Feed::obey()
{
    if (!takeOrder())
        return false;
    ended = false;
    goTo(now.media);
    return true;
}

// Takes the last of the orders that have come, and says where its frames begin.
bool Feed::takeOrder()
{
    const size_t count = orders.size();
    if (count == 0)
        return false;
    now = orders[count - 1];
    orders.drop(count);
    sinceOrder = queue->written();
    mark(Mark::Kind::order, now.media);
    return true;
}

// Whether `frames` may be put in now. Ahead of what sounds lies no more than half of the queue.
bool Feed::waitForRoom(int64_t frames)
{
    const int64_t ahead = queue->written() - std::max(queue->taken(), sinceOrder);
    const int64_t half = kQueueSeconds * hertz / 2;
    if (ahead >= half)
        ready = true;
    return ahead < half && queue->room() >= frames;
}

void Feed::mark(Mark::Kind kind, int64_t media)
{
    while (!marked.put({kind, queue->written(), media, now.serial}) && !stops)
        std::this_thread::sleep_for(kPause);
}

void Feed::decodeMore()
{
    bytes.clear();
    if (!atEnd && input->read(*packet)) {
        if (packet->stream_index != track->index)
            return;
        decoder->decode(packet.get(), bytes);
    } else if (!atEnd) {
        atEnd = true;
        decoder->decode(nullptr, bytes);
    } else if (now.loopTo != kNoLoop && wanted > now.loopFrom) {
        mark(Mark::Kind::loop, now.loopFrom);
        return goTo(now.loopFrom);
    } else {
        ended = ready = true;
        return mark(Mark::Kind::end, wanted);
    }
    toFloat(decoder->samples(), bytes, samples);
    const auto count = int64_t(samples.size()) / width;
    if (count > 0)
        pass(count);
}

// Media frame of the first of the frames that were decoded last.
int64_t Feed::firstOfBlock(int64_t count) const
{
    const int64_t before = decoder->position() - count;
    return counts ? before : std::llround((decoder->startTime() - origin) * hertz) + before;
}

// Passes on what is wanted of them, up to the end of the loop.
void Feed::pass(int64_t count)
{
    if (!knowsOrigin) {
        origin = decoder->startTime();
        knowsOrigin = true;
    }
    const int64_t first = firstOfBlock(count);
    int64_t from = std::clamp<int64_t>(wanted - first, 0, count);
    const bool wraps = first + count >= now.loopTo && first + from <= now.loopTo;
    const int64_t to = wraps ? now.loopTo - first : count;
    while (from < to && !stops && orders.size() == 0) {
        const int64_t frames = std::min(to - from, queue->room());
        if (frames <= 0) {
            std::this_thread::sleep_for(kPause);
            continue;
        }
        queue->put(samples.data() + from * width, frames);
        from += frames;
    }
    wanted = std::max(wanted, first + to);
    if (wraps && orders.size() == 0) {
        mark(Mark::Kind::loop, now.loopFrom);
        goTo(now.loopFrom);
    }
}

// Decodes on from a little before; what can't be gone back in is read from its start.
void Feed::goTo(int64_t media)
{
    const double seconds = double(media) / hertz - kWarmUpSeconds;
    wanted = media;
    if (seconds > 0.0) {
        const auto time =
            int64_t((seconds + (knowsOrigin ? origin : 0.0)) / av_q2d(track->time_base));
        if (input->seek(*track, time)) {
            counts = false;
            return openTrack();
        }
    }
    reopen();
}
