// What velora-vsp does with many files at once.

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "tools/velora_vsp/tool_runner.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

class ToolBatch : public ToolTest {
protected:
    void SetUp() override
    {
        fs::create_directories(at("in/sub"));
        write("in/one.wav", tone(440.0, 4410));
        write("in/two.wav", tone(660.0, 8820));
        write("in/sub/one.wav", tone(880.0, 2205));
    }

    /// Names of all files below a folder.
    std::set<std::string> below(const std::string& folder) const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(at(folder)))
            if (entry.is_regular_file())
                names.insert(fs::relative(entry.path(), at(folder)).string());
        return names;
    }
};

} // namespace

TEST_F(ToolBatch, FilesAndFoldersKeepTheirNames)
{
    std::ofstream(at("in/notes.txt")) << "no sound";
    std::ofstream(at("in/.hidden.wav")) << "nor this";
    runQuietly("-s 2 -o out -r in");
    EXPECT_EQ(below("out"), (std::set<std::string>{"one.wav", "sub/one.wav", "two.wav"}));
    EXPECT_EQ(read("out/two.wav").frames(), 4410);
    EXPECT_EQ(read("out/sub/one.wav").frames(), 1103);
    // What was written into one of the folders isn't taken for more input.
    runQuietly("-s 2 -o in/brisk -r in --jobs 1");
    runQuietly("-s 2 -o in/brisk -r in --jobs 1 -f");
    EXPECT_EQ(below("in/brisk").size(), 3u);
    runQuietly("-s 2 -o other in/one.wav in/two.wav --format flac --jobs 8");
    EXPECT_EQ(below("other"), (std::set<std::string>{"one.flac", "two.flac"}));
    runQuietly("-s 2 -o . in/two.wav");
    EXPECT_EQ(read("two.wav").frames(), 4410);
}

TEST_F(ToolBatch, WhatFailsIsToldAndTheOthersGoOn)
{
    std::ofstream(at("in/broken.wav")) << "RIFF, but no sound";
    const Result result =
        tool("-s 2 -o out in/one.wav in/missing.wav in/broken.wav in/sub/one.wav in "
             "in/two.wav --json");
    EXPECT_EQ(result.exitCode, 1);
    for (const char* words : {"in/missing.wav: can't be opened", "in/broken.wav: ",
                              "in/sub/one.wav: would become out/one.wav, which in/one.wav becomes",
                              "in: is a folder: --recursive"})
        EXPECT_NE(result.text.find(words), std::string::npos) << words << ": " << result.text;
    EXPECT_EQ(below("out"), (std::set<std::string>{"one.wav", "two.wav"}));
    int done = 0;
    int failed = 0;
    std::istringstream lines(result.text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with('{')) {
            const Json json = Json::parse(line);
            EXPECT_EQ(json.at("schema"), 1);
            json.contains("error") ? ++failed : ++done;
        }
    EXPECT_EQ(done, 2);
    EXPECT_EQ(failed, 4);
}

TEST_F(ToolBatch, NothingIsOverwrittenAndABatchCanGoOn)
{
    runQuietly("-s 2 -o out in/one.wav");
    EXPECT_EQ(tool("-s 4 -o out -r in").exitCode, 1); // one is there
    EXPECT_EQ(read("out/one.wav").frames(), 2205);
    fs::remove(at("out/two.wav"));
    runQuietly("-s 4 -o out -r in --skip-existing");
    EXPECT_EQ(read("out/one.wav").frames(), 2205);
    EXPECT_EQ(read("out/two.wav").frames(), 2205);
    const Result same = tool("-s 2 -o in -r in -f");
    EXPECT_EQ(same.exitCode, 1);
    EXPECT_NE(same.text.find("in/two.wav: is the input file itself"), std::string::npos)
        << same.text;
    EXPECT_EQ(read("in/two.wav").frames(), 8820);
    EXPECT_NE(tool("-s 2 -o in/one.wav in/two.wav").text.find("in/one.wav: can't be made a folder"),
              std::string::npos);
}

