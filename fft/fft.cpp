// The fixed-point FFT: n radix-2 levels grouped into passes that keep data in registers, then the
// bit reversal. Each pass is a loop over independent columns or blocks.

#include "fft/fft.h"

#include <atomic>
#include <utility>

#include "fft/twiddles.h"
#include "fixed/complex.h"

using Twiddle = Velora_FFT_Twiddle;

namespace vsp {
namespace {

// log2 of the size that the public transforms use; 0 before the first Velora_FFT_NEON_Init.
// Relaxed is enough: it guards no other data.
std::atomic<int32_t> fftLog2N{0};

constexpr int32_t kSqrtHalfQ31 = 0x5A82799A;

VSP_INLINE ComplexInt add(ComplexInt a, ComplexInt b)
{
    return {fx::wrapAdd(a.re, b.re), fx::wrapAdd(a.im, b.im)};
}

VSP_INLINE ComplexInt sub(ComplexInt a, ComplexInt b)
{
    return {fx::wrapSub(a.re, b.re), fx::wrapSub(a.im, b.im)};
}

VSP_INLINE ComplexInt mul(ComplexInt x, Twiddle w_q31)
{
    return {fx::wrapSub(fx::mulRoundQ31(x.re, w_q31.re), fx::mulRoundQ31(x.im, w_q31.im)),
            fx::wrapAdd(fx::mulRoundQ31(x.re, w_q31.im), fx::mulRoundQ31(x.im, w_q31.re))};
}

VSP_INLINE ComplexInt load(const int32_t* re, const int32_t* im, int p)
{
    return {re[p], im[p]};
}

VSP_INLINE void store(int32_t* re, int32_t* im, int p, ComplexInt x)
{
    re[p] = x.re;
    im[p] = x.im;
}

VSP_INLINE void butterfly(ComplexInt& a, ComplexInt& b, Twiddle w_q31)
{
    const ComplexInt wb = mul(b, w_q31);
    b = sub(a, wb);
    a = add(a, wb);
}

// A column of three levels: 8 points, one factor at the first level, two and four at the next.
VSP_INLINE void radix8(ComplexInt* x, const Twiddle* tA, const Twiddle* tB, const Twiddle* tC)
{
    for (int i = 0; i < 4; ++i)
        butterfly(x[i], x[i + 4], tA[0]);
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 2; ++i)
            butterfly(x[4 * j + i], x[4 * j + i + 2], tB[j]);
    for (int j = 0; j < 4; ++j)
        butterfly(x[2 * j], x[2 * j + 1], tC[j]);
}

// A column of two levels: 4 points.
VSP_INLINE void radix4(ComplexInt* x, const Twiddle* tA, const Twiddle* tB)
{
    for (int i = 0; i < 2; ++i)
        butterfly(x[i], x[i + 2], tA[0]);
    for (int j = 0; j < 2; ++j)
        butterfly(x[2 * j], x[2 * j + 1], tB[j]);
}

// The first three levels of a column: factors 1 and -i are exact, exp(-i pi/4) and exp(-i 3pi/4)
// take one rounded product per component instead of two.
VSP_INLINE void radix8First(ComplexInt* x)
{
    ComplexInt even[4];
    ComplexInt odd[4];
    for (int i = 0; i < 4; ++i) {
        even[i] = add(x[i], x[i + 4]);
        odd[i] = sub(x[i], x[i + 4]);
    }
    const auto timesMinusI = [](ComplexInt v) { return turnQuarters(v, 3); };

    const ComplexInt e0 = add(even[0], even[2]);
    const ComplexInt e1 = add(even[1], even[3]);
    const ComplexInt e2 = sub(even[0], even[2]);
    const ComplexInt e3 = timesMinusI(sub(even[1], even[3]));
    x[0] = add(e0, e1);
    x[1] = sub(e0, e1);
    x[2] = add(e2, e3);
    x[3] = sub(e2, e3);

    const ComplexInt o2 = timesMinusI(odd[2]);
    const ComplexInt o3 = timesMinusI(odd[3]);
    const ComplexInt g = add(odd[1], o3);
    const ComplexInt h = sub(odd[1], o3);
    const int32_t gRe = fx::mulRoundQ31(g.re, kSqrtHalfQ31);
    const int32_t gIm = fx::mulRoundQ31(g.im, kSqrtHalfQ31);
    const int32_t hRe = fx::mulRoundQ31(h.re, kSqrtHalfQ31);
    const int32_t hIm = fx::mulRoundQ31(h.im, kSqrtHalfQ31);
    const ComplexInt wg = {fx::wrapAdd(gRe, gIm), fx::wrapSub(gIm, gRe)};
    const ComplexInt wh = {fx::wrapSub(hIm, hRe), fx::wrapSub(fx::wrapNeg(hRe), hIm)};
    const ComplexInt c = add(odd[0], o2);
    const ComplexInt d = sub(odd[0], o2);
    x[4] = add(c, wg);
    x[5] = sub(c, wg);
    x[6] = add(d, wh);
    x[7] = sub(d, wh);
}

// Loads a column of `rows` points that lie `stride` apart, runs `pass` over it, stores it back.
template <int rows, class Pass>
VSP_INLINE void column(int32_t* re, int32_t* im, int stride, Pass pass)
{
    ComplexInt x[rows];
    for (int row = 0; row < rows; ++row)
        x[row] = load(re, im, row * stride);
    pass(x);
    for (int row = 0; row < rows; ++row)
        store(re, im, row * stride, x[row]);
}

void reorder(int32_t* re, int32_t* im, int log2N)
{
    for (int p = 0; p < 1 << log2N; ++p) {
        const int r = fftBitRev[size_t(p)] >> (kMaxLog2N - log2N);
        if (r > p) {
            std::swap(re[p], re[r]);
            std::swap(im[p], im[r]);
        }
    }
}

} // namespace

