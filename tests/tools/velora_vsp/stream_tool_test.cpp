// What velora-vsp does beside files at one speed: pipes, speed maps, summaries.

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/velora_vsp/tool_runner.h"

namespace {

using Json = nlohmann::json;

constexpr int kRate = 44100;
constexpr int kHop = 512;

} // namespace

// ---- Pipes ----

struct PcmCase {
    const char* name;
    int format;
};
class ToolPcm : public ToolTest, public testing::WithParamInterface<PcmCase> {};

TEST_P(ToolPcm, PipesGiveWhatFilesDo)
{
    const auto [name, format] = GetParam();
    write("in.wav", noise(3, 20001, format)); // an odd number of bytes, where samples have that
    for (const std::string speed : {"1", "0.8"}) {
        runQuietly("in.wav file.wav -f -s " + speed);
        const auto before = read("file.wav").samples;
        // WAV of unknown length between two tools, into a file by redirection and by name.
        shell("\"$T\" in.wav - -q -s 1 | \"$T\" - - -q -s " + speed + " >redirected.wav");
        shell("cat in.wav | \"$T\" - named.wav -f -q -s " + speed);
        const std::string raw = " --raw 44100:3:" + std::string(name);
        shell("\"$T\" in.wav - -q -s 1" + raw + " | \"$T\" - - -q -s " + speed + raw + " | \"$T\"" +
              " - raw.wav -f -q -s 1" + raw);
        EXPECT_EQ(std::filesystem::file_size(at("redirected.wav")) % 2, 0u) << "chunks are padded";
        // The pipe rounds to 8 bits, libsndfile cuts.
        const double tolerance = std::string(name) == "u8" ? 1.0 / 128.0 : 0.0;
        for (const char* file : {"redirected.wav", "named.wav", "raw.wav"}) {
            const auto after = read(file).samples;
            ASSERT_EQ(after.size(), before.size()) << file << " at " << speed;
            double difference = 0.0;
            for (size_t n = 0; n < after.size(); ++n)
                difference = std::max(difference, std::abs(after[n] - before[n]));
            EXPECT_LE(difference, tolerance) << file << " at " << speed;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, ToolPcm,
                         testing::Values(PcmCase{"u8", SF_FORMAT_WAV | SF_FORMAT_PCM_U8},
                                         PcmCase{"s16", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
                                         PcmCase{"s24", SF_FORMAT_WAV | SF_FORMAT_PCM_24},
                                         PcmCase{"s24in32", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24},
                                         PcmCase{"s32", SF_FORMAT_WAV | SF_FORMAT_PCM_32},
                                         PcmCase{"f32", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
                                         PcmCase{"f64", SF_FORMAT_WAV | SF_FORMAT_DOUBLE}),
                         [](const auto& test) { return test.param.name; });

TEST_F(ToolTest, ChunksOfAPipeDoNotMatter)
{
    write("in.wav", noise(2, 9000));
    runQuietly("in.wav file.wav -s 0.8");
    shell("(for n in 1 2 3 4 5 6 7 8 9 10 11 12; do dd bs=$((n * 7 - 6)) count=1 2>&-; "
          "sleep 0.005; done; dd bs=997 2>&-) <in.wav | \"$T\" - piped.wav -q -s 0.8");
    EXPECT_TRUE(read("piped.wav").samples == read("file.wav").samples);
}

TEST_F(ToolTest, UnknownLengthsInAWavHeaderMeanToTheEnd)
{
    write("in.wav", noise(2, 3000));
    for (const char* size : {"\\0\\0\\0\\0", "\\377\\377\\377\\377", "\\0\\360\\377\\177"}) {
        shell("(head -c 4 in.wav; printf '" + std::string(size) +
              "'; tail -c +9 in.wav | head -c 32; printf '" + size +
              "'; tail -c +45 in.wav) | \"$T\" - out.wav -f -q -s 1");
        EXPECT_EQ(read("out.wav").samples, read("in.wav").samples) << size;
    }
}

TEST_F(ToolTest, AReaderThatGoesAwayEndsItQuietly)
{
    write("in.wav", noise(2, 300000));
    for (const char* trap : {"", "trap '' PIPE; "}) {
        const Result result = shell(std::string(trap) + "(\"$T\" in.wav - -s 0.7; echo $? >status) "
                                                        "| head -c 100 >/dev/null; cat status");
        EXPECT_EQ(result.text, "141\n");
    }
}

TEST_F(ToolTest, WhatIsWrongWithAPipeIsNamed)
{
    write("in.wav", noise(2, 3000));
    struct Case {
        const char* command;
        const char* words;
    };
    const Case cases[] = {
        {"\"$T\" - out.wav -s 2 </dev/null", "is empty"},
        {"echo Hello, this is no sound | \"$T\" - out.wav -s 2", "no kind of sound file"},
        {"head -c 30 in.wav | \"$T\" - out.wav -s 2", "start is damaged"},
        {"head -c 5000 in.wav | \"$T\" - out.wav -s 2 --strict", "is incomplete"},
        {"head -c 5 in.wav | \"$T\" - out.wav -s 2 --strict --raw 8000:2:s16", "is incomplete"},
        {"\"$T\" in.wav - -s 2 --raw 48000:2:s16 >/dev/null", "neither is converted"},
        {"\"$T\" - in.wav -f -s 2 <in.wav", "input file itself"},
        {"\"$T\" in.wav - -s 2 >>in.wav", "input file itself"},
        {"\"$T\" - - -s 2 --raw 48000:2:s17", "RATE:CHANNELS:FORMAT"},
        {"\"$T\" - - -s 2 --raw 7000:2:s16", "8000 to 192000"},
        {"\"$T\" in.wav out.wav -s 2 --raw 48000:2:s16", "--raw needs -"},
    };
    const std::set<std::string> before = fileNames();
    for (const Case& test : cases) {
        const Result result = shell(test.command);
        EXPECT_NE(result.exitCode, 0) << test.command;
        EXPECT_NE(result.text.find(test.words), std::string::npos)
            << test.command << ": " << result.text;
        EXPECT_EQ(fileNames(), before) << test.command;
    }
    EXPECT_EQ(read("in.wav").frames(), 3000);
}

TEST_F(ToolTest, ATerminalIsRefusedAndToldWhatToDo)
{
    write("in.wav", noise(2, 3000));
    const auto atTerminal = [&](const std::string& arguments) {
        return shell("script -qec \"'$T' " + arguments + "\" /dev/null </dev/null");
    };
    for (const char* raw : {"", " --raw 44100:2:s16"}) {
        const Result output = atTerminal("in.wav - -s 2" + std::string(raw));
        EXPECT_EQ(output.exitCode, 1);
        EXPECT_NE(output.text.find("standard output: is a terminal"), std::string::npos);
        EXPECT_NE(output.text.find("pipe it into a player, or name a file"), std::string::npos);
        EXPECT_LT(output.text.size(), 200U) << "sound was written all the same";
        const Result input = atTerminal("- out.wav -s 2" + std::string(raw));
        EXPECT_EQ(input.exitCode, 1);
        EXPECT_NE(input.text.find("pipe sound into it, or name a file"), std::string::npos);
    }
    EXPECT_EQ(fileNames(), std::set<std::string>{"in.wav"});
}

// The shell has interrupts ignored in the background: env makes them what they are elsewhere.
TEST_F(ToolTest, InterruptionEndsTheWaitForAPipe)
{
    write("in.wav", noise(2, 300000));
    ASSERT_EQ(shell("mkfifo pipe").exitCode, 0);
    const std::set<std::string> before = fileNames();
    const std::string catchesSigterm = // bit 14 of the mask
        "until grep -q 'SigCgt:.*[4-7c-f]...$' /proc/$tool/status || ! kill -0 $tool; do sleep "
        "0.05; done; ";
    // The other end stays open and does nothing more, for longer than the signal may take.
    const std::pair<const char*, const char*> cases[] = {
        {"(head -c 100000 in.wav; exec sleep 5) >pipe", "- out.wav <pipe"},
        {"(head -c 100000 in.wav; exec sleep 5) >pipe", "pipe out.wav"},
        {"sleep 5 >pipe", "- out.wav <pipe"}, // before the header
        {"sleep 5 >pipe", "pipe out.wav"},
        {"sleep 5 <pipe", "in.wav - >pipe"},
    };
    for (const auto& [otherEnd, arguments] : cases)
        for (const auto& [name, number] : {std::pair("INT", SIGINT), std::pair("TERM", SIGTERM)}) {
            const std::string signal = name;
            const Result result =
                shell(std::string(otherEnd) + " & other=$!; env --default-signal=" + signal +
                      " \"$T\" -q -s 0.8 " + arguments + " & tool=$!; " + catchesSigterm +
                      "sleep 0.4; kill -" + signal +
                      " $tool; wait $tool; code=$?; kill $other; exit $code");
            EXPECT_EQ(result.exitCode, 128 + number) << arguments << ": " << result.text;
            EXPECT_EQ(fileNames(), before) << arguments;
        }
}

// ---- Speed maps ----

TEST_F(ToolTest, SpeedMapsPlaceSoundsWithinAHop)
{
    std::vector<long> clicks;
    for (double t = 0.25; t < 5.8; t += 0.4)
        clicks.push_back(long(t * kRate));
    write("in.wav", rings(kRate, 1, 6 * kRate, clicks, kHop));
    std::ofstream(at("map.txt")) << "# a comment\n\n0:02 0.75 # slower\n4.0 1.5\n";
    // Media time to output time, integrated by hand.
    const auto steps = [](double t) {
        return std::min(t, 2.0) + std::clamp(t - 2.0, 0.0, 2.0) / 0.75 +
               std::max(t - 4.0, 0.0) / 1.5;
    };
    const auto ramp = [](double t) {
        const double slope = 0.75 / 2.0;
        return std::min(t, 2.0) +
               std::log(1.0 + slope * std::clamp(t - 2.0, 0.0, 2.0) / 0.75) / slope +
               std::max(t - 4.0, 0.0) / 1.5;
    };
    const auto check = [&](const char* option, auto outputAt) {
        const Result result = tool("in.wav out.wav -f --json -m map.txt" + std::string(option));
        ASSERT_EQ(result.exitCode, 0) << result.text;
        const Json summary = Json::parse(result.text);
        EXPECT_NEAR(double(summary.at("framesIdeal")), outputAt(6.0) * kRate, 0.01);
        const Sound out = read("out.wav");
        EXPECT_EQ(summary.at("framesOut"), out.frames());
        EXPECT_NEAR(double(out.frames()), outputAt(6.0) * kRate, 1.0);
        for (const long click : clicks) {
            const double expected = outputAt(double(click) / kRate) * kRate;
            EXPECT_NEAR(centreOfEnergy(out, expected, 4 * kHop), expected, kHop) << click << option;
        }
    };
    check("", steps);
    check(" --ramp", ramp);
}

TEST_F(ToolTest, SpeedMapsKeepTheLengthThroughEveryJump)
{
    write("in.wav", noise(2, 6 * kRate));
    const auto expectLength = [&](const char* map, const char* option, double seconds) {
        std::ofstream(at("map.txt")) << map;
        runQuietly("in.wav out.wav -f -m map.txt" + std::string(option));
        EXPECT_NEAR(double(read("out.wav").frames()), seconds * kRate, 2.0) << map << option;
    };
    expectLength("0 0.25\n1.5 4\n4.25 0.3\n", "", 6.0 + 2.75 / 4.0 + 1.75 / 0.3);
    expectLength("0 8\n4.5 0.125\n", "", 4.5 / 8.0 + 1.5 / 0.125);
    expectLength("1 1\n1.01 0.6\n1.02 6\n1.025 1\n1.5 0.5\n", "",
                 1.01 + 0.01 / 0.6 + 0.005 / 6.0 + 0.475 + 4.5 / 0.5);
    expectLength("0 8\n6 0.25\n", " --ramp", 6.0 * std::log(32.0) / 7.75);
}

TEST_F(ToolTest, MistakesInASpeedMapAreNamedByLine)
{
    const std::pair<const char*, const char*> cases[] = {
        {"0 1\nabc 2\n", "line 2: 'abc' is not a time"},
        {"0:75 1\n", "'0:75' is not a time"},
        {"0 9\n", "line 1: '9' is not a speed"},
        {"\n5\n", "line 2: a time and a speed"},
        {"0 1 2\n", "a time and a speed"},
        {"5 1\n5 2\n", "line 2: '5' doesn't come after"},
        {"# nothing\n", "has no line"},
        {"-1 1\n", "'-1' is not a time"},
        {"99999999999999999999 1\n", "is not a time"},
        {"0 1\n5 1 to 2\n", "line 2: no line comes after"},
    };
    for (const auto& [map, words] : cases) {
        std::ofstream(at("map.txt")) << map;
        const Result result = tool("missing.wav out.wav -m map.txt");
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_NE(result.text.find("map.txt: "), std::string::npos) << result.text;
        EXPECT_NE(result.text.find(words), std::string::npos) << result.text;
    }
    EXPECT_NE(tool("in.wav out.wav -m map.txt -s 1").text.find("either"), std::string::npos);
    EXPECT_NE(tool("in.wav out.wav -s 1 --ramp").text.find("--ramp needs"), std::string::npos);
}

// ---- Pauses, lengths, parts ----

// Words of noise on a hum: a pause of 3 s after 2 s, gaps of 0.2 s after 7 and 9 s.
Sound words(double hum)
{
    Sound sound = noise(1, 11 * 44100);
    for (size_t n = 0; n < sound.samples.size(); ++n) {
        const double time = double(n) / 44100.0;
        const bool isWord =
            time < 2.0 || (time >= 5.0 && time < 7.0) || (time >= 7.2 && time < 9.0) || time >= 9.2;
        sound.samples[n] = (isWord ? 0.4 * sound.samples[n] : 0.0) +
                           hum * std::sin(2.0 * std::numbers::pi * 100.0 * time);
    }
    return sound;
}

TEST_F(ToolTest, PausesGoAtTheirOwnSpeed)
{
    for (const double hum : {0.0, 0.001, 0.02}) { // the loudest is above the usual threshold
        write("in.wav", words(hum));
        const Result result =
            tool("in.wav out.wav -f -s 1.5 --silence-speed 4 --silence-margin 0.2 "
                 "--speed-map-out map.txt --json");
        ASSERT_EQ(result.exitCode, 0) << result.text;
        const Json json = Json::parse(result.text);
        EXPECT_EQ(json.at("pauses"), 1) << hum;
        EXPECT_NEAR(double(json.at("saved")), 2.6 / 1.5 - 2.6 / 4.0, 0.02) << hum;
        EXPECT_NEAR(double(read("out.wav").frames()), (8.4 / 1.5 + 2.6 / 4.0) * 44100.0, 1000.0)
            << hum;
        runQuietly("in.wav mapped.wav -f -m map.txt");
        EXPECT_EQ(
            shell("cat in.wav | \"$T\" - piped.wav -f -q -s 1.5 --silence-speed 4 "
                  "--silence-margin 0.2; rm -f pipe; mkfifo pipe; cat in.wav >pipe & "
                  "\"$T\" pipe named.wav -f -q -s 1.5 --silence-speed 4 --silence-margin 0.2; "
                  "cmp out.wav mapped.wav && cmp out.wav piped.wav && cmp out.wav named.wav")
                .text,
            "")
            << hum;
    }
    write("even.wav", noise(2, 3 * 44100));
    EXPECT_EQ(Json::parse(tool("even.wav out.wav -f --silence-speed 4 --json").text).at("pauses"),
              0);
}

TEST_F(ToolTest, LengthsAndPartsAreExact)
{
    write("in.wav", words(0.0));
    runQuietly("in.wav out.wav -f --length 0:08.5");
    EXPECT_EQ(read("out.wav").frames(), 17 * 22050);
    runQuietly("in.wav out.wav -f --length 6 --silence-speed 6 --from 1 --to 10");
    EXPECT_NEAR(double(read("out.wav").frames()), 6.0 * 44100.0, 1.0);
    runQuietly("in.wav out.wav -f -s 1 --from 0:02.5 --to 5.25");
    const Sound in = read("in.wav");
    EXPECT_EQ(read("out.wav").samples,
              std::vector<double>(in.samples.begin() + 110250, in.samples.begin() + 231525));
    for (const char* arguments : {"--length 2:00", "--length 0.5", "-s 1 --from 11.5"}) {
        const Result result = tool("in.wav none.wav " + std::string(arguments));
        EXPECT_EQ(result.exitCode, 1) << arguments;
        EXPECT_NE(result.text.find("in.wav: "), std::string::npos) << result.text;
    }
    EXPECT_FALSE(std::filesystem::exists(at("none.wav")));
}

// ---- Summaries ----

TEST_F(ToolTest, ClosingLineAndJsonTellTheFrames)
{
    write("in.wav", noise(2, 10000));
    const std::string line = tool("in.wav out.wav -s 0.7").text;
    EXPECT_NE(line.find("10000 frames in, 14286 out, ideal 14285.71, difference +0.29, "),
              std::string::npos)
        << line;
    const Json json = Json::parse(tool("in.wav out.wav -f -s 0.7 --json").text);
    const Json expected = {{"input", "in.wav"}, {"output", "out.wav"}, {"format", "s16"},
                           {"rate", 44100},     {"channels", 2},       {"speed", 0.7},
                           {"framesIn", 10000}, {"framesOut", 14286}};
    for (const auto& [key, value] : expected.items())
        EXPECT_EQ(json.at(key), value) << key;
    EXPECT_NEAR(double(json.at("framesIdeal")), 14285.714, 0.001);
    EXPECT_NEAR(double(json.at("difference")), 0.286, 0.001);
    EXPECT_GT(double(json.at("seconds")), 0.0);
    EXPECT_GT(double(json.at("realTimeFactor")), 0.0);
}

// A file name is any bytes; where they are no text, JSON has U+FFFD for each.
TEST_F(ToolTest, JsonHoldsAnyFileName)
{
    const std::string replaced = "\uFFFD";
    const std::pair<std::string, std::string> names[] = {
        {"a \"quoted\" back\\slash", ""},
        {"line\nfeed, tab\tand bell\a, \x7f", ""},
        {"\u00FC \u97F3 \U0001D11E", ""},
        {"\xFF\xFE!", replaced + replaced + "!"},
        {"\xC3(", replaced + "("},
        {"cut \xE2\x82", "cut " + replaced + replaced},
        {"\xED\xA0\x80", replaced + replaced + replaced}, // half of a surrogate pair
        {"\xC0\xAF", replaced + replaced},                // overlong
        {"\xE0\x80\xAF", replaced + replaced + replaced},
    };
    for (const auto& [name, shown] : names) {
        const std::string& text = shown.empty() ? name : shown;
        write(name + ".wav", noise(1, 100));
        std::ofstream(at(name)) << "0 1.5\n";
        const Result result =
            tool("'" + name + ".wav' '" + name + ".flac' -m '" + name + "' --json");
        ASSERT_EQ(result.exitCode, 0) << result.text;
        const Json json = Json::parse(result.text);
        EXPECT_EQ(json.at("input"), text + ".wav");
        EXPECT_EQ(json.at("output"), text + ".flac");
        EXPECT_EQ(json.at("map"), text);
    }
}
