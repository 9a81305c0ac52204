#include "mp3_tags.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

using Bytes = std::span<const uint8_t>;

bool startsWith(Bytes bytes, std::string_view word)
{
    return bytes.size() >= word.size() && std::equal(word.begin(), word.end(), bytes.begin());
}

// Of the tag that a packet begins with; 0 if it begins with none.
size_t tagBytes(Bytes bytes)
{
    constexpr size_t kId3v1 = 128;
    constexpr size_t kId3v2Head = 10;
    constexpr size_t kApeHead = 32;
    if (startsWith(bytes, "TAG"))
        return kId3v1;
    if (startsWith(bytes, "ID3") && bytes.size() >= kId3v2Head) {
        size_t size = 0;
        for (const uint8_t byte : bytes.subspan(6, 4))
            size = size << 7 | (byte & 0x7F);
        const bool hasFoot = (bytes[5] & 0x10) != 0;
        return size + (hasFoot ? 2 : 1) * kId3v2Head;
    }
    if (startsWith(bytes, "APETAGEX") && bytes.size() >= kApeHead) {
        size_t size = 0; // of the items and the foot, the latter of which may be all that comes
        for (size_t n = 0; n < 4; ++n)
            size |= size_t(bytes[12 + n]) << (8 * n);
        const bool isHead = (bytes[23] & 0x20) != 0;
        return isHead ? size + kApeHead : kApeHead;
    }
    return 0;
}

bool countsFrames(Bytes frame)
{
    constexpr std::string_view kWords[] = {"Xing", "Info", "VBRI"};
    const Bytes front = frame.first(std::min<size_t>(frame.size(), 40)); // all are within
    return std::any_of(std::begin(kWords), std::end(kWords), [&](std::string_view word) {
        return std::search(front.begin(), front.end(), word.begin(), word.end()) != front.end();
    });
}

} // namespace

size_t Mp3Tags::bytesIn(std::span<const uint8_t> packet)
{
    size_t done = 0;
    do {
        const size_t step = std::min(left, packet.size() - done);
        done += step;
        left -= step;
        if (left == 0)
            left = tagBytes(packet.subspan(done));
    } while (left > 0 && done < packet.size());
    return done > 0 && countsFrames(packet.subspan(done)) ? packet.size() : done;
}
