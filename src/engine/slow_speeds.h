// What slow speeds need beside the vocoder: two low-passes, and a sample-rate converter for the
// speeds that play a stream as a slowed tape does.
#pragma once

#include <memory>

#include <velora/src384.h>

#include "convert/biquad.h"
#include "fixed/frame.h"
#include "kernels/kernel_table.h"

namespace vsp {

class SlowSpeeds {
    using Filter = std::unique_ptr<Velora_BQ, void (*)(Velora_BQ*)>;
    using Converter = std::unique_ptr<Velora_SRC384_Interface, void (*)(Velora_SRC384_Interface*)>;

    const KernelTable& kernels; // the hot loops, for this machine

protected:
    /// Makes both low-passes and a converter. Throws std::bad_alloc if a low-pass can't be had; a
    /// converter that can't be had is absent.
    explicit SlowSpeeds(const KernelTable& table);

    /// Both low-passes start from silence, for a stream at the caller's `sampleRate`, Hz.
    void startFilters(int sampleRate);
    /// The converter starts from silence if `speed` is one of its own. Makes one if there is none.
    void selectConverter(float speed);
    void dropConverter() { src.reset(); }
    /// Whether the converter takes the vocoder's place.
    bool converterInForce() const { return srcActive && src != nullptr; }

    /// Low-passes and the gain of slow speeds, in place, if the filters are on.
    void filterOutput(Frame* p, int frames);

    bool bqActive = false; // settings: the low-passes are on
    const Filter bqA;
    const Filter bqB;
    bool srcActive = false; // settings: the speed is one of the converter's
    Converter src;          // dropped when SetPar asks for another speed; absent without memory

private:
    static Filter createFilter();
    static Converter createConverter();
    void startConverter(int outputRate, int inputRate);
};

} // namespace vsp
