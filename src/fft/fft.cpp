// The exported FFT: transforms of any of its sizes from passes that a caller can also run one by
// one. The engine itself calls the kernels for 512 points.

#define VSP_KERNEL_SET exported

#include <velora/fft.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "fixed/fixed.h"
#include "kernels/fft_loops.h"
#include "kernels/kernel_table.h"
#include "kernels/sizes.h"
#include "kernels/twiddles.h"
#include "kernels/vector_scalar.h"

using namespace vsp;
using namespace vsp::exported;

namespace {

using Twiddle = Velora_FFT_Twiddle;

// log2 of the size that the transforms use; 0 before the first Velora_FFT_NEON_Init. Relaxed is
// enough: it guards no other data.
std::atomic<int32_t> fftLog2N{0};

// Loads a column of `rows` points that lie `stride` apart, runs `levels` over it, stores it back.
template <int rows, class Levels>
void runColumn(int32_t* re, int32_t* im, int stride, Levels levels)
{
    Complex<I32x1> x[rows];
    for (int row = 0; row < rows; ++row)
        x[row] = loadComplex(re, im, row * stride, I32x1{});
    levels(x);
    for (int row = 0; row < rows; ++row)
        storeComplex(re, im, row * stride, x[row]);
}

SameFactor<I32x1> factor(Twiddle w)
{
    return broadcast(w, I32x1{});
}

// Two levels of a column of 4 points.
void radix4(Complex<I32x1> (&x)[4], const Twiddle* tA, const Twiddle* tB)
{
    for (int i = 0; i < 2; ++i)
        butterfly(x[i], x[i + 2], factor(tA[0]));
    for (int j = 0; j < 2; ++j)
        butterfly(x[2 * j], x[2 * j + 1], factor(tB[j]));
}

void reorder(int32_t* re, int32_t* im, int log2N)
{
    for (int p = 0; p < 1 << log2N; ++p) {
        const int r = fftBitRev[std::size_t(p)] >> (kFftLog2N - log2N);
        if (r > p) {
            std::swap(re[p], re[r]);
            std::swap(im[p], im[r]);
        }
    }
}

void transform(int32_t* re, int32_t* im, int log2N)
{
    if (log2N == kFftLog2N) {
        bestKernels().fft512(re, im);
        return;
    }
    const Twiddle* const t = fftTwiddle;
    Velora_FFT_NEON_stage1(re, im, log2N);
    // Stages 1 and 3 take five levels; those in between see eight blocks.
    const int blockPoints = 1 << (log2N - 3);
    for (int j = 0; j < 8; ++j) {
        int32_t* const blockRe = re + j * blockPoints;
        int32_t* const blockIm = im + j * blockPoints;
        if (log2N == 8)
            Velora_FFT_NEON_stage2_3_IntLoop(blockRe, blockIm, t + j, t + 2 * j, t + 4 * j,
                                             blockPoints / 8);
        else if (log2N == 7)
            Velora_FFT_NEON_stage2_2_IntLoop(blockRe, blockIm, t + j, t + 2 * j, 4);
    }
    if (log2N == 6)
        Velora_FFT_NEON_stage2_1_OptLoops(re, im, t, 8);
    Velora_FFT_NEON_stage3(re, im, t, log2N);
    reorder(re, im, log2N);
}

} // namespace

void Velora_FFT_NEON_Init(int n)
{
    if (n >= 5 && n <= kFftLog2N)
        fftLog2N.store(n, std::memory_order_relaxed);
}

void Velora_VSP_FFT_Init(int n)
{
    Velora_FFT_NEON_Init(n);
}

void Velora_FFT_NEON(int32_t* re, int32_t* im)
{
    const int log2N = fftLog2N.load(std::memory_order_relaxed);
    if (log2N != 0)
        transform(re, im, log2N);
}

void Velora_IFFT_NEON(int32_t* re, int32_t* im)
{
    const int log2N = fftLog2N.load(std::memory_order_relaxed);
    if (log2N == 0)
        return;
    Velora_FFT_NEON_complconj(im, log2N);
    transform(re, im, log2N);
    Velora_FFT_NEON_complconj(im, log2N);
}

void Velora_FFT_NEON_stage1(int32_t* re, int32_t* im, int n)
{
    const int columns = 1 << (n - 3);
    for (int c = 0; c < columns; ++c)
        runColumn<8>(re + c, im + c, columns, [](auto& x) { radix8First(x); });
}

void Velora_FFT_NEON_stage2_3_IntLoop(int32_t* re, int32_t* im, const Twiddle* tA,
                                      const Twiddle* tB, const Twiddle* tC, int rowLen)
{
    const SameFactor<I32x1> w[7] = {factor(tA[0]), factor(tB[0]), factor(tB[1]), factor(tC[0]),
                                    factor(tC[1]), factor(tC[2]), factor(tC[3])};
    for (int c = 0; c < rowLen; ++c)
        runColumn<8>(re + c, im + c, rowLen, [&](auto& x) { radix8(x, w); });
}

void Velora_FFT_NEON_stage2_2_IntLoop(int32_t* re, int32_t* im, const Twiddle* tA,
                                      const Twiddle* tB, int count)
{
    for (int block = 0; block < 4 * count; block += 16)
        for (int c = block; c < block + 4; ++c)
            runColumn<4>(re + c, im + c, 4, [=](auto& x) { radix4(x, tA, tB); });
}

void Velora_FFT_NEON_stage2_1_OptLoops(int32_t* re, int32_t* im, const Twiddle* t, int blocks)
{
    for (int j = 0; j < blocks; ++j)
        for (int c = 8 * j; c < 8 * j + 4; ++c)
            runColumn<2>(re + c, im + c, 4, [=](auto& x) { butterfly(x[0], x[1], factor(t[j])); });
}

void Velora_FFT_NEON_stage3(int32_t* re, int32_t* im, const Twiddle* t, int n)
{
    for (int j = 0; j < 1 << (n - 2); ++j)
        runColumn<4>(re + 4 * j, im + 4 * j, 1, [=](auto& x) { radix4(x, t + j, t + 2 * j); });
}

void Velora_FFT_NEON_complconj(int32_t* x, int n)
{
    for (int p = 0; p < 1 << n; ++p)
        x[p] = fx::wrapNeg(x[p]);
}
