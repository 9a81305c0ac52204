/// Sample-rate converter for stereo 16-bit audio, used by the engine at the speeds 0.5, 0.25, 0.125.
///
/// The engine reaches it through these two classes only, so a library with the same symbols can take
/// its place at link time, or ahead of it at load time.
#ifndef VELORA_SRC384_H
#define VELORA_SRC384_H

#if defined(__GNUC__)
#define VELORA_SRC384_API __attribute__((visibility("default")))
#else
#define VELORA_SRC384_API
#endif

/// One converter. One thread at a time; different converters are independent of each other.
class VELORA_SRC384_API Velora_SRC384_Interface {
public:
    virtual int Init(int a, int b, int c, int d, int e) = 0;
    virtual int Exe(short (*out)[2], const short (*in)[2], int frames) = 0;
    virtual ~Velora_SRC384_Interface() {}
};

/// Creates and destroys converters. Any thread.
class VELORA_SRC384_API Velora_SRC384_Factory {
public:
    /// A new converter; null if there is no memory.
    static Velora_SRC384_Interface* Create();
    /// Destroys a converter made by Create.
    static void Destroy(Velora_SRC384_Interface* converter);
};

#endif
