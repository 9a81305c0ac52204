// What a listener relies on in velora-play: keys do what they say to the frame and without a gap in
// the sound, mistakes cost a message, and the terminal is left as it was.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <velora/stream.hpp>

#include "support/temporary_directory.h"
#include "tools/velora_play/keys.h"
#include "tools/velora_play/listener.h"
#include "tools/velora_play/playback.h"
#include "tools/velora_play/status_line.h"

namespace {

constexpr int kRate = 44100;
constexpr int kBufferSamples = 2 * 1024;
constexpr int kBehind = 4096; // more frames than the end of a file is looked at for

// Stereo noise with a tone, in 16 bits, which floats hold as they are.
std::vector<int16_t> music(int64_t frames)
{
    std::vector<int16_t> samples;
    uint32_t random = 1;
    for (int64_t n = 0; n < 2 * frames; ++n) {
        random = random * 1664525U + 1013904223U;
        samples.push_back(
            int16_t(int(random >> 19) - 4096 + int(9000 * std::sin(0.05 * double(n / 2)))));
    }
    return samples;
}

struct Change {
    double time; // seconds of output
    double speed;
};

// What a Stream gives for changes of speed at these times, up to the end of the music.
std::vector<float> course(const std::vector<int16_t>& music, double speed,
                          const std::vector<Change>& changes)
{
    velora::Stream<float> stream(kRate, 2, velora::Options{});
    stream.setSpeed(speed);
    size_t at = 0;
    const auto read = [&](float* to, size_t frames) {
        const size_t count = std::min(frames, (music.size() - at) / 2);
        for (size_t n = 0; n < 2 * count; ++n)
            to[n] = float(music[at++]) / 32768.0F;
        return count;
    };
    std::vector<float> out;
    const auto pullTo = [&](int64_t frame) {
        const auto frames = size_t(frame) - out.size() / 2;
        std::vector<float> part(2 * frames);
        part.resize(2 * stream.pull(part.data(), frames, read));
        out.insert(out.end(), part.begin(), part.end());
    };
    for (const Change& change : changes) {
        pullTo(std::llround(change.time * kRate));
        stream.setSpeed(change.speed, Playback::kSpeedHops * stream.hopFrames());
    }
    pullTo(10 * int64_t(music.size()));
    return out;
}

void expectAndSilence(const std::vector<float>& sound, const std::vector<float>& expected)
{
    ASSERT_GE(sound.size(), expected.size());
    const auto [wrong, right] = std::mismatch(expected.begin(), expected.end(), sound.begin());
    EXPECT_EQ(wrong - expected.begin(), std::ptrdiff_t(expected.size()));
    EXPECT_TRUE(std::all_of(right, sound.end(), [](float x) { return x == 0.0F; }));
}

} // namespace

class PlayTest : public testing::Test {
protected:
    struct Result {
        int exitCode;
        std::string text;
        std::vector<float> sound;
    };

    std::string at(const std::string& name) const { return (directory.path / name).string(); }

