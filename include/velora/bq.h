/// A stereo low-pass at 2 kHz for 16-bit frames: a second-order Butterworth section, fixed point.
#ifndef VELORA_BQ_H
#define VELORA_BQ_H

#if defined(__GNUC__)
#define VELORA_BQ_API __attribute__((visibility("default")))
#else
#define VELORA_BQ_API
#endif

/// One filter. One thread at a time; different filters are independent of each other.
class VELORA_BQ_API Velora_BQ_Interface {
public:
    /// Chooses the coefficients for 8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000,
    /// 64000, 88200, 96000, 128000, 176400 or 192000 Hz (any other rate: those for 44100 Hz) and
    /// clears the filter's memory.
    virtual void Init(int sampleRate) = 0;

    /// Filters stereo frames. The memory carries on from call to
    /// call, so the output doesn't depend on how a stream is cut.
    /// @param dst  [frames] left, right; may be `src`. Truncated toward minus infinity, not
    ///             saturated: an overshoot past full scale wraps.
    /// @param src  [frames] left, right
    /// @param frames  0 or less: nothing is done
    virtual void Exe(short (*dst)[2], const short (*src)[2], int frames) = 0;

    virtual ~Velora_BQ_Interface() {}
};

/// Creates and destroys filters. Any thread.
class VELORA_BQ_API Velora_BQ_Factory {
public:
    /// A new filter, as after Init(44100). Throws std::bad_alloc if there is no memory.
    static Velora_BQ_Interface* Create();
    /// Destroys a filter made by Create; null does nothing.
    static void Destroy(Velora_BQ_Interface* filter);
};

#endif