TEST_F(ToolBatch, AnInterruptionEndsItWhole)
{
    for (int n = 0; n < 30; ++n)
        write("in/long" + std::to_string(n) + ".wav", tone(440.0, 10 * 44100));
    const Result result =
        shell("env \"$T\" -q -s 0.2 -o out -r in & tool=$!; for n in $(seq 500); do "
              "[ -n \"$(ls out 2>/dev/null)\" ] && break; sleep 0.01; done; "
              "kill -TERM $tool; wait $tool");
    EXPECT_EQ(result.exitCode, 128 + 15) << result.text;
    EXPECT_LT(below("out").size(), 33u);
    for (const std::string& name : below("out"))
        EXPECT_GT(read("out/" + name).frames(), 10000) << name;
}

TEST_F(ToolBatch, WithNobodyToReportToItEndsInOrder)
{
    const std::string batch = "\"$T\" -s 2 -o out -r in -f --json 2>log";
    EXPECT_EQ(shell("(" + batch + "; echo $? >status) | head -c 0; cat status log").text, "141\n");
    EXPECT_EQ(shell(batch + " >/dev/full; echo $?; cat log").text,
              "1\nvelora-vsp: standard output: can't be written: No space left on device\n");
}

// Whatever it is called; and nothing is taken twice, or forever.
TEST_F(ToolBatch, ContentAndNotNamesDecideAndEachFileIsTakenOnce)
{
    std::ofstream(at("in/fake.wav")) << "no sound";
    std::ofstream(at("in/notes.txt")) << "nor this";
    shell("ffmpeg -v error -f lavfi -i testsrc=s=16x16 -frames:v 1 in/one.jpg; mkdir far; "
          "cp in/two.wav far/three.wav; cd in; ln -s .. sub/loop; ln -s one.wav again.wav; "
          "ln -s nowhere.wav gone.wav; ln -s ../far near");
    const Result result = tool("-s 2 -o out/. -r in// --format flac --json");
    EXPECT_EQ(result.exitCode, 0) << result.text;
    EXPECT_EQ(below("out"),
              (std::set<std::string>{"one.flac", "sub/one.flac", "two.flac", "near/three.flac"}));
    std::set<std::string> played;
    std::set<std::string> leftOut;
    std::istringstream lines(result.text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with('{')) {
            const Json json = Json::parse(line);
            (json.contains("leftOut") ? leftOut : played).insert(std::string(json.at("input")));
            EXPECT_EQ(line.find("//"), std::string::npos) << line;
            EXPECT_EQ(line.find("/./"), std::string::npos) << line;
        }
    EXPECT_EQ(played, (std::set<std::string>{"in/one.wav", "in/two.wav", "in/sub/one.wav",
                                             "in/near/three.wav"}));
    for (const char* name : {"in/fake.wav", "in/notes.txt", "in/one.jpg", "in/again.wav",
                             "in/gone.wav", "in/sub/loop"})
        EXPECT_EQ(leftOut.count(name), 1u) << name << ": " << result.text;
}

TEST_F(ToolBatch, NoInputIsWrittenOverByWhateverName)
{
    shell("mkdir out; cp in/two.wav out/one.wav; ln -s ../in/two.wav out/two.wav");
    const Result result = tool("-s 2 -f -o out in/one.wav out/one.wav in/two.wav");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(read("out/one.wav").frames(), 8820) << result.text;
    EXPECT_EQ(read("in/two.wav").frames(), 8820) << result.text;
}

TEST_F(ToolBatch, ACodecChoosesTheExtension)
{
    runQuietly("-s 2 -o out in/one.wav --codec libopus");
    runQuietly("-s 2 -o out in/one.wav --codec pcm_s24le");
    runQuietly("-s 2 -o out in/two.wav --codec alac");
    EXPECT_EQ(below("out"), (std::set<std::string>{"one.opus", "one.wav", "two.m4a"}));
}
