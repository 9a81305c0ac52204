// A library at work on a stream, whichever it is: all are driven in the same way, and each gets the
// samples in the form that it takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// Stereo sound in every form that a library takes, so that no conversion is timed.
struct Clip {
    Clip(int sampleRate, std::vector<int16_t> interleaved);

    int rate; // Hz
    size_t frames;
    std::vector<int16_t> samples; // [2 * frames], interleaved
    std::vector<float> floats;    // the same, full scale 1.0
    std::vector<float> planes[2]; // [channel][frames]
};

class Stretcher {
public:
    virtual ~Stretcher() = default;
    /// Feeds `frames` frames of the clip, at most kMostFrames, and takes all output that is ready.
    /// @returns output frames
    virtual int process(const Clip& clip, size_t from, int frames) = 0;

    static constexpr int kMostFrames = 1024;
};

struct Library {
    std::string name;
    /// A stream from its beginning, with its settings applied.
    std::function<std::unique_ptr<Stretcher>(int rate, double speed)> start;
};

enum class SampleForm { int16, float32 };

/// Our engine, once for each table of kernels that this machine runs, the fastest last.
std::vector<Library> veloraEngines(SampleForm form = SampleForm::int16);
size_t veloraEngineBytes();
/// velora::Stream with the fastest of these tables, by sound.
std::vector<Library> veloraStreams();

Library soundTouch();
Library soundTouchQuickSeek();
Library rubberBandR2();
Library rubberBandR3();
Library sonic();
