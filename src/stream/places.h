// Which media frame every input frame of a stream is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vsp {

/// The stretches of media that went in one after another, each up to the next.
class Places {
public:
    /// Room for `changes` jumps that lie in what wasn't handed out yet, and for some that did.
    explicit Places(std::size_t changes);

    /// One stretch: input frame `input` is media frame `media`.
    void reset(std::int64_t input, std::int64_t media);
    /// Makes room for one more. Allocates if there is none.
    void reserveOne();
    /// From `input` on another one. Without room the oldest is forgotten if it ends before input
    /// frame `past`.
    /// @returns false if there is no room
    bool add(std::int64_t input, std::int64_t media, std::int64_t past);

    std::int64_t mediaAt(std::int64_t input) const;
    /// By the stretch that went in last.
    std::int64_t inputAt(std::int64_t media) const;

private:
    struct Stretch {
        std::int64_t input;
        std::int64_t media;
    };

    std::vector<Stretch> stretches; // never empty
    std::size_t room;
};

} // namespace vsp