    void write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(at(name), std::ios::binary) << bytes;
    }

    void writeMusic(const std::string& name, const std::vector<int16_t>& samples,
                    uint32_t channels = 2) const
    {
        const auto bytes = uint32_t(samples.size() * 2);
        const auto word = [](uint32_t value) {
            std::string text;
            for (int shift = 0; shift < 32; shift += 8)
                text += char(value >> shift & 255);
            return text;
        };
        std::string file = "RIFF" + word(36 + bytes) + "WAVEfmt " + word(16) +
                           word(channels << 16 | 1) + word(kRate) + word(2 * channels * kRate) +
                           word(0x100000 | 2 * channels) + "data" + word(bytes);
        for (const int16_t sample : samples)
            file += word(uint32_t(sample)).substr(0, 2);
        write(name, file);
    }

    /// Runs the player on a sound card that is a file and takes so long for a buffer of 23 ms.
    Result play(const std::string& arguments, int milliseconds = 23,
                const std::string& card = "SDL_AUDIODRIVER=disk SDL_DISKAUDIOFILE=card.raw") const
    {
        const std::string line = "exec 2>&1 </dev/null; cd '" + directory.path.string() +
                                 "' && SDL_DISKAUDIODELAY=" + std::to_string(milliseconds) + " " +
                                 card + " '" + VELORA_PLAY "' " + arguments;
        FILE* const pipe = popen(line.c_str(), "r");
        Result result{0, {}, {}};
        for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe))
            result.text += char(c);
        const int status = pclose(pipe);
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        std::ifstream file(at("card.raw"), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        result.sound.resize(bytes.size() / sizeof(float));
        if (!result.sound.empty())
            std::memcpy(result.sound.data(), bytes.data(), result.sound.size() * sizeof(float));
        // Whole buffers of silence may come before the sound card is told to begin.
        const auto first = std::find_if(result.sound.begin(), result.sound.end(),
                                        [](float x) { return x != 0.0F; });
        const auto silence = first - result.sound.begin();
        result.sound.erase(result.sound.begin(),
                           result.sound.begin() + silence / kBufferSamples * kBufferSamples);
        return result;
    }

    const TemporaryDirectory directory;
};

// ---- Sound ----

TEST_F(PlayTest, GivesWhatAStreamGivesForTheSameCourseAndNeverRunsDry)
{
    const auto samples = music(3 * kRate);
    writeMusic("in.wav", samples);
    write("keys", "0.1234 faster faster # at once: one change\n"
                  "0.5 fine-slower\n\n"
                  "0.9 slower slower slower\n"
                  "1.2 normal\n"
                  "1.7 slower\n");
    const Result result = play("in.wav --speed 1.25 --keys keys");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.text, ""); // nothing came too late
    const std::vector<float> expected =
        course(samples, 1.25, {{0.1234, 1.35}, {0.5, 1.34}, {0.9, 1.19}, {1.2, 1.0}, {1.7, 0.95}});
    expectAndSilence(result.sound, expected);
}

TEST_F(PlayTest, BeginsTheNextFileWithTheNextFrame)
{
    const auto first = music(3 * kRate / 2);
    const auto second = music(kRate); // decoded to its end before it is heard
    writeMusic("1.wav", first);
    writeMusic("2.wav", second);
    write("text", "no sound at all");
    write("keys", "0.5 slower slower\n1.7 faster # in the second one\n");
    // A busy machine may take longer to open a file than the one before lasts.
    const Result result = play("1.wav text 2.wav 1.wav --speed 1.3 --keys keys", 46);
    EXPECT_EQ(result.exitCode, 1); // for what is passed over
    std::vector<float> expected = course(first, 1.3, {{0.5, 1.2}});
    const double begin = double(expected.size()) / 2 / kRate;
    for (const auto& next : {course(second, 1.2, {{1.7 - begin, 1.25}}), course(first, 1.25, {})})
        expected.insert(expected.end(), next.begin(), next.end());
    expectAndSilence(result.sound, expected);
}

TEST_F(PlayTest, ChangesTheSoundCardForOtherChannelsAndGoesBackToo)
{
    writeMusic("stereo.wav", music(kRate));
    writeMusic("mono.wav", music(kRate), 1);
    write("keys", "0.2 next\n0.4 previous\n0.5 next next\n");
    const Result result = play("stereo.wav mono.wav --keys keys");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.text, "stereo.wav\nmono.wav\nstereo.wav\nmono.wav\n");
}

