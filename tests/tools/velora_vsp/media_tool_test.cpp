// Kinds of media files: what goes in and comes out of them, held against ffmpeg as an independent
// reader and writer.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/velora_vsp/tool_runner.h"

namespace {

using Json = nlohmann::json;

class ToolMedia : public ToolTest {
protected:
    void ffmpeg(const std::string& arguments) const
    {
        const Result result = shell("ffmpeg -v error -y " + arguments);
        ASSERT_EQ(result.exitCode, 0) << arguments << ": " << result.text;
    }

    /// The sound of a file as ffmpeg decodes it.
    Sound decoded(const std::string& name, const std::string& track = "a:0") const
    {
        ffmpeg("-i " + name + " -map 0:" + track + " -c:a pcm_f32le decoded.wav");
        return read("decoded.wav");
    }

    Json probe(const std::string& name) const
    {
        return Json::parse(shell("ffprobe -v error -of json -show_format -show_streams "
                                 "-show_chapters -show_packets " +
                                 name)
                               .text);
    }

    int64_t framesIn(const std::string& arguments) const
    {
        const Result result = tool(arguments + " -f --json");
        EXPECT_EQ(result.exitCode, 0) << result.text;
        return Json::parse(result.text.substr(result.text.find('{'))).at("framesIn");
    }
};

} // namespace

// ---- Sound ----

TEST_F(ToolMedia, EveryKindHoldsExactlyTheFramesThatItShould)
{
    constexpr long kFrames = 100017;
    write("in.wav", tone(440.0, kFrames));
    for (const char* kind : {"flac", "mp3", "ogg", "opus", "wv", "tta", "mka", "caf", "mov"}) {
        const std::string out = std::string("out.") + kind;
        runQuietly("in.wav " + out + " -s 0.8");
        const Sound sound = decoded(out);
        const double expected = double(kFrames) / 0.8 * sound.rate / 44100.0;
        const double tolerance = sound.rate == 44100 ? 0.51 : 1.1; // rounded once more
        EXPECT_NEAR(double(sound.frames()), expected, tolerance) << kind;
        EXPECT_NEAR(frequency(sound), 440.0, 5.0) << kind;
        EXPECT_EQ(framesIn(out + " back.wav -s 1"), sound.frames()) << kind;
    }
    // What MP4 says of the end of the last packet, this ffmpeg doesn't heed.
    runQuietly("in.wav out.m4a -s 0.8");
    EXPECT_EQ(framesIn("out.m4a back.wav -s 1"), std::llround(double(kFrames) / 0.8));
}

// Each click changes the length of the packets.
TEST_F(ToolMedia, VorbisWithClicksIsPlayedWhole)
{
    constexpr long kFrames = 200000;
    Sound in = tone(440.0, kFrames);
    for (size_t at = 5000; at < in.samples.size(); at += 12000)
        std::fill_n(in.samples.begin() + long(at), 20, 0.9);
    write("in.wav", in);
    ffmpeg("-i in.wav in.ogg");
    EXPECT_EQ(framesIn("in.ogg out.wav -s 1"), kFrames);
}

