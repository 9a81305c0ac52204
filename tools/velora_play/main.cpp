// velora-play: plays files through the sound card, faster or slower by keys.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <SDL.h>

#include "error.h"
#include "feed.h"
#include "interruption.h"
#include "options.h"
#include "playback.h"
#include "status_line.h"
#include "terminal.h"

namespace {

constexpr int kFailed = 1;
constexpr int kBufferFrames = 1024;
constexpr int kMostChannels = 8; // that a sound card is asked for
constexpr int kPollMilliseconds = 40;

class Sdl {
public:
    Sdl()
    {
        SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
        SDL_LogSetOutputFunction([](void*, int, SDL_LogPriority, const char*) {}, nullptr);
        if (SDL_Init(SDL_INIT_AUDIO) != 0)
            throw std::runtime_error(std::string("no sound card can be used: ") + SDL_GetError());
    }
    ~Sdl() { SDL_Quit(); }
    Sdl(const Sdl&) = delete;
    Sdl& operator=(const Sdl&) = delete;
};

/// The sound card while a file plays on it.
class SoundCard {
public:
    SoundCard(Playback& playback, int rate, int channels)
        : bound{playback, int(sizeof(float)) * channels}
    {
        SDL_AudioSpec spec{};
        spec.freq = rate;
        spec.format = AUDIO_F32SYS;
        spec.channels = Uint8(channels);
        spec.samples = kBufferFrames;
        spec.userdata = &bound;
        spec.callback = [](void* data, Uint8* out, int bytes) {
            const Bound& to = *static_cast<Bound*>(data);
            to.playback.fill(reinterpret_cast<float*>(out), bytes / to.frameBytes);
        };
        device = SDL_OpenAudioDevice(nullptr, 0, &spec, nullptr, 0);
        if (device == 0)
            throw std::runtime_error(std::string("no sound card can be used: ") + SDL_GetError());
        SDL_PauseAudioDevice(device, 0);
    }
    ~SoundCard() { SDL_CloseAudioDevice(device); }
    SoundCard(const SoundCard&) = delete;
    SoundCard& operator=(const SoundCard&) = delete;

private:
    struct Bound {
        Playback& playback;
        int frameBytes;
    };
    Bound bound;
    SDL_AudioDeviceID device;
};

// Names may hold bytes that a terminal would obey.
std::string printable(std::string text)
{
    const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    return text;
}

class Playlist {
public:
    explicit Playlist(const Options& given)
        : options(given), terminal(std::count(given.files.begin(), given.files.end(), kPipe) > 0),
          speed(given.speed)
    {
    }

    /// Whether all could be played.
    bool playAll()
    {
        for (size_t file = 0; file < options.files.size();) {
            const Outcome outcome = tryToPlay(options.files[file]);
            if (outcome == Outcome::quit)
                break;
            if (outcome != Outcome::previous)
                ++file;
            else if (file > 0)
                --file;
        }
        return allPlayed;
    }

private:
    Outcome tryToPlay(const std::string& file)
    {
        try {
            return play(file);
        } catch (const FileError& error) {
            complain(error.what());
            return Outcome::ended;
        }
    }

    Outcome play(const std::string& file)
    {
        Feed feed(file);
        if (feed.channels() > kMostChannels)
            throw FileError(file, "has " + std::to_string(feed.channels()) +
                                      " channels: 1 to 8 can be played");
        if (options.files.size() > 1)
            std::printf("%s\n", printable(file).c_str());
        std::fflush(stdout);
        while (!feed.isReady())
            attend(nullptr);
        Playback playback(feed, speed, scriptFor(feed.rate()));
        {
            const SoundCard card(playback, feed.rate(), feed.channels());
            while (playback.framesBehind() < 2 * kBufferFrames) {
                attend(&playback);
                terminal.show(statusLine(playback.position(), feed.duration(), feed.rate()));
            }
        }
        terminal.endLine();
        speed = playback.speed();
        elapsed += double(playback.outputFrames()) / feed.rate();
        scriptUsed += playback.scriptUsed();
        report(feed.stop(), playback.underruns());
        return playback.outcome();
    }

    void report(const std::string& problem, int64_t underruns)
    {
        if (!problem.empty())
            complain(problem);
        if (underruns > 0)
            std::fprintf(stderr, "velora-play: %lld times sound came too late\n",
                         static_cast<long long>(underruns));
    }

    void complain(const std::string& problem)
    {
        terminal.endLine();
        std::fprintf(stderr, "velora-play: %s\n", printable(problem).c_str());
        allPlayed = false;
    }

    // Passes on what is typed.
    void attend(Playback* playback)
    {
        throwIfInterrupted();
        terminal.read(typed, kPollMilliseconds);
        for (size_t before = 0; playback != nullptr && before != typed.size();) {
            before = typed.size();
            if (const auto action = takeKey(typed))
                playback->act(*action);
        }
    }

    std::vector<FrameAction> scriptFor(int rate) const
    {
        std::vector<FrameAction> script;
        for (size_t n = scriptUsed; n < options.script.size(); ++n) {
            const double time = std::max(options.script[n].time - elapsed, 0.0);
            script.push_back({std::llround(time * rate), options.script[n].action});
        }
        return script;
    }

    const Options& options;
    Terminal terminal;
    std::string typed;
    double speed;
    double elapsed = 0.0; // seconds of listening before this file
    size_t scriptUsed = 0;
    bool allPlayed = true;
};

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