TEST_F(PlayTest, SeeksRepeatsAndPausesToTheFrame)
{
    const auto samples = music(20 * kRate);
    writeMusic("in.wav", samples);
    write("keys", "0.5 forward\n" // 5.5 s, heard at 0.6 s
                  "1.0 pause\n"   // 5.9 s
                  "1.25 pause\n"
                  "1.5 loop-from\n" // 6.15 s and the 256 frames of a fade
                  "1.75 loop-to\n"  // heard from 1.85 s on, for 0.25 s a turn
                  "2.5 loop-off\n"
                  "3.0 next\n");
    // A busy machine may take longer to find a place than a listener has to wait at the least.
    const Result result = play("in.wav --keys keys", 46);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.text, "");
    const auto isMusic = [&](double output, double media, int frames) {
        const auto from = size_t(std::llround(output * kRate));
        const auto place = size_t(std::llround(media * kRate));
        if (result.sound.size() < 2 * (from + size_t(frames)))
            return false;
        for (size_t n = 0; n < 2 * size_t(frames); ++n)
            if (result.sound[2 * from + n] != float(samples[2 * place + n]) / 32768.0F)
                return false;
        return true;
    };
    const double fade = double(Listener::kFade) / kRate;
    EXPECT_TRUE(isMusic(0.0, 0.0, int(0.6 * kRate)));
    EXPECT_TRUE(isMusic(0.65, 5.55, int(0.35 * kRate)));
    const float* const pause = result.sound.data() + 2 * int(1.01 * kRate);
    EXPECT_TRUE(std::all_of(pause, pause + int(0.4 * kRate), [](float x) { return x == 0.0F; }));
    EXPECT_TRUE(isMusic(1.26, 5.91 + fade, int(0.58 * kRate)));
    EXPECT_TRUE(isMusic(1.90, 6.20 + fade, int(0.19 * kRate)));
    EXPECT_TRUE(isMusic(2.15, 6.20 + fade, int(0.19 * kRate)));
    EXPECT_TRUE(isMusic(2.40, 6.20 + fade, int(0.15 * kRate)));
    EXPECT_TRUE(isMusic(2.66, 6.46 + fade, int(0.3 * kRate))); // beyond the end of the loop
    EXPECT_NEAR(double(result.sound.size()) / 2, 3.0 * kRate, 2 * kBehind);
}

TEST_F(PlayTest, GoesOnFromWhatCanNotBePlayed)
{
    writeMusic("in.wav", music(kRate / 4));
    write("text", "no sound at all");
    const Result result = play("text in.wav none.wav");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(
        result.text.find("velora-play: text: is no kind of sound file that is known here, or its "
                         "start is damaged\n"),
        std::string::npos); // nothing of options that only the tool has
    EXPECT_NE(result.text.find("velora-play: none.wav: can't be opened"), std::string::npos);
    EXPECT_GT(result.sound.size(), size_t(kRate) / 2);
}

TEST_F(PlayTest, PlaysAPipeToItsEndThoughItCanNotGoBackInIt)
{
    const auto samples = music(kRate);
    writeMusic("in.wav", samples);
    write("keys", "0.2 forward loop-from\n0.4 back loop-to\n");
    ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
    std::thread writer([this] {
        std::ifstream in(at("in.wav"), std::ios::binary);
        std::ofstream(at("pipe"), std::ios::binary) << in.rdbuf();
    });
    const Result result = play("--keys keys pipe");
    writer.join();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.text, "");
    ASSERT_GE(result.sound.size(), samples.size());
    EXPECT_TRUE(std::equal(samples.begin(), samples.end(), result.sound.begin(),
                           [](int16_t in, float out) { return float(in) / 32768.0F == out; }));
}

// ---- Mistakes ----

