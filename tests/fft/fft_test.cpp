// The transforms of fft.h against one in double precision.

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <velora/fft.h>
#include <velora/vsp.h>

#include "support/signals.h"

namespace {

using signals::kPi;

struct Vector {
    std::vector<int32_t> re, im;
    explicit Vector(int n) : re(size_t(1) << n), im(size_t(1) << n) {}
    size_t size() const { return re.size(); }
    std::complex<double> at(size_t p) const { return {double(re[p]), double(im[p])}; }
};

Vector randomVector(int n, int32_t amplitude, unsigned seed)
{
    std::minstd_rand random(seed);
    std::uniform_int_distribution<int32_t> value(-amplitude, amplitude);
    Vector x(n);
    for (size_t p = 0; p < x.size(); ++p) {
        x.re[p] = value(random);
        x.im[p] = value(random);
    }
    return x;
}

std::vector<std::complex<double>> exactDft(const Vector& x)
{
    const size_t size = x.size();
    std::vector<std::complex<double>> X(size);
    for (size_t k = 0; k < size; ++k)
        for (size_t p = 0; p < size; ++p)
            X[k] += x.at(p) * std::polar(1.0, -2.0 * kPi * double(p * k % size) / double(size));
    return X;
}

class Fft : public testing::TestWithParam<int> {
protected:
    void SetUp() override { Velora_FFT_NEON_Init(GetParam()); }
    void TearDown() override { Velora_FFT_NEON_Init(9); }
};

// Each output sums at most 2^n products, every one rounded by less than half a unit.
// So does each that comes back, from outputs that were off already.
TEST_P(Fft, StaysWithinRoundingNoiseOfTheExactTransformAndComesBack)
{
    const Vector original = randomVector(GetParam(), 1 << 20, 1);
    const auto exact = exactDft(original);
    Vector x = original;
    Velora_FFT_NEON(x.re.data(), x.im.data());
    for (size_t k = 0; k < x.size(); ++k)
        EXPECT_LT(std::abs(x.at(k) - exact[k]), 40.0) << "bin " << k;
    Velora_IFFT_NEON(x.re.data(), x.im.data());
    for (size_t p = 0; p < x.size(); ++p)
        EXPECT_LT(std::abs(x.at(p) - double(x.size()) * original.at(p)), 600.0) << "point " << p;
}

INSTANTIATE_TEST_SUITE_P(Sizes, Fft, testing::Range(5, 10));

TEST(FftTwiddles, FollowTheirFormula)
{
    for (int k = 0; k < 256; ++k) {
        double fraction = 0;
        for (int bit = 0; bit < 8; ++bit)
            fraction += (k >> bit & 1) * std::ldexp(1.0, -1 - bit);
        const double re = std::ldexp(std::cos(-kPi * fraction), 31);
        const double im = std::ldexp(std::sin(-kPi * fraction), 31);
        EXPECT_EQ(fftTwiddle[k].re, int32_t(std::lround(std::min(re, 2147483647.0)))) << k;
        EXPECT_EQ(fftTwiddle[k].im, int32_t(std::lround(std::max(im, -2147483647.0)))) << k;
    }
}

TEST(FftPasses, TakeEachFurther16PointsWithTheSameFactors)
{
    Vector x = randomVector(5, 1 << 20, 3);
    Vector y = x;
    Velora_FFT_NEON_stage2_2_IntLoop(x.re.data(), x.im.data(), fftTwiddle + 3, fftTwiddle + 6, 8);
    for (int block : {0, 16})
        Velora_FFT_NEON_stage2_2_IntLoop(y.re.data() + block, y.im.data() + block, fftTwiddle + 3,
                                         fftTwiddle + 6, 4);
    EXPECT_EQ(x.re, y.re);
    EXPECT_EQ(x.im, y.im);
}

TEST(FftInit, IgnoresSizesItDoesNotHave)
{
    Vector x = randomVector(9, 1 << 20, 4);
    Vector y = x;
    Velora_FFT_NEON_Init(9);
    Velora_FFT_NEON(x.re.data(), x.im.data());
    for (int n : {-1, 0, 4, 10, 31})
        Velora_FFT_NEON_Init(n);
    Velora_FFT_NEON(y.re.data(), y.im.data());
    EXPECT_EQ(x.re, y.re);
}

TEST(FftInit, MakingAnEngineSetsTheSizeForTheWholeProcess)
{
    Velora_FFT_NEON_Init(5);
    Velora_VSP_Factory::Destroy(Velora_VSP_Factory::Create());
    Vector x(9);
    x.re[0] = 1;
    Velora_FFT_NEON(x.re.data(), x.im.data());
    EXPECT_EQ(x.re, std::vector<int32_t>(512, 1));
}

} // namespace
