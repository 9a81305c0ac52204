/// The engine's fixed-point FFT: in-place complex transforms of 32 to 512 points, unscaled.
///
/// A vector of N = 2^n points is two arrays of N int32: real and imaginary parts. Nothing is
/// scaled, so values grow by up to N: keep the modulus of every point below 2^(31 - n), or
/// sums may wrap. Products with Q31 twiddle factors are rounded one by one; sums wrap modulo
/// 2^32. The result is the same on every machine.
///
/// The size of the transforms is one for the whole process, and engines set it. If a program uses
/// <velora/vsp.h> or velora::Stream beside transforms of another size than 512, see
/// Velora_FFT_NEON_Init.
///
/// Threads: any number of transforms may run at the same time, on different arrays.
/// Velora_FFT_NEON_Init with the size that is already set may run at any time; with another size,
/// only while no transform runs.
#ifndef VELORA_FFT_H
#define VELORA_FFT_H

#include <stdint.h>

#if defined(__GNUC__)
#define VELORA_FFT_API __attribute__((visibility("default")))
#else
#define VELORA_FFT_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/// A complex factor, Q31: 2147483647 stands for 1.0.
typedef struct Velora_FFT_Twiddle {
    int32_t re;
    int32_t im;
} Velora_FFT_Twiddle;

/// fftTwiddle[k] = exp(-i pi r), r the bits of k read as the binary fraction 0.b0 b1 ... b7.
/// Entries 0 to 2^l - 1 are the factors of level l, whatever the size. Components lie within
/// -2147483647..2147483647.
VELORA_FFT_API extern const Velora_FFT_Twiddle fftTwiddle[256];

/// Sets the size of Velora_FFT_NEON and Velora_IFFT_NEON to 2^n points, for the whole process. n is
/// 5 to 9; any other value is ignored. Before the first call the two leave their vector as it is.
///
/// Every engine sets 9, on whatever thread it is: when it is made, and in the call of Exe,
/// Exe_buffered or Velora_VSP_Conductor::SetSpeedNow that puts an Init, or a SetPar away from speed
/// 1.0, in force. A velora::Stream does when it is made, and may in every call that sets a speed,
/// processes or flushes. Whoever uses another size sets it again after these, and lets none of them
/// run meanwhile. Engines themselves don't mind: their own transforms have 512 points whatever is
/// set here.
VELORA_FFT_API void Velora_FFT_NEON_Init(int n);
/// The same function; the one that engines call.
VELORA_FFT_API void Velora_VSP_FFT_Init(int n);

/// X[k] = sum over p of x[p] exp(-2 pi i p k / N), in place, natural order.
VELORA_FFT_API void Velora_FFT_NEON(int32_t* re, int32_t* im);
/// x[p] = sum over k of X[k] exp(+2 pi i p k / N), in place, natural order, no division by N.
VELORA_FFT_API void Velora_IFFT_NEON(int32_t* re, int32_t* im);

/// The passes that a forward transform is made of. Level l cuts the vector into 2^l blocks; in
/// block j the halves a, b become a + w b, a - w b with w = fftTwiddle[j] (a factor may not be
/// -2147483648). Output of the last level is in bit-reversed order.

/// Levels 0 to 2 of a vector of 2^n points (n >= 3); factors 1 and -i are exact.
VELORA_FFT_API void Velora_FFT_NEON_stage1(int32_t* re, int32_t* im, int n);
/// Three levels inside block j of 8 * rowLen points, which re and im point at: tA = fftTwiddle + j,
/// tB = fftTwiddle + 2 j, tC = fftTwiddle + 4 j.
VELORA_FFT_API void Velora_FFT_NEON_stage2_3_IntLoop(int32_t* re, int32_t* im,
                                                     const Velora_FFT_Twiddle* tA,
                                                     const Velora_FFT_Twiddle* tB,
                                                     const Velora_FFT_Twiddle* tC, int rowLen);
/// Two levels inside block j of 16 points (four rows of four), which re and im point at:
/// tA = fftTwiddle + j, tB = fftTwiddle + 2 j. count is 4; each further 4 process the next 16
/// points with the same factors.
VELORA_FFT_API void Velora_FFT_NEON_stage2_2_IntLoop(int32_t* re, int32_t* im,
                                                     const Velora_FFT_Twiddle* tA,
                                                     const Velora_FFT_Twiddle* tB, int count);
/// One level over `blocks` consecutive blocks of 8 points, block j with t[j].
VELORA_FFT_API void Velora_FFT_NEON_stage2_1_OptLoops(int32_t* re, int32_t* im,
                                                      const Velora_FFT_Twiddle* t, int blocks);
/// The last two levels of a vector of 2^n points (n >= 2); t = fftTwiddle.
VELORA_FFT_API void Velora_FFT_NEON_stage3(int32_t* re, int32_t* im, const Velora_FFT_Twiddle* t,
                                           int n);
/// Negates x[0 .. 2^n - 1] in place; the most negative value stays as it is.
VELORA_FFT_API void Velora_FFT_NEON_complconj(int32_t* x, int n);

#ifdef __cplusplus
}
#endif

#endif
