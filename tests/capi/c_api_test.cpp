// The C interface: the same sound as velora::Stream, an error code for everything else.
// And the example programs, run.

#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "support/signals.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>
#include <velora/stream.hpp>
#include <velora/vsp_c.h>

namespace {

struct Destroy {
    void operator()(velora_stream* stream) const { velora_stream_destroy(stream); }
};
using Handle = std::unique_ptr<velora_stream, Destroy>;

Handle create(int rate, int channels, int format, int pitch = VELORA_PITCH_KEEP)
{
    velora_stream* stream = nullptr;
    EXPECT_EQ(velora_stream_create(&stream, rate, channels, format, pitch), VELORA_OK);
    return Handle(stream);
}

/// Half a second of stereo, at a changing speed, through both interfaces.
template <class Format>
void expectSameAsStream(int format, double scale)
{
    using Sample = typename velora::Stream<Format>::Sample;
    std::vector<Sample> in;
    for (const auto& frame : signals::tone(24000, 440.0, 48000.0, 9000.0))
        for (const int16_t sample : frame)
            in.push_back(Sample(sample * scale));
    velora::Stream<Format> stream(48000, 2, velora::Pitch::drop);
    std::vector<Sample> expected;
    stream.setSpeed(0.7);
    stream.process(in.data(), 12000, expected);
    const std::int64_t change = stream.changeFrame(0.5);
    stream.setSpeed(0.5);
    stream.setSpeedAt(19000, 1.5);
    stream.process(in.data() + 24000, 12000, expected);
    stream.flush(expected);

    const Handle c = create(48000, 2, format, VELORA_PITCH_DROP);
    std::vector<Sample> out(expected.size());
    EXPECT_EQ(velora_stream_set_speed(c.get(), 0.7), VELORA_OK);
    const auto room = [&](int64_t done) { return int64_t(out.size() / 2) - done; };
    const int64_t most = velora_stream_max_output_frames(c.get(), 12000);
    int64_t done = velora_stream_process(c.get(), in.data(), 12000, out.data(), room(0));
    EXPECT_EQ(done, most);
    EXPECT_EQ(velora_stream_hop_frames(c.get()), 512);
    EXPECT_EQ(velora_stream_change_frame(c.get(), 0.5), change);
    EXPECT_EQ(velora_stream_set_speed(c.get(), 0.5), VELORA_OK);
    EXPECT_EQ(velora_stream_speed(c.get()), 0.5);
    const int64_t planned = velora_stream_set_speed_at(c.get(), 19000, 1.5);
    EXPECT_EQ(velora_stream_speed_at(c.get(), planned - 1), 0.5);
    EXPECT_EQ(velora_stream_speed_at(c.get(), planned), 1.5);
    done +=
        velora_stream_process(c.get(), in.data() + 24000, 12000, out.data() + 2 * done, room(done));
    EXPECT_EQ(velora_stream_latency_frames(c.get()),
              24000 - velora_stream_media_frame_of(c.get(), done));
    done += velora_stream_flush(c.get(), out.data() + 2 * done, room(done));
    EXPECT_EQ(done, velora_stream_output_frame_of(c.get(), 24000));
    EXPECT_EQ(done, velora_stream_output_frames(c.get()));
    EXPECT_EQ(velora_stream_input_frames(c.get()), 24000);
    EXPECT_TRUE(out == expected) << "format " << format;
}

TEST(CInterface, GivesWhatStreamGivesInEveryFormat)
{
    expectSameAsStream<std::int16_t>(VELORA_INT16, 1.0);
    expectSameAsStream<velora::Int24In32>(VELORA_INT24_IN_32, 256.0);
    expectSameAsStream<std::int32_t>(VELORA_INT32, 65536.0);
    expectSameAsStream<float>(VELORA_FLOAT, 1.0 / 32768.0);
}

TEST(CInterface, PlanesSeekAndReset)
{
    const Handle c = create(44100, 2, VELORA_FLOAT);
    std::array<std::vector<float>, 2> in = {std::vector<float>(10000, 0.25f),
                                            std::vector<float>(10000, -0.5f)};
    std::array<std::vector<float>, 2> out = {std::vector<float>(2500), std::vector<float>(2500)};
    const void* const from[] = {in[0].data(), in[1].data()};
    void* const to[] = {out[0].data(), out[1].data()};
    velora_stream_set_speed(c.get(), 2.0);
    EXPECT_EQ(velora_stream_seek(c.get(), 777), VELORA_OK);
    EXPECT_EQ(velora_stream_speed(c.get()), 2.0);
    EXPECT_EQ(velora_stream_media_frame_of(c.get(), 100), 977);
    const int64_t needed = velora_stream_input_frames_for(c.get(), 1);
    ASSERT_LE(needed, 10000);
    EXPECT_EQ(velora_stream_process_planar(c.get(), from, needed - 1, to, 2500), 0);
    EXPECT_GE(velora_stream_process_planar(c.get(), from, 1, to, 2500), 1);
    EXPECT_EQ(velora_stream_reset(c.get()), VELORA_OK);
    EXPECT_EQ(velora_stream_speed(c.get()), 1.0);
    EXPECT_EQ(velora_stream_process_planar(c.get(), from, 2000, to, 1500), 1500);
    EXPECT_EQ(velora_stream_flush_planar(c.get(), to, 2500), 500);
    EXPECT_EQ(out[0][499], 0.25f);
    EXPECT_EQ(out[1][499], -0.5f);
}

TEST(CInterface, AnswersEveryMistakeWithACodeAndEveryCodeWithAText)
{
    velora_stream* none = nullptr;
    EXPECT_EQ(velora_stream_create(nullptr, 44100, 2, 0, 0), VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_create(&none, 44, 2, 0, 0), VELORA_ERROR_RATE);
    EXPECT_EQ(velora_stream_create(&none, 44100, 0, 0, 0), VELORA_ERROR_CHANNELS);
    EXPECT_EQ(velora_stream_create(&none, 44100, 33, 0, 0), VELORA_ERROR_CHANNELS);
    EXPECT_EQ(velora_stream_create(&none, 44100, 2, 4, 0), VELORA_ERROR_FORMAT);
    EXPECT_EQ(velora_stream_create(&none, 44100, 2, -1, 0), VELORA_ERROR_FORMAT);
    EXPECT_EQ(velora_stream_create(&none, 44100, 2, 0, 2), VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(none, nullptr);

    const Handle c = create(44100, 2, VELORA_INT16);
    int16_t frames[4] = {};
    for (const double speed : {0.1, 9.0, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(velora_stream_set_speed(c.get(), speed), VELORA_ERROR_SPEED);
    EXPECT_EQ(velora_stream_set_speed_at(c.get(), 5, 9.0), VELORA_ERROR_SPEED);
    EXPECT_EQ(velora_stream_process(c.get(), nullptr, 2, frames, 2), VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_process(c.get(), frames, -1, frames, 2), VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_process(c.get(), frames, 2, nullptr, 2), VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_process(c.get(), nullptr, 0, nullptr, 0), 0);
    EXPECT_EQ(velora_stream_flush(c.get(), frames, -1), VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_input_frames_for(c.get(), -1), VELORA_ERROR_ARGUMENT);

    EXPECT_EQ(velora_stream_change_frame(c.get(), 9.0), VELORA_ERROR_SPEED);
    const void* const inPlanes[2] = {frames, nullptr};
    void* const outPlanes[2] = {frames, nullptr};
    void* const goodPlanes[2] = {frames, frames + 2};
    EXPECT_EQ(velora_stream_process_planar(c.get(), inPlanes, 1, goodPlanes, 1),
              VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_process_planar(c.get(), goodPlanes, 1, outPlanes, 1),
              VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_flush_planar(c.get(), outPlanes, 1), VELORA_ERROR_ARGUMENT);

    velora_stream_destroy(nullptr);
    EXPECT_EQ(velora_stream_set_speed(nullptr, 1.0), VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_process(nullptr, frames, 1, frames, 1), VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_reset(nullptr), VELORA_ERROR_ARGUMENT);
    EXPECT_EQ(velora_stream_speed(nullptr), 0.0);
    EXPECT_EQ(velora_stream_media_frame_of(nullptr, 5), 0);

    std::set<std::string> texts;
    for (int code = VELORA_OK; code >= VELORA_ERROR_CHANGES - 1; --code)
        texts.insert(velora_error_text(code));
    EXPECT_EQ(texts.size(), 9u) << "each its own, an unknown one too";
}

TEST(CInterface, RefusesOptionsThatDoNotExist)
{
    const auto opened = [](auto set) {
        velora_options options = VELORA_OPTIONS;
        set(options);
        velora_stream* made = nullptr;
        const int error = velora_stream_open(&made, 44100, 2, VELORA_INT16, &options);
        EXPECT_EQ(made != nullptr, error == VELORA_OK);
        velora_stream_destroy(made);
        return error;
    };
    for (int velora_options::*const choice :
         {&velora_options::pitch, &velora_options::sound, &velora_options::material,
          &velora_options::latency}) {
        for (const int value : {0, 1})
            EXPECT_EQ(opened([&](velora_options& o) { o.*choice = value; }), VELORA_OK);
        for (const int value : {-1, 2, INT_MIN, INT_MAX})
            EXPECT_EQ(opened([&](velora_options& o) { o.*choice = value; }), VELORA_ERROR_ARGUMENT);
    }
    for (std::int64_t velora_options::*const count :
         {&velora_options::longest_block, &velora_options::changes})
        for (const std::int64_t value : {std::int64_t(-1), (std::int64_t(1) << 30) + 1, INT64_MAX})
            EXPECT_EQ(opened([&](velora_options& o) { o.*count = value; }), VELORA_ERROR_ARGUMENT);
    for (const double value : {0.1, 9.0, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(opened([&](velora_options& o) { o.slowest = value; }), VELORA_ERROR_SPEED);
        EXPECT_EQ(opened([&](velora_options& o) { o.fastest = value; }), VELORA_ERROR_SPEED);
    }
}

// Rounded up, the last frame lies behind the end: that is no negative latency, which would be an
// error.
TEST(CInterface, LatencyAtTheEndIsNoError)
{
    for (const int frames : {4, 12, 1204}) {
        const Handle c = create(44100, 1, VELORA_INT16);
        std::vector<int16_t> samples(2000);
        velora_stream_set_speed(c.get(), 8.0);
        velora_stream_process(c.get(), samples.data(), frames, samples.data(), 0);
        velora_stream_flush(c.get(), samples.data(), 2000);
        EXPECT_EQ(velora_stream_latency_frames(c.get()), 0);
    }
}

TEST(CInterface, ExportsItsOwnNamesOnly)
{
    FILE* const names = popen("nm -D --defined-only -P '" VELORA_VSP_C_LIBRARY "'", "r");
    ASSERT_NE(names, nullptr);
    int count = 0;
    for (char line[1000]; std::fgets(line, sizeof line, names) != nullptr; ++count)
        EXPECT_EQ(std::string(line).rfind("velora_", 0), 0u) << line;
    EXPECT_EQ(pclose(names), 0);
    EXPECT_GT(count, 10);
    EXPECT_LT(count, 60);
}

/// Bytes that a program writes when it reads `frames` frames of 16-bit stereo.
std::size_t run(const std::string& program, std::size_t frames)
{
    const TemporaryDirectory directory;
    std::ofstream(directory.path / "in") << std::string(4 * frames, '\1');
    const std::string command =
        "cd '" + directory.path.string() + "' && exec " + program + " <in >out 2>/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return std::size_t(std::filesystem::file_size(directory.path / "out"));
}

TEST(Examples, Run)
{
    EXPECT_EQ(run(VELORA_CHANGE_SPEED " 0.8", 10000), 4u * 12500u);
    EXPECT_EQ(run(VELORA_CHANGE_SPEED " 3", 99999), 4u * 33333u);
    // From 0.501 on, 0.001 faster with every 512 frames that are played.
    const std::size_t played = run(VELORA_PLAYER, 100000) / 4;
    EXPECT_GT(played, 100000u / 0.75);
    EXPECT_LT(played, 100000u / 0.55);
}

} // namespace
