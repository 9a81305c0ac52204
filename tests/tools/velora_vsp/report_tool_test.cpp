// What the page of --report tells is true of the sounds, and it stays small and in one piece.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/velora_vsp/band_check.h"
#include "tools/velora_vsp/tool_runner.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

class Report : public ToolTest {
protected:
    std::string page(const std::string& name = "page.html") const
    {
        std::ifstream file(at(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// What the page draws. The text of it holds nothing that a browser could take for a tag.
    json data() const
    {
        const std::string text = page();
        const std::string start = R"(<script type="application/json" id="data">)";
        const size_t from = text.find(start) + start.size();
        return json::parse(text.substr(from, text.find('<', from) - from));
    }

    /// The column in which a sound is loudest, between two of its columns.
    static size_t loudest(const json& sound, size_t from, size_t to)
    {
        const auto rms = sound["rms"].get<std::vector<double>>();
        const auto first = rms.begin() + std::ptrdiff_t(from);
        return from + size_t(std::max_element(first, rms.begin() + std::ptrdiff_t(to)) - first);
    }

    static json octaveAt(const json& data, double hertz)
    {
        for (const json& band : data["octaves"])
            if (band["hertz"] == hertz)
                return band;
        return {};
    }
};

} // namespace

TEST_F(Report, IsOnePageThatNeedsNothingElse)
{
    write("a <b>&amp;.wav", tone(440.0, 44100));
    const Result result = tool("'a <b>&amp;.wav' out.wav -s 0.75 --json --report page.html");
    ASSERT_EQ(result.exitCode, 0) << result.text;
    const std::string text = page();
    EXPECT_TRUE(text.starts_with("<!DOCTYPE html>"));
    EXPECT_TRUE(text.ends_with("</html>\n"));
    for (const char* const tag : {"src=\"", "<link", "@import", "@SCRIPT@", "@STYLE@", "@DATA@"})
        EXPECT_EQ(text.find(tag), std::string::npos) << tag;
    const auto count = [&](const std::string& what) {
        size_t found = 0;
        for (size_t place = text.find(what); place != std::string::npos;
             place = text.find(what, place + 1))
            ++found;
        return found;
    };
    for (const std::string tag : {"script", "style", "section", "table", "div", "p", "h2", "pre"})
        EXPECT_EQ(count("<" + tag + ">") + count("<" + tag + " "), count("</" + tag + ">")) << tag;

    json told = data()["figures"];
    EXPECT_EQ(told["input"], "a <b>&amp;.wav");
    const json said = json::parse(result.text);
    told["seconds"] = said["seconds"];
    told["realTimeFactor"] = said["realTimeFactor"];
    EXPECT_EQ(told, said);
}

TEST_F(Report, ShowsWhatSoundedWhenOnTheTimeOfTheInput)
{
    constexpr int kRate = 22050;
    write("in.wav", rings(kRate, 1, 6 * kRate, {kRate, 5 * kRate}, 1024));
    std::ofstream(at("map.txt")) << "0:00 0.75\n0:03 2\n";
    runQuietly("in.wav out.wav -m map.txt --report page.html");
    const json seen = data();
    const auto columns = seen["columns"].get<size_t>();
    const auto placeOf = [=](double second) { return second / 6.0 * double(columns); };
    const double off = placeOf(0.06); // a hop or two, as scripts/quality allows
    for (const char* const side : {"in", "out"}) {
        EXPECT_NEAR(double(loudest(seen[side], 0, columns / 2)), placeOf(1.0), off) << side;
        EXPECT_NEAR(double(loudest(seen[side], columns / 2, columns)), placeOf(5.0), off) << side;
    }
    EXPECT_NEAR(seen["speeds"][size_t(placeOf(2.0))], 0.75, 1e-4);
    EXPECT_NEAR(seen["speeds"][size_t(placeOf(4.0))], 2.0, 1e-4);
    EXPECT_NEAR(seen["outputAt"].back(), 3.0 / 0.75 + 3.0 / 2.0, 1e-6);
    EXPECT_TRUE(seen["out"]["sound"].get<std::string>().starts_with("data:audio/"));
    EXPECT_EQ(seen["heard"], 6.0);
}

TEST_F(Report, FindsLevelAndPitchOfWhatCameOut)
{
    write("in.wav", tone(1000.0, 3 * 44100));
    runQuietly("in.wav out.wav -s 0.75 --report page.html");
    const json even = octaveAt(data(), 1000.0);
    EXPECT_NEAR(even["in"], 20.0 * std::log10(0.5), 0.2);
    EXPECT_NEAR(even["out"].get<double>() - even["in"].get<double>(), 0.0, 0.5);
    EXPECT_NEAR(even["cents"], 0.0, 2.0);

    runQuietly("in.wav out.wav -f -s 0.4 --sound engine --report page.html"); // -13 dB
    const json soft = octaveAt(data(), 1000.0);
    EXPECT_LT(soft["out"].get<double>() - soft["in"].get<double>(), -10.0);

    runQuietly("in.wav out.wav -f -s 0.5 --report page.html"); // an octave down
    EXPECT_EQ(data()["pitch"], 0.5);
    const json dropped = octaveAt(data(), 1000.0);
    EXPECT_NEAR(dropped["out"].get<double>() - dropped["in"].get<double>(), 0.0, 1.0);
    EXPECT_NEAR(dropped["cents"], 0.0, 3.0);
}

// Three tones, as a Hann window shows them, above soft noise of one power.
MeanSpectrum chord(double ratio)
{
    MeanSpectrum spectrum{1.35, std::vector<double>(16384, 1e-9)};
    for (const double hertz : {880.0, 1108.73, 1318.51})
        for (size_t bin = 0; bin < spectrum.power.size(); ++bin) {
            const double off = std::fabs(double(bin) - hertz * ratio / spectrum.binHertz);
            if (off < 2.0)
                spectrum.power[bin] += 0.01 * std::pow(std::cos(off * 0.7854), 4);
        }
    return spectrum;
}

TEST(BandCheck, FindsHowFarTonesAreOff)
{
    for (const double cents : {-60.0, -7.0, 0.0, 2.0, 33.0})
        for (const double pitch : {1.0, 0.5}) {
            const MeanSpectrum out = chord(pitch * std::exp2(cents / 1200.0));
            const auto bands = checkBands(chord(1.0), out, 1, pitch);
            EXPECT_NEAR(bands[4].cents.value_or(1000.0), cents, 1.0) << pitch;
            EXPECT_NEAR(bands[4].out, bands[4].in, 0.3) << pitch;
        }
    const auto far = checkBands(chord(1.0), chord(1.06), 1, 1.0); // beyond what is looked at
    EXPECT_FALSE(far[4].cents.has_value());
}

TEST_F(Report, StaysSmallHoweverLongTheSound)
{
    for (const char* const seconds : {"100", "400"}) {
        const std::string length = seconds;
        ASSERT_EQ(shell("head -c " + length + "0000 /dev/urandom >raw").exitCode, 0);
        const Result result =
            tool("- out" + length + ".wav -q -s 1 --raw 10000:1:u8 --report page" + length +
                 ".html <raw");
        ASSERT_EQ(result.exitCode, 0) << result.text;
    }
    const auto shorter = fs::file_size(at("page100.html"));
    const auto longer = fs::file_size(at("page400.html"));
    EXPECT_LT(double(longer), 1.25 * double(shorter));
    EXPECT_LT(longer, 5'000'000U);
    fs::rename(at("page400.html"), at("page.html"));
    EXPECT_LE(data()["columns"], 2048);
    EXPECT_EQ(data()["heard"], 90.0);
}

TEST_F(Report, OfNothingIsWrittenAllTheSame)
{
    write("in.wav", tone(440.0, 0));
    runQuietly("in.wav out.wav -s 0.75 --report page.html");
    EXPECT_EQ(data()["columns"], 0);
}

TEST_F(Report, OverwritesNothing)
{
    write("in.wav", tone(440.0, 2000));
    std::ofstream(at("there.html")) << "there";
    fs::create_directory(at("folder"));
    const auto before = fileNames();
    for (const char* const refused :
         {"in.wav out.wav -f --report out.wav", "in.wav out.wav -f --report ./out.wav",
          "in.wav out.wav -f --report in.wav", "in.wav out.wav --report there.html",
          "in.wav out.wav -f --report folder", "in.wav out.wav -f --report nowhere/page.html",
          "in.wav out.wav -f --report /dev/null",
          "in.wav out.wav -f --report map.txt --speed-map-out map.txt"}) {
        const Result result = tool(std::string(refused) + " -s 2");
        EXPECT_EQ(result.exitCode, 1) << refused << ": " << result.text;
        EXPECT_EQ(std::count(result.text.begin(), result.text.end(), '\n'), 1) << result.text;
        EXPECT_EQ(fileNames(), before) << refused;
    }
    EXPECT_EQ(page("there.html"), "there");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    for (const char* const wrong :
         {"-o folder in.wav --report page.html", "in.wav out.wav --report -",
          "in.wav out.wav --report ''", "-f -o '' in.wav there.html"}) {
        EXPECT_EQ(tool(std::string(wrong) + " -s 2").exitCode, 2) << wrong;
        EXPECT_EQ(fileNames(), before) << wrong;
    }
    EXPECT_EQ(page("there.html"), "there");
}
