// Where the frame scheduler's frames go: into the caller's buffer as they are, or hop by hop
// through the conversion to the caller's format and rate.
#pragma once

#include <cstddef>

#include "engine/velora_vsp.h"

class Velora_VSP::Output {
public:
    /// Room for the next frames: a whole piece, or all that one hop can give.
    virtual vsp::Frame* room() = 0;
    /// Takes over `frames` frames (0 or more) that were written to room().
    virtual void commit(int frames) = 0;
    /// Working-rate frames taken over so far.
    int written() const { return count; }

protected:
    ~Output() = default;
    int count = 0;
};

class Velora_VSP::DirectOutput final : public Output {
public:
    explicit DirectOutput(vsp::Frame* buffer) : out(buffer) {}
    vsp::Frame* room() override { return out + count; }
    void commit(int frames) override { count += frames; }

private:
    vsp::Frame* out;
};

class Velora_VSP::ConvertedOutput final : public Output {
public:
    ConvertedOutput(Velora_VSP& owner, void* buffer)
        : engine(owner), out(static_cast<std::byte*>(buffer))
    {
    }
    vsp::Frame* room() override { return engine.mqOut; }
    void commit(int frames) override;

private:
    Velora_VSP& engine;
    std::byte* out;
};
