// Where the scheduler's frames go: into the caller's buffer as they are, or hop by hop through the
// conversion to the caller's format and rate.
#pragma once

#include <cstddef>

#include "convert/bridge.h"
#include "fixed/frame.h"

namespace vsp {

class Output {
public:
    /// Room for the next frames: a whole piece, or all that one hop can give.
    virtual Frame* room() = 0;
    /// Takes over `frames` frames (0 or more) that were written to room().
    virtual void commit(int frames) = 0;
    /// Working-rate frames taken over so far.
    int written() const { return count; }

protected:
    ~Output() = default;
    int count = 0;
};

class DirectOutput final : public Output {
public:
    explicit DirectOutput(Frame* buffer) : out(buffer) {}
    Frame* room() override { return out + count; }
    void commit(int frames) override { count += frames; }

private:
    Frame* out;
};

class ConvertedOutput final : public Output {
public:
    /// @param formats  converts what is committed
    /// @param staging  room()
    /// @param buffer   the caller's, in format `bitDepth` at the working rate times 2^rateShift
    ConvertedOutput(FormatBridge& formats, Frame* staging, void* buffer, int rateShift,
                    Velora_BitDepth_T bitDepth)
        : bridge(formats), stage(staging), out(static_cast<std::byte*>(buffer)), shift(rateShift),
          depth(bitDepth)
    {
    }
    Frame* room() override { return stage; }
    void commit(int frames) override
    {
        bridge.Convert_MQ2UHQ(out, stage, frames, shift, depth);
        out += (frames << shift) * bytesPerFrame(depth);
        count += frames;
    }

private:
    FormatBridge& bridge;
    Frame* stage;
    std::byte* out;
    int shift;
    Velora_BitDepth_T depth;
};

} // namespace vsp