void fftForward(int32_t* re, int32_t* im, int log2N)
{
    const Twiddle* const t = fftTwiddle;
    Velora_FFT_NEON_stage1(re, im, log2N);
    int level = 3;
    for (; level + 5 <= log2N; level += 3) {
        const int blockPoints = 1 << (log2N - level);
        for (int j = 0; j < 1 << level; ++j)
            Velora_FFT_NEON_stage2_3_IntLoop(re + j * blockPoints, im + j * blockPoints, t + j,
                                             t + 2 * j, t + 4 * j, blockPoints / 8);
    }
    if (log2N - level == 4)
        for (int j = 0; j < 1 << level; ++j)
            Velora_FFT_NEON_stage2_2_IntLoop(re + 16 * j, im + 16 * j, t + j, t + 2 * j, 4);
    if (log2N - level == 3)
        Velora_FFT_NEON_stage2_1_OptLoops(re, im, t, 1 << level);
    Velora_FFT_NEON_stage3(re, im, t, log2N);
    reorder(re, im, log2N);
}

} // namespace vsp

using namespace vsp;

void Velora_FFT_NEON_Init(int n)
{
    if (n >= 5 && n <= kMaxLog2N)
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
        fftForward(re, im, log2N);
}

void Velora_IFFT_NEON(int32_t* re, int32_t* im)
{
    const int log2N = fftLog2N.load(std::memory_order_relaxed);
    if (log2N == 0)
        return;
    Velora_FFT_NEON_complconj(im, log2N);
    fftForward(re, im, log2N);
    Velora_FFT_NEON_complconj(im, log2N);
}

void Velora_FFT_NEON_stage1(int32_t* re, int32_t* im, int n)
{
    const int columns = 1 << (n - 3);
    for (int c = 0; c < columns; ++c)
        column<8>(re + c, im + c, columns, [](ComplexInt* x) { radix8First(x); });
}

void Velora_FFT_NEON_stage2_3_IntLoop(int32_t* re, int32_t* im, const Twiddle* tA,
                                      const Twiddle* tB, const Twiddle* tC, int rowLen)
{
    for (int c = 0; c < rowLen; ++c)
        column<8>(re + c, im + c, rowLen, [=](ComplexInt* x) { radix8(x, tA, tB, tC); });
}

void Velora_FFT_NEON_stage2_2_IntLoop(int32_t* re, int32_t* im, const Twiddle* tA,
                                      const Twiddle* tB, int count)
{
    for (int block = 0; block < 4 * count; block += 16)
        for (int c = block; c < block + 4; ++c)
            column<4>(re + c, im + c, 4, [=](ComplexInt* x) { radix4(x, tA, tB); });
}

void Velora_FFT_NEON_stage2_1_OptLoops(int32_t* re, int32_t* im, const Twiddle* t, int blocks)
{
    for (int j = 0; j < blocks; ++j)
        for (int c = 8 * j; c < 8 * j + 4; ++c)
            column<2>(re + c, im + c, 4, [=](ComplexInt* x) { butterfly(x[0], x[1], t[j]); });
}

void Velora_FFT_NEON_stage3(int32_t* re, int32_t* im, const Twiddle* t, int n)
{
    for (int j = 0; j < 1 << (n - 2); ++j)
        column<4>(re + 4 * j, im + 4 * j, 1, [=](ComplexInt* x) { radix4(x, t + j, t + 2 * j); });
}

void Velora_FFT_NEON_complconj(int32_t* x, int n)
{
    for (int p = 0; p < 1 << n; ++p)
        x[p] = fx::wrapNeg(x[p]);
}
