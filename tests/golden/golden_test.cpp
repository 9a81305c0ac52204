// Replays recorded scenarios and compares every byte that comes out, by checksum, with what two
// independent readings of the engine agree on. README.md beside this file explains the scenarios.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <velora/bq.h>
#include <velora/fft.h>
#include <velora/vsp.h>

#include "support/golden_engines.h"
#include "support/owners.h"

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<char>;

// CRC-32 of IEEE 802.3.
std::string crc32(const Bytes& bytes)
{
    uint32_t crc = 0xFFFFFFFFu;
    for (char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320u : 0u);
    }
    std::ostringstream text;
    text << std::hex << std::setw(8) << std::setfill('0') << ~crc;
    return text.str();
}

// Between the files' byte order, little-endian, and this machine's; a sample has so many bytes.
Bytes reorder(Bytes samples, size_t bytesPerSample)
{
    if constexpr (std::endian::native != std::endian::little)
        for (auto sample = samples.begin(); sample != samples.end();) {
            const auto next = sample + std::ptrdiff_t(bytesPerSample);
            std::reverse(sample, next);
            sample = next;
        }
    return samples;
}

class Replay {
public:
    Replay(const fs::path& input, EngineOwner newEngine) : engine(std::move(newEngine))
    {
        std::ifstream file(input, std::ios::binary);
        source.assign(std::istreambuf_iterator<char>(file), {});
    }

    // Runs one command and returns its log line.
    std::string run(const std::string& line)
    {
        std::istringstream words(line);
        std::string command;
        words >> command;
        std::ostringstream log;
        log << line;
        if (command == "init") {
            int depth = 0;
            words >> rate >> depth;
            bytesPerFrame = depth == 0 ? 4 : 8;
            engine->Init(rate, static_cast<Velora_BitDepth_T>(depth));
        } else if (command == "setpar") {
            float speed = 0;
            words >> speed;
            engine->SetPar(speed);
        } else if (command == "version") {
            log << ' ' << engine->Get_Version();
        } else if (command == "predict") {
            int frames = 0;
            words >> frames;
            predicted = engine->GetPredictedInputFrameSize(frames);
            log << " -> " << predicted;
        } else if (command == "exe" || command == "exeb" || command == "exep") {
            int frames = predicted * (rate <= 48000 ? 1 : rate <= 96000 ? 2 : 4);
            if (command == "exep")
                log << ' ' << frames;
            else
                words >> frames;
            process(log, frames, command == "exeb");
        } else if (command == "bqinit") {
            int filterRate = 0;
            words >> filterRate;
            filter->Init(filterRate);
        } else if (command == "bqexe" || command == "bqexei") {
            int frames = 0;
            words >> frames;
            log << " crc=" << crc32(runFilter(frames, command == "bqexei"));
        } else if (command == "fft" || command == "ifft") {
            int n = 0;
            words >> n;
            log << " crc=" << crc32(transform(n, command == "ifft"));
        } else {
            log << " (unknown command)";
        }
        return log.str();
    }

private:
    Bytes take(size_t count)
    {
        Bytes bytes(count);
        for (char& byte : bytes) {
            byte = source[position];
            position = (position + 1) % source.size();
        }
        return bytes;
    }

    void process(std::ostringstream& log, int frames, bool buffered)
    {
        const size_t inputFrames = frames > 0 ? size_t(frames) : 0;
        const size_t bytesPerSample = bytesPerFrame / 2;
        const Bytes in = reorder(take(inputFrames * bytesPerFrame), bytesPerSample);
        Bytes out((inputFrames * 8 + 70000) * bytesPerFrame);
        const int produced = buffered ? engine->Exe_buffered(out.data(), in.data(), frames)
                                      : engine->Exe(out.data(), in.data(), frames);
        out.resize(size_t(produced) * bytesPerFrame);
        log << " -> " << produced << " crc=" << crc32(reorder(std::move(out), bytesPerSample));
    }

    Bytes runFilter(int frames, bool inPlace)
    {
        Bytes in = reorder(take(size_t(frames) * 4), sizeof(int16_t));
        Bytes out(in.size());
        Bytes& target = inPlace ? in : out;
        filter->Exe(reinterpret_cast<short(*)[2]>(target.data()),
                    reinterpret_cast<const short(*)[2]>(in.data()), frames);
        return reorder(std::move(target), sizeof(int16_t));
    }

    Bytes transform(int n, bool inverse)
    {
        const size_t points = size_t(1) << n;
        Bytes bytes = reorder(take(points * 8), sizeof(int32_t));
        std::vector<int32_t> vector(2 * points);
        std::memcpy(vector.data(), bytes.data(), bytes.size());
        Velora_FFT_NEON_Init(n);
        (inverse ? Velora_IFFT_NEON : Velora_FFT_NEON)(vector.data(), vector.data() + points);
        Velora_FFT_NEON_Init(9);
        std::memcpy(bytes.data(), vector.data(), bytes.size());
        return reorder(std::move(bytes), sizeof(int32_t));
    }

    Bytes source;
    size_t position = 0;
    EngineOwner engine;
    FilterOwner filter{Velora_BQ_Factory::Create()};
    int rate = 44100;
    size_t bytesPerFrame = 4;
    int predicted = 0;
};

std::vector<std::string> scenarioNames()
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(VELORA_GOLDEN_DIR))
        if (entry.path().extension() == ".txt")
            names.push_back(entry.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

using Scenario = std::tuple<size_t, std::string>; // engine, name

class Golden : public testing::TestWithParam<Scenario> {};

TEST_P(Golden, ReplaysToTheBit)
{
    const auto& [index, name] = GetParam();
    const fs::path base = fs::path(VELORA_GOLDEN_DIR) / name;
    std::ifstream commands(base.string() + ".txt");
    std::ifstream expected(base.string() + ".log");
    Replay replay(base.string() + ".raw", EngineOwner(goldenEngines()[index].create(index)));
    int lines = 0;
    for (std::string command, line; std::getline(commands, command); ++lines) {
        ASSERT_TRUE(std::getline(expected, line));
        ASSERT_EQ(replay.run(command), line) << "line " << lines + 1;
    }
    EXPECT_GT(lines, 0);
}

std::string testName(const testing::TestParamInfo<Scenario>& scenario)
{
    return goldenEngines()[std::get<0>(scenario.param)].name + "_" + std::get<1>(scenario.param);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, Golden,
                         testing::Combine(testing::Range(size_t(0), goldenEngines().size()),
                                          testing::ValuesIn(scenarioNames())),
                         testName);

} // namespace