TEST_F(ToolMedia, EverySampleSurvivesEachLosslessKind)
{
    const Sound in = noise(2, 20011, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1.0);
    write("in.wav", in);
    const auto expected = read("in.wav").samples;
    std::string last = "in.wav";
    for (const char* next : {"1.flac", "2.wv", "3.m4a --codec alac", "4.mp4 --codec flac", "5.aiff",
                             "6.caf", "7.wav"}) {
        runQuietly(last + " " + next + " -s 1");
        last = std::string(next).substr(0, std::string(next).find(' '));
        EXPECT_TRUE(decoded(last).samples.size() == expected.size()) << last;
    }
    EXPECT_TRUE(read("7.wav").samples == expected);
    EXPECT_EQ(read("7.wav").format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
}

TEST_F(ToolMedia, CodecAndBitRateStayWhereTheyCan)
{
    write("in.wav", tone(440.0, 90000));
    ffmpeg("-i in.wav -b:a 96k in.mp3");
    const auto chosen = [&](const std::string& arguments) {
        runQuietly(arguments + " -f -s 1.5");
        const Json stream = probe(arguments.substr(arguments.find(' ') + 1,
                                                   arguments.find(' ', arguments.find(' ') + 1) -
                                                       arguments.find(' ') - 1))
                                .at("streams")
                                .at(0);
        return std::string(stream.at("codec_name"));
    };
    EXPECT_EQ(chosen("in.mp3 out.mp3"), "mp3");
    EXPECT_NEAR(std::stod(std::string(probe("out.mp3").at("streams").at(0).at("bit_rate"))), 96000,
                1000);
    EXPECT_EQ(chosen("in.mp3 out.mka"), "mp3");
    EXPECT_EQ(chosen("in.mp3 out.wav"), "pcm_f32le");
    EXPECT_EQ(chosen("in.mp3 out.opus"), "opus");
    EXPECT_EQ(chosen("in.wav out.m4a"), "aac");
    EXPECT_EQ(chosen("in.wav out.flv"), "aac");
    EXPECT_EQ(chosen("in.wav out.3gp"), "aac");
    ffmpeg("-i in.wav in.flac");
    EXPECT_EQ(chosen("in.flac out.m4a"), "alac");
    EXPECT_EQ(chosen("in.flac out.mov"), "alac");
    ffmpeg("-i in.wav -c:a dca -strict -2 in.mka");
    EXPECT_EQ(chosen("in.mka out.mka"), "dts");
    EXPECT_EQ(chosen("in.wav out.mka --codec ac3 --bitrate 64k"), "ac3");
    EXPECT_NE(tool("in.wav out.mp3 -f -s 1 --codec flac").text.find("can't hold flac"),
              std::string::npos);
    EXPECT_NE(tool("in.wav out.mp3 -f -s 1 --codec nothing").text.find("no such encoder"),
              std::string::npos);
    EXPECT_NE(tool("in.wav out.mp3 -s 1 --bitrate fast").text.find("not a bit rate"),
              std::string::npos);
}

TEST_F(ToolMedia, Mp3WithoutAHeaderIsPlayedToTheLastFrame)
{
    write("in.wav", noise(2, 200000));
    ffmpeg("-i in.wav -q:a 4 -write_xing 0 vbr.mp3");
    ffmpeg("-i in.wav -b:a 128k -write_xing 0 cbr.mp3");
    for (const char* name : {"vbr.mp3", "cbr.mp3"}) {
        const long frames = decoded(name).frames();
        EXPECT_GE(frames, 200000);
        EXPECT_EQ(framesIn(std::string(name) + " out.wav -s 2"), frames);
        EXPECT_EQ(framesIn("- out.wav -s 2 <" + std::string(name)), frames);
    }
}

TEST_F(ToolMedia, HeadersOfPipesAndKilledRecordersGiveTheSameByNameAndByPipe)
{
    write("in.wav", noise(2, 30000));
    const auto expected = read("in.wav").samples;
    const std::pair<const char*, const char*> cases[] = {
        {"RF64 of no length", "ffmpeg -v error -i in.wav -rf64 always -f wav - | cat >odd.wav"},
        {"sizes of -1", "ffmpeg -v error -i in.wav -f wav - | cat >odd.wav"},
        {"data of 0 bytes", "cp in.wav odd.wav; printf '\\0\\0\\0\\0' | "
                            "dd of=odd.wav bs=1 seek=40 conv=notrunc 2>/dev/null"},
        {"all of 0 bytes", "for n in 4 40; do printf '\\0\\0\\0\\0' | "
                           "dd of=odd.wav bs=1 seek=$n conv=notrunc 2>/dev/null; done"},
    };
    for (const auto& [name, make] : cases) {
        ASSERT_EQ(shell(make).exitCode, 0);
        runQuietly("odd.wav named.wav -f -s 1");
        shell("cat odd.wav | \"$T\" - piped.wav -q -f -s 1");
        EXPECT_TRUE(read("named.wav").samples == expected) << name;
        EXPECT_TRUE(read("piped.wav").samples == expected) << name;
    }
}

TEST_F(ToolMedia, KindsThatStreamGoThroughPipes)
{
    write("in.wav", noise(2, 30000));
    const std::pair<const char*, const char*> kinds[] = {
        {"flac", "flac"}, {"mp3", "mp3"}, {"ogg", "ogg"}, {"mka", "matroska"}, {"ts", "mpegts"}};
    for (const auto& [extension, format] : kinds) {
        const std::string kind = extension;
        runQuietly("in.wav in." + kind + " -f -s 1");
        runQuietly("in." + kind + " named." + kind + " -s 1.5");
        const Result result = shell("cat in." + kind + " | \"$T\" - - -q -s 1.5 --format " +
                                    format + " | cat >piped." + kind);
        ASSERT_EQ(result.text, "") << kind;
        const auto named = decoded("named." + kind).samples;
        const auto piped = decoded("piped." + kind).samples;
        ASSERT_GE(piped.size(), named.size()) << kind;
        // MP3 can't go back to say how much of its ends is no sound.
        EXPECT_TRUE(kind == "mp3" || piped == named) << kind;
    }
    EXPECT_NE(shell("\"$T\" in.wav - -s 2 --format mp4 | cat >/dev/null").text.find("into a pipe"),
              std::string::npos);
}

// What has to be gone back in, and what tells at its start where it ends.
TEST_F(ToolMedia, PipesGiveTheSameSoundAsFilesOfEveryKind)
{
    write("in.wav", noise(2, 100017));
    ffmpeg("-i in.wav in.mp3");
    ffmpeg("-i in.wav in.m4a");
    ffmpeg("-i in.wav -c:a alac in.caf");
    ffmpeg("-i in.wav -metadata title=Noise in.wv");
    shell("cat in.mp3 in.mp3 >joined.mp3");
    for (const char* name : {"in.mp3", "joined.mp3", "in.m4a", "in.caf", "in.wv"}) {
        runQuietly(std::string(name) + " named.wav -f -s 1 --codec pcm_f32le");
        for (const char* pipe :
             {"cat $f | \"$T\" -", "rm -f pipe; mkfifo pipe; cat $f >pipe & \"$T\" pipe"})
            EXPECT_EQ(shell("f=" + std::string(name) + "; " + pipe +
                            " piped.wav -f -q -s 1 --codec pcm_f32le")
                          .text,
                      "")
                << name;
        EXPECT_TRUE(read("piped.wav").samples == read("named.wav").samples) << name;
    }
    EXPECT_EQ(framesIn("- out.wav -s 2 <in.mp3"), 100017);
}

// A header, a mark of the end, or a packet that isn't whole tells.
TEST_F(ToolMedia, WhatIsCutIsToldByNameAndByPipeAlike)
{
    write("in.wav", noise(2, 200017));
    for (const char* kind :
         {"avi", "opus", "ogg", "oga", "caf", "w64", "wma", "wv", "mka", "mp3", "flv"}) {
        const std::string name = "in." + std::string(kind);
        ffmpeg("-i in.wav " + name);
        runQuietly(name + " out.wav -f -s 2 --strict");
        std::filesystem::resize_file(at(name), std::filesystem::file_size(at(name)) * 3 / 5);
        std::set<std::string> told;
        for (const std::string& input :
             {name + " out.wav", "- out.wav <" + name, "- out.wav < <(cat " + name + ")"}) {
            const Result result = shell("bash -c '\"$0\" " + input + " -f -s 2; exit $?' \"$T\"");
            EXPECT_EQ(result.exitCode, 0) << input;
            const size_t words = result.text.find("is incomplete: it ends after 0:00:0");
            ASSERT_NE(words, std::string::npos) << input << ": " << result.text;
            told.insert(result.text.substr(words, result.text.find('\n') - words));
        }
        EXPECT_EQ(told.size(), 1u) << kind;
        EXPECT_EQ(tool(name + " out.wav -f -s 2 --strict").exitCode, 1) << kind;
    }
}

// Titles and covers in the middle are no damage, but what isn't one is.
TEST_F(ToolMedia, JoinedMp3FilesArePlayedWholeWhateverTagsTheyHave)
{
    write("in.wav", noise(2, 100000));
    ffmpeg("-f lavfi -i testsrc2=s=500x500 -frames:v 1 cover.jpg");
    ffmpeg("-i in.wav -write_xing 0 -id3v2_version 0 bare.mp3");
    ffmpeg("-i in.wav -i cover.jpg -map 0 -map 1 -c:v copy -write_xing 0 -metadata title=A "
           "-write_id3v1 1 tagged.mp3");
    ffmpeg("-i in.wav -metadata title=B counted.mp3");
    const int64_t frames = framesIn("bare.mp3 out.wav -s 2");
    shell("cat bare.mp3 tagged.mp3 bare.mp3 >joined.mp3; cat tagged.mp3 tagged.mp3 >twice.mp3; "
          "cat bare.mp3 counted.mp3 >last.mp3");
    EXPECT_EQ(framesIn("joined.mp3 out.wav -s 2 --strict"), 3 * frames);
    EXPECT_EQ(framesIn("twice.mp3 out.wav -s 2 --strict"), 2 * frames);
    EXPECT_EQ(framesIn("last.mp3 out.wav -s 2 --strict"), 2 * frames);
    shell("(head -c 9000 bare.mp3; head -c 500 cover.jpg; tail -c +9500 bare.mp3) >damaged.mp3");
    const Result damaged = tool("damaged.mp3 out.wav -f -s 2 --strict");
    EXPECT_EQ(damaged.exitCode, 1);
    EXPECT_NE(damaged.text.find("is damaged"), std::string::npos) << damaged.text;
}

TEST_F(ToolMedia, W64HoldsTheFramesThatItShouldForEveryReader)
{
    for (const int format : {SF_FORMAT_PCM_U8, SF_FORMAT_PCM_16, SF_FORMAT_PCM_24}) {
        write("in.wav", noise(1, 30871, SF_FORMAT_WAV | format));
        runQuietly("in.wav out.w64 -f -s 1");
        EXPECT_EQ(read("out.w64").frames(), 30871);
        EXPECT_TRUE(decoded("out.w64").samples == decoded("in.wav").samples);
        EXPECT_EQ(framesIn("out.w64 out.wav -s 1 --strict"), 30871);
    }
    shell("\"$T\" in.wav - -s 1 -q --format w64 | cat >piped.w64; "
          "cat piped.w64 | ffmpeg -v error -y -i - -c:a pcm_f32le decoded.wav");
    EXPECT_EQ(read("decoded.wav").frames(), 30871);
    EXPECT_EQ(framesIn("piped.w64 out.wav -s 1 --strict"), 30871);
}

// Where its packets all have one length, a shorter last one can't be written.
TEST_F(ToolMedia, AviHoldsWhatWasFlacAtEverySpeed)
{
    for (const int bits : {16, 24})
        for (const char* speed : {"1", "1.5"}) {
            write("in.flac",
                  noise(1, 22049,
                        SF_FORMAT_FLAC | (bits == 16 ? SF_FORMAT_PCM_16 : SF_FORMAT_PCM_24)));
            runQuietly("in.flac out.avi -f -s " + std::string(speed));
            runQuietly("in.flac out.wav -f -s " + std::string(speed));
            EXPECT_TRUE(decoded("out.avi").samples == decoded("out.wav").samples) << bits << speed;
        }
}

TEST_F(ToolMedia, MatroskaStreamsWithAllItsTracks)
{
    write("in.wav", noise(2, 20 * 44100));
    ffmpeg("-i in.wav -f lavfi -i testsrc2=s=64x48:r=25:d=20 -map 0 -map 0 -map 1 in.mkv");
    const std::string bytes = std::to_string(std::filesystem::file_size(at("in.mkv")) * 7 / 10);
    const Result result =
        shell("(head -c " + bytes +
              " in.mkv; for n in $(seq 200); do [ -s out.mkv ] && break; "
              "sleep 0.1; done; [ -s out.mkv ] && echo streams >verdict; tail -c +$((1 + " +
              bytes + ")) in.mkv) | \"$T\" - - -q -s 1.5 --format matroska >out.mkv; cat verdict");
    EXPECT_EQ(result.text, "streams\n");
}

TEST_F(ToolMedia, NamesOfPipesAndDevicesAreWrittenTo)
{
    write("in.wav", noise(2, 30000));
    const Result expected = shell("\"$T\" in.wav - -q -s 1.5 | md5sum");
    EXPECT_EQ(shell("\"$T\" in.wav /dev/stdout -q -s 1.5 | md5sum").text, expected.text);
    EXPECT_EQ(shell("mkfifo pipe; md5sum <pipe & \"$T\" in.wav pipe -q -s 1.5; wait").text,
              expected.text);
    runQuietly("in.wav /dev/null -s 1.5");
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

// Whatever the encoder thinks of it; a float file keeps it.
TEST_F(ToolMedia, WhatIsNoNumberStopsNoEncoder)
{
    Sound in = tone(440.0, 30000, 44100, 1);
    in.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    const double odd[] = {std::numeric_limits<double>::quiet_NaN(),
                          std::numeric_limits<double>::infinity(),
                          -std::numeric_limits<double>::infinity(), 1e30};
    for (size_t n = 0; n < 40; ++n)
        in.samples[n * 701 + 5] = odd[n % 4];
    write("in.wav", in);
    for (const char* kind : {"wav", "flac", "mp3", "ogg", "opus", "m4a", "ac3", "wv", "aiff"})
        for (const char* speed : {"1", "0.8"})
            runQuietly("in.wav out." + std::string(kind) + " -f -s " + speed);
    runQuietly("in.wav out.wav -f -s 1");
    EXPECT_TRUE(std::isnan(read("out.wav").samples[5]));
    runQuietly("in.wav out.flac -f -s 1");
    EXPECT_EQ(read("out.flac").samples[5], 0.0);
}

TEST_F(ToolMedia, NoInputOpensOtherFiles)
{
    write("in.wav", tone(440.0, 30000));
    std::ofstream(at("list.m3u8"))
        << "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nin.wav\n#EXT-X-ENDLIST\n";
    std::ofstream(at("list.txt")) << "ffconcat version 1.0\nfile in.wav\n";
    for (const char* list : {"list.m3u8", "list.txt"}) {
        const Result result = tool(std::string(list) + " out.wav -s 2");
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_NE(result.text.find("only names other files"), std::string::npos) << result.text;
    }
    EXPECT_EQ(tool("http://localhost/in.wav out.wav -s 2").exitCode, 1);
}

// ---- What goes with the sound ----

TEST_F(ToolMedia, TagsChaptersAndCoverGoAlong)
{
    write("in.wav", tone(440.0, 10 * 44100));
    std::ofstream(at("tags.txt"))
        << ";FFMETADATA1\ntitle=A book\nartist=Someone\ncomment=data : 5 (should be 3)\n"
           "[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=3000\ntitle=One\n"
           "[CHAPTER]\nTIMEBASE=1/1000\nSTART=3000\nEND=7500\ntitle=Two\n"
           "[CHAPTER]\nTIMEBASE=1/1000\nSTART=7500\nEND=10000\ntitle=Three\n";
    ffmpeg("-f lavfi -i testsrc=s=16x16 -frames:v 1 cover.png");
    ffmpeg("-i in.wav -i tags.txt -i cover.png -map 0:a -map 2:v -map_metadata 1 -c:v png "
           "-disposition:v attached_pic in.mp3");
    runQuietly("in.mp3 in.m4b -s 1");
    for (const char* in : {"in.mp3", "in.m4b"})
        for (const char* out :
             {"out.mp3", "out.m4b", "out.flac", "out.ogg", "out.opus", "out.mka"}) {
            tool(std::string(in) + " " + out + " -f -s 1.5");
            const Json json = probe(out);
            std::string tags = json.at("format").value("tags", Json()).dump();
            for (const Json& stream : json.at("streams"))
                tags += stream.value("tags", Json()).dump();
            for (const char* text : {"A book", "Someone", "data : 5 (should be 3)"})
                EXPECT_NE(tags.find(text), std::string::npos)
                    << in << " to " << out << ": " << tags;
            if (std::string(out) == "out.flac")
                continue; // has no chapters
            ASSERT_EQ(json.at("chapters").size(), 3u) << in << " to " << out;
            for (size_t n = 0; n < 3; ++n) {
                const Json& chapter = json.at("chapters")[n];
                EXPECT_NEAR(std::stod(std::string(chapter.at("start_time"))),
                            (std::vector{0.0, 2.0, 5.0}[n]), 0.0011)
                    << out;
                EXPECT_EQ(chapter.at("tags").at("title"), (std::vector{"One", "Two", "Three"}[n]));
            }
        }
    for (const char* out : {"out.mp3", "out.m4b", "out.flac", "out.ogg", "out.opus", "out.mka"}) {
        const std::string streams = probe(out).at("streams").dump();
        EXPECT_NE(streams.find("\"attached_pic\":1"), std::string::npos) << out;
    }
}

TEST_F(ToolMedia, NamesOfTheWriterStayBehindAndChaptersKeepTheirs)
{
    write("in.wav", tone(440.0, 3 * 44100, 44100, 2));
    std::ofstream(at("tags.txt"))
        << ";FFMETADATA1\ntitle=A film\n"
           "[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=1500\ntitle=One\n"
           "[CHAPTER]\nTIMEBASE=1/1000\nSTART=1500\nEND=3000\ntitle=Two\n";
    ffmpeg("-i in.wav -i tags.txt -map_metadata 1 -c:a libopus in.webm"); // with ENCODER=...
    tool("in.webm out.opus -s 1.5");
    const Json json = probe("out.opus");
    EXPECT_EQ(json.at("chapters").at(1).at("tags").at("title"), "Two");
    EXPECT_EQ(json.dump().find("libopus"), std::string::npos) << json;
}

TEST_F(ToolMedia, MpegProgramStreamsKeepTheirPicture)
{
    write("in.wav", tone(440.0, 2 * 48000, 48000));
    ffmpeg("-f lavfi -i testsrc=s=64x64:r=25:d=2 -i in.wav -c:v mpeg2video -c:a ac3 in.vob");
    for (const char* out : {"out.vob", "out.mpg"}) {
        runQuietly(std::string("in.vob ") + out + " -s 1.5");
        const std::string streams = probe(out).at("streams").dump();
        EXPECT_NE(streams.find("mpeg2video"), std::string::npos) << out;
        EXPECT_NE(streams.find("ac3"), std::string::npos) << out;
    }
}

// ---- Films ----

TEST_F(ToolMedia, PictureSubtitlesAndAllSoundStayInStep)
{
    constexpr int kRate = 48000;
    std::vector<long> clicks;
    for (long second = 1; second < 12; ++second)
        clicks.push_back(second * kRate);
    write("a.wav", rings(kRate, 1, 12 * kRate, clicks, 512));
    std::ofstream(at("s.srt"))
        << "1\n00:00:01,000 --> 00:00:02,000\nHello\n\n2\n00:00:09,000 --> 00:00:10,500\nWorld\n";
    ffmpeg("-f lavfi -i testsrc=s=32x32:r=25:d=12 -i a.wav -i s.srt -map 0 -map 1 -map 1 -map 2 "
           "-c:v mpeg4 -bf 2 "
           "-c:a flac -c:s srt -metadata:s:a:1 language=ger -output_ts_offset 3 film.mkv");
    std::ofstream(at("map.txt")) << "0 1\n2 2\n6 0.5\n";
    const auto outputAt = [](double t) {
        return std::min(t, 2.0) + std::clamp(t - 2.0, 0.0, 4.0) / 2.0 +
               std::max(t - 6.0, 0.0) / 0.5;
    };
    runQuietly("film.mkv out.mkv -k -m map.txt");
    const Json json = probe("out.mkv");
    ASSERT_EQ(json.at("streams").size(), 4u);
    EXPECT_EQ(json.at("streams")[2].at("tags").at("language"), "ger");

    std::vector<double> pictures;
    std::vector<double> texts;
    for (const Json& packet : json.at("packets"))
        (packet.at("codec_type") == "video"
             ? pictures.push_back(std::stod(std::string(packet.at("pts_time"))))
         : packet.at("codec_type") == "subtitle"
             ? texts.push_back(std::stod(std::string(packet.at("pts_time"))))
             : void());
    std::sort(pictures.begin(), pictures.end());
    ASSERT_EQ(pictures.size(), 300u);
    for (size_t n = 0; n < pictures.size(); ++n)
        EXPECT_NEAR(pictures[n], outputAt(double(n) / 25.0), 0.002) << n;
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_NEAR(texts[0], outputAt(1.0), 0.002);
    EXPECT_NEAR(texts[1], outputAt(9.0), 0.002);
    for (const char* track : {"a:0", "a:1"}) {
        const Sound sound = decoded("out.mkv", track);
        EXPECT_NEAR(double(sound.frames()), outputAt(12.0) * kRate, 2.0);
        for (const long click : clicks) {
            const double expected = outputAt(double(click) / kRate) * kRate;
            EXPECT_NEAR(centreOfEnergy(sound, expected, 4 * 1024), expected, 1024) << click;
        }
    }
}

/// When what happens at a media time comes out, along a course of speeds in steps or ramps.
class Course {
public:
    struct Point {
        double time;
        double speed;
    };
    Course(std::vector<Point> given, bool isRamp) : points(std::move(given)), ramp(isRamp) {}

    double outputAt(double media) const
    {
        double out = 0.0;
        for (size_t n = 0; n < points.size() && points[n].time < media; ++n) {
            const bool isLast = n + 1 == points.size();
            const double length =
                (isLast ? media : std::min(media, points[n + 1].time)) - points[n].time;
            const double slope = ramp && !isLast ? (points[n + 1].speed - points[n].speed) /
                                                       (points[n + 1].time - points[n].time)
                                                 : 0.0;
            out += slope == 0.0 ? length / points[n].speed
                                : std::log1p(slope * length / points[n].speed) / slope;
        }
        return out;
    }
    void write(const std::filesystem::path& name) const
    {
        std::ofstream file(name);
        for (const Point& point : points)
            file << point.time << ' ' << point.speed << '\n';
    }
    bool isRamp() const { return ramp; }

private:
    std::vector<Point> points;
    bool ramp;
};

class ToolFilm : public ToolMedia {
protected:
    static constexpr double kEvent = 0.4; // of each second, when there is a flash and a click
    static constexpr int kRate = 16000;
    static constexpr int kHop = 256; // at that rate, of input

    /// @param pictures  of ffmpeg: rate and filters
    void makeFilm(const std::string& name, int seconds, const std::string& pictures,
                  const std::string& codecs, const std::string& soundOffset = "0") const
    {
        write("second.wav", rings(kRate, 1, kRate, {long(kEvent * kRate)}, kHop));
        ffmpeg("-f lavfi -i \"color=black:s=16x16:d=" + std::to_string(seconds) + ":" + pictures +
               "\" -itsoffset " + soundOffset + " -stream_loop " + std::to_string(seconds - 1) +
               " -i second.wav -map 0 -map 1 -fps_mode vfr " + codecs + " " + name);
    }

    /// Start of each flash in seconds.
    std::vector<double> flashes(const std::string& name) const
    {
        const Result result =
            shell("ffmpeg -v error -i " + name +
                  " -map 0:v -fps_mode passthrough -vf signalstats,metadata=print:"
                  "key=lavfi.signalstats.YAVG:file=- -f null - 2>&-");
        std::istringstream words(result.text);
        std::vector<double> starts;
        double time = 0.0;
        bool isBright = false;
        for (std::string word; words >> word;) {
            if (word.starts_with("pts_time:"))
                time = std::stod(word.substr(9));
            if (!word.starts_with("lavfi.signalstats.YAVG="))
                continue;
            const bool wasBright = std::exchange(isBright, std::stod(word.substr(23)) > 100.0);
            if (isBright && !wasBright)
                starts.push_back(time);
        }
        return starts;
    }

    void expectInStep(const std::string& name, const Course& course, int seconds, double frame,
                      double soundOffset = 0.0) const
    {
        const std::vector<double> seen = flashes(name);
        ASSERT_EQ(seen.size(), size_t(seconds));
        ffmpeg("-i " + name + " -map 0:a -af aresample=async=1:first_pts=0 heard.wav");
        const Sound heard = read("heard.wav");
        for (int second = 0; second < seconds; ++second) {
            const double flash = course.outputAt(second + kEvent);
            EXPECT_NEAR(seen[size_t(second)], flash, frame) << name << ", flash " << second;
            const double click = course.outputAt(second + kEvent + soundOffset) * heard.rate;
            EXPECT_NEAR(centreOfEnergy(heard, click, 4.0 * kHop), click, kHop)
                << name << ", click " << second;
        }
    }
};

TEST_F(ToolFilm, FlashesAndClicksStayInStepAlongEveryCourse)
{
    const Course courses[] = {{{{0.0, 0.75}}, false},
                              {{{0.0, 1.5}}, false},
                              {{{0.0, 1.0}, {3.0, 2.0}, {7.5, 0.6}, {10.0, 1.0}}, false},
                              {{{0.0, 0.8}, {6.0, 2.0}, {11.0, 1.2}}, true}};
    const std::string uneven =
        "r=25,drawbox=enable='between(mod(t,1),0.39,0.45)':color=white:t=fill,"
        "select='not(eq(mod(n,7),3))+between(mod(t,1),0.39,0.42)'";
    makeFilm("film.mp4", 12, uneven, "-c:v mpeg4 -bf 2 -c:a aac", "0.7");
    makeFilm("film.mkv", 12, uneven, "-c:v mpeg4 -bf 2 -c:a flac -output_ts_offset 3", "0.7");
    for (const Course& course : courses) {
        course.write(at("map.txt"));
        for (const char* film : {"film.mp4", "film.mkv"}) {
            const std::string out = std::string("out") + (film + 4);
            runQuietly(std::string(film) + " " + out + " -f -m map.txt" +
                       (course.isRamp() ? " --ramp" : ""));
            expectInStep(out, course, 12, 0.04 / 0.6, 0.7);
        }
    }
}

// Opus tells of what comes before its first sample, which a picture doesn't wait for.
TEST_F(ToolFilm, OpusInMatroskaBeginsWithThePicture)
{
    makeFilm("film.mkv", 4, "r=50,drawbox=enable='between(mod(t,1),0.39,0.45)':color=white:t=fill",
             "-c:v mpeg4 -c:a flac");
    runQuietly("film.mkv out.mkv -s 1 --codec libopus");
    const Json packets = probe("out.mkv").at("packets");
    const auto first = std::find_if(packets.begin(), packets.end(), [](const Json& packet) {
        return packet.at("codec_type") == "video";
    });
    ffmpeg("-copyts -i out.mkv -map 0:a -af aresample=async=1:first_pts=0 heard.wav");
    const Sound heard = read("heard.wav");
    const double click = kEvent * heard.rate;
    EXPECT_EQ(std::stod(std::string(first->at("pts_time"))), 0.0);
    EXPECT_NEAR(centreOfEnergy(heard, click, 0.1 * heard.rate), click, 0.002 * heard.rate);
}

TEST_F(ToolFilm, SubtitlesBecomeWhatTheContainerHolds)
{
    makeFilm("film.mp4", 12, "r=25", "-c:v mpeg4 -c:a flac -strict -2");
    std::ofstream(at("s.srt"))
        << "1\n00:00:01,000 --> 00:00:02,000\nHello\n\n2\n00:00:09,000 --> 00:00:10,500\nWorld\n";
    ffmpeg("-i film.mp4 -i s.srt -map 0 -map 1 -c copy -c:s mov_text -strict -2 texts.mp4");
    runQuietly("texts.mp4 texts.mkv -s 1.25");
    runQuietly("texts.mkv again.mp4 -s 1.25");
    EXPECT_EQ(probe("texts.mkv").at("streams").at(2).at("codec_name"), "subrip");
    EXPECT_EQ(probe("again.mp4").at("streams").at(2).at("codec_name"), "mov_text");
    std::istringstream lines(shell("ffmpeg -v error -i again.mp4 -map 0:s -f srt -").text);
    std::vector<std::string> texts;
    for (std::string line; std::getline(lines, line);)
        texts.push_back(line);
    ASSERT_GE(texts.size(), 7u);
    EXPECT_EQ(texts[1].substr(0, 11), "00:00:00,64");
    EXPECT_EQ(texts[2], "Hello");
    EXPECT_EQ(texts[5].substr(0, 11), "00:00:05,76");
    EXPECT_EQ(texts[6], "World");
}

TEST_F(ToolFilm, APartOfItStaysInStep)
{
    makeFilm("film.mp4", 12, "r=25,drawbox=enable='between(mod(t,1),0.39,0.45)':color=white:t=fill",
             "-c:v mpeg4 -bf 2 -g 100 -c:a aac");
    ffmpeg("-i film.mp4 -c:v copy -c:a flac film.mkv");
    for (const std::string kind : {".mp4", ".mkv"}) {
        runQuietly("film" + kind + " out" + kind + " -s 1.5 --from 3.2 --to 0:09.2");
        const std::vector<double> seen = flashes("out" + kind);
        const Sound heard = decoded("out" + kind);
        // ffmpeg gives the last packet of MP4 whole.
        EXPECT_NEAR(double(heard.frames()), 4.0 * kRate, kind == ".mp4" ? 1024.0 : 0.0);
        ASSERT_EQ(seen.size(), 6u) << kind;
        for (int n = 0; n < 6; ++n) {
            const double expected = (3 + n + kEvent - 3.2) / 1.5;
            EXPECT_NEAR(seen[size_t(n)], expected, 0.04) << kind;
            EXPECT_NEAR(centreOfEnergy(heard, expected * kRate, 4.0 * kHop), expected * kRate, kHop)
                << kind;
        }
    }
}

TEST_F(ToolFilm, NothingDriftsInThreeHours)
{
    constexpr int kSeconds = 3 * 3600;
    makeFilm("long.mkv", kSeconds,
             "r=5,drawbox=enable='between(mod(t,1),0.39,0.45)':color=white:t=fill",
             "-c:v mpeg4 -bf 2 -c:a pcm_s16le");
    const Course courses[] = {
        {{{0.0, 1.3}}, false},
        {{{0.0, 1.0}, {1000.3, 1.7}, {4000.0, 0.8}, {9000.7, 1.5}}, false},
        {{{0.0, 0.9}, {5000.0, 2.0}, {10000.0, 1.1}}, true},
    };
    for (const Course& course : courses) {
        course.write(at("map.txt"));
        runQuietly("long.mkv out.mkv -f -m map.txt" +
                   std::string(course.isRamp() ? " --ramp" : ""));
        expectInStep("out.mkv", course, kSeconds, 0.2 / 0.8);
    }
}

// Broadcasts that were joined begin their times anew.
TEST_F(ToolMedia, TimesThatRunBackwardsGoOnFromThere)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25:d=3 -f lavfi -i sine=d=3 -c:v mpeg4 -bf 2 -c:a mp2 "
           "one.ts");
    shell("cat one.ts one.ts >joined.ts");
    const Result result = tool("joined.ts out.mkv -s 1.5");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.text.find("joined.ts: times run backwards at 0:00:0"), std::string::npos)
        << result.text;
    double last = -1.0;
    int pictures = 0;
    const Json out = probe("out.mkv");
    for (const Json& packet : out.at("packets")) {
        if (packet.at("codec_type") != "video")
            continue;
        const double time = std::stod(std::string(packet.at("dts_time")));
        EXPECT_GT(time, last);
        EXPECT_LT(time - last, pictures++ == 0 ? 2.0 : 0.2);
        last = time;
    }
    EXPECT_EQ(pictures, 150);
    EXPECT_NEAR(last, 4.0, 0.15);
}

