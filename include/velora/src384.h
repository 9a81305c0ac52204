/// Sample-rate converter for stereo 16-bit audio: raises the rate by a whole number, 1 to 24.
///
///     Velora_SRC384_Interface* converter = Velora_SRC384_Factory::Create();
///     converter->Init(11, 8, 2, 0, 0);                         // 48000 Hz to 96000 Hz
///     int outFrames = converter->Exe(out, in, inFrames);       // once per block of the stream
///     Velora_SRC384_Factory::Destroy(converter);
///
/// The engine uses it at the speeds 0.5, 0.25 and 0.125. It reaches it through the
/// two classes below only, so a library with the same symbols can take its place
/// at link time, or ahead of it at load time.
///
/// Response: linear phase, unity gain. Flat within 0.001 dB up to 0.45 of the input rate, down by 6
/// dB at 0.5; images from 0.55 of the input rate on are 98 dB down, below the noise of the output's
/// 16 bits. The output is the same to the bit on every machine.
#ifndef VELORA_SRC384_H
#define VELORA_SRC384_H

#if defined(__GNUC__)
#define VELORA_SRC384_API __attribute__((visibility("default")))
#else
#define VELORA_SRC384_API
#endif

enum {
    /// Delay through the converter in input frames, the same at every ratio: output frame
    /// ratio * (n + Velora_SRC384_DelayFrames) is input frame n, unchanged. To hear the end of a
    /// stream, pass this many frames of silence after it.
    Velora_SRC384_DelayFrames = 32
};

/// One converter, about 1.3 KiB. One thread at a time; different converters share nothing that
/// changes. Neither operation allocates, locks or throws.
class VELORA_SRC384_API Velora_SRC384_Interface {
public:
    /// Chooses the two rates and starts a stream from silence.
    ///
    /// @param a  code of the output rate: 0 to 14 for 8000, 11025, 12000, 16000, 22050, 24000,
    ///           32000, 44100, 48000, 64000, 88200, 96000, 128000, 176400, 192000 Hz
    /// @param b  code of the input rate, of which the output rate must be a whole multiple (1, 2,
    ///           3, 4, 6, 8, 12, 16 or 24 times); only that ratio matters, not the rates themselves
    /// @param c  channels: 2
    /// @param d  reserved: 0
    /// @param e  reserved: 0
    /// @return 0; or non-zero for any other arguments, which change nothing: a stream in progress
    ///         goes on as if the call had not been made
    virtual int Init(int a, int b, int c, int d, int e) = 0;

    /// Converts the next `frames` frames of the stream. The output doesn't depend on how a stream
    /// is cut into calls.
    ///
    /// @param out     room for frames * ratio frames, left, right; must not overlap `in`. Rounded
    ///                to the nearest, halves upward; saturated where the sound between samples goes
    ///                beyond full scale. Nothing is written behind the returned count.
    /// @param in      [frames] left, right
    /// @param frames  up to INT_MAX / ratio
    /// @return frames * ratio; 0, with nothing written or changed, if `frames` is out of range, or
    ///         before the first good Init
    ///
    /// Cost: 128 multiply-adds of 16 bits per output sample; none for every ratio-th, a copy.
    virtual int Exe(short (*out)[2], const short (*in)[2], int frames) = 0;

    virtual ~Velora_SRC384_Interface() {}
};

/// Creates and destroys converters. Any thread.
class VELORA_SRC384_API Velora_SRC384_Factory {
public:
    /// A new converter, which converts nothing before its first good Init; null if memory runs out.
    static Velora_SRC384_Interface* Create();
    /// Destroys a converter made by Create; null does nothing.
    static void Destroy(Velora_SRC384_Interface* converter);
};

#endif
