#include "wav_header.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "error.h"
#include "little_endian.h"
#include "standard_stream.h"

namespace {

constexpr uint64_t kPcm = 1;
constexpr uint64_t kFloat = 3;
constexpr uint64_t kExtensible = 0xFFFE; // the encoding stands further on
constexpr uint32_t kUnknown = 0xFFFFFFFF;

// Behind the two bytes that repeat kPcm or kFloat in an extensible header.
constexpr unsigned char kSubformatTail[] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                            0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

struct Chunk {
    std::array<char, 4> name;
    uint64_t bytes;
    bool is(std::string_view other) const { return std::string_view(name.data(), 4) == other; }
};

[[noreturn]] void fail(const std::string& problem)
{
    throw FileError(kStandardInput, problem);
}

void readAll(std::byte* to, size_t bytes)
{
    if (readInput(to, bytes) != bytes)
        fail("is incomplete: it ends within the WAV header");
}

Chunk readChunkStart()
{
    std::array<std::byte, 8> start{};
    readAll(start.data(), start.size());
    Chunk chunk{};
    std::memcpy(chunk.name.data(), start.data(), 4);
    chunk.bytes = loadLittleEndian(start.data() + 4, 4);
    return chunk;
}

// The first `wanted` bytes of a chunk, zeros where it is shorter; reads past all of it.
std::vector<std::byte> readChunk(const Chunk& chunk, size_t wanted)
{
    std::vector<std::byte> content(wanted);
    uint64_t left = chunk.bytes + chunk.bytes % 2; // chunks are padded
    const size_t kept = size_t(std::min<uint64_t>(left, wanted));
    readAll(content.data(), kept);
    left -= kept;
    std::array<std::byte, 4096> skipped;
    while (left > 0) {
        const size_t part = size_t(std::min<uint64_t>(left, skipped.size()));
        readAll(skipped.data(), part);
        left -= part;
    }
    return content;
}

void parseFormat(WavHeader& header, const std::byte* chunk)
{
    uint64_t encoding = loadLittleEndian(chunk, 2);
    header.isExtensible = encoding == kExtensible;
    if (header.isExtensible) {
        header.speakers = uint32_t(loadLittleEndian(chunk + 20, 4));
        encoding = loadLittleEndian(chunk + 24, 2);
    }
    if (encoding != kPcm && encoding != kFloat)
        fail("holds WAV encoding " + std::to_string(encoding) +
             ", but only integer and float samples come through a pipe: give the file by name");
    header.channels = int(loadLittleEndian(chunk + 2, 2));
    header.rate = int(std::min<uint64_t>(loadLittleEndian(chunk + 4, 4), INT32_MAX));
    const int frameBytes = int(loadLittleEndian(chunk + 12, 2));
    for (const PcmFormat& format : pcmFormats())
        if (header.channels > 0 && format.isInWav && format.isFloat == (encoding == kFloat) &&
            format.bytes * header.channels == frameBytes)
            header.format = &format;
    if (header.format == nullptr)
        fail("has a WAV header that makes no sense: " + std::to_string(header.channels) +
             " channel(s) in " + std::to_string(frameBytes) + " bytes a frame");
}

// Recorders into a pipe leave 0, or about the largest size that they think there is.
bool isUnknownSize(uint64_t bytes)
{
    return bytes >= 0xFFFFF000 || (bytes >= 0x7FFFF000 && bytes <= 0x80000000);
}

} // namespace

WavHeader readWavHeader()
{
    std::array<std::byte, 12> start{};
    const size_t count = readInput(start.data(), start.size());
    const auto word = [&](int at) {
        return std::string_view(reinterpret_cast<const char*>(start.data()) + at, 4);
    };
    if (count == 0)
        fail("is empty: WAV is needed");
    if (count < start.size() || (word(0) != "RIFF" && word(0) != "RF64") || word(8) != "WAVE")
        fail("isn't WAV, the only kind of file that comes through a pipe: give other kinds by "
             "name, and say with --raw what samples without a header are");
    uint64_t riffLeft = loadLittleEndian(start.data() + 4, 4) - 4; // announced and not yet read

    WavHeader header;
    uint64_t longDataBytes = 0; // where 32 bits are too few
    for (;;) {
        const Chunk chunk = readChunkStart();
        riffLeft -= 8;
        if (chunk.is("data")) {
            if (header.format == nullptr)
                fail("has a WAV header without a format");
            const bool isLong = chunk.bytes == kUnknown && longDataBytes > 0;
            const uint64_t bytes = isLong ? longDataBytes : chunk.bytes;
            // No bytes is what an empty file has, too, if all it announces is there.
            const bool mayBeEmpty = riffLeft > 0 && riffLeft < 0x7FFFF000;
            if (isLong || (bytes != 0 && !isUnknownSize(bytes)) || (bytes == 0 && mayBeEmpty))
                header.dataBytes = int64_t(bytes);
            return header;
        }
        riffLeft -= chunk.bytes + chunk.bytes % 2;
        const std::vector<std::byte> content = readChunk(chunk, 40);
        if (chunk.is("fmt "))
            parseFormat(header, content.data());
        else if (chunk.is("ds64"))
            longDataBytes = loadLittleEndian(content.data() + 8, 8);
    }
}

std::vector<std::byte> makeWavHeader(const WavHeader& header)
{
    std::vector<std::byte> out;
    const auto text = [&](std::string_view letters) {
        for (const char letter : letters)
            out.push_back(std::byte(letter));
    };
    const auto number = [&](int bytes, uint64_t value) {
        for (int n = 0; n < bytes; ++n)
            out.push_back(std::byte(value >> (8 * n) & 0xFF));
    };
    const uint64_t encoding = header.format->isFloat ? kFloat : kPcm;
    const uint64_t formatBytes = header.isExtensible ? 40 : 16;
    const uint64_t bytesBeforeData = 4 + 8 + formatBytes + 8;
    const bool isKnown =
        header.dataBytes >= 0 && uint64_t(header.dataBytes) < kUnknown - bytesBeforeData - 1;
    const uint64_t dataBytes = isKnown ? uint64_t(header.dataBytes) : kUnknown;

    text("RIFF");
    number(4, isKnown ? bytesBeforeData + dataBytes + dataBytes % 2 : kUnknown);
    text("WAVEfmt ");
    number(4, formatBytes);
    number(2, header.isExtensible ? kExtensible : encoding);
    number(2, uint64_t(header.channels));
    number(4, uint64_t(header.rate));
    number(4, uint64_t(header.rate) * uint64_t(header.frameBytes()));
    number(2, uint64_t(header.frameBytes()));
    number(2, uint64_t(header.format->bytes) * 8);
    if (header.isExtensible) {
        number(2, 22); // bytes that follow
        number(2, uint64_t(header.format->bits));
        number(4, header.speakers);
        number(2, encoding);
        for (const unsigned char byte : kSubformatTail)
            out.push_back(std::byte(byte));
    }
    text("data");
    number(4, dataBytes);
    return out;
}
