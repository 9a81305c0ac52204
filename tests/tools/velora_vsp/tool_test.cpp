// What a user of velora-vsp relies on: where sounds land in time, that nothing is lost or changed
// that needn't be, and that a mistake costs nothing but a message.

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/velora_vsp/tool_runner.h"

namespace fs = std::filesystem;

namespace {

std::string contents(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

// ---- Time ----

struct TimeCase {
    int rate;
    double speed;
    const char* option;
};

class ToolTime : public ToolTest, public testing::WithParamInterface<TimeCase> {};

TEST_P(ToolTime, SoundsLandAtTheirTimeDividedBySpeed)
{
    const auto [rate, speed, option] = GetParam();
    const int hop = rate <= 12000 ? 128 : rate <= 48000 ? 512 : 1024;
    // Of a short ring most falls between the hops that come out at high speeds.
    const int ring = hop * std::max(int(speed) / 2, 1);
    const long gap = long(24 * hop * std::max(speed, 1.0)) + 37;
    const long first = 2 * ring; // the music starts at the start
    const long last = first + 5 * gap;
    std::vector<long> times;
    for (long t = first; t <= last; t += gap)
        times.push_back(t);
    const Sound in = rings(rate, 2, last + 2 * ring, times, ring); // nothing is cut at the end
    write("in.wav", in);
    tool("in.wav out.wav -s " + std::to_string(speed) + option);

    const Sound out = read("out.wav");
    EXPECT_EQ(out.rate, rate);
    ASSERT_EQ(out.frames(), std::llround(double(in.frames()) / speed));
    // The vocoder places onsets by its hops of input; the converter to the frame, but for the
    // half-band filters of high rates.
    const double stretch = 1.0 / std::min(speed, 1.0);
    const bool isConverted = *option == '\0' && (speed == 0.5 || speed == 0.125);
    const double clickHops = speed > 2.0 ? 1.4 : 1.0;
    const double tolerance = isConverted ? 12.0 : clickHops * hop * stretch;
    for (const long t : times) {
        const double expected = double(t) / speed;
        EXPECT_NEAR(centreOfEnergy(out, expected, 3 * hop * stretch), expected, tolerance);
    }
}

INSTANTIATE_TEST_SUITE_P(RatesAndSpeeds, ToolTime,
                         testing::Values(TimeCase{8000, 0.3, ""}, TimeCase{8000, 1.7, ""},
                                         TimeCase{44100, 0.125, ""}, TimeCase{44100, 0.5, ""},
                                         TimeCase{44100, 0.5, " -k"}, TimeCase{44100, 0.75, ""},
                                         TimeCase{44100, 1.3, ""}, TimeCase{44100, 3.0, ""},
                                         TimeCase{44100, 8.0, ""}, TimeCase{96000, 0.5, ""},
                                         TimeCase{96000, 0.75, ""}, TimeCase{96000, 1.5, ""}),
                         [](const auto& test) {
                             return std::to_string(test.param.rate) + "HzSpeed" +
                                    std::to_string(int(1000.0 * test.param.speed)) +
                                    (*test.param.option == '\0' ? "" : "PitchKept");
                         });

TEST_F(ToolTest, LengthIsRoundedAndAnyLengthWorks)
{
    for (const long frames : {0L, 1L, 2047L, 8192L, 8193L})
        for (const char* speed : {"0.7", "1", "8"}) {
            write("in.wav", tone(440.0, frames));
            runQuietly("in.wav out.wav -f -s " + std::string(speed));
            EXPECT_EQ(read("out.wav").frames(), std::llround(double(frames) / std::stod(speed)))
                << frames << " frames at " << speed;
        }
}

// ---- Samples ----

class ToolFormat : public ToolTest, public testing::WithParamInterface<int> {
protected:
    std::string fileName(const std::string& stem) const
    {
        switch (GetParam() & SF_FORMAT_TYPEMASK) {
        case SF_FORMAT_AIFF:
            return stem + ".aiff";
        case SF_FORMAT_CAF:
            return stem + ".caf";
        case SF_FORMAT_FLAC:
            return stem + ".flac";
        case SF_FORMAT_OGG:
            return stem + ".ogg";
        default:
            return stem + ".wav";
        }
    }
};

TEST_P(ToolFormat, SpeedOneKeepsEverySample)
{
    Sound in = noise(2, 10000, GetParam(), 1.0);
    in.samples[0] = 1.0;
    in.samples[1] = -1.0;
    in.samples[2] = 4.0; // clipped, unless the format is a float
    write(fileName("in"), in, "A title");
    runQuietly(fileName("in") + " " + fileName("out") + " -s 1");

    const Sound before = read(fileName("in"));
    const Sound after = read(fileName("out"));
    EXPECT_EQ(after.format, before.format);
    EXPECT_EQ(after.samples, before.samples);
}

TEST_P(ToolFormat, OtherSpeedsKeepFormatAndLevel)
{
    for (const int channels : {1, 2}) {
        Sound in = tone(440.0, 60000, 44100, channels);
        in.format = GetParam();
        write(fileName("in"), in);
        runQuietly(fileName("in") + " " + fileName("out") + " -f -s 0.8");

        const Sound out = read(fileName("out"));
        EXPECT_EQ(out.format, read(fileName("in")).format);
        EXPECT_EQ(out.channels, channels);
        EXPECT_NEAR(rms(out), rms(in), 0.1 * rms(in));
        EXPECT_NEAR(frequency(out), 440.0, 5.0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, ToolFormat,
    testing::Values(SF_FORMAT_WAV | SF_FORMAT_PCM_U8, SF_FORMAT_WAV | SF_FORMAT_PCM_16,
                    SF_FORMAT_WAV | SF_FORMAT_PCM_24, SF_FORMAT_WAV | SF_FORMAT_PCM_32,
                    SF_FORMAT_WAV | SF_FORMAT_FLOAT, SF_FORMAT_WAV | SF_FORMAT_DOUBLE,
                    SF_FORMAT_WAV | SF_FORMAT_ULAW, SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM,
                    int(SF_ENDIAN_BIG) | SF_FORMAT_WAV | SF_FORMAT_PCM_24,
                    SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, SF_FORMAT_CAF | SF_FORMAT_PCM_24,
                    SF_FORMAT_FLAC | SF_FORMAT_PCM_24, SF_FORMAT_OGG | SF_FORMAT_VORBIS));

TEST_F(ToolTest, MonoIsTheLeftChannelOfTheSameInStereo)
{
    write("mono.wav", tone(440.0, 20000, 8000, 1));
    write("stereo.wav", tone(440.0, 20000, 8000, 2));
    runQuietly("mono.wav mono_out.wav -s 0.8");
    runQuietly("stereo.wav stereo_out.wav -s 0.8");
    const Sound mono = read("mono_out.wav");
    const Sound stereo = read("stereo_out.wav");
    ASSERT_EQ(mono.channels, 1);
    ASSERT_EQ(mono.frames(), stereo.frames());
    for (long n = 0; n < mono.frames(); ++n)
        ASSERT_EQ(mono.samples[size_t(n)], stereo.samples[size_t(2 * n)]) << "frame " << n;
}

TEST_F(ToolTest, ContainerComesFromTheNameAndEncodingLosesLeast)
{
    struct Case {
        int from;
        const char* name;
        int to;
    };
    constexpr int kWav = SF_FORMAT_WAV;
    const Case cases[] = {
        {kWav | SF_FORMAT_PCM_16, "out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {kWav | SF_FORMAT_PCM_U8, "out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {kWav | SF_FORMAT_ULAW, "out.FLAC", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {kWav | SF_FORMAT_FLOAT, "out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {kWav | SF_FORMAT_FLOAT, "out.aif", SF_FORMAT_AIFF | SF_FORMAT_FLOAT},
        {kWav | SF_FORMAT_PCM_24, "out.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {SF_FORMAT_CAF | SF_FORMAT_ALAC_24, "out.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_24},
        {kWav | SF_FORMAT_IMA_ADPCM, "out.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
        {SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, "out.wav", kWav | SF_FORMAT_PCM_24},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, "out.wav", kWav | SF_FORMAT_PCM_24},
        {SF_FORMAT_OGG | SF_FORMAT_VORBIS, "out.wav", kWav | SF_FORMAT_FLOAT},
    };
    for (const Case& test : cases) {
        Sound in = tone(440.0, 3000);
        in.format = test.from;
        write("in", in);
        runQuietly("in " + std::string(test.name) + " -f -s 1.5");
        const Sound out = read(test.name);
        EXPECT_EQ(out.format, test.to)
            << std::hex << test.from << " as " << test.name << " became " << out.format;
    }
}

TEST_F(ToolTest, TitleIsKept)
{
    write("in.wav", tone(440.0, 3000), "A title");
    runQuietly("in.wav out.flac -s 1.5");
    EXPECT_NE(contents(at("out.flac")).find("A title"), std::string::npos);
}

// ---- Pitch ----

TEST_F(ToolTest, HalfSpeedDropsThePitchAndSaysSoUnlessItIsKept)
{
    write("in.wav", tone(440.0, 40000));
    const Result half = tool("in.wav half.wav -s 0.5");
    EXPECT_EQ(half.exitCode, 0);
    EXPECT_NE(half.text.find("pitch drops"), std::string::npos) << half.text;
    EXPECT_NE(half.text.find("--keep-pitch"), std::string::npos) << half.text;
    EXPECT_NEAR(frequency(read("half.wav")), 220.0, 3.0);

    runQuietly("in.wav kept.wav -s 0.5 --keep-pitch");
    EXPECT_NEAR(frequency(read("kept.wav")), 440.0, 5.0);
    runQuietly("in.wav eighth.wav -s 0.125 --keep-pitch");
    EXPECT_NEAR(frequency(read("eighth.wav")), 440.0, 5.0);
}

// ---- Mistakes ----

TEST_F(ToolTest, BadSpeedsNameTheRangeBeforeAnyFileIsTouched)
{
    for (const char* speed : {"nan", "0", "9", "abc", "-1", "inf", "0.1249", "1x", "''"}) {
        const Result result = tool("missing.wav out.wav --speed " + std::string(speed));
        EXPECT_EQ(result.exitCode, 2) << speed;
        EXPECT_EQ(result.text.find("velora-vsp: --speed: "), 0U) << result.text;
        EXPECT_NE(result.text.find("from 0.125 to 8"), std::string::npos) << result.text;
        EXPECT_EQ(result.text.find("missing.wav"), std::string::npos) << result.text;
    }
    EXPECT_NE(tool("in.wav out.wav").exitCode, 0);
}

TEST_F(ToolTest, WhatCannotBeDoneIsNamedAndLeavesEverythingAsItWas)
{
    write("in.wav", tone(440.0, 30000));
    write("old.wav", tone(880.0, 100));
    write("many.wav", tone(440.0, 100, 44100, 33));
    write("six.wav", tone(440.0, 100, 44100, 6));
    write("low.wav", tone(440.0, 100, 7999));
    write("high.wav", tone(440.0, 100, 192001));
    write("stub.wav", tone(440.0, 30000));
    fs::resize_file(at("stub.wav"), 20);
    std::ofstream(at("empty.wav")).close();
    std::ofstream(at("text.wav")) << "This is no sound.";
    fs::create_symlink("in.wav", at("link.wav"));
    fs::create_hard_link(at("in.wav"), at("hard.wav"));
    fs::create_directory(at("folder.wav"));
    const std::set<std::string> before = fileNames();
    const std::string in = contents(at("in.wav"));
    const std::string old = contents(at("old.wav"));

    const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
        {"many.wav out.wav", {"many.wav", "33 channels", "1 to 32"}},
        {"low.wav out.wav", {"low.wav", "7999", "8000 to 192000"}},
        {"high.wav out.wav", {"high.wav", "192001", "8000 to 192000"}},
        {"stub.wav out.wav", {"stub.wav"}},
        {"empty.wav out.wav", {"empty.wav", "empty"}},
        {"text.wav out.wav", {"text.wav", "no kind of sound file", "--raw"}},
        {"six.wav out.mp3", {"out.mp3", "6 channel(s)"}},
        {"missing.wav out.wav", {"missing.wav", "No such file"}},
        {"in.wav old.wav", {"old.wav", "exists", "--force"}},
        {"in.wav in.wav --force", {"in.wav", "input"}},
        {"in.wav link.wav --force", {"link.wav", "input"}},
        {"link.wav in.wav --force", {"in.wav", "input"}},
        {"in.wav hard.wav --force", {"hard.wav", "input"}},
        {"in.wav folder.wav --force", {"folder.wav", "directory"}},
        {"in.wav nowhere/out.wav", {"nowhere/out.wav", "No such file"}},
        {"in.wav out.xyz", {"out.xyz", ".wav", ".flac", ".ogg"}},
        {"in.wav out", {"out", ".wav"}},
    };
    for (const auto& [arguments, words] : cases)
        for (const char* speed : {" -s 2", " -s 1"}) {
            const Result result = tool(arguments + speed);
            EXPECT_EQ(result.exitCode, 1) << arguments;
            for (const std::string& word : words)
                EXPECT_NE(result.text.find(word), std::string::npos)
                    << word << " isn't in: " << result.text;
            EXPECT_EQ(fileNames(), before) << arguments;
        }
    EXPECT_EQ(contents(at("in.wav")), in);
    EXPECT_EQ(contents(at("old.wav")), old);
}

TEST_F(ToolTest, WhatIsCutIsPlayedAsFarAsItGoes)
{
    Sound flac = tone(440.0, 30000);
    flac.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    write("cut.flac", flac);
    write("cut.wav", tone(440.0, 30000));
    for (const char* name : {"cut.flac", "cut.wav"}) {
        fs::resize_file(at(name), fs::file_size(at(name)) / 2);
        const std::string arguments = std::string(name) + " out.wav -s 0.8";
        const Result strict = tool(arguments + " --strict");
        EXPECT_EQ(strict.exitCode, 1);
        EXPECT_FALSE(fs::exists(at("out.wav")));
        const Result result = tool(arguments + " -f");
        EXPECT_EQ(result.exitCode, 0);
        for (const Result& each : {strict, result})
            EXPECT_NE(each.text.find(std::string(name) + ": is incomplete: it ends after 0:00:00."),
                      std::string::npos)
                << each.text;
        EXPECT_NEAR(double(read("out.wav").frames()), 15000.0 / 0.8, 6000.0);
        fs::remove(at("out.wav"));
    }
}

TEST_F(ToolTest, ForceReplacesWhatALinkPointsTo)
{
    write("in.wav", tone(440.0, 3000));
    write("old.wav", tone(880.0, 100));
    fs::permissions(at("old.wav"), fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("old.wav", at("link.wav"));
    runQuietly("in.wav link.wav -s 2 -f");
    EXPECT_TRUE(fs::is_symlink(at("link.wav")));
    EXPECT_EQ(read("old.wav").frames(), 1500);
    EXPECT_EQ(fs::status(at("old.wav")).permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
}

// A limit on the size of files stands for a full disk. The encoders fail at different moments.
TEST_F(ToolTest, FullDiskIsAnErrorAndLeavesNothing)
{
    write("long.wav", tone(440.0, 200000));
    write("short.wav", tone(440.0, 2000)); // less than an encoder holds back until it is closed
    const std::set<std::string> before = fileNames();
    for (const char* arguments : {"long.wav out.wav", "long.wav out.flac", "long.wav out.ogg",
                                  "long.wav out.mp3", "short.wav out.flac", "short.wav out.ogg"})
        for (const char* speed : {" -s 1", " -s 2"}) {
            const Result result = shell("ulimit -f 1; \"$T\" " + std::string(arguments) + speed);
            EXPECT_EQ(result.exitCode, 1) << arguments;
            EXPECT_NE(result.text.find("out."), std::string::npos) << result.text;
            EXPECT_EQ(fileNames(), before) << arguments;
        }
}

TEST_F(ToolTest, InterruptionLeavesNothing)
{
    // An AU header of unknown length, and more silence than anyone waits for, in no disk space.
    const char header[] = ".snd\0\0\0\x18\xFF\xFF\xFF\xFF\0\0\0\3\0\0\xAC\x44\0\0\0\2";
    std::ofstream(at("in.au"), std::ios::binary).write(header, 24);
    fs::resize_file(at("in.au"), 400'000'000);
    for (const auto& [signal, number] : {std::pair("TERM", SIGTERM), std::pair("KILL", SIGKILL)}) {
        const Result result = shell("\"$T\" in.au out.au -s 0.9 & for n in $(seq 500); do "
                                    "ls -l /proc/$!/fd | grep -q deleted && break; sleep 0.02; "
                                    "done; kill -" +
                                    std::string(signal) + " $!; wait $!");
        EXPECT_EQ(result.exitCode, 128 + number) << result.text;
        EXPECT_EQ(fileNames(), std::set<std::string>{"in.au"});
    }
}

// strace makes a file system of one that knows no files without a name.
TEST_F(ToolTest, WhereFilesNeedANameTheNextRunClearsUpAfterAKilledOne)
{
    const std::string named =
        "strace -f -qq -o /dev/null -P folder -e trace=openat -e inject=openat:error=EOPNOTSUPP:"
        "when=1 \"$T\" ";
    if (shell("strace -o /dev/null true").exitCode != 0)
        GTEST_SKIP() << "no strace here";
    ASSERT_TRUE(fs::create_directory(at("folder")));
    write("in.wav", tone(440.0, 200000));
    const auto count = [&] { // of all that lies in the folder
        return std::distance(fs::directory_iterator(at("folder")), fs::directory_iterator());
    };
    shell("mkfifo fifo; (" + named +
          "- folder/out.wav -s 2 <fifo & tracer=$!; exec 3>fifo; cat in.wav >&3; "
          "for n in $(seq 250); do ls -A folder | grep -q velora && break; sleep 0.02; done; " +
          named +
          "in.wav folder/other.wav -s 2; ls -A folder | wc -l >count; "
          "kill -KILL $(cat /proc/$tracer/task/$tracer/children); wait) 2>/dev/null");
    EXPECT_EQ(contents(at("count")), "2\n") << "what is being written was cleared";
    EXPECT_EQ(count(), 2) << "the killed run should have left a file";
    shell(named + "in.wav folder/third.wav -s 2");
    EXPECT_EQ(count(), 2);
    EXPECT_EQ(read("folder/third.wav").frames(), 100000);
}

TEST_F(ToolTest, AnOutputTakesNoRightsOver)
{
    write("in.wav", tone(440.0, 2000));
    write("out.wav", tone(440.0, 10));
    fs::permissions(at("out.wav"), fs::perms(06755));
    ASSERT_EQ(shell("\"$T\" in.wav out.wav -s 2 -f").exitCode, 0);
    EXPECT_EQ(fs::status(at("out.wav")).permissions(), fs::perms(0755));
    EXPECT_EQ(fileNames(), (std::set<std::string>{"in.wav", "out.wav"}));
}

TEST_F(ToolTest, HelpAndVersionGoToStandardOutput)
{
    const Result help = shell("\"$T\" --help 2>&-");
    EXPECT_EQ(help.exitCode, 0);
    for (const char* word : {"Examples", "2 kHz", "-13 dB", "--keep-pitch", "--force"})
        EXPECT_NE(help.text.find(word), std::string::npos) << word;
    const Result version = shell("\"$T\" --version 2>&-");
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.text.find("velora-vsp 3."), 0u) << version.text;
    EXPECT_NE(version.text.find("ver. 3.16"), std::string::npos) << version.text;
}
