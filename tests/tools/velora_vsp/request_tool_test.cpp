// What a user asks of velora-vsp beside a speed: lengths, maps that are written, what an encoder is to
// do; what programs are told of it; and command lines that can't be right.

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "tools/velora_vsp/tool_runner.h"

namespace fs = std::filesystem;

namespace {

using Json = nlohmann::json;

class ToolRequest : public ToolTest {
protected:
    /// Runs the tool, which must succeed, and returns what it says to programs.
    Json json(const std::string& arguments) const
    {
        const Result result = shell("\"$T\" " + arguments + " -f --json 2>said");
        EXPECT_EQ(result.exitCode, 0) << arguments << ": " << result.text << text("said");
        return Json::parse(result.text);
    }

    std::string text(const std::string& name) const
    {
        std::ifstream file(at(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// Expects an exit code and words in what is said, and that no file comes or goes.
    void expectRefusal(const std::string& arguments, int exitCode, const std::string& words) const
    {
        const std::set<std::string> before = fileNames();
        const Result result = tool(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << arguments << ": " << result.text;
        EXPECT_NE(result.text.find(words), std::string::npos)
            << "'" << words << "' isn't in: " << result.text;
        EXPECT_EQ(fileNames(), before) << arguments;
    }
};

} // namespace

// ---- Clipped samples ----

TEST_F(ToolRequest, SamplesThatFullScaleCutAreCounted)
{
    constexpr int kBeyond = 7;
    Sound loud = tone(440.0, 30000, 44100, 1);
    loud.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    for (size_t n = 0; n < kBeyond; ++n)
        loud.samples[1000 * n + 500] = n % 2 == 0 ? 1.5 : -1.5;
    loud.samples[20000] = 1.0; // is not beyond it
    write("loud.wav", loud);
    for (const char* out : {"out.flac", "out.aiff --bits 24", "out.m4a", "out.mp3", "out.ogg"})
        EXPECT_EQ(json("loud.wav " + std::string(out) + " -s 1").at("clipped"), kBeyond) << out;
    EXPECT_EQ(json("loud.wav out.wav -s 1").at("clipped"), 0) << "floats keep it";
    EXPECT_GE(json("loud.wav out.opus -s 1").at("clipped"), kBeyond) << "at another rate";
    EXPECT_GT(json("loud.wav out.wav -s 1.3 --bits 16").at("clipped"), 0);
    EXPECT_NE(tool("loud.wav out.flac -f -s 1").text.find("clipped samples: 7"), std::string::npos);

    Sound square = tone(440.0, 30000, 44100, 1);
    for (double& sample : square.samples)
        sample = sample < 0.0 ? -1.0 : 1.0;
    write("square.wav", square);
    EXPECT_EQ(json("square.wav out.flac -s 1").at("clipped"), 0) << "nothing is cut by a copy";
    for (const char* out : {"out.flac", "out.ogg", "out.opus"})
        EXPECT_GT(json("square.wav " + std::string(out) + " -s 1.3").at("clipped"), 0) << out;
}

// ---- Maps that are written ----

TEST_F(ToolRequest, TheMapIsWrittenBeforeTheSoundWhereverItIsToGo)
{
    write("in.wav", noise(2, 300000));
    std::ofstream(at("map.txt")) << "0 1\n2 1.5 to 2\n4 0.75\n";
    runQuietly("in.wav out.wav -m map.txt --speed-map-out same.txt");
    const std::string map = text("same.txt");
    EXPECT_NE(map.find("2  1.5 to 2  # 0:00:02.000\n4  0.75"), std::string::npos) << map;
    const std::string arguments = "in.wav out.wav -q -f -m map.txt --speed-map-out ";
    EXPECT_EQ(shell("\"$T\" " + arguments + "- | cat").text, map);
    EXPECT_EQ(shell("\"$T\" " + arguments + "/dev/stdout | cat").text, map);
    EXPECT_EQ(shell("mkfifo pipe; cat pipe & \"$T\" " + arguments + "pipe; wait").text, map);
    EXPECT_EQ(shell("\"$T\" " + arguments + "- --json | cat").text.find('#'), 0u)
        << "what else there is to say goes elsewhere";
    EXPECT_EQ(tool(arguments + "/dev/null").text, "");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    shell("\"$T\" in.wav - -q -s 0.7 --speed-map-out early.txt | head -c 100 >/dev/null");
    EXPECT_NE(text("early.txt").find("0  0.7"), std::string::npos) << "the sound was not finished";
    EXPECT_EQ(
        shell("ulimit -f 0; \"$T\" in.wav - -q -s 2 --speed-map-out full.txt 2>/dev/null | wc -c")
            .text,
        "0\n");
    EXPECT_FALSE(fs::exists(at("full.txt")));
}

TEST_F(ToolRequest, NoMapIsWrittenOverWhatIsNamedForSomethingElse)
{
    write("in.wav", noise(2, 3000));
    std::ofstream(at("map.txt")) << "0 1.5\n";
    fs::create_symlink("in.wav", at("link.wav"));
    fs::create_hard_link(at("map.txt"), at("hard.txt"));
    fs::create_directory(at("folder"));
    const std::string in = text("in.wav");
    const std::pair<const char*, const char*> cases[] = {
        {"in.wav out.wav -f -s 2 --speed-map-out in.wav", "the input file itself"},
        {"in.wav out.wav -f -s 2 --speed-map-out link.wav", "the input file itself"},
        {"- out.wav -f -s 2 --speed-map-out in.wav <in.wav", "the input file itself"},
        {"in.wav out.wav -f -s 2 --speed-map-out out.wav", "OUT as well"},
        {"in.wav out.wav -f -s 2 --speed-map-out folder/../out.wav", "OUT as well"},
        {"in.wav out.wav -f -m map.txt --speed-map-out ./map.txt", "speed map that is read"},
        {"in.wav out.wav -f -m map.txt --speed-map-out hard.txt", "speed map that is read"},
        {"in.wav out.wav -s 2 --speed-map-out map.txt", "exists already"},
        {"in.wav out.wav -f -s 2 --speed-map-out folder", "is a directory"},
        {"in.wav out.mp3 -s 2 --bitrate 1 --speed-map-out new.txt", "from 32k to 320k"},
        {"missing.wav out.wav -s 2 --speed-map-out new.txt", "No such file"},
    };
    for (const auto& [arguments, words] : cases)
        expectRefusal(arguments, 1, words);
    expectRefusal("in.wav - -s 2 --speed-map-out -", 2, "goes to standard output");
    EXPECT_EQ(text("in.wav"), in);
    EXPECT_EQ(text("map.txt"), "0 1.5\n");
}

// ---- What encoders are asked for ----

TEST_F(ToolRequest, WhatAnEncoderDoesNotHaveIsRefusedWithWhatItHas)
{
    write("in.wav", noise(2, 3000));
    write("low.wav", tone(440.0, 3000, 22050, 1));
    const std::pair<const char*, const char*> cases[] = {
        {"in.wav out.mp3 --bitrate 1", "from 32k to 320k"},
        {"in.wav out.mp3 --bitrate 321k", "from 32k to 320k"},
        {"low.wav out.mp3 --bitrate 192k", "from 8k to 160k"},
        {"in.wav out.opus --bitrate 600k", "from 6k to 512k"},
        {"in.wav out.ogg --bitrate 2000k", "libvorbis takes no such --bitrate"},
        {"in.wav out.m4a --bitrate 1000k", "from 16k to 529k"},
        {"in.wav out.mp2 --bitrate 100k", "96k or 112k"},
        {"in.wav out.flac --bitrate 192k", "flac has no --bitrate"},
        {"in.wav out.wav --bitrate 192k", "has no --bitrate"},
        {"in.wav out.mp3 --quality 10", "libmp3lame takes no --quality 10: give one from 0 to 9"},
        {"in.wav out.ogg --quality -2", "from -1 to 10"},
        {"in.wav out.opus --quality 5", "libopus has no --quality"},
        {"in.wav out.flac --compression 13", "from 0 to 12"},
        {"in.wav out.ogg --compression 1", "libvorbis has no --compression"},
        {"in.wav out.mp3 --bits 16", "libmp3lame has no --bits"},
        {"in.wav out.flac --bits float", "floating point, but 16 bits or 24 bits"},
    };
    for (const auto& [arguments, words] : cases)
        for (const char* speed : {" -s 1.5", " -s 1"})
            expectRefusal(arguments + std::string(speed), 1, words);
    EXPECT_EQ(shell("\"$T\" in.wav - --format mp3 -s 2 --bitrate 1 2>/dev/null | wc -c").text,
              "0\n");
    for (const char* right :
         {"out.mp3 --bitrate 320k", "out.mp3 --quality 9", "out.ogg --quality -1",
          "out.opus --bitrate 6k", "out.m4a --bitrate 16k", "out.flac --compression 12",
          "out.mp2 --bitrate 96k", "out.ogg --bitrate 96k", "out.wv --compression 0",
          "out.mka --codec ac3 --bitrate 640k"})
        runQuietly("in.wav " + std::string(right) + " -f -s 1.5");
    // Some encoders know but a few bit rates, and take the next one.
    for (const char* near : {"out.mp3 --bitrate 100k", "out.mka --codec ac3 --bitrate 100k"})
        EXPECT_NE(tool("in.wav " + std::string(near) + " -f -s 1.5").text.find(" at 96 kb/s"),
                  std::string::npos)
            << near;
}

// ---- Lengths ----

TEST_F(ToolRequest, ALengthTellsTheSpeedThatItTakes)
{
    write("in.wav", tone(440.0, 10 * 44100));
    const auto lengthAndSpeed = [&](const std::string& arguments, long frames, double speed) {
        const Json said = json("in.wav out.wav " + arguments);
        EXPECT_EQ(said.at("framesOut"), frames) << arguments;
        EXPECT_NEAR(double(said.at("framesIdeal")), double(frames), 0.01) << arguments;
        EXPECT_NEAR(double(said.at("speed")), speed, 1e-8) << arguments;
    };
    lengthAndSpeed("--length 8", 8 * 44100, 1.25);
    lengthAndSpeed("--length 0:08 --from 2 --to 8", 8 * 44100, 0.75);
    lengthAndSpeed("--length 0:10", 10 * 44100, 1.0);
    lengthAndSpeed("--length 20 -k", 20 * 44100, 0.5);
    EXPECT_NEAR(frequency(read("out.wav")), 440.0, 5.0);
    const Result half = tool("in.wav out.wav -f --length 20");
    EXPECT_NE(half.text.find("at speed 0.5 the pitch drops"), std::string::npos) << half.text;
    EXPECT_NEAR(frequency(read("out.wav")), 220.0, 3.0);
    fs::remove(at("out.wav"));
    expectRefusal("in.wav out.wav --length 1", 1, "0:00:01.250 to 0:01:20.000 is possible");
    expectRefusal("in.wav out.wav --length 8 --from 11", 1, "before --from");
}

// ---- Late sound ----

TEST_F(ToolRequest, SoundThatBeginsLateIsCountedAlongTheMapFromThereOn)
{
    constexpr int kRate = 16000;
    write("a.wav", tone(440.0, 5 * kRate, kRate, 1));
    std::ofstream(at("map.txt")) << "0 1\n2 2\n4 0.5\n";
    const Result made =
        shell("ffmpeg -v error -f lavfi -i color=black:s=16x16:r=10:d=7 -itsoffset 1.5 "
              "-i a.wav -map 0 -map 1 -c:v mpeg4 -c:a flac film.mkv");
    ASSERT_EQ(made.exitCode, 0) << made.text;
    const auto expectFrames = [&](const std::string& arguments, double seconds) {
        const Json said = json("film.mkv out.mkv -k -m map.txt" + arguments);
        EXPECT_NEAR(double(said.at("framesIdeal")), seconds * kRate, 1.0) << arguments;
        EXPECT_NEAR(double(said.at("framesOut")), seconds * kRate, 2.0) << arguments;
    };
    expectFrames("", 0.5 + 2.0 / 2.0 + 2.5 / 0.5); // media times 1.5 to 6.5
    expectFrames(" --from 1 --to 3", 0.5 + 1.0 / 2.0);
    expectFrames(" --from 3 --to 5", 1.0 / 2.0 + 1.0 / 0.5);
}

TEST_F(ToolRequest, AChapterThatEndsAfterTheSoundIsNothingThatIsMissing)
{
    write("in.wav", tone(440.0, 4 * 44100));
    std::ofstream(at("tags.txt"))
        << ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=2000\ntitle=One\n"
           "[CHAPTER]\nTIMEBASE=1/1000\nSTART=2000\nEND=9000\ntitle=Two\n";
    const Result made =
        shell("ffmpeg -v error -i in.wav -i tags.txt -map 0 -map_metadata 1 in.m4b");
    ASSERT_EQ(made.exitCode, 0) << made.text;
    const Result result = tool("in.m4b out.m4b -s 2 --strict");
    EXPECT_EQ(result.exitCode, 0) << result.text;
    fs::resize_file(at("in.m4b"), fs::file_size(at("in.m4b")) / 2);
    EXPECT_NE(tool("in.m4b out.m4b -f -s 2 --strict").exitCode, 0);
}

// ---- Command lines that can't be right ----

TEST_F(ToolRequest, ProgramsAreToldOfWrongCommandLinesToo)
{
    write("in.wav", noise(1, 100));
    std::ofstream(at("map.txt")) << "0 fast\n";
    const auto expectError = [&](const std::string& arguments, int exitCode, const char* words) {
        const Result result = shell("\"$T\" " + arguments + " --json 2>said");
        EXPECT_EQ(result.exitCode, exitCode) << arguments;
        const Json said = Json::parse(result.text, nullptr, false);
        ASSERT_TRUE(said.is_object()) << arguments << ": " << result.text;
        EXPECT_EQ(said.at("schema"), 1);
        EXPECT_NE(std::string(said.at("error")).find(words), std::string::npos) << said.dump();
        EXPECT_FALSE(text("said").empty()) << arguments;
    };
    expectError("in.wav out.wav -s 9", 2, "'9' is not a speed");
    expectError("in.wav out.wav", 2, "--speed S");
    expectError("in.wav out.wav -s", 2, "--speed");
    expectError("in.wav out.wav --nothing", 2, "--nothing");
    expectError("", 2, "IN is required");
    expectError("in.wav out.wav -m map.txt", 1, "line 1: 'fast' is not a speed");
    expectError("-o in.wav in.wav -s 2", 1, "can't be made a folder");
    EXPECT_EQ(shell("\"$T\" in.wav - -s 9 --json 2>said").text, "") << "sound would go there";
    EXPECT_NE(text("said").find("{\"schema\": 1"), std::string::npos);
}

TEST_F(ToolRequest, HintsTellWhatToWrite)
{
    const std::pair<const char*, const char*> cases[] = {
        {"-name out.wav -s 2", "written ./-name"},
        {"-song.wav out.wav", "written ./-song.wav"},
        {"in.wav -file.wav -s 2", "written ./-file.wav"},
        {"in.wav -out.wav -s 2", "written ./-out.wav"},
        {"in.wav out.wav -s 1,5", "'1,5' has a comma: write 1.5"},
        {"in.wav out.wav --silence-speed 1,5", "write 1.5"},
        {"in.wav out.wav --length 1:30,5", "write 1:30.5"},
        {"in.wav out.wav -s 2 --quality 4,5", "write 4.5"},
        {"in.wav out.wav -s 2 --compression 4.5", "not a whole number"},
        {"in.wav out.wav -s 2 --silence-speed 2 --silence-threshold -38,5", "write -38.5"},
    };
    for (const auto& [arguments, words] : cases)
        expectRefusal(arguments, 2, words);
}
