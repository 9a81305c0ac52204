#include "ogg_pages.h"

#include <algorithm>
#include <numeric>
#include <string_view>

namespace {

constexpr std::string_view kMagic = "OggS";
constexpr size_t kFlagsAt = 5;
constexpr size_t kSerialAt = 14;
constexpr size_t kSegmentsAt = 26; // their number, and then the bytes of each
constexpr uint8_t kLastPage = 4;

} // namespace

void OggPages::take(const uint8_t* bytes, size_t count)
{
    for (const uint8_t* const end = bytes + count; bytes < end;) {
        const size_t skipped = std::min(bodyLeft, size_t(end - bytes));
        bodyLeft -= skipped;
        bytes += skipped;
        if (bytes == end)
            return;
        header.push_back(*bytes++);
        const size_t magic = std::min(header.size(), kMagic.size());
        if (!std::equal(header.begin(), header.begin() + ptrdiff_t(magic), kMagic.begin()))
            header.erase(header.begin(), header.end() - (header.back() == kMagic.front() ? 1 : 0));
        if (header.size() > kSegmentsAt && header.size() == kSegmentsAt + 1 + header[kSegmentsAt])
            takeHeader();
    }
}

void OggPages::takeHeader()
{
    uint32_t serial = 0;
    for (size_t n = 0; n < sizeof serial; ++n)
        serial |= uint32_t(header[kSerialAt + n]) << (8 * n);
    if ((header[kFlagsAt] & kLastPage) != 0)
        unended.erase(serial);
    else
        unended.insert(serial);
    bodyLeft = std::accumulate(header.begin() + kSegmentsAt + 1, header.end(), size_t(0));
    header.clear();
}
