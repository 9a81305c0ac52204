// Whether all streams in an Ogg file come to an end, which only the pages themselves tell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

class OggPages {
public:
    /// Takes the next bytes of the file.
    void take(const uint8_t* bytes, size_t count);

    /// Whether each stream that began has ended, by all that was taken.
    bool areComplete() const { return unended.empty() && bodyLeft == 0; }

private:
    void takeHeader();

    std::vector<uint8_t> header; // of the page that comes
    size_t bodyLeft = 0;         // bytes of a page
    std::set<uint32_t> unended;  // streams, by their serial numbers
};
