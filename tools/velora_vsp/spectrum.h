// Power spectra of overlapping stretches of a sound.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

extern "C" {
#include <libavutil/tx.h>
}

/// The power by bin is that of all channels in the mean; over the bins of a full-scale sine it adds up
/// to 1.
class SlidingSpectrum {
public:
    /// Takes the frame that stands in the middle, and the power of bins 0 to half the size.
    using Sink = std::function<void(int64_t frame, const std::vector<float>& power)>;

    /// @param size  frames in a stretch, a power of two
    SlidingSpectrum(int size, int channels, Sink sink);

    /// Frames from the middle of one stretch to that of the next, from now on.
    void setHop(int distance) { hop = distance; }
    /// Takes interleaved samples.
    void take(const std::vector<float>& samples);
    /// Gives those stretches whose middle is there, with silence beyond the end.
    void finish();

private:
    struct FreeTransform {
        void operator()(AVTXContext* made) const { av_tx_uninit(&made); }
    };
    void analyse(size_t first);
    void addPair(size_t first, size_t channel);

    size_t size;
    size_t channels;
    Sink give;
    int hop;
    int64_t middle = 0;         // of the next stretch
    int64_t frames = 0;         // taken so far
    std::vector<float> waiting; // interleaved, from half a stretch before `middle` on
    std::vector<float> window;
    std::vector<AVComplexFloat> stretch;
    std::vector<AVComplexFloat> bins;
    std::vector<float> power;
    float scale; // to the power of all channels in the mean
    std::unique_ptr<AVTXContext, FreeTransform> transform;
    av_tx_fn run = nullptr;
};