TEST_F(ToolMedia, FilmsGoIntoOtherContainersAndWithoutPictureOrSound)
{
    write("a.wav", tone(440.0, 3 * 44100));
    ffmpeg("-f lavfi -i testsrc=s=32x32:r=25:d=3 -i a.wav -c:v mpeg4 -c:a aac film.mp4");
    for (const char* out : {"out.mp4", "out.mkv", "out.mov", "out.ts", "out.avi"}) {
        runQuietly("film.mp4 " + std::string(out) + " -s 1.5");
        const Json json = probe(out);
        int pictures = 0;
        for (const Json& packet : json.at("packets"))
            pictures += packet.at("codec_type") == "video";
        EXPECT_EQ(pictures, 75) << out;
        EXPECT_NEAR(std::stod(std::string(json.at("format").at("duration"))), 2.0, 0.1) << out;
    }
    for (const char* arguments : {"film.mp4 sound.m4a", "film.mp4 sound.mkv --audio-only"}) {
        const Result result = tool(std::string(arguments) + " -s 1.5");
        EXPECT_NE(result.text.find("left out: video (mpeg4)"), std::string::npos) << result.text;
    }
    EXPECT_EQ(probe("sound.m4a").at("streams").size(), 1u);
    EXPECT_EQ(probe("sound.mkv").at("streams").size(), 1u);
    ffmpeg("-i film.mp4 -an -c copy silent.mp4");
    const Result silent = tool("silent.mp4 out.mp4 -f -s 1.5");
    EXPECT_EQ(silent.exitCode, 0);
    EXPECT_NE(silent.text.find("has no sound"), std::string::npos);
    EXPECT_NEAR(std::stod(std::string(probe("out.mp4").at("format").at("duration"))), 2.0, 0.01);
}