TEST_F(PlayTest, SaysInALineWhatIsWrong)
{
    const std::string name = "velora-play: ";
    write("unknown", "1 faster\n2 louder\n");
    write("falling", "2 faster\n1 faster\n");
    EXPECT_EQ(play("in.wav --keys unknown").text,
              name + "unknown:2: 'louder' is not known: velora-play --help names all\n");
    EXPECT_EQ(play("in.wav --keys falling").text, name + "falling:2: times have to rise\n");
    EXPECT_EQ(play("in.wav --keys falling").exitCode, 1);
    EXPECT_EQ(play("").exitCode, 2);
    EXPECT_EQ(play("in.wav --speed 9").exitCode, 2);
    writeMusic("in.wav", music(kRate / 4));
    // A sound system's library has lines of its own to say to that.
    EXPECT_EQ(play("in.wav", 23, "ALSA_CONFIG_PATH=/nonexistent SDL_AUDIODRIVER=alsa").text,
              name + "no sound card can be used: "
                     "ALSA: Couldn't open audio device: No such file or directory\n");
    const Result help = play("--help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.text.find("far-forward"), std::string::npos);
}

// ---- Keys and line ----

TEST(PlayKeys, AreTakenOneByOneAndWholeOnly)
{
    std::string typed = "+\033[A\033[6~?\033\033OD1\033[5";
    std::vector<std::optional<Action>> actions;
    for (int n = 0; n < 8; ++n)
        actions.push_back(takeKey(typed));
    const std::optional<Action> none;
    EXPECT_EQ(actions, (std::vector<std::optional<Action>>{Action::faster, Action::faster,
                                                           Action::farForward, none, none,
                                                           Action::back, Action::normal, none}));
    EXPECT_EQ(typed, "\033[5"); // the rest is on its way
    typed += "~q";
    EXPECT_EQ(takeKey(typed), Action::farBack);
    EXPECT_EQ(takeKey(typed), Action::quit);
    EXPECT_EQ(takeKey(typed), none);
}

TEST(PlayLine, FitsFortyColumnsWhateverItShows)
{
    EXPECT_EQ(statusLine({83 * 48000, 1.25, false, true, true, 0.6F}, 120 * 48000, 48000),
              "    1:23     -0:29 1.25x AB [########]");
    for (const int64_t media : {INT64_C(0), INT64_C(1) << 33, INT64_C(1) << 50})
        for (const double speed : {0.125, 8.0})
            for (const float peak : {0.0F, 1e-3F, 9.0F})
                EXPECT_LE(
                    statusLine({media, speed, false, true, false, peak}, INT64_C(1) << 51, 8000)
                        .size(),
                    40U);
}

// ---- Terminal ----

/// The player on a terminal of its own, with a file that would take a minute.
class PlayTerminal : public PlayTest {
protected:
    void start(const std::vector<std::string>& files = {"in.wav"})
    {
        writeMusic("in.wav", music(60 * kRate));
        terminal = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_GE(terminal, 0);
        ASSERT_EQ(grantpt(terminal), 0);
        ASSERT_EQ(unlockpt(terminal), 0);
        other = open(ptsname(terminal), O_RDWR | O_NOCTTY);
        ASSERT_EQ(tcgetattr(other, &before), 0);
        process = fork();
        if (process != 0)
            return;
        setsid();
        for (int descriptor = 0; descriptor < 3; ++descriptor)
            dup2(other, descriptor);
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILE", at("card.raw").c_str(), 1);
        std::vector<std::string> words{VELORA_PLAY};
        for (const std::string& file : files)
            words.push_back(at(file));
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        execv(VELORA_PLAY, arguments.data());
        _exit(127);
    }
    /// Reads what is shown until `text` is; false if that takes too long.
    bool waitFor(const std::string& text)
    {
        for (int tries = 0; shown.find(text) == std::string::npos; ++tries) {
            pollfd ready{terminal, POLLIN, 0};
            char bytes[256];
            if (poll(&ready, 1, 10000) <= 0 || tries > 1000)
                return false;
            const ssize_t count = ::read(terminal, bytes, sizeof bytes);
            if (count <= 0)
                return false;
            shown.append(bytes, size_t(count));
        }
        return true;
    }
    int end()
    {
        int status = 0;
        waitpid(process, &status, 0);
        process = -1;
        return status;
    }
    bool isAsBefore() const
    {
        termios now{};
        return tcgetattr(other, &now) == 0 && now.c_lflag == before.c_lflag &&
               std::equal(std::begin(now.c_cc), std::end(now.c_cc), before.c_cc);
    }
    void TearDown() override
    {
        if (process > 0) { // after a failure
            kill(process, SIGKILL);
            end();
        }
        close(other);
        close(terminal);
    }

    pid_t process = -1;
    int terminal = -1;
    int other = -1;
    termios before{};
    std::string shown;
};

TEST_F(PlayTerminal, ShowsWhatKeysDo)
{
    start();
    ASSERT_TRUE(waitFor("1.00x"));
    EXPECT_FALSE(isAsBefore()); // keys come at once
    ASSERT_EQ(::write(terminal, "++\033[C", 5), 5);
    EXPECT_TRUE(waitFor("1.10x"));
    EXPECT_TRUE(waitFor("    0:05 "));
    ASSERT_EQ(::write(terminal, " ", 1), 1);
    EXPECT_TRUE(waitFor("||"));
    ASSERT_EQ(::write(terminal, "q", 1), 1);
    EXPECT_TRUE(waitFor("\033[?25h")); // the cursor
    const int status = end();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(isAsBefore());
}

TEST_F(PlayTerminal, ObeysKeysWhileAPipeHasGivenNoSoundYet)
{
    for (const char* const pipe : {"first", "second"})
        ASSERT_EQ(mkfifo(at(pipe).c_str(), 0600), 0);
    start({"first", "in.wav", "second"});
    ASSERT_TRUE(waitFor("1.00x"));
    ASSERT_EQ(::write(terminal, "+ ", 2), 2);
    EXPECT_TRUE(waitFor("1.05x ||"));
    ASSERT_EQ(::write(terminal, " n", 2), 2); // to a file of a minute
    EXPECT_TRUE(waitFor("-0:57 1.05x"));
    ASSERT_EQ(::write(terminal, "n", 1), 1);
    EXPECT_TRUE(waitFor("[        ]")); // silence: the other pipe
    ASSERT_EQ(::write(terminal, "q", 1), 1);
    EXPECT_TRUE(waitFor("\033[?25h"));
    const int status = end();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(PlayTerminal, GoesOnWhenAFileCanNotBeReadAnyMore)
{
    start();
    ASSERT_TRUE(waitFor("    0:01 "));
    ASSERT_EQ(unlink(at("in.wav").c_str()), 0);
    for (int presses = 0; presses < 5; ++presses) { // to the start, for which it is opened again
        ASSERT_EQ(::write(terminal, "\033[5~", 4), 4);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    ASSERT_TRUE(waitFor("in.wav: can't be opened"));
    const int status = end();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
}

TEST_F(PlayTerminal, ShowsItsLineAgainAfterAStop)
{
    start();
    ASSERT_TRUE(waitFor("1.00x"));
    ASSERT_EQ(::write(terminal, " ", 1), 1);
    ASSERT_TRUE(waitFor("||"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // until the line stays as it is
    kill(process, SIGTSTP);
    ASSERT_TRUE(waitFor("\033[?25h"));
    EXPECT_EQ(waitpid(process, nullptr, WUNTRACED), process);
    EXPECT_TRUE(isAsBefore());
    shown.clear();
    kill(process, SIGCONT);
    ASSERT_TRUE(waitFor("||")); // though nothing has changed
    ASSERT_EQ(::write(terminal, "q", 1), 1);
    const int status = end();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(PlayTerminal, IsLeftAsItWasWhateverEndsThePlayer)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT, SIGSEGV}) {
        start();
        ASSERT_TRUE(waitFor("1.00x"));
        kill(process, signal);
        EXPECT_TRUE(waitFor("\033[?25h")) << signal;
        const int status = end();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << signal;
        EXPECT_TRUE(isAsBefore()) << signal;
        close(other);
        close(terminal);
        shown.clear();
    }
}
